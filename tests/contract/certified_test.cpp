// Certified transports and their blocking destruction, certified listeners, delivery control, and ledger review.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "com_vesma_quorl_QuorlCmListener.h"
#include "com_vesma_quorl_QuorlCmMsg.h"
#include "com_vesma_quorl_QuorlCmTransport.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string life = "certified transport lifecycle";
const std::string listeners = "certified listeners and confirmation";
const std::string control = "certified delivery control";
const std::string review = "ledger review";

// ---- creation ----

void state_creation() {
    const Native native = {"QuorlCmTransport_quorlcmTransport_1Create"};
    const std::string no_ledger = "Cannot allocate memory for ledgerName parameter.";
    const std::string no_relay = "Cannot allocate memory for relay agent parameter.";
    const Lines lines = {"GetByteArrayRegion(name, 0, 2)", "GetByteArrayRegion(ledger, 0, 3)",
                         "GetByteArrayRegion(relay, 0, 4)",
                         "quorlcmTransport_Create(&, 4294967294, \"cm\", 1, \"led\", 0, \"rela\")"};
    auto invoke = [] {
        when<&quorlcmTransport_Create>().does = [](quorlcmTransport* made, auto...) {
            *made = 0x87654321u;
            return QUORL_OK;
        };
        const Bytes name = given("name", "cm"), ledger = given("ledger", "led"), relay = given("relay", "rela");
        return call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Create, -2, name.array, name.length,
                    JNI_TRUE, ledger.array, ledger.length, JNI_FALSE, relay.array, relay.length);
    };
    Contract contract = {
        .family = life,
        .invoke = invoke,
        .result = "-2023406815",
        .lines = lines,
        .reports = LIBRARY(quorlcmTransport_Create),
        .failed_result = "0",
        .refusals = {{status_exception(19), "0"},
                     {out_of_memory(no_ledger), "0", Lines{lines[0], throw_new_line(no_ledger)}},
                     {out_of_memory(no_relay), "0", Lines{lines[0], lines[1], throw_new_line(no_relay)}}},
        .bytes = {{.label = "name", .canonical = "cm", .called_over_failed_copy = {"GetByteArrayRegion"}},
                  {.label = "ledger", .canonical = "led", .called_over_failed_copy = {"GetByteArrayRegion"}},
                  {"relay", "rela"}}};
    state(native, contract);
    row(native, life, "booleans_arrive_as_0_and_1", RowKind::normal, [] {
        for (jboolean old : {JNI_FALSE, JNI_TRUE}) {
            for (jboolean sync : {JNI_FALSE, JNI_TRUE}) {
                const Ran ran = call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Create, 3, nullptr, 5,
                                     old, nullptr, 5, sync, nullptr, 5);
                EXPECT_EQ(ran.all, Lines{"quorlcmTransport_Create(&, 3, null, " + std::to_string(old) + ", null, " +
                                         std::to_string(sync) + ", null)"});
            }
        }
    });
    row(native, life, "buffers_are_freed_before_the_status_is_thrown", RowKind::failure, [=] {
        when<&quorlcmTransport_Create>().status = QUORL_NOT_FILE_OWNER;
        const Lines all = invoke().all;
        ASSERT_EQ(all.size(), 12u);
        EXPECT_EQ(all[0], "alloc(3)");
        EXPECT_EQ(all[2], "alloc(4)");
        EXPECT_EQ(all[4], "alloc(5)");
        EXPECT_EQ(all[6], lines[3]);
        EXPECT_EQ(all[10], new_exception_line(80));
    });
    row(native, life, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlcmTransport_Create>().does = [](quorlcmTransport* made, auto...) {
            *made = 4;
            return QUORL_INVALID_FILE;
        };
        EXPECT_EQ(call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Create, 3, nullptr, 5, JNI_TRUE,
                       nullptr, 5, JNI_TRUE, nullptr, 5)
                      .result,
                  "0");
    });
    state(Native{"QuorlCmTransport_quorlcmTransport_1Destroy"},
          {.family = life,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Destroy, -2); },
           .lines = {"quorlcmTransport_Destroy(4294967294)"},
           .reports = LIBRARY(quorlcmTransport_Destroy),
           .every_status_is_quiet = true});
}

// ---- blocking destruction ----

// The library's condition and mutex, real enough for two threads.
struct Guard {
    struct __quorlMutex mutex = {0, PTHREAD_MUTEX_INITIALIZER};
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;

