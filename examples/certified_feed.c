/* A feed in C whose receiver fails in the middle: when it is there again, it gets the rest, in order. Build:
 *     cc certified_feed.c $(pkg-config --cflags --libs quorlcm) -o certified_feed
 */
#include <quorl/quorlcm.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

static void check(quorl_status status, const char* what) {
    if (status == QUORL_OK) return;
    fprintf(stderr, "%s: %d %s: %s\n", what, (int)status, quorlStatus_GetText(status), quorl_LastErrorText());
    exit(1);
}
static quorlcmTransport certify(quorlTransport transport, const char* name) { /* its ledger is in the working folder */
    quorlcmTransport made;
    check(quorlcmTransport_Create(&made, transport, name, QUORL_TRUE, name, QUORL_FALSE, NULL), name);
    return made;
}
static quorl_i32 failing, last;
static void onOrder(quorlcmEvent listener, quorlMsg order, void* closure) {
    (void)closure;
    check(quorlMsg_GetI32Ex(order, "n", &last, 0), "n");
    printf("%s %d\n", last == failing ? "no paper for" : "booked", (int)last);
    if (last != failing) check(quorlcmEvent_ConfirmMsg(listener, order), "confirm");
}
static quorl_u64 confirmed;
static void onConfirmed(quorlEvent event, quorlMsg advisory, void* closure) {
    (void)event, (void)closure;
    check(quorlMsg_GetU64Ex(advisory, "last", &confirmed, 0), "last");
}
static void onGone(quorlcmTransport transport, void* gone) {
    (void)transport, sem_post(gone);
}

static void receive(quorlTransport transport, quorl_i32 until) {
    sem_t gone;
    quorlcmEvent listener;
    quorlcmTransport billing = certify(transport, "billing");
    check(quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onOrder, billing, "orders.>", NULL), "listen");
    check(quorlcmEvent_SetExplicitConfirm(listener), "explicit");
    while (last != until) check(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), "dispatch");
    sem_init(&gone, 0, 0); /* the ledger may be opened again when the library has finished with it */
    check(quorlcmTransport_DestroyEx(billing, onGone, &gone), "destroy");
    while (sem_wait(&gone) != 0) continue;
}
int main(void) {
    quorlTransport transport;
    quorlEvent advisories;
    check(quorl_Open(), "open");
    check(quorlTransport_Create(&transport, NULL, NULL, NULL), "transport");
    check(quorlEvent_CreateListener(&advisories, QUORL_DEFAULT_QUEUE, onConfirmed, transport,
                                    "_QUORL.INFO.certified.completed", NULL),
          "advisories");
    quorlcmTransport orders = certify(transport, "orders");
    check(quorlcmTransport_AddListener(orders, "billing", "orders.>"), "add");
    for (quorl_i32 n = 1; n <= 6; n++) {
        quorlMsg order;
        check(quorlMsg_Create(&order), "create");
        check(quorlMsg_SetSendSubject(order, "orders.new"), "subject");
        check(quorlMsg_AddI32Ex(order, "n", n, 0), "add");
        check(quorlcmTransport_Send(orders, order), "send"); /* from here on it is in the ledger */
        check(quorlMsg_Destroy(order), "destroy");
    }
    receive(transport, failing = 3);
    failing = 0;
    receive(transport, 6);
    while (confirmed != 6) check(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), "dispatch");
    printf("billing has confirmed them all\n");
    return quorl_Close() != QUORL_OK;
}
