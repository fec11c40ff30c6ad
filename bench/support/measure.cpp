// Clock, medians, turns and output of the benchmarks.
#include "support/measure.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>

#include "support/child.h"

namespace bench {
namespace {

double setting(const char* name, double otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::atof(value) : otherwise;
}

// Processor time in seconds: of all processes, and of this one with those that it has forked.
struct ProcessorTime {
    double all = 0;
    double own = 0;
    int64_t at = nowNs();

    ProcessorTime() {
        std::ifstream file("/proc/stat");
        std::string word;
        double user = 0, nice = 0, system = 0, idle = 0, wait = 0, irq = 0, softIrq = 0, steal = 0;
        file >> word >> user >> nice >> system >> idle >> wait >> irq >> softIrq >> steal;
        all = (user + nice + system + irq + softIrq + steal) / static_cast<double>(sysconf(_SC_CLK_TCK));
        auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
            rusage usage{};
            getrusage(who, &usage);
            own += seconds(usage.ru_utime) + seconds(usage.ru_stime);
        }
        own += Child::processorSeconds();
    }
};

// The part of the machine that others took between the two.
double foreignShare(const ProcessorTime& before, const ProcessorTime& after) {
    double elapsed = static_cast<double>(after.at - before.at) / 1e9;
    double foreign = (after.all - before.all) - (after.own - before.own);
    return std::max(0.0, foreign / (elapsed * static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN))));
}

struct Run {
    std::vector<double> figures;
    double disturbed = 1;
};

Run leastDisturbed(const Contender& contender) {
    constexpr double kQuiet = 0.2;
    constexpr int kTries = 3;
    Run best;
    for (int i = 0; i < kTries; ++i) {
        ProcessorTime before;
        std::vector<double> figures = contender.run();
        double disturbed = foreignShare(before, ProcessorTime());
        if (best.figures.empty() || disturbed < best.disturbed) best = {figures, disturbed};
        if (best.disturbed <= kQuiet) break;
    }
    return best;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

}  // namespace

int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int64_t threadNs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double percentile(std::vector<int64_t>& values, double part) {
    if (values.empty()) return 0;
    size_t place = std::min(values.size() - 1, static_cast<size_t>(part * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(place), values.end());
    return static_cast<double>(values[place]);
}

double runSeconds() {
    static const double seconds = setting("BENCH_SECONDS", 0.6);
    return seconds;
}

size_t rounds() {
    static const auto count = static_cast<size_t>(std::max(5.0, setting("BENCH_ROUNDS", 5)));
    return count;
}

void fail(const std::string& why) {
    std::fflush(stdout);
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    // Other threads may be in the middle of a run: no destructors.
    std::_Exit(1);
}

void report(const std::string& caseName, const Metric& metric, double ours, const std::string& peer, double theirs) {
    std::string ratio = "-";
    if (!peer.empty() && ours > 0 && theirs > 0) {
        ratio = number(metric.better == Better::higher ? ours / theirs : theirs / ours);
    }
    std::printf("%s\t%s\t%s\t%s\t%s\t%s\n", caseName.c_str(), metric.name.c_str(), number(ours).c_str(),
                peer.empty() ? "-" : peer.c_str(), peer.empty() ? "-" : number(theirs).c_str(), ratio.c_str());
    std::fflush(stdout);
}

void compare(const std::string& caseName, const std::vector<Metric>& metrics, const Contender& ours,
             const std::vector<Contender>& peers) {
    std::vector<const Contender*> turn = {&ours};
    for (const Contender& peer : peers) turn.push_back(&peer);
    // figures[contender][metric]: one for each round
    std::vector<std::vector<std::vector<double>>> figures(turn.size(),
                                                          std::vector<std::vector<double>>(metrics.size()));
    double worst = 0;
    for (size_t round = 0; round < rounds(); ++round) {
        for (size_t i = 0; i < turn.size(); ++i) {
            // Every other round backwards, so that no one always runs after the same one.
            size_t who = round % 2 == 0 ? i : turn.size() - 1 - i;
            Run run = leastDisturbed(*turn[who]);
            if (run.figures.size() != metrics.size()) fail(turn[who]->name + ": a run without all its figures");
            worst = std::max(worst, run.disturbed);
            for (size_t m = 0; m < metrics.size(); ++m) figures[who][m].push_back(run.figures[m]);
        }
    }
    std::fprintf(stderr, "%s: other processes took up to %.0f %% of the machine during a run\n", caseName.c_str(),
                 worst * 100);
    for (size_t m = 0; m < metrics.size(); ++m) {
        if (peers.empty()) report(caseName, metrics[m], median(figures[0][m]));
        for (size_t p = 0; p < peers.size(); ++p) {
            report(caseName, metrics[m], median(figures[0][m]), peers[p].name, median(figures[p + 1][m]));
        }
    }
}

OneProcessor::OneProcessor() : before_(sizeof(cpu_set_t)) {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) fail("sched_getaffinity failed");
    std::memcpy(before_.data(), &set, sizeof set);
    int first = 0;
    while (!CPU_ISSET(first, &set)) ++first;
    CPU_ZERO(&set);
    CPU_SET(first, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) fail("sched_setaffinity failed");
}

OneProcessor::~OneProcessor() {
    cpu_set_t set;
    std::memcpy(&set, before_.data(), sizeof set);
    sched_setaffinity(0, sizeof set, &set);
}

}  // namespace bench
