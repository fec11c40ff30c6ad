// Every call from inside every kind of callback: it does what it does outside, at once.
#include <unistd.h>

#include <memory>

#include "support.h"

namespace quorltest {
namespace {

struct Row;

// What a call is made on: objects that live, and where it is made from.
struct Scene {
    quorlTransport transport = 0;
    quorlQueue queue = 0;  // the one that is dispatched, when something is
    quorlQueueGroup group = 0;
    quorlEvent event = 0;  // the one whose callback runs, or an idle listener
    quorlQueue spare = 0;
    quorlEvent timer = 0;        // of the spare queue, never due
    quorlMsg message = nullptr;  // with a send and a reply subject and a field n
    quorlMsg given = nullptr;    // the callback's
    const Row* row = nullptr;
    quorl_status status = QUORL_EOF;
    Counter done;
};

struct Row {
    const char* name;
    quorl_status (*call)(Scene& scene);
    quorl_status expected = QUORL_OK;
};

void run(void* closure);

// ---- the calls

void ignore(quorlEvent, quorlMsg, void*) {}
void ignoreBatch(quorlMsg*, quorl_u32) {}

// The second call's status when the first succeeds.
template <class F>
quorl_status then(quorl_status first, F&& second) {
    return first == QUORL_OK ? second() : first;
}

const Row environmentRows[] = {
    {"quorl_Open, quorl_Close", [](Scene&) { return then(quorl_Open(), [] { return quorl_Close(); }); }},
    {"quorl_OpenEx, quorl_Close", [](Scene&) { return then(quorl_OpenEx(""), [] { return quorl_Close(); }); }},
    {"quorl_SetQRParameters",
     [](Scene&) {
         const char* parameter = "queue.limit=7";
         return quorl_SetQRParameters(1, &parameter);
     },
     QUORL_NOT_PERMITTED},
    {"quorl_SetQRParameters of none", [](Scene&) { return quorl_SetQRParameters(0, nullptr); }, QUORL_OK},
    {"quorl_IsIPM", [](Scene&) { return quorl_IsIPM() == QUORL_TRUE ? QUORL_OK : QUORL_EOF; }},
    {"quorl_Version", [](Scene&) { return quorl_Version() != nullptr ? QUORL_OK : QUORL_EOF; }},
    {"quorlStatus_GetText", [](Scene&) { return quorlStatus_GetText(QUORL_EOF) != nullptr ? QUORL_OK : QUORL_EOF; }},
    {"quorl_LastErrorText", [](Scene&) { return quorl_LastErrorText() != nullptr ? QUORL_OK : QUORL_EOF; }},
    {"quorl_DisableQRDMReadyCheck", [](Scene&) { return quorl_DisableQRDMReadyCheck(), QUORL_OK; }},
};

const Row queueRows[] = {
    {"quorlQueue_Create, _DestroyEx",
     [](Scene&) {
         quorlQueue queue = 0;
         return then(quorlQueue_Create(&queue), [&] { return quorlQueue_DestroyEx(queue, nullptr, nullptr); });
     }},
    {"quorlQueue_DestroyEx of the dispatched one",
     [](Scene& scene) { return quorlQueue_DestroyEx(scene.queue, nullptr, nullptr); }},
    {"quorlQueue_DestroyEx of the default one",
     [](Scene&) { return quorlQueue_DestroyEx(QUORL_DEFAULT_QUEUE, nullptr, nullptr); }, QUORL_NOT_PERMITTED},
    {"quorlQueue_SetName", [](Scene& scene) { return quorlQueue_SetName(scene.queue, "name"); }},
    {"quorlQueue_GetName",
     [](Scene& scene) {
         const char* name = nullptr;
         return quorlQueue_GetName(scene.queue, &name);
     }},
    {"quorlQueue_GetCount",
     [](Scene& scene) {
         quorl_u32 count = 0;
         return quorlQueue_GetCount(scene.queue, &count);
     }},
    {"quorlQueue_TimedDispatch of an empty queue",
     [](Scene& scene) { return quorlQueue_TimedDispatch(scene.spare, 0); }, QUORL_TIMEOUT},
    {"quorlQueue_TimedDispatch that waits", [](Scene& scene) { return quorlQueue_TimedDispatch(scene.spare, 0.0001); },
     QUORL_TIMEOUT},
    {"quorlQueue_TimedDispatch of an event",
     [](Scene& scene) {
         listen(scene.spare, scene.transport, "spare", ignore, nullptr);
         sendNumber(scene.transport, "spare", 1);
         return quorlQueue_TimedDispatch(scene.spare, 0);
     }},
    {"quorlQueue_SetPriority", [](Scene& scene) { return quorlQueue_SetPriority(scene.queue, 7); }},
    {"quorlQueue_GetPriority",
     [](Scene& scene) {
         quorl_u32 priority = 0;
         return quorlQueue_GetPriority(scene.queue, &priority);
     }},
    {"quorlQueue_SetLimitPolicy",
     [](Scene& scene) { return quorlQueue_SetLimitPolicy(scene.queue, QUORLQUEUE_DISCARD_FIRST, 1, 1); }},
    {"quorlQueue_GetLimitPolicy",
     [](Scene& scene) {
         quorlQueueLimitPolicy policy;
         quorl_u32 most = 0;
         quorl_u32 amount = 0;
         return quorlQueue_GetLimitPolicy(scene.queue, &policy, &most, &amount);
     }},
    {"quorlQueueGroup_Create, _Destroy",
     [](Scene&) {
         quorlQueueGroup group = 0;
         return then(quorlQueueGroup_Create(&group), [&] { return quorlQueueGroup_Destroy(group); });
     }},
    {"quorlQueueGroup_Destroy of the dispatched one",
     [](Scene& scene) { return quorlQueueGroup_Destroy(scene.group); }},
    {"quorlQueueGroup_Add", [](Scene& scene) { return quorlQueueGroup_Add(scene.group, scene.spare); }},
    {"quorlQueueGroup_Remove", [](Scene& scene) { return quorlQueueGroup_Remove(scene.group, scene.queue); }},
    {"quorlQueueGroup_TimedDispatch", [](Scene& scene) { return quorlQueueGroup_TimedDispatch(scene.group, 0); },
     QUORL_TIMEOUT},
};

const Row eventRows[] = {
    {"quorlEvent_CreateListener",
     [](Scene& scene) {
         quorlEvent event = 0;
         return quorlEvent_CreateListener(&event, scene.queue, ignore, scene.transport, "more", nullptr);
     }},
    {"quorlEvent_CreateGroupVectorListener",
     [](Scene& scene) {
         quorlEvent event = 0;
         return quorlEvent_CreateGroupVectorListener(&event, scene.queue, ignoreBatch, scene.transport, "more", nullptr,
                                                     nullptr);
     }},
    {"quorlEvent_CreateTimer",
     [](Scene& scene) {
         quorlEvent event = 0;
         return quorlEvent_CreateTimer(&event, scene.spare, ignore, 0, nullptr);
     }},
    {"quorlEvent_GetTimerInterval",
     [](Scene& scene) {
         double interval = 0;
         return quorlEvent_GetTimerInterval(scene.timer, &interval);
     }},
    {"quorlEvent_ResetTimerInterval", [](Scene& scene) { return quorlEvent_ResetTimerInterval(scene.timer, 1e6); }},
    {"quorlEvent_DestroyEx of its own event", [](Scene& scene) { return quorlEvent_DestroyEx(scene.event, nullptr); }},
    {"quorlEvent_DestroyEx of another", [](Scene& scene) { return quorlEvent_DestroyEx(scene.timer, nullptr); }},
};

const Row transportRows[] = {
    {"quorlTransport_Create, _Destroy",
     [](Scene&) {
         quorlTransport transport = 0;
         return then(quorlTransport_Create(&transport, "other", nullptr, nullptr),
                     [&] { return quorlTransport_Destroy(transport); });
     }},
    {"quorlTransport_Destroy of the one that fed it",
     [](Scene& scene) { return quorlTransport_Destroy(scene.transport); }},
    {"quorlTransport_SetDescription", [](Scene& scene) { return quorlTransport_SetDescription(scene.transport, "x"); }},
    {"quorlTransport_RequestReliability",
     [](Scene& scene) { return quorlTransport_RequestReliability(scene.transport, 1); }},
    {"quorlTransport_SetBatchMode",
     [](Scene& scene) { return quorlTransport_SetBatchMode(scene.transport, QUORLTRANSPORT_TIMER_BATCH); }},
    {"quorlTransport_SetBatchSize", [](Scene& scene) { return quorlTransport_SetBatchSize(scene.transport, 100); }},
    {"quorlTransport_CreateInbox",
     [](Scene& scene) {
         char inbox[QUORL_SUBJECT_MAX + 1];
         return quorlTransport_CreateInbox(scene.transport, inbox, sizeof inbox);
     }},
    {"quorlTransport_Send", [](Scene& scene) { return quorlTransport_Send(scene.transport, scene.message); }},
    {"quorlTransport_Send of the callback's message",
     [](Scene& scene) {
         return quorlTransport_Send(scene.transport, scene.given != nullptr ? scene.given : scene.message);
     }},
    {"quorlTransport_Sendv", [](Scene& scene) { return quorlTransport_Sendv(scene.transport, &scene.message, 1); }},
    {"quorlTransport_SendRequest without an answer",
     [](Scene& scene) {
         quorlMsg reply = nullptr;
         return quorlTransport_SendRequest(scene.transport, scene.message, &reply, 0.0001);
     },
     QUORL_TIMEOUT},
    {"quorlTransport_SendRequest to the library",
     [](Scene& scene) {
         quorlMsg request = newMessage("_QUORL.STATS");
         quorlMsg reply = nullptr;
         const quorl_status status = quorlTransport_SendRequest(scene.transport, request, &reply, limit);
         quorlMsg_Destroy(request);
         return then(status, [&] { return quorlMsg_Destroy(reply); });
     }},
    {"quorlTransport_SendReply",
     [](Scene& scene) {
         quorlMsg reply = newMessage("x");
         const quorl_status status = quorlTransport_SendReply(scene.transport, reply, scene.message);
         quorlMsg_Destroy(reply);
         return status;
     }},
};

const Row messageRows[] = {
    {"quorlMsg_Create, _Destroy",
     [](Scene&) {
         quorlMsg message = nullptr;
         return then(quorlMsg_Create(&message), [&] { return quorlMsg_Destroy(message); });
     }},
    {"quorlMsg_CreateFromBytes",
     [](Scene& scene) {
         const void* bytes = nullptr;
         quorlMsg copy = nullptr;
         return then(quorlMsg_GetAsBytes(scene.message, &bytes), [&] {
             return then(quorlMsg_CreateFromBytes(&copy, bytes), [&] { return quorlMsg_Destroy(copy); });
         });
     }},
    {"quorlMsg_CreateCopy",
     [](Scene& scene) {
         quorlMsg copy = nullptr;
         return then(quorlMsg_CreateCopy(scene.message, &copy), [&] { return quorlMsg_Destroy(copy); });
     }},
    {"quorlMsg_Detach, _Destroy of the callback's message",
     [](Scene& scene) {
         if (scene.given == nullptr) return QUORL_OK;
         return then(quorlMsg_Detach(scene.given), [&] { return quorlMsg_Destroy(scene.given); });
     }},
    {"quorlMsg_Destroy of the callback's message",
     [](Scene& scene) { return scene.given == nullptr ? QUORL_OK : quorlMsg_Destroy(scene.given); }},
    {"quorlMsg_Reset", [](Scene& scene) { return quorlMsg_Reset(scene.message); }},
    {"quorlMsg_GetClosure",
     [](Scene& scene) {
         void* closure = nullptr;
         return scene.given == nullptr ? QUORL_OK : quorlMsg_GetClosure(scene.given, &closure);
     }},
    {"quorlMsg_SetSendSubject", [](Scene& scene) { return quorlMsg_SetSendSubject(scene.message, "y"); }},
    {"quorlMsg_GetSendSubject",
     [](Scene& scene) {
         const char* subject = nullptr;
         return quorlMsg_GetSendSubject(scene.message, &subject);
     }},
    {"quorlMsg_SetReplySubject", [](Scene& scene) { return quorlMsg_SetReplySubject(scene.message, "y"); }},
    {"quorlMsg_GetReplySubject",
     [](Scene& scene) {
         const char* subject = nullptr;
         return quorlMsg_GetReplySubject(scene.message, &subject);
     }},
    {"quorlMsg_ConvertToString",
     [](Scene& scene) {
         const char* text = nullptr;
         return quorlMsg_ConvertToString(scene.message, &text);
     }},
    {"quorlMsg_GetNumFields",
     [](Scene& scene) {
         quorl_u32 count = 0;
         return quorlMsg_GetNumFields(scene.message, &count);
     }},
    {"quorlMsg_GetByteSize",
     [](Scene& scene) {
         quorl_u32 size = 0;
         return quorlMsg_GetByteSize(scene.message, &size);
     }},
    {"quorlMsg_AddStringEx", [](Scene& scene) { return quorlMsg_AddStringEx(scene.message, "text", "x", 0); }},
    {"quorlMsg_UpdateI32Ex", [](Scene& scene) { return quorlMsg_UpdateI32Ex(scene.message, "n", 7, 0); }},
    {"quorlMsg_GetI32Ex",
     [](Scene& scene) {
         quorl_i32 value = 0;
         return quorlMsg_GetI32Ex(scene.given != nullptr ? scene.given : scene.message, "n", &value, 0);
     }},
    {"quorlMsg_GetFieldByIndex",
     [](Scene& scene) {
         quorlMsgField field;
         return quorlMsg_GetFieldByIndex(scene.message, &field, 0);
     }},
    {"quorlMsg_RemoveFieldInstance", [](Scene& scene) { return quorlMsg_RemoveFieldInstance(scene.message, "n", 1); }},
};

const Row bindingRows[] = {
    {"_quorlObjectId_Verify", [](Scene& scene) { return _quorlObjectId_Verify(scene.event, QUORL_OBJECT_EVENT); }},
    {"_quorlObjectId_GetEx, _ReleaseEx",
     [](Scene& scene) {
         void* record = nullptr;
         return then(_quorlObjectId_GetEx(scene.event, QUORL_OBJECT_EVENT, &record, 1, 0),
                     [&] { return _quorlObjectId_ReleaseEx(record, 1); });
     }},
    {"_quorlThreadLocal_Create, _Set, _Get",
     [](Scene&) {
         _quorlThreadLocal slot = 0;
         void* value = nullptr;
         return then(_quorlThreadLocal_Create(&slot), [&] {
             return then(_quorlThreadLocal_Set(slot, nullptr), [&] { return _quorlThreadLocal_Get(slot, &value); });
         });
     }},
    {"_quorlMutex_Create, _Destroy",
     [](Scene&) {
         _quorlMutex mutex = nullptr;
         return then(_quorlMutex_Create(&mutex), [&] { return _quorlMutex_Destroy(mutex); });
     }},
    {"_quorlCondition_Create, _Signal, _Destroy",
     [](Scene&) {
         _quorlCondition condition = nullptr;
         return then(_quorlCondition_Create(&condition), [&] {
             return then(_quorlCondition_Signal(condition), [&] { return _quorlCondition_Destroy(condition); });
         });
     }},
    {"_quorlDispatchable_SetThreadKey",
     [](Scene&) {
         quorl_u32 cell = 0;
         return then(_quorlDispatchable_SetThreadKey(&cell), [] { return _quorlDispatchable_SetThreadKey(nullptr); });
     }},
    {"_quorlDispatchable_Signal of a queue", [](Scene& scene) { return _quorlDispatchable_Signal(scene.queue); }},
    {"_quorlDispatchable_Signal of a group", [](Scene& scene) { return _quorlDispatchable_Signal(scene.group); }},
    {"a signal to itself",
     [](Scene& scene) {
         quorl_u32 cell = scene.spare;
         EXPECT_EQ(_quorlDispatchable_SetThreadKey(&cell), QUORL_OK);
         EXPECT_EQ(_quorlDispatchable_Signal(scene.spare), QUORL_OK);
         const quorl_status status = quorlQueue_TimedDispatch(scene.spare, limit);
         EXPECT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
         return status;
     },
     QUORL_INTR},
};

const Row lastCloseRows[] = {
    {"the last quorl_Close", [](Scene&) { return quorl_Close(); }, QUORL_NOT_PERMITTED},
};

// ---- from where

void onEvent(quorlEvent, quorlMsg message, void* closure) {
    static_cast<Scene*>(closure)->given = message;
    run(closure);
}
// It fires once: rows that dispatch must not meet its next event.
void onTimer(quorlEvent timer, quorlMsg, void* closure) {
    EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, 1e6), QUORL_OK);
    run(closure);
}
void onBatch(quorlMsg* messages, quorl_u32 size) {
    ASSERT_EQ(size, 1u);
    void* closure = nullptr;
    ASSERT_EQ(quorlMsg_GetClosure(messages[0], &closure), QUORL_OK);
    static_cast<Scene*>(closure)->given = messages[0];
    run(closure);
}

