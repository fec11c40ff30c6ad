// What a machine makes of its ledger: what it has safe before it goes on, and what it does when the ledger takes nothing.
#include <gtest/gtest.h>

#include "certified/protocol/machine.h"
#include "certified/protocol/ranges.h"
#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

using Numbers = std::vector<uint64_t>;

class CertifiedStorage : public testing::Test {
  protected:
    // A sender whose ledger may lose its tail, and a listener that has confirmed one message.
    void meet(bool mayLoseTail = false) {
        Settings settings = named("s");
        settings.mayLoseTail = mayLoseTail;
        sender = std::make_unique<Peer>(net, settings, &disk);
        listener = std::make_unique<Peer>(net, named("l"), &listenerDisk);
        listener->listen("a.>");
        net.pass(2 * second);
        sender->send("a.b");
        net.pass(second);
        listener->confirmAll();
        net.pass(second);
        ASSERT_EQ(sender->machine().counts().messages, 0u);
        listener->deliveries.clear();
        sender->events.clear();
    }
    void restart(bool complete, bool mayLoseTail) {
        net.remove(*sender);
        Settings settings = named("s");
        settings.mayLoseTail = mayLoseTail;
        sender = std::make_unique<Peer>(net, settings, &disk, complete);
        net.pass(2 * second);
    }
    // A send whose transaction is on its way.
    uint64_t submit(std::string_view subject, uint64_t* number) {
        Output out;
        EXPECT_EQ(sender->machine().send(messageTo(subject), 0, net.now, out, number), QUORL_OK);
        EXPECT_TRUE(out.messages.empty());
        return out.store.token;
    }
    uint64_t send(std::string_view subject) {
        uint64_t number = 0;
        EXPECT_EQ(sender->send(subject, 0, &number), QUORL_OK);
        return number;
    }
    template <class F>
    quorl_status call(F&& change) {
        return sender->step([&](Machine& machine, Output& out) { return change(machine, net.now, out); });
    }

    Net net;
    Disk disk;
    Disk listenerDisk;
    std::unique_ptr<Peer> sender;
    std::unique_ptr<Peer> listener;
};

TEST_F(CertifiedStorage, has_nothing_synced_for_a_new_subject_where_the_tail_may_be_lost) {
    meet(true);
    const size_t before = sender->syncs;
    for (int i = 0; i < 2000; ++i) EXPECT_EQ(send("a.new" + std::to_string(i)), 1u);
    EXPECT_LE(sender->syncs, before + 1);  // ids of subjects are reserved many at once
    net.pass(second);
    EXPECT_EQ(listener->deliveries.size(), 2000u);
}

TEST_F(CertifiedStorage, has_nothing_synced_for_an_answer) {
    meet(true);
    const size_t before = sender->syncs;
    for (int i = 0; i < 1000; ++i) {
        const std::string inbox = "_INBOX." + std::to_string(i);
        EXPECT_EQ(call([&](Machine& machine, Now now, Output& out) {
                      return machine.sendReply(messageTo(inbox), "l", 0, now, out);
                  }),
                  QUORL_OK);
    }
    EXPECT_LE(sender->syncs, before + 1);
}

TEST_F(CertifiedStorage, gives_no_number_twice_after_a_power_failure) {
    meet(true);
    net.pass(second);
    listener->deaf = true;
    const Disk before = disk;
    EXPECT_EQ(send("a.c"), 1u);
    const std::string first = disk.state.rbegin()->first;
    // All of it is lost: the subject is another one.
    const Disk after = disk;
    disk = before;
    restart(false, true);
    listener->deaf = false;
    EXPECT_EQ(send("a.c"), 1u);
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.c"), Numbers{1});
    // The message is lost, and what was stored of its subject is not.
    disk = after;
    disk.messages.clear();
    restart(false, true);
    const size_t syncs = sender->syncs;
    EXPECT_GT(send("a.c"), 65'536u);
    EXPECT_EQ(sender->syncs, syncs);
}

TEST_F(CertifiedStorage, gives_the_numbers_of_refused_sends_again) {
    meet();
    uint64_t numbers[3] = {};
    uint64_t tokens[3] = {};
    for (int i = 0; i < 3; ++i) tokens[i] = submit("a.b", &numbers[i]);
    EXPECT_EQ(numbers[2], 4u);
    Output out;
    sender->machine().storageFailed(tokens[0], QUORL_IO_FAILED, net.now, out);
    for (int i = 1; i < 3; ++i) sender->machine().storageFailed(tokens[i], QUORL_IO_FAILED, net.now, out);
    EXPECT_EQ(sender->machine().counts().messages, 0u);
    EXPECT_EQ(sender->machine().counts().bytes, 0u);
    net.pass(second);
    EXPECT_EQ(send("a.b"), 2u);
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{2});
    listener->confirmAll();
    net.pass(second);
    restart(true, false);
    EXPECT_EQ(send("a.b"), 3u);
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), (Numbers{2, 3}));
    EXPECT_TRUE(listener->told(Event::Kind::skipped).empty());
}

