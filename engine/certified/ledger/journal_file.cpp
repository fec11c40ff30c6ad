#include "certified/ledger/journal_file.h"

#include <algorithm>

namespace quorl::certified {

int JournalFile::open(const char* layer, const std::string& path, int64_t bytes) {
    layer_ = sqlite3_vfs_find(layer);
    if (layer_ == nullptr) return SQLITE_ERROR;
    path_ = path;
    file_ = std::make_unique<uint64_t[]>((static_cast<size_t>(layer_->szOsFile) + 7) / 8);
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MAIN_JOURNAL;
    int code = layer_->xOpen(layer_, path_.c_str(), file(), flags, nullptr);
    if (code != SQLITE_OK) {
        if (file()->pMethods != nullptr) file()->pMethods->xClose(file());
        file_.reset();
        return code;
    }
    auto chunk = static_cast<int>(bytes);
    sqlite3_int64 size = bytes;
    file()->pMethods->xFileControl(file(), SQLITE_FCNTL_CHUNK_SIZE, &chunk);
    code = file()->pMethods->xFileControl(file(), SQLITE_FCNTL_SIZE_HINT, &size);
    if (code == SQLITE_IOERR_WRITE) code = SQLITE_FULL;
    if (code == SQLITE_OK || code == SQLITE_NOTFOUND) code = file()->pMethods->xSync(file(), SQLITE_SYNC_NORMAL);
    if (code != SQLITE_OK) close();
    return code;
}

int JournalFile::write(std::string_view record, int64_t offset) noexcept {
    constexpr size_t most = 64 << 10;  // SQLite's layers take no more than 128 KiB at once
    int code = SQLITE_OK;
    for (; code == SQLITE_OK && !record.empty(); record.remove_prefix(std::min(most, record.size())), offset += most) {
        code = file()->pMethods->xWrite(file(), record.data(), static_cast<int>(std::min(most, record.size())), offset);
    }
    return code;
}

void JournalFile::close() noexcept {
    if (file_ == nullptr) return;
    file()->pMethods->xClose(file());
    file_.reset();
}

int JournalFile::remove() {
    close();
    return remove(layer_->zName, path_);
}

int JournalFile::remove(const char* layer, const std::string& path) {
    sqlite3_vfs* const vfs = sqlite3_vfs_find(layer);
    const int code = vfs != nullptr ? vfs->xDelete(vfs, path.c_str(), 0) : SQLITE_ERROR;
    return code == SQLITE_IOERR_DELETE_NOENT ? SQLITE_OK : code;
}

}  // namespace quorl::certified
