// Who has a certified name, how soon it is free, and what others hear of it meanwhile.
#include <gtest/gtest.h>

#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

constexpr int64_t ms = second / 1000;

class CertifiedPresence : public ::testing::Test {
  protected:
    Net net;
};

TEST_F(CertifiedPresence, a_close_frees_the_name_at_once) {
    Peer first(net, named("n"));
    net.pass(second);
    Peer second_(net, named("n"));
    net.pass(second);
    ASSERT_TRUE(second_.machine().suspended());
    first.step([&](Machine& machine, Output& out) {
        machine.close(net.now, out);
        return 0;
    });
    net.remove(first);
    net.pass(second);
    EXPECT_FALSE(second_.machine().suspended());
    EXPECT_EQ(second_.told(Event::Kind::nameFree).size(), 1u);
}

TEST_F(CertifiedPresence, of_many_that_wait_one_gets_it) {
    Peer first(net, named("n"));
    net.pass(second);
    Peer second_(net, named("n"));
    net.pass(100 * ms);
    Peer third(net, named("n"));
    net.pass(second);
    first.step([&](Machine& machine, Output& out) {
        machine.close(net.now, out);
        return 0;
    });
    net.remove(first);
    net.pass(20 * second);
    EXPECT_NE(second_.machine().suspended(), third.machine().suspended());
}

TEST_F(CertifiedPresence, a_killed_program_s_name_is_free_after_fifteen_seconds) {
    Peer first(net, named("n"));
    net.pass(second);
    Peer second_(net, named("n"));
    net.pass(second);
    ASSERT_TRUE(second_.machine().suspended());
    net.remove(first);
    net.pass(9 * second);
    EXPECT_TRUE(second_.machine().suspended());
    net.pass(6 * second);
    EXPECT_FALSE(second_.machine().suspended());
}

TEST_F(CertifiedPresence, a_killed_program_that_is_started_again_does_not_wait) {
    Disk disk;
    auto first = std::make_unique<Peer>(net, named("n"), &disk);
    net.pass(second);
    net.remove(*first);
    Peer again(net, named("n"), &disk);
    net.pass(second);
    EXPECT_FALSE(again.machine().suspended());
    EXPECT_TRUE(again.told(Event::Kind::nameTaken).empty());
}

TEST_F(CertifiedPresence, nobody_takes_a_rival_for_a_sender_started_anew) {
    for (const bool sends : {false, true}) {
        Net world;
        Disk disk;
        Peer first(world, named("n"));
        auto third = std::make_unique<Peer>(world, named("third"), &disk);
        first.listen("a");
        third->listen("a");
        world.pass(second);
        first.send("a");
        world.pass(second);
        Peer rival(world, named("n"));
        rival.listen("a");
        if (sends) rival.send("a");
        world.pass(20 * second);
        ASSERT_TRUE(rival.machine().suspended());
        EXPECT_TRUE(first.told(Event::Kind::senderStartedAnew).empty());
        EXPECT_TRUE(third->told(Event::Kind::senderStartedAnew).empty());
        // The one that has the name is heard as before.
        first.send("a");
        world.pass(second);
        EXPECT_EQ(third->numbers("a").back(), 2u);
        // When the name is the rival's, everybody is told, those too that have heard of the first in an earlier life.
        third->confirmAll();
        world.pass(second);
        world.remove(*third);
        third = std::make_unique<Peer>(world, named("third"), &disk);
        third->listen("a");
        world.remove(first);
        world.pass(20 * second);
        ASSERT_FALSE(rival.machine().suspended());
        EXPECT_EQ(third->told(Event::Kind::senderStartedAnew).size(), 1u);
    }
}

