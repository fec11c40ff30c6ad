// Steps of many threads in one commit: their order, and what becomes of those that stand behind a failure.
#include "certified/ledger/group_commit.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <numeric>
#include <thread>

namespace quorl::certified {
namespace {

// What is committed, and a commit that can be held up or made to fail.
class Disk {
  public:
    Outcome commit(std::vector<int>& steps) {
        std::unique_lock guard(lock_);
        begun_ = true;
        changed_.notify_all();
        changed_.wait(guard, [this] { return !held_; });
        if (fails_) {
            fails_ = false;
            return {QUORL_IO_FAILED, "full"};
        }
        commits_.push_back(steps);
        return {};
    }
    void hold() {
        const std::lock_guard guard(lock_);
        held_ = true;
        begun_ = false;
    }
    void waitForCommit() {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return begun_; });
    }
    void release(bool fails) {
        const std::lock_guard guard(lock_);
        fails_ = fails;
        held_ = false;
        changed_.notify_all();
    }
    const std::vector<std::vector<int>>& commits() const { return commits_; }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool held_ = false;
    bool begun_ = false;
    bool fails_ = false;
    std::vector<std::vector<int>> commits_;
};

using Group = GroupCommit<int>;
using Commits = std::vector<std::vector<int>>;

TEST(GroupCommit, SharesACommitAmongThoseThatCameDuringTheLast) {
    Disk disk;
    Group group([&](std::vector<int>& steps) { return disk.commit(steps); });
    disk.hold();
    std::thread first([&] { EXPECT_TRUE(group.wait(group.submit(1, false)).ok()); });
    disk.waitForCommit();
    std::vector<Group::Ticket> tickets;
    std::vector<std::thread> others;
    for (int step = 2; step <= 20; ++step) tickets.push_back(group.submit(step, false));
    for (const Group::Ticket& ticket : tickets) others.emplace_back([&] { EXPECT_TRUE(group.wait(ticket).ok()); });
    disk.release(false);
    first.join();
    for (std::thread& thread : others) thread.join();
    std::vector<int> rest(19);
    std::iota(rest.begin(), rest.end(), 2);
    EXPECT_EQ(disk.commits(), (Commits{{1}, rest}));
}

TEST(GroupCommit, FailsWhatWasSubmittedInIgnoranceOfAFailure) {
    Disk disk;
    Group group([&](std::vector<int>& steps) { return disk.commit(steps); });
    ASSERT_TRUE(group.wait(group.submit(1, false)).ok());
    disk.hold();
    std::thread first([&] { EXPECT_EQ(group.wait(group.submit(2, false)).status, QUORL_IO_FAILED); });
    disk.waitForCommit();
    const Group::Ticket during = group.submit(3, false);
    disk.release(true);
    first.join();
    EXPECT_EQ(group.wait(during).text, "full");
    EXPECT_EQ(group.wait(group.submit(4, false)).text, "full");
    EXPECT_EQ(group.flush().status, QUORL_OK);
    const Group::Ticket knowing = group.submit(5, true);
    EXPECT_TRUE(group.wait(group.submit(6, false)).ok());
    EXPECT_TRUE(group.wait(knowing).ok());
    EXPECT_EQ(disk.commits(), (Commits{{1}, {5, 6}}));
}

TEST(GroupCommit, FlushesWhatNobodyWaitsFor) {
    Disk disk;
    Group group([&](std::vector<int>& steps) { return disk.commit(steps); });
    EXPECT_TRUE(group.flush().ok());
    EXPECT_TRUE(disk.commits().empty());
    const Group::Ticket one = group.submit(1, false);
    group.submit(2, false);
    EXPECT_TRUE(group.flush().ok());
    EXPECT_TRUE(group.wait(one).ok());
    EXPECT_EQ(disk.commits(), (Commits{{1, 2}}));
    disk.hold();
    std::thread led([&] { EXPECT_TRUE(group.wait(group.submit(3, false)).ok()); });
    disk.waitForCommit();
    std::thread flushing([&] { EXPECT_TRUE(group.flush().ok()); });
    disk.release(false);
    led.join();
    flushing.join();
    EXPECT_EQ(disk.commits().size(), 2u);
}

TEST(GroupCommit, KeepsTheOrderOfEachThread) {
    constexpr int threads = 8;
    constexpr int each = 500;
    std::vector<int> last(threads, 0);
    size_t count = 0;
    Group group([&](std::vector<int>& steps) {
        for (const int step : steps) {
            EXPECT_EQ(++last[static_cast<size_t>(step / 10'000)], step % 10'000);
            ++count;
        }
        return Outcome{};
    });
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread) {
        running.emplace_back([&, thread] {
            for (int i = 1; i <= each; ++i) {
                const Group::Ticket ticket = group.submit(thread * 10'000 + i, false);
                const bool durable = i % 3 == 0 || group.wait(ticket).ok();
                EXPECT_TRUE(durable);
            }
        });
    }
    for (std::thread& thread : running) thread.join();
    EXPECT_TRUE(group.flush().ok());
    EXPECT_EQ(count, size_t{threads * each});
}

}  // namespace
}  // namespace quorl::certified
