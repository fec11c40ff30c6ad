// The ledger: a file in which certified delivery keeps messages until they are confirmed, and its own state.
//
//     std::unique_ptr<Ledger> ledger;
//     Outcome outcome = Ledger::open({.path = path, .name = "orders"}, &ledger);
//     if (outcome.ok()) outcome = ledger->load(loader);
//     if (outcome.ok()) outcome = ledger->apply(transaction);   // returns when it is as durable as was asked
//
// It is a SQLite database; docs/internals/ledger.md describes the file and what survives what.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/ledger/database.h"
#include "certified/ledger/group_commit.h"
#include "certified/ledger/journal_file.h"
#include "certified/ledger/net_effect.h"
#include "certified/ledger/outcome.h"
#include "certified/ledger/owned_file.h"
#include "certified/protocol/store.h"
#include "companion/message.h"

namespace quorl::certified {

struct Finding;
struct Log;

// What accepted writes survive: the end of this process, also by kill -9; or a power failure too.
enum class Durability { process, power };

// What a ledger holds, as load() gives it: all state in the order of its keys, then each message that is kept, subject by subject
// and in the order of their numbers.
class Loader {
  public:
    virtual ~Loader() = default;
    virtual void state(std::string_view, std::string_view) {}  // key, value
    virtual void message(const StoredMessage&) {}
    // After message(): it is damaged, and read() will say so. It stays in the file until it is erased.
    virtual void damaged(const StoredMessage&, const Finding&) {}
    // After everything else. What is refused here is refused by load() too, and the file is left as it is.
    virtual Outcome verdict() { return {}; }
};

// Any thread may call; load() before everything else. In a child that was forked while the ledger was open, everything answers
// QUORL_NOT_PERMITTED and leaves the parent's file alone.
class Ledger {
    struct Step {
        Transaction transaction;
        std::vector<uint64_t> sums;  // of each write that has a checksum
    };

  public:
    using Ticket = GroupCommit<Step>::Ticket;

    struct Options {
        std::string path;
        std::string name;  // the certified name whose ledger it is
        Durability durability = Durability::power;
        const char* files = "unix-none";   // SQLite's file layer; one without locks
        uint32_t checkpointFrames = 4000;  // pages in the log that are copied to their places in the file
        std::string systemRun = {};        // which run of the system this is; empty: the ledger finds out
        uint32_t journalBytes = 4 << 20;   // of the journal at Durability::process; 0: without one
        uint32_t growth = 1 << 20;         // bytes by which the file grows
    };

    // Opens the ledger, or makes one where there is no file. What is refused is left as it is.
    // QUORL_INVALID_ARG: no file name or no name. QUORL_FILE_NOT_FOUND: no such folder. QUORL_NOT_FILE_OWNER: in use, another
    // user's, or another name's. QUORL_INVALID_FILE: no ledger, a damaged one, or one beside which another one has left its log
    // or journal. QUORL_VERSION_MISMATCH: a newer release's. QUORL_IO_FAILED: the system refuses to read or write.
    static Outcome open(const Options& options, std::unique_ptr<Ledger>* ledger) noexcept;

    // Writes what was submitted, and closes. The program no longer uses the ledger.
    ~Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    // Also makes the ledger ready to be written. QUORL_INVALID_FILE: it is damaged, more than by single messages; it is left as it
    // is, and what can be read is found by exporting it. After a failure the ledger is of no use; one that was made by open() is
    // removed again.
    Outcome load(Loader& loader) noexcept;

    // Whether everything is there that was durable when the ledger was last open. False when it was at Durability::process and the
    // system has been started anew meanwhile, without the ledger having been closed: then it may lack its tail.
    bool complete() const noexcept { return complete_; }

    // Transactions are in force, each as a whole, in the order in which they are submitted. Never waits for the disk, and may be
    // called under the lock that gives them their order. What fails here would never pass: QUORL_INVALID_SIZE.
    Outcome submit(Transaction transaction, Ticket* ticket) noexcept;
    // Until that transaction is durable, or has failed: then it is not in the file, nor is any that was submitted later without
    // saying afterFailure. What was durable before stays, and transactions pass again when the cause is gone.
    Outcome wait(const Ticket& ticket) noexcept;
    // Both.
    Outcome apply(Transaction transaction) noexcept;

    // Until everything submitted so far would survive a power failure, whatever the ledger's durability.
    Outcome sync() noexcept;

    // QUORL_NOT_FOUND; QUORL_INVALID_FILE: it is there but damaged.
    // The subject of the message is the one under which it was stored.
    Outcome read(uint32_t subject, uint64_t number, companion::Message* message) noexcept;

    const std::string& path() const noexcept { return file_->path(); }

  private:
    // A subject and the upper half of message numbers: the two are one number in the rows of messages.
    struct Segment {
        uint32_t id = 0;
        std::string text;  // the subject
    };
    using Segments = std::map<std::pair<uint32_t, uint32_t>, Segment>;

