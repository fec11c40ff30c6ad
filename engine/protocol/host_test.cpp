// The host in real time, with machines that only count.
#include "protocol/host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/clock.h"
#include "protocol/driver.h"

namespace quorl::protocol {
namespace {

constexpr int64_t ms = 1'000'000;

constinit Host testHost("quorl-test", "quorl.test");

// What guests did, for a test that waits for it.
class Log {
  public:
    void add(uint64_t what) {
        std::lock_guard lock(mutex_);
        entries_.push_back(what);
        changed_.notify_all();
    }
    template <class F>
    bool await(F&& enough) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return enough(entries_); });
    }
    std::vector<uint64_t> entries() {
        std::lock_guard lock(mutex_);
        return entries_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<uint64_t> entries_;
};

class Sleeper final : public Guest {
  public:
    Sleeper(Log& log, uint64_t name) : log_(log), name_(name) {}
    void wake(ThreadState&) noexcept override { log_.add(name_); }
    void persisted(ThreadState&, uint64_t token) noexcept override { log_.add(token); }

  private:
    Log& log_;
    const uint64_t name_;
};

class HostTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(quorl_Open(), QUORL_OK); }
    void TearDown() override {
        testHost.stop();
        EXPECT_EQ(testHost.count(), 0u);
        EXPECT_EQ(quorl_Close(), QUORL_OK);
    }
    GuestRef added(uint64_t name) {
        auto guest = std::make_shared<Sleeper>(log, name);
        EXPECT_EQ(testHost.add(guest), QUORL_OK);
        return guest;
    }
    Log log;
};

TEST_F(HostTest, wakes_those_that_match_at_once) {
    const GuestRef guests[] = {added(1), added(2), added(3)};
    testHost.schedule(*guests[0], monotonicNow() + 3'600'000 * ms);
    testHost.wakeAll([&](const Guest& guest) { return &guest != guests[1].get(); });
    ASSERT_TRUE(log.await([](const auto& entries) { return entries.size() >= 2; }));
    auto woken = log.entries();
    std::sort(woken.begin(), woken.end());
    EXPECT_EQ(woken, (std::vector<uint64_t>{1, 3}));
}

TEST_F(HostTest, wakes_guests_in_the_order_of_their_times) {
    const auto late = added(3);
    const auto early = added(1);
    const auto middle = added(2);
    const int64_t now = monotonicNow();
    testHost.schedule(*late, now + 30 * ms);
    testHost.schedule(*middle, now + 20 * ms);
    testHost.schedule(*early, now + 10 * ms);
    ASSERT_TRUE(log.await([](const auto& entries) { return entries.size() == 3; }));
    EXPECT_EQ(log.entries(), (std::vector<uint64_t>{1, 2, 3}));
    EXPECT_GE(monotonicNow(), now + 30 * ms);
}

TEST_F(HostTest, an_earlier_time_holds_and_a_later_one_does_not_move_it) {
    const auto guest = added(1);
    testHost.schedule(*guest, monotonicNow() + 3'600'000 * ms);
    testHost.schedule(*guest, monotonicNow() + ms);
    testHost.schedule(*guest, monotonicNow() + 7'200'000 * ms);
    EXPECT_TRUE(log.await([](const auto& entries) { return entries.size() == 1; }));
}

TEST_F(HostTest, a_guest_that_was_removed_is_not_woken_and_not_found) {
    const auto gone = added(1);
    const auto there = added(2);
    const int64_t now = monotonicNow();
    testHost.schedule(*gone, now + 20 * ms);
    testHost.remove(gone->token());
    testHost.remove(gone->token());
    testHost.schedule(*gone, now + ms);
    testHost.schedule(*there, now + 40 * ms);
    ASSERT_TRUE(log.await([](const auto& entries) { return !entries.empty(); }));
    EXPECT_EQ(log.entries(), std::vector<uint64_t>{2});
    EXPECT_EQ(testHost.find(gone->token()), nullptr);
    EXPECT_EQ(testHost.find(there->token()), there);
    EXPECT_EQ(testHost.count(), 1u);
    EXPECT_EQ(gone.use_count(), 1);
}

