// The file of a journal, through the file layer that SQLite uses for the ledger, so that both meet the same disk.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace quorl::certified {

// Functions answer SQLite's codes.
class JournalFile {
  public:
    JournalFile() noexcept = default;
    ~JournalFile() { close(); }
    JournalFile(const JournalFile&) = delete;
    JournalFile& operator=(const JournalFile&) = delete;

    bool isOpen() const noexcept { return file_ != nullptr; }
    // Opens the file or makes it, with room for so many bytes, and has its name safe in the folder.
    int open(const char* layer, const std::string& path, int64_t bytes);
    int write(std::string_view record, int64_t offset) noexcept;
    void close() noexcept;
    int remove();  // of a file that was open
    static int remove(const char* layer, const std::string& path);
    void abandon() noexcept { static_cast<void>(file_.release()); }

  private:
    sqlite3_file* file() const noexcept { return reinterpret_cast<sqlite3_file*>(file_.get()); }

    sqlite3_vfs* layer_ = nullptr;
    std::string path_;
    std::unique_ptr<uint64_t[]> file_;
};

}  // namespace quorl::certified
