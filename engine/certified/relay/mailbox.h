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
        uint64_t size = 0;  // of the image and the attributes
        bool data = false;
    };

    // number: its own among those of the agent. limit: bytes; 0: as many as there is room for.
    Mailbox(uint32_t number, uint64_t limit) : number_(number), limit_(limit) {}

    // ---- from the ledger. False: it makes no sense.
    bool load(std::string_view key, std::string_view value);
    void load(const StoredMessage& message);

    // Each says what to write. False: it is not kept, since it is there already, or there is no room, or it has no room in an item
    // (relayItemMost): its sender says it again. Where one thing was not kept no data behind it is, so that no gap looks like the
    // sender's. item: the number that it has got. Throws std::bad_alloc, and the mailbox is as it was then.
    bool add(const companion::Message& message, Transaction* transaction, uint64_t* item);
    // The ledger has not taken that item: it has never come, and is kept when it comes again.
    void drop(uint64_t item) noexcept;
    void refuse() noexcept { full_ = true; }
    // The transport is back, and a later absence begins with what it knows then.
    void accept() noexcept { full_ = false; }
    void forget(uint64_t first, uint64_t last, Transaction* transaction);
    // That item cannot be read any more. What its sender sent behind it is given up with it, since nobody may take the gap for the
    // sender's: whoever sent it still has it.
    void giveUp(uint64_t item, Transaction* transaction);

    const std::map<uint64_t, Item>& items() const noexcept { return items_; }
    uint64_t bytes() const noexcept { return bytes_; }
    static constexpr char key = 'I';
    // What listeners may have said that was not taken yet; what is beyond, they say again.
    static constexpr size_t saidMost = 20'000;

  private:
    std::string keyOf(uint64_t item) const;
    void remember(uint64_t number, Item& item);
    void erase(uint64_t item, Transaction* transaction) const;

    const uint32_t number_;
    const uint64_t limit_;
    std::map<uint64_t, Item> items_;
    uint64_t bytes_ = 0;
    size_t saidItems_ = 0;
    uint64_t next_ = 1;
    bool full_ = false;
    std::map<std::string, uint64_t, std::less<>> highest_;  // number of each stream: what came again is not kept twice
    std::map<std::string, std::pair<uint64_t, std::string>>
        said_;  // the last that each listener has said of each kind, and its item
};

}  // namespace quorl::certified
