// Looks into the file of a ledger that nobody has open, without changing it, and goes on where it is damaged: what verifying and
// exporting a ledger are made of.
//
//     Inspection found;
//     Outcome outcome = inspect(path, visitor, &found);   // QUORL_OK: it was read to its end
//     if (found.findings == 0) ...                        // and nothing is wrong with it
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "certified/ledger/outcome.h"

namespace quorl::certified {

class OwnedFile;

// Something that is wrong.
struct Finding {
    std::string text;  // a sentence, with all of what follows
    std::string file;  // the ledger's, or its log's
    int64_t offset = 0;
    // Of messages that are lost by it, or may be: from the first to the last of those numbers. subject is empty where none are.
    std::string subject;
    uint32_t subjectNumber = 0;
    uint64_t first = 0;
    uint64_t last = 0;  // UINT64_MAX: there is no telling where they end
};

// A message that can be read. What it gives out lasts until the call returns.
struct InspectedMessage {
    std::string_view subject;
    uint32_t subjectNumber = 0;
    uint64_t number = 0;
    int64_t expires = 0;  // wall clock, ns; 0: never
    std::string_view reply;
    std::string_view image;  // docs/reference/wire-format.md
    // Found where damage has cut it off from the rest: it may have been confirmed since. subject is empty where it is lost.
    bool outOfPlace = false;
};

class Inspector {
  public:
    virtual ~Inspector() = default;
    // By subject and number, and behind them those that are in the journal.
    virtual void message(const InspectedMessage&) {}
    virtual void state(std::string_view key, std::string_view value) {
        (void)key;
        (void)value;
    }
    virtual void finding(const Finding&) {}
    // Now and then. false: stop, with QUORL_INTR.
    virtual bool progress(uint64_t pagesDone, uint64_t pages) {
        (void)pagesDone;
        (void)pages;
        return true;
    }
};

struct Inspection {
    std::string name;        // the certified name
    std::string durability;  // "process" or "power", of who has opened it last; empty when it was closed
    bool closed = false;     // properly, by who had it open last
    uint64_t pages = 0;      // of 4,096 bytes
    uint64_t freePages = 0;  // of them, to be used again
    uint64_t logFrames = 0;  // pages in the log
    uint64_t messages = 0;   // that can be read
    uint64_t bytes = 0;      // of their images
    uint64_t states = 0;
    uint64_t findings = 0;
};

// QUORL_NOT_FILE_OWNER: it is in use, and is left alone. QUORL_INVALID_FILE, QUORL_VERSION_MISMATCH: no ledger that this release
// knows. QUORL_FILE_NOT_FOUND, QUORL_IO_FAILED, QUORL_INTR.
Outcome inspect(const std::string& path, Inspector& inspector, Inspection* found) noexcept;
// The same of a file that is open, by whoever has it.
Outcome inspect(const OwnedFile& owned, Inspector& inspector, Inspection* found) noexcept;

}  // namespace quorl::certified
