// Listeners and timers, the callbacks that park what they bring, the dispatching thread's key, and an event's end.
#include <gtest/gtest.h>

#include "com_vesma_quorl_QuorlDispatcher.h"
#include "com_vesma_quorl_QuorlEvent.h"
#include "com_vesma_quorl_QuorlListener.h"
#include "com_vesma_quorl_QuorlTimer.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string listeners = "listeners and deferred delivery";
const std::string timers = "timers";
const std::string endings = "dispatcher thread key and event destruction";

const std::string set_event = "_quorlThreadLocal_Set(_eventThreadKey, ";
const std::string set_message = "_quorlThreadLocal_Set(_msgThreadKey, ";
const std::string get_message = "_quorlThreadLocal_Get(_msgThreadKey)";

jobject global(const std::string& label) {
    return jvm().new_global(jvm().object(label, "com/vesma/quorl/QuorlListener"));
}

void state_create_listener() {
    const Native native = {"QuorlListener_quorlEvent_1CreateListener"};
    const std::string no_memory = "Cannot allocate memory for listener reference.";
    const Lines lines = {
        "GetByteArrayRegion(subject, 0, 10)", "NewGlobalRef(this)",
        "quorlEvent_CreateListener(&, 4294967294, listenerCallback, 4294967293, \"plant.temp\", global this)"};
    Lines failed = {lines[0], lines[1]};
    state(native,
          {.family = listeners,
           .invoke =
               [] {
                   when<&quorlEvent_CreateListener>().does = [](quorlEvent* event, auto...) {
                       *event = 0x90000000u;
                       return QUORL_OK;
                   };
                   const Bytes subject = given("subject", "plant.temp");
                   return call(&Java_com_vesma_quorl_QuorlListener_quorlEvent_1CreateListener, -2, -3, subject.array,
                               subject.length);
               },
           .result = "-1879048192",
           .lines = lines,
           .globals = 1,
           .reports = LIBRARY(quorlEvent_CreateListener),
           .failed_result = "0",
           .failed_tail = Lines{"DeleteGlobalRef(this)"},
           .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                       Lines{lines[0], lines[1], throw_new_line(no_memory)}}},
           .bytes = {{.label = "subject", .canonical = "plant.temp", .called_over_failed_copy = {"NewGlobalRef"}}}});
}

void state_listener_callback() {
    auto run = [](jobject listener) {
        return observe_callback([listener] { listenerCallback(5, to_message(message), listener); });
    };
    const std::string set_listener = set_event + "global L)";
    const std::string detach = "quorlMsg_Detach(" + message_text + ")";
    const std::string set_this = set_message + message_text + ")";

    inner_row("listenerCallback", "parks_the_closure_and_then_the_detached_message", [=] {
        const jobject listener = global("L");
        const Ran ran = run(listener);
        EXPECT_EQ(ran.all, (Lines{set_listener, set_this, detach}));
        EXPECT_EQ(peek_slot(_eventThreadKey), listener);
        EXPECT_EQ(peek_slot(_msgThreadKey), to_message(message));
    });
    inner_row("listenerCallback", "event_slot_that_fails_is_set_to_null", [=] {
        when<&_quorlThreadLocal_Set>().does = [](_quorlThreadLocal key, void* value) {
            return value != nullptr ? QUORL_NO_MEMORY : set_slot(key, value);
        };
        set_slot(_eventThreadKey, global("earlier"));
        EXPECT_EQ(run(global("L")).all, (Lines{set_listener, set_event + "null)"}));
        EXPECT_EQ(peek_slot(_eventThreadKey), nullptr);
    });
    inner_row("listenerCallback", "message_slot_that_fails_is_set_to_null", [=] {
        when<&_quorlThreadLocal_Set>().does = [](_quorlThreadLocal key, void* value) {
            return key == _msgThreadKey && value != nullptr ? QUORL_INVALID_ARG : set_slot(key, value);
        };
        const jobject listener = global("L");
        EXPECT_EQ(run(listener).all, (Lines{set_listener, set_this, set_message + "null)"}));
        EXPECT_EQ(peek_slot(_eventThreadKey), listener);
    });
    inner_row("listenerCallback", "message_that_cannot_be_detached_is_dropped_and_the_listener_kept", [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorlMsg_Detach>().status = static_cast<quorl_status>(status);
            const jobject listener = global("L");
            EXPECT_EQ(run(listener).all, (Lines{set_listener, set_this, detach, set_message + "null)"}));
            EXPECT_EQ(peek_slot(_eventThreadKey), listener);
            EXPECT_EQ(peek_slot(_msgThreadKey), nullptr);
        }
    });
    inner_row("listenerCallback", "second_callback_without_a_fetch_leaves_the_second_message", [=] {
        const jobject listener = global("L");
        run(listener);
        observe_callback([listener] { listenerCallback(5, to_message(other_message), listener); });
        expect(call(&Java_com_vesma_quorl_QuorlListener_getDispatchedMsgHandle),
               {std::to_string(other_message), "", {get_message, set_message + "null)"}});
    });
}

