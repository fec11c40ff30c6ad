// Tests of the matching trie, most of them against the plain matcher with random patterns and subjects.
#include "subject/trie.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "subject/subject.h"

namespace quorl::subject {
namespace {

struct Subscription {
    std::string pattern;
    int number = 0;
};

std::vector<int> matchesOf(const Trie<Subscription>& trie, std::string_view subject) {
    std::vector<int> numbers;
    trie.match(subject, [&](Subscription* found) { numbers.push_back(found->number); });
    return numbers;
}

std::vector<int> sorted(std::vector<int> numbers) {
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// The seed of this run: QUORL_TEST_SEED, or a new one, printed so that a failure can be played again.
uint64_t testSeed() {
    const char* given = std::getenv("QUORL_TEST_SEED");
    uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
    std::cout << "QUORL_TEST_SEED=" << seed << std::endl;
    testing::Test::RecordProperty("QUORL_TEST_SEED", std::to_string(seed));
    return seed;
}

// Few elements, so that patterns share prefixes and match often; some as long as a node holds within itself, and
// longer.
class RandomText {
  public:
    explicit RandomText(uint64_t seed) : random_(seed) {}

    size_t below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random_); }

    std::string subject() {
        std::string text = element();
        for (size_t more = below(5); more != 0; --more) text += "." + element();
        return text;
    }

    std::string pattern() {
        std::string text;
        size_t elements = 1 + below(5);
        for (size_t i = 0; i < elements; ++i) {
            if (i != 0) text += ".";
            size_t kind = below(10);
            if (kind == 0 && i + 1 == elements) {
                text += ">";
            } else {
                text += kind < 3 ? "*" : element();
            }
        }
        return text;
    }

  private:
    std::string element() {
        static const std::vector<std::string> elements = {"a",
                                                          "b",
                                                          "c",
                                                          "d",
                                                          "ab",
                                                          "abc",
                                                          "abcdefgh",
                                                          "größe",
                                                          "exactly-twenty-four-byte",
                                                          "_x",
                                                          "a-text-that-is-longer-than-what-fits-into-a-node"};
        return elements[below(elements.size())];
    }