void idle(Scene& scene) {
    scene.event = listen(scene.queue, scene.transport, "idle", ignore, nullptr);
}

struct Place {
    const char* name;
    bool callback;
    void (*make)(Scene& scene);
};

const Place places[] = {
    {"no callback", false,
     [](Scene& scene) {
         idle(scene);
         run(&scene);
     }},
    {"a listener", true,
     [](Scene& scene) {
         scene.event = listen(scene.queue, scene.transport, "start", onEvent, &scene);
         sendNumber(scene.transport, "start", 1);
         EXPECT_EQ(quorlQueue_TimedDispatch(scene.queue, limit), QUORL_OK);
     }},
    {"a vector listener", true,
     [](Scene& scene) {
         EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&scene.event, scene.queue, onBatch, scene.transport, "start",
                                                        &scene, nullptr),
                   QUORL_OK);
         sendNumber(scene.transport, "start", 1);
         EXPECT_EQ(quorlQueue_TimedDispatch(scene.queue, limit), QUORL_OK);
     }},
    {"a timer", true,
     [](Scene& scene) {
         EXPECT_EQ(quorlEvent_CreateTimer(&scene.event, scene.queue, onTimer, 0.0001, &scene), QUORL_OK);
         EXPECT_EQ(quorlQueue_TimedDispatch(scene.queue, limit), QUORL_OK);
     }},
    {"a listener in a group's dispatch", true,
     [](Scene& scene) {
         scene.event = listen(scene.queue, scene.transport, "start", onEvent, &scene);
         sendNumber(scene.transport, "start", 1);
         EXPECT_EQ(quorlQueueGroup_TimedDispatch(scene.group, limit), QUORL_OK);
     }},
    {"a listener inside a listener", true,
     [](Scene& scene) {
         scene.event = listen(scene.queue, scene.transport, "start", onEvent, &scene);
         const quorlQueue outer = newQueue();
         const quorlEvent starter = listen(
             outer, scene.transport, "start",
             [](quorlEvent, quorlMsg, void* closure) {
                 EXPECT_EQ(quorlQueue_TimedDispatch(static_cast<Scene*>(closure)->queue, limit), QUORL_OK);
             },
             &scene);
         sendNumber(scene.transport, "start", 1);
         EXPECT_EQ(quorlQueue_TimedDispatch(outer, limit), QUORL_OK);
         EXPECT_EQ(quorlEvent_DestroyEx(starter, nullptr), QUORL_OK);
         EXPECT_EQ(quorlQueue_DestroyEx(outer, nullptr, nullptr), QUORL_OK);
     }},
    {"an event's completion", true,
     [](Scene& scene) {
         idle(scene);
         const quorlEvent gone = listen(scene.queue, scene.transport, "gone", ignore, &scene);
         EXPECT_EQ(quorlEvent_DestroyEx(gone, [](quorlEvent, void* closure) { run(closure); }), QUORL_OK);
     }},
    {"a queue's completion", true,
     [](Scene& scene) {
         idle(scene);
         EXPECT_EQ(quorlQueue_DestroyEx(
                       newQueue(), [](quorlQueue, void* closure) { run(closure); }, &scene),
                   QUORL_OK);
     }},
};