TEST_F(HostTest, brings_what_was_stored_to_the_guest_that_asked) {
    const auto first = added(1);
    const auto second = added(2);
    EXPECT_TRUE(testHost.post(second->token(), 22));
    EXPECT_TRUE(testHost.post(first->token(), 11));
    EXPECT_TRUE(testHost.post(4711, 33));  // of nobody
    EXPECT_TRUE(testHost.post(second->token(), 23));
    ASSERT_TRUE(log.await([](const auto& entries) { return entries.size() == 3; }));
    EXPECT_EQ(log.entries(), (std::vector<uint64_t>{22, 11, 23}));
}

TEST_F(HostTest, wakes_each_of_a_thousand_guests_that_are_scheduled_by_several_threads) {
    std::vector<GuestRef> guests;
    for (uint64_t i = 0; i < 1000; ++i) guests.push_back(added(i));
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (size_t i = t; i < guests.size(); i += 4) {
                testHost.schedule(*guests[i], monotonicNow() + static_cast<int64_t>(i % 7) * ms + 50 * ms);
                testHost.schedule(*guests[i], monotonicNow() + static_cast<int64_t>(i % 7) * ms);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_TRUE(log.await([](const auto& entries) { return entries.size() >= 1000; }));
    std::vector<uint64_t> woken = log.entries();
    std::ranges::sort(woken);
    EXPECT_EQ(std::ranges::unique(woken).begin() - woken.begin(), 1000);
}

TEST_F(HostTest, starts_again_after_a_stop) {
    const auto before = added(1);
    testHost.stop();
    EXPECT_EQ(testHost.find(before->token()), nullptr);
    EXPECT_EQ(testHost.queue(), 0u);
    testHost.schedule(*before, monotonicNow());  // without effect
    const auto after = added(2);
    EXPECT_NE(after->token(), before->token());
    testHost.schedule(*after, monotonicNow());
    ASSERT_TRUE(log.await([](const auto& entries) { return !entries.empty(); }));
    EXPECT_EQ(log.entries(), std::vector<uint64_t>{2});
}

TEST(HostClosed, refuses_guests_while_the_library_is_closed) {
    Log log;
    EXPECT_EQ(testHost.add(std::make_shared<Sleeper>(log, 1)), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(testHost.count(), 0u);
}

// ---- driver -------------------------------------------------------------------------------------------------------

// Numbers what it is asked for: stores it, sends it once it is safe, and delivers it at once.
struct Numbers {
    struct Rest {
        std::vector<uint64_t> deliveries;
    };
    std::vector<uint64_t> records;
    std::vector<uint64_t> messages;
    std::vector<uint64_t> deliveries;
    void clear() {
        records.clear();
        messages.clear();
        deliveries.clear();
    }
    Rest takeRest() { return {std::exchange(deliveries, {})}; }
};

class Counter {
  public:
    int64_t due() const { return due_; }
    quorl_status number(Numbers& out) {
        out.records.push_back(++last_);
        out.deliveries.push_back(last_);
        return QUORL_OK;
    }
    quorl_status safe(uint64_t record, Numbers& out) {
        out.messages.push_back(record);
        return QUORL_OK;
    }
    quorl_status restUntil(int64_t until, Numbers&) {
        due_ = until;
        return QUORL_OK;
    }
    void failNext(int times) { failures_ = times; }
    quorl_status tick(int64_t now, Numbers& out) {
        if (now < due_) return QUORL_OK;
        if (failures_ != 0) {
            --failures_;
            throw std::bad_alloc();
        }
        due_ = INT64_MAX;
        return number(out);
    }

  private:
    uint64_t last_ = 0;
    int failures_ = 0;
    int64_t due_ = INT64_MAX;
};

class Counting final : public Driver<Counter, Numbers> {
  public:
    Counting() : Driver(testHost, Counter()) {}
    void wake(ThreadState& thread) noexcept override {
        step(thread, [](Counter& counter, Numbers& out) { return counter.tick(monotonicNow(), out); });
    }
    void persisted(ThreadState& thread, uint64_t token) noexcept override {
        step(thread, [&](Counter& counter, Numbers& out) { return counter.safe(token, out); });
    }
    Log stored;
    Log sent;
    Log delivered;

  protected:
    void store(ThreadState&, Numbers& out) noexcept override {
        for (const uint64_t record : out.records) {
            stored.add(record);
            host().post(token(), record);
        }
    }
    void transmit(ThreadState&, Counter&, Numbers& out) noexcept override {
        for (const uint64_t message : out.messages) sent.add(message);
    }
    void deliver(ThreadState&, Numbers::Rest rest) noexcept override {
        for (const uint64_t delivery : rest.deliveries) delivered.add(delivery);
    }
};

TEST_F(HostTest, a_driver_stores_and_sends_in_the_order_of_the_steps) {
    const auto driver = std::make_shared<Counting>();
    ASSERT_EQ(testHost.add(driver), QUORL_OK);
    constexpr uint64_t each = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (uint64_t i = 0; i < each; ++i)
                driver->step(*threadState(), [](Counter& counter, Numbers& out) { return counter.number(out); });
        });
    }
    for (auto& thread : threads) thread.join();
    std::vector<uint64_t> all;
    for (uint64_t i = 1; i <= 4 * each; ++i) all.push_back(i);
    EXPECT_EQ(driver->stored.entries(), all);
    ASSERT_TRUE(driver->sent.await([&](const auto& entries) { return entries.size() == all.size(); }));
    EXPECT_EQ(driver->sent.entries(), all);
    EXPECT_EQ(driver->delivered.entries().size(), all.size());
}

