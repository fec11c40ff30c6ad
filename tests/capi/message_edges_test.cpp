// Names, ids, indexes, counts and sizes at their borders, through the C interface.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace {

class Message {
  public:
    Message() { EXPECT_EQ(QUORL_OK, quorlMsg_Create(&message_)); }
    explicit Message(quorlMsg message) : message_(message) {}
    ~Message() { quorlMsg_Destroy(message_); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    operator quorlMsg() const { return message_; }

  private:
    quorlMsg message_ = nullptr;
};

quorl_u32 fieldsOf(quorlMsg message) {
    quorl_u32 count = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetNumFields(message, &count));
    return count;
}

// Indexes, instances and look-ups go on where sixteen bits end; ids do not.
TEST(MessageEdges, MoreFieldsThanSixteenBitsCount) {
    constexpr quorl_u32 fields = 66'000;
    Message built;
    for (quorl_u32 i = 0; i < fields; ++i) {
        const std::string name = "n" + std::to_string(i);
        ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(built, i % 2 == 0 ? name.c_str() : "odd", i,
                                              static_cast<quorl_u16>(i < 65'535 ? i + 1 : 0)));
    }
    EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddU32Ex(built, "more", 0, 65'535));
    EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddU32Ex(built, "more", 0, 1));
    const void* bytes = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(built, &bytes));
    quorlMsg made = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&made, bytes));
    const Message read(made);
    for (const quorlMsg message : {static_cast<quorlMsg>(built), static_cast<quorlMsg>(read)}) {
        ASSERT_EQ(fields, fieldsOf(message));
        quorlMsgField field;
        quorl_u64 indexAndType = 0;
        quorl_u32 value = 0;
        for (const quorl_u32 i : {0u, 65'534u, 65'535u, 65'536u, 65'537u, fields - 1}) {
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i));
            EXPECT_EQ(i, field.data.u32);
            EXPECT_EQ(i < 65'535 ? i + 1 : 0, field.id);
            if (i % 2 != 0) continue;
            const std::string name = "n" + std::to_string(i);
            ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, name.c_str(), &indexAndType, 0));
            EXPECT_EQ((quorl_u64{i} + 1) | quorl_u64{QUORLMSG_U32} << 32, indexAndType);
        }
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldByIndex(message, &field, fields));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldByIndex(message, &field, UINT32_MAX));
        ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldInstanceIndexAndType(message, "odd", 32'769, &indexAndType));
        EXPECT_EQ(65'538u | quorl_u64{QUORLMSG_U32} << 32, indexAndType);
        ASSERT_EQ(QUORL_OK, quorlMsg_GetU32Ex(message, nullptr, &value, 65'535));
        EXPECT_EQ(65'534u, value);
    }
    // What is taken away is free again, and those behind move up.
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(built, nullptr, 65'535));
    quorlMsgField field;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(built, &field, 65'535));
    EXPECT_EQ(65'536u, field.data.u32);
    EXPECT_EQ(QUORL_OK, quorlMsg_AddU32Ex(built, "more", 0, 65'535));
}

TEST(MessageEdges, NamesAndIdsTogetherAndAlone) {
    Message message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, nullptr, "by id alone", 9));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "", 1, 0));  // an empty name is a name
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "both", 2, 65'535));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, nullptr, 3, 0));
    quorlMsgField field;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, nullptr, &field, 9));
    EXPECT_EQ(nullptr, field.name);
    EXPECT_STREQ("by id alone", field.data.str);
    EXPECT_EQ(12u, field.size);
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, "", &field, 0));
    EXPECT_STREQ("", field.name);
    EXPECT_EQ(1, field.data.i32);
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, "both", &field, 65'535));
    EXPECT_EQ(65'535, field.id);
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, nullptr, &field, 0));
    EXPECT_EQ(9, field.id);  // the first without a name
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_GetFieldEx(message, "other", &field, 65'535));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_GetFieldEx(message, "", &field, 9));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_UpdateI32Ex(message, "both", 5, 9));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_RemoveFieldEx(message, "other", 65'535));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldEx(message, "both", &field, 10));  // the id decides
    EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddI32Ex(message, "both", 4, 9));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "both", 4, 10));
    quorl_u64 indexAndType = 1;
    EXPECT_EQ(QUORL_NOT_FOUND, _quorlMsg_GetFieldIndexAndType(message, "none", &indexAndType, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, _quorlMsg_GetFieldInstanceIndexAndType(message, "both", 3, &indexAndType));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_RemoveFieldInstance(message, "both", 3));
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldInstance(message, "both", 1));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, "both", &field, 0));
    EXPECT_EQ(10, field.id);
    EXPECT_EQ(4u, fieldsOf(message));
}

