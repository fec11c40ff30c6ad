// A distributed queue when memory is short: each allocation in each call into a member fails once, and still every task is done
// once or becomes a dead letter, and nothing is remembered of it.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <string>

#include "certified/protocol/frame.h"
#include "dqueue/protocol/test_support.h"
#include "fault/failing_allocator.h"

namespace quorl::dqueue {
namespace {

// Which allocation of which call into a machine fails.
struct Failure {
    int64_t call = -1;
    int64_t allocation = 0;
    int64_t calls = 0;
    bool failed = false;
    bool wasAsked = false;

    bool guard(const std::function<void()>& step) {
        if (calls++ != call) {
            step();
            return true;
        }
        wasAsked = true;
        bool fine = true;
        quorltest::failAllocation(quorltest::Whose::callers, allocation);
        try {
            step();
        } catch (const std::bad_alloc&) {
            // A driver carries out what the step had come to.
            fine = false;
        }
        failed = quorltest::stopFailing();
        return fine;
    }
};

// The subject and the sender's number; of plain messages the subject alone.
std::string nameOf(const companion::Message& message) {
    certified::Attributes attributes;
    std::string name(message.subject());
    if (certified::attributesOf(message, &attributes)) name += " " + std::to_string(attributes.number);
    return name;
}

// What is left when everything has come to rest.
struct Rest {
    std::map<std::string, int> done;  // how often
    int letters = 0;
    uint64_t kept = 0;
    uint64_t held = 0;
    uint64_t unreported = 0;
    uint64_t unassigned = 0;
    uint64_t assigned = 0;
    uint64_t memory = 0;
};

Settings settingsFor(uint16_t schedulerWeight) {
    Settings made = settingsOf(schedulerWeight, 1, 3);
    made.intervals = {100 * second, 0, 350 * second};
    return made;
}

// last: the member that is left.
Rest restOf(TestQueue& group, size_t members, size_t last) {
    Rest rest;
    for (size_t i = 0; i < members; ++i) {
        for (const Task& task : group.member(i).done) ++rest.done[nameOf(task.message)];
        for (const DeadLetter& letter : group.member(i).letters) {
            EXPECT_TRUE(letter.message);
            EXPECT_FALSE(letter.subject.empty());
            if (letter.message) ++rest.done[nameOf(letter.message)];
            ++rest.letters;
        }
    }
    rest.kept = group.kept();
    const Counts counts = group.counts(last);
    EXPECT_TRUE(counts.scheduler);
    rest.held = counts.held;
    rest.unreported = counts.unreported;
    rest.unassigned = counts.unassigned;
    rest.assigned = counts.assigned;
    rest.memory = counts.memory;
    return rest;
}

// Two members share tasks; some are given back, one becomes a dead letter; one of them is lost, another comes, and the
// scheduler leaves.
Rest shareAndHandOver(Failure& failure) {
    TestQueue group;
    group.guard = [&](const std::function<void()>& step) { return failure.guard(step); };
    const auto settings = [](uint16_t schedulerWeight) {
        Settings made = settingsFor(schedulerWeight);
        made.reassignments = 1;
        return made;
    };
    const size_t first = group.join(settings(3));
    const size_t other = group.join(settings(2));
    group.skip(1000 * second);
    group.send(8);
    group.sendPlain();
    group.skip(second);
    // The same task twice, where it is the first in a row.
    for (int i = 0; i < 2; ++i) {
        if (!group.member(other).tasks.empty()) group.giveBack(other);
        group.skip(second);
        if (!group.member(first).tasks.empty()) group.giveBack(first);
        group.skip(second);
    }
    group.member(first).completes = true;
    while (!group.member(first).tasks.empty()) group.complete(first);
    group.skip(10 * second);
    group.member(other).dead = true;
    const size_t third = group.join(settings(1));
    group.member(third).completes = true;
    group.skip(1000 * second);
    group.call(first, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
    group.skip(1000 * second);
    group.send(3);
    group.skip(3000 * second);

    return restOf(group, 3, third);
}

// Limits of the backlog and of time, a listener that comes and goes, and a scheduler that stands still and comes back.
Rest limitAndMeetAgain(Failure& failure) {
    TestQueue group;
    group.guard = [&](const std::function<void()>& step) { return failure.guard(step); };
    const auto settings = [](uint16_t schedulerWeight) {
        Settings made = settingsFor(schedulerWeight);
        made.completeTime = 50 * second;
        made.backlogMessages = 3;
        made.workerTasks = 2;
        return made;
    };
    const size_t first = group.join(settings(3));
    const size_t other = group.join(settings(2));
    group.skip(1000 * second);
    for (uint32_t number = 100;
         !group.call(other,
                     [&](Machine&machine, Output&out) {
                         EXPECT_EQ(machine.createListener(number, "t.a", group.now(), out), QUORL_OK);
                         EXPECT_EQ(machine.setWorkerWeight(3, group.now(), out), QUORL_OK);
                     });
         ++number)
        group.call(other,
                   [&](Machine& machine, Output& out) { machine.destroyListener(number, false, group.now(), out); });
    group.send(6);
    group.send(3, "t.b");
    group.skip(second);
    group.call(other, [&](Machine& machine, Output& out) {
        for (const uint32_t number : {100u, 101u}) machine.destroyListener(number, true, group.now(), out);
    });
    group.skip(60 * second);
    group.member(first).dead = true;
    group.skip(600 * second);
    group.member(first).dead = false;
    group.skip(600 * second);
    for (const size_t which : {first, other}) {
        while (!group.member(which).tasks.empty()) group.tryToComplete(which);
        group.member(which).completes = true;
    }
    group.skip(1000 * second);
    group.send(2);
    group.skip(3000 * second);
    return restOf(group, 2, first);
}

// With a sanitizer every call would take minutes.
#if defined(__SANITIZE_THREAD__)
constexpr int64_t stride = 31;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int64_t stride = 7;
#else
constexpr int64_t stride = 1;
#endif

// most: how often one may be done.
void failEach(Rest (*play)(Failure& failure), uint64_t tasks, int most) {
    const std::string plain = "t.a";  // may be lost
    Failure none;
    const Rest undisturbed = play(none);
    ASSERT_EQ(undisturbed.done.size(), tasks);
    ASSERT_EQ(undisturbed.kept, 0u);
    uint64_t runs = 0;
    uint64_t failures = 0;
    for (int64_t call = 0;; call += stride) {
        bool reached = false;
        for (int64_t allocation = 0;; ++allocation) {
            SCOPED_TRACE(testing::Message() << call << ", " << allocation);
            Failure failure;
            failure.call = call;
            failure.allocation = allocation;
            const Rest rest = play(failure);
            ++runs;
            failures += failure.failed;
            for (const auto& [name, times] : undisturbed.done) {
                const auto found = rest.done.find(name);
                EXPECT_GE(found != rest.done.end() ? found->second : 0, name == plain ? 0 : 1) << name;
                EXPECT_LE(found != rest.done.end() ? found->second : 0, most) << name;
            }
            EXPECT_EQ(rest.kept, 0u);
            EXPECT_EQ(rest.held, 0u);
            EXPECT_EQ(rest.unreported, 0u);
            EXPECT_EQ(rest.unassigned, 0u);
            EXPECT_EQ(rest.assigned, 0u);
            EXPECT_LE(rest.memory, 2 * undisturbed.memory);
            ASSERT_FALSE(testing::Test::HasFailure());
            reached = failure.wasAsked;
            if (!failure.failed) break;
        }
        if (!reached) break;
    }
    EXPECT_GT(failures, 1000u / stride);
    std::printf("%llu runs, %llu failures\n", static_cast<unsigned long long>(runs),
                static_cast<unsigned long long>(failures));
}

TEST(DqueueNoMemory, does_every_task_once_whichever_allocation_fails) {
    failEach(shareAndHandOver, 12, 1);
}

// A scheduler that stood still had given out what the other gave out too.
TEST(DqueueNoMemory, loses_no_task_under_limits_and_between_two_schedulers) {
    failEach(limitAndMeetAgain, 11, 3);
}

}  // namespace
}  // namespace quorl::dqueue
