#include "disk.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace quorltest {
namespace {

constexpr int64_t sector = 512;

Disk* disk = nullptr;

struct File {
    sqlite3_file head;
    int descriptor;
    int64_t chunk;
    bool temporary;
    char name[256];
};
File* own(sqlite3_file* file) {
    return reinterpret_cast<File*>(file);
}

std::string nameOf(const char* path) {
    return std::filesystem::path(path).filename().string();
}

int64_t sizeOf(int descriptor) {
    struct stat about {};
    return fstat(descriptor, &about) == 0 ? about.st_size : 0;
}

int failure(int otherwise) {
    return disk->fault() == Disk::Fault::full ? SQLITE_FULL : otherwise;
}

int closeFile(sqlite3_file* file) {
    close(own(file)->descriptor);
    return SQLITE_OK;
}

int readFile(sqlite3_file* file, void* bytes, int amount, sqlite3_int64 offset) {
    if (!disk->counts({.kind = Disk::Call::Kind::read, .file = own(file)->name})) return SQLITE_IOERR_READ;
    const ssize_t count = pread(own(file)->descriptor, bytes, static_cast<size_t>(amount), offset);
    if (count < 0) return SQLITE_IOERR_READ;
    if (count == amount) return SQLITE_OK;
    std::memset(static_cast<char*>(bytes) + count, 0, static_cast<size_t>(amount - count));
    return SQLITE_IOERR_SHORT_READ;
}

int writeFile(sqlite3_file* file, const void* bytes, int amount, sqlite3_int64 offset) {
    if (!disk->fits(own(file)->name, offset + amount)) return SQLITE_FULL;
    const Disk::Call call{.kind = Disk::Call::Kind::write,
                          .file = own(file)->name,
                          .offset = offset,
                          .bytes = std::string(static_cast<const char*>(bytes), static_cast<size_t>(amount))};
    const bool fails = !disk->counts(call);
    const int done = !fails ? amount : disk->half() ? amount / 2 : 0;
    if (pwrite(own(file)->descriptor, bytes, static_cast<size_t>(done), offset) != done) return SQLITE_IOERR_WRITE;
    return fails ? failure(SQLITE_IOERR_WRITE) : SQLITE_OK;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    if (own(file)->chunk > 0) size = (size + own(file)->chunk - 1) / own(file)->chunk * own(file)->chunk;
    if (!disk->fits(own(file)->name, size)) return SQLITE_FULL;
    if (!disk->counts({.kind = Disk::Call::Kind::truncate, .file = own(file)->name, .offset = size})) {
        return failure(SQLITE_IOERR_TRUNCATE);
    }
    return ftruncate(own(file)->descriptor, size) == 0 ? SQLITE_OK : SQLITE_IOERR_TRUNCATE;
}

int syncFile(sqlite3_file* file, int) {
    if (!disk->counts({.kind = Disk::Call::Kind::sync, .file = own(file)->name})) return failure(SQLITE_IOERR_FSYNC);
    return SQLITE_OK;
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
    if (!disk->counts({.kind = Disk::Call::Kind::other, .file = own(file)->name})) return SQLITE_IOERR_FSTAT;
    *size = sizeOf(own(file)->descriptor);
    return SQLITE_OK;
}

int lockFile(sqlite3_file*, int) {
    return SQLITE_OK;
}
int askForReservedLock(sqlite3_file*, int* held) {
    *held = 0;
    return SQLITE_OK;
}

int controlFile(sqlite3_file* file, int operation, void* argument) {
    if (operation == SQLITE_FCNTL_CHUNK_SIZE) {
        own(file)->chunk = *static_cast<int*>(argument);
        return SQLITE_OK;
    }
    if (operation == SQLITE_FCNTL_SIZE_HINT) {
        const int64_t chunk = own(file)->chunk;
        if (chunk <= 0) return SQLITE_OK;
        const int64_t size = (*static_cast<sqlite3_int64*>(argument) + chunk - 1) / chunk * chunk;
        if (size <= sizeOf(own(file)->descriptor)) return SQLITE_OK;
        const int code = truncateFile(file, size);
        return code == SQLITE_OK ? SQLITE_OK : SQLITE_IOERR_WRITE;
    }
    return SQLITE_NOTFOUND;
}

int sectorSize(sqlite3_file*) {
    return 4096;
}
int deviceTraits(sqlite3_file*) {
    return SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

constexpr sqlite3_io_methods methods = {1,           closeFile,  readFile,     writeFile, truncateFile,
                                        syncFile,    sizeOfFile, lockFile,     lockFile,  askForReservedLock,
                                        controlFile, sectorSize, deviceTraits, nullptr,   nullptr,
                                        nullptr,     nullptr,    nullptr,      nullptr};

int openFile(sqlite3_vfs*, sqlite3_filename path, sqlite3_file* file, int flags, int* outFlags) {
    file->pMethods = nullptr;
    const std::string name = nameOf(path);
    struct stat about {};
    const bool there = stat(path, &about) == 0;
    if (!there && (flags & SQLITE_OPEN_CREATE) == 0) return SQLITE_CANTOPEN;
    const auto kind = there ? Disk::Call::Kind::other : Disk::Call::Kind::create;
    if (!disk->counts({.kind = kind, .file = name})) return failure(SQLITE_CANTOPEN);
    const int access = (flags & SQLITE_OPEN_READONLY) != 0 ? O_RDONLY : O_RDWR | O_CREAT;
    const int descriptor = open(path, access | O_CLOEXEC, 0600);
    if (descriptor < 0 || name.size() >= sizeof(File::name)) return SQLITE_CANTOPEN;
    own(file)->descriptor = descriptor;
    own(file)->chunk = 0;
    std::strcpy(own(file)->name, name.c_str());
    file->pMethods = &methods;
    if (outFlags != nullptr) *outFlags = flags;
    return SQLITE_OK;
}

int deleteFile(sqlite3_vfs*, const char* path, int syncsFolder) {
    if (!disk->counts({.kind = Disk::Call::Kind::remove, .file = nameOf(path), .syncsFolder = syncsFolder != 0})) {
        return failure(SQLITE_IOERR_DELETE);
    }
    if (unlink(path) == 0) return SQLITE_OK;
    return errno == ENOENT ? SQLITE_IOERR_DELETE_NOENT : SQLITE_IOERR_DELETE;
}

int accessFile(sqlite3_vfs*, const char* path, int, int* result) {
    if (!disk->counts({.kind = Disk::Call::Kind::other, .file = nameOf(path)})) return SQLITE_IOERR_ACCESS;
    struct stat about {};
    *result = stat(path, &about) == 0 ? 1 : 0;
    return SQLITE_OK;
}

int fullPath(sqlite3_vfs*, const char* path, int size, char* full) {
    return snprintf(full, static_cast<size_t>(size), "%s", path) < size ? SQLITE_OK : SQLITE_CANTOPEN;
}

sqlite3_vfs layer;

// A file as it is on the disk and as the system has it in memory.
struct State {
    std::string safe;
    bool safeName = true;  // the folder's entry is safe
    bool there = true;
    bool goneSafely = false;
    std::vector<const Disk::Call*> pending;
};

void carryOut(std::string* content, const Disk::Call& call, int64_t from, int64_t to) {
    if (call.kind == Disk::Call::Kind::truncate) {
        content->resize(static_cast<size_t>(call.offset), '\0');
        return;
    }
    if (from >= to) return;
    if (content->size() < static_cast<size_t>(call.offset + to))
        content->resize(static_cast<size_t>(call.offset + to), '\0');
    content->replace(static_cast<size_t>(call.offset + from), static_cast<size_t>(to - from), call.bytes,
                     static_cast<size_t>(from), static_cast<size_t>(to - from));
}
// How much of it a killed process may have done: up to the end of a sector.
int64_t halfOf(const Disk::Call& call) {
    const auto size = static_cast<int64_t>(call.bytes.size());
    return std::max<int64_t>(0, (call.offset + size / 2) / sector * sector - call.offset);
}

void carryOut(std::string* content, const Disk::Call& call) {
    carryOut(content, call, 0, static_cast<int64_t>(call.bytes.size()));
}

}  // namespace

Disk::Disk(const char* name) {
    disk = this;
    if (layer.zName != nullptr) return;
    layer = *sqlite3_vfs_find("unix-none");
    layer.pNext = nullptr;
    layer.zName = name;
    layer.szOsFile = sizeof(File);
    layer.xOpen = openFile;
    layer.xDelete = deleteFile;
    layer.xAccess = accessFile;
    layer.xFullPathname = fullPath;
    sqlite3_vfs_register(&layer, 0);
}

Disk::~Disk() {
    disk = nullptr;  // the layer stays for the next one: others were put over it
}

void Disk::record(const std::string& folder) {
    folder_ = folder;
    before_ = filesOf(folder);
    calls_.clear();
    recording_ = true;
}

void Disk::failAt(size_t call, Fault fault, size_t times, bool half) {
    counted_ = 0;
    failFrom_ = call;
    failUntil_ = times > SIZE_MAX - call ? SIZE_MAX : call + times;
    fault_ = fault;
    half_ = half;
    failed_ = false;
}

bool Disk::counts(Call call) {
    const bool fails = fault_ != Fault::none && counted_ >= failFrom_ && counted_ < failUntil_;
    ++counted_;
    if (fails) {
        failed_ = true;
        if (call.kind == Call::Kind::sync) {
            call.kind = Call::Kind::failedSync;
            calls_.push_back(std::move(call));
        } else if (call.kind == Call::Kind::write && half_) {
            call.bytes.resize(call.bytes.size() / 2);
            calls_.push_back(std::move(call));
        }
        return false;
    }
    if (recording_ && call.kind != Call::Kind::read && call.kind != Call::Kind::other)
        calls_.push_back(std::move(call));
    return true;
}

int64_t Disk::used() const {
    int64_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        bytes += static_cast<int64_t>(entry.file_size());
    }
    return bytes;
}

