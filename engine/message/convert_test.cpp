// Exact numeric conversion: every pair of types at their borders, and through the getters.
#include "message/convert.h"

#include <gtest/gtest.h>

#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::Owned;

template <class To, class From>
bool gives(From from, To wanted) {
    To to{};
    return convertExactly(from, &to) && to == wanted;
}
template <class To, class From>
bool refuses(From from) {
    To to{};
    return !convertExactly(from, &to);
}

TEST(Convert, WholeNumbers) {
    EXPECT_TRUE(gives<quorl_i8>(quorl_i64{-128}, quorl_i8{-128}));
    EXPECT_TRUE(refuses<quorl_i8>(quorl_i64{-129}));
    EXPECT_TRUE(refuses<quorl_i8>(quorl_u8{128}));
    EXPECT_TRUE(gives<quorl_u8>(quorl_i16{255}, quorl_u8{255}));
    EXPECT_TRUE(refuses<quorl_u8>(quorl_i16{-1}));
    EXPECT_TRUE(refuses<quorl_u64>(quorl_i8{-1}));
    EXPECT_TRUE(refuses<quorl_i64>(quorl_u64{1} << 63));
    EXPECT_TRUE(gives<quorl_i64>((quorl_u64{1} << 63) - 1, std::numeric_limits<quorl_i64>::max()));
    EXPECT_TRUE(gives<quorl_u32>(quorl_u64{0xffffffff}, quorl_u32{0xffffffff}));
    EXPECT_TRUE(refuses<quorl_u32>(quorl_u64{0x100000000}));
}

TEST(Convert, Booleans) {
    EXPECT_TRUE(gives<quorl_i32>(QUORL_TRUE, 1));
    EXPECT_TRUE(gives<quorl_f64>(QUORL_FALSE, 0.0));
    EXPECT_TRUE(gives<quorl_bool>(1.0, QUORL_TRUE));
    EXPECT_TRUE(gives<quorl_bool>(quorl_u8{0}, QUORL_FALSE));
    EXPECT_TRUE(refuses<quorl_bool>(2));
    EXPECT_TRUE(refuses<quorl_bool>(-1));
    EXPECT_TRUE(refuses<quorl_bool>(0.5));
    EXPECT_TRUE(refuses<quorl_bool>(std::nan("")));
}

TEST(Convert, FloatingToWhole) {
    EXPECT_TRUE(gives<quorl_i64>(-9223372036854775808.0, std::numeric_limits<quorl_i64>::min()));
    EXPECT_TRUE(refuses<quorl_i64>(9223372036854775808.0));
    EXPECT_TRUE(refuses<quorl_i64>(-9223372036854777856.0));
    EXPECT_TRUE(gives<quorl_u64>(9223372036854775808.0, quorl_u64{1} << 63));
    EXPECT_TRUE(refuses<quorl_u64>(18446744073709551616.0));
    EXPECT_TRUE(refuses<quorl_u8>(256.0f));
    EXPECT_TRUE(gives<quorl_u8>(255.0f, quorl_u8{255}));
    EXPECT_TRUE(gives<quorl_u8>(-0.0, quorl_u8{0}));
    EXPECT_TRUE(refuses<quorl_i32>(1.5));
    EXPECT_TRUE(refuses<quorl_i32>(HUGE_VAL));
    EXPECT_TRUE(refuses<quorl_i32>(-HUGE_VAL));
    EXPECT_TRUE(refuses<quorl_i32>(std::nan("")));
    EXPECT_TRUE(refuses<quorl_i16>(-32769.0));
}

TEST(Convert, WholeToFloating) {
    EXPECT_TRUE(gives<quorl_f64>((quorl_i64{1} << 53), 9007199254740992.0));
    EXPECT_TRUE(refuses<quorl_f64>((quorl_i64{1} << 53) + 1));
    EXPECT_TRUE(refuses<quorl_f64>(std::numeric_limits<quorl_u64>::max()));
    EXPECT_TRUE(refuses<quorl_f64>(std::numeric_limits<quorl_i64>::max()));
    EXPECT_TRUE(gives<quorl_f64>(std::numeric_limits<quorl_i64>::min(), -9223372036854775808.0));
    EXPECT_TRUE(gives<quorl_f32>(quorl_i32{1} << 24, 16777216.0f));
    EXPECT_TRUE(refuses<quorl_f32>((quorl_i32{1} << 24) + 1));
}

TEST(Convert, BetweenFloatingTypes) {
    EXPECT_TRUE(gives<quorl_f64>(0.1f, static_cast<double>(0.1f)));
    EXPECT_TRUE(refuses<quorl_f32>(0.1));
    EXPECT_TRUE(gives<quorl_f32>(0.5, 0.5f));
    EXPECT_TRUE(refuses<quorl_f32>(1e300));
    EXPECT_TRUE(refuses<quorl_f32>(1e-300));
    EXPECT_TRUE(gives<quorl_f32>(HUGE_VAL, HUGE_VALF));
    quorl_f32 number = 0;
    EXPECT_TRUE(convertExactly(std::nan(""), &number));
    EXPECT_TRUE(std::isnan(number));
}

TEST(Convert, ThroughTheGetters) {
    Owned message;
    quorlMsg_AddI64Ex(message, "large", quorl_i64{1} << 40, 0);
    quorlMsg_AddF64Ex(message, "half", 0.5, 0);
    quorlMsg_AddU8Ex(message, "one", 1, 0);
    quorlMsg_AddIPPort16Ex(message, "port", 1, 0);
    quorl_i32 i32 = -7;
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "large", &i32, 0));
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "half", &i32, 0));
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetI32Ex(message, "port", &i32, 0));
    EXPECT_EQ(-7, i32);
    EXPECT_STREQ("field \"port\": it is IPPORT16, not I32", quorl_LastErrorText());
    EXPECT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, "one", &i32, 0));
    EXPECT_EQ(1, i32);
    quorl_bool boolean = QUORL_FALSE;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetBoolEx(message, "one", &boolean, 0));
    EXPECT_EQ(QUORL_TRUE, boolean);
    quorl_f32 single;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetF32Ex(message, "large", &single, 0));
    EXPECT_EQ(1099511627776.0f, single);
    quorl_ipport16 port;
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetIPPort16Ex(message, "one", &port, 0));
    quorl_u16 u16;
    EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetU16Ex(message, "port", &u16, 0));
}

}  // namespace
}  // namespace quorl::message
