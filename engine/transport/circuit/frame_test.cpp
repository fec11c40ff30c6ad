// Frames as messages: attributes go with the program's message, and a trailer that is none makes no frame.
#include "transport/circuit/frame.h"

#include <gtest/gtest.h>

#include <string>

#include "message/attributes.h"
#include "message/test_support.h"

namespace quorl::transport::circuit {
namespace {

using message::test::Owned;

constexpr uint16_t idTrailer = 10;

Owned frameWith(std::string_view attributes) {
    Owned program;
    EXPECT_EQ(QUORL_OK, quorlMsg_SetSendSubject(program, "a.b"));
    Frame frame;
    frame.kind = Kind::data;
    EXPECT_EQ(QUORL_OK, message::snapshot(program, &frame.content));
    EXPECT_EQ(QUORL_OK, message::withAttributes(
                            frame.content, {reinterpret_cast<const uint8_t*>(attributes.data()), attributes.size()},
                            &frame.content));
    message::ContentRef wire;
    EXPECT_EQ(QUORL_OK, encode(frame, "_INBOX.x.1", &wire));
    quorlMsg handle = nullptr;
    EXPECT_EQ(QUORL_OK, message::handOver(wire, &handle));
    return Owned(handle);
}

TEST(CircuitFrames, carryAttributes) {
    for (const std::string& attributes :
         {std::string(), std::string("C\1x"), std::string(message::attributesMax, 'y')}) {
        const Owned wire = frameWith(attributes);
        Frame read;
        ASSERT_TRUE(decode(wire, &read));
        const auto bytes = read.content.attributes();
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), attributes);
        EXPECT_EQ(read.content.sendSubject(), "a.b");
    }
}

TEST(CircuitFrames, withATrailerThatIsNoneAreRefused) {
    const Owned whole = frameWith("abc");
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetOpaqueEx(whole, nullptr, &bytes, &size, idTrailer));
    const std::string good(static_cast<const char*>(bytes), size);
    std::string other = good;
    other[2] = 2;  // of a version to come
    for (const std::string& bad : {std::string(), good.substr(0, 7), good.substr(0, size - 1), good + 'x', other}) {
        const Owned wire = frameWith("abc");
        ASSERT_EQ(QUORL_OK,
                  quorlMsg_UpdateOpaqueEx(wire, nullptr, bad.data(), static_cast<quorl_u32>(bad.size()), idTrailer));
        Frame read;
        EXPECT_FALSE(decode(wire, &read));
    }
}

}  // namespace
}  // namespace quorl::transport::circuit
