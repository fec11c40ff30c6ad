// Two ends over a simulated network and clock: loss, duplication, reordering, partition, death of either end.
//
// QUORL_SEED replays one seed, QUORL_SIM_RUNS sets how many are tried.
#include "transport/circuit/machine.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "message/content.h"
#include "quorl/quorl.h"

namespace quorl::transport::circuit {
namespace {

constexpr int64_t ms = 1'000'000;

message::ContentRef numbered(int number, size_t bytes = 0) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, "a.b"), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddI32Ex(message, "n", number, 0), QUORL_OK);
    const std::string filling(bytes, 'x');
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "x", filling.data(), static_cast<quorl_u32>(bytes), 0), QUORL_OK);
    message::ContentRef content;
    EXPECT_EQ(message::snapshot(message, &content), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return content;
}

int numberOf(const message::ContentRef& content) {
    quorlMsg message = nullptr;
    quorl_i32 number = -1;
    EXPECT_EQ(message::handOver(content, &message), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetI32Ex(message, "n", &number, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return number;
}

// What happens to frames on their way, in parts of a hundred, and how long they take.
struct Weather {
    uint32_t loss = 0;
    uint32_t duplication = 0;
    int64_t shortest = 1 * ms;
    int64_t longest = 1 * ms;
    bool cut = false;
};

struct End {
    Machine machine;
    std::string address;
    std::vector<int> delivered;
    int connected = 0;
    int lost = 0;
    uint64_t undelivered = 0;
    bool dead = false;  // hears and says nothing, like a process that was killed
};

class Network {
  public:
    explicit Network(uint64_t seed, Settings settings = {})
        : random_(seed),
          acceptor{Machine(settings), "_INBOX.a.1", {}, 0, 0, 0, false},
          connector{Machine(settings, random_(), "_INBOX.c.1", "_INBOX.a.1", 0), "_INBOX.c.1", {}, 0, 0, 0, false} {}

    quorl_status send(End& end, message::ContentRef content) {
        Output out;
        const quorl_status status = end.machine.send(std::move(content), now, out);
        take(end, out);
        return status;
    }
    void close(End& end) {
        Output out;
        end.machine.close(now, out);
        take(end, out);
    }
    void abandon(End& end) {
        Output out;
        end.machine.abandon("the way below was closed", out);
        take(end, out);
    }
    void inject(End& end, Frame frame) {
        Output out;
        end.machine.receive(std::move(frame), now, out);
        take(end, out);
    }

    void give(End& end, Output& out) { take(end, out); }

    // Lets the next thing happen. False: nothing will, ever.
    bool step() {
        int64_t next = way_.empty() ? INT64_MAX : way_.begin()->first;
        for (End* end : {&acceptor, &connector}) {
            if (!end->dead) next = std::min(next, end->machine.due());
        }
        if (next == INT64_MAX) return false;
        now = std::max(now, next);
        if (!way_.empty() && way_.begin()->first <= now) {
            auto [to, frame] = std::move(way_.begin()->second);
            way_.erase(way_.begin());
            if (!to->dead) inject(*to, std::move(frame));
            return true;
        }
        for (End* end : {&acceptor, &connector}) {
            if (end->dead || end->machine.due() > now) continue;
            Output out;
            ++ticks;
            end->machine.tick(now, passageOf(*end), out);
            EXPECT_GT(end->machine.due(), now) << "a tick that leaves itself due would spin";
            take(*end, out);
        }
        return true;
    }
    template <class F>
    bool until(F&& done, int64_t within = 600'000 * ms) {
        const int64_t limit = now + within;
        while (!done()) {
            if (now > limit || !step()) return false;
        }
        return true;
    }
    void run(int64_t time) {
        const int64_t end = now + time;
        while (now < end && step()) {
        }
    }
    bool connect() {
        return until([&] { return acceptor.connected == 1 && connector.connected == 1; });
    }
    uint32_t chance(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

  private:
    std::mt19937_64 random_;

  public:
    End acceptor;
    End connector;
    Weather weather;
    int64_t now = 0;
    uint64_t ticks = 0;
    uint64_t frames = 0;
    uint64_t bytes = 0;  // of messages that were sent
    // Bytes a second from the connector to the acceptor, one message behind the other; 0: any. The acceptor sees them come.
    int64_t rate = 0;
    // What is sent passes the daemon at once, and waits behind it; otherwise it waits in front of it.
    bool waitsBehindDaemon = true;

  private:
    void take(End& end, Output& out) {
        for (auto& content : out.deliveries) end.delivered.push_back(numberOf(content));
        end.connected += out.connected;
        end.lost += out.lost;
        end.undelivered += out.undelivered;
        for (auto& outgoing : out.frames) {
            const std::string& to = outgoing.to.empty() ? end.machine.peer() : outgoing.to;
            End* target = to == acceptor.address ? &acceptor : to == connector.address ? &connector : nullptr;
            ++frames;
            if (outgoing.frame.content) bytes += outgoing.frame.content.byteSize();
            if (target == nullptr || weather.cut) continue;
            const int copies = 1 + (chance(100) < weather.duplication);
            for (int i = 0; i < copies; ++i) {
                if (chance(100) < weather.loss) continue;
                int64_t queued = 0;
                if (rate != 0 && target == &acceptor) {
                    const int64_t size = 200 + (outgoing.frame.content ? outgoing.frame.content.byteSize() : 0);
                    busyUntil_ = std::max(busyUntil_, now) + size * 1000 * ms / rate;
                    queued = busyUntil_ - now;
                }
                const auto spread = static_cast<uint32_t>((weather.longest - weather.shortest) / 1000 + 1);
                way_.emplace(now + queued + weather.shortest + chance(spread) * 1000,
                             std::pair(target, outgoing.frame));
            }
        }
    }

    Passage passageOf(const End& end) const {
        Passage passage = Passage::open(now);
        const bool busy = busyUntil_ > now;
        if (&end == &acceptor && busy) passage.arriving = now;
        if (&end == &connector && busy && !waitsBehindDaemon) passage.passed = std::min(now, now - (busyUntil_ - now));
        return passage;
    }

    std::multimap<int64_t, std::pair<End*, Frame>> way_;
    int64_t busyUntil_ = 0;
};

void expectNumbers(const std::vector<int>& got, int count) {
    ASSERT_EQ(got.size(), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) ASSERT_EQ(got[static_cast<size_t>(i)], i);
}

int runs(int usual) {
    const char* set = std::getenv("QUORL_SIM_RUNS");
    return set != nullptr ? std::atoi(set) : usual;
}

template <class F>
void forSeeds(int usual, F&& body) {
    if (const char* replay = std::getenv("QUORL_SEED")) return body(std::strtoull(replay, nullptr, 10));
    for (int i = 0; i < runs(usual); ++i) {
        const uint64_t seed = 0x9e3779b97f4a7c15u * static_cast<uint64_t>(i + 1);
        SCOPED_TRACE("QUORL_SEED=" + std::to_string(seed));
        body(seed);
        if (testing::Test::HasFailure()) return;
    }
}

TEST(CircuitMachine, connects_and_carries_in_both_directions) {
    Network net(1);
    EXPECT_EQ(net.send(net.connector, numbered(0)), QUORL_VC_NOT_CONNECTED);
    EXPECT_EQ(net.send(net.acceptor, numbered(0)), QUORL_VC_NOT_CONNECTED);
    ASSERT_TRUE(net.connect());
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        ASSERT_EQ(net.send(net.acceptor, numbered(i)), QUORL_OK);
    }
    ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() + net.connector.delivered.size() == 2000; }));
    expectNumbers(net.acceptor.delivered, 1000);
    expectNumbers(net.connector.delivered, 1000);
    EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
}

