#include "certified/ledger/inspect.h"

#include <algorithm>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <vector>

#include "certified/ledger/belonging.h"
#include "certified/ledger/journal.h"
#include "certified/ledger/net_effect.h"
#include "certified/ledger/owned_file.h"
#include "certified/ledger/page_file.h"
#include "certified/ledger/tree.h"

namespace quorl::certified {
namespace {

class Inspecting {
  public:
    // foreign: the log beside the file is another ledger's, and the pages are read without it.
    Inspecting(const PageFile& file, bool foreignLog, Inspector& inspector, Inspection* found)
        : file_(file), foreignLog_(foreignLog), trees_(file), inspector_(inspector), found_(*found) {}

    Outcome run() {
        found_.pages = file_.pages();
        found_.logFrames = file_.log().frames;
        if (!readTables() || !readProperties()) return ended();
        lookAtLog();
        if (!readJournal()) return ended();
        if (!readStates() || !readSegments() || !readMessages()) return ended();
        if (!trees_.readFreeList(&found_.freePages, &outcome_)) {
            if (!outcome_.ok()) return outcome_;
            tell("the list of its free pages is damaged", file_.path(), 0);
        }
        if (!lost_.empty()) readStrays();
        if (outcome_.ok()) giveJournal();
        if (outcome_.ok()) tellTails();
        if (outcome_.ok()) inspector_.progress(file_.pages(), file_.pages());
        return outcome_;
    }

  private:
    struct Segment {
        uint32_t subject = 0;
        uint32_t high = 0;
        std::string text;
    };
    struct Range {
        int64_t first;
        int64_t last;
    };

    Outcome ended() const { return outcome_; }

    bool goOn() {
        if (++steps_ % 64 != 0 || inspector_.progress(trees_.pagesSeen(), file_.pages())) return true;
        outcome_ = {QUORL_INTR, "looking into the ledger " + file_.path() + " was stopped"};
        return false;
    }

    void tell(const std::string& what, const std::string& where, int64_t offset) {
        Finding finding;
        finding.file = where;
        finding.offset = offset;
        finding.text = where + ", byte " + std::to_string(offset) + ": " + what;
        tell(finding);
    }
    void tell(const Finding& finding) {
        if (!told_.insert(finding.text).second) return;
        ++found_.findings;
        inspector_.finding(finding);
    }
    // A place from which on what was stored last is lost.
    struct Tail {
        std::string what;
        std::string file;
        int64_t offset;
        std::map<uint32_t, uint64_t> before;  // of a subject: the first number that is there again
    };
    // Told when the highest numbers are known that are there.
    void tellTail(const std::string& what, const std::string& file, int64_t offset) {
        tails_.push_back({what, file, offset, {}});
    }
    void tellTails() {
        for (const Tail& tail : tails_) {
            const uint64_t before = found_.findings;
            for (const auto& [subject, last] : last_) {
                const auto again = tail.before.find(subject);
                const uint64_t end = again != tail.before.end() ? again->second - 1 : UINT64_MAX;
                if (end <= last.number) continue;
                tellRange(tail.what, tail.file, tail.offset, subject, last.text, last.number + 1, end);
            }
            if (found_.findings == before) tell(tail.what, tail.file, tail.offset);
        }
    }
    void tellRange(const std::string& why, const std::string& file, int64_t offset, uint32_t subject,
                   const std::string& text, uint64_t first, uint64_t last) {
        Finding finding;
        finding.file = file;
        finding.offset = offset;
        finding.subject = text;
        finding.subjectNumber = subject;
        finding.first = first;
        finding.last = last;
        finding.text = file + ", byte " + std::to_string(offset) + ": " + why + "; on " + text;
        if (first == last) {
            finding.text += " message " + std::to_string(first) + " is lost, if it was kept";
        } else if (last == UINT64_MAX) {
            finding.text += " messages from " + std::to_string(first) + " on are lost, as far as they were kept";
        } else {
            finding.text += " messages from " + std::to_string(first) + " to " + std::to_string(last) +
                            " are lost, as far as they were kept";
        }
        tell(finding);
    }
    void noteLast(uint32_t subject, uint64_t number, std::string_view text) {
        Last& last = last_[subject];
        if (last.text.empty()) last.text = text;
        last.number = std::max(last.number, number);
    }
    std::string fileOf(bool inLog) const { return inLog ? file_.logPath() : file_.path(); }

