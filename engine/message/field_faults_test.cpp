// What quorl_LastErrorText says after a failure that concerns a field.
#include "message/field_faults.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "base/status.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::Owned;

std::string text() {
    return quorl_LastErrorText();
}

TEST(FieldFaults, NameTheFieldThatIsMissing) {
    Owned message;
    quorl_i32 value = 0;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "price", &value, 0));
    EXPECT_EQ("no field has the name \"price\"", text());
    EXPECT_EQ(text(), text());  // asked for twice
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "price", &value, 7));
    EXPECT_EQ("no field has the id 7", text());
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, 0));
    EXPECT_EQ("every field has a name", text());
    const std::string longest(QUORL_FIELD_NAME_MAX, 'n');
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_RemoveFieldEx(message, longest.c_str(), 0));
    EXPECT_EQ("no field has the name \"" + longest + "\"", text());
}

TEST(FieldFaults, NameTheTypeFoundAndTheTypeAskedFor) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "title", "x", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI64Ex(message, nullptr, -300, 7));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU64Ex(message, "large", std::numeric_limits<quorl_u64>::max(), 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddF64Ex(message, "third", 1.0 / 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddF32Ex(message, "none", std::numeric_limits<float>::quiet_NaN(), 0));
    quorlMsgField own{};
    own.name = "own";
    own.type = 200;
    own.size = 1;
    own.count = 1;
    own.data.buf = "b";
    ASSERT_EQ(QUORL_OK, quorlMsg_AddField(message, &own));

    quorl_i32 i32 = 0;
    quorl_u8 u8 = 0;
    quorl_f32 f32 = 0;
    quorl_bool boolean = QUORL_FALSE;
    const char* string = nullptr;
    const quorl_i32* array = nullptr;
    quorl_u32 count = 0;
    quorlMsg inner = nullptr;
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "title", &i32, 0));
    EXPECT_EQ("field \"title\": it is STRING, not I32", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetU8Ex(message, nullptr, &u8, 7));
    EXPECT_EQ("field id 7: I64 -300 does not fit U8", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "large", &i32, 0));
    EXPECT_EQ("field \"large\": U64 18446744073709551615 does not fit I32", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetF32Ex(message, "third", &f32, 0));
    EXPECT_EQ("field \"third\": F64 0.33333333333333331 does not fit F32", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "none", &i32, 0));
    EXPECT_EQ("field \"none\": F32 nan does not fit I32", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetBoolEx(message, nullptr, &boolean, 0));
    EXPECT_EQ("field id 7: I64 -300 does not fit BOOL", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetStringEx(message, "own", &string, 0));
    EXPECT_EQ("field \"own\": it is USER200, not STRING", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32ArrayEx(message, "third", &array, &count, 0));
    EXPECT_EQ("field \"third\": it is F64, not I32ARRAY", text());
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetMsgEx(message, "title", &inner, 0));
    EXPECT_EQ("field \"title\": it is STRING, not MSG", text());

    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateI32Ex(message, "title", 1, 0));
    EXPECT_EQ("field \"title\": it is STRING, not I32", text());
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateOpaqueEx(message, nullptr, "b", 1, 7));
    EXPECT_EQ("field id 7: it is I64, not OPAQUE", text());
}

TEST(FieldFaults, NameTheFieldThatIsNotAdded) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "first", 1, 3));
    EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddI32Ex(message, "second", 1, 3));
    EXPECT_EQ("field \"second\" id 3: the id 3 is that of field 0, \"first\"", text());
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_UpdateI32Ex(message, "second", 1, 3));
    EXPECT_EQ("field \"second\" id 3: the field with id 3 has the name \"first\", not \"second\"", text());
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringEx(message, "title", nullptr, 0));
    EXPECT_EQ("field \"title\": the string is null", text());
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_UpdateOpaqueEx(message, nullptr, nullptr, 4, 9));
    EXPECT_EQ("field id 9: the bytes are null", text());
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddF64ArrayEx(message, "array", nullptr, 4, 0));
    EXPECT_EQ("field \"array\": the array is null", text());
    const char* strings[] = {"a", nullptr};
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringArrayEx(message, "strings", strings, 2, 0));
    EXPECT_EQ("field \"strings\": string 1 of the array is null", text());
    const quorlMsgDateTime time = {0, 1'000'000'000};
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddDateTimeEx(message, "time", &time, 0));
    EXPECT_EQ("field \"time\": 1000000000 nanoseconds are too many: give 0 to 999999999", text());
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_UpdateDateTimeEx(message, "time", nullptr, 0));
    EXPECT_EQ("field \"time\": the date-time is null", text());
    quorlMsgField record{};
    record.name = "odd";
    record.type = 77;
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_AddField(message, &record));
    EXPECT_EQ("field \"odd\": field type 77 does not exist", text());
    const quorlMsg none[] = {nullptr};
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgArrayEx(message, "inner", none, 1, 0));
    EXPECT_EQ("field \"inner\": message 0 of the array: message 0x0 does not exist or has been destroyed", text());
}

TEST(FieldFaults, ALateTextGivesWayToTheNextFailure) {
    Owned message;
    quorl_i32 value = 0;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "a", &value, 0));
    fail(QUORL_TIMEOUT, "too late");
    EXPECT_EQ("too late", text());
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "b", &value, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, failWithin(QUORL_NOT_FOUND, "outer"));
    EXPECT_EQ("outer: no field has the name \"b\"", text());

    // The text is about the message as it was, and the thread's own.
    std::string name = "gone";
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, name.c_str(), &value, 0));
    name = "else";
    quorlMsg_Reset(message);
    std::thread([&] {
        EXPECT_EQ("", text());
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "theirs", &value, 0));
    }).join();
    EXPECT_EQ("no field has the name \"gone\"", text());
}

}  // namespace
}  // namespace quorl::message
