// The rules of certified delivery, one by one, between machines that hear each other at once.
#include "certified/protocol/machine.h"

#include <gtest/gtest.h>

#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

using Numbers = std::vector<uint64_t>;

class CertifiedMachine : public testing::Test {
  protected:
    Net net;
};

TEST_F(CertifiedMachine, registers_a_listener_that_was_there_before_the_first_message_from_number_one) {
    Peer sender(net, named("s"));
    Peer listener(net, named("l"));
    listener.listen("a.*");
    net.pass(2 * second);
    uint64_t number = 0;
    EXPECT_EQ(sender.send("a.b", 0, &number), QUORL_OK);
    EXPECT_EQ(number, 1u);
    net.pass(second);
    EXPECT_EQ(listener.numbers("a.b"), Numbers{1});
    EXPECT_EQ(listener.plain(), 0u);
    ASSERT_EQ(sender.told(Event::Kind::registered).size(), 1u);
    EXPECT_EQ(sender.told(Event::Kind::registered)[0].first, 1u);
    listener.confirmAll();
    net.pass(second);
    EXPECT_EQ(sender.told(Event::Kind::completed).size(), 1u);
    EXPECT_EQ(sender.machine().counts().messages, 0u);
}

TEST_F(CertifiedMachine, gives_what_came_before_the_registration_as_plain_messages) {
    Peer sender(net, named("s"));
    net.pass(2 * second);
    sender.send("a.b");
    net.settle();
    Peer listener(net, named("l"));
    // It is heard of by the message alone.
    listener.loses = [](const companion::Message& message) { return message.subject() == everybody; };
    listener.listen("a.b");
    net.pass(2 * second);
    sender.send("a.b");
    net.pass(second);
    sender.send("a.b");
    net.pass(second);
    EXPECT_EQ(listener.plain(), 1u);
    EXPECT_EQ(listener.numbers("a.b"), Numbers{3});
    EXPECT_TRUE(listener.deliveries[0].message.attributes().empty());
    Attributes attributes;
    ASSERT_TRUE(attributesOf(listener.deliveries[1].message, &attributes));
    EXPECT_EQ(attributes.sender, "s");
    EXPECT_EQ(attributes.number, 3u);
}

TEST_F(CertifiedMachine, delivers_plain_messages_of_senders_that_are_not_certified) {
    Peer listener(net, named("l"));
    listener.listen("a.b");
    net.onTheWay.push_back(messageTo("a.b"));
    net.settle();
    EXPECT_EQ(listener.plain(), 1u);
    EXPECT_EQ(listener.machine().streamOf(listener.deliveries[0].message, nullptr), 0u);
}

// A sender and a listener that know each other.
class CertifiedPair : public CertifiedMachine {
  protected:
    void meet(Settings senderSettings = named("s"), Settings listenerSettings = named("l"), bool ledgers = true) {
        sender = std::make_unique<Peer>(net, senderSettings, ledgers ? &senderDisk : nullptr);
        listener = std::make_unique<Peer>(net, listenerSettings, ledgers ? &listenerDisk : nullptr);
        own = listener->listen("a.b");
        net.pass(2 * second);
        sender->send("a.b");
        net.pass(second);
        ASSERT_EQ(listener->numbers("a.b"), Numbers{1});
        listener->confirmAll();
        net.pass(second);
        ASSERT_EQ(sender->machine().counts().messages, 0u);
        listener->deliveries.clear();
        sender->events.clear();
    }
    void restartSender(Settings settings = named("s"), bool complete = true) {
        net.remove(*sender);
        net.onTheWay.clear();
        sender = std::make_unique<Peer>(net, settings, &senderDisk, complete);
    }
    void restartListener(Settings settings = named("l"), bool forgets = false) {
        net.remove(*listener);
        if (forgets) listenerDisk = {};
        listener = std::make_unique<Peer>(net, settings, &listenerDisk);
        own = listener->listen("a.b");
    }

    Disk senderDisk;
    Disk listenerDisk;
    std::unique_ptr<Peer> sender;
    std::unique_ptr<Peer> listener;
    uint32_t own = 0;
};

TEST_F(CertifiedPair, asks_for_what_was_lost_and_delivers_in_order) {
    meet();
    int sent = 0;
    sender->loses = [&](const companion::Message& message) { return message.subject() == "a.b" && ++sent % 2 == 1; };
    for (int i = 0; i < 10; ++i) sender->send("a.b");
    net.settle();
    EXPECT_TRUE(listener->numbers("a.b").empty());
    net.pass(second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    for (const Delivery& delivery : listener->deliveries) {
        EXPECT_EQ(delivery.message.subject(), "a.b");
        uint64_t number = 0;
        EXPECT_EQ(listener->machine().streamOf(delivery.message, &number), delivery.stream);
        EXPECT_EQ(number, delivery.number);
    }
}

TEST_F(CertifiedPair, notices_that_the_last_messages_were_lost) {
    meet();
    sender->loses = [&](const companion::Message& message) { return message.subject() == "a.b"; };
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(2 * second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4}));
}