    // What is told of a gap in a tree that holds no messages.
    Trees::Reader readerOf(const char* what, std::function<void(const Trees::Row&)> row) {
        return {.row = std::move(row),
                .gap =
                    [this, what](const Trees::Gap& gap) {
                        tell(std::string(gap.wholePage ? "the page" : "a row of the page") + " " + gap.why + "; of " +
                                 what + " some is lost",
                             fileOf(gap.inLog), gap.offset);
                    },
                .goOn = [this] { return goOn(); }};
    }

    bool readTables() {
        const auto reader = readerOf("the tables", [this](const Trees::Row& row) {
            Value values[5];
            if (!readRow(row.payload, values)) return;
            roots_[std::string(values[1].bytes)] = static_cast<uint32_t>(values[3].number);
        });
        if (!trees_.read(1, reader, &outcome_)) return false;
        // A new ledger's tables are where they are; they never move.
        for (const auto& [name, root] : {std::pair("property", 2u), {"state", 3u}, {"segment", 4u}, {"message", 5u}}) {
            roots_.try_emplace(name, root);
        }
        return true;
    }

    bool readProperties() {
        const auto reader = readerOf("the ledger's name", [this](const Trees::Row& row) {
            Value values[2];
            if (!readRow(row.payload, values)) return;
            if (values[0].bytes == "name") found_.name = values[1].bytes;
            if (values[0].bytes == "id") id_ = values[1].bytes;
            if (values[0].bytes == "journal") folded_ = static_cast<uint64_t>(values[1].number);
            if (values[0].bytes == "open") {
                found_.durability = values[1].bytes.substr(0, values[1].bytes.find(' '));
                found_.closed = values[1].bytes.empty();
            }
        });
        return trees_.read(roots_["property"], reader, &outcome_);
    }

    void lookAtLog() {
        const Log& log = file_.log();
        if (foreignLog_) {
            tell("this log was left behind by another ledger, or by another copy of this one, and is not looked into",
                 file_.logPath(), 0);
        }
        const char* const fault = faultOf(log);
        if (!found_.closed && fault != nullptr && !found_.durability.empty()) {
            tellTail(std::string("the ledger was not closed, and its log, which has what was stored last, ") + fault,
                     file_.logPath(), 0);
        }
        const bool power = found_.durability == "power";
        if (log.laterFrames == 0 || (power && log.laterTransactions <= 1)) return;
        tellTail("the log is damaged here, and " + std::to_string(log.laterTransactions) +
                     " transactions that follow are lost" +
                     (power ? "" : ", unless a failure of the power took them, which this ledger's durability allows"),
                 file_.logPath(), log.end);
    }

    // What the journal has and the database lacks; the rest is looked at as it has become by it.
    bool readJournal() {
        const std::string path = file_.path() + "-steps";
        std::string content;
        bool there = false;
        outcome_ = journal::read(path, &content, &there);
        if (outcome_.status == QUORL_INVALID_FILE) {
            tell(outcome_.text, path, 0);
            outcome_ = {};
        }
        if (!outcome_.ok()) return false;
        if (!there && found_.durability == "process") {
            tellTail(
                "the ledger was not closed, and its journal, which has what was stored last, is missing; put it back "
                "beside the ledger",
                path, 0);
        }
        if (id_.empty()) {
            if (there) tellTail("this journal cannot be read without the id on the ledger's damaged page", path, 0);
            return true;
        }
        journal::Replay replay;
        const auto takeInto = [](auto&& take) {
            return [take](const journal::Entry& entry) {
                Write write;
                if (journal::writeOf(entry, &write) != QUORL_OK) return false;
                take(std::move(write), entry.sum);
                return true;
            };
        };
        const bool whole = journal::replay(
            content, id_, folded_,
            takeInto([this](Write&& write, uint64_t sum) { journal_.add(std::move(write), sum); }), &replay,
            takeInto([this](Write&& write, uint64_t sum) { later_.add(std::move(write), sum); }));
        if (replay.foreign ||
            (found_.durability != "process" && (replay.last != folded_ || replay.laterRecords != 0))) {
            tell(
                "this journal was left behind by another ledger, or by another copy of this one, and is not looked "
                "into",
                path, 0);
            journal_.clear();
            later_.clear();
            return true;
        }
        if (!whole || replay.laterRecords != 0) {
            tellTail("the journal is damaged here, and " + std::to_string(replay.laterRecords) +
                         " records that follow do not count, unless a failure of the power took what is missing, which "
                         "this ledger's durability allows",
                     path, replay.end);
            for (const auto& [subject, effect] : later_.subjects()) {
                if (!effect.puts.empty()) tails_.back().before[subject] = effect.puts.begin()->first;
            }
        }
        return true;
    }

