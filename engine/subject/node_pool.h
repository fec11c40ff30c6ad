// The nodes of a tree of elements: a pool of compact records, with one hash table over all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "subject/tag_table.h"
#include "subject/text.h"

namespace quorl::subject {

// Nodes are named by index; 0 is the root, which is always there, and stands for "none" too, since nothing leads to it.
// Node is movable, one cache line, and has the members
//
//     uint32_t parent;    // of a spare node: the next spare one
//     InlineText<N> text; // with parent, the key of a node that is in the table
//
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
        const uint32_t slot = tags_.find(keyOf(parent, hash), [&](uint32_t candidate) {
            const Node& node = nodes_[index_[candidate]];
            return node.parent == parent && node.text.view() == text;
        });
        return slot == TagTable::kNoSlot ? kNone : index_[slot];
    }

    // Starts to fetch from memory what look of the same key reads first.
    void prefetch(Index parent, uint64_t hash) const noexcept { tags_.prefetch(keyOf(parent, hash)); }
    void prefetch(Index node) const noexcept { __builtin_prefetch(&nodes_[node]); }

    // Makes a node, in the table or not. Throws std::bad_alloc, and has then changed nothing that shows.
    Index make(Index parent, std::string_view text, bool inTable) {
        if (inTable && tags_.full()) grow();
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
        if (inTable) index_[tags_.put(keyOf(node))] = made;
        return made;
    }

    void free(Index node, bool inTable) noexcept {
        if (inTable) tags_.take(tags_.find(keyOf(nodes_[node]), [&](uint32_t slot) { return index_[slot] == node; }));
        nodes_[node] = Node();
        giveBack(node);
        if (count() == 0) clear();
    }

  private:
    static uint32_t keyOf(Index parent, uint64_t hash) noexcept {
        return static_cast<uint32_t>(((hash ^ parent) * 0xd6e8feb86659fd93u) >> 32);
    }
    static uint32_t keyOf(const Node& node) noexcept { return keyOf(node.parent, hashOf(node.text.view())); }

    void giveBack(Index node) noexcept {
        nodes_[node].parent = spareHead_;
        spareHead_ = node;
        ++spare_;
    }

    void grow() {
        TagTable tags(tags_.count() + 1);
        std::vector<Index> index(tags.slots());
        for (uint32_t slot = 0; slot < tags_.slots(); ++slot) {
            if (tags_.used(slot)) index[tags.put(keyOf(nodes_[index_[slot]]))] = index_[slot];
        }
        std::swap(tags_, tags);
        index_.swap(index);
    }

    // Gives the memory back, the root's node with it: that holds nothing when it is alone.
    void clear() noexcept {
        std::vector<Node>().swap(nodes_);
        std::vector<Index>().swap(index_);
        tags_ = TagTable();
        spare_ = 0;
        spareHead_ = kNone;
    }

    std::vector<Node> nodes_;   // the root at 0, once there is anything
    TagTable tags_;             //
    std::vector<Index> index_;  // the node of each slot of tags_
    size_t spare_ = 0;          // nodes not in use
    Index spareHead_ = kNone;
};

}  // namespace quorl::subject