TEST_F(CertifiedPair, sends_nothing_before_it_is_stored) {
    meet();
    sender->holds = true;
    sender->send("a.b");
    net.pass(100 * millisecond);
    EXPECT_TRUE(listener->deliveries.empty());
}

TEST_F(CertifiedPair, gives_a_listener_that_comes_back_what_was_kept_at_once_however_long_it_was_away) {
    meet();
    net.remove(*listener);
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(300 * second);
    restartListener(named("l"), true);
    net.pass(second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4}));
}

TEST_F(CertifiedMachine, gives_a_listener_that_was_added_what_was_kept_when_it_first_comes) {
    Peer sender(net, named("s"));
    EXPECT_EQ(sender.step([&](Machine& machine, Output& out) { return machine.addListener("l", "a.>", net.now, out); }),
              QUORL_OK);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(sender.send("a.b"), QUORL_OK);
    net.pass(300 * second);
    Peer listener(net, named("l"));
    listener.listen("a.>");
    net.pass(second);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2, 3}));
}

TEST_F(CertifiedPair, says_nothing_is_confirmed_before_it_is_stored) {
    meet();
    sender->send("a.b");
    net.pass(100 * millisecond);
    listener->holds = true;
    listener->confirmAll();
    net.pass(5 * second);
    EXPECT_TRUE(sender->told(Event::Kind::confirmed).empty());
}

TEST_F(CertifiedPair, delivers_again_what_was_not_confirmed_when_the_listener_ended) {
    meet();
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    ASSERT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4}));
    EXPECT_EQ(listener->confirm(0), QUORL_OK);
    EXPECT_EQ(listener->confirm(2), QUORL_OK);
    restartListener();
    net.pass(5 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{3});
    listener->confirmAll();
    net.pass(second);
    EXPECT_EQ(sender->machine().counts().messages, 0u);
}

TEST_F(CertifiedPair, gives_a_listener_without_its_ledger_what_was_kept_for_its_name) {
    meet();
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    EXPECT_EQ(listener->confirm(0), QUORL_OK);
    net.pass(second);
    restartListener(named("l"), true);
    net.pass(5 * second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{3, 4}));
}

TEST_F(CertifiedPair, drops_what_was_kept_when_the_listener_does_not_ask_for_it) {
    meet();
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    Settings anew = named("l");
    anew.requestOld = false;
    restartListener(anew, true);
    net.pass(5 * second);
    EXPECT_TRUE(listener->numbers("a.b").empty());
    ASSERT_EQ(sender->told(Event::Kind::undelivered).size(), 1u);
    EXPECT_STREQ(sender->told(Event::Kind::undelivered)[0].reason, "the listener did not ask for what was kept");
    sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{5});
}

TEST_F(CertifiedPair, goes_on_where_it_was_when_the_sender_has_its_ledger) {
    meet();
    listener->deaf = true;
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    restartSender();
    listener->deaf = false;
    net.pass(5 * second);
    sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4, 5}));
    EXPECT_TRUE(listener->told(Event::Kind::senderStartedAnew).empty());
}

TEST_F(CertifiedPair, begins_anew_with_a_sender_that_has_lost_its_ledger) {
    meet();
    senderDisk = {};
    restartSender();
    net.pass(5 * second);
    EXPECT_EQ(listener->told(Event::Kind::senderStartedAnew).size(), 1u);
    sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{1});
}

TEST_F(CertifiedPair, gives_no_number_twice_when_a_power_failure_took_the_last_ones) {
    Settings process = named("s");
    process.mayLoseTail = true;
    meet(process);
    const Disk synced = senderDisk;
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    listener->confirmAll();
    net.pass(second);
    ASSERT_EQ(listener->numbers("a.b"), (Numbers{2, 3, 4}));
    senderDisk = synced;
    restartSender(process, false);
    net.pass(5 * second);
    uint64_t number = 0;
    sender->send("a.b", 0, &number);
    EXPECT_GT(number, 4u);
    net.pass(5 * second);
    EXPECT_EQ(listener->numbers("a.b").back(), number);
}

TEST_F(CertifiedPair, gives_the_numbers_of_erased_messages_not_again) {
    meet();
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    // The last one is confirmed and erased, and those before are not.
    EXPECT_EQ(listener->confirm(2), QUORL_OK);
    net.pass(second);
    EXPECT_EQ(senderDisk.messages.size(), 2u);
    restartSender();
    uint64_t number = 0;
    sender->send("a.b", 0, &number);
    EXPECT_EQ(number, 5u);
}

