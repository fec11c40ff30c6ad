// Distributed queues, and fault tolerance: members, monitors, and what their callbacks leave for Java.
#include <gtest/gtest.h>

#include <thread>

#include "com_vesma_quorl_QuorlCmQueueTransport.h"
#include "com_vesma_quorl_QuorlFtMember.h"
#include "com_vesma_quorl_QuorlFtMonitor.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string queues = "distributed queue transport";
const std::string members = "fault-tolerance members";
const std::string monitors = "fault-tolerance monitors";

#define CMQ(name) Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1##name
#define CMQ_NATIVE(name)                                 \
    Native {                                             \
        "QuorlCmQueueTransport_quorlcmTransport_1" #name \
    }

void state_setter(const Native& native, const Library& library, std::function<Ran()> invoke,
                  const std::string& arguments) {
    state(native, {.family = queues,
                   .invoke = std::move(invoke),
                   .lines = {library.name + "(" + arguments + ")"},
                   .reports = library});
}

void state_distributed_queues() {
    const Native create = CMQ_NATIVE(CreateDistributedQueueEx);
    state(create,
          {.family = queues,
           .invoke =
               [] {
                   when<&quorlcmTransport_CreateDistributedQueueEx>().does = [](quorlcmTransport* made, auto...) {
                       *made = 0x87654322u;
                       return QUORL_OK;
                   };
                   const Bytes name = given("name", "work");
                   return call(&CMQ(CreateDistributedQueueEx), -2, name.array, name.length, -11, -12, -1, 1.5, 2.25);
               },
           .result = "-2023406814",
           .lines = {"GetByteArrayRegion(name, 0, 4)",
                     "quorlcmTransport_CreateDistributedQueueEx(&, 4294967294, \"work\", 4294967285, 4294967284, "
                     "65535, 1.5, 2.25)"},
           .reports = LIBRARY(quorlcmTransport_CreateDistributedQueueEx),
           .failed_result = "0",
           .bytes = {{"name", "work"}}});
    row(create, queues, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlcmTransport_CreateDistributedQueueEx>().does = [](quorlcmTransport* made, auto...) {
            *made = 4;
            return QUORL_INVALID_ARG;
        };
        EXPECT_EQ(call(&CMQ(CreateDistributedQueueEx), 2, nullptr, 0, 1, 1, 1, 1.0, 1.0).result, "0");
    });
    state_setter(
        CMQ_NATIVE(SetCompleteTime), LIBRARY(quorlcmTransport_SetCompleteTime),
        [] { return call(&CMQ(SetCompleteTime), -2, 7.5); }, "4294967294, 7.5");
    state_setter(
        CMQ_NATIVE(SetTaskBacklogLimitInBytes), LIBRARY(quorlcmTransport_SetTaskBacklogLimit),
        [] { return call(&CMQ(SetTaskBacklogLimitInBytes), -2, -7); }, "4294967294, 1, 4294967289");
    state_setter(
        CMQ_NATIVE(SetTaskBacklogLimitInMessages), LIBRARY(quorlcmTransport_SetTaskBacklogLimit),
        [] { return call(&CMQ(SetTaskBacklogLimitInMessages), -2, -7); }, "4294967294, 0, 4294967289");
    state_setter(
        CMQ_NATIVE(SetWorkerWeight), LIBRARY(quorlcmTransport_SetWorkerWeight),
        [] { return call(&CMQ(SetWorkerWeight), -2, -7); }, "4294967294, 4294967289");
    state_setter(
        CMQ_NATIVE(SetWorkerTasks), LIBRARY(quorlcmTransport_SetWorkerTasks),
        [] { return call(&CMQ(SetWorkerTasks), -2, -7); }, "4294967294, 4294967289");

    const Native count = CMQ_NATIVE(GetUnassignedMessageCount);
    auto read = [](quorl_u32 value, quorl_status status) {
        when<&quorlcmTransport_GetUnassignedMessageCount>().does = [=](quorlcmTransport, quorl_u32* found) {
            *found = value;
            return status;
        };
        return call(&CMQ(GetUnassignedMessageCount), -2);
    };
    const std::string line = "quorlcmTransport_GetUnassignedMessageCount(4294967294, &)";
    row(count, queues, "gives_the_count", RowKind::normal, [=] {
        expect(read(5, QUORL_OK), {"5", "", {line}});
        expect(read(0x87654325u, QUORL_OK), {"-2023406811", "", {line}});
    });
    row(count, queues, "throws_every_status_and_gives_what_was_written", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            expect(read(88, static_cast<quorl_status>(status)),
                   {"88", status_exception(status), {line, new_exception_line(status), throw_line}});
        }
    });
    row(count, queues, "exception_that_cannot_be_made_leaves_the_machines_error", RowKind::failure, [=] {
        jvm().fail("NewObject", 1);
        EXPECT_EQ(read(88, QUORL_INVALID_TRANSPORT).thrown, machine_out_of_memory);
    });
}

