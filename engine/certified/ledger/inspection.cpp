#include "certified/ledger/inspection.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/format.h"
#include "certified/ledger/uri.h"

namespace quorl::certified {
namespace {

constexpr uint64_t logHeaderSize = 32;
constexpr size_t pageCountAt = 28;  // in the header of the file, the highest byte first

template <class F>
Outcome guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY, {}};
    }
}

// Tells of damaged messages as runs of numbers.
class Runs {
  public:
    explicit Runs(const std::function<void(const Inspection::Damage&)>& damaged) : damaged_(damaged) {}

    void add(const std::string& subject, uint64_t number) {
        if (run_.first != 0 && run_.subject == subject && run_.last + 1 == number) {
            run_.last = number;
            return;
        }
        tell();
        run_ = {.text = {}, .subject = subject, .first = number, .last = number};
    }
    void tell() {
        if (run_.first == 0) return;
        run_.text = run_.first == run_.last
                        ? "message " + std::to_string(run_.first)
                        : "messages " + std::to_string(run_.first) + " to " + std::to_string(run_.last);
        run_.text += " on " + run_.subject + ": the checksum is wrong";
        damaged_(run_);
        run_.first = 0;
    }

  private:
    const std::function<void(const Inspection::Damage&)>& damaged_;
    Inspection::Damage run_;
};

}  // namespace

Outcome Inspection::open(const std::string& path, std::unique_ptr<Inspection>* inspection) noexcept {
    return guarded([&] { return openThrowing(path, inspection); });
}

Outcome Inspection::openThrowing(const std::string& path, std::unique_ptr<Inspection>* inspection) {
    std::unique_ptr<OwnedFile> file;
    Outcome outcome = OwnedFile::open(path, OwnedFile::Use::read, &file);
    if (outcome.ok()) outcome = format::checkBeginning(file->descriptor(), file->path());
    if (!outcome.ok()) return outcome;
    std::unique_ptr<Inspection> made(new Inspection(std::move(file)));
    outcome = made->connect();
    if (outcome.ok()) outcome = made->readNames();
    if (outcome.ok()) *inspection = std::move(made);
    return outcome;
}

Outcome Inspection::connect() {
    const char* const vfs = checkedPages("unix-none");
    if (vfs == nullptr) return {QUORL_NO_MEMORY, {}};
    struct stat log {};
    const std::string& path = file_->path();
    const std::string logPath = path + "-wal";
    Outcome outcome;
    if (stat(logPath.c_str(), &log) == 0 && static_cast<uint64_t>(log.st_size) > logHeaderSize) {
        // The log has what was stored last. SQLite reads it only when it might write, which no statement here does.
        wasClosed_ = false;
        outcome = database_.open(path, path, SQLITE_OPEN_READWRITE, vfs);
        if (!outcome.ok()) return outcome;
        sqlite3_db_config(database_.connection(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        outcome = database_.execute("PRAGMA locking_mode=EXCLUSIVE; PRAGMA mmap_size=0; PRAGMA query_only=ON");
    } else {
        outcome = database_.open(path, "file:" + escapedForUri(path) + "?immutable=1",
                                 SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, vfs);
    }
    if (outcome.ok())
        outcome = database_.execute("PRAGMA temp_store=MEMORY; PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF");
    return outcome;
}

Outcome Inspection::readNames() {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT key, value FROM property", &statement);
    if (!outcome.ok()) return outcome;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        if (statement.bytes(0) == "name") name_ = statement.bytes(1);
        if (statement.bytes(0) == "open" && !statement.bytes(1).empty()) wasClosed_ = false;
    }
    if (code != SQLITE_DONE) return database_.failure(code, "read");
    if (name_.empty()) {
        return {QUORL_INVALID_FILE, "the ledger " + file_->path() + " is damaged: it does not say whose it is"};
    }
    outcome = database_.prepare("SELECT id, subject, high, text FROM segment", &statement);
    if (!outcome.ok()) return outcome;
    for (code = statement.step(); code == SQLITE_ROW; code = statement.step()) {
        const auto high = static_cast<uint32_t>(statement.number(2));
        segments_[std::string(statement.bytes(3))][high] = {
            .id = statement.number(0), .subject = static_cast<uint32_t>(statement.number(1)), .high = high};
    }
    if (code != SQLITE_DONE) return database_.failure(code, "read");
    return {};
}

Outcome Inspection::countMessages(uint64_t* count) {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT count(*) FROM message", &statement);
    if (!outcome.ok()) return outcome;
    const int code = statement.step();
    if (code != SQLITE_ROW) return database_.failure(code, "read");
    *count = static_cast<uint64_t>(statement.number(0));
    return {};
}

Outcome Inspection::verify(const Progress& progress, const std::function<void(const Damage&)>& damaged,
                           Totals* totals) noexcept {
    return guarded([&]() -> Outcome {
        unsigned char header[pageCountAt + 4];
        if (pread(file_->descriptor(), header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header))) {
            return {QUORL_IO_FAILED, "cannot read the ledger " + file_->path() + ": " + systemError(errno)};
        }
        uint64_t pages = 0;
        for (size_t i = pageCountAt; i < sizeof(header); ++i) pages = pages << 8 | header[i];
        uint64_t messages = 0;
        // A page as well as a message is a step of the work; those that cannot be counted are found below.
        if (!countMessages(&messages).ok()) messages = 0;
        const uint64_t all = pages + messages;
        Outcome outcome = verifyPages(pages, all, progress, damaged);
        if (outcome.ok()) outcome = verifyStructure(damaged);
        if (outcome.ok()) outcome = verifyState(damaged);
        if (!outcome.ok()) return outcome;
        uint64_t done = pages;
        std::string subject;
        const auto count = [&](const Message& message) {
            if (totals->messages == 0 || message.subject != subject) {
                ++totals->subjects;
                subject = message.subject;
            }
            ++totals->messages;
            totals->bytes += message.image.size();
            progress(++done, all);
            return true;
        };
        return walk([](const std::string&) { return true; }, count, damaged);
    });
}

