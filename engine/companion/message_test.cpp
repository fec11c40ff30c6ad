// Messages of the border: what they share, what they carry, and what handles make of their attributes.
#include "companion/message.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "message/delivery.h"
#include "message/test_support.h"

namespace quorl::companion {
namespace {

using message::test::Owned;

std::span<const uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}
std::string textOf(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Message made(std::string_view subject, quorl_u32 number = 7) {
    Owned handle;
    EXPECT_EQ(QUORL_OK, quorlMsg_AddU32Ex(handle, "number", number, 0));
    EXPECT_EQ(QUORL_OK, quorlMsg_SetSendSubject(handle, std::string(subject).c_str()));
    Message message;
    EXPECT_EQ(QUORL_OK, Message::of(handle, &message));
    return message;
}

std::string attributesOf(quorlMsg handle) {
    Message message;
    const quorl_status status = Message::received(handle, &message);
    EXPECT_TRUE(status == QUORL_OK || status == QUORL_NOT_FOUND);
    return message ? textOf(message.attributes()) : std::string();
}

std::string ownOf(quorlMsg handle) {
    std::span<const uint8_t> attributes;
    EXPECT_EQ(QUORL_OK, handleAttributes(handle, &attributes));
    return textOf(attributes);
}

TEST(CompanionMessages, shareFieldsUnderOtherSubjectsAndAttributes) {
    const Message plain = made("a.b");
    EXPECT_TRUE(plain.attributes().empty());
    Message data;
    ASSERT_EQ(QUORL_OK, plain.withAttributes(bytesOf("C\1frame"), &data));
    EXPECT_EQ(textOf(data.attributes()), "C\1frame");
    EXPECT_EQ(data.image().data(), plain.image().data());
    EXPECT_EQ(data.subject(), "a.b");
    Message other;
    ASSERT_EQ(QUORL_OK, data.withSubjects("c", "_INBOX.x.1", &other));
    EXPECT_EQ(other.subject(), "c");
    EXPECT_EQ(other.replySubject(), "_INBOX.x.1");
    EXPECT_EQ(textOf(other.attributes()), "C\1frame");
    EXPECT_EQ(other.image().data(), plain.image().data());
    ASSERT_EQ(QUORL_OK, other.withAttributes(bytesOf("else"), &other));
    EXPECT_EQ(textOf(other.attributes()), "else");
    EXPECT_EQ(other.replySubject(), "_INBOX.x.1");
    ASSERT_EQ(QUORL_OK, other.withAttributes({}, &other));
    EXPECT_TRUE(other.attributes().empty());
    EXPECT_EQ(other.subject(), "c");
    EXPECT_EQ(other.image().data(), plain.image().data());
    EXPECT_EQ(textOf(data.attributes()), "C\1frame");
}

TEST(CompanionMessages, holdAttributesUpToTheirLimit) {
    const Message plain = made("a");
    const std::string most(attributesMax, 'x');
    Message data;
    ASSERT_EQ(QUORL_OK, plain.withAttributes(bytesOf(most), &data));
    EXPECT_EQ(textOf(data.attributes()), most);
    Message none;
    EXPECT_EQ(QUORL_INVALID_SIZE, plain.withAttributes(bytesOf(most + 'x'), &none));
    EXPECT_FALSE(none);
    Owned handle;
    EXPECT_EQ(QUORL_INVALID_SIZE, setHandleAttributes(handle, bytesOf(most + 'x')));
}

TEST(CompanionMessages, areMadeFromImagesAndChecked) {
    const Message plain = made("a");
    const std::string image = textOf(plain.image());
    Message read;
    ASSERT_EQ(QUORL_OK, Message::fromImage(bytesOf(image), "b", "c", &read));
    EXPECT_EQ(textOf(read.image()), image);
    EXPECT_EQ(read.subject(), "b");
    EXPECT_EQ(read.replySubject(), "c");
    EXPECT_EQ(QUORL_CORRUPT_MSG, Message::fromImage(bytesOf(image.substr(1)), "b", "", &read));
    EXPECT_EQ(QUORL_CORRUPT_MSG, Message::fromImage(bytesOf(image + 'x'), "b", "", &read));
    EXPECT_EQ(QUORL_CORRUPT_MSG, Message::fromImage({}, "b", "", &read));
    EXPECT_EQ(QUORL_INVALID_SUBJECT, Message::fromImage(bytesOf(image), "b..c", "", &read));
    EXPECT_EQ(QUORL_INVALID_SUBJECT, Message::fromImage(bytesOf(image), "b.*", "", &read));
    EXPECT_EQ(QUORL_INVALID_SUBJECT, Message::fromImage(bytesOf(image), "b", "c.>", &read));
    EXPECT_EQ(read.subject(), "b");
    ASSERT_EQ(QUORL_OK, Message::empty("_QUORL.CM.x", &read));
    EXPECT_EQ(read.subject(), "_QUORL.CM.x");
    EXPECT_EQ(read.image().size(), 12u);
    EXPECT_EQ(QUORL_INVALID_SUBJECT, read.withSubjects("x.*", "", &read));
}

TEST(CompanionMessages, handedOverKeepTheirAttributesThroughChangesAndCopies) {
    Message data;
    ASSERT_EQ(QUORL_OK, made("a").withAttributes(bytesOf("C\1frame"), &data));
    quorlMsg raw = nullptr;
    ASSERT_EQ(QUORL_OK, data.handOver(&raw));
    Owned handle(raw);
    EXPECT_EQ(attributesOf(handle), "C\1frame");
    EXPECT_EQ(message::test::printed(handle), "{number=7}");
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(handle, "more", 8, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(handle, "other"));
    EXPECT_EQ(attributesOf(handle), "C\1frame");
    quorlMsg copied = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(handle, &copied));
    const Owned copy(copied);
    EXPECT_EQ(attributesOf(copy), "C\1frame");
    EXPECT_EQ(message::test::printed(copy), "{number=7, more=8}");
    // What is sent again carries none.
    Message again;
    ASSERT_EQ(QUORL_OK, Message::of(copy, &again));
    EXPECT_TRUE(again.attributes().empty());
    ASSERT_EQ(QUORL_OK, quorlMsg_Reset(handle));
    EXPECT_EQ(attributesOf(handle), "");
    EXPECT_EQ(attributesOf(copy), "C\1frame");
}

TEST(CompanionMessages, whatIsSetOnAHandleIsTheHandles) {
    Owned handle;
    EXPECT_EQ(ownOf(handle), "");
    ASSERT_EQ(QUORL_OK, setHandleAttributes(handle, bytesOf("T5")));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(handle, "number", 7, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(handle, "a"));
    EXPECT_EQ(ownOf(handle), "T5");
    EXPECT_EQ(attributesOf(handle), "");
    quorlMsg copied = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(handle, &copied));
    const Owned copy(copied);
    ASSERT_EQ(QUORL_OK, setHandleAttributes(handle, bytesOf("T66")));
    EXPECT_EQ(ownOf(handle), "T66");
    EXPECT_EQ(ownOf(copy), "T5");
    ASSERT_EQ(QUORL_OK, setHandleAttributes(handle, {}));
    EXPECT_EQ(ownOf(handle), "");
    ASSERT_EQ(QUORL_OK, quorlMsg_Reset(copy));
    EXPECT_EQ(ownOf(copy), "");
    Message sent;
    ASSERT_EQ(QUORL_OK, setHandleAttributes(handle, bytesOf("T5")));
    ASSERT_EQ(QUORL_OK, Message::of(handle, &sent));
    EXPECT_TRUE(sent.attributes().empty());
}

