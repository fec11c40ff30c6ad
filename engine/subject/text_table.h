// A hash table from texts to values that lie in the table itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "subject/tag_table.h"
#include "subject/text.h"

namespace quorl::subject {

// Value is movable and fills a cache line together with a text of up to 40 bytes: whoever finds a text has its value at
// hand.
template <class Value>
class TextTable {
  public:
    bool empty() const noexcept { return tags_.count() == 0; }
    size_t count() const noexcept { return tags_.count(); }

    // The value of text, or null; hash is hashOf(text). Valid until the table is changed.
    const Value* look(std::string_view text, uint64_t hash) const noexcept {
        const uint32_t slot = find(text, hash);
        return slot == TagTable::kNoSlot ? nullptr : &entries_[slot].value;
    }
    Value* look(std::string_view text, uint64_t hash) noexcept {
        return const_cast<Value*>(std::as_const(*this).look(text, hash));
    }
    // What look most likely gives, without a look at the text; for prefetching.
    const Value* likely(uint64_t hash) const noexcept {
        const uint32_t slot = tags_.likely(keyOf(hash));
        return slot == TagTable::kNoSlot ? nullptr : &entries_[slot].value;
    }

    // Adds a text that is not there. Throws std::bad_alloc, and has then changed nothing that shows.
    Value* make(std::string_view text, uint64_t hash) {
        if (tags_.full()) grow();
        InlineText<kInline> copy(text);
        Entry& entry = entries_[tags_.put(keyOf(hash))];
        entry.text = std::move(copy);
        return &entry.value;
    }

    // Removes a text that is there.
    void free(std::string_view text, uint64_t hash) noexcept {
        const uint32_t slot = find(text, hash);
        entries_[slot] = Entry();
        tags_.take(slot);
        if (tags_.count() != 0) return;
        tags_ = TagTable();
        std::vector<Entry>().swap(entries_);
    }

  private:
    static constexpr size_t kInline = 40;
    struct alignas(64) Entry {
        InlineText<kInline> text;
        Value value;
    };
    static_assert(sizeof(Entry) == 64);

    static uint32_t keyOf(uint64_t hash) noexcept { return static_cast<uint32_t>((hash * 0xd6e8feb86659fd93u) >> 32); }

    uint32_t find(std::string_view text, uint64_t hash) const noexcept {
        return tags_.find(keyOf(hash), [&](uint32_t slot) { return entries_[slot].text.view() == text; });
    }

    void grow() {
        TagTable tags(tags_.count() + 1);
        std::vector<Entry> entries(tags.slots());
        for (uint32_t slot = 0; slot < tags_.slots(); ++slot) {
            if (tags_.used(slot))
                entries[tags.put(keyOf(hashOf(entries_[slot].text.view())))] = std::move(entries_[slot]);
        }
        std::swap(tags_, tags);
        entries_.swap(entries);
    }

    TagTable tags_;
    std::vector<Entry> entries_;  // of each slot of tags_
};

}  // namespace quorl::subject