// Those that the header counts; the file may be longer, since it grows by much at a time.
Outcome Inspection::verifyPages(uint64_t pages, uint64_t all, const Progress& progress,
                                const std::function<void(const Damage&)>& damaged) {
    unsigned char page[format::pageSize];
    for (uint64_t number = 1; number <= pages; ++number) {
        const auto offset = static_cast<off_t>((number - 1) * format::pageSize);
        ssize_t size = 0;
        do {
            size = pread(file_->descriptor(), page, sizeof(page), offset);
        } while (size < 0 && errno == EINTR);
        if (size < 0) {
            return {QUORL_IO_FAILED, "cannot read the ledger " + file_->path() + ": " + systemError(errno)};
        }
        if (size != static_cast<ssize_t>(sizeof(page))) {
            damaged({.text = "the file ends at byte " + std::to_string(offset + size) + " and should have " +
                             std::to_string(pages * format::pageSize),
                     .offset = offset + size,
                     .subject = {}});
            break;
        }
        if (!pageIntact(static_cast<uint32_t>(number), page)) {
            damaged({.text = "the page at byte " + std::to_string(offset) + " has a wrong checksum",
                     .offset = offset,
                     .subject = {}});
        }
        progress(number, all);
    }
    return {};
}

// How the rows hang together, as SQLite sees it.
Outcome Inspection::verifyStructure(const std::function<void(const Damage&)>& damaged) {
    Statement statement;
    Outcome outcome = database_.prepare("PRAGMA integrity_check(20)", &statement);
    if (!outcome.ok()) return outcome;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        const std::string text(statement.bytes(0));
        if (text != "ok") damaged({.text = "the tables are damaged: " + text, .offset = -1, .subject = {}});
    }
    return whatWasRead(code, damaged);
}

Outcome Inspection::verifyState(const std::function<void(const Damage&)>& damaged) {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT key, sum, value FROM state", &statement);
    if (!outcome.ok()) return outcome;
    uint64_t wrong = 0;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        if (static_cast<uint64_t>(statement.number(1)) != format::stateChecksum(statement.bytes(0), statement.bytes(2)))
            ++wrong;
    }
    if (wrong != 0) {
        damaged({.text = std::to_string(wrong) + " records of what is registered have a wrong checksum",
                 .offset = -1,
                 .subject = {}});
    }
    return whatWasRead(code, damaged);
}

// Reading ended with that code: damage is what was looked for, anything else a failure to look.
Outcome Inspection::whatWasRead(int code, const std::function<void(const Damage&)>& damaged) const {
    if (code == SQLITE_DONE) return {};
    Outcome outcome = database_.failure(code, "read");
    if (outcome.status != QUORL_INVALID_FILE) return outcome;
    damaged({.text = outcome.text, .offset = -1, .subject = {}});
    return {};
}

Outcome Inspection::forEach(const std::function<bool(const std::string&)>& wanted, const Progress& progress,
                            const std::function<bool(const Message&)>& visit,
                            const std::function<void(const Damage&)>& damaged) noexcept {
    return guarded([&] {
        uint64_t all = 0;
        Outcome outcome = countMessages(&all);
        if (!outcome.ok()) return outcome;
        uint64_t done = 0;
        return walk(
            wanted,
            [&](const Message& message) {
                progress(++done, all);
                return visit(message);
            },
            damaged);
    });
}

Outcome Inspection::walk(const std::function<bool(const std::string&)>& wanted,
                         const std::function<bool(const Message&)>& visit,
                         const std::function<void(const Damage&)>& damaged) {
    Statement statement;
    Outcome outcome = database_.prepare(
        "SELECT id, expires, sum, reply, image FROM message WHERE id BETWEEN ? AND ? ORDER BY id", &statement);
    if (!outcome.ok()) return outcome;
    Runs runs(damaged);
    for (const auto& [subject, parts] : segments_) {
        if (!wanted(subject)) continue;
        for (const auto& [high, segment] : parts) {
            const Resetting resetting(statement);
            statement.bind(1, format::rowOf(static_cast<uint32_t>(segment.id), 0));
            statement.bind(2, format::rowOf(static_cast<uint32_t>(segment.id), UINT32_MAX));
            int code = statement.step();
            for (; code == SQLITE_ROW; code = statement.step()) {
                const uint64_t number = uint64_t{high} << 32 | format::lowOfRow(statement.number(0));
                const format::Record record{.subjectNumber = segment.subject,
                                            .number = number,
                                            .expires = statement.number(1),
                                            .reply = statement.bytes(3),
                                            .image = statement.bytes(4)};
                if (record.checksum() != static_cast<uint64_t>(statement.number(2))) {
                    runs.add(subject, number);
                } else if (!visit({.subject = subject,
                                   .number = number,
                                   .expires = record.expires,
                                   .reply = record.reply,
                                   .image = record.image})) {
                    runs.tell();
                    return {};
                }
            }
            outcome = whatWasRead(code, damaged);
            if (!outcome.ok()) return outcome;
        }
    }
    runs.tell();
    return {};
}

}  // namespace quorl::certified