TEST_F(CertifiedPair, expires_messages_and_tells_both_sides) {
    meet();
    listener->deaf = true;
    sender->send("a.b", second);
    sender->send("a.b");
    net.pass(3 * second);
    ASSERT_EQ(sender->told(Event::Kind::expired).size(), 1u);
    EXPECT_EQ(sender->told(Event::Kind::expired)[0].first, 2u);
    ASSERT_EQ(sender->told(Event::Kind::undelivered).size(), 1u);
    EXPECT_STREQ(sender->told(Event::Kind::undelivered)[0].reason, "the time limit has passed");
    EXPECT_EQ(senderDisk.messages.size(), 1u);
    listener->deaf = false;
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{3});
    ASSERT_FALSE(listener->told(Event::Kind::skipped).empty());
    EXPECT_EQ(listener->told(Event::Kind::skipped)[0].first, 2u);
}

TEST_F(CertifiedPair, tells_that_the_last_message_expired_although_nothing_follows) {
    meet();
    listener->deaf = true;
    sender->send("a.b", second);
    net.pass(3 * second);
    listener->deaf = false;
    net.pass(40 * second);
    EXPECT_EQ(listener->told(Event::Kind::skipped).size(), 1u);
}

TEST_F(CertifiedPair, uses_the_default_time_limit_and_carries_limits) {
    meet();
    sender->machine().setDefaultTimeLimit(5 * second);
    sender->send("a.b");
    sender->send("a.b", 7 * second);
    net.pass(second);
    Attributes attributes;
    ASSERT_TRUE(attributesOf(listener->deliveries[0].message, &attributes));
    EXPECT_EQ(attributes.limit, 5 * second);
    ASSERT_TRUE(attributesOf(listener->deliveries[1].message, &attributes));
    EXPECT_EQ(attributes.limit, 7 * second);
    net.pass(10 * second);
    EXPECT_EQ(sender->told(Event::Kind::expired).size(), 2u);
}

TEST_F(CertifiedPair, expires_by_the_wall_clock_across_a_restart) {
    meet();
    listener->deaf = true;
    sender->send("a.b", 100 * second);
    net.pass(100 * millisecond);
    net.now.wall += 200 * second;
    restartSender();
    net.pass(100 * millisecond);
    EXPECT_EQ(sender->told(Event::Kind::expired).size(), 1u);
}

TEST_F(CertifiedPair, expires_messages_up_to_a_number) {
    meet();
    listener->deaf = true;
    for (int i = 0; i < 4; ++i) sender->send("a.b");
    net.settle();
    const auto expire = [&](std::string_view subject, uint64_t upTo) {
        return sender->step(
            [&](Machine& machine, Output& out) { return machine.expireMessages(subject, upTo, net.now, out); });
    };
    EXPECT_EQ(expire("a.b", 3), QUORL_OK);
    EXPECT_EQ(sender->machine().counts().messages, 2u);
    EXPECT_EQ(expire("a.b", UINT64_MAX), QUORL_OK);
    EXPECT_EQ(sender->machine().counts().messages, 0u);
    EXPECT_EQ(expire("a.c", 1), QUORL_NOT_FOUND);
    EXPECT_EQ(expire("a.*", 1), QUORL_INVALID_SUBJECT);
    listener->deaf = false;
    sender->send("a.b");
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{6});
}

TEST_F(CertifiedPair, refuses_sends_while_storage_fails_and_loses_nothing_that_was_accepted) {
    meet();
    listener->deaf = true;
    EXPECT_EQ(sender->send("a.b"), QUORL_OK);
    sender->full = true;
    // The ledger says no to this one, which the driver passes on; those behind it are refused at once.
    uint64_t number = 0;
    sender->send("a.b", 0, &number);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(sender->send("a.b"), QUORL_IO_FAILED);
    EXPECT_EQ(sender->told(Event::Kind::storageFailed).size(), 1u);
    net.pass(second);
    EXPECT_EQ(sender->send("a.b"), QUORL_IO_FAILED);
    sender->full = false;
    net.pass(second);
    EXPECT_EQ(sender->told(Event::Kind::storageWorks).size(), 1u);
    // A refused send uses up no number.
    EXPECT_EQ(sender->send("a.b", 0, &number), QUORL_OK);
    EXPECT_EQ(number, 3u);
    listener->deaf = false;
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3}));
    EXPECT_TRUE(listener->told(Event::Kind::skipped).empty());
    EXPECT_TRUE(sender->told(Event::Kind::undelivered).empty());
    EXPECT_EQ(senderDisk.messages.size(), 2u);
}

TEST_F(CertifiedPair, says_when_a_limit_is_near_and_refuses_beyond_it) {
    Settings small = named("s");
    small.pendingBytes = 10 * messageTo("a.b").image().size();
    meet(small);
    listener->deaf = true;
    for (int i = 0; i < 10; ++i) EXPECT_EQ(sender->send("a.b"), QUORL_OK) << i;
    EXPECT_EQ(sender->told(Event::Kind::nearlyFull).size(), 1u);
    EXPECT_EQ(sender->send("a.b"), QUORL_QUEUE_LIMIT);
    listener->deaf = false;
    net.pass(40 * second);
    listener->confirmAll();
    net.pass(second);
    EXPECT_EQ(sender->told(Event::Kind::noLongerFull).size(), 1u);
    EXPECT_EQ(sender->send("a.b"), QUORL_OK);
}

