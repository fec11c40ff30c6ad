// The printed form, value by value.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::Owned;
using test::printed;

TEST(Print, Numbers) {
    Owned message;
    EXPECT_EQ("{}", printed(message));
    quorlMsg_AddBoolEx(message, "yes", QUORL_TRUE, 0);
    quorlMsg_AddBoolEx(message, "no", QUORL_FALSE, 0);
    quorlMsg_AddI8Ex(message, "i8", -128, 0);
    quorlMsg_AddU8Ex(message, "u8", 255, 0);
    quorlMsg_AddI64Ex(message, "i64", std::numeric_limits<quorl_i64>::min(), 0);
    quorlMsg_AddU64Ex(message, "u64", std::numeric_limits<quorl_u64>::max(), 0);
    EXPECT_EQ("{yes=true, no=false, i8=-128, u8=255, i64=-9223372036854775808, u64=18446744073709551615}",
              printed(message));
}

TEST(Print, FloatingPointNumbersInTheirShortestForm) {
    Owned message;
    const auto f32 = [&](float value) {
        quorlMsg_UpdateF32Ex(message, "s", value, 0);
        return printed(message);
    };
    EXPECT_EQ("{s=0.1}", f32(0.1f));
    EXPECT_EQ("{s=1}", f32(1.0f));
    EXPECT_EQ("{s=3.4028235e+38}", f32(std::numeric_limits<float>::max()));
    const double numbers[] = {0.1, -0.0, 1e300, 5e-324, std::nan(""), -std::nan(""), HUGE_VAL, -HUGE_VAL, 71.5};
    Owned doubles;
    quorlMsg_AddF64ArrayEx(doubles, "d", numbers, 9, 0);
    EXPECT_EQ("{d[9]={0.1, -0, 1e+300, 5e-324, nan, nan, inf, -inf, 71.5}}", printed(doubles));
}

TEST(Print, TextsEscaped) {
    Owned message;
    quorlMsg_AddStringEx(message, "s", "a\"b\\c\n\r\t\x01\x7f gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80", 0);
    EXPECT_EQ("{s=\"a\\\"b\\\\c\\n\\r\\t\\x01\\x7f gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80\"}", printed(message));
    // Cut short, overlong, a surrogate, above the last character, a control character, stray bytes.
    Owned broken;
    quorlMsg_AddStringEx(broken, "s", "\xc3|\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xc2\x85|\x80|\xff|\xe2\x82", 0);
    EXPECT_EQ("{s=\"\\xc3|\\xc0\\xaf|\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80|\\xc2\\x85|\\x80|\\xff|\\xe2\\x82\"}",
              printed(broken));
}

TEST(Print, NamesEscapedAndMissing) {
    Owned message;
    quorlMsg_AddI32Ex(message, "a=b, {c}", 1, 0);
    quorlMsg_AddI32Ex(message, "", 2, 0);
    quorlMsg_AddI32Ex(message, nullptr, 3, 77);
    quorlMsg_AddI32Ex(message, nullptr, 4, 0);
    quorlMsg_AddI32Ex(message, "named", 5, 8);
    quorlMsg_AddI32Ex(message, "#1\n", 6, 0);
    EXPECT_EQ("{a\\=b\\, \\{c\\}=1, \"\"=2, #77=3, #0=4, named=5, \\#1\\n=6}", printed(message));
}

