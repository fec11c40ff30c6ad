// What a machine of certified delivery wants stored, and what it is made from again.
//
// The ledger keeps messages and state. It knows subjects by their numbers alone; their texts, and everything else, is state,
// whose keys and values are the machine's own (see the end of docs/internals/certified.md).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companion/message.h"

namespace quorl::certified {

struct Write {
    enum class Kind : uint8_t {
        putMessage,     // subject, number, expires, message
        eraseMessages,  // subject, number to last, both included; what is not there is no error
        putState,       // key, value; replaces what stands under the key
        eraseState,     // key; not being there is no error
    };
    Kind kind = Kind::putState;
    uint32_t subject = 0;        // its number in this ledger
    uint64_t number = 0;         // of the message; of eraseMessages the first
    uint64_t last = 0;           // of eraseMessages
    int64_t expires = 0;         // wall clock, nanoseconds; 0: never
    companion::Message message;  // of putMessage: image and reply subject are kept, its subject and attributes are not
    std::string key;             // 1 to 300 bytes, any of them
    std::string value;           // at most 1 MiB
};

// The writes of one step: all of them or none.
struct Transaction {
    // Ascending, without a rule for the distance. Transactions are in force in the order in which they are handed over.
    // persisted(token) says that this one and all before it are as safe as the ledger's level promises.
    uint64_t token = 0;  // 0: there is nothing to store
    // Safe from a power failure before persisted(token), whatever the ledger's level.
    bool sync = false;
    // After a failure every transaction is refused until one that says that it knows of the failure.
    bool afterFailure = false;
    std::vector<Write> writes;
};

// A message of which the ledger has the image, as it is told when a machine starts.
struct StoredMessage {
    uint32_t subject = 0;
    uint64_t number = 0;
    uint32_t size = 0;    // bytes of the image
    int64_t expires = 0;  // as in Write
};

// An image that the machine needs again. The answer is Machine::fetched; there may be many at once.
struct Fetch {
    uint32_t subject = 0;
    uint64_t number = 0;
};

}  // namespace quorl::certified
