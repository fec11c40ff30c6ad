// The journal of a ledger: what is accepted there, and its way into the database.
#include <algorithm>

#include "certified/ledger/belonging.h"
#include "certified/ledger/journal.h"
#include "certified/ledger/ledger.h"

namespace quorl::certified {
// What the journal has and the database lacks.
Outcome Ledger::readJournal() {
    const std::string path = file_->path() + "-steps";
    std::string content;
    Outcome outcome = journal::read(path, &content, &hasJournal_);
    if (!outcome.ok()) return outcome;
    const auto damaged = [&](const std::string& why) {
        return withFindings({QUORL_INVALID_FILE, "the ledger " + file_->path() + " was not closed, and its journal " +
                                                     path + ", which has what was stored last, " + why});
    };
    if (!hasJournal_ && mark_.starts_with("process")) return damaged("is missing; put it back beside the ledger");
    journal::Replay replay;
    quorl_status status = QUORL_OK;
    const bool whole = journal::replay(
        content, id_, folded_,
        [&](const journal::Entry& entry) {
            Write write;
            status = journal::writeOf(entry, &write);
            if (status == QUORL_OK) pending_.add(std::move(write), entry.sum);
            return status == QUORL_OK;
        },
        &replay);
    if (status == QUORL_NO_MEMORY) return {status};
    // A ledger that was closed, or was last open without a journal, has everything that its own has.
    if (replay.foreign || (!mark_.starts_with("process") && (replay.last != folded_ || replay.laterRecords != 0))) {
        pending_.clear();
        return notItsOwn(file_->path(), path);
    }
    if (!whole || (replay.laterRecords != 0 && sameRun())) {
        return damaged("is damaged at byte " + std::to_string(replay.end) + "; " + std::to_string(replay.laterRecords) +
                       " records that follow would be lost");
    }
    // No record that a failure of the power has left may follow one that is yet to be written.
    lastRecord_ = replay.highest > replay.last ? replay.highest + 1 : replay.last;
    return {};
}

// Whether the steps go into the journal, whose record is then made.
bool Ledger::journaled(const std::vector<Step>& steps, bool sync) {
    if (!journal_.isOpen() || sync) return false;
    journal::begin(&record_);
    for (const Step& step : steps) {
        const std::vector<Write>& writes = step.transaction.writes;
        for (size_t i = 0; i < writes.size(); ++i) {
            journal::add(&record_, writes[i], step.sums[i]);
            if (record_.size() > options_.journalBytes / 2) return false;
        }
    }
    return true;
}

Outcome Ledger::append(std::vector<Step>& steps) {
    const bool stores = std::any_of(steps.begin(), steps.end(), [](const Step& step) {
        return std::any_of(step.transaction.writes.begin(), step.transaction.writes.end(),
                           [](const Write& write) { return write.kind == Write::Kind::putMessage; });
    });
    // Where the database has no room for messages, confirmations still have some here.
    const int64_t room = stores ? options_.journalBytes - options_.journalBytes / 8 : options_.journalBytes;
    absorb();
    recent_.reserve(steps.size());
    journal::finish(&record_, lastRecord_ + 1, id_);
    const auto size = static_cast<int64_t>(record_.size());
    if (journalEnd_ + size > room) {
        Outcome outcome = fold(false);
        if (!outcome.ok()) return outcome;
    }
    const int code = journal_.write(record_, journalEnd_);
    if (code != SQLITE_OK) return database_.failure(code, "write");
    journalEnd_ += size;
    ++lastRecord_;
    for (Step& step : steps) recent_.push_back(std::move(step));
    return {};
}

// Takes what is in the journal's last record into account. Not when it is written: for that there may be no memory, and the record
// could not be taken back.
void Ledger::absorb() {
    for (; absorbedSteps_ < recent_.size(); ++absorbedSteps_, absorbedWrites_ = 0) {
        Step& step = recent_[absorbedSteps_];
        std::vector<Write>& writes = step.transaction.writes;
        for (; absorbedWrites_ < writes.size(); ++absorbedWrites_) {
            pending_.add(std::move(writes[absorbedWrites_]), step.sums[absorbedWrites_]);
        }
    }
    recent_.clear();
    absorbedSteps_ = 0;
}

// Brings what is in the journal into the database; the journal begins anew.
Outcome Ledger::fold(bool sync) {
    if (lastRecord_ == folded_) return {};
    absorb();
    Outcome outcome = store(sync, [this] { return storeNetEffect(); });
    if (!outcome.ok()) return outcome;
    pending_.clear();
    folded_ = lastRecord_;
    journalEnd_ = 0;
    return {};
}

Outcome Ledger::storeNetEffect() {
    Outcome outcome;
    for (const auto& [number, subject] : pending_.subjects()) {
        // Most messages were confirmed before they came here: nothing of them is in the database.
        const auto highest = highest_.find(number);
        if (highest != highest_.end()) {
            for (const auto& [first, last] : subject.erased) {
                if (!outcome.ok() || first > highest->second) break;
                Write range;
                range.kind = Write::Kind::eraseMessages;
                range.subject = number;
                range.number = first;
                range.last = std::min(last, highest->second);
                outcome = erase(range);
            }
        }
        for (const auto& [place, put] : subject.puts) {
            if (outcome.ok()) outcome = carryOut(put.write, put.sum);
        }
    }
    for (const auto& [key, put] : pending_.states()) {
        if (outcome.ok()) outcome = carryOut(put.write, put.sum);
    }
    if (!outcome.ok()) return outcome;
    setFolded_.bind(1, static_cast<int64_t>(lastRecord_));
    return run(setFolded_);
}

}  // namespace quorl::certified