    _quorlCondition as_condition() { return reinterpret_cast<_quorlCondition>(&condition); }

    void programme() {
        when<&_quorlCondition_Create>().does = [this](_quorlCondition* made) {
            *made = as_condition();
            return QUORL_OK;
        };
        when<&_quorlMutex_Create>().does = [this](_quorlMutex* made) {
            *made = &mutex;
            return QUORL_OK;
        };
        when<&_quorlCondition_Wait>().does = [this](_quorlCondition waited, _quorlMutex with) {
            EXPECT_EQ(waited, as_condition());
            EXPECT_EQ(with, &mutex);
            pthread_cond_wait(&condition, &mutex.mutex);
            return QUORL_OK;
        };
        when<&_quorlCondition_Signal>().does = [this](_quorlCondition signalled) {
            EXPECT_EQ(signalled, as_condition());
            EXPECT_EQ(pthread_mutex_trylock(&mutex.mutex), EBUSY) << "the signal is given under the lock";
            pthread_cond_signal(&condition);
            return QUORL_OK;
        };
    }
};

void state_blocking_destruction() {
    const Native native = {"QuorlCmTransport_quorlcmTransport_1DestroyEx"};
    auto destroy = [] { return call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DestroyEx, -2); };
    const std::string start = "quorlcmTransport_DestroyEx(4294967294, callback, guard)";
    row(native, life, "waits_for_the_completion_on_another_thread", RowKind::normal, [=] {
        Guard guard;
        guard.programme();
        std::thread completing;
        bool completed = false;
        when<&quorlcmTransport_DestroyEx>().does = [&](quorlcmTransport id, quorlcmTransportOnComplete done,
                                                       const void* closure) {
            EXPECT_EQ(pthread_mutex_trylock(&guard.mutex.mutex), EBUSY) << "the destruction starts under the lock";
            completing = std::thread([&completed, id, done, closure] {
                completed = true;
                done(id, const_cast<void*>(closure));
            });
            return QUORL_OK;
        };
        const Ran ran = destroy();
        EXPECT_TRUE(completed);
        completing.join();
        EXPECT_EQ(ran.thrown, "");
        EXPECT_TRUE(ran.left.empty());
        const std::string condition = handle(guard.as_condition()), mutex = handle(&guard.mutex);
        ASSERT_GE(ran.lines.size(), 10u);
        EXPECT_EQ(Lines(ran.lines.begin(), ran.lines.begin() + 5),
                  (Lines{"_quorlCondition_Create(&)", "_quorlMutex_Create(&)", "pthread_mutex_lock", start,
                         "_quorlCondition_Wait(" + condition + ", " + mutex + ")"}));
        // The callback's lock and signal come before the waiter's end; its unlock may come at any time after.
        Lines rest(ran.lines.begin() + 5, ran.lines.end());
        const auto unlock = std::find(rest.begin(), rest.end(), "pthread_mutex_unlock");
        ASSERT_NE(unlock, rest.end());
        rest.erase(unlock);
        EXPECT_EQ(rest,
                  (Lines{"pthread_mutex_lock", "_quorlCondition_Signal(" + condition + ")", "pthread_mutex_unlock",
                         "_quorlMutex_Destroy(" + mutex + ")", "_quorlCondition_Destroy(" + condition + ")"}));
    });
    row(native, life, "completion_locks_signals_and_unlocks", RowKind::normal, [] {
        Guard guard;
        guard.programme();
        quorlcmTransportOnComplete done = nullptr;
        void* closure = nullptr;
        when<&_quorlCondition_Wait>().does = [&](_quorlCondition, _quorlMutex with) {
            pthread_mutex_unlock(&with->mutex);
            journal().clear();
            done(2, closure);
            EXPECT_EQ(journal().everything(),
                      (Lines{"pthread_mutex_lock", "_quorlCondition_Signal(" + handle(guard.as_condition()) + ")",
                             "pthread_mutex_unlock"}));
            pthread_mutex_lock(&with->mutex);
            return QUORL_OK;
        };
        when<&quorlcmTransport_DestroyEx>().does = [&](quorlcmTransport, quorlcmTransportOnComplete function,
                                                       const void* given_closure) {
            done = function;
            closure = const_cast<void*>(given_closure);
            return QUORL_OK;
        };
        call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DestroyEx, 2);
        EXPECT_EQ(when<&_quorlCondition_Wait>().calls, 1);
    });
    row(native, life, "wait_that_ends_early_ends_the_call", RowKind::normal, [=] {
        Guard guard;
        guard.programme();
        when<&_quorlCondition_Wait>().does = nullptr;
        const Ran ran = destroy();
        const std::string condition = handle(guard.as_condition()), mutex = handle(&guard.mutex);
        expect(ran, {"",
                     "",
                     {"_quorlCondition_Create(&)", "_quorlMutex_Create(&)", "pthread_mutex_lock", start,
                      "_quorlCondition_Wait(" + condition + ", " + mutex + ")", "pthread_mutex_unlock",
                      "_quorlMutex_Destroy(" + mutex + ")", "_quorlCondition_Destroy(" + condition + ")"}});
        EXPECT_EQ(pthread_mutex_trylock(&guard.mutex.mutex), 0) << "the lock is given back";
    });
    row(native, life, "throws_every_status_without_waiting", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            for (bool no_exception : {false, true}) {
                fresh();
                Guard guard;
                guard.programme();
                when<&quorlcmTransport_DestroyEx>().status = static_cast<quorl_status>(status);
                if (no_exception) jvm().fail("NewObject", 1);
                const std::string condition = handle(guard.as_condition()), mutex = handle(&guard.mutex);
                Lines lines = {"_quorlCondition_Create(&)", "_quorlMutex_Create(&)", "pthread_mutex_lock", start,
                               new_exception_line(status)};
                if (!no_exception) lines.push_back(throw_line);
                lines.insert(lines.end(), {"pthread_mutex_unlock", "_quorlMutex_Destroy(" + mutex + ")",
                                           "_quorlCondition_Destroy(" + condition + ")"});
                expect(destroy(), {"", no_exception ? machine_out_of_memory : status_exception(status), lines});
                EXPECT_EQ(pthread_mutex_trylock(&guard.mutex.mutex), 0) << "the lock is given back";
            }
        }
    });
    row(native, life, "statuses_of_condition_and_mutex_are_ignored", RowKind::failure, [=] {
        Guard guard;
        auto refuse = [&](auto& the_double, auto made) {
            the_double.does = [made](auto* variable) {
                *variable = made;
                return QUORL_OS_ERROR;
            };
        };
        refuse(when<&_quorlCondition_Create>(), guard.as_condition());
        refuse(when<&_quorlMutex_Create>(), &guard.mutex);
        when<&_quorlCondition_Wait>().status = QUORL_OS_ERROR;
        when<&_quorlMutex_Destroy>().status = QUORL_OS_ERROR;
        when<&_quorlCondition_Destroy>().status = QUORL_OS_ERROR;
        const Ran ran = destroy();
        EXPECT_EQ(ran.thrown, "");
        EXPECT_EQ(ran.lines.size(), 8u);
    });
}

