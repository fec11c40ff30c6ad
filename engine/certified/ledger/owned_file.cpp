#include "certified/ledger/owned_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <system_error>

namespace quorl::certified {
namespace {

// Where SQLite takes its locks: 512 bytes from 1 GiB on, which it never writes. The byte behind them names the owner: its
// process holds a lock of the process there, which tells others its id and excludes nobody.
constexpr off_t firstLock = 0x40000000;
constexpr off_t lockLength = 512;
constexpr off_t nameByte = firstLock + lockLength;

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

struct flock rangeOf(short type, off_t start, off_t length) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

// The process that holds a lock of the process there; 0: not known.
pid_t holderOf(int descriptor, off_t start, off_t length) {
    struct flock range = rangeOf(F_WRLCK, start, length);
    if (fcntl(descriptor, F_GETLK, &range) != 0 || range.l_type == F_UNLCK || range.l_pid <= 0) return 0;
    return range.l_pid;
}

Outcome inUse(const std::string& path, pid_t holder) {
    std::string by = "another process";
    if (holder == getpid()) {
        by = "this process";
    } else if (holder != 0) {
        by = "process " + std::to_string(holder);
    }
    return {QUORL_NOT_FILE_OWNER,
            "the ledger " + path + " is in use by " + by + "; close it there, or use a ledger of your own"};
}

Outcome notOpened(const std::string& path, const struct stat& about, int error) {
    if ((error == EACCES || error == EPERM) && about.st_uid != geteuid()) {
        return {QUORL_NOT_FILE_OWNER, "the ledger " + path + " belongs to user " + std::to_string(about.st_uid) +
                                          ", and this process, of user " + std::to_string(geteuid()) +
                                          ", may not open it"};
    }
    return {QUORL_IO_FAILED, "cannot open the ledger " + path + ": " + systemError(error)};
}

}  // namespace

// The files that this process holds, for a second opener of the same process, and for a child that is forked.
struct HeldFiles {
    static constinit std::mutex lock;
    static constinit OwnedFile* first;

    // Under the lock.
    static bool holds(dev_t device, ino_t inode) noexcept {
        for (const OwnedFile* file = first; file != nullptr; file = file->next_) {
            if (file->device_ == device && file->inode_ == inode) return true;
        }
        return false;
    }
    static void add(OwnedFile* file) noexcept {
        file->next_ = first;
        file->link_ = &first;
        if (first != nullptr) first->link_ = &file->next_;
        first = file;
    }
    static void remove(OwnedFile* file) noexcept {
        *file->link_ = file->next_;
        if (file->next_ != nullptr) file->next_->link_ = file->link_;
        file->link_ = nullptr;
    }