void state_fetch() {
    const Native native = {"QuorlListener_getDispatchedMsgHandle"};
    auto fetch = [] { return call(&Java_com_vesma_quorl_QuorlListener_getDispatchedMsgHandle); };
    row(native, listeners, "gives_the_parked_message_once", RowKind::normal, [=] {
        for (jlong each : {message, other_message, jlong{1}, jlong{-1}, jlong{0x80000000}}) {
            set_slot(_msgThreadKey, to_message(each));
            expect(fetch(), {std::to_string(each), "", {get_message, set_message + "null)"}});
            expect(fetch(), {"0", "", {get_message}});
        }
    });
    row(native, listeners, "slot_that_cannot_be_read_reads_as_empty", RowKind::failure, [=] {
        set_slot(_msgThreadKey, to_message(message));
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        expect(fetch(), {"0", "", {get_message}});
    });
    row(native, listeners, "status_of_the_read_is_ignored_when_a_message_came", RowKind::failure, [=] {
        when<&_quorlThreadLocal_Get>().does = [](_quorlThreadLocal, void** value) {
            EXPECT_EQ(*value, nullptr);
            *value = to_message(message);
            return QUORL_NOT_FOUND;
        };
        expect(fetch(), {std::to_string(message), "", {get_message, set_message + "null)"}});
    });
    row(native, listeners, "status_of_the_clearing_is_ignored", RowKind::failure, [=] {
        set_slot(_msgThreadKey, to_message(message));
        when<&_quorlThreadLocal_Set>().status = QUORL_INVALID_ARG;
        expect(fetch(), {std::to_string(message), "", {get_message, set_message + "null)"}});
    });
}

void state_timers() {
    const Native create = {"QuorlTimer_quorlEvent_1CreateTimer"};
    const std::string no_memory = "Cannot allocate memory for timer reference.";
    state(create,
          {.family = timers,
           .invoke =
               [] {
                   when<&quorlEvent_CreateTimer>().does = [](quorlEvent* event, auto...) {
                       *event = 0x8765432Au;
                       return QUORL_OK;
                   };
                   return call(&Java_com_vesma_quorl_QuorlTimer_quorlEvent_1CreateTimer, -2, 0.125);
               },
           .result = "-2023406806",
           .lines = {"NewGlobalRef(this)", "quorlEvent_CreateTimer(&, 4294967294, timer_callback, 0.125, global this)"},
           .globals = 1,
           .reports = LIBRARY(quorlEvent_CreateTimer),
           .failed_result = "0",
           .failed_tail = Lines{"DeleteGlobalRef(this)"},
           .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                       Lines{"NewGlobalRef(this)", throw_new_line(no_memory)}}}});

    const Native get = {"QuorlTimer_quorlEvent_1GetInterval"};
    state(get, {.family = timers,
                .invoke =
                    [] {
                        when<&quorlEvent_GetTimerInterval>().does = [](quorlEvent, quorl_f64* interval) {
                            EXPECT_EQ(*interval, 0.0);
                            *interval = 2.5;
                            return QUORL_OK;
                        };
                        return call(&Java_com_vesma_quorl_QuorlTimer_quorlEvent_1GetInterval, -7);
                    },
                .result = "2.5",
                .lines = {"quorlEvent_GetTimerInterval(4294967289, &)"},
                .reports = LIBRARY(quorlEvent_GetTimerInterval),
                .failed_result = "0",
                .every_status_is_quiet = true});
    row(get, timers, "gives_what_was_written_whatever_the_status", RowKind::failure, [] {
        when<&quorlEvent_GetTimerInterval>().does = [](quorlEvent, quorl_f64* interval) {
            *interval = 9.75;
            return QUORL_INVALID_EVENT;
        };
        expect(call(&Java_com_vesma_quorl_QuorlTimer_quorlEvent_1GetInterval, 3),
               {"9.75", "", {"quorlEvent_GetTimerInterval(3, &)"}});
    });

    state(Native{"QuorlTimer_quorlEvent_1ResetTimerInterval"},
          {.family = timers,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlTimer_quorlEvent_1ResetTimerInterval, -7, -0.5); },
           .lines = {"quorlEvent_ResetTimerInterval(4294967289, -0.5)"},
           .reports = LIBRARY(quorlEvent_ResetTimerInterval)});

    inner_row("timer_callback", "parks_the_closure_and_touches_nothing_else", [] {
        set_slot(_msgThreadKey, to_message(message));
        const jobject timer = global("T");
        const Ran ran = observe_callback([timer] { timer_callback(5, to_message(other_message), timer); });
        EXPECT_EQ(ran.all, Lines{set_event + "global T)"});
        EXPECT_EQ(peek_slot(_eventThreadKey), timer);
        EXPECT_EQ(peek_slot(_msgThreadKey), to_message(message));
    });
    inner_row("timer_callback", "slot_that_fails_is_left", [] {
        when<&_quorlThreadLocal_Set>().status = QUORL_NO_MEMORY;
        const jobject timer = global("T");
        const Ran ran = observe_callback([timer] { timer_callback(5, nullptr, timer); });
        EXPECT_EQ(ran.all, Lines{set_event + "global T)"});
    });
}

