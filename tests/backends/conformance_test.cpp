// The contract of transport backends, as engine/transport/transport.h gives it, held against each of them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "asleep.h"
#include "backends.h"
#include "base/clock.h"
#include "base/registry.h"
#include "sim/message.h"
#include "transport/transport.h"

namespace quorltest {
namespace {

using quorl::sim::numbered;
using quorl::transport::Backend;
using quorl::transport::Observer;
using quorl::transport::Transport;
using quorl::transport::TransportState;
using Phase = TransportState::Phase;

// What a listener heard, in order.
struct Heard {
    std::vector<uint64_t> numbers;
};

uint64_t numberIn(quorlMsg message) {
    quorl_u64 number = UINT64_MAX;
    EXPECT_EQ(quorlMsg_GetU64Ex(message, "n", &number, 0), QUORL_OK);
    return number;
}

void onNumber(quorlEvent, quorlMsg message, void* closure) {
    static_cast<Heard*>(closure)->numbers.push_back(numberIn(message));
}

constexpr size_t large = 1u << 20;

quorlMsg newMessage(const std::string& subject, uint64_t number, size_t bytes = 0) {
    const std::string filling(bytes, 'x');
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject.c_str()), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddU64Ex(message, "n", number, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "x", filling.data(), static_cast<quorl_u32>(bytes), 0), QUORL_OK);
    return message;
}