TEST_F(CertifiedPair, confirms_only_what_its_listeners_were_given) {
    meet();
    const uint32_t other = listener->listen("x.y");
    sender->send("a.b");
    net.pass(100 * millisecond);
    const Delivery one = listener->deliveries[0];
    const auto confirm = [&](uint32_t by, StreamId stream, uint64_t number) {
        return listener->step([&](Machine& machine, Output& out) {
            return machine.confirm(by, stream, number, Machine::Confirm::now, net.now, out);
        });
    };
    EXPECT_EQ(confirm(other, one.stream, one.number), QUORL_NOT_PERMITTED);
    EXPECT_EQ(confirm(one.listener, one.stream + 77, one.number), QUORL_NOT_FOUND);
    EXPECT_EQ(confirm(one.listener, one.stream, one.number + 1), QUORL_NOT_FOUND);
    EXPECT_EQ(confirm(one.listener, one.stream, one.number), QUORL_OK);
    EXPECT_EQ(confirm(one.listener, one.stream, one.number), QUORL_OK);
    net.pass(second);
    EXPECT_EQ(sender->told(Event::Kind::confirmed).size(), 1u);
}

TEST_F(CertifiedPair, waits_for_each_of_its_listeners) {
    meet();
    listener->listen("a.>");
    sender->send("a.b");
    net.pass(100 * millisecond);
    ASSERT_EQ(listener->numbers("a.b"), (Numbers{2, 2}));
    listener->confirm(0);
    net.pass(second);
    EXPECT_TRUE(sender->told(Event::Kind::completed).empty());
    listener->confirm(1);
    net.pass(second);
    EXPECT_EQ(sender->told(Event::Kind::completed).size(), 1u);
}

TEST_F(CertifiedPair, gives_a_new_listener_what_the_destroyed_one_has_not_confirmed) {
    meet();
    for (int i = 0; i < 2; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    listener->confirm(0);
    listener->destroy(own, false);
    listener->deliveries.clear();
    sender->send("a.b");
    net.pass(second);
    EXPECT_TRUE(listener->deliveries.empty());
    own = listener->listen("a.b");
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{3, 4}));
}

TEST_F(CertifiedPair, has_the_sender_forget_it_when_agreements_are_cancelled) {
    meet();
    listener->deaf = true;
    sender->send("a.b");
    net.settle();
    listener->deaf = false;
    listener->destroy(own, true);
    net.pass(5 * second);
    EXPECT_EQ(sender->machine().counts().agreements, 0u);
    EXPECT_EQ(sender->machine().counts().messages, 0u);
    EXPECT_EQ(sender->told(Event::Kind::ended).size(), 1u);
    EXPECT_TRUE(senderDisk.messages.empty());
    EXPECT_EQ(listener->machine().counts().streams, 0u);
    sender->send("a.c");
    sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(sender->machine().counts().agreements, 0u);
}

// While it registers anew, one that comes twice on the way is not a new one, although the sender counts anew from then on.
TEST_F(CertifiedPair, gives_nothing_again_that_was_confirmed_when_it_cancels_and_listens_anew) {
    meet();
    std::vector<companion::Message> sent;
    sender->loses = [&](const companion::Message& message) {
        if (message.subject() == "a.b") sent.push_back(message);
        return false;
    };
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(second);
    ASSERT_EQ(listener->deliveries.size(), 3u);
    listener->confirm(1);
    listener->confirm(2);
    net.pass(second);
    // It is cancelled, and the answer to the registration is late.
    listener->loses = [](const companion::Message& message) {
        Frame frame;
        return decode(message.attributes(), &frame) == Decoded::frame && frame.kind == Kind::subscribe;
    };
    listener->destroy(own, true);
    listener->listen("a.b");
    net.settle();
    for (const companion::Message& message : sent) net.onTheWay.push_back(message);
    net.settle();
    listener->loses = nullptr;
    net.pass(60 * second);
    // The one that was not confirmed comes again.
    EXPECT_EQ(listener->deliveries.size(), 4u);
    EXPECT_EQ(listener->plain(), 1u);
}

TEST_F(CertifiedPair, cancels_even_if_the_sender_is_away) {
    meet();
    net.remove(*sender);
    listener->destroy(own, true);
    net.pass(100 * second);
    sender = std::make_unique<Peer>(net, named("s"), &senderDisk);
    net.pass(60 * second);
    EXPECT_EQ(sender->machine().counts().agreements, 0u);
}

