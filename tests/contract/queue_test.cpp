// Queues, queue groups and timed dispatch, by which every callback reaches Java.
#include <gtest/gtest.h>

#include "com_vesma_quorl_QuorlQueue.h"
#include "com_vesma_quorl_QuorlQueueGroup.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "queues and timed dispatch";

// A queue's limit policy as the library answers it.
quorl_status answer_limits(quorlQueue, quorlQueueLimitPolicy* policy, quorl_u32* most, quorl_u32* discard) {
    *policy = QUORLQUEUE_DISCARD_LAST;
    *most = 4000000000u;
    *discard = 17;
    return QUORL_OK;
}

void state_limit_getter(const Native& native, jint (*function)(JNIEnv*, jclass, jint), const std::string& result,
                        const std::string& left_by_failure) {
    state(native, {.family = family,
                   .invoke =
                       [=] {
                           when<&quorlQueue_GetLimitPolicy>().does = answer_limits;
                           return call(function, -5);
                       },
                   .result = result,
                   .lines = {"quorlQueue_GetLimitPolicy(4294967291, &, &, &)"}});
    // The value beside the exception is the variable as the library left it.
    row(native, family, "throws_every_status", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorlQueue_GetLimitPolicy>().does = [status](quorlQueue, quorlQueueLimitPolicy* policy,
                                                               quorl_u32* most, quorl_u32* discard) {
                *policy = QUORLQUEUE_DISCARD_NEW;
                *most = 31;
                *discard = 32;
                return static_cast<quorl_status>(status);
            };
            expect(call(function, 6),
                   {left_by_failure,
                    status_exception(status),
                    {"quorlQueue_GetLimitPolicy(6, &, &, &)", new_exception_line(status), throw_line}});
        }
    });
    row(native, family, "failure_that_writes_nothing_gives_0", RowKind::failure, [=] {
        when<&quorlQueue_GetLimitPolicy>().status = QUORL_INVALID_QUEUE;
        EXPECT_EQ(call(function, 6).result, "0");
    });
}

// The object that a callback leaves is Java's own: a global reference to the object that created the event.
jobject parked_listener() {
    return jvm().new_global(jvm().object("the listener", "com/vesma/quorl/QuorlListener"));
}

