// Opening, closing and reading. What writes is in ledger_commit.cpp.
#include "certified/ledger/ledger.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <new>
#include <span>

#include "certified/ledger/belonging.h"
#include "certified/ledger/checked_pages.h"
#include "certified/ledger/format.h"
#include "certified/ledger/inspect.h"
#include "certified/ledger/page_file.h"
#include "certified/ledger/uri.h"

namespace quorl::certified {
namespace {

// Images up to here lie in the page of their row, which load() reads anyway; it checks them on the way. read() checks all.
constexpr int64_t checkedByLoad = 3500;

constexpr int64_t logLimit = int64_t{32} << 20;  // bytes that the log keeps after a burst
constexpr int64_t cacheKibibytes = 8192;         // of pages in memory

// Catches what the standard library throws when there is no memory.
template <class F>
Outcome guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

std::span<const uint8_t> asBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// What tells one run of the system from the next; empty: not known.
std::string thisSystemRun() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

}  // namespace

Ledger::Ledger(std::unique_ptr<OwnedFile> file, const Options& options)
    : options_(options),
      vfs_(checkedPages(options.files)),
      systemRun_(options.systemRun.empty() ? thisSystemRun() : options.systemRun),
      file_(std::move(file)),
      nextSweep_(options.emptySegments),
      nextCheckpoint_(static_cast<int>(options.checkpointFrames)),
      group_([this](std::vector<Step>& steps) { return commit(steps); }) {}

Outcome Ledger::open(const Options& options, std::unique_ptr<Ledger>* ledger) noexcept {
    return guarded([&] { return openThrowing(options, ledger); });
}

Outcome Ledger::openThrowing(const Options& options, std::unique_ptr<Ledger>* ledger) {
    if (options.name.empty()) return {QUORL_INVALID_ARG, "a ledger needs a certified name, and it is empty"};
    std::unique_ptr<OwnedFile> file;
    Outcome outcome = OwnedFile::open(options.path, OwnedFile::Use::own, &file);
    bool created = false;
    if (outcome.status == QUORL_FILE_NOT_FOUND) {
        Outcome left = checkNothingLeft(options.path);
        // Unless another process has just made the ledger, whose log it is then.
        if (!left.ok()) outcome = OwnedFile::open(options.path, OwnedFile::Use::own, &file);
        if (!left.ok() && outcome.status == QUORL_FILE_NOT_FOUND) return left;
    }
    if (outcome.status == QUORL_FILE_NOT_FOUND) {
        std::string content;
        outcome = format::newFile(options.name, &content);
        if (outcome.ok()) outcome = createFile(options.path, content);
        created = outcome.ok();
        if (created || outcome.status == QUORL_ALREADY_EXISTS) {
            outcome = OwnedFile::open(options.path, OwnedFile::Use::own, &file);
        }
    }
    if (outcome.ok()) outcome = format::checkBeginning(file->descriptor(), file->path());
    if (!outcome.ok()) return outcome;
    std::unique_ptr<Ledger> made(new Ledger(std::move(file), options));
    made->created_ = created;
    if (made->vfs_ == nullptr) return {QUORL_NO_MEMORY};
    outcome = made->openToRead();
    if (!outcome.ok()) {
        made->undoOpening();
        return outcome;
    }
    *ledger = std::move(made);
    return {};
}

// Whatever is found wrong with the file, here and in load(), it is still as it was: with a log, closing leaves both alone; without
// one, the file is read in a way that does not make one.
Outcome Ledger::openToRead() {
    const std::string& path = file_->path();
    Log log;
    Outcome outcome = readLog(path + "-wal", &log);
    if (outcome.ok()) outcome = checkLogBelongs(file_->descriptor(), path, log);
    if (!outcome.ok()) return outcome;
    hasLog_ = log.size >= logHeaderSize;
    logFrames_ = static_cast<int>(log.frames);
    makesLog_ = log.size < 0;
    if (hasLog_) {
        outcome = connect();
    } else {
        outcome = database_.open(path, "file:" + escapedForUri(path) + "?immutable=1",
                                 SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, vfs_);
    }
    if (outcome.ok()) outcome = checkContent();
    if (outcome.ok()) outcome = checkLog(log);
    if (outcome.ok()) outcome = readJournal();
    if (outcome.ok()) outcome = loadSegments();
    return outcome;
}

// A failed opening takes away what it has made, unless what has come into the file or its log refers to it.
void Ledger::undoOpening() {
    for (Statement* statement : statements()) *statement = Statement();
    database_.close();
    journal_.close();
    const std::string& path = file_->path();
    const bool asBefore = !copied_ && (makesLog_ || !marked_);
    if (makesJournal_ && (created_ || asBefore)) JournalFile::remove(options_.files, path + "-steps");
    if (makesLog_ && wrote_ && (created_ || asBefore)) JournalFile::remove(options_.files, path + "-wal");
    struct stat about {};
    if (created_) {
        unlink(path.c_str());
    } else if (wrote_ && asBefore && fstat(file_->descriptor(), &about) == 0 && about.st_size > size_) {
        // It had grown for what was to come. Should it stay so, nothing is wrong with it.
        if (ftruncate(file_->descriptor(), size_) != 0) return;
    }
}

// What is said of damage: each place and what was lost there, as far as a sentence goes.
Outcome Ledger::damage(const std::string& what) const {
    return withFindings({QUORL_INVALID_FILE, "the ledger " + file_->path() + " is damaged: " + what});
}

Outcome Ledger::withFindings(const Outcome& outcome) const {
    if (outcome.status != QUORL_INVALID_FILE) return outcome;
    struct First final : Inspector {
        std::string text;
        void finding(const Finding& finding) override {
            if (text.empty()) text = finding.text;
        }
    } first;
    Inspection found;
    if (!inspect(*file_, first, &found).ok() || found.findings == 0) return outcome;
    std::string text = "the ledger " + file_->path() + " is damaged and left as it is: " + first.text;
    if (found.findings > 1) text += " (and " + std::to_string(found.findings - 1) + " more)";
    return {QUORL_INVALID_FILE, text + "; quorl-ledger verify lists all damage, quorl-ledger export writes the " +
                                    std::to_string(found.messages) + " messages that can be read"};
}

// SQLite takes the log up to the first frame that is wrong, and writes over the rest: fine for what never was accepted.
Outcome Ledger::checkLog(const Log& log) const {
    if (mark_.empty()) return {};
    const std::string logPath = file_->path() + "-wal";
    if (const char* fault = faultOf(log)) {
        return withFindings({QUORL_INVALID_FILE, "the ledger " + file_->path() + " was not closed, and its log " +
                                                     logPath + ", which has what was stored last, " + fault});
    }
    const bool power = mark_.starts_with("power");
    if (log.laterFrames == 0 || (!sameRun() && (!power || log.laterTransactions <= 1))) return {};
    return damage("its log " + logPath + " is wrong at byte " + std::to_string(log.end) + ", and " +
                  std::to_string(log.laterTransactions) + " transactions that follow would be lost");
}

bool Ledger::sameRun() const {
    return !systemRun_.empty() && mark_.ends_with(" " + systemRun_);
}

Outcome Ledger::connect() {
    Outcome outcome = database_.open(file_->path(), file_->path(), SQLITE_OPEN_READWRITE, vfs_);
    if (!outcome.ok()) return outcome;
    // SQLite would take away the log, and the mark of an open ledger may be in the file.
    sqlite3_db_config(database_.connection(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    // An exclusive owner keeps the log's index in its own memory; no file is mapped, since a page of a mapped file that cannot be
    // read ends the process.
    return database_.execute(
        "PRAGMA locking_mode=EXCLUSIVE; PRAGMA mmap_size=0; PRAGMA temp_store=MEMORY; "
        "PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF; PRAGMA secure_delete=FAST; "
        "PRAGMA cache_size=-" +
        std::to_string(cacheKibibytes) + "; PRAGMA journal_size_limit=" + std::to_string(logLimit) +
        "; PRAGMA synchronous=NORMAL");
}

Outcome Ledger::checkContent() {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT sql FROM sqlite_schema ORDER BY rowid", &statement);
    if (!outcome.ok()) return withFindings(outcome);
    size_t seen = 0;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step(), ++seen) {
        if (seen == std::size(format::tables) || statement.bytes(0) != format::tables[seen]) break;
    }
    if (code != SQLITE_ROW && code != SQLITE_DONE) return withFindings(database_.failure(code, "open"));
    if (code == SQLITE_ROW || seen != std::size(format::tables)) {
        return {QUORL_INVALID_FILE,
                "the file " + file_->path() + " has not the tables of a ledger; it is left as it is"};
    }
    outcome = database_.prepare("SELECT value FROM property WHERE key = ?", &statement);
    bool found = false;
    if (outcome.ok()) outcome = property("name", &statement, &found);
    if (found && statement.bytes(0) != options_.name) {
        return {QUORL_NOT_FILE_OWNER, "the ledger " + file_->path() + " is that of the certified name " +
                                          std::string(statement.bytes(0)) + ", not of " + options_.name};
    }
    if (found) outcome = property("open", &statement, &found);
    if (found) mark_ = statement.bytes(0);
    if (found) outcome = property("id", &statement, &found);
    if (found) id_ = statement.bytes(0);
    if (found) outcome = property("journal", &statement, &found);
    if (found) folded_ = static_cast<uint64_t>(statement.number(0));
    if (outcome.ok() && !found) return damage("it does not say whose it is");
    return withFindings(outcome);
}

Outcome Ledger::property(const char* key, Statement* statement, bool* found) {
    statement->reset();
    statement->bindText(1, key);
    const int code = statement->step();
    *found = code == SQLITE_ROW;
    if (code == SQLITE_ROW || code == SQLITE_DONE) return {};
    return database_.failure(code, "open");
}

// What was read makes sense: from now on the file may change.
Outcome Ledger::openToWrite() {
    Outcome outcome;
    struct stat about {};
    if (fstat(file_->descriptor(), &about) != 0) {
        return {QUORL_IO_FAILED, "cannot open the ledger " + file_->path() + ": " + systemError(errno)};
    }
    size_ = about.st_size;
    wrote_ = true;
    if (!hasLog_) {
        database_.close();
        outcome = connect();
    }
    if (outcome.ok()) outcome = prepareStatements();
    if (!outcome.ok()) return outcome;
    sqlite3* const connection = database_.connection();
    int chunk = static_cast<int>(options_.growth);
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_CHUNK_SIZE, &chunk);
    sqlite3_wal_hook(
        connection,
        [](void* frames, sqlite3*, const char*, int count) {
            *static_cast<int*>(frames) = count;
            return SQLITE_OK;
        },
        &logFrames_);
    // "power" or "process", and in which run of the system.
    const bool power = options_.durability == Durability::power;
    const std::string own = (power ? "power " : "process ") + systemRun_;
    complete_ = mark_.empty() || mark_.starts_with("power") || sameRun();
    const std::string journalPath = file_->path() + "-steps";
    if (!power && options_.journalBytes != 0) {
        makesJournal_ = !hasJournal_;
        const int code = journal_.open(options_.files, journalPath, options_.journalBytes);
        if (code != SQLITE_OK) return database_.failure(code, "open");
    }
    outcome = fold(power);
    if (outcome.ok()) outcome = mark_ != own ? setMark(own) : checkpoint(SQLITE_CHECKPOINT_PASSIVE);
    if (outcome.ok() && !journal_.isOpen() && hasJournal_) {
        if (const int code = JournalFile::remove(options_.files, journalPath); code != SQLITE_OK) {
            outcome = database_.failure(code, "open");
        }
    }
    if (outcome.ok()) reserveLog();
    writable_ = outcome.ok();
    file_->name();
    return outcome;
}

// The mark is in the file itself, not only in the log, before anything else is: a ledger that was not closed and has lost its log
// is known by it.
Outcome Ledger::setMark(const std::string& mark) {
    Statement statement;
    Outcome outcome = database_.prepare("UPDATE property SET value = ? WHERE key = 'open'", &statement);
    marked_ = true;
    if (outcome.ok()) {
        outcome = storeOnce(syncing_, [&] {
            statement.bindText(1, mark);
            return run(statement);
        });
    }
    if (!outcome.ok()) return outcome;
    return checkpoint(!mark.empty() ? SQLITE_CHECKPOINT_PASSIVE : SQLITE_CHECKPOINT_TRUNCATE);
}

Outcome Ledger::prepareStatements() {
    const std::pair<const char*, Statement*> all[] = {
        {"BEGIN IMMEDIATE", &begin_},
        {"COMMIT", &end_},
        {"ROLLBACK", &rollBack_},
        {"INSERT OR REPLACE INTO message VALUES(?,?,?,?,?)", &insert_},
        {"DELETE FROM message WHERE id = ?", &eraseOne_},
        {"DELETE FROM message WHERE id BETWEEN ? AND ?", &eraseRange_},
        {"INSERT OR REPLACE INTO state VALUES(?,?,?)", &insertState_},
        {"DELETE FROM state WHERE key = ?", &deleteState_},
        {"INSERT INTO segment VALUES(?,?,?,?)", &insertSegment_},
        {"SELECT expires, sum, reply, image FROM message WHERE id = ?", &read_},
        {"PRAGMA page_count", &pages_},
        {"UPDATE property SET value = ? WHERE key = 'journal'", &setFolded_},
        {"UPDATE property SET value = value + 1 WHERE key = 'log'", &beginLog_},
        {"SELECT 1 FROM message WHERE id BETWEEN ? AND ? LIMIT 1", &hasMessages_},
        {"DELETE FROM segment WHERE id = ?", &deleteSegment_},
    };
    Outcome outcome;
    for (const auto& [sql, statement] : all) {
        if (outcome.ok()) outcome = database_.prepare(sql, statement);
    }
    return outcome;
}

Outcome Ledger::loadSegments() {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT id, subject, high, text FROM segment ORDER BY id", &statement);
    if (!outcome.ok()) return outcome;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        const int64_t id = statement.number(0);
        const int64_t subject = statement.number(1);
        const int64_t high = statement.number(2);
        const bool fits = id > 0 && id <= format::lastSegment && subject >= 0 && subject <= UINT32_MAX && high >= 0 &&
                          high <= UINT32_MAX;
        if (!fits || !segments_
                          .try_emplace({static_cast<uint32_t>(subject), static_cast<uint32_t>(high)},
                                       Segment{static_cast<uint32_t>(id), std::string(statement.bytes(3))})
                          .second) {
            return damage("row " + std::to_string(id) + " of its table of subjects makes no sense");
        }
        nextSegment_ = static_cast<uint32_t>(id) + 1;
    }
    if (code != SQLITE_DONE) return withFindings(database_.failure(code, "open"));
    return {};
}