// ---- listeners ----

void state_create_listener() {
    const Native native = {"QuorlCmListener_quorlcmEvent_1CreateListener"};
    const std::string no_memory = "Cannot allocate memory for listener reference.";
    const Lines lines = {
        "GetByteArrayRegion(subject, 0, 6)", "NewGlobalRef(this)",
        "quorlcmEvent_CreateListener(&, 4294967294, cmListenerCallback, 4294967293, \"orders\", global this)",
        "quorlcmEvent_SetExplicitConfirm(2271560492)",
        "_quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(2271560492)"};
    auto invoke = [] {
        when<&quorlcmEvent_CreateListener>().does = [](quorlcmEvent* made, auto...) {
            *made = 0x8765432Cu;
            return QUORL_OK;
        };
        const Bytes subject = given("subject", "orders");
        return call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1CreateListener, -2, -3, subject.array,
                    subject.length);
    };
    const Contract contract = {
        .family = listeners,
        .invoke = invoke,
        .result = "-2023406804",
        .lines = lines,
        .globals = 1,
        .reports = LIBRARY(quorlcmEvent_CreateListener),
        .failed_result = "0",
        .failed_tail = Lines{"DeleteGlobalRef(this)"},
        .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                    Lines{lines[0], lines[1], throw_new_line(no_memory)}}},
        .bytes = {{.label = "subject", .canonical = "orders", .called_over_failed_copy = {"NewGlobalRef"}}}};
    state(native, contract);
    row(native, listeners, "mode_that_is_refused_throws_and_leaves_the_listener", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            for (size_t step : {size_t{3}, size_t{4}}) {
                fresh();
                DoubleBase* refusing = &when<&quorlcmEvent_SetExplicitConfirm>();
                if (step == 4) refusing = &when<&_quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages>();
                refusing->status = static_cast<quorl_status>(status);
                Lines expected(lines.begin(), lines.begin() + static_cast<long>(step) + 1);
                expected.insert(expected.end(), {"DeleteGlobalRef(this)", new_exception_line(status), throw_line});
                expect(invoke(), {"0", status_exception(status), expected});
            }
        }
    });
}