TEST_F(CertifiedPresence, a_sender_started_anew_is_told_of_although_the_first_words_are_lost) {
    Peer listener(net, named("l"));
    listener.listen("a");
    auto sender = std::make_unique<Peer>(net, named("s"));
    net.pass(second);
    sender->send("a");
    net.pass(second);
    ASSERT_EQ(listener.numbers("a"), std::vector<uint64_t>{1});
    net.remove(*sender);
    sender = std::make_unique<Peer>(net, named("s"));
    net.onTheWay.clear();
    sender->loses = [](const companion::Message& message) { return message.subject() == everybody; };
    net.pass(second);
    sender->loses = nullptr;
    sender->send("a");
    net.pass(90 * second);
    EXPECT_EQ(listener.told(Event::Kind::senderStartedAnew).size(), 1u);
    sender->send("a");
    net.pass(second);
    EXPECT_EQ(listener.numbers("a").size(), 2u);
}

// An earlier incarnation's hello that comes late does not keep the listener from registering with the sender.
TEST_F(CertifiedPresence, a_late_hello_stops_nobody_from_registering) {
    Peer listener(net, named("l"));
    listener.listen("a");
    net.pass(second);
    Peer sender(net, named("s"));
    net.pass(second);
    FrameWriter writer;
    Frame frame;
    frame.kind = Kind::hello;
    frame.name = "s";
    frame.incarnation = 4711;
    frame.flags = flagSettled;
    encode(frame, writer);
    net.onTheWay.push_back(messageWith(writer, everybody));
    net.settle();
    // Of a subject that no pattern was registered for.
    sender.loses = [](const companion::Message& message) { return message.subject() == everybody; };
    listener.listen("b");
    sender.send("b");
    net.pass(5 * second);
    sender.send("b");
    net.pass(second);
    EXPECT_EQ(listener.numbers("b").back(), 2u);
}

TEST_F(CertifiedPresence, a_refused_listener_is_told_of_once_for_each_start) {
    Peer sender(net, named("s"));
    sender.step([&](Machine& machine, Output& out) { return machine.disallowListener("l", net.now, out); });
    auto listener = std::make_unique<Peer>(net, named("l"));
    listener->listen("a");
    net.pass(second);
    sender.send("a");
    net.pass(300 * second);
    // For its pattern, which is the subject too.
    EXPECT_EQ(sender.told(Event::Kind::refused).size(), 1u);
    EXPECT_STRNE(sender.told(Event::Kind::refused)[0].reason, "");
    net.remove(*listener);
    listener = std::make_unique<Peer>(net, named("l"));
    listener->listen("a");
    net.pass(second);
    sender.send("a");
    net.pass(300 * second);
    EXPECT_EQ(sender.told(Event::Kind::refused).size(), 2u);
}

TEST_F(CertifiedPresence, what_the_program_gives_up_is_not_told_as_a_time_limit) {
    Peer sender(net, named("s"));
    Peer listener(net, named("l"));
    listener.listen("a");
    net.pass(second);
    sender.send("a");
    net.pass(second);
    listener.deaf = true;
    sender.send("a");
    sender.step([&](Machine& machine, Output& out) { return machine.expireMessages("a", UINT64_MAX, net.now, out); });
    ASSERT_FALSE(sender.told(Event::Kind::undelivered).empty());
    EXPECT_STREQ(sender.told(Event::Kind::undelivered).back().reason, "the sender has removed it");
}

// What a peer may send as a reason always reads as something.
TEST_F(CertifiedPresence, every_reason_has_a_text) {
    for (int reason = 0; reason <= reasonMax; ++reason) EXPECT_STRNE(textOf(static_cast<Reason>(reason)), "") << reason;
}

TEST_F(CertifiedPresence, a_send_says_which_time_limit_it_has_got) {
    Peer sender(net, named("s"));
    const auto used = [&](int64_t limit) {
        int64_t got = -1;
        sender.step([&](Machine& machine, Output& out) {
            machine.send(messageTo("a"), limit, net.now, out, nullptr, &got);
            return 0;
        });
        return got;
    };
    EXPECT_EQ(used(0), 0);
    EXPECT_EQ(used(5 * second), 5 * second);
    sender.machine().setDefaultTimeLimit(7 * second);
    EXPECT_EQ(used(0), 7 * second);
    EXPECT_EQ(used(5 * second), 5 * second);
}