TEST(MessageEdges, BlocksOfNoBytes) {
    Message message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "opaque", nullptr, 0, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddXmlEx(message, "xml", "", 0, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "string", "", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU32ArrayEx(message, "numbers", nullptr, 0, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringArrayEx(message, "strings", nullptr, 0, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgArrayEx(message, "messages", nullptr, 0, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddOpaqueEx(message, "x", nullptr, 1, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringArrayEx(message, "x", nullptr, 1, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddMsgArrayEx(message, "x", nullptr, 1, 0));
    const quorl_u32 sizes[] = {0, 0, 1, 4, sizeof(char*), sizeof(quorlMsg)};
    for (quorl_u32 i = 0; i < 6; ++i) {
        quorlMsgField field;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i));
        EXPECT_EQ(sizes[i], field.size) << field.name;
        EXPECT_EQ(i < 3 ? 1u : 0u, field.count) << field.name;
    }
}

// XML is never parsed: any bytes come back, and the field's record shows them whatever the type.
TEST(MessageEdges, BytesAreKeptAsTheyAre) {
    Message message;
    std::string bytes("<a\0b>\xff\xfe not closed", 19);
    quorlMsgField user{};
    user.name = "user";
    user.type = 0xff;
    user.size = static_cast<quorl_u32>(bytes.size());
    user.count = 1;
    user.data.buf = bytes.data();
    ASSERT_EQ(QUORL_OK, quorlMsg_AddXmlEx(message, "xml", bytes.data(), user.size, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "opaque", bytes.data(), user.size, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddField(message, &user));
    const std::string given = bytes;
    bytes.assign(bytes.size(), '!');  // the message has its own
    const quorl_u8 types[] = {QUORLMSG_XML, QUORLMSG_OPAQUE, 255};
    for (quorl_u32 i = 0; i < 3; ++i) {
        quorlMsgField field;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i));
        EXPECT_EQ(types[i], field.type);
        EXPECT_EQ(given, std::string(static_cast<const char*>(field.data.buf), field.size));
    }
    // The three are different types for all that.
    const void* found = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetOpaqueEx(message, "xml", &found, &size, 0));
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetXmlEx(message, "user", &found, &size, 0));
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateOpaqueEx(message, "xml", "", 0, 0));
    user.type = 0xfe;
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateField(message, &user));
    for (const int type : {0, 19, 33, 44, 63, 64, 127}) {
        user.type = static_cast<quorl_u8>(type);
        EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_AddField(message, &user)) << type;
        EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateField(message, &user)) << type;
    }
}

TEST(MessageEdges, UnsignedValuesAtTheirTops) {
    Message message;
    const quorl_u8 u8[] = {0, 127, 128, 255};
    const quorl_u16 u16[] = {0, 32'768, 65'535};
    const quorl_u32 u32[] = {0, 2'147'483'648u, 4'294'967'295u};
    const quorl_u64 u64[] = {0, quorl_u64{1} << 63, std::numeric_limits<quorl_u64>::max()};
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU8ArrayEx(message, "u8", u8, 4, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU16ArrayEx(message, "u16", u16, 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU32ArrayEx(message, "u32", u32, 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU64ArrayEx(message, "u64", u64, 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddIPPort16Ex(message, "port", 0x3412, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateIPPort16Ex(message, "port", 0x1234, 0));
    const char* text = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &text));
    EXPECT_STREQ(
        "{u8[4]={0, 127, 128, 255}, u16[3]={0, 32768, 65535}, u32[3]={0, 2147483648, 4294967295}, "
        "u64[3]={0, 9223372036854775808, 18446744073709551615}, port=13330}",
        text);
    quorl_ipport16 port = 0;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetIPPort16Ex(message, "port", &port, 0));
    EXPECT_EQ(0x1234, port);
}

// An add never replaces, an update of the same type does, whatever the lengths.
TEST(MessageEdges, AddedTwiceAndUpdated) {
    Message message;
    const quorl_f64 numbers[] = {1, 2, 3};
    ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(message, "x", numbers, 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(message, "x", numbers, 1, 0));
    EXPECT_EQ(2u, fieldsOf(message));
    for (const quorl_u32 count : {3u, 1u, 0u, 2u}) {
        ASSERT_EQ(QUORL_OK, quorlMsg_UpdateF64ArrayEx(message, "x", numbers, count, 0));
        const quorl_f64* found = nullptr;
        quorl_u32 there = 99;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetF64ArrayEx(message, "x", &found, &there, 0));
        EXPECT_EQ(count, there);
        EXPECT_EQ(2u, fieldsOf(message));
    }
    const quorlMsg dead[] = {message, nullptr};
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgArrayEx(message, "messages", dead, 2, 0));
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateMsgArrayEx(message, "x", dead, 1, 0));
    EXPECT_EQ(2u, fieldsOf(message));
}

}  // namespace