TEST_F(HostTest, a_driver_is_woken_when_its_machine_is_due) {
    const auto driver = std::make_shared<Counting>();
    ASSERT_EQ(testHost.add(driver), QUORL_OK);
    driver->step(*threadState(),
                 [](Counter& counter, Numbers& out) { return counter.restUntil(monotonicNow() + 5 * ms, out); });
    EXPECT_TRUE(driver->delivered.await([](const auto& entries) { return entries.size() == 1; }));
    EXPECT_EQ(driver->look([](const Counter& counter) { return counter.due(); }), INT64_MAX);
}

TEST_F(HostTest, want_of_memory_in_a_step_is_a_status) {
    const auto driver = std::make_shared<Counting>();
    ASSERT_EQ(testHost.add(driver), QUORL_OK);
    EXPECT_EQ(driver->step(*threadState(), [](Counter&, Numbers&) -> quorl_status { throw std::bad_alloc(); }),
              QUORL_NO_MEMORY);
}

TEST_F(HostTest, a_machine_that_had_no_memory_is_tried_again_after_a_pause) {
    const auto driver = std::make_shared<Counting>();
    ASSERT_EQ(testHost.add(driver), QUORL_OK);
    const int64_t began = monotonicNow();
    driver->step(*threadState(), [](Counter& counter, Numbers& out) {
        counter.failNext(3);
        return counter.restUntil(monotonicNow(), out);
    });
    ASSERT_TRUE(driver->delivered.await([](const auto& entries) { return entries.size() == 1; }));
    EXPECT_GE(monotonicNow() - began, 30 * ms);
}

TEST_F(HostTest, finds_the_guests_that_match) {
    const auto one = added(1);
    const auto two = added(2);
    const auto matching = [&](uint64_t token) {
        return testHost.guests([token](const Guest& guest) { return guest.token() == token; });
    };
    EXPECT_EQ(matching(two->token()), std::vector<GuestRef>{two});
    EXPECT_TRUE(matching(4711).empty());
    EXPECT_EQ(testHost.guests([](const Guest&) { return true; }).size(), 2u);
}

}  // namespace
}  // namespace quorl::protocol