void state_listener_callback() {
    auto run = [](jobject listener) {
        return observe_callback([listener] { cmListenerCallback(5, to_message(message), listener); });
    };
    auto global = [] { return jvm().new_global(jvm().object("L", "com/vesma/quorl/QuorlCmListener")); };
    const std::string set_event = "_quorlThreadLocal_Set(_eventThreadKey, global L)";
    const std::string set_message = "_quorlThreadLocal_Set(_msgThreadKey, " + message_text + ")";
    const std::string detach = "quorlMsg_Detach(" + message_text + ")";
    inner_row("cmListenerCallback", "parks_the_closure_detaches_and_parks_the_message", [=] {
        const jobject listener = global();
        EXPECT_EQ(run(listener).all, (Lines{set_event, detach, set_message}));
        EXPECT_EQ(peek_slot(_eventThreadKey), listener);
        EXPECT_EQ(peek_slot(_msgThreadKey), to_message(message));
    });
    inner_row("cmListenerCallback", "event_slot_that_fails_is_left_as_it_is", [=] {
        const jobject earlier = global();
        set_slot(_eventThreadKey, earlier);
        when<&_quorlThreadLocal_Set>().status = QUORL_NO_MEMORY;
        EXPECT_EQ(run(global()).all, Lines{set_event});
        EXPECT_EQ(peek_slot(_eventThreadKey), earlier);
    });
    inner_row("cmListenerCallback", "failed_detach_leaves_the_event_set_and_the_message_slot_untouched", [=] {
        for (int status : failing_statuses()) {
            fresh();
            set_slot(_msgThreadKey, to_message(other_message));
            when<&quorlMsg_Detach>().status = static_cast<quorl_status>(status);
            const jobject listener = global();
            EXPECT_EQ(run(listener).all, (Lines{set_event, detach}));
            EXPECT_EQ(peek_slot(_eventThreadKey), listener);
            EXPECT_EQ(peek_slot(_msgThreadKey), to_message(other_message));
        }
    });
    inner_row("cmListenerCallback", "message_slot_that_fails_is_left_as_it_is", [=] {
        when<&_quorlThreadLocal_Set>().does = [](_quorlThreadLocal key, void* value) {
            return key == _msgThreadKey ? QUORL_INVALID_ARG : set_slot(key, value);
        };
        EXPECT_EQ(run(global()).all, (Lines{set_event, detach, set_message}));
    });
}

void state_listener_rest() {
    const Native destroy = {"QuorlCmListener_quorlcmEvent_1Destroy"};
    state(destroy,
          {.family = listeners,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1Destroy, -5, JNI_TRUE); },
           .lines = {"quorlcmEvent_DestroyEx(4294967291, 1, null)"},
           .reports = LIBRARY(quorlcmEvent_DestroyEx),
           .every_status_is_quiet = true});
    row(destroy, listeners, "agreements_may_stay", RowKind::normal, [] {
        expect(call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1Destroy, 5, JNI_FALSE),
               {"", "", {"quorlcmEvent_DestroyEx(5, 0, null)"}});
    });
    state(Native{"QuorlCmListener_quorlcmEvent_1SetExplicitConfirm"},
          {.family = listeners,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1SetExplicitConfirm, -5); },
           .lines = {"quorlcmEvent_SetExplicitConfirm(4294967291)"},
           .reports = LIBRARY(quorlcmEvent_SetExplicitConfirm)});
    state(
        Native{"QuorlCmListener_quorlcmEvent_1ConfirmMsg"},
        {.family = listeners,
         .invoke =
             [] { return call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1ConfirmMsg, -5, message, nullptr); },
         .lines = {"quorlcmEvent_ConfirmMsg(4294967291, " + message_text + ")"},
         .reports = LIBRARY(quorlcmEvent_ConfirmMsg)});
}