template <class Function>
void state_dispatch(const Native& native, Function* function, const Library& library,
                    std::function<void(std::function<quorl_status(quorl_u32, double)>)> programme) {
    const std::string dispatch = library.name + "(9, 0.25)";
    const Lines sentinel = {"NewObject(com/vesma/quorl/QuorlEvent, <init>()V)"};
    auto with = [](Lines first, const Lines& more) {
        first.insert(first.end(), more.begin(), more.end());
        return first;
    };
    auto park = [=](jobject object) {
        programme([object](quorl_u32, double) {
            set_slot(_eventThreadKey, object);
            return QUORL_OK;
        });
    };
    auto invoke = [=] { return call(function, 9, 0.25); };
    const std::string get = "_quorlThreadLocal_Get(_eventThreadKey)";
    const std::string clear = "_quorlThreadLocal_Set(_eventThreadKey, null)";

    row(native, family, "gives_the_parked_object_once", RowKind::normal, [=] {
        park(parked_listener());
        expect(invoke(), {"the listener", "", {dispatch, get, clear}});
        EXPECT_EQ(peek_slot(_eventThreadKey), nullptr);
        programme(nullptr);
        expect(invoke(), {"null", "", {dispatch, get}});
    });
    row(native, family, "gives_the_very_reference_that_was_parked", RowKind::normal, [=] {
        const jobject listener = parked_listener();
        park(listener);
        jobject given_back = nullptr;
        observe([&](jobject* kept) {
            given_back = *kept = function(jvm().env(), jvm().klass("com/vesma/quorl/QuorlQueue"), 9, 0.25);
            return std::string();
        });
        EXPECT_EQ(given_back, listener);
        EXPECT_TRUE(jvm().is_global(listener));
    });
    row(native, family, "passes_any_timeout_unchanged", RowKind::normal, [=] {
        for (double timeout : {-1.0, -0.0, 0.0, 1e300, 1e-300}) {
            expect(call(function, -9, timeout),
                   {"null", "", {library.name + "(4294967287, " + number(timeout) + ")", get}});
        }
    });
    row(native, family, "event_that_left_nothing_gives_null", RowKind::normal, [=] {
        expect(invoke(), {"null", "", {dispatch, get}});
    });
    row(native, family, "timeout_gives_a_new_sentinel_each_time", RowKind::failure, [=] {
        library.function->status = QUORL_TIMEOUT;
        set_slot(_eventThreadKey, parked_listener());
        expect(invoke(), {"com/vesma/quorl/QuorlEvent", "", with({dispatch}, sentinel)});
        EXPECT_NE(peek_slot(_eventThreadKey), nullptr);
        Object* seen[2];
        for (Object*& each : seen) {
            observe([&](jobject* kept) {
                *kept = function(jvm().env(), jvm().klass("com/vesma/quorl/QuorlQueue"), 9, 0.25);
                each = jvm().behind(*kept);
                return std::string();
            });
        }
        EXPECT_NE(seen[0], seen[1]);
    });
    row(native, family, "sentinel_that_cannot_be_made_leaves_the_machines_error", RowKind::failure, [=] {
        library.function->status = QUORL_TIMEOUT;
        jvm().fail("NewObject", 1);
        expect(invoke(), {"null", machine_out_of_memory, with({dispatch}, sentinel)});
    });
    row(native, family, "throws_every_other_status", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            if (status == QUORL_TIMEOUT) continue;
            fresh();
            set_slot(_eventThreadKey, parked_listener());
            library.function->status = static_cast<quorl_status>(status);
            expect(invoke(), {"null", status_exception(status), {dispatch, new_exception_line(status), throw_line}});
            EXPECT_NE(peek_slot(_eventThreadKey), nullptr) << "a failed dispatch does not take";
        }
    });
    row(native, family, "slot_that_cannot_be_read_throws", RowKind::failure, [=] {
        park(parked_listener());
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        expect(invoke(), {"null", status_exception(3), {dispatch, get, new_exception_line(3), throw_line}});
    });
    row(native, family, "slot_that_cannot_be_cleared_throws_and_gives_the_object", RowKind::failure, [=] {
        const jobject listener = parked_listener();
        park(listener);
        when<&_quorlThreadLocal_Set>().status = QUORL_INVALID_ARG;
        expect(invoke(),
               {"the listener", status_exception(3), {dispatch, get, clear, new_exception_line(3), throw_line}});
    });
    row(native, family, "status_50_of_the_slot_counts_as_timeout", RowKind::failure, [=] {
        park(parked_listener());
        when<&_quorlThreadLocal_Get>().status = QUORL_TIMEOUT;
        expect(invoke(), {"com/vesma/quorl/QuorlEvent", "", with({dispatch, get}, sentinel)});
        fresh();
        park(parked_listener());
        when<&_quorlThreadLocal_Set>().status = QUORL_TIMEOUT;
        expect(invoke(), {"com/vesma/quorl/QuorlEvent", "", with({dispatch, get, clear}, sentinel)});
    });
    row(native, family, "callback_of_the_event_runs_inside", RowKind::normal, [=] {
        const jobject listener = parked_listener();
        programme([listener](quorl_u32, double) {
            listenerCallback(77, to_message(message), listener);
            return QUORL_OK;
        });
        expect(invoke(), {"the listener",
                          "",
                          {dispatch, "_quorlThreadLocal_Set(_eventThreadKey, global the listener)",
                           "_quorlThreadLocal_Set(_msgThreadKey, " + message_text + ")",
                           "quorlMsg_Detach(" + message_text + ")", get, clear}});
    });
}