void state_thread_key() {
    const Native set = {"QuorlDispatcher_quorlDispatchable_1SetThreadKey"};
    const Native clear = {"QuorlDispatcher_quorlDispatchable_1ClearThreadKey"};
    const Native signal = {"QuorlDispatcher_quorlDispatchable_1Signal"};
    auto set_key = [] { return call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1SetThreadKey); };
    auto clear_key = [](const Ran& made) {
        return call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1ClearThreadKey, std::stoll(made.result));
    };
    auto cell_of = [](const Ran& made) {
        return reinterpret_cast<quorl_u32*>(static_cast<uintptr_t>(std::stoll(made.result)));
    };
    const std::string no_memory = "Cannot allocate memory for dispatchable reference.";
    const std::string register_cell = "_quorlDispatchable_SetThreadKey(cell)";

    row(set, endings, "gives_the_zeroed_cell_that_the_library_was_given", RowKind::normal, [=] {
        void* registered = nullptr;
        when<&_quorlDispatchable_SetThreadKey>().does = [&registered](void* key) {
            registered = key;
            EXPECT_EQ(*static_cast<quorl_u32*>(key), 0u);
            return QUORL_OK;
        };
        const Ran ran = set_key();
        EXPECT_EQ(ran.thrown, "");
        EXPECT_EQ(ran.all, (Lines{"alloc(4)", register_cell}));
        EXPECT_EQ(ran.left, std::vector<size_t>{4});
        EXPECT_EQ(cell_of(ran), registered);
        when<&_quorlDispatchable_SetThreadKey>().does = nullptr;
        clear_key(ran);
    });
    row(set, endings, "no_memory_throws", RowKind::failure, [=] {
        heap().fail(1);
        expect(set_key(), {"0", out_of_memory(no_memory), {throw_new_line(no_memory)}});
    });
    row(set, endings, "refusal_is_quiet_and_frees_the_cell", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&_quorlDispatchable_SetThreadKey>().status = static_cast<quorl_status>(status);
            const Ran ran = set_key();
            expect(ran, {"0", "", {register_cell}});
            EXPECT_EQ(ran.all, (Lines{"alloc(4)", register_cell, "free(4)"}));
        }
    });
    row(clear, endings, "frees_the_cell_first_and_then_tells_the_library", RowKind::normal, [=] {
        const Ran ran = clear_key(set_key());
        EXPECT_EQ(ran.all, (Lines{"free(4)", "_quorlDispatchable_SetThreadKey(null)"}));
    });
    row(clear, endings, "nothing_to_free", RowKind::normal, [=] {
        const Ran ran = call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1ClearThreadKey, 0);
        EXPECT_EQ(ran.all, Lines{"_quorlDispatchable_SetThreadKey(null)"});
    });
    row(clear, endings, "every_status_is_quiet", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            const Ran made = set_key();
            when<&_quorlDispatchable_SetThreadKey>().status = static_cast<quorl_status>(status);
            expect(clear_key(made), {"", "", {"_quorlDispatchable_SetThreadKey(null)"}});
        }
    });
    row(signal, endings, "stores_the_id_before_it_signals", RowKind::normal, [=] {
        const Ran made = set_key();
        quorl_u32* const cell = cell_of(made);
        for (jint id : {7, -1, 0}) {
            *cell = 0x5A5A5A5A;
            when<&_quorlDispatchable_Signal>().does = [cell, id](quorl_u32) {
                EXPECT_EQ(*cell, static_cast<quorl_u32>(id));
                return QUORL_OK;
            };
            expect(call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1Signal, id, std::stoll(made.result)),
                   {"", "", {"_quorlDispatchable_Signal(" + std::to_string(static_cast<quorl_u32>(id)) + ")"}});
        }
        clear_key(made);
    });
    row(signal, endings, "thread_without_a_cell_is_signalled_without_one", RowKind::normal, [=] {
        expect(call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1Signal, 7, 0),
               {"", "", {"_quorlDispatchable_Signal(7)"}});
    });
    row(signal, endings, "every_status_is_quiet", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            const Ran made = set_key();
            when<&_quorlDispatchable_Signal>().status = static_cast<quorl_status>(status);
            expect(call(&Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1Signal, 7, std::stoll(made.result)),
                   {"", "", {"_quorlDispatchable_Signal(7)"}});
            EXPECT_EQ(*cell_of(made), 7u);
            clear_key(made);
        }
    });
}

