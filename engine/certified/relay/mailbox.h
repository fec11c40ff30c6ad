// What a relay agent keeps for one transport that is away: the messages that came for it, in order, and what its listeners have said.
//
// It is in the relay agent's ledger: each item's image as a message under the mailbox's number, and what stands beside it as state.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "certified/protocol/store.h"
#include "companion/message.h"

namespace quorl::certified {

class Mailbox {
  public:
    struct Item {
        uint64_t after = 0;  // of data: the number of its stream that came before; 0: none did, or it is not known
        std::string subject;
        std::string attributes;
        uint32_t size = 0;
    };

    // number: its own among those of the agent. limit: bytes; 0: as many as there is room for.
    Mailbox(uint32_t number, uint64_t limit) : number_(number), limit_(limit) {}

    // ---- from the ledger. False: it makes no sense.
    bool load(std::string_view key, std::string_view value);
    void load(const StoredMessage& message);

    // Each says what to write. False: it is not kept, since it is there already, or there is no room. Where one thing was not kept
    // no data behind it is, so that no gap looks like the sender's.
    bool add(const companion::Message& message, Transaction* transaction);
    void refuse() noexcept { full_ = true; }
    // The transport is back, and a later absence begins with what it knows then.
    void accept() noexcept { full_ = false; }
    void forget(uint64_t first, uint64_t last, Transaction* transaction);

    const std::map<uint64_t, Item>& items() const noexcept { return items_; }
    uint64_t bytes() const noexcept { return bytes_; }
    static constexpr char key = 'I';

  private:
    std::string keyOf(uint64_t item) const;
    void remember(const Item& item);

    const uint32_t number_;
    const uint64_t limit_;
    std::map<uint64_t, Item> items_;
    uint64_t bytes_ = 0;
    uint64_t next_ = 1;
    bool full_ = false;
    std::map<std::string, uint64_t, std::less<>> highest_;  // number of each stream: what came again is not kept twice
    std::map<std::string, std::string> said_;               // the last that each listener has said of each kind
};

}  // namespace quorl::certified