    void giveJournal() {
        for (const auto& [subject, effect] : journal_.subjects()) {
            for (const auto& [number, put] : effect.puts) giveWritten(put.write, false);
        }
        for (const auto& [subject, effect] : later_.subjects()) {
            for (const auto& [number, put] : effect.puts) {
                bool erased = false;
                if (journal_.find(subject, number, &erased) == nullptr) giveWritten(put.write, true);
            }
        }
        for (const auto& [key, put] : journal_.states()) {
            if (put.write.kind != Write::Kind::putState) continue;
            ++found_.states;
            inspector_.state(key, put.write.value);
        }
    }

    void giveWritten(const Write& write, bool outOfPlace) {
        const companion::Message& message = write.message;
        ++found_.messages;
        found_.bytes += message.image().size();
        if (!outOfPlace) noteLast(write.subject, write.number, message.subject());
        inspector_.message({.subject = message.subject(),
                            .subjectNumber = write.subject,
                            .number = write.number,
                            .expires = write.expires,
                            .reply = message.replySubject(),
                            .image = {reinterpret_cast<const char*>(message.image().data()), message.image().size()},
                            .outOfPlace = outOfPlace});
    }

    bool readStates() {
        const auto reader = readerOf("registrations", [this](const Trees::Row& row) {
            Value values[3];
            if (!readRow(row.payload, values) ||
                static_cast<uint64_t>(values[1].number) != format::stateChecksum(values[0].bytes, values[2].bytes)) {
                tell("a row of the page has a wrong checksum; of registrations some is lost", fileOf(row.page->inLog),
                     row.page->offset);
                return;
            }
            if (journal_.states().contains(std::string(values[0].bytes))) return;
            ++found_.states;
            inspector_.state(values[0].bytes, values[2].bytes);
        });
        return trees_.read(roots_["state"], reader, &outcome_);
    }

    bool readSegments() {
        const auto reader = readerOf("the subjects", [this](const Trees::Row& row) {
            Value values[4];
            if (row.number <= 0 || row.number > format::lastSegment || !readRow(row.payload, values)) return;
            const Segment& segment = segments_[static_cast<uint32_t>(row.number)] = {
                static_cast<uint32_t>(values[1].number), static_cast<uint32_t>(values[2].number),
                std::string(values[3].bytes)};
            noteLast(segment.subject, uint64_t{segment.high} << 32, segment.text);
        });
        return trees_.read(roots_["segment"], reader, &outcome_);
    }

    bool readMessages() {
        Trees::Reader reader;
        reader.row = [this](const Trees::Row& row) {
            if (const uint32_t segment = format::segmentOfRow(row.number); !segments_.contains(segment)) {
                if (nameless_.insert(segment).second) {
                    tell("here begin messages of a subject whose name is lost", fileOf(row.page->inLog),
                         row.page->offset);
                }
                giveNameless(row);
                return;
            }
            if (!give(row, false))
                tellLost("a row of the page has a wrong checksum", *row.page, {row.number, row.number});
        };
        reader.gap = [this](const Trees::Gap& gap) {
            PageFile::Page page;
            page.inLog = gap.inLog;
            page.offset = gap.offset;
            const std::string what = std::string(gap.wholePage ? "the page " : "a row of the page ") + gap.why;
            tellLost(what, page, {gap.first, gap.last});
            if (gap.wholeTree) lost_.push_back({gap.first, gap.last});
        };
        reader.goOn = [this] { return goOn(); };
        return trees_.read(roots_["message"], reader, &outcome_);
    }

    // Whether the row is a message as it was stored.
    bool give(const Trees::Row& row, bool outOfPlace) {
        Value values[5];
        if (!readRow(row.payload, values)) return false;
        const auto segment = segments_.find(format::segmentOfRow(row.number));
        if (segment == segments_.end()) return false;
        const format::Record record{.subjectNumber = segment->second.subject,
                                    .number = uint64_t{segment->second.high} << 32 | format::lowOfRow(row.number),
                                    .expires = values[1].number,
                                    .reply = values[3].bytes,
                                    .image = values[4].bytes};
        bool erased = false;
        if (journal_.find(record.subjectNumber, record.number, &erased) != nullptr || erased) return true;
        if (record.checksum() != static_cast<uint64_t>(values[2].number)) return false;
        ++found_.messages;
        found_.bytes += record.image.size();
        if (!outOfPlace) noteLast(record.subjectNumber, record.number, segment->second.text);
        inspector_.message({.subject = segment->second.text,
                            .subjectNumber = record.subjectNumber,
                            .number = record.number,
                            .expires = record.expires,
                            .reply = record.reply,
                            .image = record.image,
                            .outOfPlace = outOfPlace});
        return true;
    }

