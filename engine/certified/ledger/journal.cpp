#include "certified/ledger/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "certified/ledger/checksum.h"
#include "certified/ledger/owned_file.h"

namespace quorl::certified::journal {
namespace {

constexpr char magic[4] = {'Q', 'L', 'J', '1'};
constexpr off_t largest = off_t{1} << 30;

static_assert(std::endian::native == std::endian::little);

template <class T>
void append(std::string* record, T number) {
    record->append(reinterpret_cast<const char*>(&number), sizeof(number));
}
void append(std::string* record, std::string_view bytes) {
    append(record, static_cast<uint32_t>(bytes.size()));
    record->append(bytes);
}
std::string_view asText(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Takes values from the beginning of bytes; false once they do not suffice.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : left_(bytes) {}
    template <class T>
    void take(T* number) {
        if (left_.size() < sizeof(T)) {
            good_ = false;
            return;
        }
        std::memcpy(number, left_.data(), sizeof(T));
        left_.remove_prefix(sizeof(T));
    }
    void take(std::string_view* bytes) {
        uint32_t size = 0;
        take(&size);
        if (left_.size() < size) good_ = false;
        if (!good_) return;
        *bytes = left_.substr(0, size);
        left_.remove_prefix(size);
    }
    bool good() const noexcept { return good_; }
    bool atEnd() const noexcept { return left_.empty(); }

  private:
    std::string_view left_;
    bool good_ = true;
};

bool readEntries(std::string_view bytes, const std::function<bool(const Entry&)>& give) {
    Reader reader(bytes);
    while (!reader.atEnd()) {
        Entry entry;
        uint8_t kind = 0;
        reader.take(&kind);
        entry.kind = static_cast<Write::Kind>(kind);
        switch (entry.kind) {
            case Write::Kind::putMessage:
                reader.take(&entry.subject);
                reader.take(&entry.number);
                reader.take(&entry.expires);
                reader.take(&entry.sum);
                reader.take(&entry.text);
                reader.take(&entry.reply);
                reader.take(&entry.image);
                break;
            case Write::Kind::eraseMessages:
                reader.take(&entry.subject);
                reader.take(&entry.number);
                reader.take(&entry.last);
                break;
            case Write::Kind::putState:
                reader.take(&entry.sum);
                reader.take(&entry.key);
                reader.take(&entry.value);
                break;
            case Write::Kind::eraseState:
                reader.take(&entry.key);
                break;
            default:
                return false;
        }
        if (!reader.good() || !give(entry)) return false;
    }
    return true;
}

size_t padded(size_t size) {
    return (size + alignment - 1) / alignment * alignment;
}

uint64_t tagOf(std::string_view ledgerId) {
    Checksum sum;
    sum.add(ledgerId);
    return sum.value();
}

uint64_t checksumOf(std::string_view record, std::string_view ledgerId) {
    Checksum sum;
    sum.add(ledgerId);
    sum.add(record.data() + 4, 20);
    sum.add(record.data() + headerSize, record.size() - headerSize);
    return sum.value();
}

// The record that begins there, header and all; empty: none does.
std::string_view recordAt(std::string_view content, size_t at, std::string_view ledgerId, uint64_t* number) {
    if (content.size() - at < headerSize || std::memcmp(content.data() + at, magic, sizeof(magic)) != 0) return {};
    uint32_t size = 0;
    uint64_t sum = 0;
    std::memcpy(&size, content.data() + at + 4, sizeof(size));
    std::memcpy(number, content.data() + at + 8, sizeof(*number));
    std::memcpy(&sum, content.data() + at + 24, sizeof(sum));
    if (size > content.size() - at - headerSize) return {};
    const std::string_view record = content.substr(at, headerSize + size);
    return checksumOf(record, ledgerId) == sum ? record : std::string_view();
}

bool beginsWithAnothers(std::string_view content, std::string_view ledgerId) {
    if (content.size() < headerSize || std::memcmp(content.data(), magic, sizeof(magic)) != 0) return false;
    uint64_t tag = 0;
    std::memcpy(&tag, content.data() + 16, sizeof(tag));
    return tag != tagOf(ledgerId);
}

}  // namespace

void begin(std::string* record) {
    record->assign(headerSize, '\0');
}

void add(std::string* record, const Write& write, uint64_t sum) {
    append(record, static_cast<uint8_t>(write.kind));
    switch (write.kind) {
        case Write::Kind::putMessage:
            append(record, write.subject);
            append(record, write.number);
            append(record, write.expires);
            append(record, sum);
            append(record, write.message.subject());
            append(record, write.message.replySubject());
            append(record, asText(write.message.image()));
            break;
        case Write::Kind::eraseMessages:
            append(record, write.subject);
            append(record, write.number);
            append(record, write.last);
            break;
        case Write::Kind::putState:
            append(record, sum);
            append(record, std::string_view(write.key));
            append(record, std::string_view(write.value));
            break;
        case Write::Kind::eraseState:
            append(record, std::string_view(write.key));
            break;
    }
}

void finish(std::string* record, uint64_t number, std::string_view ledgerId) {
    const auto size = static_cast<uint32_t>(record->size() - headerSize);
    std::memcpy(record->data(), magic, sizeof(magic));
    std::memcpy(record->data() + 4, &size, sizeof(size));
    std::memcpy(record->data() + 8, &number, sizeof(number));
    const uint64_t tag = tagOf(ledgerId);
    std::memcpy(record->data() + 16, &tag, sizeof(tag));
    const uint64_t sum = checksumOf(*record, ledgerId);
    std::memcpy(record->data() + 24, &sum, sizeof(sum));
    record->resize(padded(record->size()));
}

Outcome read(const std::string& path, std::string* content, bool* there) {
    const auto failed = [&](int error) {
        return Outcome{QUORL_IO_FAILED, "cannot read " + path + ": " + systemError(error)};
    };
    content->clear();
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    *there = descriptor >= 0;
    if (descriptor < 0) return errno == ENOENT || errno == ENOTDIR ? Outcome() : failed(errno);
    const std::unique_ptr<const int, void (*)(const int*)> closing(&descriptor, [](const int* open) { close(*open); });
    struct stat about {};
    if (fstat(descriptor, &about) != 0) return failed(errno);
    if (!S_ISREG(about.st_mode)) return {QUORL_INVALID_FILE, "the journal " + path + " is not a file; move it away"};
    if (about.st_size > largest) {
        return {QUORL_INVALID_FILE, "the file " + path + " is larger than any journal; move it away"};
    }
    content->resize(static_cast<size_t>(about.st_size));
    for (size_t done = 0; done < content->size();) {
        const ssize_t count =
            pread(descriptor, content->data() + done, content->size() - done, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return failed(errno);
        if (count == 0) content->resize(done);
        done += static_cast<size_t>(count);
    }
    return {};
}

quorl_status writeOf(const Entry& entry, Write* write) {
    write->kind = entry.kind;
    write->subject = entry.subject;
    write->number = entry.number;
    write->last = entry.last;
    write->expires = entry.expires;
    write->key = entry.key;
    write->value = entry.value;
    if (entry.kind != Write::Kind::putMessage) return QUORL_OK;
    const std::span image(reinterpret_cast<const uint8_t*>(entry.image.data()), entry.image.size());
    return companion::Message::fromImage(image, entry.text, entry.reply, &write->message);
}

bool replay(std::string_view content, std::string_view ledgerId, uint64_t stored,
            const std::function<bool(const Entry&)>& entry, Replay* result,
            const std::function<bool(const Entry&)>& later) {
    *result = {.last = stored, .highest = stored};
    uint64_t expected = 0;
    size_t at = 0;
    bool own = false;
    while (at < content.size()) {
        uint64_t number = 0;
        const std::string_view record = recordAt(content, at, ledgerId, &number);
        if (record.empty() || (expected != 0 && number != expected)) break;
        own = true;
        // The first of those that the database lacks must follow what it has.
        if (number > stored) {
            if (number != result->last + 1) break;
            if (!readEntries(record.substr(headerSize), entry)) return false;
            result->last = number;
        }
        expected = number + 1;
        result->highest = std::max(result->highest, number);
        at += padded(record.size());
        result->end = static_cast<int64_t>(std::min(at, content.size()));
    }
    for (at = static_cast<size_t>(result->end); at < content.size(); at += alignment) {
        uint64_t number = 0;
        const std::string_view record = recordAt(content, at, ledgerId, &number);
        if (record.empty()) continue;
        own = true;
        if (number > result->last) {
            ++result->laterRecords;
            if (later && !readEntries(record.substr(headerSize), later)) return false;
        }
        result->highest = std::max(result->highest, number);
    }
    result->foreign = !own && beginsWithAnothers(content, ledgerId);
    return true;
}

}  // namespace quorl::certified::journal
