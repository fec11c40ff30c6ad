#include "certified/ledger/format.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/checksum.h"
#include "certified/ledger/database.h"
#include "certified/ledger/owned_file.h"

namespace quorl::certified::format {
namespace {

// Offsets in SQLite's header, whose numbers have their highest byte first.
constexpr size_t headerSize = 100;
constexpr size_t pageSizeAt = 16;
constexpr size_t writeVersionAt = 18;
constexpr size_t readVersionAt = 19;
constexpr size_t reserveAt = 20;
constexpr size_t userVersionAt = 60;
constexpr size_t applicationIdAt = 68;

uint32_t numberAt(const unsigned char* bytes) noexcept {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

uint64_t Record::checksum() const noexcept {
    Checksum sum;
    sum.add(subjectNumber);
    sum.add(number);
    sum.add(static_cast<uint64_t>(expires));
    sum.add(reply);
    sum.add(image);
    return sum.value();
}

uint64_t stateChecksum(std::string_view key, std::string_view value) noexcept {
    Checksum sum;
    sum.add(key);
    sum.add(value);
    return sum.value();
}

Outcome newFile(const std::string& name, std::string* content) {
    Database database;
    Outcome outcome =
        database.open("new", ":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY, nullptr);
    int reserve = pageReserve;
    if (outcome.ok()) sqlite3_file_control(database.connection(), "main", SQLITE_FCNTL_RESERVE_BYTES, &reserve);
    if (outcome.ok()) {
        outcome = database.execute("PRAGMA page_size=" + std::to_string(pageSize) +
                                   "; PRAGMA auto_vacuum=NONE; PRAGMA encoding='UTF-8'; PRAGMA application_id=" +
                                   std::to_string(applicationId) + "; PRAGMA user_version=" + std::to_string(version));
    }
    for (const char* table : tables) {
        if (outcome.ok()) outcome = database.execute(table);
    }
    Statement insert;
    if (outcome.ok())
        outcome = database.prepare(
            "INSERT INTO property VALUES('name', ?), ('open', ''), ('id', lower(hex(randomblob(16)))), ('journal', 0), "
            "('log', 0)",
            &insert);
    if (!outcome.ok()) return outcome;
    insert.bindText(1, name);
    if (const int code = insert.step(); code != SQLITE_DONE) return database.failure(code, "create");
    insert.reset();
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> image(
        sqlite3_serialize(database.connection(), "main", &size, 0), &sqlite3_free);
    if (image == nullptr) return {QUORL_NO_MEMORY, "no memory for a new ledger"};
    // A database in memory cannot be switched to write-ahead logging: its header says so from here on.
    image.get()[writeVersionAt] = 2;
    image.get()[readVersionAt] = 2;
    for (sqlite3_int64 at = 0; at < size; at += pageSize) {
        sealPage(static_cast<uint32_t>(at / pageSize) + 1, {image.get() + at, pageSize});
    }
    content->assign(reinterpret_cast<const char*>(image.get()), static_cast<size_t>(size));
    return {};
}

Outcome checkBeginning(int descriptor, const std::string& path) {
    unsigned char header[headerSize];
    ssize_t count = 0;
    do {
        count = pread(descriptor, header, sizeof(header), 0);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return {QUORL_IO_FAILED, "cannot read the ledger " + path + ": " + systemError(errno)};
    if (count == 0) {
        return {QUORL_INVALID_FILE,
                "the file " + path + " is empty and no ledger; remove it to have a new ledger made there"};
    }
    if (static_cast<size_t>(count) < sizeof(header) || std::memcmp(header, "SQLite format 3", 16) != 0) {
        return {QUORL_INVALID_FILE, "the file " + path + " is no ledger; it is left as it is"};
    }
    if (numberAt(header + applicationIdAt) != applicationId) {
        return {QUORL_INVALID_FILE, "the file " + path + " is a database of another program; it is left as it is"};
    }
    if (const uint32_t found = numberAt(header + userVersionAt); found != version) {
        return {QUORL_VERSION_MISMATCH, "the ledger " + path + " has format " + std::to_string(found) +
                                            ", and this release knows format " + std::to_string(version) +
                                            " only; open it with the release that wrote it"};
    }
    if ((header[pageSizeAt] << 8 | header[pageSizeAt + 1]) != pageSize || header[reserveAt] != pageReserve) {
        return {QUORL_INVALID_FILE, "the ledger " + path + " is damaged: its header gives pages another size"};
    }
    return {};
}

}  // namespace quorl::certified::format