TEST(CircuitMachine, on_a_good_network_sends_each_message_once) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    net.run(100 * ms);
    const uint64_t before = net.frames;
    for (int i = 0; i < 3200; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
    ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 3200; }));
    net.run(100 * ms);
    // One acknowledgement for 32 messages, and no more than a few frames beside.
    EXPECT_LE(net.frames - before, 3200u + 100u + 10u);
}

// One end asks, and both hear each other for it.
TEST(CircuitMachine, comes_to_rest_but_for_a_ping_now_and_then) {
    for (const bool lossless : {false, true}) {
        Settings settings;
        settings.lossless = lossless;
        Network net(1, settings);
        ASSERT_TRUE(net.connect());
        net.run(3000 * ms);
        const uint64_t frames = net.frames;
        const uint64_t ticks = net.ticks;
        net.run(3'600'000 * ms);
        EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
        const uint64_t pings = (net.frames - frames) / 2;  // each with its answer
        if (lossless) {
            EXPECT_LE(pings, 62u);
            EXPECT_GE(pings, 50u);
            EXPECT_LE(net.ticks - ticks, 4 * 62u);
        } else {
            EXPECT_LE(pings, 3600u / 2.5 + 1);
            EXPECT_GE(pings, 3600u / 3);
            EXPECT_LE(net.ticks - ticks, 2 * 2 * 3600u);
        }
    }
}

