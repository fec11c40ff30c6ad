// Finding, describing and removing fields, by the two forms of a name and by position.
#include <gtest/gtest.h>

#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"
#include "kit/fields.h"

namespace contract {

namespace {

const std::string family = "field lookup and description";

const std::string no_bytes = "Cannot allocate memory for message bytes.";

// Position and type of a field as the library gives them: all 64 bits reach Java.
constexpr quorl_u64 where = 0x81000000FF000002u;
const std::string where_text = std::to_string(static_cast<jlong>(where));

void state_lookup() {
    auto found = [] {
        when<&_quorlMsg_GetFieldIndexAndType>().does = [](quorlMsg, const char*, quorl_u64* out_where, quorl_u16) {
            *out_where = where;
            return QUORL_OK;
        };
        when<&_quorlMsg_GetFieldInstanceIndexAndType>().does = [](quorlMsg, const char*, quorl_u32,
                                                                  quorl_u64* out_where) {
            *out_where = where;
            return QUORL_OK;
        };
    };
    const Native by_bytes = {"QuorlMsg_quorlMsg_1GetFieldTypeAndIndex"};
    state(by_bytes, {.family = family,
                     .invoke =
                         [=] {
                             found();
                             const Bytes name = given("name", "cost");
                             return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndex, message,
                                         name.array, name.length, -2, nullptr);
                         },
                     .result = where_text,
                     .lines = {"GetByteArrayRegion(name, 0, 4)",
                               "_quorlMsg_GetFieldIndexAndType(" + message_text + ", \"cost\", &, 65534)"},
                     .reports = LIBRARY(_quorlMsg_GetFieldIndexAndType),
                     .failed_result = "0",
                     .quiet = {{QUORL_NOT_FOUND, "0"}},
                     .bytes = {{"name", "cost"}}});
    const Native by_string = {"QuorlMsg_quorlMsg_1GetFieldTypeAndIndexUTF"};
    state(by_string, {.family = family,
                      .invoke =
                          [=] {
                              found();
                              return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndexUTF, message,
                                          jvm().string("name", "cost"), -2, nullptr);
                          },
                      .result = where_text,
                      .lines = {"GetStringUTFChars(name)",
                                "_quorlMsg_GetFieldIndexAndType(" + message_text + ", \"cost\", &, 65534)",
                                "ReleaseStringUTFChars(name)"},
                      .reports = LIBRARY(_quorlMsg_GetFieldIndexAndType),
                      .failed_result = "0",
                      .quiet = {{QUORL_NOT_FOUND, "0"}},
                      .faults = {{"GetStringUTFChars", out_of_memory(no_bytes), "0",
                                  Lines{"GetStringUTFChars(name)", throw_new_line(no_bytes)}}}});
    for (const Native& native : {by_bytes, by_string}) {
        row(native, family, "failure_gives_0_whatever_was_written", RowKind::failure, [=] {
            for (quorl_status status : {QUORL_NOT_FOUND, QUORL_INVALID_MSG}) {
                fresh();
                when<&_quorlMsg_GetFieldIndexAndType>().does = [status](quorlMsg, const char*, quorl_u64* out_where,
                                                                        quorl_u16) {
                    *out_where = 9;
                    return status;
                };
                const Ran ran = native.name == by_bytes.name
                                    ? call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndex, message,
                                           nullptr, 0, 7, nullptr)
                                    : call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndexUTF, message,
                                           jvm().string("name", "cost"), 7, nullptr);
                EXPECT_EQ(ran.result, "0");
            }
        });
    }

    state(Native{"QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndex"},
          {.family = family,
           .invoke =
               [=] {
                   found();
                   const Bytes name = given("name", "cost");
                   return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndex, message, -3,
                               name.array, name.length, nullptr);
               },
           .result = where_text,
           .lines = {"GetByteArrayRegion(name, 0, 4)",
                     "_quorlMsg_GetFieldInstanceIndexAndType(" + message_text + ", \"cost\", 4294967293, &)"},
           .reports = LIBRARY(_quorlMsg_GetFieldInstanceIndexAndType),
           .failed_result = "0",
           .bytes = {{"name", "cost"}}});
    state(Native{"QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndexUTF"},
          {.family = family,
           .invoke =
               [=] {
                   found();
                   return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndexUTF, message, -3,
                               jvm().string("name", "cost"), nullptr);
               },
           .result = where_text,
           .lines = {"GetStringUTFChars(name)",
                     "_quorlMsg_GetFieldInstanceIndexAndType(" + message_text + ", \"cost\", 4294967293, &)",
                     "ReleaseStringUTFChars(name)"},
           .reports = LIBRARY(_quorlMsg_GetFieldInstanceIndexAndType),
           .failed_result = "0",
           .faults = {{"GetStringUTFChars", out_of_memory(no_bytes), "0",
                       Lines{"GetStringUTFChars(name)", throw_new_line(no_bytes)}}}});
}