// ---- what members and monitors share ----

void state_destruction(const Native& native, void (*function)(JNIEnv*, jclass, jint), const std::string& family,
                       const std::string& type, const Library& library) {
    static _quorlRecordHead record;
    const std::string look = "_quorlObjectId_GetEx(4294967294, " + type + ", &, 0, 0)";
    const std::string destroy = library.name + "(4294967294)";
    auto answer = [](const void* closure, quorl_status status) {
        record.arg = closure;
        when<&_quorlObjectId_GetEx>().does = [status](quorl_u32, quorl_u32, void** found, quorl_u32, quorl_u32) {
            EXPECT_EQ(*found, nullptr);
            *found = &record;
            return status;
        };
    };
    auto global = [] { return jvm().new_global(jvm().object("M", "com/vesma/quorl/QuorlFtMember")); };
    row(native, family, "deletes_the_closure_and_then_destroys", RowKind::normal, [=] {
        answer(global(), QUORL_OK);
        expect(call(function, -2), {"", "", {look, "DeleteGlobalRef(M)", destroy}, {}, -1});
    });
    row(native, family, "no_record_or_no_closure", RowKind::normal, [=] {
        expect(call(function, -2), {"", "", {look, destroy}});
        answer(nullptr, QUORL_OK);
        expect(call(function, -2), {"", "", {look, destroy}});
    });
    row(native, family, "unknown_id_is_destroyed_all_the_same", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&_quorlObjectId_GetEx>().status = static_cast<quorl_status>(status);
            expect(call(function, -2), {"", "", {look, destroy}});
        }
    });
    row(native, family, "only_the_record_matters_and_not_its_status", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            answer(global(), static_cast<quorl_status>(status));
            library.function->status = static_cast<quorl_status>(status);
            expect(call(function, -2), {"", "", {look, "DeleteGlobalRef(M)", destroy}, {}, -1});
        }
    });
}

const std::string set_event = "_quorlThreadLocal_Set(_eventThreadKey, global F)";

jobject owner() {
    return jvm().new_global(jvm().object("F", "com/vesma/quorl/QuorlFtMember"));
}

// ---- members ----

