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
#include <vector>

#include "quorl/quorl.h"
#include "subject/node_pool.h"
#include "subject/text_table.h"

namespace quorl::subject {

// Patterns without a wildcard are found by the hash of the whole subject, in one look-up; only those with a wildcard
// stand in the tree, which is then small enough to stay in the cache.
template <class T>
class Trie {
  public:
    Trie() noexcept = default;
    Trie(const Trie&) = delete;
    Trie& operator=(const Trie&) = delete;

    // Adds value under pattern, which is valid for listening. The same pattern may have several values, and the same
    // value several times. Returns whether the pattern is new. Throws std::bad_alloc, and has then changed nothing.
    bool insert(std::string_view pattern, T* value) {
        bool isNew;
        if (!hasWildcard(pattern)) {
            const uint64_t hash = hashOf(pattern);
            Values* values = whole_.look(pattern, hash);
            if (values == nullptr) values = whole_.make(pattern, hash);
            isNew = values->add(value);  // a first value needs no memory
        } else {
            Index at = kRoot;
            Pruner pruner{this, at};  // nodes made for nothing go when there is no memory for the rest
            forEachElement(pattern, [&](std::string_view element) {
                pruner.node = at = branchMade(at, element);
                return true;
            });
            isNew = tree_[at].values.add(value);
        }
        ++size_;
        return isNew;
    }

    // Takes value away from under pattern, once. False when it is not there.
    bool remove(std::string_view pattern, T* value) noexcept {
        if (!hasWildcard(pattern)) {
            const uint64_t hash = hashOf(pattern);
            Values* values = whole_.look(pattern, hash);
            if (values == nullptr || !values->remove(value)) return false;
            if (values->empty()) whole_.free(pattern, hash);
        } else {
            Index at = findBranch(pattern);
            if (at == kNone || !tree_[at].values.remove(value)) return false;
            prune(at);
        }
        --size_;
        return true;
    }

    // Whether pattern itself, not something that it matches, has a value.
    bool contains(std::string_view pattern) const noexcept {
        if (!hasWildcard(pattern)) return whole_.look(pattern, hashOf(pattern)) != nullptr;
        Index at = findBranch(pattern);
        return at != kNone && !tree_[at].values.empty();
    }

    // Calls visit(T*) for each value whose pattern matches subject, which is valid for sending. The values of one
    // pattern come in the order of their insertion, the patterns in no set order. Allocates nothing. visit must not
    // change the trie.
    template <class F>
    void match(std::string_view subject, F&& visit) const {
        if (subject.size() > QUORL_SUBJECT_MAX) return;
        if (whole_.empty()) return matchTree(subject, visit);
        // What the whole subject leads to is on its way from memory while the tree is walked.
        uint64_t hash = hashOf(subject);
        if (const Values* likely = whole_.likely(hash)) __builtin_prefetch(likely->first());
        matchTree(subject, visit);
        if (const Values* found = whole_.look(subject, hash)) found->forEach(visit);
    }

    size_t size() const noexcept { return size_; }  // values, each counted as often as it was inserted
    bool empty() const noexcept { return size_ == 0; }
    // Nodes in use: 0 when the trie is empty.
    size_t nodeCount() const noexcept { return whole_.count() + tree_.count(); }

  private:
    using Index = uint32_t;
    static constexpr Index kRoot = 0;
    static constexpr Index kNone = 0;
    static constexpr uint32_t kMaxElements = (QUORL_SUBJECT_MAX + 1) / 2;

    // The values of one pattern, oldest first. Nearly always there is one.
    class Values {
      public:
        bool empty() const noexcept { return first_ == nullptr; }
        const T* first() const noexcept { return first_; }

        // Returns whether it is the first.
        bool add(T* value) {
            if (first_ == nullptr) {
                first_ = value;
                return true;
            }
            if (more_) {
                more_->push_back(value);
            } else {
                more_ = std::make_unique<std::vector<T*>>(1, value);
            }
            return false;
        }

        bool remove(T* value) noexcept {
            if (first_ == value && value != nullptr) {
                first_ = nullptr;
                if (more_) {
                    first_ = more_->front();
                    more_->erase(more_->begin());
                }
            } else {
                size_t place = 0;
                while (more_ && place < more_->size() && (*more_)[place] != value) ++place;
                if (!more_ || place == more_->size()) return false;
                more_->erase(more_->begin() + static_cast<std::ptrdiff_t>(place));
            }
            if (more_ && more_->empty()) more_.reset();
            return true;
        }

        template <class F>
        void forEach(F& visit) const {
            if (first_ == nullptr) return;
            visit(first_);
            if (!more_) return;
            for (T* value : *more_) visit(value);
        }

      private:
        T* first_ = nullptr;
        std::unique_ptr<std::vector<T*>> more_;  // null when there is none but the first
    };

