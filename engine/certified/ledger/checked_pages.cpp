#include "certified/ledger/checked_pages.h"

#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "certified/ledger/checksum.h"
#include "certified/ledger/format.h"

namespace quorl::certified {
namespace {

thread_local int64_t damagedOffset = 0;

// A layer: what SQLite knows of it, and what is below.
struct Layer {
    sqlite3_vfs vfs{};
    sqlite3_vfs* below = nullptr;
    std::string name;
    std::string base;
    Layer* next = nullptr;
};

// An open file; that of the layer below follows it in memory.
struct File {
    sqlite3_file head;
    bool checked;  // a ledger's file, not its log
};
constexpr size_t belowAt = (sizeof(File) + 15) / 16 * 16;

sqlite3_file* below(sqlite3_file* file) noexcept {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + belowAt);
}
bool isPage(sqlite3_file* file, int amount, sqlite3_int64 offset) noexcept {
    return reinterpret_cast<File*>(file)->checked && amount == static_cast<int>(format::pageSize) &&
           offset % format::pageSize == 0;
}
uint32_t numberOf(sqlite3_int64 offset) noexcept {
    return static_cast<uint32_t>(offset / format::pageSize) + 1;
}

int closeFile(sqlite3_file* file) {
    return below(file)->pMethods->xClose(below(file));
}
int readFile(sqlite3_file* file, void* bytes, int amount, sqlite3_int64 offset) {
    const int code = below(file)->pMethods->xRead(below(file), bytes, amount, offset);
    if (!isPage(file, amount, offset) || (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ)) return code;
    // SQLite reads no page that was not written: one that is cut off is lost.
    if (code == SQLITE_OK && pageIntact(numberOf(offset), {static_cast<unsigned char*>(bytes), format::pageSize}))
        return SQLITE_OK;
    damagedOffset = offset;
    return SQLITE_IOERR_DATA;
}
int writeFile(sqlite3_file* file, const void* bytes, int amount, sqlite3_int64 offset) {
    if (!isPage(file, amount, offset)) return below(file)->pMethods->xWrite(below(file), bytes, amount, offset);
    unsigned char page[format::pageSize];
    std::memcpy(page, bytes, sizeof(page));
    sealPage(numberOf(offset), page);
    return below(file)->pMethods->xWrite(below(file), page, amount, offset);
}
int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return below(file)->pMethods->xTruncate(below(file), size);
}
int syncFile(sqlite3_file* file, int flags) {
    return below(file)->pMethods->xSync(below(file), flags);
}
int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
    return below(file)->pMethods->xFileSize(below(file), size);
}
int lockFile(sqlite3_file* file, int level) {
    return below(file)->pMethods->xLock(below(file), level);
}
int unlockFile(sqlite3_file* file, int level) {
    return below(file)->pMethods->xUnlock(below(file), level);
}
int askForReservedLock(sqlite3_file* file, int* held) {
    return below(file)->pMethods->xCheckReservedLock(below(file), held);
}
int controlFile(sqlite3_file* file, int operation, void* argument) {
    return below(file)->pMethods->xFileControl(below(file), operation, argument);
}
int sectorSize(sqlite3_file* file) {
    return below(file)->pMethods->xSectorSize(below(file));
}
int deviceTraits(sqlite3_file* file) {
    return below(file)->pMethods->xDeviceCharacteristics(below(file));
}