TEST(CompanionMessages, insideOthersHaveNone) {
    Owned outer;
    {
        Owned inner;
        ASSERT_EQ(QUORL_OK, setHandleAttributes(inner, bytesOf("T5")));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "inner", inner, 0));
    }
    quorlMsg inner = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetMsgEx(outer, "inner", &inner, 0));
    EXPECT_EQ(ownOf(inner), "");
    EXPECT_EQ(attributesOf(inner), "");
    EXPECT_EQ(QUORL_NOT_PERMITTED, setHandleAttributes(inner, bytesOf("x")));
    quorlMsg copied = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(inner, &copied));
    const Owned copy(copied);
    EXPECT_EQ(ownOf(copy), "");
}

TEST(CompanionMessages, ofHandlesThatAreNone) {
    Message message;
    std::span<const uint8_t> attributes;
    EXPECT_EQ(QUORL_INVALID_MSG, Message::of(nullptr, &message));
    EXPECT_EQ(QUORL_INVALID_MSG, Message::received(nullptr, &message));
    EXPECT_EQ(QUORL_INVALID_MSG, handleAttributes(nullptr, &attributes));
    EXPECT_EQ(QUORL_INVALID_MSG, setHandleAttributes(nullptr, {}));
    const Owned handle;
    EXPECT_EQ(QUORL_NOT_FOUND, Message::received(handle, &message));
}

// Plain listeners and plain replies hear the message without them.
TEST(CompanionMessages, stayBehindWhereTheProgramDidNotAskForThem) {
    Message data;
    ASSERT_EQ(QUORL_OK, made("a").withAttributes(bytesOf("C"), &data));
    for (const char* subject : {"a", "b"}) {
        Message sent;
        ASSERT_EQ(QUORL_OK, data.withSubjects(subject, "", &sent));
        quorlMsg plain = nullptr;
        message::ContentRef content;
        {
            quorlMsg whole = nullptr;
            ASSERT_EQ(QUORL_OK, sent.handOver(&whole));
            const Owned kept(whole);
            ASSERT_EQ(QUORL_OK, message::received(whole, &content));
        }
        ASSERT_EQ(QUORL_OK, message::deliver(content, 0, &plain));
        EXPECT_EQ(attributesOf(plain), "");
        const char* read = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(plain, &read));
        EXPECT_STREQ(read, subject);
        message::finishDelivery(plain);
    }
}

}  // namespace
}  // namespace quorl::companion