// Expired before it was known that it was not stored.
TEST_F(CertifiedStorage, gives_the_number_of_a_refused_send_again_that_was_given_up) {
    meet();
    uint64_t number = 0;
    const uint64_t token = submit("a.b", &number);
    Output out;
    EXPECT_EQ(sender->machine().expireMessages("a.b", UINT64_MAX, net.now, out), QUORL_OK);
    out.clear();
    sender->machine().storageFailed(token, QUORL_IO_FAILED, net.now, out);
    net.pass(second);
    restart(true, false);
    EXPECT_EQ(send("a.b"), number);
    net.pass(40 * second);
    EXPECT_EQ(listener->numbers("a.b"), Numbers{number});
    EXPECT_TRUE(listener->told(Event::Kind::skipped).empty());
}

TEST_F(CertifiedStorage, says_of_each_call_that_nothing_can_be_stored) {
    meet();
    listener->deaf = true;
    for (int i = 0; i < 3; ++i) send("a.b");
    sender->full = true;
    sender->send("a.b");
    const std::pair<const char*, std::function<quorl_status(Machine&, Now, Output&)>> calls[] = {
        {"expire", [](Machine& m, Now now, Output& out) { return m.expireMessages("a.b", 3, now, out); }},
        {"allow", [](Machine& m, Now now, Output& out) { return m.allowListener("x", now, out); }},
        {"disallow", [](Machine& m, Now now, Output& out) { return m.disallowListener("x", now, out); }},
        {"add", [](Machine& m, Now now, Output& out) { return m.addListener("y", "a.b", now, out); }},
        {"remove", [](Machine& m, Now now, Output& out) { return m.removeListener("l", "a.b", now, out); }},
        {"forget", [](Machine& m, Now now, Output& out) { return m.removeSendState("a.b", now, out); }},
        {"sync", [](Machine& m, Now now, Output& out) { return m.retryStorage(now, out); }}};
    for (const auto& [what, change] : calls) {
        // The status, or that of the transaction in which it is tried.
        Output out;
        const quorl_status status = change(sender->machine(), net.now, out);
        EXPECT_TRUE(status != QUORL_OK || out.store.token != 0) << what;
        if (out.store.token == 0) continue;
        EXPECT_TRUE(out.store.afterFailure) << what;
        Output after;
        sender->machine().storageFailed(out.store.token, QUORL_IO_FAILED, net.now, after);
    }
    // While a try is on its way there is nothing to wait for.
    Output trying;
    EXPECT_EQ(sender->machine().retryStorage(net.now, trying), QUORL_OK);
    ASSERT_NE(trying.store.token, 0u);
    EXPECT_EQ(call([](Machine& m, Now now, Output& out) { return m.expireMessages("a.c", 3, now, out); }),
              QUORL_NOT_FOUND);
    EXPECT_EQ(call([](Machine& m, Now now, Output& out) { return m.disallowListener("z", now, out); }),
              QUORL_IO_FAILED);
    // It works again as soon as what makes room is taken.
    sender->full = false;
    Output works;
    sender->machine().persisted(trying.store.token, net.now, works);
    EXPECT_EQ(sender->send("a.b"), QUORL_OK);
}

TEST_F(CertifiedStorage, confirms_nothing_at_once_that_cannot_be_stored) {
    meet();
    for (int i = 0; i < 3; ++i) send("a.b");
    net.pass(second);
    ASSERT_EQ(listener->deliveries.size(), 3u);
    listener->full = true;
    listener->confirm(0);
    const Delivery& second = listener->deliveries[1];
    Output out;
    const quorl_status status =
        listener->machine().confirm(second.listener, second.stream, second.number, Machine::Confirm::now, net.now, out);
    EXPECT_TRUE(status != QUORL_OK || out.store.token != 0);
}

TEST(NumberSet, is_cut_behind_a_number) {
    const auto made = [] {
        NumberSet set(5);
        set.add({8, 10});
        set.add({20, 25});
        return set;
    };
    for (uint64_t last = 0; last < 30; ++last) {
        NumberSet set = made();
        EXPECT_EQ(set.cut(last), last < 25) << last;
        uint64_t beyond = 0;
        for (uint64_t number = 1; number < 40; ++number) {
            EXPECT_EQ(set.contains(number), number <= last && made().contains(number)) << number << " cut at " << last;
            if (set.contains(number) && number > set.upTo()) ++beyond;
        }
        EXPECT_EQ(set.beyond(), beyond) << last;
    }
}

}  // namespace
}  // namespace quorl::certified