    // An element of a pattern with wildcards. The children by '*' and by '>' are not in the table: the node knows them.
    struct alignas(64) Branch {
        Index parent = kNone;
        uint32_t literals = 0;  // children by a literal element
        Index star = kNone;
        Index tail = kNone;  // the child by '>'
        // A bit for the hash of each literal child, and perhaps of some that are gone: most elements that have no child
        // need no look into the table.
        uint64_t filter = 0;
        InlineText<20> text;
        Values values;

        bool leaf() const noexcept { return literals == 0 && star == kNone && tail == kNone; }
        bool mayHave(uint64_t hash) const noexcept { return (filter >> (hash % 64) & 1) != 0; }
    };

    // Trivial, so that an array of them costs nothing to have.
    struct Element {
        const char* text;
        size_t size;
        uint64_t hash;
    };

    struct Pruner {
        Trie* trie;
        Index node;
        ~Pruner() { trie->prune(node); }
    };

    static bool hasWildcard(std::string_view pattern) noexcept {
        return pattern.find_first_of("*>") != std::string_view::npos;
    }

    // Calls each(element) until it answers false.
    template <class F>
    static void forEachElement(std::string_view text, F&& each) {
        const char* at = text.data();
        const char* end = at + text.size();
        for (;; ++at) {
            const char* start = at;
            while (at != end && *at != '.') ++at;
            if (!each(std::string_view(start, static_cast<size_t>(at - start))) || at == end) return;
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

    // The elements of the subject that is matched, cut off as the walk first comes near them: most walks end early.
    class Elements {
      public:
        explicit Elements(std::string_view subject) noexcept : subject_(subject), rest_(subject.data()) {}

        // The subject has that element; it has been cut off then. False beyond the end.
        bool reach(uint32_t place) noexcept {
            while (known_ <= place) {
                if (rest_ == nullptr || known_ == kMaxElements) return false;
                const char* dot = elementEnd(subject_, rest_);
                std::string_view text(rest_, static_cast<size_t>(dot - rest_));
                cut_[known_++] = {text.data(), text.size(), hashOf(text)};
                rest_ = dot == subject_.data() + subject_.size() ? nullptr : dot + 1;
            }
            return true;
        }
        const Element& operator[](uint32_t place) const noexcept { return cut_[place]; }

      private:
        std::string_view subject_;
        const char* rest_;  // null when all are cut off
        uint32_t known_ = 0;
        std::array<Element, kMaxElements> cut_;
    };

    // Visits what the tree holds for subject.
    template <class F>
    void matchTree(std::string_view subject, F& visit) const {
        if (tree_.empty()) return;
        Elements elements(subject);
        elements.reach(0);

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
                const Branch& node = tree_[at];
                const Element& element = elements[depth++];
                const bool more = elements.reach(depth);
                if (node.star != kNone) {
                    // Both are far away in a large tree: they come while the literal child is looked for.
                    tree_.prefetch(node.star);
                    if (more) tree_.prefetch(node.star, elements[depth].hash);
                }
                if (node.tail != kNone) tree_[node.tail].values.forEach(visit);
                Index next =
                    node.mayHave(element.hash) ? tree_.look(at, {element.text, element.size}, element.hash) : kNone;
                if (!more) {
                    if (node.star != kNone) tree_[node.star].values.forEach(visit);
                    if (next != kNone) tree_[next].values.forEach(visit);
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

    Index child(Index parent, std::string_view element) const noexcept {
        if (tree_.empty()) return kNone;
        if (element == "*") return tree_[parent].star;
        if (element == ">") return tree_[parent].tail;
        return tree_.look(parent, element, hashOf(element));
    }

    Index findBranch(std::string_view pattern) const noexcept {
        Index at = kRoot;
        forEachElement(pattern, [&](std::string_view element) {
            at = child(at, element);
            return at != kNone;
        });
        return at;
    }

    Index branchMade(Index parent, std::string_view element) {
        Index found = child(parent, element);
        if (found != kNone) return found;
        bool literal = element != "*" && element != ">";
        Index made = tree_.make(parent, element, literal);
        if (literal) {
            ++tree_[parent].literals;
            tree_[parent].filter |= uint64_t{1} << (hashOf(element) % 64);
        } else {
            (element == "*" ? tree_[parent].star : tree_[parent].tail) = made;
        }
        return made;
    }

    // Frees the node when it holds nothing, then its parent when that holds nothing any more, and so on.
    void prune(Index at) noexcept {
        while (at != kRoot && tree_[at].values.empty() && tree_[at].leaf()) {
            Index up = tree_[at].parent;
            Branch& parent = tree_[up];
            bool literal = false;
            if (parent.star == at) {
                parent.star = kNone;
            } else if (parent.tail == at) {
                parent.tail = kNone;
            } else {
                if (--parent.literals == 0) parent.filter = 0;
                literal = true;
            }
            tree_.free(at, literal);
            at = up;
        }
    }

    TextTable<Values> whole_;
    NodePool<Branch> tree_;
    size_t size_ = 0;
};

}  // namespace quorl::subject
