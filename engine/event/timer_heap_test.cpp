#include "event/timer_heap.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace quorl::event {
namespace {

std::vector<int64_t> drained(TimerHeap& heap) {
    std::vector<int64_t> order;
    for (; !heap.empty(); heap.removeFirst()) order.push_back(heap.first().due);
    return order;
}

TEST(TimerHeap, givesTheEarliestFirst) {
    TimerHeap heap;
    heap.reserve(5);
    for (const int64_t due : {5, 1, 4, 1, 3}) heap.add({due, 7, 0});
    EXPECT_EQ(heap.size(), 5u);
    EXPECT_EQ(drained(heap), (std::vector<int64_t>{1, 1, 3, 4, 5}));
}

TEST(TimerHeap, keepsWhatItIsToldTo) {
    TimerHeap heap;
    heap.reserve(100);
    for (uint32_t i = 0; i < 100; ++i) heap.add({(i * 37) % 100, i, i % 3});
    heap.sweep([](const TimerHeap::Item& item) { return item.turn == 1; });
    EXPECT_EQ(heap.size(), 33u);
    int64_t before = -1;
    for (; !heap.empty(); heap.removeFirst()) {
        EXPECT_GE(heap.first().due, before);
        EXPECT_EQ(heap.first().turn, 1u);
        before = heap.first().due;
    }
    heap.sweep([](const TimerHeap::Item&) { return true; });
    EXPECT_TRUE(heap.empty());
}

TEST(TimerHeap, agreesWithAnOrderedMap) {
    std::mt19937 random(5);
    TimerHeap heap;
    std::multimap<int64_t, uint32_t> model;
    for (uint32_t step = 0; step < 20000; ++step) {
        if (random() % 5 < 3 || model.empty()) {
            const auto due = static_cast<int64_t>(random() % 1000);
            heap.reserve(1);
            heap.add({due, step, 0});
            model.emplace(due, step);
        } else {
            ASSERT_EQ(heap.first().due, model.begin()->first);
            const uint32_t id = heap.first().id;
            const auto [from, to] = model.equal_range(heap.first().due);
            const auto found = std::find_if(from, to, [id](const auto& each) { return each.second == id; });
            ASSERT_NE(found, to);
            model.erase(found);
            heap.removeFirst();
        }
        if (step % 5000 == 4999) {
            heap.sweep([](const TimerHeap::Item& item) { return item.id % 2 == 0; });
            std::erase_if(model, [](const auto& each) { return each.second % 2 != 0; });
        }
        ASSERT_EQ(heap.size(), model.size());
    }
}

}  // namespace
}  // namespace quorl::event