void state_members() {
    const Native create = {"QuorlFtMember_quorlftMember_1Create"};
    const std::string no_memory = "Cannot allocate memory for Fault Tolerance member reference.";
    auto invoke_with = [](jint weight, jint goal) {
        when<&quorlftMember_Create>().does = [](quorlftMember* made, auto...) {
            *made = 0x87654323u;
            return QUORL_OK;
        };
        const Bytes name = given("name", "group");
        return call(&Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1Create, -2, -3, name.array, name.length, weight,
                    goal, 1.5, 2.25, 3.125);
    };
    auto create_line = [](const std::string& weight, const std::string& goal) {
        return "quorlftMember_Create(&, 4294967294, ftMemberCallback, 4294967293, \"group\", " + weight + ", " + goal +
               ", 1.5, 2.25, 3.125, global this)";
    };
    const Lines lines = {"GetByteArrayRegion(name, 0, 5)", "NewGlobalRef(this)", create_line("50", "2")};
    state(create, {.family = members,
                   .invoke = [=] { return invoke_with(50, 2); },
                   .result = "-2023406813",
                   .lines = lines,
                   .globals = 1,
                   .reports = LIBRARY(quorlftMember_Create),
                   .failed_result = "0",
                   .failed_tail = Lines{"DeleteGlobalRef(this)"},
                   .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                               Lines{lines[0], lines[1], throw_new_line(no_memory)}}},
                   .bytes = {{.label = "name", .canonical = "group", .called_over_failed_copy = {"NewGlobalRef"}}}});
    row(create, members, "weight_and_goal_are_used_by_their_low_16_bits", RowKind::normal, [=] {
        for (const auto& [java, library] :
             {std::pair<jint, const char*>{65535, "65535"}, {65536, "0"}, {65537, "1"}, {-1, "65535"}}) {
            EXPECT_EQ(invoke_with(java, 7).lines.back(), create_line(library, "7"));
            EXPECT_EQ(invoke_with(7, java).lines.back(), create_line("7", library));
        }
    });

    state_destruction(NATIVE(QuorlFtMember_quorlftMember_1Destroy), members, "200", LIBRARY(quorlftMember_Destroy));

    const Native weight = {"QuorlFtMember_quorlftMember_1SetWeight"};
    state(weight,
          {.family = members,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1SetWeight, -2, 65536 + 9); },
           .lines = {"quorlftMember_SetWeight(4294967294, 9)"},
           .reports = LIBRARY(quorlftMember_SetWeight)});
    row(weight, members, "weight_is_used_by_its_low_16_bits", RowKind::normal, [] {
        for (const auto& [java, library] :
             {std::pair<jint, const char*>{65536, "0"}, {65535, "65535"}, {-1, "65535"}}) {
            expect(call(&Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1SetWeight, 2, java),
                   {"", "", {"quorlftMember_SetWeight(2, " + std::string(library) + ")"}});
        }
    });
}

const std::string get_action = "_quorlThreadLocal_Get(_actionThreadKey)";
const std::string put_action = "_quorlThreadLocal_Set(_actionThreadKey, block)";
const std::string clear_action = "_quorlThreadLocal_Set(_actionThreadKey, null)";

// Of the calls to come the second to fill a slot is refused.
void refuse_second_slot() {
    when<&_quorlThreadLocal_Set>().does = [filled = 0](_quorlThreadLocal key, void* value) mutable {
        return ++filled == 2 ? QUORL_NO_MEMORY : set_slot(key, value);
    };
}

Ran tell(int action) {
    const jobject member = owner();
    return observe_callback([=] { ftMemberCallback(3, "group", static_cast<quorlftAction>(action), member); });
}

Ran take_action() {
    return call(&Java_com_vesma_quorl_QuorlFtMember_getDispatchedAction);
}

