// The cost of a match against few and many patterns, with random subjects, so that nearly every step is a cache miss
// when there are many.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "subject/trie.h"

namespace {

constexpr size_t kSubjects = 1 << 16;

// Subjects of four elements, drawn from 10 * 20 * 50 * 100: with 100,000 patterns of the same shape a subject matches
// about one.
std::string element(char kind, uint64_t number) {
    return kind + std::to_string(number);
}

// As large as a listener's record, and touched when it is found.
struct alignas(64) Subscription {
    uint64_t found = 0;
    std::string pattern;
    char more[320];
};

struct Fixture {
    std::vector<Subscription> subscriptions;
    std::vector<std::string> subjects;
    quorl::subject::Trie<Subscription> trie;

    Fixture(size_t count, bool heard) : subscriptions(count) {
        std::mt19937_64 random(1);
        auto below = [&](uint64_t bound) { return random() % bound; };
        auto parts = [&] {
            return std::vector<std::string>{element('s', below(10)), element('l', below(20)), element('u', below(50)),
                                            element('p', below(100))};
        };
        auto join = [](const std::vector<std::string>& list) {
            return list[0] + "." + list[1] + "." + list[2] + "." + list[3];
        };
        for (size_t i = 0; i < count; ++i) {
            auto list = parts();
            if (i % 10 == 0) list[1 + below(3)] = std::string("*");
            subscriptions[i].pattern = join(list);
        }
        for (size_t i = 0; i < kSubjects; ++i) {
            subjects.push_back(heard ? subscriptions[below(count)].pattern : join(parts()));
            if (heard) std::replace(subjects.back().begin(), subjects.back().end(), '*', 'x');
        }
        for (Subscription& s : subscriptions) trie.insert(s.pattern, &s);
    }
};

void match(benchmark::State& state) {
    Fixture fixture(static_cast<size_t>(state.range(0)), state.range(1) != 0);
    size_t next = 0;
    size_t found = 0;
    for (auto _ : state) {
        // A publisher has its subject at hand: that it is far away here is not the trie's cost.
        __builtin_prefetch(&fixture.subjects[(next + 16) % kSubjects]);
        __builtin_prefetch(fixture.subjects[(next + 8) % kSubjects].data());
        fixture.trie.match(fixture.subjects[next++ % kSubjects], [&](Subscription* s) {
            ++s->found;
            ++found;
        });
    }
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}
// The number of subscriptions, and whether the subjects are drawn from them.
BENCHMARK(match)->ArgsProduct({{1, 100, 10'000, 100'000, 1'000'000}, {0, 1}});

void insertAndRemove(benchmark::State& state) {
    Fixture fixture(static_cast<size_t>(state.range(0)), false);
    Subscription value;
    size_t next = 0;
    for (auto _ : state) {
        const std::string& subject = fixture.subjects[next++ % kSubjects];
        fixture.trie.insert(subject, &value);
        fixture.trie.remove(subject, &value);
    }
}
BENCHMARK(insertAndRemove)->Arg(100)->Arg(100'000);

}  // namespace

BENCHMARK_MAIN();