// On a way that loses nothing the peer was not heard for long when it is asked: that alone is no silence.
TEST(CircuitMachine, a_quiet_circuit_gives_the_peer_its_time_to_answer) {
    Settings settings;
    settings.lossless = true;
    Network net(1, settings);
    ASSERT_TRUE(net.connect());
    net.run(50'000 * ms);
    net.weather.cut = true;
    ASSERT_EQ(net.send(net.connector, numbered(0)), QUORL_OK);
    net.run(7000 * ms);
    EXPECT_EQ(net.connector.lost, 0);
    net.weather.cut = false;
    EXPECT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 1; }));
    net.weather.cut = true;
    EXPECT_TRUE(net.until([&] { return net.acceptor.lost == 1 && net.connector.lost == 1; }, 80'000 * ms));
}

TEST(CircuitMachine, brings_everything_home_once_and_in_order_through_loss_duplication_and_reordering) {
    forSeeds(150, [](uint64_t seed) {
        Network net(seed);
        net.weather.loss = net.chance(35);
        net.weather.duplication = net.chance(30);
        net.weather.longest = (1 + net.chance(60)) * ms;
        ASSERT_TRUE(net.connect());
        int fromConnector = 0;
        int fromAcceptor = 0;
        while (fromConnector < 300 || fromAcceptor < 200) {
            const uint32_t burst = 1 + net.chance(40);
            for (uint32_t i = 0; i < burst && fromConnector < 300; ++i)
                ASSERT_EQ(net.send(net.connector, numbered(fromConnector++)), QUORL_OK);
            for (uint32_t i = 0; i < burst / 2 && fromAcceptor < 200; ++i)
                ASSERT_EQ(net.send(net.acceptor, numbered(fromAcceptor++)), QUORL_OK);
            net.run(net.chance(50) * ms);
        }
        // Closed with messages on their way: they arrive all the same.
        net.close(net.connector);
        ASSERT_TRUE(net.until([&] { return net.connector.machine.state() == Machine::State::done; }));
        expectNumbers(net.acceptor.delivered, 300);
        EXPECT_EQ(net.connector.undelivered, 0u);
        EXPECT_LE(net.connector.delivered.size(), 200u);
        for (size_t i = 0; i < net.connector.delivered.size(); ++i)
            ASSERT_EQ(net.connector.delivered[i], static_cast<int>(i));
        ASSERT_TRUE(net.until([&] { return net.acceptor.lost == 1; }));
        EXPECT_EQ(net.send(net.acceptor, numbered(0)), QUORL_VC_NOT_CONNECTED);
        net.close(net.acceptor);
        EXPECT_EQ(net.acceptor.machine.state(), Machine::State::done);
    });
}

TEST(CircuitMachine, survives_a_partition_that_is_shorter_than_the_limit) {
    forSeeds(20, [](uint64_t seed) {
        Network net(seed);
        ASSERT_TRUE(net.connect());
        for (int i = 0; i < 500; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        net.run(net.chance(3) * ms);
        net.weather.cut = true;
        net.run((1000 + net.chance(7000)) * ms);
        net.weather.cut = false;
        ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 500; }));
        expectNumbers(net.acceptor.delivered, 500);
        EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
    });
}

TEST(CircuitMachine, both_ends_notice_a_partition_that_is_longer) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    net.weather.cut = true;
    ASSERT_EQ(net.send(net.connector, numbered(0)), QUORL_OK);
    ASSERT_TRUE(net.until([&] { return net.acceptor.lost == 1 && net.connector.lost == 1; }, 15'000 * ms));
    EXPECT_EQ(net.connector.undelivered, 1u);
    EXPECT_STREQ(net.connector.machine.reason(), "the peer is silent");
    EXPECT_EQ(net.send(net.connector, numbered(1)), QUORL_VC_NOT_CONNECTED);
    EXPECT_FALSE(net.step()) << "a lost circuit has nothing to do";
}

TEST(CircuitMachine, either_end_notices_that_the_other_died) {
    for (const bool connectorDies : {false, true}) {
        Network net(1);
        ASSERT_TRUE(net.connect());
        End& dying = connectorDies ? net.connector : net.acceptor;
        End& left = connectorDies ? net.acceptor : net.connector;
        net.run(3000 * ms);
        dying.dead = true;
        const int64_t died = net.now;
        ASSERT_TRUE(net.until([&] { return left.lost == 1; }));
        EXPECT_LE(net.now - died, 12'000 * ms);
        EXPECT_GE(net.now - died, 8'000 * ms);
    }
}

TEST(CircuitMachine, a_pause_of_the_whole_process_is_no_silence_of_the_peer) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    net.run(1000 * ms);
    net.now += 3'600'000 * ms;  // both slept for an hour
    net.run(5000 * ms);
    EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
    ASSERT_EQ(net.send(net.connector, numbered(0)), QUORL_OK);
    ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 1; }));
}

