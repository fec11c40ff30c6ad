// The contenders of the case dqueue: how each of them works, and how it submits.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace bench::dqueue {

constexpr int workers = 4;
constexpr uint64_t window = 8192;  // tasks that are submitted and not done
constexpr size_t size = 256;       // bytes of a task's payload

// Shared by the processes of a run.
struct Run {
    std::atomic<int> ready{0};                // workers
    std::atomic<uint64_t> done[workers + 1];  // by each of them, the last place for one that comes later
    std::atomic<uint64_t> acknowledged{0};    // that the submitting side knows to be done
    double rate = 0;                          // what the submitting side has found

    uint64_t all() const {
        uint64_t sum = 0;
        for (const auto& each : done) sum += each.load(std::memory_order_relaxed);
        return sum;
    }
};

struct Side {
    const char* name;
    // Before anybody else, in a process of its own; may be null.
    void (*prepare)(const std::string& url);
    // Works until it is killed.
    void (*work)(Run& run, int worker, const std::string& url);
    // Submits for as long as a run takes, and waits until all is done: tasks a second.
    double (*submit)(Run& run, const std::string& url);
};

extern const Side quorlSide;
extern const Side natsGroupSide;  // a queue group, each task acknowledged by a message to its reply subject
extern const Side jetStreamSide;  // a stream that is a work queue, pulled from in batches, each task acknowledged

// Shared by the processes of a change of schedulers.
struct TakeOver {
    std::atomic<bool> scheduled{false};  // the first one is there
    std::atomic<bool> settled{false};    // a task has come through it
    std::atomic<int64_t> killed{0};      // when it was gone
    double seconds = 0;                  // from then on until the next task was done
};

// The first scheduler, which takes no tasks; until it is killed.
void schedule(TakeOver& run, const std::string& url, double activation);
// The next one, which does the tasks, and sends them.
void takeOver(TakeOver& run, const std::string& url, double activation);

}  // namespace bench::dqueue
