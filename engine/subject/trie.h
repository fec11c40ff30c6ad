// A matching trie: subscriptions by pattern, found by subject at a cost that grows with the subject's depth.
//
//     Trie<Listener> trie;
//     trie.insert("plant.*.temp", &listener);
//     trie.match("plant.line3.temp", [](Listener* found) { ... });
//
// Not locked: match may run on many threads at once, but not beside insert or remove.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "quorl/quorl.h"

namespace quorl::subject {

// Text that stays within the object while it is short, so that comparing it costs no second cache line.
class InlineText {
  public:
    InlineText() noexcept = default;
    explicit InlineText(std::string_view text) : size_(static_cast<uint32_t>(text.size())) {
        char* place = inline_.data();
        if (text.size() > inline_.size()) {
            auto bytes = std::make_unique<char[]>(text.size());
            place = bytes.release();
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
        if (size_ > inline_.size()) std::unique_ptr<char[]>{outside()};
    }

    std::string_view view() const noexcept { return {size_ > inline_.size() ? outside() : inline_.data(), size_}; }

  private:
    char* outside() const noexcept {
        char* place;
        std::memcpy(&place, inline_.data(), sizeof place);
        return place;
    }

    uint32_t size_ = 0;
    std::array<char, 24> inline_{};  // the text, or when it does not fit the address of an array that is owned
};

// Patterns without a wildcard are found by the hash of the whole subject, in one look-up; only those with a wildcard
// stand in the tree. Both kinds are nodes of one pool, and one open-addressing table finds a node by parent and text: a
// whole pattern has the parent kWhole, an element the node of the elements before it. The wildcard children of a node
// are not in the table; the node knows them.
template <class T>
class Trie {
  public:
    Trie() noexcept = default;
    Trie(const Trie&) = delete;
    Trie& operator=(const Trie&) = delete;

    // Adds value under pattern, which is valid for listening. The same pattern may have several values, and the same
    // value several times. Returns whether the pattern is new. Throws std::bad_alloc, and has then changed nothing.
    bool insert(std::string_view pattern, T* value) {
        if (nodes_.empty()) nodes_.emplace_back();
        Index at = kRoot;
        Pruner pruner{this, at};  // nodes made for nothing go when there is no memory for the rest
        if (!hasWildcard(pattern)) {
            pruner.node = at = childMade(kWhole, pattern);
        } else {
            forEachElement(pattern, [&](std::string_view element) {
                pruner.node = at = childMade(at, element);
                return true;
            });
        }
        Node& node = nodes_[at];
        bool isNew = node.first == nullptr;
        if (isNew) {
            node.first = value;
        } else {
            if (node.more) {
                node.more->push_back(value);
            } else {
                node.more = std::make_unique<std::vector<T*>>(1, value);
            }
        }
        ++size_;
        return isNew;
    }

    // Takes value away from under pattern, once. False when it is not there.
    bool remove(std::string_view pattern, T* value) noexcept {
        Index at = find(pattern);
        if (at == kNone) return false;
        Node& node = nodes_[at];
        if (node.first == value) {
            node.first = nullptr;
            if (node.more) {
                node.first = node.more->front();
                node.more->erase(node.more->begin());
            }
        } else {
            size_t place = 0;
            while (node.more && place < node.more->size() && (*node.more)[place] != value) ++place;
            if (!node.more || place == node.more->size()) return false;
            node.more->erase(node.more->begin() + static_cast<std::ptrdiff_t>(place));
        }
        if (node.more && node.more->empty()) node.more.reset();
        --size_;
        prune(at);
        if (size_ == 0) clear();
        return true;
    }

    // Whether pattern itself, not something that it matches, has a value.
    bool contains(std::string_view pattern) const noexcept {
        Index at = find(pattern);
        return at != kNone && nodes_[at].first != nullptr;
    }

    // Calls visit(T*) for each value whose pattern matches subject, which is valid for sending. The values of one
    // pattern come in the order of their insertion, the patterns in no set order. Allocates nothing. visit must not
    // change the trie.
    template <class F>
    void match(std::string_view subject, F&& visit) const {
        if (size_ == 0 || subject.size() > QUORL_SUBJECT_MAX) return;
        if (whole_ == 0) return matchElements(subject, visit);
        // The whole subject's slot is on its way from memory while the tree is walked.
        uint64_t hash = hashOf(subject);
        __builtin_prefetch(&slots_[keyOf(kWhole, hash) & (slots_.size() - 1)]);
        matchElements(subject, visit);
        Index found = look(kWhole, subject, hash);
        if (found != kNone) visitValues(found, visit);
    }

