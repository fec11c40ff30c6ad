/* A worker of a distributed queue in C, and who gives it tasks: one task fails at first, and comes again. Build:
 *     cc worker.c $(pkg-config --cflags --libs quorlcmq) -o worker
 */
#include <quorl/quorlcmq.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

static void check(quorl_status status, const char* what) {
    if (status == QUORL_OK) return;
    fprintf(stderr, "%s: %d %s: %s\n", what, (int)status, quorlStatus_GetText(status), quorl_LastErrorText());
    exit(1);
}
static int failures = 1;
static void onTask(quorlcmEvent worker, quorlMsg task, void* closure) {
    const char* file;
    (void)closure;
    check(quorlMsg_GetStringEx(task, "file", &file, 0), "file");
    if (failures > 0 && file[0] == 'b') {
        failures--;
        printf("%s cannot be read now\n", file);
        check(quorlcmEvent_ReturnMsg(worker, task), "return"); /* another worker gets it, or this one again */
        return;
    }
    printf("resized %s\n", file);
    /* Another worker may have the task meanwhile, and a plain message is complete when this returns: both are QUORL_NOT_FOUND. */
    quorl_status status = quorlcmEvent_ConfirmMsg(worker, task);
    if (status != QUORL_NOT_FOUND) check(status, "confirm");
}
static quorl_u64 done;
static void onDone(quorlEvent event, quorlMsg advisory, void* closure) {
    (void)event, (void)closure;
    check(quorlMsg_GetU64Ex(advisory, "last", &done, 0), "last"); /* one task at once: in their order */
}
static void onGone(quorlcmTransport transport, void* gone) {
    (void)transport, sem_post(gone);
}
int main(void) {
    static const char* const files[] = {"a.png", "b.png", "c.png"};
    quorlTransport transport;
    quorlcmTransport crew, boss;
    quorlcmEvent worker;
    quorlEvent listener;
    check(quorl_Open(), "open");
    check(quorlTransport_Create(&transport, NULL, NULL, NULL), "transport"); /* the last: a daemon's address */
    /* The worker: a share of 1, one task at once, and 0.1 and 0.35 s between the scheduler's signs of life, 1.0 and 3.5 elsewhere. */
    check(quorlcmTransport_CreateDistributedQueueEx(&crew, transport, "crew", 1, 1, 1, 0.1, 0.35), "join");
    check(quorlcmEvent_CreateListener(&worker, QUORL_DEFAULT_QUEUE, onTask, crew, "pictures.*", NULL), "work");
    check(quorlcmEvent_SetExplicitConfirm(worker), "explicit");
    /* Who has the tasks; elsewhere a program of its own, with a ledger. */
    const char* subject = "_QUORL.INFO.certified.completed";
    check(quorlEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onDone, transport, subject, NULL), "advisories");
    check(quorlcmTransport_Create(&boss, transport, "boss", QUORL_FALSE, NULL, QUORL_FALSE, NULL), "boss");
    check(quorlcmTransport_AddListener(boss, "crew", "pictures.*"), "add");
    for (int i = 0; i < 3; i++) {
        quorlMsg task;
        check(quorlMsg_Create(&task), "create");
        check(quorlMsg_SetSendSubject(task, "pictures.new"), "subject");
        check(quorlMsg_AddStringEx(task, "file", files[i], 0), "add");
        check(quorlcmTransport_Send(boss, task), "send");
        check(quorlMsg_Destroy(task), "destroy");
    }
    while (done != 3) check(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), "dispatch");
    /* Leaving: no further tasks, and what is held is finished, so go on dispatching. */
    sem_t gone;
    sem_init(&gone, 0, 0);
    check(quorlcmTransport_DestroyEx(crew, onGone, &gone), "leave");
    while (sem_trywait(&gone) != 0) {
        quorl_status status = quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.1);
        if (status != QUORL_TIMEOUT) check(status, "dispatch");
    }
    printf("all tasks are done\n");
    return quorl_Close() != QUORL_OK;
}
