// The order in which timers are due: a heap of times, and of who is due then.
//
// Its items are plain values, four children to a node, so that an item moves through few cache lines and no timer is
// touched before it is due. An item that a timer has left stays until it comes up or is swept out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorl::event {

class TimerHeap {
  public:
    struct Item {
        int64_t due;    // nanoseconds on the monotonic clock
        uint32_t id;    // of the timer
        uint32_t turn;  // of the timer: an item of an earlier turn is left
    };

    // Room for that many items more, so that add cannot fail. Throws std::bad_alloc.
    void reserve(size_t more) {
        const size_t needed = items_.size() + more;
        if (needed > items_.capacity()) items_.reserve(std::max(needed, items_.capacity() * 2));
    }

    bool empty() const noexcept { return items_.empty(); }
    size_t size() const noexcept { return items_.size(); }
    const Item& first() const noexcept { return items_.front(); }

    void add(const Item& item) noexcept {
        size_t place = items_.size();
        items_.push_back(item);
        while (place != 0) {
            const size_t parent = (place - 1) / children;
            if (items_[parent].due <= item.due) break;
            items_[place] = items_[parent];
            place = parent;
        }
        items_[place] = item;
    }

    void removeFirst() noexcept {
        const Item last = items_.back();
        items_.pop_back();
        if (!items_.empty()) sink(0, last);
    }

    // Keeps the items for which keep(const Item&) is true.
    template <class F>
    void sweep(F&& keep) noexcept {
        std::erase_if(items_, [&](const Item& item) { return !keep(item); });
        for (size_t place = items_.size() / children + 1; place-- != 0;) {
            if (place < items_.size()) sink(place, items_[place]);
        }
    }

  private:
    static constexpr size_t children = 4;

    // Puts the item at the place, or as far below as earlier ones need.
    void sink(size_t place, const Item item) noexcept {
        const size_t count = items_.size();
        for (;;) {
            const size_t from = place * children + 1;
            if (from >= count) break;
            size_t least = from;
            const size_t to = std::min(from + children, count);
            for (size_t child = from + 1; child < to; ++child) {
                if (items_[child].due < items_[least].due) least = child;
            }
            if (items_[least].due >= item.due) break;
            items_[place] = items_[least];
            place = least;
        }
        items_[place] = item;
    }

    std::vector<Item> items_;
};

}  // namespace quorl::event
