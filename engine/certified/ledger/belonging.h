// Whether the log and the journal beside a ledger's file are its own. One that was left behind when its ledger was moved or removed
// must never be taken for that of the file which has the name now.
#pragma once

#include <cstdint>
#include <string>

#include "certified/ledger/outcome.h"
#include "certified/ledger/page_file.h"

namespace quorl::certified {

// What a ledger says of itself, on the page that holds nothing else.
struct Properties {
    bool readable = false;
    std::string name;  // the certified name
    std::string id;
    std::string open;      // empty: it was closed
    uint64_t journal = 0;  // the last record of the journal that is in the database
    uint64_t log = 0;      // how often the log has begun anew
};

// As the file has them, or the log where the pages are read with one. QUORL_IO_FAILED.
Outcome readProperties(const PageFile& file, Properties* properties);

// QUORL_INVALID_FILE: the log contains something, and it is not the file's. QUORL_IO_FAILED.
Outcome checkLogBelongs(int descriptor, const std::string& path, const Log& log);

// What is said of a log or a journal that is not the ledger's.
Outcome notItsOwn(const std::string& ledger, const std::string& other);

// Where there is no ledger: QUORL_INVALID_FILE when one has left behind what it stored last. QUORL_IO_FAILED.
Outcome checkNothingLeft(const std::string& path);

}  // namespace quorl::certified