void state_completion() {
    const Native native = {"QuorlCmListener_quorlcmEvent_1CompleteNonCertifiedMsg"};
    static int record;
    auto resolve = [](quorl_status status = QUORL_OK) {
        when<&_quorlObjectId_GetEx>().does = [status](quorl_u32, quorl_u32, void** found, quorl_u32, quorl_u32) {
            EXPECT_EQ(*found, nullptr);
            *found = &record;
            return status;
        };
    };
    auto complete = [] {
        return call(&Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1CompleteNonCertifiedMsg, -5, message);
    };
    const std::string get = "_quorlObjectId_GetEx(4294967291, 100, &, 1, 0)";
    const std::string number_line = "quorlMsg_GetU32Ex(" + message_text + ", \"dqsn\", &, 0)";
    const std::string release = "_quorlObjectId_ReleaseEx(" + handle(&record) + ", 1)";
    auto lines = [=](const std::string& dqsn) {
        return Lines{get, number_line, "_quorlcmq_Complete(" + handle(&record) + ", 0, 0, 0, 0, 0, " + dqsn + ")",
                     release};
    };
    row(native, listeners, "completes_the_number_of_the_message_under_a_reference", RowKind::normal, [=] {
        for (quorl_u32 dqsn : {1u, 4000000000u, 0xFFFFFFFFu}) {
            resolve();
            when<&quorlMsg_GetU32Ex>().does = [dqsn](quorlMsg, const char*, quorl_u32* value, quorl_u16) {
                EXPECT_EQ(*value, 0u);
                *value = dqsn;
                return QUORL_OK;
            };
            expect(complete(), {"", "", lines(std::to_string(dqsn))});
        }
    });
    row(native, listeners, "unknown_transport_is_silently_nothing", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            resolve(static_cast<quorl_status>(status));
            expect(complete(), {"", "", {get}});
        }
    });
    row(native, listeners, "message_without_a_number_completes_0", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            resolve();
            when<&quorlMsg_GetU32Ex>().status = static_cast<quorl_status>(status);
            expect(complete(), {"", "", lines("0")});
        }
    });
    row(native, listeners, "statuses_of_completion_and_release_are_ignored", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            resolve();
            when<&_quorlcmq_Complete>().status = static_cast<quorl_status>(status);
            when<&_quorlObjectId_ReleaseEx>().status = static_cast<quorl_status>(status);
            expect(complete(), {"", "", lines("0")});
        }
    });
}

// ---- delivery control ----

#define CM(name) Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1##name
#define CM_NATIVE(name)                             \
    Native {                                        \
        "QuorlCmTransport_quorlcmTransport_1" #name \
    }

void state_plain(const Native& native, const Library& library, std::function<Ran()> invoke,
                 const std::string& arguments) {
    state(native, {.family = control,
                   .invoke = std::move(invoke),
                   .lines = {library.name + "(" + arguments + ")"},
                   .reports = library});
}

void state_with_text(const Native& native, const Library& library, const std::string& label,
                     std::function<Ran(Bytes)> invoke, const std::string& more = "") {
    state(native,
          {.family = control,
           .invoke = [=] { return invoke(given(label, "audit")); },
           .lines = {"GetByteArrayRegion(" + label + ", 0, 5)", library.name + "(4294967294, \"audit\"" + more + ")"},
           .reports = library,
           .bytes = {{label, "audit"}}});
}

void state_with_listener(const Native& native, const Library& library,
                         void (*function)(JNIEnv*, jclass, jint, jbyteArray, jint, jbyteArray, jint)) {
    state(native, {.family = control,
                   .invoke =
                       [=] {
                           const Bytes name = given("name", "audit"), subject = given("subject", "orders");
                           return call(function, -2, name.array, name.length, subject.array, subject.length);
                       },
                   .lines = {"GetByteArrayRegion(name, 0, 5)", "GetByteArrayRegion(subject, 0, 6)",
                             library.name + "(4294967294, \"audit\", \"orders\")"},
                   .reports = library,
                   .bytes = {{.label = "name", .canonical = "audit", .called_over_failed_copy = {"GetByteArrayRegion"}},
                             {"subject", "orders"}}});
}

