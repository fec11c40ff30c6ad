// A disk for SQLite that remembers what was done to it, so that a test can tell what it would hold after a crash at any point, and
// that fails when it is told to.
//
// The files are real ones in a folder of the test. What SQLite writes is in them at once, as in the page cache of a system; the
// record tells which of it was safe from a power failure when.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace quorltest {

// What a crash leaves of writes that were not synced. A write survives sector by sector.
enum class Survival {
    all,     // the process was killed, or the disk was lucky
    none,    // nothing that was not synced
    random,  // any sectors of any of them, whatever their order
    newest,  // the last of them alone, whole
};

using Files = std::map<std::string, std::string>;  // name in the folder: content

class Disk {
  public:
    // Registers a file layer under that name, always the same; one disk at a time.
    explicit Disk(const char* name);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    struct Call {
        enum class Kind { write, truncate, create, remove, sync, failedSync, read, other };
        Kind kind = Kind::other;
        std::string file = {};
        int64_t offset = 0;
        std::string bytes = {};    // of a write
        bool syncsFolder = false;  // of a remove
    };

    // ---- the record
    void record(const std::string& folder);  // from now on; what is in the folder is safe
    size_t calls() const { return calls_.size(); }
    const std::vector<Call>& record() const { return calls_; }
    // The files after a crash before the call of that number (the first is 0). torn: of that call, if it is a write, the first half
    // has been done.
    Files after(size_t call, Survival survival, bool torn, std::mt19937_64& dice) const;

    // ---- failing
    enum class Fault { none, ioError, full };
    // The call of that number fails, counted from now, and so many after it; a failed write may do its first half.
    void failAt(size_t call, Fault fault, size_t times = 1, bool half = false);
    size_t counted() const { return counted_; }
    bool failed() const { return failed_; }  // since failAt
    // Bytes that all files together may have; a write beyond is refused as by a full disk.
    void limit(int64_t bytes) { limit_ = bytes; }
    int64_t used() const;

    // ---- for the file layer
    bool counts(
        Call call);  // false: it fails. What a failed sync was to make safe never will be, unless it is written again
    Fault fault() const { return fault_; }
    bool half() const { return half_; }
    bool fits(const std::string& file, int64_t end) const;
    const std::string& folder() const { return folder_; }

  private:
    std::string folder_;
    Files before_;
    std::vector<Call> calls_;
    bool recording_ = false;
    size_t counted_ = 0;
    size_t failFrom_ = SIZE_MAX;
    size_t failUntil_ = SIZE_MAX;
    Fault fault_ = Fault::none;
    bool half_ = false;
    bool failed_ = false;
    int64_t limit_ = INT64_MAX;
};

Files filesOf(const std::string& folder);
void putFiles(const std::string& folder, const Files& files);

}  // namespace quorltest
