// The file of a ledger, and that it has one owner.
//
// The owner holds a lock of the open file description on the bytes at which SQLite takes its own locks: another ledger is refused
// whichever path leads it to the file, in this process as well as in another one, and so is a program that opens the file with
// SQLite itself. The lock goes with the process. It survives that the program opens and closes the file beside the ledger, which
// a lock of the process would not. SQLite is used without locks of its own (the VFS "unix-none").
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "certified/ledger/outcome.h"

namespace quorl::certified {

class OwnedFile {
  public:
    // own: to write, one at a time. read: any number of readers, and no owner meanwhile.
    enum class Use { own, read };

    // QUORL_FILE_NOT_FOUND: it or its folder does not exist; QUORL_NOT_FILE_OWNER: it is in use, or another user's;
    // QUORL_INVALID_FILE: not a file; QUORL_IO_FAILED. Whatever is refused is left as it is.
    static Outcome open(const std::string& path, Use use, std::unique_ptr<OwnedFile>* file);

    ~OwnedFile();
    OwnedFile(const OwnedFile&) = delete;
    OwnedFile& operator=(const OwnedFile&) = delete;

    // Tells those that are refused which process has the file. To be said again when the file was closed in this process, by
    // whomever: the system forgets it then.
    void name() noexcept;

    int descriptor() const noexcept { return descriptor_; }
    const std::string& path() const noexcept { return path_; }  // without symbolic links
    // Whether this process is a child that was forked while the file was open: the parent is the owner.
    bool inherited() const noexcept { return inherited_.load(std::memory_order_relaxed); }

  private:
    friend struct HeldFiles;

    OwnedFile() = default;
    Outcome take(const std::string& path, Use use, bool* changed);

    std::string path_;
    int descriptor_ = -1;
    Use use_ = Use::read;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::atomic<bool> inherited_{false};
    // Neighbours among the files that this process holds; under the lock of held files.
    OwnedFile* next_ = nullptr;
    OwnedFile** link_ = nullptr;  // what points here; null: not in the list
};

// Makes a file with that content, which appears under its name complete or not at all, readable by its user alone.
// QUORL_ALREADY_EXISTS: there is one.
Outcome createFile(const std::string& path, const std::string& content);

// "No space left on device" and the like.
std::string systemError(int error);

}  // namespace quorl::certified