    size_t size() const noexcept { return size_; }  // values, each counted as often as it was inserted
    bool empty() const noexcept { return size_ == 0; }
    // Nodes in use, the root not counted: 0 when the trie is empty.
    size_t nodeCount() const noexcept { return nodes_.empty() ? 0 : nodes_.size() - 1 - spare_; }

  private:
    using Index = uint32_t;
    static constexpr Index kRoot = 0;
    static constexpr Index kNone = 0;  // no child and no table entry is the root
    static constexpr Index kWhole = UINT32_MAX;
    static constexpr uint32_t kMaxElements = (QUORL_SUBJECT_MAX + 1) / 2;

    // One cache line, so that a step of a match touches one line of the table and one of the nodes.
    struct alignas(64) Node {
        Index parent = kNone;   // of a spare node: the next spare one
        uint32_t literals = 0;  // children by a literal element
        Index star = kNone;
        Index tail = kNone;  // the child by '>'
        T* first = nullptr;  // the oldest value
        std::unique_ptr<std::vector<T*>> more;
        InlineText text;

        bool leaf() const noexcept { return literals == 0 && star == kNone && tail == kNone; }
    };
    static_assert(sizeof(Node) == 64);

    struct Slot {
        uint32_t key = 0;
        Index node = kNone;
    };

    // Trivial, so that an array of them costs nothing to have.
    struct Element {
        const char* text;
        uint32_t size;
        uint64_t hash;
        bool last;
    };

    struct Pruner {
        Trie* trie;
        Index node;
        ~Pruner() { trie->prune(node); }
    };

    static bool hasWildcard(std::string_view pattern) noexcept {
        return pattern.find_first_of("*>") != std::string_view::npos;
    }

    // Visits what the tree holds for subject.
    template <class F>
    void matchElements(std::string_view subject, F& visit) const {
        if (nodes_[kRoot].leaf()) return;
        // Elements are cut off the subject as the walk first reaches them: most walks end early.
        std::array<Element, kMaxElements> elements;
        uint32_t known = 0;
        const char* rest = subject.data();
        const char* end = rest + subject.size();

        // Depth first; at each level at most one child by '*' is left for later.
        struct Pending {
            Index node;
            uint32_t depth;
        };
        std::array<Pending, kMaxElements> pending;
        uint32_t left = 0;
        pending[left++] = {kRoot, 0};
        while (left != 0) {
            auto [at, depth] = pending[--left];
            for (;;) {
                const Node& node = nodes_[at];
                if (node.tail != kNone) visitValues(node.tail, visit);
                if (depth == known) {
                    if (known == kMaxElements) return;  // no subject
                    const char* dot = elementEnd(subject, rest);
                    std::string_view text(rest, static_cast<size_t>(dot - rest));
                    elements[known++] = {text.data(), static_cast<uint32_t>(text.size()), hashOf(text), dot == end};
                    rest = dot == end ? end : dot + 1;
                }
                const Element& element = elements[depth++];
                Index next = node.literals == 0 ? kNone : look(at, {element.text, element.size}, element.hash);
                if (element.last) {
                    if (node.star != kNone) visitValues(node.star, visit);
                    if (next != kNone) visitValues(next, visit);
                    break;
                }
                if (next == kNone) {
                    next = node.star;
                } else if (node.star != kNone) {
                    pending[left++] = {node.star, depth};
                }
                if (next == kNone) break;
                at = next;
            }
        }
    }

    // Where the element of text that starts at from ends.
    static const char* elementEnd(std::string_view text, const char* from) noexcept {
        constexpr uint64_t kOnes = 0x0101010101010101u;
        const char* end = text.data() + text.size();
        // The lowest byte of word that is a dot; 8 when none is. Of several marks the lowest is always right.
        auto dotIn = [](uint64_t word) {
            word ^= kOnes * '.';
            word = (word - kOnes) & ~word & (kOnes * 0x80);
            return word == 0 ? 8 : __builtin_ctzll(word) / 8;
        };
        uint64_t word;
        for (; end - from >= 8; from += 8) {
            std::memcpy(&word, from, sizeof word);
            int place = dotIn(word);
            if (place < 8) return from + place;
        }
        if (text.size() >= 8 && from != end) {
            // The last eight bytes, less those before from.
            std::memcpy(&word, end - 8, sizeof word);
            int place = dotIn(word >> (8 * (8 - (end - from))));
            return place < 8 ? from + place : end;
        }
        while (from != end && *from != '.') ++from;
        return from;
    }

