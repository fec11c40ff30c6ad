// The pages of a ledger's file as its log says they are, read without SQLite and without changing anything.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "certified/ledger/format.h"
#include "certified/ledger/outcome.h"

namespace quorl::certified {

// What the log beside a ledger's file contains. SQLite's recovery takes all frames up to the last that ends a transaction and whose
// checksum, which runs through all before it, is right; what follows never was, as far as it is concerned.
struct Log {
    int64_t size = -1;                             // of the file; -1: there is none
    bool blank = true;                             // where it should begin there are only zeros, or nothing
    bool present = false;                          // with a valid beginning
    uint64_t frames = 0;                           // that count
    uint32_t pages = 0;                            // of the file after the last of them; 0: none counts
    std::unordered_map<uint32_t, int64_t> newest;  // page: where in the log its last image is
    int64_t end = 0;                               // of the frames that count
    // Behind the first frame that is wrong: frames of the same log, and how many transactions they end. A process that is killed
    // leaves none, since it writes in order. A failure of the power leaves some of what was not synced, which at
    // Durability::power is one transaction. Anything else is damage.
    uint64_t laterFrames = 0;
    uint64_t laterTransactions = 0;
};

inline constexpr int64_t logHeaderSize = 32;
inline constexpr int64_t logFrameSize = 24 + int64_t{format::pageSize};

// QUORL_IO_FAILED.
Outcome readLog(const std::string& path, Log* log);

// What is wrong with the beginning of the log of a ledger that was not closed; null: nothing. There was one before the file's mark
// said that the ledger is open.
const char* faultOf(const Log& log) noexcept;

// The beginning of a log that contains nothing.
std::array<unsigned char, logHeaderSize> emptyLog() noexcept;

class PageFile {
  public:
    // descriptor: the ledger's file, which stays open meanwhile.
    PageFile(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}
    ~PageFile();
    PageFile(const PageFile&) = delete;
    PageFile& operator=(const PageFile&) = delete;

    // log: read before; one that contains nothing is none.
    Outcome open(Log log);

    struct Page {
        alignas(8) unsigned char bytes[format::pageSize];
        bool intact = false;
        bool inLog = false;
        int64_t offset = 0;  // of its image, in the file or in the log
    };
    // number counts from 1. QUORL_IO_FAILED.
    Outcome read(uint32_t number, Page* page) const;
    uint32_t pages() const noexcept { return pages_; }
    const Log& log() const noexcept { return log_; }
    const std::string& path() const noexcept { return path_; }
    std::string logPath() const { return path_ + "-wal"; }

  private:
    const int descriptor_;
    const std::string path_;
    int logDescriptor_ = -1;
    Log log_;
    uint32_t pages_ = 0;
};

}  // namespace quorl::certified