    // Nobody can tell whether it is as it was stored, but its page is.
    void giveNameless(const Trees::Row& row) {
        Value values[5];
        if (!readRow(row.payload, values)) return;
        ++found_.messages;
        found_.bytes += values[4].bytes.size();
        inspector_.message({.subject = {},
                            .number = format::lowOfRow(row.number),
                            .expires = values[1].number,
                            .reply = values[3].bytes,
                            .image = values[4].bytes,
                            .outOfPlace = true});
    }

    // Whether a subject has no segment behind that one.
    bool isLastOf(uint32_t subject, uint32_t high) const {
        for (const auto& [id, segment] : segments_) {
            if (segment.subject == subject && segment.high > high) return false;
        }
        return true;
    }

    // One finding for each subject of which messages are lost.
    void tellLost(const std::string& why, const PageFile::Page& page, Range rows) {
        const auto first = static_cast<uint64_t>(std::max<int64_t>(rows.first, 0));
        const auto last = static_cast<uint64_t>(std::max<int64_t>(rows.last, 0));
        bool told = false;
        for (auto at = segments_.lower_bound(static_cast<uint32_t>(first >> 32));
             at != segments_.end() && at->first <= last >> 32; ++at) {
            const Segment& segment = at->second;
            const uint64_t base = uint64_t{segment.high} << 32;
            const uint64_t from = base | (at->first == first >> 32 ? static_cast<uint32_t>(first) : 0);
            uint64_t to = base | (at->first == last >> 32 ? static_cast<uint32_t>(last) : UINT32_MAX);
            // The end of the rows is none of the numbers.
            if (static_cast<uint32_t>(to) == UINT32_MAX && isLastOf(segment.subject, segment.high)) to = UINT64_MAX;
            tellRange(why, fileOf(page.inLog), page.offset, segment.subject, segment.text, std::max<uint64_t>(from, 1),
                      to);
            told = true;
        }
        if (!told) tell(why, fileOf(page.inLog), page.offset);
    }

    // Where a page above others is damaged, the rows below it are still in pages to which nothing leads.
    void readStrays() {
        for (const uint32_t number : trees_.unseen()) {
            if (!outcome_.ok() || !goOn()) return;
            trees_.readLeaf(
                number,
                [this](const Trees::Row& row) {
                    for (const Range& range : lost_) {
                        if (row.number < range.first || row.number > range.last) continue;
                        give(row, true);
                        return;
                    }
                },
                &outcome_);
        }
    }

    struct Last {
        std::string text;  // the subject
        uint64_t number = 0;
    };

    const PageFile& file_;
    const bool foreignLog_;
    Trees trees_;
    Inspector& inspector_;
    Inspection& found_;
    Outcome outcome_;
    uint64_t steps_ = 0;
    std::map<std::string, uint32_t> roots_;
    std::map<uint32_t, Segment> segments_;
    std::string id_;
    uint64_t folded_ = 0;
    NetEffect journal_;
    std::set<uint32_t> nameless_;  // segments that messages belong to and that are not there
    std::vector<Range> lost_;
    NetEffect later_;                // of the journal, behind the first record that is wrong
    std::map<uint32_t, Last> last_;  // the highest number of each subject that is there
    std::vector<Tail> tails_;
    std::set<std::string> told_;
};

}  // namespace

Outcome inspect(const std::string& path, Inspector& inspector, Inspection* found) noexcept {
    *found = {};
    try {
        std::unique_ptr<OwnedFile> owned;
        Outcome outcome = OwnedFile::open(path, OwnedFile::Use::read, &owned);
        if (outcome.ok()) outcome = format::checkBeginning(owned->descriptor(), owned->path());
        return outcome.ok() ? inspect(*owned, inspector, found) : outcome;
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

Outcome inspect(const OwnedFile& owned, Inspector& inspector, Inspection* found) noexcept {
    *found = {};
    try {
        Log log;
        Outcome outcome = readLog(owned.path() + "-wal", &log);
        if (!outcome.ok()) return outcome;
        outcome = checkLogBelongs(owned.descriptor(), owned.path(), log);
        const bool foreignLog = outcome.status == QUORL_INVALID_FILE;
        if (!outcome.ok() && !foreignLog) return outcome;
        PageFile file(owned.descriptor(), owned.path());
        outcome = file.open(foreignLog ? Log() : std::move(log));
        if (!outcome.ok()) return outcome;
        return Inspecting(file, foreignLog, inspector, found).run();
    } catch (const std::bad_alloc&) {
        return {QUORL_NO_MEMORY};
    }
}

}  // namespace quorl::certified
