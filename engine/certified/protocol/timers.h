// Times at which something is to be looked at, for many objects that come and go.
//
// An object keeps the time for which it is set; a timer that no longer agrees with it is passed over when it comes up. So an
// object is set again, or goes, without a search.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace quorl::certified {

class Timers {
  public:
    struct Timer {
        int64_t at;
        uint64_t what;  // the owner's
        uint64_t which;
    };

    // Throws std::bad_alloc.
    void set(int64_t at, uint64_t what, uint64_t which) {
        heap_.push_back({at, what, which});
        std::ranges::push_heap(heap_, later);
    }

    int64_t due() const noexcept { return heap_.empty() ? INT64_MAX : heap_.front().at; }

    // Takes the first one that is due. False: none is.
    bool take(int64_t now, Timer* timer) noexcept {
        if (heap_.empty() || heap_.front().at > now) return false;
        std::ranges::pop_heap(heap_, later);
        *timer = heap_.back();
        heap_.pop_back();
        return true;
    }

  private:
    static bool later(const Timer& one, const Timer& other) noexcept { return one.at > other.at; }

    std::vector<Timer> heap_;
};

}  // namespace quorl::certified