TEST(CircuitMachine, an_end_that_nobody_accepts_goes_on_asking_with_pauses) {
    Network net(1);
    net.acceptor.dead = true;
    net.run(60'000 * ms);
    EXPECT_EQ(net.connector.machine.state(), Machine::State::connecting);
    EXPECT_GE(net.frames, 50u);
    EXPECT_LE(net.frames, 70u);
    net.acceptor.dead = false;
    EXPECT_TRUE(net.connect());
}

TEST(CircuitMachine, a_second_connecting_end_is_refused) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    Frame second;
    second.kind = Kind::connect;
    second.session = 4711;
    second.from = "_INBOX.other.1";
    Output out;
    net.acceptor.machine.receive(second, net.now, out);
    ASSERT_EQ(out.frames.size(), 1u);
    EXPECT_EQ(out.frames[0].frame.kind, Kind::refuse);
    EXPECT_EQ(out.frames[0].frame.session, 4711u);
    EXPECT_EQ(out.frames[0].to, "_INBOX.other.1");
    Machine refused({}, 4711, "_INBOX.other.1", "_INBOX.a.1", net.now);
    Output answer;
    refused.receive(out.frames[0].frame, net.now, answer);
    EXPECT_TRUE(answer.lost);
    EXPECT_EQ(refused.state(), Machine::State::lost);
    ASSERT_EQ(net.send(net.connector, numbered(0)), QUORL_OK);
    EXPECT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 1; }));
}

TEST(CircuitMachine, an_accepting_end_whose_peer_died_during_the_handshake_accepts_another) {
    Network net(1);
    Frame first;
    first.kind = Kind::connect;
    first.session = 4711;
    first.from = "_INBOX.dead.1";
    net.inject(net.acceptor, first);
    EXPECT_EQ(net.acceptor.machine.state(), Machine::State::confirming);
    net.connector.dead = true;
    ASSERT_TRUE(net.until([&] { return net.acceptor.machine.state() == Machine::State::accepting; }));
    net.connector.dead = false;
    EXPECT_TRUE(net.connect());
}

TEST(CircuitMachine, every_order_of_closing_comes_to_an_end) {
    forSeeds(60, [](uint64_t seed) {
        Network net(seed);
        net.weather.loss = net.chance(20);
        net.weather.longest = 20 * ms;
        if (net.chance(4) != 0) {
            ASSERT_TRUE(net.connect());
        }
        net.run(net.chance(300) * ms);
        for (uint32_t i = net.chance(400); i != 0; --i) {
            static_cast<void>(net.send(net.connector, numbered(0)));
            static_cast<void>(net.send(net.acceptor, numbered(0)));
        }
        End& first = net.chance(2) != 0 ? net.connector : net.acceptor;
        End& second = &first == &net.connector ? net.acceptor : net.connector;
        net.close(first);
        net.run(net.chance(3) * net.chance(400) * ms);
        net.close(second);
        net.close(first);
        ASSERT_TRUE(net.until([&] {
            return first.machine.state() == Machine::State::done && second.machine.state() == Machine::State::done;
        }));
        EXPECT_EQ(first.machine.due(), INT64_MAX);
        EXPECT_EQ(net.send(first, numbered(0)), QUORL_VC_NOT_CONNECTED);
    });
}

TEST(CircuitMachine, abandoning_sends_what_waits_at_once_and_the_peer_gets_it) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
    net.abandon(net.connector);
    EXPECT_EQ(net.connector.machine.state(), Machine::State::lost);
    EXPECT_STREQ(net.connector.machine.reason(), "the way below was closed");
    ASSERT_TRUE(net.until([&] { return net.acceptor.lost == 1; }));
    expectNumbers(net.acceptor.delivered, 2000);
    EXPECT_STREQ(net.acceptor.machine.reason(), "the peer closed the circuit");
}