void state_control() {
    state_plain(
        CM_NATIVE(Send), LIBRARY(quorlcmTransport_Send), [] { return call(&CM(Send), -2, message, nullptr); },
        "4294967294, " + message_text);
    state_plain(
        CM_NATIVE(SendReply), LIBRARY(quorlcmTransport_SendReply),
        [] { return call(&CM(SendReply), -2, message, other_message, nullptr, nullptr); },
        "4294967294, " + message_text + ", " + other_message_text);
    state_with_text(CM_NATIVE(AllowListener), LIBRARY(quorlcmTransport_AllowListener), "name",
                    [](Bytes text) { return call(&CM(AllowListener), -2, text.array, text.length); });
    state_with_text(CM_NATIVE(DisallowListener), LIBRARY(quorlcmTransport_DisallowListener), "name",
                    [](Bytes text) { return call(&CM(DisallowListener), -2, text.array, text.length); });
    state_with_listener(CM_NATIVE(AddListener), LIBRARY(quorlcmTransport_AddListener), &CM(AddListener));
    state_with_listener(CM_NATIVE(RemoveListener), LIBRARY(quorlcmTransport_RemoveListener), &CM(RemoveListener));
    state_with_text(CM_NATIVE(RemoveSendState), LIBRARY(quorlcmTransport_RemoveSendState), "subject",
                    [](Bytes text) { return call(&CM(RemoveSendState), -2, text.array, text.length); });
    state_with_text(
        CM_NATIVE(ExpireMessages), LIBRARY(quorlcmTransport_ExpireMessages), "subject",
        [](Bytes text) { return call(&CM(ExpireMessages), -2, text.array, text.length, -1); },
        ", 18446744073709551615");
    state_plain(
        CM_NATIVE(SyncLedger), LIBRARY(quorlcmTransport_SyncLedger), [] { return call(&CM(SyncLedger), -2); },
        "4294967294");
    state_plain(
        CM_NATIVE(ConnectToRelayAgent), LIBRARY(quorlcmTransport_ConnectToRelayAgent),
        [] { return call(&CM(ConnectToRelayAgent), -2); }, "4294967294");
    state_plain(
        CM_NATIVE(DisconnectFromRelayAgent), LIBRARY(quorlcmTransport_DisconnectFromRelayAgent),
        [] { return call(&CM(DisconnectFromRelayAgent), -2); }, "4294967294");
    state_plain(
        CM_NATIVE(SetDefaultCMTimeLimit), LIBRARY(quorlcmTransport_SetDefaultCMTimeLimit),
        [] { return call(&CM(SetDefaultCMTimeLimit), -2, 0.125); }, "4294967294, 0.125");
    state_plain(
        CM_NATIVE(SetPublisherInactivityDiscardInterval),
        LIBRARY(quorlcmTransport_SetPublisherInactivityDiscardInterval),
        [] { return call(&CM(SetPublisherInactivityDiscardInterval), -2, -40); }, "4294967294, -40");

    const Native request = CM_NATIVE(SendRequest);
    const std::string line = "quorlcmTransport_SendRequest(4294967294, " + message_text + ", &, 2.5)";
    auto send = [] { return call(&CM(SendRequest), -2, message, 2.5, nullptr); };
    auto answer = [](quorl_status status) {
        when<&quorlcmTransport_SendRequest>().does = [status](quorlcmTransport, quorlMsg, quorlMsg* reply, double) {
            EXPECT_EQ(*reply, nullptr);
            *reply = to_message(other_message);
            return status;
        };
    };
    state(request, {.family = control,
                    .invoke =
                        [=] {
                            answer(QUORL_OK);
                            return send();
                        },
                    .result = std::to_string(other_message),
                    .lines = {line},
                    .reports = LIBRARY(quorlcmTransport_SendRequest),
                    .failed_result = "0",
                    .quiet = {{QUORL_TIMEOUT, "0"}}});
    row(request, control, "failure_gives_0_whatever_was_written", RowKind::failure, [=] {
        for (quorl_status status : {QUORL_TIMEOUT, QUORL_INTR}) {
            answer(status);
            EXPECT_EQ(send().result, "0") << status;
        }
    });
}

// ---- attributes of certified messages ----

