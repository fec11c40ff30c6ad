// What the thread sanitizer cannot see, since it runs without the asymmetric fence: that the mutex loses no wake-up, and that
// no record is freed under a read guard or a pin. Each step of the code is a step here, and each way the threads may meet is
// tried; left out one after the other, the steps that the proof rests on are missed.
#include "base/interleaving.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

using Step = Interleaving::Step;

// ---- mutex (mutex.h, mutex.cpp) -----------------------------------------------------------------------------------

struct MutexSteps {
    bool fence = true;      // heavyFence of a thread that is about to sleep
    bool publishes = true;  // it counts itself among the sleepers first
    bool wakes = true;      // unlock looks for sleepers
};

enum MutexCell : uint32_t { held, sleepers, inside };

Interleaving::Program lockAndUnlock(const MutexSteps& with) {
    enum : uint32_t { fast, countSleeper, fence, attempt, sleep, leaveSleepers, enter, leave, unlock, look, wake, end };
    Interleaving::Program steps(end);
    steps[fast] = [](Step& s) { s.goTo(s.compareExchange(held, 0, 1) ? enter : countSleeper); };
    steps[countSleeper] = [with](Step& s) {
        if (with.publishes) s.add(sleepers, 1);
    };
    steps[fence] = [with](Step& s) {
        if (with.fence) s.barrierOnAllThreads();
    };
    steps[attempt] = [](Step& s) { s.goTo(s.compareExchange(held, 0, 1) ? leaveSleepers : sleep); };
    steps[sleep] = [](Step& s) {
        s.sleepWhile(held, 1);
        s.goTo(attempt);
    };
    steps[leaveSleepers] = [with](Step& s) {
        if (with.publishes) s.add(sleepers, -1);
    };
    steps[enter] = [](Step& s) {
        if (s.exchange(inside, 1) != 0) s.fail("two threads hold the mutex");
    };
    steps[leave] = [](Step& s) { s.exchange(inside, 0); };
    steps[unlock] = [](Step& s) { s.store(held, 0); };
    steps[look] = [with](Step& s) { s.goTo(with.wakes && s.load(sleepers) != 0 ? wake : end); };
    steps[wake] = [](Step& s) { s.wakeOne(held); };
    return steps;
}

std::string explored(const MutexSteps& with, int threads = 3) {
    Interleaving model({0, 0, 0});
    for (int i = 0; i < threads; ++i) model.thread(lockAndUnlock(with), 0);
    return model.explore();
}

TEST(MutexModel, is_exclusive_and_loses_no_wake_up) {
    EXPECT_EQ(explored({}), "");
}

TEST(MutexModel, rests_on_the_fence_the_count_and_the_look) {
    EXPECT_EQ(explored({.fence = false}), "all threads sleep");
    EXPECT_EQ(explored({.publishes = false}), "all threads sleep");
    EXPECT_EQ(explored({.wakes = false}), "all threads sleep");
}

// ---- pins (registry.h, reclaimer.cpp) -----------------------------------------------------------------------------

// One record, one thread that pins and uses it, and the one that closes it and frees it.
struct PinSteps {
    bool fenceAfterClosing = true;
    bool looksAgain = true;        // after the pin is published, whether the record is still open
    bool fenceAfterAsking = true;  // between asking to be told of the pin's end and the look that may end in sleep
    bool tells = true;             // the thread that unpins looks whether it is asked
};

enum PinCell : uint32_t { word, pin, watched, signals, freed };
enum : int { isClosed = 0, isOpen = 1 };

Interleaving::Program pinAndUse(const PinSteps& with) {
    enum : uint32_t { publish, check, use, useAgain, withdraw, look, poke, wake, end };
    Interleaving::Program steps(end);
    const auto used = [](Step& s) {
        if (s.load(freed) != 0) s.fail("used after it was freed");
    };
    steps[publish] = [](Step& s) { s.store(pin, 1); };
    steps[check] = [with](Step& s) { s.goTo(!with.looksAgain || s.load(word) == isOpen ? use : withdraw); };
    steps[use] = used;
    steps[useAgain] = used;
    steps[withdraw] = [](Step& s) { s.store(pin, 0); };
    steps[look] = [with](Step& s) { s.goTo(with.tells && s.load(watched) != 0 ? poke : end); };
    steps[poke] = [](Step& s) { s.add(signals, 1); };
    steps[wake] = [](Step& s) { s.wakeOne(signals); };
    return steps;
}

