// What many transactions come to, beside the same transactions carried out one by one.
#include "certified/ledger/net_effect.h"

#include <random>

#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

TEST(NetEffect, IsWhatTheTransactionsDoOneByOne) {
    std::mt19937_64 dice(7);
    for (int round = 0; round < 300; ++round) {
        // Of each number: which put was the last, 0 for none; all are there before.
        std::map<uint64_t, uint64_t> plain;
        for (uint64_t number = 0; number < 30; ++number) plain[number] = 1000;
        std::map<uint64_t, uint64_t> before = plain;
        NetEffect effect;
        for (uint64_t step = 1; step <= 60; ++step) {
            const uint64_t first = dice() % 30;
            if (dice() % 2 == 0) {
                Write write;
                write.kind = Write::Kind::putMessage;
                write.subject = 3;
                write.number = first;
                effect.add(std::move(write), step);
                plain[first] = step;
                continue;
            }
            const uint64_t last = dice() % 4 == 0 ? UINT64_MAX : first + dice() % 4;
            effect.add(erase(3, first, last), 0);
            for (uint64_t number = first; number < 30 && number <= last; ++number) plain[number] = 0;
        }
        for (uint64_t number = 0; number < 30; ++number) {
            bool erased = false;
            const NetEffect::Put* put = effect.find(3, number, &erased);
            const uint64_t found = put != nullptr ? put->sum : erased ? 0 : before[number];
            ASSERT_EQ(found, plain[number]) << round << " " << number;
        }
        // The ranges lie apart, in their order.
        uint64_t end = 0;
        bool begun = false;
        for (const auto& [first, last] : effect.subjects().begin()->second.erased) {
            EXPECT_LE(first, last);
            EXPECT_TRUE(!begun || first > end + 1);
            begun = true;
            end = last;
        }
    }
}

}  // namespace
}  // namespace quorl::certified