void state_attributes() {
    const Native sender = {"QuorlCmMsg_quorlMsg_1GetCMSender"};
    const std::string get_sender = "quorlMsg_GetCMSender(" + message_text + ", &)";
    auto read_sender = [](const char* name, size_t room) {
        when<&quorlMsg_GetCMSender>().does = [name](quorlMsg, const char** found) {
            *found = name;
            return QUORL_OK;
        };
        return call(&Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMSender, message,
                    jvm().bytes("sender", std::string(room, 'x')), nullptr);
    };
    state(sender, {.family = control,
                   .invoke = [=] { return read_sender("billing", 255); },
                   .result = "7",
                   .lines = {get_sender, "SetByteArrayRegion(sender, 0, 7, \"billing\")"},
                   .reports = LIBRARY(quorlMsg_GetCMSender),
                   .failed_result = "0",
                   .quiet = {{QUORL_NOT_FOUND, "-1"}}});
    row(sender, control, "array_of_the_very_length_and_empty_name", RowKind::normal, [=] {
        expect(read_sender("billing", 7), {"7", "", {get_sender, "SetByteArrayRegion(sender, 0, 7, \"billing\")"}});
        expect(read_sender("", 0), {"0", "", {get_sender, "SetByteArrayRegion(sender, 0, 0, nothing)"}});
        const std::string long_name(70'000, 's');
        EXPECT_EQ(read_sender(long_name.c_str(), long_name.size()).result, "70000");
    });
    row(sender, control, "short_array_gives_the_length_and_leaves_the_bounds_exception", RowKind::failure, [=] {
        expect(read_sender("billing", 6),
               {"7", out_of_bounds, {get_sender, "SetByteArrayRegion(sender, 0, 7, out of bounds)"}});
    });

    const Native sequence = {"QuorlCmMsg_quorlMsg_1GetCMSequence"};
    auto read_sequence = [](quorl_u64 value, quorl_status status) {
        when<&quorlMsg_GetCMSequence>().does = [=](quorlMsg, quorl_u64* found) {
            *found = value;
            return status;
        };
        return call(&Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMSequence, message, nullptr);
    };
    state(sequence, {.family = control,
                     .invoke = [=] { return read_sequence(0x8000000000000001u, QUORL_OK); },
                     .result = "-9223372036854775807",
                     .lines = {"quorlMsg_GetCMSequence(" + message_text + ", &)"},
                     .reports = LIBRARY(quorlMsg_GetCMSequence),
                     .failed_result = "-1",
                     .quiet = {{QUORL_NOT_FOUND, "0"}}});
    row(sequence, control, "sentinels_whatever_was_written", RowKind::failure, [=] {
        EXPECT_EQ(read_sequence(9, QUORL_NOT_FOUND).result, "0");
        EXPECT_EQ(read_sequence(9, QUORL_INVALID_MSG).result, "-1");
    });

    const Native limit = {"QuorlCmMsg_quorlMsg_1GetCMTimeLimit"};
    auto read_limit = [](double value, quorl_status status) {
        when<&quorlMsg_GetCMTimeLimit>().does = [=](quorlMsg, quorl_f64* found) {
            *found = value;
            return status;
        };
        return call(&Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMTimeLimit, message, nullptr);
    };
    state(limit, {.family = control,
                  .invoke = [=] { return read_limit(0.125, QUORL_OK); },
                  .result = "0.125",
                  .lines = {"quorlMsg_GetCMTimeLimit(" + message_text + ", &)"},
                  .reports = LIBRARY(quorlMsg_GetCMTimeLimit),
                  .failed_result = "-1",
                  .quiet = {{QUORL_NOT_FOUND, "0"}}});
    row(limit, control, "sentinels_whatever_was_written", RowKind::failure, [=] {
        EXPECT_EQ(read_limit(9, QUORL_NOT_FOUND).result, "0");
        EXPECT_EQ(read_limit(9, QUORL_INVALID_MSG).result, "-1");
    });

    state(Native{"QuorlCmMsg_quorlMsg_1SetCMTimeLimit"},
          {.family = control,
           .invoke =
               [] { return call(&Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1SetCMTimeLimit, message, -3.5, nullptr); },
           .lines = {"quorlMsg_SetCMTimeLimit(" + message_text + ", -3.5)"},
           .reports = LIBRARY(quorlMsg_SetCMTimeLimit)});
}

// ---- ledger review ----

void state_review() {
    const Native native = CM_NATIVE(ReviewLedger);
    const std::string set = "_quorlThreadLocal_Set(_envThreadKey, env)";
    const std::string get = "_quorlThreadLocal_Get(_envThreadKey)";
    const std::string start = "quorlcmTransport_ReviewLedger(4294967294, callback, \"orders\", local info)";
    auto entry = [](const std::string& text) {
        return "CallBooleanMethod(info, com/vesma/quorl/QuorlCmReviewLedgerInfo.invokeReviewCallback, " + text + ")";
    };
    auto invoke = [] {
        const Bytes subject = given("subject", "orders");
        return call(&CM(ReviewLedger), -2, subject.array, subject.length,
                    jvm().object("info", "com/vesma/quorl/QuorlCmReviewLedgerInfo"));
    };
    // The library's side of a review over entries with those messages; what each callback answered.
    static std::vector<void*> answers;
    auto entries = [](std::vector<jlong> messages) {
        answers.clear();
        when<&quorlcmTransport_ReviewLedger>().does = [messages](quorlcmTransport id, quorlcmReviewCallback function,
                                                                 const char* subject, const void* closure) {
            for (jlong each : messages) {
                answers.push_back(function(id, subject, to_message(each), const_cast<void*>(closure)));
                if (answers.back() != nullptr) break;
            }
            return QUORL_OK;
        };
    };
    state(native, {.family = review,
                   .invoke = invoke,
                   .lines = {"GetByteArrayRegion(subject, 0, 6)", set, start},
                   .reports = LIBRARY(quorlcmTransport_ReviewLedger),
                   .bytes = {{"subject", "orders"}}});
    row(native, review, "calls_java_for_each_entry", RowKind::normal, [=] {
        entries({message, other_message, -1});
        expect(invoke(), {"",
                          "",
                          {"GetByteArrayRegion(subject, 0, 6)", set, start, get, entry("#7654321076543210"), get,
                           entry("#123456789abcdef0"), get, entry("#ffffffffffffffff")}});
        EXPECT_EQ(answers, (std::vector<void*>{nullptr, nullptr, nullptr}));
    });
    row(native, review, "stops_when_java_says_so", RowKind::normal, [=] {
        for (size_t last : {size_t{0}, size_t{1}}) {
            entries({1, 2, 3});
            size_t seen = 0;
            jvm().on_call = [&seen, last](jobject, const std::string&, jlong) {
                return static_cast<jboolean>(seen++ == last ? JNI_TRUE : JNI_FALSE);
            };
            EXPECT_EQ(invoke().thrown, "");
            EXPECT_EQ(answers.size(), last + 1);
            EXPECT_EQ(answers.back(), reinterpret_cast<void*>(1));
        }
    });
    row(native, review, "slot_keeps_the_environment", RowKind::normal, [=] {
        invoke();
        EXPECT_EQ(peek_slot(_envThreadKey), jvm().env());
    });
    row(native, review, "exception_of_java_lets_the_review_go_on", RowKind::failure, [=] {
        entries({1, 2});
        jvm().exempt("the review goes on after an exception of the Java method", {"CallBooleanMethod"});
        jvm().on_call = [](jobject, const std::string&, jlong) {
            jvm().raise("java/lang/InternalError", "of the program");
            return static_cast<jboolean>(JNI_FALSE);
        };
        EXPECT_EQ(invoke().thrown, "java/lang/InternalError: of the program");
        EXPECT_EQ(answers, (std::vector<void*>{nullptr, nullptr}));
    });
    row(native, review, "copy_that_fails_reviews_the_empty_subject_and_calls_java", RowKind::failure, [=] {
        entries({message, 2});
        jvm().exempt("no exception is looked for after the copy, nor in the callback", {"CallBooleanMethod"});
        std::vector<jlong> seen;
        jvm().on_call = [&seen](jobject, const std::string&, jlong given) {
            seen.push_back(given);
            return static_cast<jboolean>(JNI_FALSE);
        };
        const Ran ran = call(&CM(ReviewLedger), -2, jvm().bytes("subject", "orders"), 7,
                             jvm().object("info", "com/vesma/quorl/QuorlCmReviewLedgerInfo"));
        EXPECT_EQ(ran.thrown, out_of_bounds);
        EXPECT_EQ(seen, (std::vector<jlong>{message, 2}));
    });
    row(native, review, "environment_that_cannot_be_parked_throws", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&_quorlThreadLocal_Set>().status = static_cast<quorl_status>(status);
            expect(invoke(), {"",
                              status_exception(status),
                              {"GetByteArrayRegion(subject, 0, 6)", set, new_exception_line(status), throw_line}});
        }
    });
    row(native, review, "environment_that_cannot_be_read_stops_quietly", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            entries({1, 2});
            when<&_quorlThreadLocal_Get>().status = static_cast<quorl_status>(status);
            expect(invoke(), {"", "", {"GetByteArrayRegion(subject, 0, 6)", set, start, get}});
            EXPECT_EQ(answers, (std::vector<void*>{reinterpret_cast<void*>(1)}));
        }
    });
}

}  // namespace

void state_certified() {
    state_creation();
    state_blocking_destruction();
    state_create_listener();
    state_listener_callback();
    state_listener_rest();
    state_completion();
    state_control();
    state_attributes();
    state_review();
}

}  // namespace contract
