// The order in which timers are due: a binary heap whose members know their place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/futex.h"

namespace quorl::event {

struct TimerEntry {
    static constexpr size_t nowhere = SIZE_MAX;

    int64_t due = 0;       // nanoseconds on the monotonic clock
    int64_t interval = 0;  // nanoseconds
    size_t place = nowhere;

    bool armed() const noexcept { return place != nowhere; }

    // The first time on the timer's grid that lies after now: a timer that is late skips, and never drifts.
    int64_t dueAfter(int64_t now) const noexcept {
        if (interval >= forever - due) return forever;
        int64_t next = due + interval;
        if (next <= now) next += ((now - next) / interval + 1) * interval;
        return next;
    }
};

class TimerHeap {
  public:
    // Room for one entry more, so that add cannot fail. Throws std::bad_alloc.
    void reserve() {
        if (heap_.size() == heap_.capacity()) heap_.reserve(heap_.empty() ? 16 : heap_.size() * 2);
    }
    void add(TimerEntry& entry) noexcept {
        heap_.push_back(&entry);
        entry.place = heap_.size() - 1;
        up(entry.place);
    }
    void remove(TimerEntry& entry) noexcept {
        const size_t place = entry.place;
        entry.place = TimerEntry::nowhere;
        TimerEntry* last = heap_.back();
        heap_.pop_back();
        if (last == &entry) return;
        put(place, last);
        up(place);
        down(last->place);
    }
    // After the entry's due was changed.
    void moved(TimerEntry& entry) noexcept {
        up(entry.place);
        down(entry.place);
    }
    TimerEntry* first() const noexcept { return heap_.empty() ? nullptr : heap_.front(); }
    size_t size() const noexcept { return heap_.size(); }

  private:
    void put(size_t place, TimerEntry* entry) noexcept {
        heap_[place] = entry;
        entry->place = place;
    }
    void up(size_t place) noexcept {
        while (place != 0) {
            const size_t parent = (place - 1) / 2;
            if (heap_[parent]->due <= heap_[place]->due) return;
            exchange(parent, place);
            place = parent;
        }
    }
    void down(size_t place) noexcept {
        for (;;) {
            size_t least = place;
            for (size_t child = 2 * place + 1; child <= 2 * place + 2 && child < heap_.size(); ++child) {
                if (heap_[child]->due < heap_[least]->due) least = child;
            }
            if (least == place) return;
            exchange(least, place);
            place = least;
        }
    }
    void exchange(size_t a, size_t b) noexcept {
        TimerEntry* first = heap_[a];
        put(a, heap_[b]);
        put(b, first);
    }

    std::vector<TimerEntry*> heap_;
};

}  // namespace quorl::event
