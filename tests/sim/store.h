// A simulated disk: what a node's program wrote survives its end, and what it synced survives a power loss.
#pragma once

#include <cstdint>
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

    void put(std::string key, std::string value) { apply({std::move(key), std::move(value), false}); }
    void erase(std::string key) { apply({std::move(key), {}, true}); }

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
    struct Write {
        std::string key;
        std::string value;
        bool erases;
    };

    static void carryOut(Content& content, const Write& write) {
        if (write.erases) {
            content.erase(write.key);
        } else {
            content[write.key] = write.value;
        }
    }
    void apply(Write write) {
        carryOut(written_, write);
        unsynced_.push_back(std::move(write));
    }
    void keepFirst() {
        carryOut(safe_, unsynced_.front());
        unsynced_.erase(unsynced_.begin());
        ++synced_;
    }

    Content written_;
    Content safe_;
    std::vector<Write> unsynced_;
    uint64_t synced_ = 0;
};

}  // namespace quorl::sim
