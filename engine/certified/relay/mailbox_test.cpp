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

// As a listener confirms that has taken one of two.
companion::Message confirmOf(size_t ranges) {
    Frame frame;
    frame.kind = Kind::confirm;
    frame.name = "listener";
    FrameWriter writer;
    encode(frame, writer);
    NumberSet confirmed(1);
    for (uint64_t number = 3; ranges != 0; number += 2, --ranges) confirmed.add({number, number});
    EXPECT_TRUE(addConfirmed(1, confirmed, writer));
    return messageWith("_QUORL.CM.TO.sender", writer.bytes());
}

// What the mailbox has written, for another one of that number.
bool load(Mailbox& mailbox, const Write& write) {
    Reader key(std::string_view(write.key).substr(1));
    EXPECT_EQ(key.number(), 9u);
    return mailbox.load(std::string_view(write.key).substr(write.key.size() - key.left()), write.value);
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
        EXPECT_TRUE(load(again, write));
    }
    EXPECT_EQ(again.items().at(item).after, 1u);
    EXPECT_FALSE(again.load("", ""));
    EXPECT_FALSE(again.load("\x01", "\xff"));
}

TEST_F(RelayMailbox, keepsWhatListenersSaidLastInWhateverOrderItIsLoaded) {
    uint64_t item = 0;
    Transaction transaction;
    ASSERT_TRUE(mailbox.add(cancelOf(1), &transaction, &item));
    ASSERT_TRUE(mailbox.add(cancelOf(2), &transaction, &item));
    Mailbox again(9, 0);
    for (const size_t state : {3, 1}) ASSERT_TRUE(load(again, transaction.writes[state]));
    EXPECT_FALSE(again.add(cancelOf(2), &transaction, &item));
    EXPECT_TRUE(again.add(cancelOf(1), &transaction, &item));
}

TEST_F(RelayMailbox, whatWasSaidBeforeDoesNotTakeTheLastAlong) {
    const uint64_t first = add(cancelOf(1));
    ASSERT_NE(add(cancelOf(2)), 0u);
    mailbox.drop(first);
    EXPECT_EQ(add(cancelOf(2)), 0u);
}

TEST_F(RelayMailbox, doesNotKeepWhatItCouldNotHandOut) {
    const companion::Message large = confirmOf(895);
    ASSERT_GT(large.attributes().size(), relayItemMost);
    EXPECT_EQ(add(large), 0u);
    EXPECT_NE(add(data(1)), 0u) << "what listeners say has no gaps";

    const companion::Message most = confirmOf(860);
    const uint64_t item = add(most);
    ASSERT_NE(item, 0u);
    const std::string name(nameMax, 'n');
    FrameWriter rest;
    rest.number(UINT64_MAX);
    rest.text(most.subject());
    rest.raw(most.attributes().data(), most.attributes().size());
    RelayFrame frame;
    frame.kind = RelayKind::item;
    frame.name = name;
    frame.number = frame.last = UINT64_MAX;
    frame.rest = rest.bytes();
    FrameWriter writer;
    encode(frame, writer);
    EXPECT_TRUE(rest.fits() && writer.fits());
}

TEST_F(RelayMailbox, refusesStateThatMakesNoSense) {
    const companion::Message cancel = cancelOf(1);
    const auto attributes = cancel.attributes();
    Writer<companion::attributesMax + 300> good;
    good.number(0);
    good.text("work");
    good.text({reinterpret_cast<const char*>(attributes.data()), attributes.size()});
    EXPECT_TRUE(mailbox.load("\x01", good.string()));
    EXPECT_FALSE(mailbox.load("\x01", good.string())) << "there is one of that number";
    EXPECT_EQ(mailbox.bytes(), attributes.size());
    EXPECT_FALSE(mailbox.load("\x02", std::string_view("\0\4work\1x", 8))) << "no certified frame";
    EXPECT_FALSE(mailbox.load("\x02", std::string("\0\1.", 3) + good.string().substr(6))) << "no subject";
    Writer<16> last;
    last.number(UINT64_MAX - 1);
    ASSERT_TRUE(mailbox.load(last.string(), good.string()));
    EXPECT_EQ(add(data(1)), 0u) << "there is no number behind the last";
    EXPECT_EQ(add(cancelOf(2)), 0u);
}

}  // namespace
}  // namespace quorl::certified
