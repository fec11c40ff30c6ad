// The nodes of a trie: a pool of compact records with one hash table over all of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl::subject {

// Multiplies eight bytes at a time; the last eight may overlap those before. Not meant to resist an attacker: what
// stands in the tables was chosen by this process.
inline uint64_t hashOf(std::string_view text) noexcept {
    constexpr uint64_t kFactor = 0x9e3779b97f4a7c15u;
    uint64_t hash = text.size() * kFactor;
    auto mix = [&](uint64_t word) {
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 29;
    };
    auto load = [&]<class W>(W word, size_t at) {
        std::memcpy(&word, text.data() + at, sizeof word);
        return static_cast<uint64_t>(word);
    };
    size_t size = text.size();
    if (size >= 8) {
        for (size_t at = 0; at + 8 < size; at += 8) mix(load(uint64_t{}, at));
        mix(load(uint64_t{}, size - 8));
    } else if (size >= 4) {
        mix(load(uint32_t{}, 0) << 32 | load(uint32_t{}, size - 4));
    } else if (size != 0) {
        mix(load(uint8_t{}, 0) << 16 | load(uint8_t{}, size / 2) << 8 | load(uint8_t{}, size - 1));
    }
    return hash;
}

// Text that stays within the object while it is no longer than Capacity, so that comparing it costs no second cache
// line.
template <size_t Capacity>
class InlineText {
  public:
    static_assert(Capacity >= sizeof(char*));

    InlineText() noexcept = default;
    explicit InlineText(std::string_view text) : size_(static_cast<uint32_t>(text.size())) {
        char* place = inline_.data();
        if (text.size() > Capacity) {
            place = std::make_unique<char[]>(text.size()).release();
            std::memcpy(inline_.data(), &place, sizeof place);
        }
        std::memcpy(place, text.data(), text.size());
    }
    InlineText(InlineText&& other) noexcept : size_(std::exchange(other.size_, 0)), inline_(other.inline_) {}
    InlineText& operator=(InlineText other) noexcept {
        std::swap(size_, other.size_);
        std::swap(inline_, other.inline_);
        return *this;
    }
    ~InlineText() {
        if (size_ > Capacity) std::unique_ptr<char[]>{outside()};
    }

    std::string_view view() const noexcept { return {size_ > Capacity ? outside() : inline_.data(), size_}; }

  private:
    char* outside() const noexcept {
        char* place;
        std::memcpy(&place, inline_.data(), sizeof place);
        return place;
    }

    uint32_t size_ = 0;
    std::array<char, Capacity> inline_{};  // the text, or when it does not fit the address of an array that is owned
};

// Nodes are named by index; 0 is the root, which is always there, and stands for "none" too, since nothing leads to it.
// Node is movable and has the members
//
//     uint32_t parent;    // of a spare node: the next spare one
//     InlineText<N> text; // with parent, the key of a node that is in the table
//
// and is one cache line, so that a look-up touches one line of the table and one of the nodes.
template <class Node>
class NodePool {
  public:
    using Index = uint32_t;
    static constexpr Index kNone = 0;
    static_assert(sizeof(Node) == 64 && alignof(Node) == 64);

    Node& operator[](Index node) noexcept { return nodes_[node]; }
    const Node& operator[](Index node) const noexcept { return nodes_[node]; }

    bool empty() const noexcept { return nodes_.empty(); }
    // Nodes in use, the root not counted.
    size_t count() const noexcept { return nodes_.empty() ? 0 : nodes_.size() - 1 - spare_; }

    // The node of that key; hash is hashOf(text).
    Index look(Index parent, std::string_view text, uint64_t hash) const noexcept {
        if (used_ == 0) return kNone;
        uint32_t key = keyOf(parent, hash);
        size_t mask = slots_.size() - 1;
        for (size_t i = key & mask;; i = (i + 1) & mask) {
            const Slot& slot = slots_[i];
            if (slot.node == kNone) return kNone;
            if (slot.key != key) continue;
            const Node& node = nodes_[slot.node];
            if (node.parent == parent && node.text.view() == text) return slot.node;
        }
    }

