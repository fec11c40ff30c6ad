// The set of numbers and the table of slots, against plain ones.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>

#include "certified/protocol/ranges.h"
#include "certified/protocol/slots.h"
#include "certified/protocol/timers.h"

namespace quorl::certified {
namespace {

// A small generator: the same numbers everywhere.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed * 2 + 1) {}
    uint64_t below(uint64_t end) {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return (state_ >> 33) % end;
    }

  private:
    uint64_t state_;
};

TEST(CertifiedNumberSet, is_the_set_that_a_plain_one_is) {
    for (uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        const uint64_t start = random.below(5);
        NumberSet set(start);
        std::set<uint64_t> plain;
        for (uint64_t number = 1; number <= start; ++number) plain.insert(number);
        for (int i = 0; i < 40; ++i) {
            const uint64_t first = 1 + random.below(80);
            const uint64_t last = first + random.below(random.below(3) == 0 ? 20 : 3);
            uint64_t previous = 0;
            set.add({first, last}, [&](Range fresh) {
                EXPECT_GT(fresh.first, previous);
                previous = fresh.last;
                for (uint64_t number = fresh.first; number <= fresh.last; ++number)
                    EXPECT_TRUE(plain.insert(number).second) << number;
            });
            for (uint64_t number = first; number <= last; ++number) EXPECT_TRUE(plain.contains(number));
            uint64_t upTo = 0;
            while (plain.contains(upTo + 1)) ++upTo;
            ASSERT_EQ(set.upTo(), upTo);
            EXPECT_EQ(set.beyond(), plain.size() - upTo);
            EXPECT_EQ(set.highest(), plain.empty() ? 0 : *plain.rbegin());
            for (uint64_t number = 1; number < 110; ++number) {
                EXPECT_EQ(set.contains(number), plain.contains(number)) << number;
                if (!set.contains(number)) continue;
                uint64_t behind = number;
                while (plain.contains(behind)) ++behind;
                EXPECT_EQ(set.behind(number), behind);
            }
        }
    }
}

TEST(CertifiedNumberSet, takes_the_highest_numbers) {
    NumberSet set(5);
    set.add({UINT64_MAX - 1, UINT64_MAX - 1});
    EXPECT_TRUE(set.contains(UINT64_MAX - 1));
    set.add({6, UINT64_MAX - 2});
    EXPECT_EQ(set.upTo(), UINT64_MAX - 1);
    EXPECT_EQ(set.beyond(), 0u);
}

TEST(CertifiedSlots, keep_what_a_map_keeps) {
    for (uint64_t seed = 0; seed < 200; ++seed) {
        Random random(seed);
        Slots<uint64_t> slots;
        std::map<uint64_t, uint64_t> plain;
        uint64_t next = 1 + random.below(1000);
        for (int i = 0; i < 200; ++i) {
            if (random.below(3) != 0) {
                next += 1 + (random.below(10) == 0 ? random.below(100) : 0);
                slots.take(next) = next * 3;
                plain[next] = next * 3;
            } else if (!plain.empty()) {
                auto at = plain.begin();
                std::advance(at, random.below(plain.size()));
                slots.release(at->first);
                plain.erase(at);
            }
            ASSERT_EQ(slots.count(), plain.size());
            const uint64_t from = random.below(next + 2);
            const auto expected = plain.lower_bound(from);
            EXPECT_EQ(slots.nextTaken(from), expected == plain.end() ? 0 : expected->first);
        }
        for (uint64_t number = 0; number <= next; ++number) {
            const auto found = plain.find(number);
            const uint64_t* slot = slots.find(number);
            ASSERT_EQ(slot != nullptr, found != plain.end()) << number;
            if (slot != nullptr) {
                EXPECT_EQ(*slot, found->second);
            }
        }
        while (!plain.empty()) {
            slots.release(plain.begin()->first);
            plain.erase(plain.begin());
        }
        EXPECT_EQ(slots.memory(), 0u);
    }
}

TEST(CertifiedTimers, come_in_the_order_of_their_times) {
    Timers timers;
    Random random(1);
    for (int i = 0; i < 1000; ++i) timers.set(static_cast<int64_t>(random.below(500)), 1, 2);
    int64_t last = -1;
    Timers::Timer timer;
    while (timers.take(250, &timer)) {
        EXPECT_GE(timer.at, last);
        last = timer.at;
    }
    EXPECT_GT(timers.due(), 250);
}

}  // namespace
}  // namespace quorl::certified
