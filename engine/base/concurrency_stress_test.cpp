// Threads that lock, pin and guard the same few things as fast as they can, over both ways in which threads publish what
// they use: with the barrier that the kernel runs on all threads, and without it.
//
// QUORL_STRESS_SECONDS sets how long each test runs.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "base/fence.h"
#include "base/futex.h"
#include "base/mutex.h"
#include "base/reclaimer.h"
#include "base/registry.h"

namespace quorl {
namespace {

std::chrono::steady_clock::duration stressTime() {
    const char* set = std::getenv("QUORL_STRESS_SECONDS");
    return set == nullptr ? std::chrono::milliseconds(300) : std::chrono::milliseconds(std::atoi(set) * 1000);
}

// The parameter: whether the kernel's barrier is used, where there is one. No other thread of the library runs while it is
// chosen.
class ConcurrencyStress : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        ASSERT_NE(threadState(), nullptr);
        offered_ = fence::processWide.load();
        fence::processWide.store(GetParam());
    }
    void TearDown() override { fence::processWide.store(offered_); }

    // Runs body(index) on several threads, again and again until the time is over.
    template <class F>
    static void onThreads(size_t count, F&& body) {
        const auto end = std::chrono::steady_clock::now() + stressTime();
        std::vector<std::thread> threads;
        for (size_t index = 0; index < count; ++index) {
            threads.emplace_back([&, index] {
                while (std::chrono::steady_clock::now() < end) {
                    for (int i = 0; i < 200; ++i) body(index);
                }
            });
        }
        for (auto& thread : threads) thread.join();
    }

  private:
    bool offered_ = false;
};

TEST_P(ConcurrencyStress, a_mutex_is_exclusive_and_wakes_whoever_waits) {
    Mutex mutex;
    uint64_t counted = 0;  // not atomic: the mutex's
    std::atomic<uint64_t> expected{0};
    std::atomic<uint32_t> inside{0};
    onThreads(4, [&](size_t) {
        Lock lock(mutex);
        ASSERT_EQ(inside.fetch_add(1), 0u);
        ++counted;
        if (counted % 64 == 0) std::this_thread::yield();  // so that others have to sleep
        inside.fetch_sub(1);
        expected.fetch_add(1, std::memory_order_relaxed);
    });
    EXPECT_EQ(counted, expected.load());
}

// A record that knows when it is gone. Its memory stays, so that a use behind the end is seen and not a crash.
struct Watched : Record {
    static constexpr uint16_t objectType = 77;
    std::atomic<bool> gone{false};
    std::atomic<uint32_t> completions{0};
};

struct Table {
    std::array<std::atomic<uint32_t>, 8> ids{};
    std::atomic<uint64_t> made{0};
    std::atomic<uint64_t> destroyed{0};
    std::atomic<uint64_t> used{0};
};
Table* table = nullptr;

Watched* publishNew(std::atomic<uint32_t>& cell) {
    auto* record = new Watched;  // kept by `all` of the test
    record->completed = [](Record& done) noexcept { static_cast<Watched&>(done).completions.fetch_add(1); };
    record->destroy = [](Record* done) noexcept {
        static_cast<Watched*>(done)->gone.store(true);
        table->destroyed.fetch_add(1);
    };
    const uint32_t id = registry::reserve();
    EXPECT_TRUE(registry::publish(*record, id, Watched::objectType));
    table->made.fetch_add(1);
    cell.store(id);
    return record;
}

TEST_P(ConcurrencyStress, nothing_is_freed_under_a_guard_a_pin_or_a_reference) {
    Table shared;
    table = &shared;
    ASSERT_EQ(reclaimer::start(), QUORL_OK);
    registry::begin();
    std::array<std::vector<std::unique_ptr<Watched>>, 2> all;
    onThreads(5, [&](size_t index) {
        thread_local uint32_t turn = 0;
        auto& cell = shared.ids[turn++ % shared.ids.size()];
        if (index < all.size()) {  // makes and destroys
            const uint32_t id = cell.exchange(0);
            if (id == 0) {
                all[index].emplace_back(publishNew(cell));
            } else if (Record* record = registry::close(id, Watched::objectType)) {
                registry::retire(*record);
            }
            return;
        }
        const uint32_t id = cell.load();
        if (id == 0) return;
        ThreadState& thread = *threadState();
        if (turn % 3 == 0) {
            registry::Pin<Watched> pin(thread, id);
            if (!pin) return;
            ASSERT_EQ(pin->completions.load(), 0u);
            if (turn % 64 == 0) std::this_thread::yield();
            ASSERT_FALSE(pin->gone.load());
        } else {
            Watched* kept = nullptr;
            {
                ReadGuard guard(thread);
                auto* record = registry::find<Watched>(id);
                if (record == nullptr) return;
                ASSERT_FALSE(record->gone.load());
                if (turn % 3 == 1) registry::acquireReference(*(kept = record));
                ASSERT_FALSE(record->gone.load());
            }
            if (kept != nullptr) {
                ASSERT_FALSE(kept->gone.load());
                registry::releaseReference(*kept);
            }
        }
        shared.used.fetch_add(1, std::memory_order_relaxed);
    });
    for (auto& cell : shared.ids) {
        if (Record* record = registry::close(cell.load(), Watched::objectType)) registry::retire(*record);
    }
    // A thread that lost a race for a cell left its record open.
    registry::forEachOpen(Watched::objectType, [](uint32_t id) {
        if (Record* record = registry::close(id, Watched::objectType)) registry::retire(*record);
    });
    registry::end();
    reclaimer::finish();
    EXPECT_EQ(shared.destroyed.load(), shared.made.load());
    EXPECT_EQ(registry::inUse(), 0u);
    EXPECT_GT(shared.used.load(), 0u);
    for (const auto& records : all) {
        for (const auto& record : records) ASSERT_EQ(record->completions.load(), 1u);
    }
}

// Without the barrier always, with it where the kernel offers it and no sanitizer forbids it.
std::vector<bool> fences() {
    static_cast<void>(threadState());
    if (fence::processWide.load()) return {false, true};
    return {false};
}
INSTANTIATE_TEST_SUITE_P(Fences, ConcurrencyStress, testing::ValuesIn(fences()),
                         [](const auto& info) { return info.param ? "asymmetric" : "everywhere"; });

}  // namespace
}  // namespace quorl