TEST(Print, AddressesAndBytes) {
    Owned message;
    const uint8_t port[] = {0x1f, 0x90};
    const uint8_t address[] = {192, 168, 0, 1};
    quorl_ipport16 portBits;
    quorl_ipaddr32 addressBits;
    std::memcpy(&portBits, port, 2);
    std::memcpy(&addressBits, address, 4);
    quorlMsg_AddIPPort16Ex(message, "port", portBits, 0);
    quorlMsg_AddIPAddr32Ex(message, "host", addressBits, 0);
    quorlMsg_AddOpaqueEx(message, "none", nullptr, 0, 0);
    quorlMsg_AddOpaqueEx(message, "one", "\xfe", 1, 0);
    quorlMsg_AddOpaqueEx(message, "many", "0123456789abcdefg", 17, 0);
    quorlMsg_AddXmlEx(message, "xml", "<a b=\"c\"/>\0", 11, 0);
    quorlMsgField field{};
    field.name = "user";
    field.type = 200;
    field.size = 2;
    field.count = 1;
    field.data.buf = "\x01\x02";
    quorlMsg_AddField(message, &field);
    EXPECT_EQ(
        "{port=8080, host=192.168.0.1, none=[0 bytes], one=[1 byte: fe], "
        "many=[17 bytes: 30313233343536373839616263646566...], xml=\"<a b=\\\"c\\\"/>\\x00\", "
        "user=[type 200, 2 bytes: 0102]}",
        printed(message));
}

TEST(Print, Arrays) {
    Owned message;
    const quorl_u8 bytes[] = {0, 200};
    const char* texts[] = {"a", "", "b\""};
    Owned inner;
    quorlMsg_AddI32Ex(inner, "n", 1, 0);
    const quorlMsg messages[] = {inner, inner};
    quorlMsg_AddU8ArrayEx(message, "u8", bytes, 2, 0);
    quorlMsg_AddI64ArrayEx(message, "none", nullptr, 0, 0);
    quorlMsg_AddStringArrayEx(message, "texts", texts, 3, 0);
    quorlMsg_AddMsgArrayEx(message, "list", messages, 2, 0);
    quorlMsg_AddMsgEx(message, "inner", inner, 0);
    EXPECT_EQ("{u8[2]={0, 200}, none[0]={}, texts[3]={\"a\", \"\", \"b\\\"\"}, list[2]={{n=1}, {n=1}}, inner={n=1}}",
              printed(message));
}

TEST(Print, DateTimes) {
    const struct {
        quorl_i64 sec;
        quorl_u32 nsec;
        const char* text;
    } rows[] = {
        {0, 0, "1970-01-01T00:00:00.000000000Z"},
        {-1, 999'999'999, "1969-12-31T23:59:59.999999999Z"},
        {951'782'400, 1, "2000-02-29T00:00:00.000000001Z"},
        {951'868'800, 0, "2000-03-01T00:00:00.000000000Z"},
        {1'795'132'800, 123'456'000, "2026-11-20T00:00:00.123456000Z"},
        {-2'203'891'200, 0, "1900-03-01T00:00:00.000000000Z"},
        {-2'203'977'600, 0, "1900-02-28T00:00:00.000000000Z"},
        {-62'135'596'800, 0, "0001-01-01T00:00:00.000000000Z"},
        {-62'135'596'801, 0, "0000-12-31T23:59:59.000000000Z"},
        {-62'167'219'200, 0, "0000-01-01T00:00:00.000000000Z"},
        {-62'167'219'201, 0, "-0001-12-31T23:59:59.000000000Z"},
        {253'402'300'799, 0, "9999-12-31T23:59:59.000000000Z"},
        {253'402'300'800, 0, "+10000-01-01T00:00:00.000000000Z"},
        {std::numeric_limits<quorl_i64>::max(), 0, "+292277026596-12-04T15:30:07.000000000Z"},
        {std::numeric_limits<quorl_i64>::min(), 0, "-292277022657-01-27T08:29:52.000000000Z"},
    };
    for (const auto& row : rows) {
        Owned message;
        const quorlMsgDateTime time = {row.sec, row.nsec};
        ASSERT_EQ(QUORL_OK, quorlMsg_AddDateTimeEx(message, "t", &time, 0));
        EXPECT_EQ("{t=" + std::string(row.text) + "}", printed(message));
    }
}

TEST(Print, IsMadeAnewAfterAChange) {
    Owned message;
    quorlMsg_AddI32Ex(message, "n", 1, 0);
    const char* first;
    const char* second;
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &first));
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &second));
    EXPECT_EQ(first, second);
    quorlMsg_UpdateI32Ex(message, "n", 2, 0);
    EXPECT_EQ("{n=2}", printed(message));
}

}  // namespace
}  // namespace quorl::message