void state_destroy() {
    const Native native = {"QuorlEvent_quorlEvent_1Destroy"};
    auto destroy = [] { return call(&Java_com_vesma_quorl_QuorlEvent_quorlEvent_1Destroy, -6); };
    const std::string look = "_quorlObjectId_GetEx(4294967290, 1, &, 0, 0)";
    const std::string end = "quorlEvent_DestroyEx(4294967290, null)";
    static _quorlRecordHead record;
    auto answer = [](const void* closure, quorl_status status) {
        record.arg = closure;
        when<&_quorlObjectId_GetEx>().does = [status](quorl_u32, quorl_u32, void** found, quorl_u32, quorl_u32) {
            EXPECT_EQ(*found, nullptr);
            *found = &record;
            return status;
        };
    };
    row(native, endings, "deletes_the_closure_and_then_destroys", RowKind::normal, [=] {
        answer(global("E"), QUORL_OK);
        expect(destroy(), {"", "", {look, "DeleteGlobalRef(E)", end}, {}, -1});
    });
    row(native, endings, "record_without_closure", RowKind::normal, [=] {
        answer(nullptr, QUORL_OK);
        expect(destroy(), {"", "", {look, end}});
    });
    row(native, endings, "no_record", RowKind::normal, [=] { expect(destroy(), {"", "", {look, end}}); });
    row(native, endings, "unknown_id_does_nothing", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&_quorlObjectId_GetEx>().status = static_cast<quorl_status>(status);
            expect(destroy(), {"", "", {look}});
        }
    });
    row(native, endings, "record_beside_a_failed_status_loses_its_closure_and_stays", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            answer(global("E"), static_cast<quorl_status>(status));
            expect(destroy(), {"", "", {look, "DeleteGlobalRef(E)"}, {}, -1});
        }
    });
    row(native, endings, "status_of_the_destruction_is_ignored", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            answer(global("E"), QUORL_OK);
            when<&quorlEvent_DestroyEx>().status = static_cast<quorl_status>(status);
            expect(destroy(), {"", "", {look, "DeleteGlobalRef(E)", end}, {}, -1});
        }
    });
}

}  // namespace

void state_events() {
    state_create_listener();
    state_listener_callback();
    state_fetch();
    state_timers();
    state_thread_key();
    state_destroy();
}

}  // namespace contract