void state_actions() {
    const Native take = {"QuorlFtMember_getDispatchedAction"};
    row(take, members, "gives_each_action_once_and_frees_its_record", RowKind::normal, [] {
        for (int action = 1; action <= 4; ++action) {
            EXPECT_EQ(tell(action).all, (Lines{set_event, get_action, "alloc(4)", put_action}));
            Ran ran = take_action();
            expect(ran, {std::to_string(action), "", {get_action, clear_action}});
            EXPECT_EQ(ran.all, (Lines{get_action, clear_action, "free(4)"}));
            EXPECT_EQ(peek_slot(_actionThreadKey), nullptr);
            expect(take_action(), {"0", "", {get_action}});
        }
    });
    row(take, members, "slot_that_cannot_be_read_gives_0", RowKind::failure, [] {
        tell(QUORLFT_ACTIVATE);
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        expect(take_action(), {"0", "", {get_action}});
        when<&_quorlThreadLocal_Get>().status = QUORL_OK;
        take_action();
    });
    inner_row("ftMemberCallback", "two_actions_before_one_take", [] {
        for (int first = 1; first <= 4; ++first) {
            for (int second = 1; second <= 4; ++second) {
                tell(first);
                const Ran ran = tell(second);
                EXPECT_EQ(ran.all, (Lines{set_event, get_action, put_action})) << "the record is used again";
                const bool merged = first == QUORLFT_PREPARE_TO_ACTIVATE && second == QUORLFT_ACTIVATE;
                EXPECT_EQ(take_action().result, std::to_string(merged ? int{QUORLFT_PREPARE_AND_ACTIVATE} : second))
                    << first << " then " << second;
            }
        }
    });
    inner_row("ftMemberCallback", "three_actions_before_one_take", [] {
        for (int action : {1, 2, 3}) tell(action);
        EXPECT_EQ(take_action().result, "3");
        for (int action : {3, 1, 2}) tell(action);
        EXPECT_EQ(take_action().result, "4");
        for (int action : {1, 2, 2}) tell(action);
        EXPECT_EQ(take_action().result, "2");
    });
    inner_row("ftMemberCallback", "event_slot_that_fails_ends_it_with_nothing_allocated", [] {
        when<&_quorlThreadLocal_Set>().status = QUORL_NO_MEMORY;
        EXPECT_EQ(tell(2).all, Lines{set_event});
    });
    inner_row("ftMemberCallback", "record_that_cannot_be_read_counts_as_none", [] {
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        EXPECT_EQ(tell(2).all, (Lines{set_event, get_action, "alloc(4)", put_action}));
        when<&_quorlThreadLocal_Get>().status = QUORL_OK;
        EXPECT_EQ(take_action().result, "2");
    });
    inner_row("ftMemberCallback", "parks_the_closure", [] {
        const jobject member = owner();
        observe_callback([=] { ftMemberCallback(3, "group", QUORLFT_ACTIVATE, member); });
        EXPECT_EQ(peek_slot(_eventThreadKey), member);
        take_action();
    });
    // The event's slot takes its value, the record's does not: the refused calls are counted from the second on.
    inner_row("ftMemberCallback", "record_that_the_slot_refuses_is_freed", [] {
        refuse_second_slot();
        expect(tell(2), {"", "", {set_event, get_action, put_action}});
        when<&_quorlThreadLocal_Set>().does = set_slot;
        expect(take_action(), {"0", "", {get_action}});
        tell(1);
        refuse_second_slot();
        expect(tell(2), {"", "", {set_event, get_action, put_action}});
        when<&_quorlThreadLocal_Set>().does = set_slot;
        EXPECT_EQ(take_action().result, "4") << "the one in the slot is changed all the same";
    });
    inner_row("ftMemberCallback", "record_that_nobody_takes_goes_with_the_thread", [] {
        const size_t before = heap().held();
        std::thread([] {
            tell(1);
            take_action();
            tell(2);
        }).join();
        EXPECT_EQ(heap().held(), before);
    });
    inner_row("ftMemberCallback", "record_out_of_the_slots_reach_is_freed_by_the_next", [] {
        const size_t before = heap().held();
        for (int action : {1, 2, 3}) {
            tell(action);
            set_slot(_actionThreadKey, nullptr);
        }
        EXPECT_EQ(heap().held(), before + 1);
        tell(4);
        EXPECT_EQ(take_action().result, "4");
        EXPECT_EQ(heap().held(), before);
    });
    inner_row("ftMemberCallback", "no_memory_for_the_record_does_no_harm", [] {
        heap().fail(1);
        EXPECT_TRUE(tell(2).left.empty());
        expect(take_action(), {"0", "", {get_action}});
    });
}

// ---- monitors ----

const std::string get_count = "_quorlThreadLocal_Get(_activeMembersThreadKey)";
const std::string put_count = "_quorlThreadLocal_Set(_activeMembersThreadKey, block)";
const std::string clear_count = "_quorlThreadLocal_Set(_activeMembersThreadKey, null)";

Ran report(quorl_u32 count) {
    const jobject monitor = owner();
    return observe_callback([=] { ftMonitorCallback(3, "group", count, monitor); });
}

Ran take_count() {
    return call(&Java_com_vesma_quorl_QuorlFtMonitor_getActiveMembersCount);
}

