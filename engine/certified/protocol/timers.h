// Times at which something is to be looked at, for many objects that come and go.
//
// An object keeps the time for which it is set; a timer that no longer agrees with it is passed over when it comes up. So an
// object is set again, or goes, without a search.
#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <vector>

namespace quorl::certified {

// The time for which an object was set, taken off it because it has come. When there is no memory for what is to be done then,
// the object has it back, so that it is looked at again.
class Taken {
  public:
    explicit Taken(int64_t& at) noexcept : at_(at), was_(at), exceptions_(std::uncaught_exceptions()) {
        at = INT64_MAX;
    }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    ~Taken() {
        if (std::uncaught_exceptions() > exceptions_) at_ = was_;
    }

  private:
    int64_t& at_;
    const int64_t was_;
    const int exceptions_;
};

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

    // Sets one that was taken once more; there is room for it.
    void setAgain(Timer timer, int64_t at) noexcept {
        timer.at = at;
        heap_.push_back(timer);
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