TEST_F(CertifiedPair, delivers_no_more_at_once_than_it_may) {
    Settings small = named("l");
    small.inFlight = 4;
    small.earlyMessages = 8;
    meet(named("s"), small);
    for (int i = 0; i < 100; ++i) sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(listener->deliveries.size(), 4u);
    EXPECT_LT(listener->machine().counts().memory, 40'000u);
    for (int round = 0; round < 60 && listener->deliveries.size() < 100; ++round) {
        listener->confirmAll();
        net.pass(second);
    }
    ASSERT_EQ(listener->deliveries.size(), 100u);
    for (size_t i = 0; i < 100; ++i) EXPECT_EQ(listener->deliveries[i].number, i + 2);
}

TEST_F(CertifiedPair, says_that_a_listener_lags) {
    meet();
    sender->send("a.b");
    net.pass(150 * second);
    ASSERT_EQ(sender->told(Event::Kind::lagging).size(), 1u);
    EXPECT_EQ(sender->told(Event::Kind::lagging)[0].last, 1u);
}

TEST_F(CertifiedPair, disallows_and_allows) {
    meet();
    const auto call = [&](auto function, std::string_view name) {
        return sender->step([&](Machine& machine, Output& out) { return (machine.*function)(name, net.now, out); });
    };
    EXPECT_EQ(call(&Machine::disallowListener, "l"), QUORL_OK);
    net.pass(second);
    EXPECT_EQ(listener->told(Event::Kind::stopped).size(), 1u);
    EXPECT_EQ(sender->machine().counts().agreements, 0u);
    sender->send("a.b");
    net.pass(second);
    EXPECT_EQ(listener->plain(), 1u);
    EXPECT_TRUE(listener->numbers("a.b").empty());
    EXPECT_FALSE(sender->told(Event::Kind::refused).empty());
    // It stays so over a restart.
    restartSender();
    net.pass(second);
    sender->send("a.b");
    net.pass(second);
    EXPECT_TRUE(listener->numbers("a.b").empty());
    EXPECT_EQ(call(&Machine::allowListener, "l"), QUORL_OK);
    net.pass(second);
    sender->send("a.b");
    net.pass(second);
    sender->send("a.b");
    net.pass(second);
    EXPECT_FALSE(listener->numbers("a.b").empty());
    EXPECT_EQ(call(&Machine::allowListener, "l.*"), QUORL_INVALID_NAME);
    EXPECT_EQ(call(&Machine::disallowListener, ""), QUORL_INVALID_NAME);
}

TEST_F(CertifiedMachine, keeps_for_a_listener_that_was_added_before_it_exists) {
    Disk disk;
    Peer sender(net, named("s"), &disk);
    const auto call = [&](auto function, std::string_view name, std::string_view subject) {
        return sender.step(
            [&](Machine& machine, Output& out) { return (machine.*function)(name, subject, net.now, out); });
    };
    EXPECT_EQ(call(&Machine::addListener, "l", "a.>"), QUORL_OK);
    EXPECT_EQ(call(&Machine::addListener, "l", "a..b"), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(call(&Machine::addListener, "", "a.b"), QUORL_INVALID_NAME);
    for (int i = 0; i < 3; ++i) sender.send("a.b");
    sender.send("a.c");
    sender.send("x");
    EXPECT_EQ(sender.machine().counts().messages, 4u);
    net.pass(100 * second);
    Peer listener(net, named("l"));
    listener.listen("a.>");
    net.pass(40 * second);
    EXPECT_EQ(listener.numbers("a.b"), (Numbers{1, 2, 3}));
    EXPECT_EQ(listener.numbers("a.c"), Numbers{1});
    EXPECT_EQ(call(&Machine::removeListener, "l", "a.c"), QUORL_OK);
    EXPECT_EQ(sender.machine().counts().messages, 3u);
    EXPECT_EQ(call(&Machine::removeListener, "m", "a.c"), QUORL_NOT_FOUND);
    EXPECT_EQ(call(&Machine::removeListener, "l", "z"), QUORL_NOT_FOUND);
}

TEST_F(CertifiedPair, forgets_a_subject) {
    meet();
    listener->deaf = true;
    sender->send("a.b");
    net.settle();
    const auto remove = [&](std::string_view subject) {
        return sender->step(
            [&](Machine& machine, Output& out) { return machine.removeSendState(subject, net.now, out); });
    };
    EXPECT_EQ(remove("a.b"), QUORL_OK);
    EXPECT_EQ(remove("a.b"), QUORL_NOT_FOUND);
    EXPECT_EQ(remove("a.*"), QUORL_INVALID_SUBJECT);
    EXPECT_TRUE(senderDisk.messages.empty());
    EXPECT_EQ(sender->machine().counts().agreements, 0u);
    listener->deaf = false;
    net.pass(second);
    // The subject is another one now, and the listener wants it still.
    uint64_t number = 0;
    sender->send("a.b", 0, &number);
    EXPECT_EQ(number, 1u);
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{1});
}

TEST_F(CertifiedPair, reviews_what_it_keeps) {
    meet();
    for (int i = 0; i < 3; ++i) sender->send("a.b");
    net.pass(100 * millisecond);
    listener->confirm(0);
    net.pass(second);
    sender->step([&](Machine& machine, Output& out) { return machine.addListener("m", "b", net.now, out); });
    sender->send("b");
    std::vector<std::string> subjects;
    sender->machine().review("", [&](const Review& review) {
        subjects.emplace_back(review.subject);
        if (review.subject != "a.b") {
            EXPECT_FALSE(review.listeners.at(0).registered);
            return false;
        }
        EXPECT_EQ(review.first, 3u);
        EXPECT_EQ(review.last, 4u);
        EXPECT_EQ(review.messages, 2u);
        EXPECT_EQ(review.bytes, 2 * messageTo("a.b").image().size());
        EXPECT_EQ(review.listeners.size(), 1u);
        EXPECT_EQ(review.listeners[0].name, "l");
        EXPECT_EQ(review.listeners[0].confirmed, 2u);
        EXPECT_EQ(review.listeners[0].unconfirmed, 2u);
        EXPECT_TRUE(review.listeners[0].registered);
        EXPECT_NE(review.listeners[0].heard, 0);
        return false;
    });
    EXPECT_EQ(subjects, (std::vector<std::string>{"a.b", "b"}));
    int visits = 0;
    sender->machine().review("*", [&](const Review&) { return ++visits == 1; });
    sender->machine().review("", [&](const Review&) { return ++visits == 2; });
    EXPECT_EQ(visits, 2);
}

TEST_F(CertifiedPair, drops_what_it_knows_of_a_publisher_that_is_silent) {
    meet();
    listener->step([&](Machine& machine, Output& out) {
        machine.setPublisherInactivity(30 * second, net.now, out);
        return 0;
    });
    net.remove(*sender);
    net.pass(100 * second);
    EXPECT_EQ(listener->machine().counts().streams, 0u);
    EXPECT_FALSE(listener->told(Event::Kind::stopped).empty());
}

TEST_F(CertifiedMachine, forgets_a_listener_whose_name_was_not_its_own) {
    Peer sender(net, named("s"));
    Settings transient = named("_CM.17");
    transient.lasting = false;
    Peer listener(net, transient);
    listener.listen("a.b");
    net.pass(2 * second);
    sender.send("a.b");
    net.pass(second);
    EXPECT_EQ(sender.machine().counts().agreements, 1u);
    net.pass(2000 * second);
    EXPECT_EQ(sender.machine().counts().agreements, 1u);
    net.remove(listener);
    net.pass(2000 * second);
    EXPECT_EQ(sender.machine().counts().agreements, 0u);
    EXPECT_EQ(sender.machine().counts().messages, 0u);
}

TEST_F(CertifiedMachine, brings_the_answer_to_a_request_home) {
    Disk disk;
    Peer server(net, named("server"), &disk);
    Peer client(net, named("client"));
    server.listen("ask");
    net.pass(2 * second);
    client.listen("_INBOX.1");
    client.step(
        [&](Machine& machine, Output& out) { return machine.send(messageTo("ask", "_INBOX.1"), 0, net.now, out); });
    net.pass(second);
    ASSERT_EQ(server.numbers("ask"), Numbers{1});
    EXPECT_EQ(requesterOf(server.deliveries[0].message), "client");
    // The answer is lost at first.
    int lost = 0;
    server.loses = [&](const companion::Message& message) { return message.subject() == "_INBOX.1" && lost++ == 0; };
    server.step([&](Machine& machine, Output& out) {
        return machine.sendReply(messageTo("_INBOX.1"), requesterOf(server.deliveries[0].message), 0, net.now, out);
    });
    net.pass(10 * second);
    EXPECT_EQ(lost, 1);
    ASSERT_EQ(client.numbers("_INBOX.1"), Numbers{1});
    client.confirmAll();
    net.pass(second);
    // Nothing is left of it.
    EXPECT_TRUE(disk.messages.empty());
    EXPECT_EQ(server.machine().counts().agreements, 0u);
}

TEST_F(CertifiedMachine, delivers_an_answer_without_waiting_for_a_registration) {
    Peer server(net, named("server"));
    Peer client(net, named("client"));
    net.pass(2 * second);
    client.listen("_INBOX.1");
    server.step([&](Machine& machine, Output& out) {
        return machine.sendReply(messageTo("_INBOX.1"), "client", 0, net.now, out);
    });
    client.loses = [](const companion::Message&) { return true; };
    net.settle();
    EXPECT_EQ(client.numbers("_INBOX.1"), Numbers{1});
}

TEST_F(CertifiedMachine, gives_up_an_answer_that_nobody_hears) {
    Peer server(net, named("server"));
    server.step([&](Machine& machine, Output& out) {
        return machine.sendReply(messageTo("_INBOX.1"), "client", 0, net.now, out);
    });
    EXPECT_EQ(server.machine().counts().messages, 1u);
    net.pass(700 * second);
    EXPECT_EQ(server.machine().counts().messages, 0u);
    EXPECT_EQ(server.machine().counts().agreements, 0u);
}

TEST_F(CertifiedMachine, refuses_the_second_of_two_programs_of_one_name) {
    Peer first(net, named("n"));
    net.pass(2 * second);
    Peer later(net, named("n"));
    net.pass(second);
    EXPECT_TRUE(later.machine().suspended());
    EXPECT_FALSE(first.machine().suspended());
    EXPECT_EQ(later.told(Event::Kind::nameTaken).size(), 1u);
    EXPECT_EQ(first.told(Event::Kind::nameContested).size(), 1u);
    EXPECT_EQ(later.send("a"), QUORL_NOT_PERMITTED);
    EXPECT_EQ(first.send("a"), QUORL_OK);
    // When the first one has gone, the other goes on.
    net.remove(first);
    net.pass(100 * second);
    EXPECT_FALSE(later.machine().suspended());
    EXPECT_EQ(later.told(Event::Kind::nameFree).size(), 1u);
    EXPECT_EQ(later.send("a"), QUORL_OK);
}

TEST_F(CertifiedMachine, suspends_the_younger_of_two_that_did_not_hear_each_other) {
    Peer first(net, named("n"));
    net.pass(2 * second);
    first.deaf = true;
    Peer later(net, named("n"));
    net.pass(5 * second);
    EXPECT_FALSE(later.machine().suspended());
    first.deaf = false;
    net.pass(30 * second);
    EXPECT_TRUE(later.machine().suspended());
    EXPECT_FALSE(first.machine().suspended());
}

TEST_F(CertifiedMachine, does_not_give_way_to_what_an_earlier_life_has_said) {
    std::vector<companion::Message> said;
    {
        Peer before(net, named("n"));
        before.loses = [&](const companion::Message& message) {
            said.push_back(message);
            return false;
        };
        net.pass(30 * second);
        net.remove(before);
    }
    Peer after(net, named("n"));
    for (const auto& message : said) net.onTheWay.push_back(message);
    net.pass(10 * second);
    EXPECT_FALSE(after.machine().suspended());
}

// ---- what others may try

TEST_F(CertifiedPair, takes_no_confirmation_without_the_token) {
    meet();
    listener->deaf = true;
    sender->send("a.b");
    net.settle();
    Frame confirm;
    confirm.kind = Kind::confirm;
    confirm.name = "l";
    confirm.incarnation = 2;
    confirm.session = 99;
    confirm.token = 99;
    FrameWriter writer;
    encode(confirm, writer);
    addConfirmed(1, NumberSet(2), writer);
    net.onTheWay.push_back(messageWith(writer, sender->machine().address()));
    net.settle();
    EXPECT_EQ(sender->machine().counts().messages, 1u);
    EXPECT_TRUE(sender->told(Event::Kind::confirmed).empty());
}

TEST_F(CertifiedPair, hands_no_agreement_over_to_who_does_not_hear_under_the_name) {
    meet();
    listener->deaf = true;
    sender->send("a.b");
    net.settle();
    // It registers in the listener's name, does not ask for what was kept, and does not hear the challenge.
    Frame subscribe;
    subscribe.kind = Kind::subscribe;
    subscribe.name = "l";
    subscribe.incarnation = 2;
    subscribe.session = 99;
    subscribe.token = 1234;
    subscribe.attempt = 1;
    subscribe.subject = "a.b";
    FrameWriter writer;
    encode(subscribe, writer);
    for (int i = 0; i < 10; ++i) net.onTheWay.push_back(messageWith(writer, sender->machine().address()));
    net.settle();
    EXPECT_EQ(sender->machine().counts().messages, 1u);
    listener->deaf = false;
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{2});
}

