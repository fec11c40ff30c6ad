// Who is due next among many: a heap in which everyone has at most one place, and knows it.
//
// Not locked. Nothing is allocated but by reserve.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorl::protocol {

// T has the members int64_t heapDue and size_t heapPlace, which are the heap's.
template <class T>
class DueHeap {
  public:
    static constexpr size_t nowhere = SIZE_MAX;

    // Room for that many in all. Throws std::bad_alloc.
    void reserve(size_t count) {
        if (count > items_.capacity()) items_.reserve(count + count / 2);
    }

    bool empty() const noexcept { return items_.empty(); }
    size_t size() const noexcept { return items_.size(); }
    T* first() const noexcept { return items_.front(); }

    // Puts item where due belongs; it may be in the heap already, and there is room.
    void set(T& item, int64_t due) noexcept {
        const bool earlier = item.heapPlace == nowhere || due < item.heapDue;
        item.heapDue = due;
        if (item.heapPlace == nowhere) {
            item.heapPlace = items_.size();
            items_.push_back(&item);
        }
        if (earlier) {
            rise(item);
        } else {
            sink(item);
        }
    }

    void remove(T& item) noexcept {
        const size_t place = item.heapPlace;
        if (place == nowhere) return;
        item.heapPlace = nowhere;
        T* last = items_.back();
        items_.pop_back();
        if (last == &item) return;
        put(*last, place);
        rise(*last);
        sink(*last);
    }

  private:
    void put(T& item, size_t place) noexcept {
        items_[place] = &item;
        item.heapPlace = place;
    }
    void rise(T& item) noexcept {
        size_t place = item.heapPlace;
        while (place != 0) {
            const size_t parent = (place - 1) / 2;
            if (items_[parent]->heapDue <= item.heapDue) break;
            put(*items_[parent], place);
            place = parent;
        }
        put(item, place);
    }
    void sink(T& item) noexcept {
        size_t place = item.heapPlace;
        for (;;) {
            size_t child = 2 * place + 1;
            if (child >= items_.size()) break;
            if (child + 1 < items_.size() && items_[child + 1]->heapDue < items_[child]->heapDue) ++child;
            if (items_[child]->heapDue >= item.heapDue) break;
            put(*items_[child], place);
            place = child;
        }
        put(item, place);
    }

    std::vector<T*> items_;
};

}  // namespace quorl::protocol
