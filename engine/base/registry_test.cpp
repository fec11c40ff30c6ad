#include "base/registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "base/futex.h"
#include "base/reclaimer.h"

namespace quorl {
namespace {

// A record whose completion and destruction are counted.
struct Counted : Record {
    static constexpr uint16_t objectType = 77;
    Counted() {
        completed = [](Record& record) noexcept { raise(static_cast<Counted&>(record).completions); };
        destroy = [](Record* record) noexcept { raise(static_cast<Counted*>(record)->destructions); };
    }
    static void raise(std::atomic<uint32_t>& count) noexcept {
        count.fetch_add(1);
        futexWake(count, INT32_MAX);
    }
    static void await(std::atomic<uint32_t>& count) {
        while (count.load() == 0) futexWait(count, 0);
    }
    std::atomic<uint32_t> completions{0};
    std::atomic<uint32_t> destructions{0};
};

class Registry : public testing::Test {
  protected:
    void SetUp() override {
        thread = threadState();
        ASSERT_NE(thread, nullptr);
        ASSERT_EQ(reclaimer::start(), QUORL_OK);
        registry::begin();
    }
    void TearDown() override {
        registry::end();
        reclaimer::finish();
        EXPECT_EQ(registry::inUse(), 0u);
    }
    static uint32_t publish(Counted& record) {
        const uint32_t id = registry::reserve();
        EXPECT_NE(id, 0u);
        EXPECT_TRUE(registry::publish(record, id, Counted::objectType));
        return id;
    }
    static void closeAndRetire(uint32_t id) {
        Record* record = registry::close(id, Counted::objectType);
        ASSERT_NE(record, nullptr);
        registry::retire(*record);
    }
    bool finds(uint32_t id, uint16_t type = Counted::objectType) {
        ReadGuard guard(*thread);
        return registry::find(id, type) != nullptr;
    }
    ThreadState* thread = nullptr;
};

TEST_F(Registry, findsWhatIsOpenAndOfTheType) {
    Counted record;
    const uint32_t id = publish(record);
    EXPECT_TRUE(finds(id));
    EXPECT_FALSE(finds(id, 78));
    EXPECT_FALSE(finds(id + 1));
    EXPECT_FALSE(finds(id ^ (1u << registry::slotBits)));  // the slot's next generation
    EXPECT_FALSE(finds(0));
    EXPECT_FALSE(finds(UINT32_MAX));
    EXPECT_EQ(registry::close(id, 78), nullptr);
    closeAndRetire(id);
    EXPECT_FALSE(finds(id));
    EXPECT_EQ(registry::close(id, Counted::objectType), nullptr);
    Counted::await(record.destructions);
    EXPECT_EQ(record.completions, 1u);
}

TEST_F(Registry, usesASlotAgainUnderAnotherId) {
    const uint32_t first = registry::reserve();
    registry::abandon(first);
    uint32_t again = 0;
    for (uint32_t tries = 0; again == 0 && tries < 1u << 19; ++tries) {
        const uint32_t id = registry::reserve();
        if ((id & registry::slotMask) == (first & registry::slotMask)) again = id;
        registry::abandon(id);
    }
    ASSERT_NE(again, 0u);
    EXPECT_NE(again, first);
}

TEST_F(Registry, refusesWhenItEnds) {
    Counted record;
    registry::end();
    const uint32_t id = registry::reserve();
    EXPECT_FALSE(registry::publish(record, id, Counted::objectType));
    EXPECT_FALSE(finds(id));
    registry::abandon(id);
}

TEST_F(Registry, completesWhenTheLastPinEnds) {
    Counted record;
    const uint32_t id = publish(record);
    std::atomic<uint32_t> go{0};
    std::atomic<uint32_t> pinned{0};
    std::thread user([&] {
        registry::Pin<Counted> pin(*threadState(), id);
        EXPECT_TRUE(pin);
        Counted::raise(pinned);
        Counted::await(go);
        EXPECT_EQ(pin->completions, 0u);
    });
    Counted::await(pinned);
    closeAndRetire(id);
    {
        registry::Pin<Counted> late(*thread, id);
        EXPECT_FALSE(late);
    }
    // Another record goes all the way meanwhile, so that the reclaimer has looked at this one.
    Counted other;
    closeAndRetire(publish(other));
    Counted::await(other.destructions);
    EXPECT_EQ(record.completions, 0u);
    Counted::raise(go);
    Counted::await(record.destructions);
    EXPECT_EQ(record.completions, 1u);
    user.join();
}

TEST_F(Registry, completesWhenTheLastReferenceIsGivenBack) {
    Counted record;
    const uint32_t id = publish(record);
    {
        ReadGuard guard(*thread);
        registry::acquireReference(record);
    }
    closeAndRetire(id);
    Counted other;
    closeAndRetire(publish(other));
    Counted::await(other.destructions);
    EXPECT_EQ(record.completions, 0u);
    registry::releaseReference(record);
    Counted::await(record.destructions);
}

TEST_F(Registry, keepsAParentUntilItsChildrenAreGone) {
    Counted parent;
    Counted child;
    registry::addChild(parent);
    child.arg = &parent;
    child.destroy = [](Record* record) noexcept {
        registry::dropChild(*static_cast<Counted*>(const_cast<void*>(record->arg)));
        Counted::raise(static_cast<Counted*>(record)->destructions);
    };
    const uint32_t childId = publish(child);
    closeAndRetire(publish(parent));
    Counted::await(parent.completions);
    Counted other;
    closeAndRetire(publish(other));
    Counted::await(other.destructions);
    EXPECT_EQ(parent.destructions, 0u);
    closeAndRetire(childId);
    Counted::await(parent.destructions);
    EXPECT_EQ(child.destructions, 1u);
}

// More pins at once than a thread has cells.
TEST_F(Registry, pinsNestWithoutBound) {
    Counted record;
    const uint32_t id = publish(record);
    std::vector<Record*> pins;
    for (uint32_t i = 0; i < 3 * ThreadState::maxPins; ++i) {
        pins.push_back(registry::pin(*thread, id, Counted::objectType));
        ASSERT_EQ(pins.back(), &record);
    }
    closeAndRetire(id);
    for (size_t i = pins.size(); i-- != 0;) {
        EXPECT_EQ(record.completions, 0u);
        registry::unpin(*thread, pins[i]);
    }
    Counted::await(record.destructions);
}

TEST_F(Registry, visitsWhatIsOpen) {
    Counted records[3];
    std::vector<uint32_t> ids;
    for (Counted& record : records) ids.push_back(publish(record));
    closeAndRetire(ids[1]);
    std::vector<uint32_t> seen;
    registry::forEachOpen(
        [](void* closure, uint32_t id, uint16_t type) {
            EXPECT_EQ(type, Counted::objectType);
            static_cast<std::vector<uint32_t>*>(closure)->push_back(id);
        },
        &seen);
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), ids[0]), 1);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), ids[2]), 1);
    closeAndRetire(ids[0]);
    closeAndRetire(ids[2]);
    for (Counted& record : records) Counted::await(record.destructions);
}

}  // namespace
}  // namespace quorl