TEST_F(CertifiedMachine, believes_of_what_comes_to_its_address_what_shows_the_token) {
    std::vector<companion::Message> said;
    Peer sender(net, named("s"));
    Peer listener(net, named("l"));
    listener.loses = [&](const companion::Message& message) {
        if (message.subject() == sender.machine().address()) said.push_back(message);
        return false;
    };
    listener.listen("a.b");
    net.pass(2 * second);
    sender.send("a.b");
    net.pass(1 * second);
    listener.confirmAll();
    net.pass(1 * second);
    std::map<Kind, int> believed;
    for (const auto& message : said) {
        Frame frame;
        ASSERT_EQ(decode(message.attributes(), &frame), Decoded::frame);
        if (!sender.machine().believes(message)) continue;
        ++believed[frame.kind];
        // The same by somebody who does not hear under the name.
        frame.token ^= 1;
        FrameWriter forged;
        encode(frame, forged);
        forged.raw(frame.list.data(), frame.list.size());
        EXPECT_FALSE(sender.machine().believes(messageWith(forged, sender.machine().address())));
    }
    EXPECT_GT(believed[Kind::subscribe], 0);
    EXPECT_GT(believed[Kind::confirm], 0);
    EXPECT_EQ(believed.size(), 2u) << "there is nothing to keep of other kinds";
}

