// What a mailbox keeps, and what it takes for kept.
#include "certified/relay/mailbox.h"

#include <gtest/gtest.h>

#include "certified/protocol/frame.h"
#include "certified/relay/frame.h"

namespace quorl::certified {
namespace {

companion::Message messageWith(std::string_view subject, std::span<const uint8_t> attributes) {
    companion::Message message;
    EXPECT_EQ(companion::Message::empty(subject, &message), QUORL_OK);
    EXPECT_EQ(message.withAttributes(attributes, &message), QUORL_OK);
    return message;
}

companion::Message data(uint64_t number, uint64_t subjectId = 1) {
    Frame frame;
    frame.kind = Kind::data;
    frame.name = "sender";
    frame.incarnation = 7;
    frame.subjectId = static_cast<uint32_t>(subjectId);
    FrameWriter writer;
    encodeDataPrefix(frame, writer);
    encodeDataRest(number, 0, writer);
    return messageWith("work", writer.bytes());
}

companion::Message cancelOf(uint64_t attempt) {
    Frame frame;
    frame.kind = Kind::cancel;
    frame.name = "listener";
    frame.incarnation = 7;
    frame.session = 3;
    frame.token = 5;
    frame.attempt = attempt;
    frame.subject = "work";
    FrameWriter writer;
    encode(frame, writer);
    return messageWith("_QUORL.CM.TO.sender", writer.bytes());
}

class Keeping : public ::testing::Test {
  protected:
    // The number of the item; 0: it is not kept.
    uint64_t add(const companion::Message& message) {
        uint64_t item = 0;
        Transaction transaction;
        const bool kept = mailbox.add(message, &transaction, &item);
        EXPECT_EQ(transaction.writes.size(), kept ? 2 : 0);
        return kept ? item : 0;
    }
    uint64_t after(uint64_t item) const { return mailbox.items().at(item).after; }

    Mailbox mailbox{9, 0};
};

using RelayMailbox = Keeping;

TEST_F(RelayMailbox, keepsEachMessageOnceAndSaysWhatCameBefore) {
    EXPECT_EQ(add(data(1)), 1u);
    EXPECT_EQ(add(data(2)), 2u);
    EXPECT_EQ(add(data(2)), 0u);
    EXPECT_EQ(add(data(1, 2)), 3u);
    EXPECT_EQ(add(data(5)), 4u);
    EXPECT_EQ(after(1), 0u);
    EXPECT_EQ(after(4), 2u);
    EXPECT_EQ(after(3), 0u);
}

TEST_F(RelayMailbox, whatTheLedgerHasNotTakenIsKeptWhenItComesAgain) {
    add(data(1));
    const uint64_t second = add(data(2));
    const uint64_t third = add(data(3));
    const uint64_t said = add(cancelOf(1));
    const uint64_t bytes = mailbox.bytes();
    mailbox.drop(second);
    mailbox.drop(third);
    mailbox.drop(said);
    mailbox.drop(99);
    EXPECT_EQ(mailbox.items().size(), 1u);
    EXPECT_LT(mailbox.bytes(), bytes);
    const uint64_t again = add(data(2));
    ASSERT_NE(again, 0u);
    EXPECT_EQ(after(again), 1u) << "nothing lies between the two";
    ASSERT_NE(add(data(3)), 0u);
    EXPECT_NE(add(cancelOf(1)), 0u);
    EXPECT_EQ(mailbox.bytes(), bytes);
}

TEST_F(RelayMailbox, whatCannotBeReadTakesWhatItsSenderSentBehindItAlong) {
    add(data(1));
    const uint64_t second = add(data(2));
    const uint64_t other = add(data(1, 2));
    const uint64_t said = add(cancelOf(1));
    const uint64_t third = add(data(3));
    Transaction transaction;
    mailbox.giveUp(second, &transaction);
    EXPECT_EQ(transaction.writes.size(), 4u) << "image and state of both";
    EXPECT_FALSE(mailbox.items().contains(second));
    EXPECT_FALSE(mailbox.items().contains(third));
    EXPECT_TRUE(mailbox.items().contains(other));
    EXPECT_TRUE(mailbox.items().contains(said));
    const uint64_t again = add(data(2));
    ASSERT_NE(again, 0u);
    EXPECT_EQ(after(again), 1u);
}

TEST_F(RelayMailbox, nothingIsKeptBehindWhatWasRefused) {
    add(data(1));
    mailbox.refuse();
    EXPECT_EQ(add(data(2)), 0u);
    EXPECT_NE(add(cancelOf(1)), 0u) << "what listeners say has no gaps";
    mailbox.accept();
    EXPECT_NE(add(data(2)), 0u);
}

TEST_F(RelayMailbox, whatListenersSayIsBounded) {
    uint64_t attempt = 1;
    for (; attempt <= Mailbox::saidMost; ++attempt) ASSERT_NE(add(cancelOf(attempt)), 0u);
    EXPECT_EQ(add(cancelOf(attempt)), 0u);
    EXPECT_NE(add(data(1)), 0u);
    Transaction transaction;
    mailbox.forget(1, 1, &transaction);
    EXPECT_NE(add(cancelOf(attempt)), 0u);
}

TEST_F(RelayMailbox, attributesCountAgainstTheLimit) {
    const companion::Message message = data(1);
    add(message);
    EXPECT_EQ(mailbox.bytes(), message.image().size() + message.attributes().size());
    Mailbox small(1, mailbox.bytes() + 1);
    uint64_t item = 0;
    Transaction transaction;
    EXPECT_TRUE(small.add(data(1), &transaction, &item));
    EXPECT_FALSE(small.add(data(2), &transaction, &item));
}

TEST_F(RelayMailbox, isTheSameAfterARestart) {
    add(data(1));
    add(cancelOf(1));
    uint64_t item = 0;
    Transaction transaction;
    mailbox.add(data(3), &transaction, &item);
    Mailbox again(9, 0);
    for (const Write& write : transaction.writes) {
        if (write.kind == Write::Kind::putMessage)
            again.load(StoredMessage{9, write.number, static_cast<uint32_t>(write.message.image().size()), 0});
        if (write.kind != Write::Kind::putState) continue;
        Reader key(std::string_view(write.key).substr(1));
        EXPECT_EQ(key.number(), 9u);
        EXPECT_TRUE(again.load(std::string_view(write.key).substr(write.key.size() - key.left()), write.value));
    }
    EXPECT_EQ(again.items().at(item).after, 1u);
    EXPECT_FALSE(again.load("", ""));
    EXPECT_FALSE(again.load("\x01", "\xff"));
}

}  // namespace
}  // namespace quorl::certified
