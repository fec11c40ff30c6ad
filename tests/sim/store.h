// A simulated disk: what a node's program wrote survives its end, and what it synced survives a power loss.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "sim/random.h"

namespace quorl::sim {

// Keys and values; writes are kept in their order. Of the writes behind the last sync a power loss leaves a first part,
// which may be none or all.
class Store {
  public:
    using Content = std::map<std::string, std::string>;

    // As the program sees it: everything that was written.
    const Content& content() const noexcept { return written_; }
    uint64_t writes() const noexcept { return synced_ + unsynced_.size(); }

    struct Change {
        std::string key;
        std::string value;
        bool erases = false;
    };

    void put(std::string key, std::string value) { write({{std::move(key), std::move(value), false}}); }
    void erase(std::string key) { write({{std::move(key), {}, true}}); }
    // All of them or none, whatever happens.
    void write(std::vector<Change> changes) {
        for (const Change& change : changes) carryOut(written_, change);
        unsynced_.push_back(std::move(changes));
    }

    // The first writes of all, up to that many, are safe from now on.
    void synced(uint64_t writes) {
        while (synced_ < writes && !unsynced_.empty()) keepFirst();
    }

    void losePower(Random& random) {
        for (uint64_t kept = random.below(unsynced_.size() + 1); kept != 0; --kept) keepFirst();
        unsynced_.clear();
        written_ = safe_;
    }

  private:
    static void carryOut(Content& content, const Change& change) {
        if (change.erases) {
            content.erase(change.key);
        } else {
            content[change.key] = change.value;
        }
    }
    void keepFirst() {
        for (const Change& change : unsynced_.front()) carryOut(safe_, change);
        unsynced_.pop_front();
        ++synced_;
    }

    Content written_;
    Content safe_;
    std::deque<std::vector<Change>> unsynced_;
    uint64_t synced_ = 0;
};

}  // namespace quorl::sim
