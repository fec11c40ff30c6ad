// The journal of a ledger at Durability::process: transactions that are accepted as soon as they are written at its end, and go into
// the database later, many at once. The system keeps what was written when the process is killed.
//
// It is a file of a fixed size beside the ledger's, with "-steps" behind its name. A record begins at a multiple of 64 bytes; all
// numbers have their lowest byte first:
//     0   4  "QLJ1"
//     4   4  bytes of the transactions
//     8   8  the record's number, which counts on from one ledger's beginning
//    16   8  CRC-64/XZ of the ledger's id alone
//    24   8  CRC-64/XZ of the ledger's id, the bytes from 4 to 23, and the transactions
//    32      the transactions' writes, one after the other
// The ledger's id, which nobody knows who sends messages, keeps them from containing records. The records that count are those
// from the file's beginning on whose numbers follow each other; those up to the number that the database's property "journal"
// has are in the database.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "certified/ledger/outcome.h"
#include "certified/protocol/store.h"

namespace quorl::certified::journal {

inline constexpr size_t alignment = 64;
inline constexpr size_t headerSize = 32;

// The file of a journal, if there is one. QUORL_IO_FAILED, QUORL_INVALID_FILE: it is none.
Outcome read(const std::string& path, std::string* content, bool* there);

// Begins a record in the text, adds a write, and finishes it.
void begin(std::string* record);
void add(std::string* record, const Write& write, uint64_t sum);
void finish(std::string* record, uint64_t number, std::string_view ledgerId);

// One write of a record. Views into it.
struct Entry {
    Write::Kind kind = Write::Kind::putState;
    uint32_t subject = 0;
    uint64_t number = 0;
    uint64_t last = 0;
    int64_t expires = 0;
    uint64_t sum = 0;
    std::string_view text;  // the subject
    std::string_view reply;
    std::string_view image;
    std::string_view key;
    std::string_view value;
};

struct Replay {
    uint64_t last = 0;          // number of the last record that counts; what the database has when there is none
    int64_t end = 0;            // where the next one begins, when those that count are kept
    uint64_t highest = 0;       // of all records that are there, whether they count or not
    uint64_t laterRecords = 0;  // behind the first that is wrong, with numbers beyond it: a killed process leaves none
    bool foreign = false;       // it begins with a record of another ledger, and has none of this one
};

// The write that an entry stands for. QUORL_NO_MEMORY; others: its message cannot be one.
quorl_status writeOf(const Entry& entry, Write* write);

// Goes through the content of a journal. entry is called for each write that the database lacks, in order; false stops: a write that
// cannot be one. stored: the number that the database has.
// later: the same for those behind the first record that is wrong, which cannot count; none: nobody asks for them.
bool replay(std::string_view content, std::string_view ledgerId, uint64_t stored,
            const std::function<bool(const Entry&)>& entry, Replay* result,
            const std::function<bool(const Entry&)>& later = {});

}  // namespace quorl::certified::journal