Ledger::~Ledger() {
    if (file_->inherited()) {
        for (Statement* statement : statements()) statement->abandon();
        database_.abandon();
        journal_.abandon();
        return;
    }
    guarded([this] {
        group_.flush();
        const std::lock_guard guard(lock_);
        if (!writable_) return Outcome{};
        if (uncut_ && !cutLog().ok()) return Outcome{};
        Outcome outcome = fold(false);
        if (outcome.ok()) outcome = setMark({});
        if (outcome.ok() && journal_.isOpen()) journal_.remove();
        if (outcome.ok()) sqlite3_db_config(database_.connection(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
        return outcome;
    });
}

std::array<Statement*, 15> Ledger::statements() noexcept {
    return {&begin_,      &end_,         &rollBack_,    &insert_,        &eraseOne_,
            &eraseRange_, &insertState_, &deleteState_, &insertSegment_, &deleteSegment_,
            &read_,       &pages_,       &setFolded_,   &beginLog_,      &hasMessages_};
}

Outcome Ledger::usable(Use use) const {
    if (file_->inherited()) {
        return {QUORL_NOT_PERMITTED,
                "the ledger " + file_->path() + " belongs to the process that this one was forked from"};
    }
    if (use == Use::full && !writable_) {
        return {QUORL_NOT_PERMITTED, "the ledger " + file_->path() + " has not been loaded"};
    }
    return {};
}

Outcome Ledger::load(Loader& loader) noexcept {
    Outcome permitted = guarded([&] { return usable(Use::loading); });
    if (!permitted.ok()) return permitted;
    const std::lock_guard guard(lock_);
    Outcome outcome = guarded([&] {
        absorb();
        Outcome loaded = loadThrowing(loader);
        if (writable_) return loaded;
        // The file changes only when all of it could be read, and means something to who reads it.
        if (loaded.ok()) loaded = loader.verdict();
        return loaded.ok() ? openToWrite() : loaded;
    });
    if (!outcome.ok() && !writable_) {
        guarded([&] {
            undoOpening();
            return Outcome();
        });
    }
    return outcome;
}

Outcome Ledger::loadThrowing(Loader& loader) {
    Outcome outcome = loadState(loader);
    auto stored = segments_.begin();
    auto changed = pending_.subjects().begin();
    while (outcome.ok() && (stored != segments_.end() || changed != pending_.subjects().end())) {
        uint32_t subject = stored != segments_.end() ? stored->first.first : UINT32_MAX;
        if (changed != pending_.subjects().end()) subject = std::min(subject, changed->first);
        outcome = loadMessages(subject, loader);
        while (stored != segments_.end() && stored->first.first == subject) ++stored;
        if (changed != pending_.subjects().end() && changed->first == subject) ++changed;
    }
    return outcome;
}

// What the journal has of it goes before what the database has.
Outcome Ledger::loadState(Loader& loader) {
    Statement statement;
    Outcome outcome = database_.prepare("SELECT key, sum, value FROM state ORDER BY key", &statement);
    if (!outcome.ok()) return withFindings(outcome);
    auto changed = pending_.states().begin();
    const auto end = pending_.states().end();
    const auto tellChanged = [&] {
        if (changed->second.write.kind == Write::Kind::putState) {
            loader.state(changed->first, changed->second.write.value);
        }
        ++changed;
    };
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        const std::string_view key = statement.bytes(0);
        const std::string_view value = statement.bytes(2);
        if (static_cast<uint64_t>(statement.number(1)) != format::stateChecksum(key, value)) {
            return damage("what it says of registrations cannot be trusted (checksum)");
        }
        while (changed != end && changed->first < key) tellChanged();
        if (changed != end && changed->first == key) {
            tellChanged();
        } else {
            loader.state(key, value);
        }
    }
    if (code != SQLITE_DONE) return withFindings(database_.failure(code, "read"));
    while (changed != end) tellChanged();
    return {};
}

Outcome Ledger::loadMessages(uint32_t subject, Loader& loader) {
    static const NetEffect::Subject unchanged;
    const auto changes = pending_.subjects().find(subject);
    const NetEffect::Subject& changed = changes != pending_.subjects().end() ? changes->second : unchanged;
    auto put = changed.puts.begin();
    const auto tellPut = [&] {
        loader.message({.subject = subject,
                        .number = put->first,
                        .size = static_cast<uint32_t>(put->second.write.message.image().size()),
                        .expires = put->second.write.expires});
        ++put;
    };
    Statement statement;
    Outcome outcome = database_.prepare(
        "SELECT id, expires, length(image), sum, reply, CASE WHEN length(image) <= ? THEN image END "
        "FROM message WHERE id BETWEEN ? AND ? ORDER BY id",
        &statement);
    if (!outcome.ok()) return withFindings(outcome);
    for (auto at = segments_.lower_bound({subject, 0}); at != segments_.end() && at->first.first == subject; ++at) {
        const auto& [high, segment] = std::pair<uint32_t, const Segment&>(at->first.second, at->second);
        statement.reset();
        statement.bind(1, checkedByLoad);
        statement.bind(2, format::rowOf(segment.id, 0));
        statement.bind(3, format::rowOf(segment.id, UINT32_MAX));
        int code = statement.step();
        for (; code == SQLITE_ROW; code = statement.step()) {
            const StoredMessage message{.subject = subject,
                                        .number = uint64_t{high} << 32 | format::lowOfRow(statement.number(0)),
                                        .size = static_cast<uint32_t>(statement.number(2)),
                                        .expires = statement.number(1)};
            uint64_t& highest = highest_[subject];
            highest = std::max(highest, message.number);
            while (put != changed.puts.end() && put->first < message.number) tellPut();
            if (put != changed.puts.end() && put->first == message.number) continue;
            if (changed.erases(message.number)) continue;
            loader.message(message);
            if (statement.isNull(5)) continue;
            const format::Record record{.subjectNumber = subject,
                                        .number = message.number,
                                        .expires = message.expires,
                                        .reply = statement.bytes(4),
                                        .image = statement.bytes(5)};
            if (record.checksum() != static_cast<uint64_t>(statement.number(3))) {
                loader.damaged(message, findingOf(subject, message.number));
            }
        }
        if (code != SQLITE_DONE) return withFindings(database_.failure(code, "read"));
    }
    while (put != changed.puts.end()) tellPut();
    return {};
}

Outcome Ledger::damagedMessage(uint32_t subject, uint64_t number) const {
    const auto found = segments_.find({subject, static_cast<uint32_t>(number >> 32)});
    return {QUORL_INVALID_FILE, "message " + std::to_string(number) + " on " +
                                    (found != segments_.end() ? found->second.text : std::string("?")) +
                                    " in the ledger " + file_->path() +
                                    " is damaged (checksum) and cannot be sent again"};
}

// With the place of a single message that is damaged.
Finding Ledger::findingOf(uint32_t subject, uint64_t number) const {
    struct Search final : Inspector {
        void finding(const Finding& finding) override {
            if (finding.subjectNumber == sought.subjectNumber && finding.first == sought.first &&
                finding.last == sought.last) {
                sought = finding;
            }
        }
        Finding sought;
    } search;
    const auto found = segments_.find({subject, static_cast<uint32_t>(number >> 32)});
    search.sought = {.text = damagedMessage(subject, number).text,
                     .file = file_->path(),
                     .subject = found != segments_.end() ? found->second.text : "?",
                     .subjectNumber = subject,
                     .first = number,
                     .last = number};
    Inspection all;
    inspect(*file_, search, &all);
    return search.sought;
}

Outcome Ledger::read(uint32_t subject, uint64_t number, companion::Message* message) noexcept {
    return guarded([&] {
        Outcome outcome = usable(Use::full);
        if (!outcome.ok()) return outcome;
        readers_.fetch_add(1, std::memory_order_relaxed);
        const std::lock_guard guard(lock_);
        readers_.fetch_sub(1, std::memory_order_relaxed);
        return readThrowing(subject, number, message);
    });
}

Outcome Ledger::readThrowing(uint32_t subject, uint64_t number, companion::Message* message) {
    const auto notFound = [&] {
        return Outcome{QUORL_NOT_FOUND, "the ledger " + file_->path() + " has no message " + std::to_string(number) +
                                            " on its subject " + std::to_string(subject)};
    };
    absorb();
    bool erased = false;
    if (const NetEffect::Put* put = pending_.find(subject, number, &erased)) {
        *message = put->write.message;
        return {};
    }
    const auto found = segments_.find({subject, static_cast<uint32_t>(number >> 32)});
    if (erased || found == segments_.end()) return notFound();
    const Resetting resetting(read_);
    read_.bind(1, format::rowOf(found->second.id, static_cast<uint32_t>(number)));
    const int code = read_.step();
    if (code == SQLITE_DONE) return notFound();
    if (code != SQLITE_ROW) return database_.failure(code, "read");
    const format::Record record{.subjectNumber = subject,
                                .number = number,
                                .expires = read_.number(0),
                                .reply = read_.bytes(2),
                                .image = read_.bytes(3)};
    if (record.checksum() != static_cast<uint64_t>(read_.number(1))) return damagedMessage(subject, number);
    companion::Message made;
    const quorl_status status =
        companion::Message::fromImage(asBytes(record.image), found->second.text, record.reply, &made);
    if (status != QUORL_OK) {
        return {status, "message " + std::to_string(number) + " on " + found->second.text + " in the ledger " +
                            file_->path() + " cannot be made again"};
    }
    *message = std::move(made);
    return {};
}

}  // namespace quorl::certified