void state_queues_themselves() {
    const auto [create, create_function] = std::pair{NATIVE(QuorlQueue_quorlQueue_1Create)};
    state(create, {.family = family,
                   .invoke =
                       [function = create_function] {
                           when<&quorlQueue_Create>().does = [](quorlQueue* queue) {
                               EXPECT_EQ(*queue, 62u);
                               *queue = 0x80000001u;
                               return QUORL_OK;
                           };
                           return call(function);
                       },
                   .result = "-2147483647",
                   .lines = {"quorlQueue_Create(&)"},
                   .reports = LIBRARY(quorlQueue_Create),
                   .failed_result = "0"});
    row(create, family, "failure_gives_0_whatever_was_written", RowKind::failure, [function = create_function] {
        when<&quorlQueue_Create>().does = [](quorlQueue* queue) {
            *queue = 9;
            return QUORL_NO_MEMORY;
        };
        EXPECT_EQ(call(function).result, "0");
    });

    state(Native{"QuorlQueue_quorlQueue_1Destroy"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1Destroy, -3); },
           .lines = {"quorlQueue_DestroyEx(4294967293, null, null)"},
           .reports = LIBRARY(quorlQueue_DestroyEx),
           .every_status_is_quiet = true});

    const Native set_name = {"QuorlQueue_quorlQueue_1SetName"};
    auto set_name_invoke = [] {
        const Bytes name = given("name", "orders");
        return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetName, 4, name.array, name.length);
    };
    const std::string no_memory = "Cannot allocate memory for queue name.";
    state(set_name, {.family = family,
                     .invoke = set_name_invoke,
                     .lines = {"GetByteArrayRegion(name, 0, 6)", "quorlQueue_SetName(4, \"orders\")"},
                     .reports = LIBRARY(quorlQueue_SetName),
                     .refusals = {{out_of_memory(no_memory), "", Lines{throw_new_line(no_memory)}}},
                     .bytes = {{"name", "orders", NullArray::is_not_tested}}});
    row(set_name, family, "copy_is_freed_before_the_status_is_thrown", RowKind::failure, [=] {
        when<&quorlQueue_SetName>().status = QUORL_INVALID_QUEUE;
        EXPECT_EQ(set_name_invoke().all,
                  (Lines{"alloc(7)", "GetByteArrayRegion(name, 0, 6)", "quorlQueue_SetName(4, \"orders\")", "free(7)",
                         new_exception_line(62), throw_line}));
    });

    const Native get_name = {"QuorlQueue_quorlQueue_1GetName"};
    auto get_name_as = [](const char* name) {
        when<&quorlQueue_GetName>().does = [name](quorlQueue, const char** out_name) {
            *out_name = name;
            return QUORL_OK;
        };
        return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetName, 4);
    };
    state(get_name,
          {.family = family,
           .invoke = [=] { return get_name_as("orders"); },
           .result = "byte[] \"orders\"",
           .lines = {"quorlQueue_GetName(4, &)", "NewByteArray(6)", "SetByteArrayRegion(made array, 0, 6, \"orders\")"},
           .reports = LIBRARY(quorlQueue_GetName),
           .failed_result = "null",
           .every_status_is_quiet = true,
           .faults = {
               {"NewByteArray", machine_out_of_memory, "null", Lines{"quorlQueue_GetName(4, &)", "NewByteArray(6)"}}}});
    row(get_name, family, "array_that_cannot_be_made_gives_null", RowKind::failure, [=] {
        jvm().fail("NewByteArray", 1, "");
        expect(get_name_as("orders"), {"null", "", {"quorlQueue_GetName(4, &)", "NewByteArray(6)"}});
    });
    row(get_name, family, "empty_name_and_no_name_read_as_null", RowKind::normal, [=] {
        expect(get_name_as(""), {"null", "", {"quorlQueue_GetName(4, &)"}});
        expect(get_name_as(nullptr), {"null", "", {"quorlQueue_GetName(4, &)"}});
    });

    const Native get_count = {"QuorlQueue_quorlQueue_1GetCount"};
    state(get_count, {.family = family,
                      .invoke =
                          [] {
                              when<&quorlQueue_GetCount>().does = [](quorlQueue, quorl_u32* count) {
                                  EXPECT_EQ(*count, 0u);
                                  *count = 0x87654327u;
                                  return QUORL_OK;
                              };
                              return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetCount, 4);
                          },
                      .result = "-2023406809",
                      .lines = {"quorlQueue_GetCount(4, &)"},
                      .reports = LIBRARY(quorlQueue_GetCount),
                      .failed_result = "0"});
    row(get_count, family, "failure_gives_what_was_written", RowKind::failure, [] {
        when<&quorlQueue_GetCount>().does = [](quorlQueue, quorl_u32* count) {
            *count = 41;
            return QUORL_INVALID_QUEUE;
        };
        const Ran ran = call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetCount, 4);
        EXPECT_EQ(ran.result, "41");
        EXPECT_EQ(ran.thrown, status_exception(62));
    });

    state(Native{"QuorlQueue_quorlQueue_1SetPriority"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetPriority, 4, -2); },
           .lines = {"quorlQueue_SetPriority(4, 4294967294)"},
           .reports = LIBRARY(quorlQueue_SetPriority)});

    const Native get_priority = {"QuorlQueue_quorlQueue_1GetPriority"};
    state(get_priority, {.family = family,
                         .invoke =
                             [] {
                                 when<&quorlQueue_GetPriority>().does = [](quorlQueue, quorl_u32* priority) {
                                     *priority = 0x87654328u;
                                     return QUORL_OK;
                                 };
                                 return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetPriority, 4);
                             },
                         .result = "-2023406808",
                         .lines = {"quorlQueue_GetPriority(4, &)"}});
    row(get_priority, family, "failure_that_writes_nothing_gives_0", RowKind::failure, [] {
        when<&quorlQueue_GetPriority>().status = QUORL_INVALID_QUEUE;
        EXPECT_EQ(call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetPriority, 4).result, "0");
    });
    row(get_priority, family, "throws_every_status_and_gives_what_was_written", RowKind::failure, [] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorlQueue_GetPriority>().does = [status](quorlQueue, quorl_u32* priority) {
                *priority = 77;
                return static_cast<quorl_status>(status);
            };
            expect(call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetPriority, 4),
                   {"77",
                    status_exception(status),
                    {"quorlQueue_GetPriority(4, &)", new_exception_line(status), throw_line}});
        }
    });

    state(Native{"QuorlQueue_quorlQueue_1SetLimitPolicy"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetLimitPolicy, 4, 3, -1, 10); },
           .lines = {"quorlQueue_SetLimitPolicy(4, 3, 4294967295, 10)"},
           .reports = LIBRARY(quorlQueue_SetLimitPolicy)});
    state_limit_getter(NATIVE(QuorlQueue_quorlQueue_1GetLimitPolicy), "2", "3");
    state_limit_getter(NATIVE(QuorlQueue_quorlQueue_1GetMaxEvents), "-294967296", "31");
    state_limit_getter(NATIVE(QuorlQueue_quorlQueue_1GetDiscardAmount), "17", "32");

    state_dispatch(NATIVE(QuorlQueue_quorlQueue_1TimedDispatch), LIBRARY(quorlQueue_TimedDispatch),
                   [](std::function<quorl_status(quorl_u32, double)> does) {
                       when<&quorlQueue_TimedDispatch>().does = std::move(does);
                   });
}