void run(void* closure) {
    auto& scene = *static_cast<Scene*>(closure);
    scene.status = scene.row->call(scene);
    scene.done.add();
}

class CallbackCalls : public Open {
  protected:
    // scenes: kept until the library is closed, since what a callback left may run until then.
    std::vector<std::unique_ptr<Scene>> scenes;
    void TearDown() override {
        Open::TearDown();
        for (const auto& scene : scenes) quorlMsg_Destroy(scene->message);
    }

    void play(const Place& place, const Row& row) {
        Scene& scene = *scenes.emplace_back(std::make_unique<Scene>());
        scene.row = &row;
        scene.transport = newTransport();
        scene.queue = newQueue();
        scene.spare = newQueue();
        ASSERT_EQ(quorlQueueGroup_Create(&scene.group), QUORL_OK);
        ASSERT_EQ(quorlQueueGroup_Add(scene.group, scene.queue), QUORL_OK);
        ASSERT_EQ(quorlEvent_CreateTimer(&scene.timer, scene.spare, ignore, 1e6, nullptr), QUORL_OK);
        scene.message = newMessage("nobody", 1);
        ASSERT_EQ(quorlMsg_SetReplySubject(scene.message, "nobody"), QUORL_OK);
        place.make(scene);
        ASSERT_TRUE(scene.done.waitFor(1)) << row.name << " in " << place.name;
        EXPECT_EQ(scene.status, row.expected) << row.name << " in " << place.name << ": " << quorl_LastErrorText();
        // Some of these are gone already.
        quorlTransport_Destroy(scene.transport);
        quorlQueueGroup_Destroy(scene.group);
        quorlQueue_DestroyEx(scene.queue, nullptr, nullptr);
        quorlQueue_DestroyEx(scene.spare, nullptr, nullptr);
    }

    template <size_t N>
    void playAll(const Row (&rows)[N], bool outsideToo = true) {
        for (const Place& place : places) {
            if (!place.callback && !outsideToo) continue;
            for (const Row& row : rows) {
                play(place, row);
                if (HasFatalFailure()) return;
            }
        }
    }
};

TEST_F(CallbackCalls, environment) {
    playAll(environmentRows);
}
TEST_F(CallbackCalls, queuesAndGroups) {
    playAll(queueRows);
}
TEST_F(CallbackCalls, events) {
    playAll(eventRows);
}
TEST_F(CallbackCalls, transports) {
    playAll(transportRows);
}
TEST_F(CallbackCalls, messages) {
    playAll(messageRows);
}
TEST_F(CallbackCalls, bindings) {
    playAll(bindingRows);
}
// It would wait for the callback that calls it.
TEST_F(CallbackCalls, theLastCloseIsRefused) {
    playAll(lastCloseRows, false);
}

}  // namespace
}  // namespace quorltest
