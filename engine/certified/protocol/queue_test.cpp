// What a distributed queue asks of the machine: a name that several programs have in turn, and room that is given.
#include "certified/protocol/machine.h"

#include <gtest/gtest.h>

#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

using Numbers = std::vector<uint64_t>;

Settings queueNamed(std::string_view name) {
    Settings settings = named(name);
    settings.queue = true;
    return settings;
}

class CertifiedQueue : public testing::Test {
  protected:
    void setRoom(Peer& peer, uint64_t messages, uint64_t bytes) {
        peer.step([&](Machine& machine, Output& out) {
            machine.setRoom(messages, bytes, net.now, out);
            return 0;
        });
    }
    Net net;
};

TEST_F(CertifiedQueue, does_not_contend_for_its_name) {
    Peer first(net, queueNamed("q"));
    Peer second_(net, queueNamed("q"));
    bool asked = false;
    const auto look = [&](const companion::Message& message) {
        Frame frame;
        asked = asked || (decode(message.attributes(), &frame) == Decoded::frame && frame.kind == Kind::presence);
        return false;
    };
    first.loses = second_.loses = look;
    net.pass(60 * second);
    EXPECT_FALSE(asked);
    EXPECT_FALSE(first.machine().suspended());
    EXPECT_FALSE(second_.machine().suspended());
    EXPECT_TRUE(first.told(Event::Kind::nameTaken).empty());
    EXPECT_TRUE(second_.told(Event::Kind::nameTaken).empty());
    // Nor does it give way to one that says that it has the name.
    Peer stranger(net, named("q"));
    net.pass(60 * second);
    EXPECT_FALSE(first.machine().suspended());
    EXPECT_FALSE(asked);
}

// It registers at once: whoever has the name next does not wait until the presence has been settled.
TEST_F(CertifiedQueue, has_its_name_from_the_start) {
    Peer sender(net, named("s"));
    net.pass(2 * second);
    Peer queue(net, queueNamed("q"));
    queue.listen("a.>");
    net.pass(100 * millisecond);
    sender.send("a.b");
    net.settle();
    EXPECT_EQ(queue.numbers("a.b"), Numbers{1});
}

// A late message of a certified sender is known for what it is.
TEST_F(CertifiedQueue, keeps_the_attributes_of_plain_deliveries) {
    Peer sender(net, named("s"));
    net.pass(2 * second);
    sender.send("a.b");
    net.settle();
    Peer queue(net, queueNamed("q"));
    queue.loses = [](const companion::Message& message) { return message.subject() == everybody; };
    queue.listen("a.b");
    net.pass(2 * second);
    sender.send("a.b");
    net.pass(second);
    ASSERT_EQ(queue.plain(), 1u);
    ASSERT_EQ(queue.deliveries[0].stream, 0u);
    Attributes attributes;
    ASSERT_TRUE(attributesOf(queue.deliveries[0].message, &attributes));
    EXPECT_EQ(attributes.sender, "s");
    EXPECT_EQ(attributes.number, 2u);
}

TEST_F(CertifiedQueue, registers_again_when_another_session_is_reminded) {
    Peer sender(net, named("s"));
    Peer first(net, queueNamed("q"));
    first.listen("a.b");
    net.pass(2 * second);
    sender.send("a.b");
    net.pass(second);
    ASSERT_EQ(first.numbers("a.b"), Numbers{1});
    first.confirmAll();
    net.pass(second);
    ASSERT_EQ(sender.machine().counts().messages, 0u);
    {
        // Another member registers for the name last, and ends.
        Peer other(net, queueNamed("q"));
        first.deaf = true;
        other.listen("a.b");
        net.pass(2 * second);
        sender.send("a.b");
        net.pass(second);
        ASSERT_EQ(other.numbers("a.b"), Numbers{2});
        net.remove(other);
    }
    first.deaf = false;
    // Nothing is sent that would tell it.
    net.pass(60 * second);
    EXPECT_EQ(first.numbers("a.b"), (Numbers{1, 2}));
    first.confirmAll();
    net.pass(second);
    EXPECT_EQ(sender.machine().counts().messages, 0u) << "what it confirms counts again";
}