    // Starts to fetch from memory what look of the same key reads first.
    void prefetch(Index parent, uint64_t hash) const noexcept {
        if (used_ != 0) __builtin_prefetch(&slots_[keyOf(parent, hash) & (slots_.size() - 1)]);
    }
    // The node that look of the same key most likely finds, or the root; for prefetching. The pool is not empty.
    Index likely(Index parent, uint64_t hash) const noexcept {
        if (slots_.empty()) return kNone;
        uint32_t key = keyOf(parent, hash);
        const Slot& slot = slots_[key & (slots_.size() - 1)];
        return slot.key == key ? slot.node : kNone;
    }
    void prefetch(Index node) const noexcept { __builtin_prefetch(&nodes_[node]); }

    // Makes a node, in the table or not. Throws std::bad_alloc, and has then changed nothing that shows.
    Index make(Index parent, std::string_view text, bool inTable) {
        if (inTable) reserveSlot();
        decltype(Node::text) copy(text);
        if (nodes_.empty()) nodes_.emplace_back();
        if (spareHead_ == kNone) {
            nodes_.emplace_back();
            giveBack(static_cast<Index>(nodes_.size() - 1));
        }
        // Nothing below can fail.
        Index made = spareHead_;
        Node& node = nodes_[made];
        spareHead_ = node.parent;
        --spare_;
        node.parent = parent;
        node.text = std::move(copy);
        if (inTable) put(keyOf(parent, hashOf(text)), made);
        return made;
    }

    void free(Index node, bool inTable) noexcept {
        if (inTable) take(keyOf(nodes_[node].parent, hashOf(nodes_[node].text.view())), node);
        nodes_[node] = Node();
        giveBack(node);
        if (count() == 0) clear();
    }

  private:
    struct Slot {
        uint32_t key = 0;
        Index node = kNone;
    };

    static uint32_t keyOf(Index parent, uint64_t hash) noexcept {
        return static_cast<uint32_t>(((hash ^ parent) * 0xd6e8feb86659fd93u) >> 32);
    }

    void giveBack(Index node) noexcept {
        nodes_[node].parent = spareHead_;
        spareHead_ = node;
        ++spare_;
    }

    // Gives the memory back, the root's node with it: that holds nothing when it is alone.
    void clear() noexcept {
        std::vector<Node>().swap(nodes_);
        std::vector<Slot>().swap(slots_);
        spare_ = 0;
        spareHead_ = kNone;
    }

    // The table is kept at most half full: searches for what is not there end soon.
    void reserveSlot() {
        if ((used_ + 1) * 2 <= slots_.size()) return;
        std::vector<Slot> old(slots_.empty() ? 16 : slots_.size() * 2);
        old.swap(slots_);
        used_ = 0;
        for (const Slot& slot : old) {
            if (slot.node != kNone) put(slot.key, slot.node);
        }
    }

    void put(uint32_t key, Index node) noexcept {
        size_t mask = slots_.size() - 1;
        size_t i = key & mask;
        while (slots_[i].node != kNone) i = (i + 1) & mask;
        slots_[i] = {key, node};
        ++used_;
    }

    // Removes an entry that is there, and moves those behind it up, so that no search needs to pass a gap.
    void take(uint32_t key, Index node) noexcept {
        size_t mask = slots_.size() - 1;
        size_t gap = key & mask;
        while (slots_[gap].node != node) gap = (gap + 1) & mask;
        for (size_t i = (gap + 1) & mask; slots_[i].node != kNone; i = (i + 1) & mask) {
            size_t home = slots_[i].key & mask;
            if (((i - home) & mask) >= ((i - gap) & mask)) {
                slots_[gap] = slots_[i];
                gap = i;
            }
        }
        slots_[gap] = Slot{};
        --used_;
    }

    std::vector<Node> nodes_;  // the root at 0, once there is anything
    std::vector<Slot> slots_;  // a power of two, or none
    size_t used_ = 0;          // slots that hold a node
    size_t spare_ = 0;         // nodes not in use
    Index spareHead_ = kNone;
};

}  // namespace quorl::subject