    static void followForks() {
        static pthread_once_t once = PTHREAD_ONCE_INIT;
        pthread_once(&once, [] { pthread_atfork([] { lock.lock(); }, [] { lock.unlock(); }, [] { forget(); }); });
    }
    // In the child. A lock of the open file description lasts until its last descriptor is closed: kept here, it would outlive
    // the parent.
    static void forget() noexcept {
        for (OwnedFile* file = first; file != nullptr; file = file->next_) {
            close(file->descriptor_);
            file->descriptor_ = -1;
            file->inherited_.store(true, std::memory_order_relaxed);
            file->link_ = nullptr;
        }
        first = nullptr;
        lock.unlock();
    }
};

constinit std::mutex HeldFiles::lock;
constinit OwnedFile* HeldFiles::first = nullptr;

std::string systemError(int error) {
    return std::generic_category().message(error);
}

Outcome OwnedFile::open(const std::string& path, Use use, std::unique_ptr<OwnedFile>* file) {
    if (path.empty()) return {QUORL_INVALID_ARG, "a ledger needs the name of a file, and it is empty"};
    HeldFiles::followForks();
    // Again when another file has come under the name between looking and locking.
    for (int attempt = 0; attempt < 10; ++attempt) {
        std::unique_ptr<OwnedFile> taken(new OwnedFile);
        bool changed = false;
        Outcome outcome = taken->take(path, use, &changed);
        if (changed) continue;
        if (outcome.ok()) *file = std::move(taken);
        return outcome;
    }
    return {QUORL_IO_FAILED, "cannot open the ledger " + path + ": it is being replaced all the time"};
}

Outcome OwnedFile::take(const std::string& path, Use use, bool* changed) {
    struct stat about {};
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    if (resolved == nullptr || stat(resolved.get(), &about) != 0) {
        const int error = errno;
        if (error != ENOENT && error != ENOTDIR) {
            return {QUORL_IO_FAILED, "cannot find the ledger " + path + ": " + systemError(error)};
        }
        struct stat link {};
        if (error == ENOENT && lstat(path.c_str(), &link) == 0) {
            return {QUORL_INVALID_FILE, "cannot open the ledger " + path + ": it is a symbolic link to nothing"};
        }
        return {QUORL_FILE_NOT_FOUND, "there is no ledger " + path};
    }
    path_ = resolved.get();
    use_ = use;
    if (!S_ISREG(about.st_mode)) {
        const char* what = S_ISDIR(about.st_mode) ? "a folder" : "not a file";
        return {QUORL_INVALID_FILE, "cannot open the ledger " + path + ": it is " + what};
    }
    {
        const std::lock_guard guard(HeldFiles::lock);
        if (HeldFiles::holds(about.st_dev, about.st_ino)) return inUse(path, getpid());
    }
    descriptor_ = ::open(path_.c_str(), (use == Use::own ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (descriptor_ < 0) return notOpened(path, about, errno);

    const short type = use == Use::own ? F_WRLCK : F_RDLCK;
    struct flock range = rangeOf(type, firstLock, lockLength);
    if (fcntl(descriptor_, F_OFD_SETLK, &range) != 0) {
        if (errno != EAGAIN && errno != EACCES) {
            return {QUORL_IO_FAILED, "cannot lock the ledger " + path + ": " + systemError(errno)};
        }
        const pid_t named = holderOf(descriptor_, nameByte, 1);
        return inUse(path, named != 0 ? named : holderOf(descriptor_, firstLock, lockLength));
    }
    struct stat locked {};
    struct stat now {};
    if (fstat(descriptor_, &locked) != 0) {
        return {QUORL_IO_FAILED, "cannot open the ledger " + path + ": " + systemError(errno)};
    }
    *changed = stat(path_.c_str(), &now) != 0 || now.st_dev != locked.st_dev || now.st_ino != locked.st_ino;
    if (*changed) return {};

    name();
    device_ = locked.st_dev;
    inode_ = locked.st_ino;
    const std::lock_guard guard(HeldFiles::lock);
    HeldFiles::add(this);
    return {};
}

void OwnedFile::name() noexcept {
    struct flock range = rangeOf(use_ == Use::own ? F_WRLCK : F_RDLCK, nameByte, 1);
    fcntl(descriptor_, F_SETLK, &range);
}

OwnedFile::~OwnedFile() {
    const std::lock_guard guard(HeldFiles::lock);
    if (link_ != nullptr) HeldFiles::remove(this);
    if (descriptor_ >= 0) close(descriptor_);
}

namespace {

// A file without a name in the folder where it shall appear, or, where the file system has none such, under a passing name.
class NewFile {
  public:
    explicit NewFile(const std::string& path) {
        descriptor_ = ::open(folderOf(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (descriptor_ >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return;
        passing_ = path + ".XXXXXX";
        descriptor_ = mkostemp(passing_.data(), O_CLOEXEC);
        if (descriptor_ < 0) passing_.clear();
    }
    ~NewFile() {
        const int error = errno;
        if (descriptor_ >= 0) close(descriptor_);
        if (!passing_.empty()) unlink(passing_.c_str());
        errno = error;
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // errno says why not.
    bool complete(const std::string& path, const std::string& content) {
        if (descriptor_ < 0) return false;
        for (size_t written = 0; written < content.size();) {
            const ssize_t count = write(descriptor_, content.data() + written, content.size() - written);
            if (count < 0 && errno != EINTR) return false;
            if (count > 0) written += static_cast<size_t>(count);
        }
        if (fsync(descriptor_) != 0) return false;
        if (passing_.empty()) {
            const std::string own = "/proc/self/fd/" + std::to_string(descriptor_);
            return linkat(AT_FDCWD, own.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
        }
        if (link(passing_.c_str(), path.c_str()) == 0) return true;
        // Without hard links: others may come between looking and renaming only where they create the same ledger now.
        if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) return false;
        if (access(path.c_str(), F_OK) == 0) {
            errno = EEXIST;
            return false;
        }
        if (rename(passing_.c_str(), path.c_str()) != 0) return false;
        passing_.clear();
        return true;
    }

  private:
    int descriptor_ = -1;
    std::string passing_;
};

}  // namespace

Outcome createFile(const std::string& path, const std::string& content) {
    NewFile made(path);
    if (!made.complete(path, content)) {
        const int error = errno;
        if (error == EEXIST) return {QUORL_ALREADY_EXISTS, "there is a file " + path + " already"};
        struct stat folder {};
        const bool there = stat(folderOf(path).c_str(), &folder) == 0 && S_ISDIR(folder.st_mode);
        if (there && error == ENOENT) {
            return {QUORL_IO_FAILED, "cannot create the ledger " + path + ": the folder " + folderOf(path) +
                                         " takes no new files; use one on a disk"};
        }
        if (error == ENOENT || error == ENOTDIR) {
            return {QUORL_FILE_NOT_FOUND,
                    "cannot create the ledger " + path + ": there is no folder " + folderOf(path)};
        }
        return {QUORL_IO_FAILED, "cannot create the ledger " + path + ": " + systemError(error)};
    }
    const int folder = ::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = folder >= 0 && fsync(folder) == 0;
    const int error = errno;
    if (folder >= 0) close(folder);
    if (!synced) return {QUORL_IO_FAILED, "cannot create the ledger " + path + ": " + systemError(error)};
    return {};
}

}  // namespace quorl::certified