quorl::message::ContentRef newContent(const std::string& subject, uint64_t number, size_t bytes) {
    quorlMsg message = newMessage(subject, number, bytes);
    quorl::message::ContentRef content;
    EXPECT_EQ(quorl::message::snapshot(message, &content), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return content;
}

quorl_status send(quorlTransport transport, const std::string& subject, uint64_t number, size_t bytes = 0) {
    quorlMsg message = newMessage(subject, number, bytes);
    const quorl_status status = quorlTransport_Send(transport, message);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return status;
}

std::vector<uint64_t> upTo(uint64_t count) {
    std::vector<uint64_t> numbers;
    for (uint64_t i = 0; i < count; ++i) numbers.push_back(i);
    return numbers;
}

class Conformance : public testing::TestWithParam<Candidate> {
  protected:
    void SetUp() override {
        // Which is also how long closing waits for a daemon to take what was accepted: a busy machine takes its time.
        const char* patient[] = {"connect.timeout=60"};
        ASSERT_EQ(quorl_SetQRParameters(1, patient), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorl_Open(), QUORL_OK) << quorl_LastErrorText();
        bus_ = GetParam().make();
        ASSERT_EQ(quorlQueue_Create(&queue_), QUORL_OK);
        if (HasFatalFailure()) GTEST_FAIL();
    }
    void TearDown() override {
        bus_->open();
        // A connection to a daemon that is still there loses nothing when it closes.
        EXPECT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
        bus_.reset();
    }

    quorlEvent listen(quorlTransport transport, const std::string& subject, quorlEventCallback callback,
                      const void* closure) const {
        quorlEvent event = 0;
        EXPECT_EQ(quorlEvent_CreateListener(&event, queue_, callback, transport, subject.c_str(), closure), QUORL_OK)
            << quorl_LastErrorText();
        return event;
    }
    bool until(const std::function<bool()>& condition) { return bus_->until({queue_}, condition); }
    // What was sent on either transport before has come where it goes, and is dispatched.
    void settle() {
        Heard probes;
        for (const auto& [from, to] : {std::pair(bus_->here, bus_->there), std::pair(bus_->there, bus_->here)}) {
            const size_t before = probes.numbers.size();
            const quorlEvent event = listen(to, "probe", onNumber, &probes);
            ASSERT_TRUE(inForce(from, to));
            ASSERT_EQ(send(from, "probe", 0), QUORL_OK) << quorl_LastErrorText();
            ASSERT_TRUE(until([&] { return probes.numbers.size() > before; }));
            ASSERT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        }
    }
    // What `to` listens to is in force for `from`: something that `to` sent since has come there.
    bool inForce(quorlTransport from, quorlTransport to) {
        static std::atomic<uint64_t> count{0};
        const std::string subject = "in.force." + std::to_string(++count);
        Heard words;
        const quorlEvent event = listen(from, subject, onNumber, &words);
        // Its own listening may be late: the word is repeated until it comes.
        int64_t next = 0;
        const bool came = until([&] {
            if (!words.numbers.empty()) return true;
            if (const int64_t now = quorl::monotonicNow(); now >= next) {
                next = now + 20'000'000;
                EXPECT_EQ(send(to, subject, 0), QUORL_OK) << quorl_LastErrorText();
            }
            return false;
        });
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        return came;
    }

    // Calls the backend of a transport as the engine does.
    template <class F>
    static auto with(quorlTransport id, F&& call) {
        quorl::ThreadState& thread = *quorl::threadState();
        quorl::registry::Pin<Transport> transport(thread, id);
        EXPECT_TRUE(transport);
        return call(*transport->backend);
    }
    static std::shared_ptr<TransportState> stateOf(quorlTransport id) {
        quorl::registry::Pin<Transport> transport(*quorl::threadState(), id);
        EXPECT_TRUE(transport);
        return transport->state;
    }
    static quorl_status tryToSend(quorlTransport id, quorl::message::ContentRef content) {
        return with(id, [&](Backend& backend) {
            quorl::ThreadState& thread = *quorl::threadState();
            quorl::ReadGuard guard(thread);
            return backend.send(thread, std::move(content));
        });
    }
    // Sends until there is no room, also when the library's threads have passed on what they can; how many were accepted.
    uint64_t fill() const {
        const quorl::message::ContentRef content = newContent("f.large", 0, large);
        uint64_t accepted = 0;
        quorl_status status = QUORL_OK;
        for (int refused = 0; refused < 3; ++refused) {
            while (accepted < 1000 && (status = tryToSend(bus_->here, content)) == QUORL_OK) {
                ++accepted;
                refused = 0;
            }
            EXPECT_EQ(status, Backend::noRoom) << accepted << quorl_LastErrorText();
            for (const pid_t thread : threadsNamed("quorl-")) EXPECT_TRUE(waitUntilAsleep(thread));
        }
        return accepted;
    }

    std::unique_ptr<Bus> bus_;
    quorlQueue queue_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Each, Conformance, testing::ValuesIn(candidates()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(Conformance, refuses_subjects_when_they_are_checked_as_when_they_are_sent_to) {
    for (const char* subject : {"a.*", ">", "a..b", "", "_NOBODYS.x"}) {
        with(bus_->here, [&](Backend& backend) {
            EXPECT_EQ(backend.check(subject), QUORL_INVALID_SUBJECT) << subject;
            return 0;
        });
        quorl::message::ContentRef content;
        quorl::message::ContentRef addressed;
        ASSERT_EQ(quorl::message::withSubjects(numbered("a", 0), subject, {}, &addressed), QUORL_OK);
        EXPECT_EQ(tryToSend(bus_->here, std::move(addressed)), QUORL_INVALID_SUBJECT) << subject;
        EXPECT_STRNE(quorl_LastErrorText(), "") << subject;
    }
    with(bus_->here, [&](Backend& backend) {
        EXPECT_EQ(backend.check("a.b"), QUORL_OK);
        EXPECT_EQ(backend.check("_INBOX.a.1"), QUORL_OK);
        return 0;
    });
}

TEST_P(Conformance, brings_each_message_once_and_in_order_whatever_the_subjects) {
    Heard all;
    Heard even;
    Heard both[2];
    listen(bus_->there, "o.>", onNumber, &all);
    listen(bus_->there, "o.0", onNumber, &even);
    for (Heard& each : both) listen(bus_->there, "o.*", onNumber, &each);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    for (uint64_t i = 0; i < 600; ++i) ASSERT_EQ(send(bus_->here, "o." + std::to_string(i % 2), i), QUORL_OK);
    ASSERT_TRUE(until([&] { return both[1].numbers.size() >= 600 && all.numbers.size() >= 600; }));
    settle();
    EXPECT_EQ(all.numbers, upTo(600));
    for (const Heard& each : both) EXPECT_EQ(each.numbers, upTo(600));
    ASSERT_EQ(even.numbers.size(), 300u);
    for (uint64_t i = 0; i < 300; ++i) EXPECT_EQ(even.numbers[i], 2 * i);
}

TEST_P(Conformance, keeps_the_order_of_each_thread_that_sends) {
    constexpr uint64_t threads = 3;
    constexpr uint64_t each = 300;
    Heard heard;
    listen(bus_->there, "t.*", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    {
        std::vector<std::jthread> senders;
        for (uint64_t t = 0; t < threads; ++t) {
            senders.emplace_back([&, t] {
                for (uint64_t i = 0; i < each; ++i)
                    EXPECT_EQ(send(bus_->here, "t." + std::to_string(t), t * each + i), QUORL_OK);
            });
        }
        ASSERT_TRUE(until([&] { return heard.numbers.size() == threads * each; }));
    }
    std::vector<uint64_t> next;
    for (uint64_t t = 0; t < threads; ++t) next.push_back(t * each);
    for (const uint64_t number : heard.numbers) EXPECT_EQ(number, next[number / each]++);
}

// Each time `there` listens, and then asks; `here` answers when it is asked, which has to be heard.
TEST_P(Conformance, hears_what_others_send_in_the_wake_of_listening) {
    struct Answerer {
        quorlTransport transport;
    } answerer{bus_->here};
    listen(
        bus_->here, "ask",
        [](quorlEvent, quorlMsg asked, void* closure) {
            const uint64_t number = numberIn(asked);
            EXPECT_EQ(send(static_cast<Answerer*>(closure)->transport, "answer." + std::to_string(number), number),
                      QUORL_OK);
        },
        &answerer);
    ASSERT_TRUE(inForce(bus_->there, bus_->here));
    for (uint64_t i = 0; i < 30; ++i) {
        Heard heard;
        const quorlEvent event = listen(bus_->there, "answer." + std::to_string(i), onNumber, &heard);
        ASSERT_EQ(send(bus_->there, "ask", i), QUORL_OK);
        ASSERT_TRUE(until([&] { return !heard.numbers.empty(); })) << i;
        ASSERT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    }
}

TEST_P(Conformance, hears_itself_from_when_it_listens_or_never) {
    Heard heard;
    for (uint64_t i = 0; i < 30; ++i) {
        listen(bus_->here, "self." + std::to_string(i), onNumber, &heard);
        ASSERT_EQ(send(bus_->here, "self." + std::to_string(i), i), QUORL_OK);
    }
    if (bus_->hearsItself()) {
        ASSERT_TRUE(until([&] { return heard.numbers.size() == 30; }));
        EXPECT_EQ(heard.numbers, upTo(30));
    } else {
        settle();
        EXPECT_TRUE(heard.numbers.empty());
    }
}

TEST_P(Conformance, hears_nothing_any_more_after_it_has_stopped_listening) {
    Heard gone;
    Heard there;
    const quorlEvent event = listen(bus_->there, "s.x", onNumber, &gone);
    listen(bus_->there, "s.*", onNumber, &there);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    ASSERT_EQ(send(bus_->here, "s.x", 0), QUORL_OK);
    ASSERT_TRUE(until([&] { return there.numbers.size() == 1 && gone.numbers.size() == 1; }));
    ASSERT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    for (uint64_t i = 1; i < 10; ++i) ASSERT_EQ(send(bus_->here, "s.x", i), QUORL_OK);
    ASSERT_TRUE(until([&] { return there.numbers.size() == 10; }));
    settle();
    EXPECT_EQ(gone.numbers, upTo(1));
    EXPECT_EQ(there.numbers, upTo(10));
}

TEST_P(Conformance, carries_a_message_as_it_was_when_it_was_sent) {
    Heard heard;
    listen(bus_->there, "c", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    quorlMsg message = newMessage("c", 0);
    for (uint64_t i = 0; i < 50; ++i) {
        ASSERT_EQ(quorlMsg_UpdateU64Ex(message, "n", i, 0), QUORL_OK);
        ASSERT_EQ(quorlTransport_Send(bus_->here, message), QUORL_OK);
    }
    ASSERT_EQ(quorlMsg_UpdateU64Ex(message, "n", 4711, 0), QUORL_OK);
    ASSERT_TRUE(until([&] { return heard.numbers.size() == 50; }));
    EXPECT_EQ(heard.numbers, upTo(50));
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
}

// One of those that share a name gets each message; members that go leave the others their share of what follows.
TEST_P(Conformance, gives_each_message_to_one_of_those_that_share_a_name) {
    const auto share = [&](const std::string& subject, const char* name, Heard& heard) {
        quorlEvent event = 0;
        EXPECT_EQ(quorlEvent_CreateSharedListener(&event, queue_, onNumber, bus_->there, subject.c_str(), name, &heard),
                  QUORL_OK)
            << quorl_LastErrorText();
        return event;
    };
    Heard crew[3];
    Heard other;
    Heard alone;
    const quorlEvent first = share("w.x", "crew", crew[0]);
    share("w.x", "crew", crew[1]);
    share("w.x", "other", other);
    listen(bus_->there, "w.*", onNumber, &alone);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    for (uint64_t i = 0; i < 200; ++i) ASSERT_EQ(send(bus_->here, "w.x", i), QUORL_OK);
    const auto of = [&] { return crew[0].numbers.size() + crew[1].numbers.size() + crew[2].numbers.size(); };
    ASSERT_TRUE(until([&] { return of() >= 200 && other.numbers.size() >= 200 && alone.numbers.size() >= 200; }));
    settle();
    EXPECT_EQ(other.numbers, upTo(200));
    EXPECT_EQ(alone.numbers, upTo(200));
    EXPECT_EQ(crew[0].numbers.size(), 100u) << "they take turns";
    std::vector<uint64_t> together = crew[0].numbers;
    together.insert(together.end(), crew[1].numbers.begin(), crew[1].numbers.end());
    std::sort(together.begin(), together.end());
    EXPECT_EQ(together, upTo(200));

    ASSERT_EQ(quorlEvent_DestroyEx(first, nullptr), QUORL_OK);
    for (uint64_t i = 200; i < 220; ++i) ASSERT_EQ(send(bus_->here, "w.x", i), QUORL_OK);
    ASSERT_TRUE(until([&] { return of() >= 220 && alone.numbers.size() >= 220; }));
    settle();
    EXPECT_EQ(crew[0].numbers.size(), 100u);
    EXPECT_EQ(crew[1].numbers.size(), 120u);

    // By another pattern too.
    share("w.>", "crew", crew[2]);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    for (uint64_t i = 220; i < 260; ++i) ASSERT_EQ(send(bus_->here, "w.x", i), QUORL_OK);
    ASSERT_TRUE(until([&] { return of() >= 260 && alone.numbers.size() >= 260; }));
    settle();
    EXPECT_EQ(of(), 260u);
}

// What companions put beside the fields comes with the message, small and large, whatever travels before and behind it; a
// listener of the program's hears the messages alone.
TEST_P(Conformance, carries_attributes_beside_the_fields) {
    struct Attributed {
        std::vector<std::pair<uint64_t, std::string>> came;
    } attributed;
    Heard plain;
    listen(bus_->there, "a.b", onNumber, &plain);
    quorl::transport::ListenerRequest request{.queue = queue_,
                                              .transport = bus_->there,
                                              .subject = "a.b",
                                              .closure = &attributed,
                                              .callback = nullptr,
                                              .vectorCallback = nullptr,
                                              .groupId = nullptr,
                                              .vector = false};
    request.take = [](quorl::ThreadState&, quorl::event::Event& event, quorl::message::ContentRef content, uint32_t) {
        auto& to = *static_cast<Attributed*>(const_cast<void*>(event.arg));
        const auto bytes = content.attributes();
        std::string text(bytes.begin(), bytes.end());
        quorlMsg handle = nullptr;
        ASSERT_EQ(quorl::message::handOver(std::move(content), &handle), QUORL_OK);
        to.came.emplace_back(numberIn(handle), std::move(text));
        quorlMsg_Destroy(handle);
    };
    quorlEvent event = 0;
    ASSERT_EQ(quorl::transport::createListener(&event, request), QUORL_OK) << quorl_LastErrorText();
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    std::vector<std::pair<uint64_t, std::string>> sent;
    for (uint64_t i = 0; i < 40; ++i) {
        const std::string text = i % 4 == 0 ? std::string()
                                            : std::string(i % 4 == 1 ? 1
                                                          : i == 38  ? 2048
                                                                     : 50 * i,
                                                          'x');
        quorl::message::ContentRef content = newContent("a.b", i, i % 10 == 9 ? 300'000 : i);
        ASSERT_EQ(quorl::message::withAttributes(content, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
                                                 &content),
                  QUORL_OK);
        quorl_status status;
        while ((status = tryToSend(bus_->here, content)) == Backend::noRoom) ASSERT_TRUE(until([&] { return true; }));
        ASSERT_EQ(status, QUORL_OK) << quorl_LastErrorText();
        sent.emplace_back(i, text);
    }
    ASSERT_TRUE(until([&] { return attributed.came.size() >= 40 && plain.numbers.size() >= 40; }));
    EXPECT_EQ(attributed.came, sent);
    EXPECT_EQ(plain.numbers, upTo(40));
    EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
}

TEST_P(Conformance, says_that_there_is_no_room_and_has_then_sent_nothing) {
    Heard filling;
    Heard heard;
    listen(bus_->there, "f.large", onNumber, &filling);
    listen(bus_->there, "f.after", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    if (!bus_->canBeFull()) {
        for (uint64_t i = 0; i < 1000; ++i) ASSERT_EQ(tryToSend(bus_->here, numbered("f.after", i)), QUORL_OK);
        ASSERT_TRUE(until([&] { return heard.numbers.size() == 1000; }));
        return;
    }
    bus_->shut();
    const uint64_t accepted = fill();
    for (uint64_t i = 0; i < 3; ++i)
        EXPECT_EQ(tryToSend(bus_->here, newContent("f.after", 100 + i, large)), Backend::noRoom) << "it stays so";
    const uint32_t reports = stateOf(bus_->here)->roomReports();
    // A thread that waits for room goes on when there is some.
    std::atomic<pid_t> waiter{0};
    std::jthread waiting([&] {
        waiter = gettid();
        EXPECT_EQ(send(bus_->here, "f.after", 0, large), QUORL_OK) << quorl_LastErrorText();
    });
    while (waiter == 0) std::this_thread::yield();
    ASSERT_TRUE(waitUntilAsleep(waiter));
    bus_->open();
    ASSERT_TRUE(until([&] { return !heard.numbers.empty(); }));
    settle();
    EXPECT_EQ(heard.numbers, upTo(1));
    EXPECT_EQ(filling.numbers.size(), accepted);
    EXPECT_NE(stateOf(bus_->here)->roomReports(), reports);
}

// What an observer of a backend is told, in order.
class Recorder final : public Observer {
  public:
    void connected() noexcept override { add("connected"); }
    void away(const Away& report) noexcept override { add(report.reason.empty() ? "away" : "away with a reason"); }
    void back(const Back&) noexcept override { add("back"); }
    void lost(const Lost& report) noexcept override { add(*report.reason == '\0' ? "lost" : "lost with a reason"); }
    void largestMessage(uint32_t bytes) noexcept override {
        EXPECT_NE(bytes, 0u);
        add("largest");
    }
    std::vector<std::string> words() {
        std::lock_guard lock(mutex_);
        return words_;
    }

  private:
    void add(const char* word) {
        std::lock_guard lock(mutex_);
        words_.emplace_back(word);
    }
    std::mutex mutex_;
    std::vector<std::string> words_;
};
using Words = std::vector<std::string>;

TEST_P(Conformance, reports_that_it_is_there_and_what_it_carries_at_most) {
    const auto recorder = std::make_shared<Recorder>();
    with(bus_->here, [&](Backend& backend) {
        backend.observe(recorder);
        return 0;
    });
    EXPECT_EQ(recorder->words(), (Words{"largest", "connected"}));
    EXPECT_EQ(stateOf(bus_->here)->phase(), Phase::connected);
    const uint32_t largest = stateOf(bus_->here)->largest();
    ASSERT_GT(largest, 1u << 20);
    with(bus_->here, [&](Backend& backend) {
        backend.unobserve(*recorder);
        return 0;
    });
    EXPECT_EQ(recorder.use_count(), 1) << "nobody keeps it";
    if (largest > 64u << 20) return;  // more than a test should take
    EXPECT_EQ(tryToSend(bus_->here, newContent("size", 0, largest)), QUORL_INVALID_SIZE);
    Heard heard;
    listen(bus_->there, "size", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    quorl::message::ContentRef content = newContent("size", 0, 0);
    content = newContent("size", 0, largest - content.byteSize() - 4096);
    EXPECT_LE(content.byteSize(), largest);
    ASSERT_EQ(tryToSend(bus_->here, content), QUORL_OK) << quorl_LastErrorText();
    EXPECT_TRUE(until([&] { return heard.numbers.size() == 1; }));
}

TEST_P(Conformance, reports_that_it_is_away_and_back_again) {
    if (!bus_->canBeAway()) return;
    const auto recorder = std::make_shared<Recorder>();
    with(bus_->here, [&](Backend& backend) {
        backend.observe(recorder);
        return 0;
    });
    for (int round = 0; round < 2; ++round) {
        bus_->leave();
        ASSERT_TRUE(until([&] { return stateOf(bus_->here)->phase() == Phase::away; }));
        const auto late = std::make_shared<Recorder>();
        with(bus_->here, [&](Backend& backend) {
            backend.observe(late);
            backend.unobserve(*late);
            return 0;
        });
        EXPECT_EQ(late->words(), (Words{"largest", "connected", "away"})) << "who comes later is told how it is";
        bus_->comeBack();
        ASSERT_TRUE(until([&] { return stateOf(bus_->here)->phase() == Phase::connected; }));
    }
    // Observers are told one after the other.
    ASSERT_TRUE(until([&] { return recorder->words().size() >= 6; }));
    EXPECT_EQ(recorder->words(),
              (Words{"largest", "connected", "away with a reason", "back", "away with a reason", "back"}));
}

TEST_P(Conformance, reports_that_it_is_lost_and_refuses_from_then_on) {
    if (!bus_->canBeLost()) return;
    const auto recorder = std::make_shared<Recorder>();
    with(bus_->here, [&](Backend& backend) {
        backend.observe(recorder);
        return 0;
    });
    Heard asked;
    listen(bus_->there, "request", onNumber, &asked);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    std::jthread client([&] {
        quorlMsg request = newMessage("request", 0);
        quorlMsg reply = nullptr;
        EXPECT_NE(quorlTransport_SendRequest(bus_->here, request, &reply, -1), QUORL_OK) << "it waits no longer";
        EXPECT_STRNE(quorl_LastErrorText(), "");
        EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    });
    EXPECT_TRUE(until([&] { return !asked.numbers.empty(); }));
    bus_->lose();
    ASSERT_TRUE(until([&] { return stateOf(bus_->here)->phase() == Phase::lost; }));
    // Observers are told one after the other.
    ASSERT_TRUE(until([&] { return recorder->words().size() >= 3; }));
    EXPECT_EQ(recorder->words(), (Words{"largest", "connected", "lost with a reason"}));
    const quorl_status refused = tryToSend(bus_->here, numbered("a", 0));
    EXPECT_TRUE(refused == QUORL_VC_NOT_CONNECTED || refused == QUORL_DAEMON_NOT_CONNECTED) << refused;
    client.join();
    const auto late = std::make_shared<Recorder>();
    with(bus_->here, [&](Backend& backend) {
        backend.observe(late);
        return 0;
    });
    EXPECT_EQ(late->words(), (Words{"largest", "lost with a reason"}));
    EXPECT_EQ(quorlTransport_Destroy(bus_->here), QUORL_OK) << quorl_LastErrorText();
}

// A circuit over a way that is lost does not wait for the silence.
TEST_P(Conformance, takes_the_circuits_over_it_along_when_it_is_lost) {
    if (!bus_->canBeLost()) return;
    quorlTransport accepting = 0;
    quorlTransport connecting = 0;
    quorlTransport alone = 0;
    const char* subject = nullptr;
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&accepting, &subject, bus_->there), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorlTransport_CreateConnectVc(&connecting, subject, bus_->here), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&alone, &subject, bus_->here), QUORL_OK) << quorl_LastErrorText();
    const auto up = [](quorlTransport end) { return quorlTransport_WaitForVcConnection(end, 0) == QUORL_OK; };
    ASSERT_TRUE(until([&] { return up(connecting) && up(accepting); }));
    std::jthread waiter([&] {
        EXPECT_EQ(quorlTransport_WaitForVcConnection(alone, -1), QUORL_VC_NOT_CONNECTED) << quorl_LastErrorText();
    });
    bus_->lose();
    for (const quorlTransport end : {connecting, alone}) {
        ASSERT_TRUE(until([&] { return stateOf(end)->phase() == Phase::lost; }));
        EXPECT_EQ(quorlTransport_WaitForVcConnection(end, 0), QUORL_VC_NOT_CONNECTED);
    }
    // Nobody else has told this one.
    EXPECT_NE(std::string(quorl_LastErrorText()).find("the transport below is lost"), std::string::npos)
        << quorl_LastErrorText();
    // And one that comes later.
    quorlTransport late = 0;
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&late, &subject, bus_->here), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(quorlTransport_WaitForVcConnection(late, -1), QUORL_VC_NOT_CONNECTED) << quorl_LastErrorText();
}

TEST_P(Conformance, wakes_whoever_waits_for_room_when_it_is_closed) {
    if (!bus_->canBeFull()) return;
    bus_->shut();
    fill();
    std::atomic<quorl_status> status{QUORL_OK};
    std::atomic<pid_t> waiter{0};
    std::jthread sender([&] {
        waiter = gettid();
        status = send(bus_->here, "w", 0, large);
    });
    while (waiter == 0) std::this_thread::yield();
    ASSERT_TRUE(waitUntilAsleep(waiter));
    // Closing may wait for what was accepted.
    std::jthread closer([&] { static_cast<void>(quorlTransport_Destroy(bus_->here)); });
    EXPECT_TRUE(bus_->until({}, [&] { return status != QUORL_OK; }));
    EXPECT_TRUE(status == QUORL_INVALID_TRANSPORT || status == QUORL_VC_NOT_CONNECTED) << status;
    bus_->open();
}

TEST_P(Conformance, takes_the_first_reply_and_leaves_the_request_alone_afterwards) {
    struct Server {
        quorlTransport transport;
        std::atomic<int> asked{0};
    } server{bus_->there, {}};
    listen(
        bus_->there, "request",
        [](quorlEvent, quorlMsg request, void* closure) {
            auto& self = *static_cast<Server*>(closure);
            for (uint64_t i = 0; i < 3; ++i) {
                quorlMsg reply = newMessage("unused", 10 * numberIn(request) + i);
                EXPECT_EQ(quorlTransport_SendReply(self.transport, reply, request), QUORL_OK);
                EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
            }
            ++self.asked;
        },
        &server);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    std::atomic<bool> done{false};
    std::jthread client([&] {
        for (uint64_t i = 0; i < 20; ++i) {
            quorlMsg request = newMessage("request", i);
            quorlMsg reply = nullptr;
            EXPECT_EQ(quorlTransport_SendRequest(bus_->here, request, &reply, 60), QUORL_OK) << quorl_LastErrorText();
            if (reply != nullptr) {
                EXPECT_EQ(numberIn(reply), 10 * i);
                EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
            }
            EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
        }
        done = true;
    });
    EXPECT_TRUE(until([&] { return done.load(); }));
    settle();
    EXPECT_EQ(server.asked, 20);
}

TEST_P(Conformance, ends_a_request_that_waits_when_it_is_closed) {
    Heard asked;
    listen(bus_->there, "request", onNumber, &asked);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    std::jthread client([&] {
        quorlMsg request = newMessage("request", 0);
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlTransport_SendRequest(bus_->here, request, &reply, -1), QUORL_INTR);
        EXPECT_STRNE(quorl_LastErrorText(), "");
        EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    });
    EXPECT_TRUE(until([&] { return !asked.numbers.empty(); }));
    EXPECT_EQ(quorlTransport_Destroy(bus_->here), QUORL_OK) << quorl_LastErrorText();
}

TEST_P(Conformance, delivers_to_an_inbox_of_its_own_without_the_bus) {
    std::string inbox(QUORL_SUBJECT_MAX + 1, '\0');
    ASSERT_EQ(quorlTransport_CreateInbox(bus_->here, inbox.data(), static_cast<quorl_u32>(inbox.size())), QUORL_OK);
    Heard heard;
    listen(bus_->here, inbox.c_str(), onNumber, &heard);
    with(bus_->here, [&](Backend& backend) {
        quorl::ThreadState& thread = *quorl::threadState();
        quorl::ReadGuard guard(thread);
        EXPECT_EQ(backend.deliver(thread, numbered(inbox.c_str(), 0)), QUORL_OK);
        return 0;
    });
    EXPECT_EQ(quorlQueue_TimedDispatch(queue_, 0), QUORL_OK) << "it is in the queue at once";
    EXPECT_EQ(heard.numbers, upTo(1));
}

TEST_P(Conformance, brings_what_was_accepted_before_it_was_closed) {
    Heard heard;
    listen(bus_->there, "b", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    for (uint64_t i = 0; i < 300; ++i) ASSERT_EQ(send(bus_->here, "b", i), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(bus_->here), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(send(bus_->here, "b", 4711), QUORL_INVALID_TRANSPORT);
    ASSERT_TRUE(until([&] { return heard.numbers.size() == 300; }));
    EXPECT_EQ(heard.numbers, upTo(300));
}

TEST_P(Conformance, hears_nothing_after_it_was_closed) {
    Heard heard;
    listen(bus_->there, "h", onNumber, &heard);
    ASSERT_TRUE(inForce(bus_->here, bus_->there));
    ASSERT_EQ(quorlTransport_Destroy(bus_->there), QUORL_OK);
    for (uint64_t i = 0; i < 20; ++i) {
        // A circuit's other end learns it.
        const quorl_status status = send(bus_->here, "h", i);
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_VC_NOT_CONNECTED) << status;
    }
    for (int i = 0; i < 100; ++i) bus_->pump();
    while (quorlQueue_TimedDispatch(queue_, 0) == QUORL_OK) continue;
    EXPECT_TRUE(heard.numbers.empty());
}

}  // namespace
}  // namespace quorltest
