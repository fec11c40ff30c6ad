// The part of a hash table that says where to look: a byte for each slot, so that nearly every search for what is not there
// ends without touching the entries themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorl::subject {

// Slots stand in groups of eight, a word of tags for each group. A search starts at the group that the key names and goes on
// to the next one only while there is no empty slot in the group. The owner keeps the entries, in an array of as many slots.
class TagTable {
  public:
    static constexpr uint32_t kNoSlot = UINT32_MAX;

    TagTable() noexcept = default;
    // Room for entries, and for as many again before it is full. Throws std::bad_alloc.
    explicit TagTable(size_t entries) {
        size_t groups = 2;
        while (groups * kGroup * 3 / 8 < entries) groups *= 2;
        groups_.resize(groups);
    }

    size_t slots() const noexcept { return groups_.size() * kGroup; }
    size_t count() const noexcept { return count_; }
    // Whether it must be made anew, for twice as many entries, before the next one is put in.
    bool full() const noexcept { return (count_ + deleted_ + 1) * 4 > slots() * 3; }

    // The slot of that key for which same(slot) holds, or kNoSlot.
    template <class F>
    uint32_t find(uint32_t key, F&& same) const noexcept {
        if (count_ == 0) return kNoSlot;
        const size_t mask = groups_.size() - 1;
        for (size_t group = key & mask;; group = (group + 1) & mask) {
            const uint64_t tags = groups_[group];
            for (uint64_t marks = equalBytes(tags, tagOf(key)); marks != 0; marks &= marks - 1) {
                const uint32_t slot = slotAt(group, marks);
                if (same(slot)) return slot;
            }
            if (hasEmpty(tags)) return kNoSlot;
        }
    }

    // Where find most likely finds the key; kNoSlot most likely when it is not there.
    uint32_t likely(uint32_t key) const noexcept {
        if (count_ == 0) return kNoSlot;
        const size_t group = key & (groups_.size() - 1);
        const uint64_t marks = equalBytes(groups_[group], tagOf(key));
        return marks == 0 ? kNoSlot : slotAt(group, marks);
    }

    // Starts to fetch from memory what find of that key reads first.
    void prefetch(uint32_t key) const noexcept {
        if (count_ != 0) __builtin_prefetch(&groups_[key & (groups_.size() - 1)]);
    }

    // Takes a free slot for the key; the table is not full.
    uint32_t put(uint32_t key) noexcept {
        const size_t mask = groups_.size() - 1;
        for (size_t group = key & mask;; group = (group + 1) & mask) {
            const uint64_t free = ~groups_[group] & (kOnes * kUsed);
            if (free == 0) continue;
            const uint32_t slot = slotAt(group, free);
            if (tagAt(slot) == kDeleted) --deleted_;
            setTag(slot, tagOf(key));
            ++count_;
            return slot;
        }
    }

    void take(uint32_t slot) noexcept {
        // Where the group has an empty slot no search goes beyond it, and one more does not matter. A full group must go on
        // to be passed.
        const bool passed = !hasEmpty(groups_[slot / kGroup]);
        setTag(slot, passed ? kDeleted : kEmpty);
        if (passed) ++deleted_;
        --count_;
    }

    bool used(uint32_t slot) const noexcept { return (tagAt(slot) & kUsed) != 0; }

  private:
    static constexpr size_t kGroup = sizeof(uint64_t);
    static constexpr uint64_t kOnes = 0x0101010101010101u;
    // A tag is kUsed with seven bits of the key, or one of these.
    static constexpr uint8_t kUsed = 0x80;
    static constexpr uint8_t kEmpty = 0;
    static constexpr uint8_t kDeleted = 1;

    // The group comes from the low bits of the key, the tag from the high ones.
    static uint8_t tagOf(uint32_t key) noexcept { return static_cast<uint8_t>(kUsed | key >> 25); }

    // The high bit of each byte that equals tag, and perhaps of some above one that does.
    static uint64_t equalBytes(uint64_t tags, uint8_t tag) noexcept {
        tags ^= kOnes * tag;
        return (tags - kOnes) & ~tags & (kOnes * 0x80);
    }
    static bool hasEmpty(uint64_t tags) noexcept { return equalBytes(tags, kEmpty) != 0; }

    static uint32_t slotAt(size_t group, uint64_t marks) noexcept {
        return static_cast<uint32_t>(group * kGroup + static_cast<unsigned>(__builtin_ctzll(marks)) / 8);
    }

    uint8_t tagAt(uint32_t slot) const noexcept {
        return static_cast<uint8_t>(groups_[slot / kGroup] >> (8 * (slot % kGroup)));
    }
    void setTag(uint32_t slot, uint8_t tag) noexcept {
        uint64_t& tags = groups_[slot / kGroup];
        const unsigned shift = 8 * (slot % kGroup);
        tags = (tags & ~(uint64_t{0xff} << shift)) | uint64_t{tag} << shift;
    }

    std::vector<uint64_t> groups_;  // a power of two, or none
    size_t count_ = 0;
    size_t deleted_ = 0;
};

}  // namespace quorl::subject
