// The wire image: golden bytes, and what is refused of an image from outside.
#include "message/wire.h"

#include <gtest/gtest.h>

#include <vector>

#include "message/delivery.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::imageOf;
using test::Owned;
using test::printed;

std::string bytesOf(std::initializer_list<int> bytes) {
    return {bytes.begin(), bytes.end()};
}

// An image around field bytes, with the right size.
std::string imageAround(const std::string& fields, uint32_t count) {
    std::string image = bytesOf({'Q', 'M', 1, 0});
    const auto size = static_cast<uint32_t>(fields.size() + wire::headerSize);
    image.append(reinterpret_cast<const char*>(&size), 4);
    image.append(reinterpret_cast<const char*>(&count), 4);
    return image + fields;
}

// "" when the image is accepted, otherwise the detail text.
std::string refusal(const std::string& image) {
    ContentRef content;
    // A copy of exactly its size, so that a sanitizer sees a read behind it.
    const std::vector<char> exact(image.begin(), image.end());
    const quorl_status status = contentFromBytes(exact.data(), exact.size(), "a", "", &content);
    if (status == QUORL_OK) return "";
    EXPECT_EQ(QUORL_CORRUPT_MSG, status);
    return quorl_LastErrorText();
}

TEST(Wire, TheImageIsThatOfTheDocumentation) {
    Owned message;
    EXPECT_EQ(imageAround("", 0), imageOf(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddF64Ex(message, "celsius", 71.5, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddBoolEx(message, "on", QUORL_TRUE, 7));
    EXPECT_EQ(bytesOf({0x51, 0x4d, 1, 0, 0x24, 0, 0, 0, 2, 0, 0, 0}) +  // header
                  bytesOf({0x4b, 'c', 'e', 'l', 's', 'i', 'u', 's', 0, 0, 0, 0, 0, 0, 0xe0, 0x51, 0x40}) +
                  bytesOf({0xc1, 7, 0, 'o', 'n', 0, 1}),
              imageOf(message));
}

TEST(Wire, TheTenFieldMessageIsSmall) {
    Owned message;
    const uint8_t digest[32] = {};
    const quorl_i32 samples[16] = {};
    const quorlMsgDateTime created = {1795132800, 123456000};
    quorlMsg_AddBoolEx(message, "active", QUORL_TRUE, 0);
    quorlMsg_AddI32Ex(message, "level", -123456, 0);
    quorlMsg_AddU32Ex(message, "counter", 3000000000u, 0);
    quorlMsg_AddI64Ex(message, "balance", -9007199254740993, 0);
    quorlMsg_AddU64Ex(message, "order_id", 0xF234567890ABCDEFu, 0);
    quorlMsg_AddF64Ex(message, "price", 1234.5678, 0);
    quorlMsg_AddStringEx(message, "customer", "ABCDEFGHIJ0123456789", 0);
    quorlMsg_AddDateTimeEx(message, "created", &created, 0);
    quorlMsg_AddOpaqueEx(message, "digest", digest, sizeof digest, 0);
    quorlMsg_AddI32ArrayEx(message, "samples", samples, 16, 0);
    EXPECT_EQ(264u, imageOf(message).size());
}

TEST(Wire, HeadersAreChecked) {
    const std::string good = imageAround("", 0);
    EXPECT_EQ("", refusal(good));
    const auto with = [&](size_t at, int byte) {
        std::string image = good;
        image[at] = static_cast<char>(byte);
        return refusal(image);
    };
    EXPECT_NE("", with(0, 'q'));
    EXPECT_NE("", with(1, 'm'));
    EXPECT_EQ("corrupt message: unknown format version, byte 2, field 0", with(2, 2));
    EXPECT_NE("", with(3, 1));
    EXPECT_NE("", with(4, 11));
    EXPECT_NE("", with(4, 13));
    EXPECT_NE("", with(7, 0x41));
    EXPECT_EQ("corrupt message: more fields than bytes for them, byte 8, field 0", with(8, 1));
    quorlMsg message = nullptr;
    std::string small = good;
    small[4] = 11;
    EXPECT_EQ(QUORL_CORRUPT_MSG, quorlMsg_CreateFromBytes(&message, small.data()));
    small[7] = 0x41;  // more than the limit: must not be believed, nor read
    EXPECT_EQ(QUORL_CORRUPT_MSG, quorlMsg_CreateFromBytes(&message, small.data()));
    EXPECT_EQ(nullptr, message);
}

TEST(Wire, EveryRuleOfAFieldIsChecked) {
    const std::string inner = imageAround("", 0);
    std::string badInner = inner;
    badInner[0] = 'X';
    const struct {
        std::string fields;
        uint32_t count;
        const char* refusal;  // null: accepted
    } rows[] = {
        {bytesOf({1, 1}), 1, nullptr},
        {bytesOf({1, 2}), 1, "a boolean is neither 0 nor 1, byte 13, field 0"},
        {bytesOf({0, 1}), 1, "a type code is reserved, byte 12, field 0"},
        {bytesOf({33, 1}), 1, "a type code is reserved, byte 12, field 0"},
        {bytesOf({46, 1}), 1, "a type code is reserved, byte 12, field 0"},
        {bytesOf({62, 1}), 1, "a type code is reserved, byte 12, field 0"},
        {bytesOf({63, 127, 0}), 1, "a user type has a built-in type's code, byte 13, field 0"},
        {bytesOf({63, 128, 0}), 1, nullptr},
        {bytesOf({17, 0, 63}), 2, "more fields than bytes for them, byte 8, field 0"},
        {bytesOf({17, 1, 9, 63}), 2, "a field's head is cut short, byte 16, field 1"},
        {bytesOf({0x82, 0, 0, 1}), 1, "an id is 0, byte 13, field 0"},
        {bytesOf({0x82, 1, 0, 1}), 1, nullptr},
        {bytesOf({0x82, 1}), 1, "a field's head is cut short, byte 13, field 0"},
        // An id belongs to one name, or to fields without one.
        {bytesOf({0x82, 1, 0, 1, 0x83, 1, 0, 1}), 2, nullptr},
        {bytesOf({0xc2, 1, 0, 'a', 0, 1, 0xc3, 1, 0, 'a', 0, 1}), 2, nullptr},
        {bytesOf({0xc2, 1, 0, 'a', 0, 1, 0xc3, 1, 0, 'b', 0, 1}), 2, "an id stands under two names, byte 18, field 1"},
        {bytesOf({0xc2, 1, 0, 'a', 0, 1, 0xc3, 1, 0, 'a', 'a', 0, 1}), 2,
         "an id stands under two names, byte 18, field 1"},
        {bytesOf({0x82, 1, 0, 1, 0xc3, 1, 0, 0, 1}), 2, "an id stands under two names, byte 16, field 1"},
        // Names are UTF-8.
        {bytesOf({0x42, 0xc3, 0xa9, 0, 1}), 1, nullptr},
        {bytesOf({0x42, 'n', 0xe9, 0, 1}), 1, "a name is not UTF-8, byte 14, field 0"},
        {bytesOf({0x42, 0xc0, 0x80, 0, 1}), 1, "a name is not UTF-8, byte 13, field 0"},
        {bytesOf({0x42, 0xed, 0xa0, 0x80, 0, 1}), 1, "a name is not UTF-8, byte 13, field 0"},
        {bytesOf({0x42, 0xf0, 0x9f, 0x98, 0x80, 0, 1}), 1, nullptr},
        {bytesOf({0x42, 0xf0, 0x9f, 0x98, 0, 1}), 1, "a name is not UTF-8, byte 13, field 0"},
        {bytesOf({0x51}) + "12345678" + bytesOf({0xff, 0, 2, 'x', 'x', 17, 0, 17, 0, 17, 0}), 4,
         "a name is not UTF-8, byte 21, field 0"},
        {bytesOf({0x51}) + "1234567" + bytesOf({0xff, '9', 0, 2, 'x', 'x', 17, 0, 17, 0, 17, 0}), 4,
         "a name is not UTF-8, byte 20, field 0"},
        {bytesOf({0x51}) + "1234" + bytesOf({0xff, 0, 2, 'x', 'x', 17, 3, 1, 2, 3, 17, 3, 1, 2, 3}), 3,
         "a name is not UTF-8, byte 17, field 0"},
        {bytesOf({0x42, 'a', 'b'}), 1, "a name has no end, byte 13, field 0"},
        {bytesOf({0x42}) + std::string(127, 'n') + '\0' + '\1', 1, nullptr},
        {bytesOf({0x42}) + std::string(128, 'n') + '\0' + '\1', 1, "a name has no end, byte 13, field 0"},
        {bytesOf({6, 1, 2, 3}), 1, "a value is cut short, byte 13, field 0"},
        {bytesOf({6, 1, 2, 3, 4}), 1, nullptr},
        {bytesOf({6, 1, 2, 3, 4, 5}), 1, "bytes are left over behind the last field, byte 17, field 0"},
        {bytesOf({1, 1}), 0, "bytes are left over behind the last field, byte 12, field 0"},
        {bytesOf({14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xca, 0x9a, 0x3b}), 1,
         "a date-time's nanoseconds are above 999999999, byte 21, field 0"},
        {bytesOf({14, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xc9, 0x9a, 0x3b}), 1, nullptr},
        {bytesOf({15, 0}), 1, "a string has no terminator, byte 14, field 0"},
        {bytesOf({15, 1, 0}), 1, nullptr},
        {bytesOf({15, 2, 'a', 'b'}), 1, "a string's terminator is not at its end, byte 14, field 0"},
        {bytesOf({15, 3, 0, 'b', 0}), 1, "a string's terminator is not at its end, byte 14, field 0"},
        {bytesOf({15, 3, 'b', 0}), 1, "a value is cut short, byte 14, field 0"},
        {bytesOf({17, 0x80, 0, 0}), 1, "a length is written longer than needed, byte 13, field 0"},
        {bytesOf({17, 0x80, 0x80}), 1, "a length is cut short, byte 13, field 0"},
        {bytesOf({17, 0xff, 0xff, 0xff, 0xff, 0x10}), 1, "a length does not fit 32 bits, byte 13, field 0"},
        {bytesOf({17, 0xff, 0xff, 0xff, 0xff, 0x0f}), 1, "a value is cut short, byte 18, field 0"},
        {bytesOf({17, 2, 1}), 1, "a value is cut short, byte 14, field 0"},
        {bytesOf({34, 2, 1}), 1, "an array is cut short, byte 14, field 0"},
        {bytesOf({36, 1, 1, 2}), 1, nullptr},
        {bytesOf({38, 1, 0, 0, 1, 2, 3, 4}), 1, nullptr},
        {bytesOf({38, 1, 0, 7, 1, 2, 3, 4}), 1, "padding is not zero, byte 15, field 0"},
        {bytesOf({40, 0, 0}), 1, "padding is cut short, byte 14, field 0"},
        {bytesOf({40, 0, 0, 0}), 1, nullptr},
        {bytesOf({40, 0xff, 0xff, 0xff, 0xff, 0x0f}), 1, "padding is cut short, byte 18, field 0"},
        {bytesOf({38, 0x80, 0x80, 0x80, 0x80, 4, 0, 0}), 1, "an array is cut short, byte 20, field 0"},
        {bytesOf({47, 0, 0}), 1, nullptr},
        {bytesOf({47, 1, 0}), 1, "an array holds another number of strings, byte 15, field 0"},
        {bytesOf({47, 2, 3, 0, 'a', 0}), 1, nullptr},
        {bytesOf({47, 1, 3, 0, 'a', 0}), 1, "an array holds another number of strings, byte 15, field 0"},
        {bytesOf({47, 1, 2, 0, 'a'}), 1, "a string has no terminator, byte 16, field 0"},
        {bytesOf({47, 1, 4, 'a', 0}), 1, "an array is cut short, byte 15, field 0"},
        {bytesOf({16, 0, 0, 0}) + inner, 1, nullptr},
        {bytesOf({16, 0, 0, 0}) + inner.substr(0, 11), 1,
         "the header is cut short, byte 16, field 0 of a message at level 1"},
        {bytesOf({16, 0, 0, 0}) + badInner, 1, "no message begins here, byte 16, field 0 of a message at level 1"},
        {bytesOf({16, 0, 0, 0}) + imageAround(bytesOf({1, 3}), 1), 1,
         "a boolean is neither 0 nor 1, byte 29, field 0 of a message at level 1"},
        {bytesOf({48, 0, 0, 0}), 1, nullptr},
        {bytesOf({48, 2, 0, 0}) + inner + std::string(4, '\0') + inner, 1, nullptr},
        {bytesOf({48, 2, 0, 0}) + inner + std::string(3, '\0') + '\1' + inner, 1,
         "padding is not zero, byte 31, field 0"},
        {bytesOf({48, 2, 0, 0}) + inner, 1, "padding is cut short, byte 28, field 0"},
    };
    for (const auto& row : rows) {
        const std::string image = imageAround(row.fields, row.count);
        EXPECT_EQ(row.refusal == nullptr ? std::string() : "corrupt message: " + std::string(row.refusal),
                  refusal(image))
            << testing::PrintToString(row.fields);
    }
}

TEST(Wire, ManyIdsAreComparedToo) {
    for (int same : {-1, 0, 15, 16, 199}) {
        for (const char name : {'n', 'm'}) {
            std::string fields;
            for (int i = 0; i < 200; ++i) fields += bytesOf({0xc2, 1 + i, i % 2, 'n', 0, 0});
            if (same >= 0) fields += bytesOf({0xc2, 1 + same, same % 2, name, 0, 0});
            EXPECT_EQ(
                same < 0 || name == 'n' ? "" : "corrupt message: an id stands under two names, byte 1212, field 200",
                refusal(imageAround(fields, same < 0 ? 200 : 201)))
                << same;
        }
    }
}

TEST(Wire, NestingIsBounded) {
    std::string image = imageAround("", 0);
    for (int level = 1; level <= QUORL_MSG_MAX_DEPTH; ++level) {
        image = imageAround(bytesOf({16, 0, 0, 0}) + image, 1);
        ASSERT_EQ("", refusal(image)) << level;
    }
    const std::string deep = imageAround(bytesOf({16, 0, 0, 0}) + image, 1);
    EXPECT_NE(std::string::npos, refusal(deep).find("nested too deeply")) << refusal(deep);
    const std::string list = imageAround(bytesOf({48, 1, 0, 0}) + image, 1);
    EXPECT_NE(std::string::npos, refusal(list).find("nested too deeply")) << refusal(list);
}

// A message with every kind of value, so that the next test meets all of them.
std::string everyKind() {
    Owned inner;
    Owned message;
    const quorl_f64 numbers[] = {1, 2};
    const char* texts[] = {"a", "bc"};
    const quorlMsgDateTime time = {-5, 5};
    quorlMsg_AddI16Ex(inner, "n", 300, 2);
    quorlMsg_AddMsgEx(message, "inner", inner, 1);
    const quorlMsg list[] = {inner, inner};
    quorlMsg_AddMsgArrayEx(message, "list", list, 2, 0);
    quorlMsg_AddBoolEx(message, nullptr, QUORL_TRUE, 0);
    quorlMsg_AddF64ArrayEx(message, "numbers", numbers, 2, 0);
    quorlMsg_AddStringEx(message, "text", "some text", 0);
    quorlMsg_AddStringArrayEx(message, "texts", texts, 2, 0);
    quorlMsg_AddDateTimeEx(message, "time", &time, 3);
    quorlMsg_AddOpaqueEx(message, "", std::string(200, 'o').data(), 200, 0);
    quorlMsgField user{};
    user.type = 222;
    user.count = 1;
    user.size = 2;
    user.data.buf = "u";
    quorlMsg_AddField(message, &user);
    return imageOf(message);
}

// Whatever is accepted reads without harm and comes back byte for byte; whatever is cut short is refused.
TEST(Wire, EveryDamagedByteIsRefusedOrHarmless) {
    const std::string good = everyKind();
    ASSERT_EQ("", refusal(good));
    for (size_t size = 0; size < good.size(); ++size) {
        std::string cut = good.substr(0, size);
        EXPECT_NE("", refusal(cut)) << size;
        if (size < wire::headerSize) continue;
        const auto claimed = static_cast<uint32_t>(size);
        std::memcpy(&cut[wire::sizeAt], &claimed, sizeof claimed);
        EXPECT_NE("", refusal(cut)) << size;
    }
    for (size_t at = 0; at < good.size(); ++at) {
        for (int bit = 0; bit < 256; ++bit) {
            std::string damaged = good;
            damaged[at] = static_cast<char>(bit);
            const std::vector<char> exact(damaged.begin(), damaged.end());
            ContentRef content;
            if (contentFromBytes(exact.data(), exact.size(), "a", "", &content) != QUORL_OK) continue;
            quorlMsg message = nullptr;
            ASSERT_EQ(QUORL_OK, deliver(content, 0, &message));
            EXPECT_EQ(damaged, imageOf(message));
            printed(message);
            quorl_u32 count = test::fieldsOf(message);
            for (quorl_u32 i = 0; i < count; ++i) {
                quorlMsgField field;
                ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i));
            }
            finishDelivery(message);
        }
    }
}

TEST(Wire, LengthsAtTheBordersOfTheirEncoding) {
    for (quorl_u32 size : {0u, 1u, 127u, 128u, 16'383u, 16'384u, 2'097'151u, 2'097'152u}) {
        Owned message;
        const std::string bytes(size, 'b');
        ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, nullptr, bytes.data(), size, 0));
        const std::string image = imageOf(message);
        EXPECT_EQ(wire::headerSize + 1 + wire::lengthSize(size) + size, image.size());
        EXPECT_EQ("", refusal(image));
    }
}

}  // namespace
}  // namespace quorl::message
