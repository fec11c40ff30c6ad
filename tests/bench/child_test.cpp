// The processes of a benchmark: whichever of them dies or hangs is named, and nobody waits for what cannot come any more.
#include "support/child.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "network/processes.h"

namespace bench {
namespace {

using testing::ExitedWithCode;

[[noreturn]] void never() {
    for (;;) pause();
}

[[noreturn]] void crash() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::abort();
}

bool lives(pid_t process) {
    return kill(process, 0) == 0;
}

TEST(BenchmarkProcesses, end_when_their_bodies_return) {
    const Shared<std::atomic<int>> sum;
    Child one("one", [&] { *sum += 1; });
    Child other("another", [&] { *sum += 2; });
    one.await();
    other.await();
    other.await();
    EXPECT_EQ(*sum, 3);
}

TEST(BenchmarkProcesses, are_gone_with_their_objects) {
    pid_t process = 0;
    {
        const Child child("one that stays", never);
        process = child.id();
        EXPECT_TRUE(lives(process));
    }
    EXPECT_FALSE(lives(process));
}

TEST(BenchmarkProcesses, are_named_when_they_crash_while_another_is_waited_for) {
    const auto run = [] {
        Child worker("worker 3", crash);
        Child sender("the sender", never);
        sender.await();
    };
    EXPECT_EXIT(run(), ExitedWithCode(1), "bench: worker 3 was ended by signal 6 \\(SIGABRT\\)");
}

TEST(BenchmarkProcesses, are_named_when_they_fail_while_something_is_waited_for) {
    const auto run = [] {
        Child worker("worker 3", [] { fail("no transport"); });
        Child::until("it is ready", [] { return false; });
    };
    EXPECT_EXIT(run(), ExitedWithCode(1), "bench: no transport\nbench: worker 3 ended with status 1");
}

TEST(BenchmarkProcesses, that_are_to_stay_may_not_end) {
    const auto run = [] {
        Child server(
            "the server", [] {}, Child::Ends::whenKilled);
        Child sender("the sender", never);
        sender.await();
    };
    EXPECT_EXIT(run(), ExitedWithCode(1), "bench: the server ended with status 0");
}

// ---- runs of two clients, whose sides wait for each other in memory that they share

using network::Run;
using network::Side;

void ready(Run& run, size_t, const std::string&) {
    run.ready = true;
    never();
}
double publishForEver(Run&, size_t, const std::string&) {
    never();
}
void crashWhenReady(Run& run, size_t, const std::string&) {
    run.ready = true;
    crash();
}
double crashAtOnce(Run&, size_t, const std::string&) {
    crash();
}
std::vector<double> askForEver(Run&, size_t, const std::string&) {
    never();
}

TEST(BenchmarkRuns, end_when_either_side_crashes) {
    const Side subscriber{"a.library", crashWhenReady, publishForEver, nullptr, nullptr};
    EXPECT_EXIT(network::stream(subscriber, 16, ""), ExitedWithCode(1), "a.library's subscriber was ended by signal 6");
    const Side publisher{"a.library", ready, crashAtOnce, nullptr, nullptr};
    EXPECT_EXIT(network::stream(publisher, 16, ""), ExitedWithCode(1), "a.library's publisher was ended by signal 6");
    const Side answerer{"a.library", nullptr, nullptr, crashWhenReady, askForEver};
    EXPECT_EXIT(network::roundTrips(answerer, 16, ""), ExitedWithCode(1), "a.library's answerer was ended by signal 6");
}

}  // namespace
}  // namespace bench
