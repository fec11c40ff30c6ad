#include "event/segmented_queue.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <thread>

namespace quorl::event {
namespace {

Entry entryOf(uint32_t number) {
    return {number, number * 3, nullptr};
}

void append(SegmentedQueue& entries, uint32_t number) {
    ASSERT_TRUE(entries.reserve());
    entries.append<std::memory_order_release>(entryOf(number));
}

class SegmentedQueueTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(entries.prepare()); }
    SegmentedQueue entries;
};

TEST_F(SegmentedQueueTest, givesInTheOrderOfArrivalAcrossChunks) {
    for (uint32_t i = 1; i <= 1000; ++i) append(entries, i);
    EXPECT_EQ(entries.end() - entries.begin(), 1000u);
    Entry entry;
    for (uint32_t i = 1; i <= 1000; ++i) {
        ASSERT_TRUE(entries.take(&entry));
        ASSERT_EQ(entry.event, i);
        ASSERT_EQ(entry.tag, i * 3);
    }
    EXPECT_FALSE(entries.take(&entry));
    EXPECT_FALSE(entries.takeLast(&entry));
}

// Every operation in random order, against a list.
TEST_F(SegmentedQueueTest, agreesWithAList) {
    std::mt19937 random(11);
    std::deque<uint32_t> model;
    uint32_t number = 0;
    Entry entry;
    for (int step = 0; step < 200'000; ++step) {
        switch (random() % 16) {
            case 0: {
                const uint32_t kept = 1 + random() % 4;
                entries.filter([kept](const Entry& each) { return each.event % kept == 0; });
                std::erase_if(model, [kept](uint32_t each) { return each % kept != 0; });
                break;
            }
            case 1:
                for (int i = 0; i < 300; ++i) {
                    append(entries, ++number);
                    model.push_back(number);
                }
                break;
            case 2:
            case 3:
            case 4:
                ASSERT_EQ(entries.takeLast(&entry), !model.empty());
                if (model.empty()) break;
                ASSERT_EQ(entry.event, model.back());
                model.pop_back();
                break;
            case 5:
            case 6:
            case 7:
            case 8:
                append(entries, ++number);
                model.push_back(number);
                break;
            default:
                for (int i = 0; i < 6; ++i) {
                    ASSERT_EQ(entries.take(&entry), !model.empty());
                    if (model.empty()) break;
                    ASSERT_EQ(entry.event, model.front());
                    model.pop_front();
                }
        }
        ASSERT_EQ(entries.backCount() - entries.begin(), model.size());
        ASSERT_EQ(entries.end(), entries.backCount());
    }
}

TEST_F(SegmentedQueueTest, showsWhatIsAhead) {
    for (uint32_t i = 1; i <= 600; ++i) append(entries, i);
    std::vector<uint32_t> seen;
    entries.forEach(500, [&](Entry& each) {
        seen.push_back(each.event);
        if (each.event % 2 == 0) each = Entry{};
        return each.event != 399;
    });
    ASSERT_EQ(seen.size(), 399u);
    for (uint32_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i], i + 1);
    Entry entry;
    ASSERT_TRUE(entries.take(&entry));
    EXPECT_EQ(entry.event, 1u);
    ASSERT_TRUE(entries.take(&entry));
    EXPECT_EQ(entry.event, 0u);
}

// One thread behind the back lock, one behind the front lock: neither needs the other's.
TEST_F(SegmentedQueueTest, isWrittenAndReadAtOnce) {
    constexpr uint32_t count = 300'000;
    std::thread writer([&] {
        for (uint32_t i = 1; i <= count; ++i) append(entries, i);
    });
    Entry entry;
    for (uint32_t next = 1; next <= count;) {
        if (!entries.take(&entry)) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(entry.event, next++);
    }
    writer.join();
}

}  // namespace
}  // namespace quorl::event
