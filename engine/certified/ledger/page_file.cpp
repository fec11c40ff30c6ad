#include "certified/ledger/page_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/owned_file.h"

namespace quorl::certified {
namespace {

constexpr size_t headerSize = logHeaderSize;
constexpr size_t frameSize = logFrameSize;
constexpr size_t frameHeaderSize = frameSize - format::pageSize;
constexpr uint32_t magic = 0x377f0682;  // the lowest bit: words of checksums have their highest byte first

uint32_t bigEndian(const unsigned char* at) noexcept {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}
uint32_t littleEndian(const unsigned char* at) noexcept {
    return uint32_t{at[3]} << 24 | uint32_t{at[2]} << 16 | uint32_t{at[1]} << 8 | at[0];
}

// The checksum of SQLite's log, over pairs of words.
struct Running {
    bool big = false;
    uint32_t first = 0;
    uint32_t second = 0;

    void add(const unsigned char* at, size_t size) noexcept {
        for (size_t i = 0; i < size; i += 8) {
            first += (big ? bigEndian(at + i) : littleEndian(at + i)) + second;
            second += (big ? bigEndian(at + i + 4) : littleEndian(at + i + 4)) + first;
        }
    }
    bool is(const unsigned char* at) const noexcept { return bigEndian(at) == first && bigEndian(at + 4) == second; }
};

// Reads up to size bytes; fewer at the end of the file. -1: errno says why.
ssize_t readAt(int descriptor, void* bytes, size_t size, int64_t offset) noexcept {
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(descriptor, static_cast<char*>(bytes) + done, size - done, offset + static_cast<int64_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return -1;
        if (count == 0) break;
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

Outcome notRead(const std::string& path) {
    return {QUORL_IO_FAILED, "cannot read " + path + ": " + systemError(errno)};
}

Outcome scan(int descriptor, const std::string& path, Log* log) {
    struct stat about {};
    if (fstat(descriptor, &about) != 0) return notRead(path);
    log->size = about.st_size;
    unsigned char header[headerSize];
    ssize_t count = readAt(descriptor, header, sizeof(header), 0);
    if (count < 0) return notRead(path);
    log->blank =
        std::all_of(header, header + std::max<ssize_t>(count, 0), [](unsigned char byte) { return byte == 0; });
    Running running{.big = (bigEndian(header) & 1) != 0};
    running.add(header, 24);
    if (count != sizeof(header) || (bigEndian(header) | 1) != (magic | 1) ||
        bigEndian(header + 8) != format::pageSize || !running.is(header + 24)) {
        return {};
    }
    log->present = true;
    log->end = headerSize;
    std::vector<unsigned char> frame(frameSize);
    std::vector<std::pair<uint32_t, int64_t>> open;  // of the transaction that has not ended yet
    bool wrong = false;
    for (uint64_t number = 0;; ++number) {
        const auto offset = static_cast<int64_t>(headerSize + number * frameSize);
        count = readAt(descriptor, frame.data(), frameSize, offset);
        if (count < 0) return notRead(path);
        if (count != static_cast<ssize_t>(frameSize)) return {};
        const uint32_t page = bigEndian(frame.data());
        const uint32_t pages = bigEndian(frame.data() + 4);
        const bool ours = std::equal(header + 16, header + 24, frame.data() + 8) && page != 0;
        if (wrong) {
            if (ours) ++log->laterFrames;
            if (ours && pages != 0) ++log->laterTransactions;
            continue;
        }
        running.add(frame.data(), 8);
        running.add(frame.data() + frameHeaderSize, format::pageSize);
        wrong = !ours || !running.is(frame.data() + 16);
        if (wrong) continue;
        open.emplace_back(page, offset + static_cast<int64_t>(frameHeaderSize));
        if (pages == 0) continue;
        for (const auto& [changed, at] : open) log->newest[changed] = at;
        open.clear();
        log->frames = number + 1;
        log->pages = pages;
        log->end = offset + static_cast<int64_t>(frameSize);
    }
}

void putBigEndian(unsigned char* at, uint32_t number) noexcept {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
}

}  // namespace

const char* faultOf(const Log& log) noexcept {
    if (log.size < logHeaderSize) return "is missing; put it back beside the ledger";
    return log.present ? nullptr : "is damaged: its beginning is wrong";
}

std::array<unsigned char, logHeaderSize> emptyLog() noexcept {
    std::array<unsigned char, logHeaderSize> header{};
    putBigEndian(header.data(), magic);
    putBigEndian(header.data() + 4, 3007000);
    putBigEndian(header.data() + 8, format::pageSize);
    Running running;
    running.add(header.data(), 24);
    putBigEndian(header.data() + 24, running.first);
    putBigEndian(header.data() + 28, running.second);
    return header;
}

Outcome readLog(const std::string& path, Log* log) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return errno == ENOENT || errno == ENOTDIR ? Outcome{} : notRead(path);
    Outcome outcome = scan(descriptor, path, log);
    close(descriptor);
    return outcome;
}

PageFile::~PageFile() {
    if (logDescriptor_ >= 0) close(logDescriptor_);
}

Outcome PageFile::open(Log log) {
    log_ = std::move(log);
    if (log_.pages != 0) {
        pages_ = log_.pages;
        logDescriptor_ = ::open(logPath().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        return logDescriptor_ >= 0 ? Outcome{} : notRead(logPath());
    }
    struct stat about {};
    unsigned char size[4];
    if (fstat(descriptor_, &about) != 0 || readAt(descriptor_, size, sizeof(size), 28) < 0) return notRead(path_);
    const auto there = static_cast<uint64_t>(about.st_size) / format::pageSize;
    // The size in the header says which of the file's pages are in use, unless it is damaged.
    pages_ = bigEndian(size);
    if (pages_ == 0 || pages_ > there) pages_ = static_cast<uint32_t>(std::min<uint64_t>(there, UINT32_MAX));
    return {};
}

Outcome PageFile::read(uint32_t number, Page* page) const {
    const auto found = log_.newest.find(number);
    page->inLog = found != log_.newest.end();
    page->offset = page->inLog ? found->second : int64_t{number - 1} * format::pageSize;
    const ssize_t count =
        readAt(page->inLog ? logDescriptor_ : descriptor_, page->bytes, format::pageSize, page->offset);
    if (count < 0 && errno != EIO) return notRead(page->inLog ? logPath() : path_);
    // The log's frames were found right when it was read. A page that the disk does not give is damaged as any other.
    page->intact = count == static_cast<ssize_t>(format::pageSize) && (page->inLog || pageIntact(number, page->bytes));
    return {};
}

}  // namespace quorl::certified