TEST(CircuitMachine, says_that_messages_are_missing_when_an_abandoned_circuit_lost_some) {
    forSeeds(30, [](uint64_t seed) {
        Network net(seed);
        ASSERT_TRUE(net.connect());
        for (int i = 0; i < 100; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        net.weather.loss = 30;
        for (int i = 100; i < 200; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        net.abandon(net.connector);
        net.connector.dead = true;
        ASSERT_TRUE(net.until([&] { return net.acceptor.lost == 1; }));
        for (size_t i = 0; i < net.acceptor.delivered.size(); ++i)
            ASSERT_EQ(net.acceptor.delivered[i], static_cast<int>(i));
        ASSERT_GE(net.acceptor.delivered.size(), 100u);
    });
}

TEST(CircuitMachine, bounds_what_waits_for_the_window) {
    Settings settings;
    settings.waitingBytes = 100'000;
    Network net(1, settings);
    ASSERT_TRUE(net.connect());
    net.weather.cut = true;
    int taken = 0;
    quorl_status status = QUORL_OK;
    while (taken < 100'000 && (status = net.send(net.connector, numbered(taken))) == QUORL_OK) ++taken;
    EXPECT_EQ(status, QUORL_QUEUE_LIMIT);
    EXPECT_GT(taken, 256);
    EXPECT_LT(taken, 1000);
    net.weather.cut = false;
    ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == static_cast<size_t>(taken); }));
    EXPECT_EQ(net.send(net.connector, numbered(taken)), QUORL_OK);
}