void state_groups() {
    const Native create = {"QuorlQueueGroup_quorlQueueGroup_1Create"};
    state(create, {.family = family,
                   .invoke =
                       [] {
                           when<&quorlQueueGroup_Create>().does = [](quorlQueueGroup* group) {
                               EXPECT_EQ(*group, 63u);
                               *group = 0x87654329u;
                               return QUORL_OK;
                           };
                           return call(&Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Create);
                       },
                   .result = "-2023406807",
                   .lines = {"quorlQueueGroup_Create(&)"},
                   .reports = LIBRARY(quorlQueueGroup_Create),
                   .failed_result = "63"});
    row(create, family, "failure_gives_what_was_written", RowKind::failure, [] {
        when<&quorlQueueGroup_Create>().does = [](quorlQueueGroup* group) {
            *group = 5;
            return QUORL_NO_MEMORY;
        };
        const Ran ran = call(&Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Create);
        EXPECT_EQ(ran.result, "5");
        EXPECT_EQ(ran.thrown, status_exception(19));
    });
    state(Native{"QuorlQueueGroup_quorlQueueGroup_1Destroy"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Destroy, 8); },
           .result = "true",
           .lines = {"quorlQueueGroup_Destroy(8)"},
           .reports = LIBRARY(quorlQueueGroup_Destroy),
           .failed_result = "false",
           .every_status_is_quiet = true});
    state(Native{"QuorlQueueGroup_quorlQueueGroup_1Add"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Add, 8, 4); },
           .lines = {"quorlQueueGroup_Add(8, 4)"},
           .reports = LIBRARY(quorlQueueGroup_Add)});
    state(Native{"QuorlQueueGroup_quorlQueueGroup_1Remove"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Remove, 8, 4); },
           .lines = {"quorlQueueGroup_Remove(8, 4)"},
           .reports = LIBRARY(quorlQueueGroup_Remove)});
    state_dispatch(NATIVE(QuorlQueueGroup_quorlQueueGroup_1TimedDispatch), LIBRARY(quorlQueueGroup_TimedDispatch),
                   [](std::function<quorl_status(quorl_u32, double)> does) {
                       when<&quorlQueueGroup_TimedDispatch>().does = std::move(does);
                   });
}

}  // namespace

void state_queues() {
    state_queues_themselves();
    state_groups();
}

}  // namespace contract
