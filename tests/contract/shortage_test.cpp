// What natives do when something fails that hardly ever does: a copy that fits, the parts of a guard, a cell of their own.
#include <gtest/gtest.h>

#include "com_vesma_quorl_QuorlCmTransport.h"
#include "com_vesma_quorl_QuorlFtMonitor.h"
#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string mark = "quorlMsg_MarkReferences(" + message_text + ")";
const std::string clear = "quorlMsg_ClearReferences(" + message_text + ")";
const std::string copy = "SetByteArrayRegion(made array, 0, 5, out of bounds)";

// A new array is as long as its content, so only the machine itself can refuse the copy.
void state_copies() {
    const std::string name = "copy_that_the_machine_refuses_gives_null";
    row(Native{"QuorlMsg_quorlMsg_1GetFieldName"}, "field lookup and description", name, RowKind::failure, [] {
        when<&quorlMsg_GetFieldByIndex>().does = [](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {};
            field->name = "price";
            return QUORL_OK;
        };
        jvm().fail_next_copy = true;
        expect(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldName, message, 3, nullptr),
               {"null",
                out_of_bounds,
                {mark, "quorlMsg_GetFieldByIndex(" + message_text + ", &, 3)", "NewByteArray(5)", copy, clear}});
    });
    row(Native{"QuorlMsg_quorlMsg_1ConvertToString"}, "whole messages", name, RowKind::failure, [] {
        when<&quorlMsg_ConvertToString>().does = [](quorlMsg, const char** string) {
            *string = "{a=1}";
            return QUORL_OK;
        };
        jvm().fail_next_copy = true;
        expect(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1ConvertToString, message, nullptr),
               {"null",
                out_of_bounds,
                {mark, "quorlMsg_ConvertToString(" + message_text + ", &)", "NewByteArray(5)", copy, clear}});
    });
    row(Native{"QuorlMsg_quorlMsg_1GetAsBytes"}, "whole messages", name, RowKind::failure, [] {
        when<&quorlMsg_GetAsBytes>().does = [](quorlMsg, const void** bytes) {
            *bytes = "image";
            return QUORL_OK;
        };
        when<&quorlMsg_GetByteSize>().does = [](quorlMsg, quorl_u32* size) {
            *size = 5;
            return QUORL_OK;
        };
        jvm().fail_next_copy = true;
        expect(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetAsBytes, message, nullptr),
               {"null",
                out_of_bounds,
                {"quorlMsg_GetAsBytes(" + message_text + ", &)", "quorlMsg_GetByteSize(" + message_text + ", &)",
                 "NewByteArray(5)", copy}});
    });
}

// The library is not asked to destroy what nobody could wait for.
void state_guard() {
    const Native native = {"QuorlCmTransport_quorlcmTransport_1DestroyEx"};
    auto destroy = [](bool condition, bool mutex) {
        static pthread_mutex_t inner = PTHREAD_MUTEX_INITIALIZER;
        static struct __quorlMutex the_mutex = {0, inner};
        if (condition) {
            when<&_quorlCondition_Create>().does = [](_quorlCondition* made) {
                *made = reinterpret_cast<_quorlCondition>(&the_mutex);
                return QUORL_OK;
            };
        }
        if (mutex) {
            when<&_quorlMutex_Create>().does = [](_quorlMutex* made) {
                *made = &the_mutex;
                return QUORL_OK;
            };
        }
        return call(&Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DestroyEx, 2);
    };
    for (const auto& [condition, mutex] : {std::pair{false, false}, {true, false}, {false, true}}) {
        row(native, "certified transport lifecycle",
            std::string("without_a_") +
                (condition ? "mutex"
                 : mutex   ? "condition"
                           : "guard") +
                "_destroys_nothing",
            RowKind::failure, [=, condition = condition, mutex = mutex] {
                const Ran ran = destroy(condition, mutex);
                EXPECT_EQ(ran.thrown, status_exception(19));
                EXPECT_EQ(when<&quorlcmTransport_DestroyEx>().calls, 0);
                EXPECT_EQ(when<&_quorlCondition_Wait>().calls, 0);
            });
    }
}

void state_foreign_cell() {
    row(Native{"QuorlFtMonitor_getActiveMembersCount"}, "fault-tolerance monitors", "takes_a_cell_of_any_maker",
        RowKind::normal, [] {
            auto take = [] { return call(&Java_com_vesma_quorl_QuorlFtMonitor_getActiveMembersCount).result; };
            observe_callback([] { ftMonitorCallback(3, "group", 9, nullptr); });
            void* const own = peek_slot(_activeMembersThreadKey);
            auto* const foreign = static_cast<quorl_u32*>(heap().allocate(sizeof(quorl_u32), false));
            *foreign = 7;
            set_slot(_activeMembersThreadKey, foreign);
            EXPECT_EQ(take(), "7");
            set_slot(_activeMembersThreadKey, own);
            EXPECT_EQ(take(), "9");
        });
}

}  // namespace

void state_shortages() {
    state_copies();
    state_guard();
    state_foreign_cell();
}

}  // namespace contract