// ---- coming back after a relay agent has stood in

class CertifiedKept : public ::testing::Test {
  protected:
    // What a relay agent was given: the data frames that the listener's stand-in got.
    std::vector<companion::Message> dataFor(Peer& standIn) const {
        std::vector<companion::Message> found;
        for (const Delivery& delivery : standIn.deliveries) {
            if (delivery.stream != 0) found.push_back(delivery.message);
        }
        return found;
    }
    void give(Peer& to, const companion::Message& message, uint64_t after) {
        to.step([&](Machine& machine, Output& out) {
            machine.kept(message, after, net.now, out);
            return 0;
        });
    }
    Net net;
    Disk disk;
};

TEST_F(CertifiedKept, data_is_delivered_in_order_although_the_sender_is_away) {
    auto sender = std::make_unique<Peer>(net, named("s"));
    auto listener = std::make_unique<Peer>(net, named("l"), &disk);
    listener->listen("a");
    net.pass(second);
    sender->send("a");
    net.pass(second);
    listener->confirmAll();
    net.pass(second);
    Disk copy = disk;
    net.remove(*listener);
    {
        Peer standIn(net, named("l"), &copy);
        standIn.listen("a");
        net.pass(second);
        for (int i = 0; i < 3; ++i) sender->send("a");
        net.pass(second);
        const auto kept = dataFor(standIn);
        ASSERT_EQ(kept.size(), 3u);
        net.remove(standIn);
        net.remove(*sender);
        listener = std::make_unique<Peer>(net, named("l"), &disk);
        listener->listen("a");
        net.pass(second);
        for (size_t i = 0; i < kept.size(); ++i) give(*listener, kept[i], i == 0 ? 0 : i + 1);
        // Once more does nothing.
        for (const auto& message : kept) give(*listener, message, 0);
        EXPECT_EQ(listener->numbers("a"), (std::vector<uint64_t>{2, 3, 4}));
        EXPECT_FALSE(listener->machine().isStored(kept[2]));
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(listener->confirm(i, Machine::Confirm::now), QUORL_OK);
        for (const auto& message : kept) EXPECT_TRUE(listener->machine().isStored(message));
    }
    // Nor does it come again after a restart.
    net.remove(*listener);
    listener = std::make_unique<Peer>(net, named("l"), &disk);
    listener->listen("a");
    net.pass(second);
    EXPECT_TRUE(listener->numbers("a").empty());
}

TEST_F(CertifiedKept, a_copy_is_a_whole_ledger) {
    auto sender = std::make_unique<Peer>(net, named("s"), &disk);
    Disk listeners;
    Peer listener(net, named("l"), &listeners);
    listener.listen("a");
    net.pass(second);
    sender->send("a");
    net.pass(second);
    listener.deaf = true;
    for (int i = 0; i < 3; ++i) sender->send("a");
    // Only what the copy says, and the messages.
    Disk copy;
    Output out;
    sender->machine().copy(net.now, out);
    for (const Write& write : out.store.writes) {
        if (write.kind == Write::Kind::putState) copy.state[write.key] = write.value;
    }
    size_t messages = 0;
    sender->machine().forEachMessage([&](const StoredMessage& message) {
        ++messages;
        copy.messages[{message.subject, message.number}] = disk.messages.at({message.subject, message.number});
    });
    EXPECT_EQ(messages, 4u);
    net.remove(*sender);
    listener.deaf = false;
    Peer standIn(net, named("s"), &copy);
    net.pass(40 * second);
    EXPECT_EQ(listener.numbers("a"), (std::vector<uint64_t>{1, 2, 3, 4}));
    listener.confirmAll();
    net.pass(second);
    EXPECT_TRUE(copy.messages.empty());
}

}  // namespace
}  // namespace quorl::certified