constexpr sqlite3_io_methods methods = {
    .iVersion = 1,  // neither shared memory nor mapped files
    .xClose = closeFile,
    .xRead = readFile,
    .xWrite = writeFile,
    .xTruncate = truncateFile,
    .xSync = syncFile,
    .xFileSize = sizeOfFile,
    .xLock = lockFile,
    .xUnlock = unlockFile,
    .xCheckReservedLock = askForReservedLock,
    .xFileControl = controlFile,
    .xSectorSize = sectorSize,
    .xDeviceCharacteristics = deviceTraits,
    .xShmMap = nullptr,
    .xShmLock = nullptr,
    .xShmBarrier = nullptr,
    .xShmUnmap = nullptr,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

sqlite3_vfs* belowOf(sqlite3_vfs* vfs) noexcept {
    return static_cast<Layer*>(vfs->pAppData)->below;
}
int openFile(sqlite3_vfs* vfs, sqlite3_filename path, sqlite3_file* file, int flags, int* outFlags) {
    sqlite3_vfs* const lower = belowOf(vfs);
    file->pMethods = nullptr;
    below(file)->pMethods = nullptr;
    reinterpret_cast<File*>(file)->checked = (flags & SQLITE_OPEN_MAIN_DB) != 0;
    const int code = lower->xOpen(lower, path, below(file), flags, outFlags);
    if (below(file)->pMethods != nullptr) file->pMethods = &methods;
    return code;
}

int deleteFile(sqlite3_vfs* vfs, const char* path, int syncFolder) {
    return belowOf(vfs)->xDelete(belowOf(vfs), path, syncFolder);
}
int accessFile(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
    // SQLite would play a rollback journal of that name back into the ledger. A ledger has none: it is another database's.
    if (std::string_view(path).ends_with("-journal")) {
        *result = 0;
        return SQLITE_OK;
    }
    return belowOf(vfs)->xAccess(belowOf(vfs), path, flags, result);
}
int fullPath(sqlite3_vfs* vfs, const char* path, int size, char* full) {
    return belowOf(vfs)->xFullPathname(belowOf(vfs), path, size, full);
}
int lastError(sqlite3_vfs* vfs, int size, char* text) {
    return belowOf(vfs)->xGetLastError(belowOf(vfs), size, text);
}

constinit std::mutex lock;
constinit Layer* first = nullptr;

}  // namespace

uint64_t pageChecksum(uint32_t number, std::span<const unsigned char> page) noexcept {
    Checksum sum;
    sum.add(number);
    sum.add(page.data(), page.size() - pageReserve);
    return sum.value();
}

bool pageIntact(uint32_t number, std::span<const unsigned char> page) noexcept {
    uint64_t stored = 0;
    std::memcpy(&stored, page.data() + page.size() - pageReserve, pageReserve);
    return stored == pageChecksum(number, page);
}

void sealPage(uint32_t number, std::span<unsigned char> page) noexcept {
    const uint64_t sum = pageChecksum(number, page);
    std::memcpy(page.data() + page.size() - pageReserve, &sum, pageReserve);
}

int64_t damagedPageOffset() noexcept {
    return damagedOffset;
}

const char* checkedPages(const char* base) noexcept {
    const std::lock_guard guard(lock);
    for (const Layer* layer = first; layer != nullptr; layer = layer->next) {
        if (layer->base == base) return layer->name.c_str();
    }
    sqlite3_vfs* const lower = sqlite3_vfs_find(base);
    if (lower == nullptr) return nullptr;
    try {
        auto layer = std::make_unique<Layer>();
        layer->name = std::string("quorl-ledger-") + base;
        layer->base = base;
        layer->below = lower;
        layer->vfs = *lower;  // what is not replaced has nothing to do with files
        layer->vfs.pNext = nullptr;
        layer->vfs.zName = layer->name.c_str();
        layer->vfs.szOsFile = static_cast<int>(belowAt) + lower->szOsFile;
        layer->vfs.pAppData = layer.get();
        layer->vfs.xOpen = openFile;
        layer->vfs.xDelete = deleteFile;
        layer->vfs.xAccess = accessFile;
        layer->vfs.xFullPathname = fullPath;
        layer->vfs.xGetLastError = lastError;
        if (sqlite3_vfs_register(&layer->vfs, 0) != SQLITE_OK) return nullptr;
        layer->next = first;
        first = layer.release();
        return first->name.c_str();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace quorl::certified