    // Calls each(element) until it answers false, and returns what it answered last.
    template <class F>
    static bool forEachElement(std::string_view text, F&& each) {
        const char* at = text.data();
        const char* end = at + text.size();
        for (;;) {
            const char* start = at;
            while (at != end && *at != '.') ++at;
            if (!each(std::string_view(start, static_cast<size_t>(at - start)))) return false;
            if (at == end) return true;
            ++at;
        }
    }

    // Multiplies eight bytes at a time; the last eight may overlap those before. Not meant to resist an attacker: what
    // stands in the table was chosen by this process.
    static uint64_t hashOf(std::string_view text) noexcept {
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

    static uint32_t keyOf(Index parent, uint64_t hash) noexcept {
        return static_cast<uint32_t>(((hash ^ parent) * 0xd6e8feb86659fd93u) >> 32);
    }

    Index look(Index parent, std::string_view text, uint64_t hash) const noexcept {
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

    Index child(Index parent, std::string_view text) const noexcept {
        if (text == "*") return nodes_[parent].star;
        if (text == ">") return nodes_[parent].tail;
        return slots_.empty() ? kNone : look(parent, text, hashOf(text));
    }

    Index find(std::string_view pattern) const noexcept {
        if (nodes_.empty()) return kNone;
        if (!hasWildcard(pattern)) return child(kWhole, pattern);
        Index at = kRoot;
        forEachElement(pattern, [&](std::string_view element) {
            at = child(at, element);
            return at != kNone;
        });
        return at;
    }

    Index childMade(Index parent, std::string_view text) {
        Index found = child(parent, text);
        if (found != kNone) return found;

        bool wild = text == "*" || text == ">";
        if (!wild) reserveSlot();
        InlineText copy(text);
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
        if (!wild) {
            put(keyOf(parent, hashOf(text)), made);
            ++literalsOf(parent);
        } else {
            (text == "*" ? nodes_[parent].star : nodes_[parent].tail) = made;
        }
        return made;
    }

    // Frees the node when it holds nothing, then its parent when that holds nothing any more, and so on.
    void prune(Index at) noexcept {
        while (at != kRoot && at != kWhole) {
            Node& node = nodes_[at];
            if (node.first != nullptr || !node.leaf()) return;
            Index parent = node.parent;
            std::string_view text = node.text.view();
            if (parent != kWhole && nodes_[parent].star == at) {
                nodes_[parent].star = kNone;
            } else if (parent != kWhole && nodes_[parent].tail == at) {
                nodes_[parent].tail = kNone;
            } else {
                take(keyOf(parent, hashOf(text)), at);
                --literalsOf(parent);
            }
            node.text = InlineText();
            giveBack(at);
            at = parent;
        }
    }

    uint32_t& literalsOf(Index parent) noexcept { return parent == kWhole ? whole_ : nodes_[parent].literals; }

    void giveBack(Index node) noexcept {
        nodes_[node].parent = spareHead_;
        spareHead_ = node;
        ++spare_;
    }

    // Gives all memory back.
    void clear() noexcept {
        std::vector<Node>().swap(nodes_);
        std::vector<Slot>().swap(slots_);
        size_ = used_ = spare_ = 0;
        whole_ = 0;
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

    template <class F>
    void visitValues(Index at, F& visit) const {
        const Node& node = nodes_[at];
        if (node.first == nullptr) return;
        visit(node.first);
        if (!node.more) return;
        for (T* value : *node.more) visit(value);
    }

    std::vector<Node> nodes_;  // the root at 0, once there is anything
    std::vector<Slot> slots_;  // a power of two, or none
    size_t size_ = 0;
    size_t used_ = 0;     // slots that hold a node
    uint32_t whole_ = 0;  // nodes under kWhole
    size_t spare_ = 0;    // nodes not in use
    Index spareHead_ = kNone;
};

}  // namespace quorl::subject
