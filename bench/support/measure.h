// How a case measures: contenders in turn, the medians of their runs, one tab-separated line for each figure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

int64_t nowNs();  // monotonic
// Processor time of the calling thread: what cases with one thread are measured by, since it leaves out the time that other
// processes took. A system call.
int64_t threadNs();

double median(std::vector<double> values);
// The value below which the given part of values lies; reorders them. 0 when there are none.
double percentile(std::vector<int64_t>& values, double part);

// Settings, from the environment: seconds of one run (BENCH_SECONDS, 0.6), and how many runs each contender has
// (BENCH_ROUNDS, 5, and never fewer).
double runSeconds();
size_t rounds();

// Prints a failure and ends the program with status 1: a run whose messages were lost or damaged has no figures.
[[noreturn]] void fail(const std::string& why);

enum class Better { higher, lower };

struct Metric {
    std::string name;
    Better better;
};

// One run gives a figure for each metric, in their order.
struct Contender {
    std::string name;
    std::function<std::vector<double>()> run;
};

// Lets ours and the peers run in turn, each as often as rounds() says, and prints a line for each metric and peer:
// case, metric, our median, the peer's name, its median, the ratio (above 1: we are ahead). A run during which other
// processes took more than a fifth of the machine is repeated, up to twice; the least disturbed of the tries counts.
// How disturbed the worst of them was goes to standard error.
void compare(const std::string& caseName, const std::vector<Metric>& metrics, const Contender& ours,
             const std::vector<Contender>& peers);

// Prints one line; a peer that is empty stands for a figure without one.
void report(const std::string& caseName, const Metric& metric, double ours, const std::string& peer = "",
            double theirs = 0);

// While it lives, this thread, and those started meanwhile, run on the first processor that the process may use.
class OneProcessor {
  public:
    OneProcessor();
    ~OneProcessor();
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    std::vector<unsigned char> before_;  // a cpu_set_t
};

}  // namespace bench