    std::mt19937_64 random_;
};

TEST(Trie, IsEmptyAtFirst) {
    Trie<Subscription> trie;
    EXPECT_TRUE(trie.empty());
    EXPECT_EQ(trie.nodeCount(), 0u);
    EXPECT_EQ(matchesOf(trie, "a.b"), std::vector<int>());
    EXPECT_FALSE(trie.contains("a"));
    EXPECT_FALSE(trie.contains("*"));
    Subscription absent;
    EXPECT_FALSE(trie.remove("a", &absent));
    EXPECT_FALSE(trie.remove("a.>", &absent));
}

TEST(Trie, FindsEachKindOfPattern) {
    std::vector<Subscription> subscriptions = {{"a.b", 1}, {"a.*", 2}, {"*.b", 3}, {"a.>", 4},
                                               {">", 5},   {"*", 6},   {"a", 7},   {"a.b.>", 8}};
    Trie<Subscription> trie;
    for (Subscription& s : subscriptions) EXPECT_TRUE(trie.insert(s.pattern, &s));
    EXPECT_EQ(sorted(matchesOf(trie, "a.b")), (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(sorted(matchesOf(trie, "a")), (std::vector<int>{5, 6, 7}));
    EXPECT_EQ(sorted(matchesOf(trie, "a.b.c")), (std::vector<int>{4, 5, 8}));
    EXPECT_EQ(sorted(matchesOf(trie, "x.y")), (std::vector<int>{5}));
    for (Subscription& s : subscriptions) EXPECT_TRUE(trie.contains(s.pattern)) << s.pattern;
    EXPECT_FALSE(trie.contains("a.b.c"));
    EXPECT_FALSE(trie.contains("*.*"));
    EXPECT_FALSE(trie.contains("a.b.*"));
}

TEST(Trie, KeepsValuesOfAPatternInOrder) {
    for (const char* pattern : {"a.b", "a.*"}) {
        std::vector<Subscription> subscriptions(5);
        Trie<Subscription> trie;
        for (int i = 0; i < 5; ++i) {
            subscriptions[static_cast<size_t>(i)].number = i;
            EXPECT_EQ(trie.insert(pattern, &subscriptions[static_cast<size_t>(i)]), i == 0);
        }
        trie.insert(pattern, &subscriptions[2]);
        EXPECT_EQ(matchesOf(trie, "a.b"), (std::vector<int>{0, 1, 2, 3, 4, 2}));
        EXPECT_EQ(trie.size(), 6u);
        EXPECT_TRUE(trie.remove(pattern, &subscriptions[2]));
        EXPECT_EQ(matchesOf(trie, "a.b"), (std::vector<int>{0, 1, 3, 4, 2}));
        EXPECT_TRUE(trie.remove(pattern, &subscriptions[0]));
        EXPECT_EQ(matchesOf(trie, "a.b"), (std::vector<int>{1, 3, 4, 2}));
        EXPECT_FALSE(trie.remove(pattern, &subscriptions[0]));
        for (size_t i : {1u, 2u, 3u, 4u}) EXPECT_TRUE(trie.remove(pattern, &subscriptions[i]));
        EXPECT_FALSE(trie.contains(pattern));
        EXPECT_TRUE(trie.empty());
    }
}

TEST(Trie, FreesNodesThatHoldNothing) {
    Trie<Subscription> trie;
    Subscription s;
    trie.insert("a.*.c.>", &s);
    EXPECT_EQ(trie.nodeCount(), 4u);
    trie.insert("a.*", &s);
    EXPECT_EQ(trie.nodeCount(), 4u);
    trie.insert("a.*.x", &s);
    trie.insert("a.b.c.d", &s);
    EXPECT_EQ(trie.nodeCount(), 6u);
    EXPECT_TRUE(trie.remove("a.*.c.>", &s));
    EXPECT_EQ(trie.nodeCount(), 4u);
    EXPECT_TRUE(trie.remove("a.*", &s));
    EXPECT_EQ(trie.nodeCount(), 4u);
    EXPECT_FALSE(trie.remove("a.*", &s));
    EXPECT_TRUE(trie.remove("a.*.x", &s));
    EXPECT_EQ(trie.nodeCount(), 1u);
    EXPECT_TRUE(trie.remove("a.b.c.d", &s));
    EXPECT_EQ(trie.nodeCount(), 0u);
}

TEST(Trie, TakesSubjectsOfAnyDepth) {
    Subscription shallow{"*.>", 1};
    Subscription deep;
    std::string subject = "a";
    deep.pattern = "*";
    while (subject.size() < 253) {
        subject += ".a";
        deep.pattern += ".*";
    }
    deep.number = 2;
    Trie<Subscription> trie;
    trie.insert(shallow.pattern, &shallow);
    trie.insert(deep.pattern, &deep);
    EXPECT_EQ(sorted(matchesOf(trie, subject)), (std::vector<int>{1, 2}));
    EXPECT_EQ(matchesOf(trie, "a.a"), (std::vector<int>{1}));
    // What is no subject finds whatever it finds, without harm.
    for (const std::string& text : {subject + ".a.a", std::string("a..a"), std::string(254, '.'), std::string()}) {
        EXPECT_LE(matchesOf(trie, text).size(), 2u) << text;
    }
}

// Inserts and removes at random; after each step some subjects find exactly what the plain matcher says.
TEST(Trie, AgreesWithThePlainMatcher) {
    uint64_t seed = testSeed();
    RandomText text(seed);
    for (int round = 0; round < 20; ++round) {
        Trie<Subscription> trie;
        std::list<Subscription> live;
        int next = 0;
        // The number that the round tends to keep: rounds differ in size.
        size_t target = size_t{1} << (round % 10);
        for (int step = 0; step < 400; ++step) {
            if (text.below(2 * target) >= live.size()) {
                live.push_back({text.pattern(), next++});
                ASSERT_TRUE(validForListening(live.back().pattern)) << live.back().pattern;
                bool isNew = std::none_of(live.begin(), std::prev(live.end()),
                                          [&](const Subscription& s) { return s.pattern == live.back().pattern; });
                ASSERT_EQ(trie.insert(live.back().pattern, &live.back()), isNew);
            } else {
                auto chosen = std::next(live.begin(), static_cast<std::ptrdiff_t>(text.below(live.size())));
                ASSERT_TRUE(trie.remove(chosen->pattern, &*chosen));
                ASSERT_FALSE(trie.remove(chosen->pattern, &*chosen));
                live.erase(chosen);
            }
            ASSERT_EQ(trie.size(), live.size());
            for (int i = 0; i < 5; ++i) {
                std::string subject = text.subject();
                std::vector<int> expected;
                for (const Subscription& s : live) {
                    if (matches(s.pattern, subject)) expected.push_back(s.number);
                }
                ASSERT_EQ(sorted(matchesOf(trie, subject)), expected)
                    << "subject " << subject << ", step " << step << " of round " << round << ", seed " << seed;
            }
        }
        while (!live.empty()) {
            ASSERT_TRUE(trie.remove(live.front().pattern, &live.front()));
            live.pop_front();
        }
        ASSERT_EQ(trie.nodeCount(), 0u);
    }
}

TEST(Trie, HoldsManyAndGivesAllBack) {
    uint64_t seed = testSeed();
    RandomText random(seed);
    std::vector<Subscription> subscriptions(20'000);
    for (size_t i = 0; i < subscriptions.size(); ++i) {
        std::string number = std::to_string(i);
        subscriptions[i].pattern = i % 10 == 0 ? "site.*.unit" + number : "site.area.unit" + number;
        subscriptions[i].number = static_cast<int>(i);
    }
    Trie<Subscription> trie;
    for (Subscription& s : subscriptions) trie.insert(s.pattern, &s);
    for (const Subscription& s : subscriptions) {
        ASSERT_EQ(matchesOf(trie, "site.area.unit" + std::to_string(s.number)), std::vector<int>{s.number});
    }
    // Removed in random order; those that are left are found all the time.
    std::vector<Subscription*> left;
    for (Subscription& s : subscriptions) left.push_back(&s);
    while (!left.empty()) {
        std::swap(left[random.below(left.size())], left.back());
        Subscription* gone = left.back();
        left.pop_back();
        ASSERT_TRUE(trie.remove(gone->pattern, gone));
        ASSERT_EQ(matchesOf(trie, "site.area.unit" + std::to_string(gone->number)), std::vector<int>());
        if (left.empty()) break;
        const Subscription* other = left[random.below(left.size())];
        ASSERT_EQ(matchesOf(trie, "site.area.unit" + std::to_string(other->number)), std::vector<int>{other->number});
    }
    EXPECT_EQ(trie.nodeCount(), 0u);
}

}  // namespace
}  // namespace quorl::subject