// While nobody answered the pauses between reminders have become long.
TEST_F(CertifiedQueue, is_reminded_of_what_is_kept_as_soon_as_it_registers) {
    Peer sender(net, named("s"));
    {
        Peer first(net, queueNamed("q"));
        first.listen("a.b");
        net.pass(2 * second);
        sender.send("a.b");
        net.pass(second);
        ASSERT_EQ(first.numbers("a.b"), Numbers{1});
        net.remove(first);
    }
    net.pass(600 * second);
    Peer next(net, queueNamed("q"));
    next.listen("a.b");
    net.pass(50 * millisecond);
    EXPECT_EQ(next.numbers("a.b"), Numbers{1});
}

TEST_F(CertifiedQueue, delivers_as_many_messages_as_there_is_room_for) {
    Peer sender(net, named("s"));
    Peer queue(net, queueNamed("q"));
    queue.listen("a.*");
    net.pass(2 * second);
    setRoom(queue, 3, UINT64_MAX);
    for (int i = 0; i < 5; ++i) {
        sender.send("a.b");
        sender.send("a.c");
    }
    net.pass(60 * second);
    EXPECT_EQ(queue.deliveries.size(), 3u) << "of all streams together";
    EXPECT_EQ(sender.machine().counts().messages, 10u) << "what is beyond stays with its sender";
    EXPECT_EQ(queue.plain(), 0u);
    // Room that is given is used at once.
    setRoom(queue, 2, UINT64_MAX);
    net.settle();
    net.pass(millisecond);
    EXPECT_EQ(queue.deliveries.size(), 5u);
    net.pass(60 * second);
    EXPECT_EQ(queue.deliveries.size(), 5u);
    setRoom(queue, UINT64_MAX, UINT64_MAX);
    net.pass(second);
    ASSERT_EQ(queue.deliveries.size(), 10u);
    EXPECT_EQ(queue.numbers("a.b"), (Numbers{1, 2, 3, 4, 5}));
    EXPECT_EQ(queue.numbers("a.c"), (Numbers{1, 2, 3, 4, 5}));
    queue.confirmAll();
    net.pass(second);
    EXPECT_EQ(sender.machine().counts().messages, 0u);
}

TEST_F(CertifiedQueue, delivers_messages_until_there_is_no_room_for_bytes) {
    Peer sender(net, named("s"));
    Peer queue(net, queueNamed("q"));
    queue.listen("a.b");
    net.pass(2 * second);
    const uint64_t size = messageTo("a.b").image().size();
    // The last one may be larger than what is left.
    setRoom(queue, UINT64_MAX, 2 * size + 1);
    for (int i = 0; i < 6; ++i) sender.send("a.b");
    net.pass(60 * second);
    EXPECT_EQ(queue.numbers("a.b"), (Numbers{1, 2, 3}));
    setRoom(queue, UINT64_MAX, size);
    net.pass(60 * second);
    EXPECT_EQ(queue.numbers("a.b"), (Numbers{1, 2, 3, 4}));
    setRoom(queue, 1, UINT64_MAX);
    net.pass(60 * second);
    EXPECT_EQ(queue.numbers("a.b"), (Numbers{1, 2, 3, 4, 5}));
}

// The sender is not made to send in vain.
TEST_F(CertifiedQueue, asks_for_nothing_while_there_is_no_room) {
    Peer sender(net, named("s"));
    Peer queue(net, queueNamed("q"));
    queue.listen("a.b");
    net.pass(2 * second);
    setRoom(queue, 0, 0);
    int asked = 0;
    queue.loses = [&](const companion::Message& message) {
        Frame frame;
        asked += decode(message.attributes(), &frame) == Decoded::frame && frame.kind == Kind::ask;
        return false;
    };
    sender.loses = [](const companion::Message& message) { return message.subject() == "a.b"; };
    for (int i = 0; i < 3; ++i) sender.send("a.b");
    sender.loses = nullptr;
    net.pass(60 * second);
    EXPECT_EQ(asked, 0);
    EXPECT_TRUE(queue.deliveries.empty());
    setRoom(queue, 10, 10'000);
    net.pass(second);
    EXPECT_EQ(queue.numbers("a.b"), (Numbers{1, 2, 3}));
}

}  // namespace
}  // namespace quorl::certified
