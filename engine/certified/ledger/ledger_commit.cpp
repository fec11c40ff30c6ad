// What writes: steps of the machine as transactions of SQLite, many in one.
#include <sched.h>

#include <algorithm>
#include <new>

#include "certified/ledger/format.h"
#include "certified/ledger/ledger.h"
#include "certified/ledger/page_file.h"

namespace quorl::certified {
namespace {

// SQLite's own limit, less what else stands in the row.
constexpr size_t largestValue = 999'000'000;

std::string_view asText(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

format::Record recordOf(const Write& write) {
    return {.subjectNumber = write.subject,
            .number = write.number,
            .expires = write.expires,
            .reply = write.message.replySubject(),
            .image = asText(write.message.image())};
}

}  // namespace

Outcome Ledger::submit(Transaction transaction, Ticket* ticket) noexcept {
    Outcome outcome;
    try {
        outcome = usable(Use::full);
        if (!outcome.ok()) return outcome;
        // The checksums are made here, where threads do not wait for each other.
        const bool knowsOfFailure = transaction.afterFailure;
        Step step{std::move(transaction), {}};
        const std::vector<Write>& writes = step.transaction.writes;
        step.sums.resize(writes.size());
        for (size_t i = 0; i < writes.size(); ++i) {
            const Write& write = writes[i];
            size_t size = 0;
            if (write.kind == Write::Kind::putMessage) {
                const format::Record record = recordOf(write);
                step.sums[i] = record.checksum();
                size = record.reply.size() + record.image.size();
            } else if (write.kind == Write::Kind::putState) {
                step.sums[i] = format::stateChecksum(write.key, write.value);
                size = write.key.size() + write.value.size();
            }
            if (size > largestValue) {
                return {QUORL_INVALID_SIZE, "the ledger " + file_->path() + " takes at most " +
                                                std::to_string(largestValue) + " bytes at once"};
            }
        }
        *ticket = group_.submit(std::move(step), knowsOfFailure);
    } catch (const std::bad_alloc&) {
        outcome = {QUORL_NO_MEMORY};
    }
    return outcome;
}

Outcome Ledger::wait(const Ticket& ticket) noexcept {
    try {
        Outcome outcome = usable(Use::full);
        if (!outcome.ok()) return outcome;
        return group_.wait(ticket);
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

Outcome Ledger::apply(Transaction transaction) noexcept {
    Ticket ticket;
    Outcome outcome = submit(std::move(transaction), &ticket);
    if (outcome.ok()) outcome = wait(ticket);
    return outcome;
}

Outcome Ledger::sync() noexcept {
    try {
        Outcome outcome = usable(Use::full);
        if (outcome.ok()) outcome = group_.flush();
        if (!outcome.ok() || options_.durability == Durability::power) return outcome;
        const std::lock_guard guard(lock_);
        outcome = fold(true);
        return outcome.ok() ? syncLog() : outcome;
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

sqlite3_file* Ledger::logFile() noexcept {
    sqlite3_file* log = nullptr;
    sqlite3_file_control(database_.connection(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    return log != nullptr && log->pMethods != nullptr ? log : nullptr;
}

Outcome Ledger::syncLog() {
    sqlite3_file* const log = logFile();
    const int code = log != nullptr ? log->pMethods->xSync(log, SQLITE_SYNC_NORMAL) : SQLITE_OK;
    if (code != SQLITE_OK) return database_.failure(code, "write");
    return {};
}

// A transaction of which the last part could not be synced stands in the log like one that was accepted, and would come back with
// the next start.
Outcome Ledger::cutLog() {
    sqlite3_file* const log = logFile();
    if (log == nullptr) return {};
    const int64_t valid = logHeaderSize + logFrames_ * logFrameSize;
    sqlite3_int64 size = 0;
    int code = log->pMethods->xFileSize(log, &size);
    if (code == SQLITE_OK && size > valid) code = log->pMethods->xTruncate(log, valid);
    if (code == SQLITE_OK && logFrames_ == 0) {
        // It may have ended in the midst of the beginning.
        const auto header = emptyLog();
        code = log->pMethods->xWrite(log, header.data(), static_cast<int>(header.size()), 0);
    }
    if (code == SQLITE_OK && syncing_) code = log->pMethods->xSync(log, SQLITE_SYNC_NORMAL);
    if (code != SQLITE_OK) return database_.failure(code, "write");
    reserveLog();
    return {};
}

// Room for what the journal has, so that it can go into the database while the disk is full. If there is none, there is none.
void Ledger::reserveLog() noexcept {
    sqlite3_file* const log = logFile();
    if (log == nullptr || !journal_.isOpen()) return;
    int chunk = static_cast<int>(options_.growth);
    sqlite3_int64 size = int64_t{options_.journalBytes} * 2 + options_.growth;
    log->pMethods->xFileControl(log, SQLITE_FCNTL_CHUNK_SIZE, &chunk);
    log->pMethods->xFileControl(log, SQLITE_FCNTL_SIZE_HINT, &size);
    chunk = 0;  // or it could not be cut
    log->pMethods->xFileControl(log, SQLITE_FCNTL_CHUNK_SIZE, &chunk);
}

// Called by one thread at a time.
Outcome Ledger::commit(std::vector<Step>& steps) noexcept {
    for (int turn = 0; turn < 100 && readers_.load(std::memory_order_relaxed) != 0; ++turn) sched_yield();
    try {
        const std::lock_guard guard(lock_);
        const bool sync =
            options_.durability == Durability::power ||
            std::any_of(steps.begin(), steps.end(), [](const Step& step) { return step.transaction.sync; });
        if (journaled(steps, sync)) return append(steps);
        Outcome outcome = fold(sync);
        if (!outcome.ok()) return outcome;
        return store(sync, [&] {
            Outcome carried;
            for (const Step& step : steps) {
                if (carried.ok()) carried = carryOut(step);
            }
            return carried;
        });
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

// As a transaction of SQLite.
Outcome Ledger::store(bool sync, const Body& body) {
    Outcome outcome = storeOnce(sync, body);
    if (full_) {
        // Room in the log is found by copying it to its places, which are reserved.
        full_ = false;
        if (checkpoint(SQLITE_CHECKPOINT_RESTART).ok()) outcome = storeOnce(sync, body);
        full_ = false;
    }
    if (outcome.ok() && logFrames_ >= nextCheckpoint_) {
        const bool copied = checkpoint(SQLITE_CHECKPOINT_PASSIVE).ok();
        nextCheckpoint_ = static_cast<int>(options_.checkpointFrames) + (copied ? 0 : logFrames_);
    }
    return outcome;
}

Outcome Ledger::storeOnce(bool sync, const Body& body) {
    newSegments_.clear();
    oldSegments_.clear();
    Outcome outcome;
    if (uncut_) outcome = cutLog();
    uncut_ = !outcome.ok();
    if (outcome.ok()) outcome = setSyncing(sync);
    if (outcome.ok()) outcome = run(begin_);
    if (!outcome.ok()) return outcome;
    // A log that begins anew says first whose it is and which (belonging.h).
    if (logFrames_ == 0) outcome = run(beginLog_);
    try {
        if (outcome.ok()) outcome = body();
        if (outcome.ok() && segments_.size() > nextSweep_) outcome = sweepSegments();
    } catch (const std::bad_alloc&) {
        outcome = {QUORL_NO_MEMORY};
    }
    if (outcome.ok()) outcome = reserve();
    if (outcome.ok()) outcome = run(end_);
    if (outcome.ok()) {
        forgetSegments();
        return outcome;
    }
    if (sqlite3_get_autocommit(database_.connection()) == 0) {
        rollBack_.step();
        rollBack_.reset();
    }
    for (const auto& place : newSegments_) segments_.erase(place);
    uncut_ = !cutLog().ok();
    return outcome;
}

Outcome Ledger::setSyncing(bool sync) {
    if (sync == syncing_) return {};
    Outcome outcome = database_.execute(sync ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    if (outcome.ok()) syncing_ = sync;
    return outcome;
}

Outcome Ledger::carryOut(const Step& step) {
    Outcome outcome;
    const std::vector<Write>& writes = step.transaction.writes;
    for (size_t i = 0; i < writes.size() && outcome.ok(); ++i) outcome = carryOut(writes[i], step.sums[i]);
    return outcome;
}

Outcome Ledger::carryOut(const Write& write, uint64_t sum) {
    switch (write.kind) {
        case Write::Kind::putMessage:
            return put(write, sum);
        case Write::Kind::eraseMessages:
            return erase(write);
        case Write::Kind::putState:
            return putState(write, sum);
        case Write::Kind::eraseState:
            break;
    }
    return eraseState(write);
}

Outcome Ledger::put(const Write& write, uint64_t sum) {
    const Segment* segment = nullptr;
    Outcome outcome = segmentFor(write, &segment);
    if (!outcome.ok()) return outcome;
    const format::Record record = recordOf(write);
    insert_.bind(1, format::rowOf(segment->id, static_cast<uint32_t>(write.number)));
    insert_.bind(2, record.expires);
    insert_.bind(3, static_cast<int64_t>(sum));
    record.reply.empty() ? insert_.bindNothing(4) : insert_.bindText(4, record.reply);
    insert_.bindBytes(5, record.image);
    uint64_t& highest = highest_[write.subject];
    highest = std::max(highest, write.number);
    return run(insert_);
}

Outcome Ledger::segmentFor(const Write& write, const Segment** segment) {
    const std::pair place{write.subject, static_cast<uint32_t>(write.number >> 32)};
    const auto found = segments_.find(place);
    if (found != segments_.end()) {
        *segment = &found->second;
        return {};
    }
    const uint32_t id = freeSegment();
    if (id > format::lastSegment) {
        return {QUORL_IO_FAILED, "the ledger " + file_->path() + " has no room for a further subject"};
    }
    const std::string_view text = write.message.subject();
    insertSegment_.bind(1, id);
    insertSegment_.bind(2, place.first);
    insertSegment_.bind(3, place.second);
    insertSegment_.bindText(4, text);
    newSegments_.push_back(place);
    const auto added = segments_.try_emplace(place, Segment{id, std::string(text)}).first;
    *segment = &added->second;
    nextSegment_ = std::max(nextSegment_, id + 1);
    return run(insertSegment_);
}

// One that was never used, or when there is none left, the lowest that is not in use.
uint32_t Ledger::freeSegment() const {
    if (nextSegment_ <= format::lastSegment) return nextSegment_;
    std::vector<uint32_t> used;
    for (const auto& [place, segment] : segments_) used.push_back(segment.id);
    std::ranges::sort(used);
    uint32_t id = 1;
    for (const uint32_t one : used) {
        if (one != id) break;
        ++id;
    }
    return id;
}

// Subjects whose messages were all confirmed may never be used again.
Outcome Ledger::sweepSegments() {
    for (const auto& [place, segment] : segments_) {
        const Resetting resetting(hasMessages_);
        hasMessages_.bind(1, format::rowOf(segment.id, 0));
        hasMessages_.bind(2, format::rowOf(segment.id, UINT32_MAX));
        const int code = hasMessages_.step();
        if (code == SQLITE_ROW) continue;
        if (code != SQLITE_DONE) return database_.failure(code, "write");
        oldSegments_.push_back(place);
        deleteSegment_.bind(1, segment.id);
        Outcome outcome = run(deleteSegment_);
        if (!outcome.ok()) return outcome;
    }
    nextSweep_ = 2 * (segments_.size() - oldSegments_.size()) + options_.emptySegments;
    return {};
}

// Those that the transaction has removed.
void Ledger::forgetSegments() noexcept {
    for (const auto& place : oldSegments_) {
        segments_.erase(place);
        const auto other = segments_.lower_bound({place.first, 0});
        if (other == segments_.end() || other->first.first != place.first) highest_.erase(place.first);
    }
}

Outcome Ledger::erase(const Write& write) {
    if (write.last < write.number) return {};
    Outcome outcome;
    auto at = segments_.lower_bound({write.subject, static_cast<uint32_t>(write.number >> 32)});
    for (; outcome.ok() && at != segments_.end() && at->first.first == write.subject; ++at) {
        const uint64_t base = uint64_t{at->first.second} << 32;
        if (base > write.last) break;
        const uint64_t first = std::max(base, write.number) - base;
        const uint64_t last = std::min(base | UINT32_MAX, write.last) - base;
        Statement& statement = first == last ? eraseOne_ : eraseRange_;
        statement.bind(1, format::rowOf(at->second.id, static_cast<uint32_t>(first)));
        if (first != last) statement.bind(2, format::rowOf(at->second.id, static_cast<uint32_t>(last)));
        outcome = run(statement);
    }
    return outcome;
}

Outcome Ledger::putState(const Write& write, uint64_t sum) {
    insertState_.bindBytes(1, write.key);
    insertState_.bind(2, static_cast<int64_t>(sum));
    insertState_.bindBytes(3, write.value);
    return run(insertState_);
}

Outcome Ledger::eraseState(const Write& write) {
    deleteState_.bindBytes(1, write.key);
    return run(deleteState_);
}

Outcome Ledger::run(Statement& statement) {
    const Resetting resetting(statement);
    const int code = statement.step();
    full_ = code == SQLITE_FULL;
    return code == SQLITE_DONE ? Outcome() : database_.failure(code, "write");
}

// Sees to it that the pages which the transaction adds have a place in the file, so that the log can be copied there even when the
// disk is full meanwhile.
Outcome Ledger::reserve() {
    const Resetting resetting(pages_);
    if (const int code = pages_.step(); code != SQLITE_ROW) return database_.failure(code, "write");
    int64_t bytes = pages_.number(0) * format::pageSize;
    if (bytes <= reservedBytes_) return {};
    if (sqlite3_file_control(database_.connection(), "main", SQLITE_FCNTL_SIZE_HINT, &bytes) != SQLITE_OK) {
        full_ = true;
        return database_.failure(SQLITE_FULL, "write");
    }
    reservedBytes_ = (bytes + options_.growth - 1) / options_.growth * options_.growth;
    return {};
}

Outcome Ledger::checkpoint(int mode) {
    int frames = 0;
    copied_ = true;
    const int code = sqlite3_wal_checkpoint_v2(database_.connection(), "main", mode, &frames, nullptr);
    if (code != SQLITE_OK) return database_.failure(code, "write");
    logFrames_ = 0;
    return {};
}

}  // namespace quorl::certified