bool Disk::fits(const std::string& file, int64_t end) const {
    if (limit_ == INT64_MAX) return true;
    const std::filesystem::path path = std::filesystem::path(folder_) / file;
    const int64_t size = std::filesystem::exists(path) ? static_cast<int64_t>(std::filesystem::file_size(path)) : 0;
    return end <= size || used() - size + end <= limit_;
}

Files Disk::after(size_t call, Survival survival, bool torn, std::mt19937_64& dice) const {
    std::map<std::string, State> states;
    for (const auto& [name, content] : before_) states[name].safe = content;
    for (size_t i = 0; i < call; ++i) {
        const Call& done = calls_[i];
        State& state = states[done.file];
        switch (done.kind) {
            case Call::Kind::write:
            case Call::Kind::truncate:
                state.pending.push_back(&done);
                break;
            case Call::Kind::create:
                state = {};
                state.safeName = false;
                break;
            case Call::Kind::remove:
                state.there = false;
                state.goneSafely = done.syncsFolder;
                break;
            case Call::Kind::sync:
                for (const Call* write : state.pending) carryOut(&state.safe, *write);
                state.pending.clear();
                state.safeName = true;  // the first sync of a log syncs its folder too
                break;
            case Call::Kind::failedSync:
                state.pending.clear();
                break;
            default:
                break;
        }
    }
    if (torn && call < calls_.size() && calls_[call].kind == Call::Kind::write) {
        states[calls_[call].file].pending.push_back(&calls_[call]);
    }
    Files files;
    for (auto& [name, state] : states) {
        const bool killed = survival == Survival::all;
        if (!state.there && (killed || state.goneSafely || survival != Survival::random || dice() % 2 == 0)) continue;
        if (!state.safeName && !killed && (survival == Survival::none || dice() % 2 == 0)) continue;
        for (const Call* write : state.pending) {
            const auto size = static_cast<int64_t>(write->bytes.size());
            const bool half = torn && write == state.pending.back() && call < calls_.size() && write == &calls_[call];
            switch (survival) {
                case Survival::all:
                    carryOut(&state.safe, *write, 0, half ? halfOf(*write) : size);
                    break;
                case Survival::none:
                    break;
                case Survival::newest:
                    if (write == state.pending.back()) carryOut(&state.safe, *write);
                    break;
                case Survival::random:
                    if (write->kind == Call::Kind::truncate) {
                        if (dice() % 2 == 0) carryOut(&state.safe, *write);
                        break;
                    }
                    for (int64_t at = 0; at < size;) {
                        const int64_t end =
                            std::min(size, (write->offset + at) / sector * sector + sector - write->offset);
                        if (dice() % 2 == 0) carryOut(&state.safe, *write, at, end);
                        at = end;
                    }
                    break;
            }
        }
        files[name] = std::move(state.safe);
    }
    return files;
}

Files filesOf(const std::string& folder) {
    Files files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        files[entry.path().filename().string()] = content.str();
    }
    return files;
}

void putFiles(const std::string& folder, const Files& files) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) std::filesystem::remove(entry.path());
    for (const auto& [name, content] : files) {
        std::ofstream(std::filesystem::path(folder) / name, std::ios::binary)
            .write(content.data(), static_cast<std::streamsize>(content.size()));
    }
}

}  // namespace quorltest
