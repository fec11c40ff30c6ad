/* A member of a group in C, and a second one that takes over from it; both in one process, for brevity. Build:
 *     cc standby.c $(pkg-config --cflags --libs quorlft) -o standby
 */
#include <quorl/quorlft.h>
#include <stdio.h>

static int failures;

/* Reports a call that failed: its status, the status's text, and the detail. */
static void check(quorl_status status, const char* what) {
    if (status == QUORL_OK) return;
    fprintf(stderr, "%s: %d %s: %s\n", what, (int)status, quorlStatus_GetText(status), quorl_LastErrorText());
    failures++;
}

typedef struct {
    const char* name;
    quorl_u64 token; /* goes with everything that is done while active; 0: not active */
} Archivist;

/* Runs on the thread that dispatches. When it has returned from a deactivation, the next member acts. */
static void onAction(quorlftMember member, const char* group, quorlftAction action, void* closure) {
    Archivist* archivist = closure;
    archivist->token = 0;
    if (action == QUORLFT_ACTIVATE) {
        check(quorlftMember_GetToken(member, &archivist->token), "token");
        printf("%s acts for %s\n", archivist->name, group);
    } else if (action == QUORLFT_DEACTIVATE) {
        printf("%s stops\n", archivist->name);
    }
}

static quorlftMember join(quorlTransport transport, Archivist* archivist, quorl_u16 weight) {
    quorlftMember member = 0; /* heartbeat, preparation and activation in seconds */
    check(quorlftMember_Create(&member, QUORL_DEFAULT_QUEUE, onAction, transport, "plant.archive", weight, 1, 0.1, 0.3,
                               0.6, archivist),
          "join");
    return member;
}

int main(void) {
    Archivist first = {"the first", 0}, standby = {"the standby", 0};
    quorlTransport transport = 0;
    check(quorl_Open(), "open");
    check(quorlTransport_Create(&transport, NULL, NULL, NULL), "transport");
    const quorlftMember one = join(transport, &first, 2);
    while (failures == 0 && first.token == 0) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 1.0);
    join(transport, &standby, 1);
    const quorl_u64 old = first.token;
    check(quorlftMember_Destroy(one), "leave");
    while (failures == 0 && standby.token == 0) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 1.0);
    printf("its token is %s\n",
           standby.token > old ? "higher: what the first one still sends can be refused" : "wrong");
    check(quorl_Close(), "close");
    return failures != 0;
}