TEST_F(CertifiedMachine, registers_no_more_names_than_it_may) {
    Settings few = named("s");
    few.listeners = 3;
    Peer sender(net, few);
    std::vector<std::unique_ptr<Peer>> listeners;
    for (int i = 0; i < 5; ++i) {
        listeners.push_back(std::make_unique<Peer>(net, named("l." + std::to_string(i))));
        listeners.back()->listen("a");
    }
    net.pass(5 * second);
    sender.send("a");
    net.pass(5 * second);
    EXPECT_EQ(sender.machine().counts().listeners, 3u);
    EXPECT_FALSE(sender.told(Event::Kind::refused).empty());
    size_t plain = 0;
    size_t certified = 0;
    for (const auto& one : listeners) {
        plain += one->plain();
        certified += one->numbers("a").size();
    }
    EXPECT_EQ(certified, 3u);
    EXPECT_EQ(plain, 2u);
}

TEST_F(CertifiedMachine, tells_a_newer_peer_apart_once) {
    Peer listener(net, named("l"));
    listener.listen("a.b");
    const std::array<uint8_t, 4> newer = {companionNumber, protocolVersion + 1, 1, 1};
    companion::Message message = messageTo("a.b");
    ASSERT_EQ(message.withAttributes(newer, &message), QUORL_OK);
    for (int i = 0; i < 3; ++i) net.onTheWay.push_back(message);
    net.settle();
    EXPECT_EQ(listener.told(Event::Kind::newerPeer).size(), 1u);
    EXPECT_EQ(listener.plain(), 3u);
}

