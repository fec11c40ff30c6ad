// A set of numbers beyond a contiguous beginning, as ranges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>

namespace quorl::certified {

struct Range {
    uint64_t first = 0;
    uint64_t last = 0;  // included

    bool operator==(const Range&) const = default;
};

// Everything up to upTo(), and ranges behind it, which neither touch nor overlap.
class NumberSet {
  public:
    explicit NumberSet(uint64_t upTo = 0) noexcept : upTo_(upTo) {}

    uint64_t upTo() const noexcept { return upTo_; }
    // How many lie behind upTo().
    uint64_t beyond() const noexcept { return beyond_; }
    uint64_t highest() const noexcept { return ranges_.empty() ? upTo_ : ranges_.rbegin()->second; }
    size_t rangeCount() const noexcept { return ranges_.size(); }
    const std::map<uint64_t, uint64_t>& ranges() const noexcept { return ranges_; }

    bool contains(uint64_t number) const noexcept {
        if (number <= upTo_) return true;
        const auto next = ranges_.upper_bound(number);
        return next != ranges_.begin() && std::prev(next)->second >= number;
    }

    // The first number behind one that is in the set that is not.
    uint64_t behind(uint64_t number) const noexcept {
        if (number <= upTo_) return upTo_ + 1;
        return std::prev(ranges_.upper_bound(number))->second + 1;
    }

    // Calls isNew(Range) for each range of numbers of the given one that were not in the set, ascending, and then adds them.
    // Throws std::bad_alloc, or what isNew throws; the set then is as it was.
    template <class F>
    void add(Range range, F&& isNew) {
        if (range.first <= upTo_) range.first = upTo_ + 1;
        if (range.first > range.last) return;
        // Everything that touches becomes one.
        auto begin = ranges_.upper_bound(range.first);
        if (begin != ranges_.begin() && std::prev(begin)->second >= range.first - 1) --begin;
        Range whole = range;
        uint64_t next = range.first;
        uint64_t count = 0;
        auto end = begin;
        for (; end != ranges_.end() && end->first <= range.last + (range.last != UINT64_MAX); ++end) {
            if (end->first > next) isNew(Range{next, end->first - 1});
            if (end->first < whole.first) whole.first = end->first;
            if (end->second > whole.last) whole.last = end->second;
            count += end->second - end->first + 1;
            if (end->second >= next) next = end->second + 1;
        }
        if (next != 0 && next <= range.last) isNew(Range{next, range.last});
        if (whole.first == upTo_ + 1) {
            ranges_.erase(begin, end);
            beyond_ -= count;
            upTo_ = whole.last;
            return;
        }
        if (begin == end) {
            ranges_.emplace_hint(end, whole.first, whole.last);
        } else {
            const auto rest = ranges_.erase(std::next(begin), end);
            if (begin->first == whole.first) {
                begin->second = whole.last;
            } else {
                auto node = ranges_.extract(begin);
                node.key() = whole.first;
                node.mapped() = whole.last;
                ranges_.insert(rest, std::move(node));
            }
        }
        beyond_ += whole.last - whole.first + 1 - count;
    }
    void add(Range range) {
        add(range, [](Range) {});
    }

    // Takes out everything behind last. Whether there was something.
    bool cut(uint64_t last) noexcept {
        if (highest() <= last) return false;
        if (upTo_ > last) upTo_ = last;
        while (!ranges_.empty() && ranges_.rbegin()->second > last) {
            const auto end = std::prev(ranges_.end());
            const uint64_t kept = end->first > last ? 0 : last - end->first + 1;
            beyond_ -= end->second - end->first + 1 - kept;
            if (kept == 0) {
                ranges_.erase(end);
            } else {
                end->second = last;
            }
        }
        return true;
    }

  private:
    uint64_t upTo_;
    uint64_t beyond_ = 0;
    std::map<uint64_t, uint64_t> ranges_;  // first to last
};

}  // namespace quorl::certified