template <class Result>
void state_description(const Native& native, Result (*function)(JNIEnv*, jclass, jlong, jint, jobject),
                       const std::string& result, bool not_found_is_quiet) {
    Contract contract = {
        .family = family,
        .invoke =
            [=] {
                programme_field(
                    {.name = "cost", .size = 4294967290u, .count = 3000000000u, .data = {}, .id = 65535, .type = 200});
                return call(function, message, 65536 + 3, nullptr);
            },
        .result = result,
        .lines = {mark_line, get_field_line(3), clear_line},
        .reports = LIBRARY(quorlMsg_GetFieldByIndex),
        .failed_result = "0"};
    if (not_found_is_quiet) contract.quiet = {{QUORL_NOT_FOUND, "0"}};
    state(native, contract);
    row(native, family, "only_the_low_16_bits_of_the_index_are_used", RowKind::normal, [=] {
        for (const auto& [index, used] : index_cases()) {
            programme_field({});
            expect(call(function, message, index, nullptr), {"0", "", {mark_line, get_field_line(used), clear_line}});
        }
    });
    row(native, family, "failure_gives_0_whatever_was_written", RowKind::failure, [=] {
        when<&quorlMsg_GetFieldByIndex>().does = [](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {"cost", 9, 9, {}, 9, 9};
            return QUORL_INVALID_MSG;
        };
        EXPECT_EQ(call(function, message, 0, nullptr).result, "0");
    });
}

void state_name() {
    const Native native = {"QuorlMsg_quorlMsg_1GetFieldName"};
    const std::string no_memory = "Cannot allocate memory for message field name.";
    auto read = [](const char* name) {
        programme_field({.name = name});
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldName, message, -1, nullptr);
    };
    const std::string get = get_field_line(65535);
    const Lines without_memory = {mark_line, get, "NewByteArray(4)", clear_line, throw_new_line(no_memory)};
    state(native,
          {.family = family,
           .invoke = [=] { return read("cost"); },
           .result = "byte[] \"cost\"",
           .lines = {mark_line, get, "NewByteArray(4)", "SetByteArrayRegion(made array, 0, 4, \"cost\")", clear_line},
           .reports = LIBRARY(quorlMsg_GetFieldByIndex),
           .failed_result = "null",
           .order = Contract::Order::build_first,
           .faults = {{.function = "NewByteArray",
                       .thrown = out_of_memory(no_memory),
                       .result = "null",
                       .lines = without_memory,
                       .exempt_reason = "our text replaces the machine's own error",
                       .exempt = {"ThrowNew"}}}});
    row(native, family, "no_array_and_nothing_pending", RowKind::failure, [=] {
        jvm().fail("NewByteArray", 1, "");
        expect(read("cost"), {"null", out_of_memory(no_memory), without_memory});
    });
    row(native, family, "field_without_a_name_gives_null", RowKind::normal, [=] {
        expect(read(nullptr), {"null", "", {mark_line, get, clear_line}});
        expect(read(""),
               {"byte[] \"\"",
                "",
                {mark_line, get, "NewByteArray(0)", "SetByteArrayRegion(made array, 0, 0, nothing)", clear_line}});
    });
}

void state_removal() {
    state(Native{"QuorlMsg_quorlMsg_1RemoveFieldEx"},
          {.family = family,
           .invoke =
               [] {
                   const Bytes name = given("name", "cost");
                   return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1RemoveFieldEx, message, name.array, name.length,
                               -2, nullptr);
               },
           .result = "true",
           .lines = {"GetByteArrayRegion(name, 0, 4)", "quorlMsg_RemoveFieldEx(" + message_text + ", \"cost\", 65534)"},
           .reports = LIBRARY(quorlMsg_RemoveFieldEx),
           .failed_result = "false",
           .quiet = {{QUORL_NOT_FOUND, "false"}},
           .bytes = {{"name", "cost"}}});
    state(Native{"QuorlMsg_quorlMsg_1RemoveFieldInstance"},
          {.family = family,
           .invoke =
               [] {
                   const Bytes name = given("name", "cost");
                   return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1RemoveFieldInstance, message, name.array,
                               name.length, 0x787654321, nullptr);
               },
           .result = "true",
           .lines = {"GetByteArrayRegion(name, 0, 4)",
                     "quorlMsg_RemoveFieldInstance(" + message_text + ", \"cost\", 2271560481)"},
           .reports = LIBRARY(quorlMsg_RemoveFieldInstance),
           .failed_result = "false",
           .every_status_is_quiet = true,
           .bytes = {{"name", "cost"}}});
}

}  // namespace

void state_fields() {
    state_lookup();
    state_description(NATIVE(QuorlMsg_quorlMsg_1GetFieldSize), "4294967290", true);
    state_description(NATIVE(QuorlMsg_quorlMsg_1GetFieldCount), "3000000000", true);
    state_description(NATIVE(QuorlMsg_quorlMsg_1GetFieldType), "200", true);
    state_description(NATIVE(QuorlMsg_quorlMsg_1GetFieldId), "65535", false);
    state_name();
    state_removal();
}

}  // namespace contract