TEST(CircuitMachine, a_message_larger_than_the_window_passes_alone) {
    Settings settings;
    settings.windowBytes = 1000;
    settings.waitingBytes = 2000;
    Network net(1, settings);
    ASSERT_TRUE(net.connect());
    ASSERT_EQ(net.send(net.connector, numbered(0, 10'000)), QUORL_OK);
    ASSERT_EQ(net.send(net.connector, numbered(1, 10'000)), QUORL_OK);
    EXPECT_EQ(net.send(net.connector, numbered(2, 10'000)), QUORL_QUEUE_LIMIT);
    ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 2; }));
    expectNumbers(net.acceptor.delivered, 2);
}

TEST(CircuitMachine, a_slow_network_is_no_silence_and_carries_little_more_than_the_messages) {
    for (const bool behind : {true, false}) {
        for (const size_t size : {1'000u, 60'000u, 1'000'000u, 20'000'000u}) {
            Network net(1);
            ASSERT_TRUE(net.connect());
            net.rate = 1'000'000;
            net.waitsBehindDaemon = behind;
            const int count = static_cast<int>(40'000'000 / size);
            int sent = 0;
            ASSERT_TRUE(net.until([&] {
                while (sent < count && net.connector.machine.hasRoom())
                    EXPECT_EQ(net.send(net.connector, numbered(sent++, size)), QUORL_OK);
                return net.acceptor.delivered.size() == static_cast<size_t>(count) ||
                       net.acceptor.lost + net.connector.lost != 0;
            }));
            EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0) << size;
            expectNumbers(net.acceptor.delivered, count);
            EXPECT_LE(net.bytes, static_cast<uint64_t>(count) * (size + 100) * 3 / 2) << size;
        }
    }
}

// A network that is fast again after it was slow, and one that turns slow.
TEST(CircuitMachine, the_time_out_follows_the_network) {
    Network net(1);
    ASSERT_TRUE(net.connect());
    int sent = 0;
    for (const int64_t delay : {1, 3000, 1, 700}) {
        net.weather.shortest = net.weather.longest = delay * ms;
        net.run(100'000 * ms);
        const uint64_t before = net.bytes;
        const int first = sent;
        while (sent < first + 200) {
            ASSERT_EQ(net.send(net.connector, numbered(sent++, 10'000)), QUORL_OK);
            ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == static_cast<size_t>(sent); }));
        }
        net.run(20'000 * ms);
        EXPECT_LE(net.bytes - before, 200u * 10'200 * 11 / 10) << delay;
    }
    EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
}

// The transport below says that it lost its connection: what was on its way goes again at once, in both directions.
TEST(CircuitMachine, sends_again_what_a_lost_connection_may_have_cost) {
    for (const bool sender : {true, false}) {
        Network net(1);
        ASSERT_TRUE(net.connect());
        net.run(2000 * ms);
        net.weather.cut = true;
        for (int i = 0; i < 200; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        net.now += 1 * ms;
        net.weather.cut = false;
        End& noticing = sender ? net.connector : net.acceptor;
        const int64_t lost = net.now;
        Output out;
        Passage passage = Passage::open(net.now);
        passage.lossAt = net.now;
        net.now = std::max(net.now, noticing.machine.due());
        noticing.machine.tick(net.now, passage, out);
        net.give(noticing, out);
        ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 200; }, 100 * ms));
        expectNumbers(net.acceptor.delivered, 200);
        EXPECT_LE(net.now - lost, 1500 * ms);
    }
}

// Frames that no honest peer sends: nothing is delivered twice or out of order, and little is kept.
TEST(CircuitMachine, is_not_confused_by_frames_that_are_wrong) {
    forSeeds(100, [](uint64_t seed) {
        Network net(seed);
        ASSERT_TRUE(net.connect());
        for (int i = 0; i < 100; ++i) ASSERT_EQ(net.send(net.connector, numbered(i)), QUORL_OK);
        for (int i = 0; i < 300; ++i) {
            Frame frame;
            frame.kind = static_cast<Kind>(1 + net.chance(8));
            frame.session = net.chance(1000);  // not the circuit's
            frame.sequence = net.chance(2) != 0 ? UINT64_MAX - net.chance(5) : net.chance(1000);
            frame.acknowledged = net.chance(2) != 0 ? UINT64_MAX : net.chance(1000);
            if (frame.kind == Kind::connect) frame.from = "_INBOX.stranger.1";
            if (frame.kind == Kind::data) frame.content = numbered(-1);
            net.inject(net.chance(2) != 0 ? net.acceptor : net.connector, std::move(frame));
            if (net.chance(10) == 0) net.step();
        }
        ASSERT_TRUE(net.until([&] { return net.acceptor.delivered.size() == 100; }));
        expectNumbers(net.acceptor.delivered, 100);
        EXPECT_EQ(net.acceptor.lost + net.connector.lost, 0);
    });
}

// What came ahead of its turn goes when the circuit has ended, by an answer or without one; the machine may live on.
TEST(CircuitMachine, keeps_nothing_when_it_is_done) {
    for (const bool answered : {true, false}) {
        Machine machine{Settings()};
        Output out;
        Frame connect;
        connect.kind = Kind::connect;
        connect.session = 7;
        connect.from = "_INBOX.c.1";
        machine.receive(connect, 0, out);
        const message::ContentRef content = numbered(1);
        Frame data;
        data.kind = Kind::data;
        data.session = 7;
        data.sequence = 3;
        data.content = content;
        machine.receive(std::move(data), 0, out);
        ASSERT_EQ(content.get()->references.load(), 2u);
        machine.close(0, out);
        ASSERT_EQ(machine.state(), Machine::State::closing);
        if (answered) {
            Frame closed;
            closed.kind = Kind::closed;
            closed.session = 7;
            machine.receive(std::move(closed), 0, out);
        } else {
            while (machine.due() != INT64_MAX) machine.tick(machine.due(), out);
        }
        EXPECT_EQ(machine.state(), Machine::State::done);
        EXPECT_EQ(content.get()->references.load(), 1u);
        EXPECT_EQ(out.undelivered, 0u);
    }
}

// The circuit's own peer, gone mad: only no crash and no endless memory can be asked for.
TEST(CircuitMachine, outlives_a_peer_that_breaks_the_protocol) {
    forSeeds(100, [](uint64_t seed) {
        Settings settings;
        settings.windowBytes = 10'000;
        Machine machine(settings);
        Output out;
        std::mt19937_64 random(seed);
        int64_t now = 0;
        for (int i = 0; i < 2000; ++i) {
            Frame frame;
            frame.kind = static_cast<Kind>(1 + random() % 8);
            if (random() % 50 != 0 && (frame.kind == Kind::close || frame.kind == Kind::refuse))
                frame.kind = Kind::data;
            frame.session = 7;
            frame.sequence = random() % 4 == 0 ? random() : random() % 600;
            frame.acknowledged = random() % 2 == 0 ? random() : random() % 600;
            if (frame.kind == Kind::connect) frame.from = "_INBOX.mad.1";
            if (frame.kind == Kind::data) frame.content = numbered(i);
            machine.receive(std::move(frame), now, out);
            if (random() % 3 == 0) static_cast<void>(machine.send(numbered(i), now, out));
            now += static_cast<int64_t>(random() % 40) * ms;
            machine.tick(now, out);
            EXPECT_LE(out.frames.size(), 2000u);
            out.clear();
        }
    });
}

}  // namespace
}  // namespace quorl::transport::circuit
