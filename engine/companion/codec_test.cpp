// The codec of companions' frames: one form for each number, nothing read or written beyond an end.
#include "companion/codec.h"

#include <gtest/gtest.h>

#include <vector>

namespace quorl::companion {
namespace {

// What a number reads as, when it is all there is; nothing: it is refused.
std::vector<uint64_t> numbersIn(std::vector<uint8_t> bytes) {
    Reader reader(std::span<const uint8_t>(bytes.data(), bytes.size()));
    const uint64_t number = reader.number();
    if (!reader.done()) {
        EXPECT_EQ(number, 0u);
        return {};
    }
    return {number};
}

TEST(CompanionCodec, a_number_has_one_form) {
    using Numbers = std::vector<uint64_t>;
    EXPECT_EQ(numbersIn({0}), Numbers{0});
    EXPECT_EQ(numbersIn({0x80, 1}), Numbers{128});
    EXPECT_EQ(numbersIn({0x80, 0}), Numbers{});
    EXPECT_EQ(numbersIn({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 1}), Numbers{UINT64_MAX});
    EXPECT_EQ(numbersIn({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2}), Numbers{});
    EXPECT_EQ(numbersIn({0xff}), Numbers{});
}

TEST(CompanionCodec, reads_what_was_written) {
    Writer<64> writer;
    writer.byte(7);
    writer.fixed(0x0102030405060708);
    writer.number(300);
    writer.text("plant");
    ASSERT_TRUE(writer.fits());
    Reader reader(writer.bytes());
    EXPECT_EQ(reader.byte(), 7);
    EXPECT_EQ(reader.fixed(), 0x0102030405060708u);
    EXPECT_EQ(reader.number(1, 300), 300u);
    EXPECT_EQ(reader.text(), "plant");
    EXPECT_TRUE(reader.done());
}

TEST(CompanionCodec, a_number_out_of_its_bounds_is_a_failure) {
    for (const uint64_t number : {0u, 4u}) {
        Writer<16> writer;
        writer.number(number);
        writer.byte(9);
        Reader reader(writer.bytes());
        EXPECT_EQ(reader.number(1, 3), 0u);
        EXPECT_FALSE(reader.ok());
        EXPECT_EQ(reader.byte(), 0) << "nothing is read after a failure";
    }
}

TEST(CompanionCodec, a_text_longer_than_the_rest_is_a_failure) {
    Writer<16> writer;
    writer.number(6);
    writer.raw("plant", 5);
    Reader reader(writer.bytes());
    EXPECT_EQ(reader.text(), "");
    EXPECT_FALSE(reader.ok());
}

TEST(CompanionCodec, what_does_not_fit_is_not_written) {
    Writer<4> writer;
    writer.raw("abc", 3);
    writer.number(128);
    EXPECT_FALSE(writer.fits());
    EXPECT_EQ(writer.string(), "abc");
    writer.cut(2);
    EXPECT_TRUE(writer.fits());
    writer.number(128);
    EXPECT_EQ(writer.size(), 4u);
    EXPECT_EQ(writer.room(), 0u);
}

}  // namespace
}  // namespace quorl::companion