void state_monitors() {
    const Native create = {"QuorlFtMonitor_quorlftMonitor_1Create"};
    const std::string no_memory = "Cannot allocate memory for Fault Tolerance monitor reference.";
    const Lines lines = {
        "GetByteArrayRegion(name, 0, 5)", "NewGlobalRef(this)",
        "quorlftMonitor_Create(&, 4294967294, ftMonitorCallback, 4294967293, \"group\", 1.5, global this)"};
    state(create, {.family = monitors,
                   .invoke =
                       [] {
                           when<&quorlftMonitor_Create>().does = [](quorlftMonitor* made, auto...) {
                               *made = 0x87654324u;
                               return QUORL_OK;
                           };
                           const Bytes name = given("name", "group");
                           return call(&Java_com_vesma_quorl_QuorlFtMonitor_quorlftMonitor_1Create, -2, -3, name.array,
                                       name.length, 1.5);
                       },
                   .result = "-2023406812",
                   .lines = lines,
                   .globals = 1,
                   .reports = LIBRARY(quorlftMonitor_Create),
                   .failed_result = "0",
                   .failed_tail = Lines{"DeleteGlobalRef(this)"},
                   .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                               Lines{lines[0], lines[1], throw_new_line(no_memory)}}},
                   .bytes = {{.label = "name", .canonical = "group", .called_over_failed_copy = {"NewGlobalRef"}}}});
    state_destruction(NATIVE(QuorlFtMonitor_quorlftMonitor_1Destroy), monitors, "201", LIBRARY(quorlftMonitor_Destroy));

    const Native take = {"QuorlFtMonitor_getActiveMembersCount"};
    row(take, monitors, "gives_each_count_once_and_frees_its_record", RowKind::normal, [] {
        for (quorl_u32 count : {1u, 0u, 0xFFFFFFFFu, 0x80000000u}) {
            report(count);
            const Ran ran = take_count();
            expect(ran, {std::to_string(static_cast<jint>(count)), "", {get_count, clear_count}});
            EXPECT_EQ(ran.all.back(), "free(4)");
            EXPECT_EQ(peek_slot(_activeMembersThreadKey), nullptr);
            expect(take_count(), {"0", "", {get_count}});
        }
    });
    row(take, monitors, "slot_that_cannot_be_read_gives_0", RowKind::failure, [] {
        report(5);
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        expect(take_count(), {"0", "", {get_count}});
        when<&_quorlThreadLocal_Get>().status = QUORL_OK;
        take_count();
    });
    inner_row("ftMonitorCallback", "parks_the_closure_and_a_new_record", [] {
        const jobject monitor = owner();
        const Ran ran = observe_callback([=] { ftMonitorCallback(3, "group", 9, monitor); });
        EXPECT_EQ(ran.lines, (Lines{set_event, put_count}));
        EXPECT_EQ(peek_slot(_eventThreadKey), monitor);
        take_count();
    });
    inner_row("ftMonitorCallback", "second_count_is_the_one_that_is_given", [] {
        report(5);
        void* const first = peek_slot(_activeMembersThreadKey);
        EXPECT_EQ(*static_cast<quorl_u32*>(first), 5u);
        report(6);
        EXPECT_NE(peek_slot(_activeMembersThreadKey), first);
        EXPECT_EQ(take_count().result, "6");
        EXPECT_EQ(take_count().result, "0");
    });
    inner_row("ftMonitorCallback", "record_that_the_slot_refuses_is_freed", [] {
        const size_t before = heap().held();
        std::thread([before] {
            report(5);
            refuse_second_slot();
            expect(report(6), {"", "", {set_event, put_count}});
            when<&_quorlThreadLocal_Set>().does = set_slot;
            EXPECT_EQ(take_count().result, "5");
            report(7);
            report(8);
            EXPECT_EQ(take_count().result, "8");
            EXPECT_EQ(heap().held(), before + 1) << "the overwritten one is left";
        }).join();
        EXPECT_EQ(heap().held(), before);
    });
    inner_row("ftMonitorCallback", "overwritten_records_are_taken_back", [] {
        const size_t before = heap().held();
        std::thread thread([] {
            report(5);
            report(6);
            report(7);
            EXPECT_EQ(take_count().result, "7");
        });
        thread.join();
        EXPECT_EQ(heap().held(), before);
    });
    inner_row("ftMonitorCallback", "event_slot_that_fails_ends_it_with_nothing_allocated", [] {
        when<&_quorlThreadLocal_Set>().status = QUORL_NO_MEMORY;
        EXPECT_EQ(report(2).all, Lines{set_event});
    });
    inner_row("ftMonitorCallback", "no_memory_for_the_record_does_no_harm", [] {
        heap().fail(1);
        EXPECT_TRUE(report(2).left.empty());
        expect(take_count(), {"0", "", {get_count}});
    });
}

}  // namespace

void state_groups_of_processes() {
    state_distributed_queues();
    state_members();
    state_actions();
    state_monitors();
}

}  // namespace contract
