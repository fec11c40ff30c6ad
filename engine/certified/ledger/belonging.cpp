#include "certified/ledger/belonging.h"

#include "certified/ledger/journal.h"
#include "certified/ledger/tree.h"

namespace quorl::certified {
namespace {

constexpr uint32_t propertyPage = 2;  // a new ledger's, which never moves

Outcome leftBehind(const std::string& path, const std::string& left, const char* what) {
    return {QUORL_INVALID_FILE, "there is no ledger " + path + ", but its " + what + " " + left +
                                    " is there, with what was stored last; put the ledger back beside it, or remove "
                                    "what was left of it (" +
                                    path + "-wal, " + path + "-steps) to have a new one made"};
}

}  // namespace

Outcome readProperties(const PageFile& file, Properties* properties) {
    *properties = {};
    bool whole = true;
    const Trees::Reader reader{.row =
                                   [&](const Trees::Row& row) {
                                       Value values[2];
                                       if (!readRow(row.payload, values)) {
                                           whole = false;
                                           return;
                                       }
                                       const std::string_view key = values[0].bytes;
                                       if (key == "name") properties->name = values[1].bytes;
                                       if (key == "id") properties->id = values[1].bytes;
                                       if (key == "open") properties->open = values[1].bytes;
                                       if (key == "journal")
                                           properties->journal = static_cast<uint64_t>(values[1].number);
                                       if (key == "log") properties->log = static_cast<uint64_t>(values[1].number);
                                   },
                               .gap = [&](const Trees::Gap&) { whole = false; },
                               .goOn = [] { return true; }};
    Outcome outcome;
    Trees(file).read(propertyPage, reader, &outcome);
    properties->readable = outcome.ok() && whole && !properties->id.empty();
    return outcome;
}

// The first transaction of a log, whenever it begins anew, stores the properties with its number. They reach the file before
// the next one begins. So a log that is of use to a file has the file's id, and the number that the file has or the next.
Outcome checkLogBelongs(int descriptor, const std::string& path, const Log& log) {
    if (log.frames == 0) return {};  // SQLite takes nothing from it
    Outcome foreign = notItsOwn(path, path + "-wal");
    if (!log.newest.contains(propertyPage)) return foreign;
    Properties ofLog;
    Properties ofFile;
    for (Properties* properties : {&ofLog, &ofFile}) {
        PageFile file(descriptor, path);
        Outcome outcome = file.open(properties == &ofLog ? log : Log());
        if (outcome.ok()) outcome = readProperties(file, properties);
        if (!outcome.ok()) return outcome;
    }
    // A failure of the power may have left the file's page half written, while the log was copied. The log has it whole.
    if (!ofFile.readable && ofLog.readable) return {};
    const bool follows = ofLog.log == ofFile.log || ofLog.log == ofFile.log + 1;
    return ofLog.readable && ofLog.id == ofFile.id && follows ? Outcome() : foreign;
}

Outcome notItsOwn(const std::string& ledger, const std::string& other) {
    return {QUORL_INVALID_FILE, "the file " + other + " beside the ledger " + ledger +
                                    " was left behind by another ledger, or by another copy of this one, and has what "
                                    "that one stored last; move it to where that one is, or remove it if nobody needs "
                                    "what it has"};
}

Outcome checkNothingLeft(const std::string& path) {
    Log log;
    Outcome outcome = readLog(path + "-wal", &log);
    if (!outcome.ok()) return outcome;
    const bool empty = log.present ? log.frames == 0 && log.laterFrames == 0 : log.blank;
    if (!empty) return leftBehind(path, path + "-wal", "log");
    std::string content;
    bool there = false;
    outcome = journal::read(path + "-steps", &content, &there);
    if (!outcome.ok()) return outcome;
    if (content.find_first_not_of('\0') != std::string::npos) return leftBehind(path, path + "-steps", "journal");
    return {};
}

}  // namespace quorl::certified