    Ledger(std::unique_ptr<OwnedFile> file, const Options& options);

    static Outcome openThrowing(const Options& options, std::unique_ptr<Ledger>* ledger);
    enum class Use { loading, full };

    Outcome openToRead();
    Outcome openToWrite();
    void undoOpening();
    Outcome connect();
    Outcome checkContent();
    Outcome checkLog(const Log& log) const;
    Outcome damage(const std::string& what) const;
    Outcome withFindings(const Outcome& outcome) const;
    Outcome readJournal();
    Outcome property(const char* key, Statement* statement, bool* found);
    bool sameRun() const;
    Outcome prepareStatements();
    Outcome loadSegments();
    Outcome setMark(const std::string& mark);

    Outcome usable(Use use) const;
    Outcome loadThrowing(Loader& loader);
    Outcome loadState(Loader& loader);
    Outcome loadMessages(uint32_t subject, Loader& loader);
    Outcome readThrowing(uint32_t subject, uint64_t number, companion::Message* message);
    Outcome damagedMessage(uint32_t subject, uint64_t number) const;
    Finding findingOf(uint32_t subject, uint64_t number) const;

    // What a transaction of SQLite is made of.
    using Body = std::function<Outcome()>;

    Outcome commit(std::vector<Step>& steps) noexcept;
    Outcome store(bool sync, const Body& body);
    Outcome storeOnce(bool sync, const Body& body);
    bool journaled(const std::vector<Step>& steps, bool sync);
    Outcome append(std::vector<Step>& steps);
    void absorb();
    Outcome fold(bool sync);
    Outcome storeNetEffect();
    Outcome setSyncing(bool sync);
    Outcome carryOut(const Step& step);
    Outcome carryOut(const Write& write, uint64_t sum);
    Outcome put(const Write& write, uint64_t sum);
    Outcome erase(const Write& write);
    Outcome putState(const Write& write, uint64_t sum);
    Outcome eraseState(const Write& write);
    Outcome segmentFor(const Write& write, const Segment** segment);
    Outcome run(Statement& statement);
    std::array<Statement*, 13> statements() noexcept;
    sqlite3_file* logFile() noexcept;
    Outcome syncLog();
    Outcome cutLog();
    void reserveLog() noexcept;
    Outcome reserve();
    Outcome checkpoint(int mode);

    const Options options_;
    const char* const vfs_;
    const std::string systemRun_;
    std::unique_ptr<OwnedFile> file_;

    std::mutex lock_;              // over what follows
    std::atomic<int> readers_{0};  // threads that wait for the lock to read: commits let them go first
    Database database_;
    Statement begin_, end_, rollBack_, insert_, eraseOne_, eraseRange_, insertState_, deleteState_, insertSegment_,
        read_, pages_, setFolded_, beginLog_;
    Segments segments_;
    std::vector<std::pair<uint32_t, uint32_t>> newSegments_;  // of the transaction that runs
    uint32_t nextSegment_ = 1;
    int logFrames_ = 0;                  // pages in the log, 0: they are all in the file too, and the next begin anew
    bool uncut_ = false;                 // behind them may be what was refused
    int nextCheckpoint_;                 // as many
    bool syncing_ = false;               // commits sync the log
    bool full_ = false;                  // the last failure was a full disk
    std::atomic<bool> writable_{false};  // it was loaded
    bool created_ = false;               // by open()
    bool hasLog_ = false;                // when it was opened
    bool hasJournal_ = false;            // when it was opened
    bool makesLog_ = false;              // no file was in its place
    bool makesJournal_ = false;          // the same
    bool wrote_ = false;                 // openToWrite() has begun
    bool marked_ = false;                // its mark was changed, or may have been
    bool copied_ = false;                // the log was copied into the file, or a part of it
    int64_t size_ = 0;                   // of the file, when it was opened
    std::string mark_;                   // of the file when it was opened: not empty while somebody has it open
    bool complete_ = true;
    int64_t reservedBytes_ = 0;  // of the file, so that what is in the log has a place there

    // At Durability::process: what is in the journal and not in the database yet.
    JournalFile journal_;
    NetEffect pending_;
    std::vector<Step> recent_;  // of the last record, on the way into pending_
    size_t absorbedSteps_ = 0;  // of them, and of the writes of the next
    size_t absorbedWrites_ = 0;
    std::string record_;                    // the next one, while it is made
    std::string id_;                        // of the ledger
    uint64_t folded_ = 0;                   // the last record that is in the database
    uint64_t lastRecord_ = 0;               // in the journal
    int64_t journalEnd_ = 0;                // where the next record begins
    std::map<uint32_t, uint64_t> highest_;  // of each subject: no number beyond it is in the database

    GroupCommit<Step> group_;
};

}  // namespace quorl::certified