TEST_F(CertifiedMachine, refuses_subjects_that_nothing_can_be_sent_to) {
    Peer sender(net, named("s"));
    Output out;
    companion::Message none = messageTo("a.b");
    EXPECT_EQ(none.withSubjects("", "", &none), QUORL_OK);
    EXPECT_EQ(sender.machine().send(none, 0, net.now, out), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(sender.machine().createListener(1, "a..b", net.now, out), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(sender.machine().createListener(0, "a.b", net.now, out), QUORL_INVALID_ARG);
}

// ---- what is stored

TEST_F(CertifiedPair, refuses_state_that_is_newer_another_name_s_or_broken) {
    meet();
    const auto start = [&](const Disk& disk, std::string_view name) {
        Machine machine(named(name), Chance{});
        for (const auto& [key, value] : disk.state) {
            if (const quorl_status status = machine.load(key, value); status != QUORL_OK) return status;
        }
        Output out;
        return machine.start(true, net.now, out);
    };
    EXPECT_EQ(start(senderDisk, "s"), QUORL_OK);
    EXPECT_EQ(start(senderDisk, "t"), QUORL_ARG_CONFLICT);
    Disk newer = senderDisk;
    newer.state["V"][0] = 99;
    EXPECT_EQ(start(newer, "s"), QUORL_VERSION_MISMATCH);
    for (const auto& [key, value] : senderDisk.state) {
        if (value.empty()) continue;
        Disk shorter = senderDisk;
        shorter.state[key].pop_back();
        EXPECT_EQ(start(shorter, "s"), QUORL_INVALID_FILE) << key;
    }
    for (const auto& [key, value] : listenerDisk.state) {
        if (value.empty()) continue;
        Disk shorter = listenerDisk;
        shorter.state[key].pop_back();
        EXPECT_EQ(start(shorter, "l"), QUORL_INVALID_FILE) << key;
    }
    Disk foreign = senderDisk;
    foreign.messages[{4711, 1}] = {messageTo("a.b"), 0};
    Machine machine(named("s"), Chance{});
    for (const auto& [key, value] : foreign.state) EXPECT_EQ(machine.load(key, value), QUORL_OK);
    EXPECT_EQ(machine.load({4711, 1, 10, 0}), QUORL_INVALID_FILE);
}

TEST_F(CertifiedPair, leaves_nothing_behind_that_grows) {
    meet();
    const size_t sendersState = senderDisk.state.size();
    const size_t listenersState = listenerDisk.state.size();
    for (int i = 0; i < 500; ++i) {
        sender->send("a.b");
        net.pass(10 * millisecond);
        listener->confirmAll();
        listener->deliveries.clear();
    }
    net.pass(5 * second);
    EXPECT_EQ(senderDisk.messages.size(), 0u);
    EXPECT_LE(senderDisk.state.size(), sendersState);
    EXPECT_LE(listenerDisk.state.size(), listenersState);
    EXPECT_LT(sender->machine().counts().memory, 40'000u);
}

TEST_F(CertifiedPair, does_what_waits_when_it_closes) {
    meet();
    sender->send("a.b");
    net.settle();
    listener->confirm(0, Machine::Confirm::soon);
    Output out;
    listener->machine().close(net.now, out);
    EXPECT_NE(out.store.token, 0u);
    Output after;
    listener->machine().persisted(out.store.token, net.now, after);
    EXPECT_EQ(after.messages.size(), 1u);
}

}  // namespace
}  // namespace quorl::certified
