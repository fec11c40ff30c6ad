// The heap against a sorted list.
#include "protocol/due_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace quorl::protocol {
namespace {

struct Item {
    int64_t heapDue = 0;
    size_t heapPlace = DueHeap<Item>::nowhere;
};

TEST(DueHeap, gives_the_earliest_after_any_changes) {
    std::mt19937_64 random(7);
    std::array<Item, 200> items;
    DueHeap<Item> heap;
    heap.reserve(items.size());
    for (int round = 0; round < 20'000; ++round) {
        Item& item = items[random() % items.size()];
        if (random() % 3 == 0) {
            heap.remove(item);
        } else {
            heap.set(item, static_cast<int64_t>(random() % 1000));
        }
        int64_t earliest = INT64_MAX;
        size_t inside = 0;
        for (const Item& each : items) {
            if (each.heapPlace == DueHeap<Item>::nowhere) continue;
            ++inside;
            earliest = std::min(earliest, each.heapDue);
        }
        ASSERT_EQ(heap.size(), inside);
        ASSERT_EQ(heap.empty() ? INT64_MAX : heap.first()->heapDue, earliest);
    }
}

TEST(DueHeap, empties_in_order) {
    std::mt19937_64 random(8);
    std::array<Item, 500> items;
    DueHeap<Item> heap;
    heap.reserve(items.size());
    for (Item& item : items) heap.set(item, static_cast<int64_t>(random() % 100));
    int64_t last = 0;
    while (!heap.empty()) {
        Item& first = *heap.first();
        EXPECT_GE(first.heapDue, last);
        last = first.heapDue;
        heap.remove(first);
        heap.remove(first);  // without effect
    }
}

}  // namespace
}  // namespace quorl::protocol
