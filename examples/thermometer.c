/* Publish and subscribe in C: one listener on a wildcard subject hears two thermometers. Build:
 *     cc thermometer.c $(pkg-config --cflags --libs quorl) -o thermometer
 */
#include <quorl/quorl.h>
#include <stdio.h>

static int failures;

/* Reports a call that failed: its status, the status's text, and the detail. */
static void check(quorl_status status, const char* what) {
    if (status == QUORL_OK) return;
    fprintf(stderr, "%s: %d %s: %s\n", what, (int)status, quorlStatus_GetText(status), quorl_LastErrorText());
    failures++;
}

/* Runs on the thread that dispatches; the library destroys the message afterwards. */
static void onTemperature(quorlEvent event, quorlMsg message, void* closure) {
    (void)event;
    const char* subject;
    quorl_f64 celsius;
    check(quorlMsg_GetSendSubject(message, &subject), "subject");
    check(quorlMsg_GetF64Ex(message, "celsius", &celsius, 0), "celsius");
    printf("%s %.1f\n", subject, celsius);
    ++*(int*)closure;
}

static void publish(quorlTransport transport, const char* subject, quorl_f64 celsius) {
    quorlMsg message;
    check(quorlMsg_Create(&message), "create");
    check(quorlMsg_SetSendSubject(message, subject), "set subject");
    check(quorlMsg_AddF64Ex(message, "celsius", celsius, 0), "add");
    check(quorlTransport_Send(transport, message), "send");
    check(quorlMsg_Destroy(message), "destroy");
}

int main(void) {
    int heard = 0;
    quorlTransport transport;
    quorlEvent listener;
    check(quorl_Open(), "open");
    check(quorlTransport_Create(&transport, NULL, NULL, NULL), "transport");
    check(quorlEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onTemperature, transport, "plant.*.temp", &heard),
          "listen");

    publish(transport, "plant.line3.temp", 71.5);
    publish(transport, "plant.line4.temp", 68.0);
    publish(transport, "plant.line4.pressure", 1.0); /* nobody listens to this */

    while (failures == 0 && quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.0) == QUORL_OK) continue;
    printf("%d messages\n", heard);
    check(quorl_Close(), "close");
    return failures != 0;
}
