// The network is away for long, while both sides live, and is there again: nobody waits for a pause that has become long.
#include <gtest/gtest.h>

#include <set>

#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

using Numbers = std::vector<uint64_t>;

constexpr int64_t soon = 100 * millisecond;

void backOnLine(Net& net, Peer& peer) {
    peer.step([&](Machine& machine, Output& out) {
        machine.backOnLine(net.now, out);
        return 0;
    });
}

bool isKind(const companion::Message& message, Kind kind) {
    Frame frame;
    return decode(message.attributes(), &frame) == Decoded::frame && frame.kind == kind;
}

class CertifiedOutage : public testing::Test {
  protected:
    CertifiedOutage() : sender(net, named("s")), listener(net, named("l")) {
        listener.listen("a.*");
        net.pass(2 * second);
    }
    // What is sent in either direction is lost for so long that all pauses are the longest, and the next try is not near.
    void breakFor(int64_t time) {
        sender.deaf = listener.deaf = true;
        net.pass(time);
        net.onTheWay.clear();
        sender.deaf = listener.deaf = false;
    }

    Net net;
    Peer sender;
    Peer listener;
};

TEST_F(CertifiedOutage, a_sender_whose_way_is_back_reminds_at_once) {
    sender.send("a.b");
    net.pass(second);
    listener.deaf = true;
    sender.send("a.b");
    breakFor(125 * second);
    net.pass(soon);
    ASSERT_EQ(listener.numbers("a.b"), Numbers{1}) << "it was told by a pause that ended just now: choose another time";
    backOnLine(net, sender);
    net.pass(soon);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2}));
}

TEST_F(CertifiedOutage, a_sender_reminds_again_soon_when_the_listener_comes_back_after_it) {
    sender.send("a.b");
    net.pass(second);
    listener.deaf = true;
    sender.send("a.b");
    breakFor(125 * second);
    listener.deaf = true;
    backOnLine(net, sender);
    net.pass(soon);
    listener.deaf = false;
    net.pass(second);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2}));
}

TEST_F(CertifiedOutage, a_listener_whose_way_is_back_is_reminded_at_once) {
    sender.send("a.b");
    net.pass(second);
    listener.deaf = true;
    sender.send("a.b");
    breakFor(125 * second);
    net.pass(soon);
    ASSERT_EQ(listener.numbers("a.b"), Numbers{1}) << "it was told by a pause that ended just now: choose another time";
    backOnLine(net, listener);
    net.pass(soon);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2}));
}

TEST_F(CertifiedOutage, a_confirmation_that_was_lost_is_said_again_at_once) {
    for (Peer* const back : {&sender, &listener}) {
        sender.send("a.b");
        net.pass(second);
        listener.loses = [](const companion::Message&) { return true; };
        listener.confirmAll();
        net.pass(125 * second);
        listener.loses = nullptr;
        ASSERT_EQ(sender.machine().counts().messages, 1u);
        backOnLine(net, *back);
        net.pass(soon);
        EXPECT_EQ(sender.machine().counts().messages, 0u);
    }
}

// A stranger who announces the name again and again has no more notes sent than a listener that is there.
TEST_F(CertifiedOutage, announcing_again_and_again_brings_no_more_notes_than_the_shortest_pause) {
    sender.send("a.b");
    net.pass(second);
    listener.deaf = true;
    size_t notes = 0;
    sender.loses = [&](const companion::Message& message) {
        notes += isKind(message, Kind::note);
        return false;
    };
    FrameWriter writer;
    Frame frame;
    frame.kind = Kind::announce;
    frame.name = "l";
    encode(frame, writer);
    for (int i = 0; i < 1000; ++i) {
        net.onTheWay.push_back(messageWith(writer, everybody));
        net.pass(10 * millisecond);
    }
    EXPECT_LE(notes, 21u);
}

TEST_F(CertifiedOutage, what_waits_for_a_registration_registers_at_once) {
    for (Peer* const back : {&sender, &listener}) {
        const std::string subject = back == &sender ? "b.1" : "b.2";
        const auto lost = [](const companion::Message& message) { return isKind(message, Kind::subscribe); };
        listener.loses = lost;
        listener.listen("b.*");
        net.pass(125 * second);
        listener.loses = nullptr;
        backOnLine(net, *back);
        net.pass(soon);
        sender.send(subject);
        net.pass(soon);
        EXPECT_EQ(listener.numbers(subject).size(), back == &sender ? 1u : 2u);
    }
}

TEST_F(CertifiedOutage, what_was_asked_for_is_asked_for_again_at_once) {
    sender.send("a.b");
    net.pass(second);
    sender.loses = [](const companion::Message& message) {
        return message.subject() == "a.b" || isKind(message, Kind::resent) || isKind(message, Kind::note);
    };
    sender.send("a.b");
    sender.loses = [](const companion::Message& message) { return isKind(message, Kind::resent); };
    net.pass(63 * second);
    ASSERT_EQ(listener.numbers("a.b"), Numbers{1});
    sender.loses = [](const companion::Message& message) { return isKind(message, Kind::note); };
    // Not the sender's to remind of.
    net.pass(soon);
    ASSERT_EQ(listener.numbers("a.b"), Numbers{1}) << "it was asked for just now: choose another time";
    backOnLine(net, listener);
    net.pass(soon);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2}));
}

TEST_F(CertifiedOutage, many_are_not_reminded_in_one_moment) {
    constexpr int names = 100;
    for (int i = 0; i < names; ++i) {
        sender.step([&](Machine& machine, Output& out) {
            return machine.addListener("l." + std::to_string(i), "c", net.now, out);
        });
    }
    sender.send("c");
    net.pass(125 * second);
    std::multiset<int64_t> notes;
    sender.loses = [&](const companion::Message& message) {
        if (isKind(message, Kind::note)) notes.insert(net.now.monotonic);
        return false;
    };
    backOnLine(net, sender);
    net.pass(soon);
    EXPECT_EQ(notes.size(), size_t{names});
    for (const int64_t at : notes) EXPECT_LE(notes.count(at), 1u);
}

// Nothing that is in order is said again.
TEST_F(CertifiedOutage, who_owes_nothing_says_hello_and_announces) {
    sender.send("a.b");
    net.pass(second);
    listener.confirmAll();
    net.pass(60 * second);
    std::multiset<Kind> said;
    const auto look = [&](const companion::Message& message) {
        Frame frame;
        if (decode(message.attributes(), &frame) == Decoded::frame && frame.kind != Kind::presence)
            said.insert(frame.kind);
        return false;
    };
    sender.loses = listener.loses = look;
    backOnLine(net, sender);
    backOnLine(net, listener);
    net.pass(soon);
    EXPECT_EQ(said.count(Kind::announce), 1u);
    EXPECT_EQ(said.count(Kind::note), 0u);
    EXPECT_EQ(said.count(Kind::subscribe), 0u);
    EXPECT_LE(said.count(Kind::hello), 4u);
}

}  // namespace
}  // namespace quorl::certified
