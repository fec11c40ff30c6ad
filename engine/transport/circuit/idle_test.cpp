// What many idle circuits cost, counted: how often they wake the host, while the test drives the clock.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "quorl/quorl.h"
#include "transport/circuit/end.h"

namespace quorl::transport::circuit {
namespace {

constexpr int64_t second = 1'000'000'000;
constexpr double limit = 60;  // seconds

std::atomic<int64_t> drivenTime{0};

// Sees the host's thread come round.
class Probe final : public protocol::Guest {
  public:
    void wake(ThreadState&) noexcept override {}
    void persisted(ThreadState&, uint64_t token) noexcept override {
        std::lock_guard lock(mutex_);
        seen_ = token;
        changed_.notify_all();
    }
    // Waits until the thread has done what it had to do before this was called, and is on its next turn.
    bool roundTrip() {
        for (int i = 0; i < 2; ++i) {
            const uint64_t wanted = ++asked_;
            if (!host().post(token(), wanted)) return false;
            std::unique_lock lock(mutex_);
            if (!changed_.wait_for(lock, std::chrono::duration<double>(limit), [&] { return seen_ == wanted; }))
                return false;
        }
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t asked_ = 0;
    uint64_t seen_ = 0;
};

class IdleCircuits : public testing::Test {
  protected:
    void SetUp() override {
        set("dispatch.spin=0");  // a thread that spins until a time has passed would do so for ever
        drivenTime = monotonicNow();
        setMonotonicSource([]() noexcept { return drivenTime.load(); });
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlTransport_Create(&parent_, nullptr, nullptr, nullptr), QUORL_OK);
    }
    void TearDown() override {
        if (probe_->token() != 0) host().remove(probe_->token());
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        setMonotonicSource(nullptr);
        set("dispatch.spin=20");
    }
    static void set(const char* setting) {
        EXPECT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK) << quorl_LastErrorText();
    }

    void connect(int count) {
        for (int i = 0; i < count; ++i) {
            quorlTransport acceptor = 0;
            quorlTransport connector = 0;
            const char* subject = nullptr;
            ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, parent_), QUORL_OK);
            ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, parent_), QUORL_OK);
            ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK);
        }
        ASSERT_EQ(host().add(probe_), QUORL_OK);
    }
    // Until the host has done all that is due, and what came of it.
    void settle() {
        for (quorl_u32 waiting = 1; waiting != 0;) {
            ASSERT_TRUE(probe_->roundTrip());
            ASSERT_EQ(quorlQueue_GetCount(host().queue(), &waiting), QUORL_OK);
        }
        ASSERT_TRUE(probe_->roundTrip());
    }
    void pass(int seconds) {
        for (int i = 0; i < seconds; ++i) {
            drivenTime += second;
            ASSERT_NO_FATAL_FAILURE(settle());
        }
    }

    const std::shared_ptr<Probe> probe_ = std::make_shared<Probe>();
    quorlTransport parent_ = 0;
};

TEST_F(IdleCircuits, wake_the_host_a_few_times_a_minute_each) {
    constexpr int circuits = 1000;
    constexpr int minutes = 5;
    ASSERT_NO_FATAL_FAILURE(connect(circuits));
    ASSERT_NO_FATAL_FAILURE(pass(60));
    const uint64_t before = host().woken();
    ASSERT_NO_FATAL_FAILURE(pass(60 * minutes));
    const uint64_t woken = host().woken() - before;
    std::printf("%d circuits in %d minutes: %llu ends woken\n", circuits, minutes,
                static_cast<unsigned long long>(woken));
    // When the peer was not heard for so long, and once more to see that it has answered.
    EXPECT_LE(woken, 3u * circuits * 2 * minutes);
    EXPECT_EQ(host().count(), 2u * circuits + 1);
}

// No look at those that have nothing to do: one busy circuit among idle ones costs what it costs alone.
TEST_F(IdleCircuits, are_not_looked_at_for_the_sake_of_a_busy_one) {
    ASSERT_NO_FATAL_FAILURE(connect(1000));
    ASSERT_NO_FATAL_FAILURE(settle());
    const auto busy = std::make_shared<Probe>();
    ASSERT_EQ(host().add(busy), QUORL_OK);
    const uint64_t before = host().woken();
    for (int i = 0; i < 100; ++i) {
        host().schedule(*busy, monotonicNow());
        ASSERT_NO_FATAL_FAILURE(settle());
    }
    EXPECT_EQ(host().woken() - before, 100u);
    host().remove(busy->token());
}

}  // namespace
}  // namespace quorl::transport::circuit