Interleaving::Program closeAndFree(const PinSteps& with) {
    enum : uint32_t { close, fence, count, collect, ask, fenceAgain, collectAgain, sleep, release, end };
    enum : uint32_t { counted };
    Interleaving::Program steps(end);
    steps[close] = [](Step& s) { s.exchange(word, isClosed); };
    steps[fence] = [with](Step& s) {
        if (with.fenceAfterClosing) s.barrierOnAllThreads();
    };
    steps[count] = [](Step& s) { s.local(counted) = s.load(signals); };
    steps[collect] = [](Step& s) { s.goTo(s.load(pin) != 0 ? ask : release); };
    steps[ask] = [](Step& s) { s.exchange(watched, 1); };
    steps[fenceAgain] = [with](Step& s) {
        if (with.fenceAfterAsking) s.barrierOnAllThreads();
    };
    steps[collectAgain] = [](Step& s) { s.goTo(s.load(pin) != 0 ? sleep : release); };
    steps[sleep] = [](Step& s) {
        s.sleepWhile(signals, s.local(counted));
        s.goTo(count);
    };
    steps[release] = [](Step& s) { s.exchange(freed, 1); };
    return steps;
}

std::string explored(const PinSteps& with) {
    Interleaving model({isOpen, 0, 0, 0, 0});
    model.thread(pinAndUse(with), 0);
    model.thread(closeAndFree(with), 1);
    return model.explore();
}

TEST(PinModel, no_record_is_freed_under_a_pin_and_the_last_pins_end_is_told) {
    EXPECT_EQ(explored(PinSteps()), "");
}

TEST(PinModel, rests_on_both_fences_the_second_look_and_the_telling) {
    EXPECT_EQ(explored(PinSteps{.fenceAfterClosing = false}), "used after it was freed");
    EXPECT_EQ(explored(PinSteps{.looksAgain = false}), "used after it was freed");
    EXPECT_EQ(explored(PinSteps{.fenceAfterAsking = false}), "all threads sleep");
    EXPECT_EQ(explored(PinSteps{.tells = false}), "all threads sleep");
}

// ---- read guards (thread_state.h, reclaimer.cpp) ------------------------------------------------------------------

struct GuardSteps {
    bool publishes = true;
    bool fenceAfterClosing = true;
    bool fenceAfterAsking = true;
    bool tells = true;
};

enum GuardCell : uint32_t { guard = pin };

Interleaving::Program readUnderGuard(const GuardSteps& with) {
    enum : uint32_t { begin, find, use, useAgain, finish, look, poke, wake, end };
    Interleaving::Program steps(end);
    const auto used = [](Step& s) {
        if (s.load(freed) != 0) s.fail("used after it was freed");
    };
    steps[begin] = [with](Step& s) {
        if (with.publishes) s.store(guard, 1);
    };
    steps[find] = [](Step& s) { s.goTo(s.load(word) == isOpen ? use : finish); };
    steps[use] = used;
    steps[useAgain] = used;
    steps[finish] = [with](Step& s) {
        if (with.publishes) s.store(guard, 2);
    };
    steps[look] = [with](Step& s) { s.goTo(with.tells && s.load(watched) != 0 ? poke : end); };
    steps[poke] = [](Step& s) { s.add(signals, 1); };
    steps[wake] = [](Step& s) { s.wakeOne(signals); };
    return steps;
}

Interleaving::Program closeAndWaitForGuards(const GuardSteps& with) {
    enum : uint32_t { close, fence, see, count, ask, fenceAgain, compare, sleep, release, end };
    enum : uint32_t { counted, seen };
    Interleaving::Program steps(end);
    steps[close] = [](Step& s) { s.exchange(word, isClosed); };
    steps[fence] = [with](Step& s) {
        if (with.fenceAfterClosing) s.barrierOnAllThreads();
    };
    steps[see] = [](Step& s) {
        s.local(seen) = s.load(guard);
        if (s.local(seen) % 2 == 0) s.goTo(release);
    };
    steps[count] = [](Step& s) { s.local(counted) = s.load(signals); };
    steps[ask] = [](Step& s) { s.exchange(watched, 1); };
    steps[fenceAgain] = [with](Step& s) {
        if (with.fenceAfterAsking) s.barrierOnAllThreads();
    };
    steps[compare] = [](Step& s) { s.goTo(s.load(guard) != s.local(seen) ? release : sleep); };
    steps[sleep] = [](Step& s) {
        s.sleepWhile(signals, s.local(counted));
        s.goTo(count);
    };
    steps[release] = [](Step& s) { s.exchange(freed, 1); };
    return steps;
}

std::string explored(const GuardSteps& with) {
    Interleaving model({isOpen, 0, 0, 0, 0});
    model.thread(readUnderGuard(with), 0);
    model.thread(closeAndWaitForGuards(with), 2);
    return model.explore();
}

TEST(ReadGuardModel, no_record_is_freed_under_a_guard_and_the_guards_end_is_told) {
    EXPECT_EQ(explored(GuardSteps()), "");
}

TEST(ReadGuardModel, rests_on_the_store_both_fences_and_the_telling) {
    EXPECT_EQ(explored(GuardSteps{.publishes = false}), "used after it was freed");
    EXPECT_EQ(explored(GuardSteps{.fenceAfterClosing = false}), "used after it was freed");
    EXPECT_EQ(explored(GuardSteps{.fenceAfterAsking = false}), "all threads sleep");
    EXPECT_EQ(explored(GuardSteps{.tells = false}), "all threads sleep");
}

}  // namespace
}  // namespace quorl
