// The ledger of certified delivery beside SQLite as its users use it, on the same file system: messages of 256 bytes stored one by
// one, by many threads, a hundred at once; and how long it takes to open a million.
#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "certified/ledger/inspect.h"
#include "certified/ledger/ledger.h"
#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;
using namespace quorl::certified;
using quorl::companion::Message;

constexpr size_t kPayload = 256;
constexpr size_t kPending = 1'000'000;

// A folder on the file system to be measured, that of the working directory unless BENCH_DATA names another.
class Folder {
  public:
    Folder() {
        const char* where = std::getenv("BENCH_DATA");
        std::string name = std::string(where != nullptr ? where : ".") + "/ledger-bench-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) fail("no folder for the benchmark");
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const char* name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

Message sample() {
    const std::string payload(kPayload, 'x');
    quorlMsg handle = 0;
    Message message;
    need(quorlMsg_Create(&handle), "create message");
    need(quorlMsg_AddOpaqueEx(handle, "payload", payload.data(), kPayload, 0), "add payload");
    need(quorlMsg_SetSendSubject(handle, "bench.ledger"), "set subject");
    need(Message::of(handle, &message), "take message");
    need(quorlMsg_Destroy(handle), "destroy message");
    return message;
}

void must(const Outcome& outcome) {
    if (!outcome.ok()) fail(outcome.text);
}

struct Counting : Loader {
    size_t messages = 0;
    void state(std::string_view, std::string_view) override {}
    void message(const StoredMessage&) override { ++messages; }
    void damaged(const StoredMessage&, const Finding& finding) override { fail(finding.text); }
};

std::unique_ptr<Ledger> openLedger(const std::string& path, Durability durability) {
    std::unique_ptr<Ledger> ledger;
    Counting counting;
    must(Ledger::open({.path = path, .name = "bench", .durability = durability}, &ledger));
    must(ledger->load(counting));
    return ledger;
}

Write put(const Message& message, uint64_t number) {
    Write write;
    write.kind = Write::Kind::putMessage;
    write.subject = 1;
    write.number = number;
    write.message = message;
    return write;
}
Write erase(uint64_t first, uint64_t last) {
    Write write;
    write.kind = Write::Kind::eraseMessages;
    write.subject = 1;
    write.number = first;
    write.last = last;
    return write;
}

// How a run stores: so many at once, and whether each is confirmed a hundred later.
struct Shape {
    uint64_t batch = 1;
    bool confirmed = false;
    size_t threads = 1;
};

double quorlRate(Durability durability, const Shape& shape) {
    const Folder folder;
    const auto ledger = openLedger(folder / "quorl.ledger", durability);
    const Message message = sample();
    std::atomic<uint64_t> next{1};
    std::atomic<uint64_t> stored{0};
    const int64_t start = nowNs();
    const int64_t end = start + static_cast<int64_t>(runSeconds() * 1e9);
    const auto work = [&] {
        while (nowNs() < end) {
            Transaction transaction;
            const uint64_t first = next.fetch_add(shape.batch, std::memory_order_relaxed);
            for (uint64_t i = 0; i < shape.batch; ++i) transaction.writes.push_back(put(message, first + i));
            if (shape.confirmed && first > 100)
                transaction.writes.push_back(erase(first - 100, first + shape.batch - 101));
            must(ledger->apply(std::move(transaction)));
            stored.fetch_add(shape.batch, std::memory_order_relaxed);
        }
    };
    std::vector<std::thread> threads;
    for (size_t i = 1; i < shape.threads; ++i) threads.emplace_back(work);
    work();
    for (std::thread& thread : threads) thread.join();
    return static_cast<double>(stored.load()) / (static_cast<double>(nowNs() - start) * 1e-9);
}

// SQLite as its documentation recommends it for this: write-ahead log, prepared statements.
class Peer {
  public:
    Peer(const std::string& path, Durability durability) {
        if (sqlite3_open(path.c_str(), &database_) != SQLITE_OK) fail("sqlite");
        run("PRAGMA journal_mode=WAL");
        run(durability == Durability::power ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
        run("CREATE TABLE m(seq INTEGER PRIMARY KEY, body BLOB)");
        prepare("INSERT INTO m VALUES(?,?)", &insert_);
        prepare("DELETE FROM m WHERE seq BETWEEN ? AND ?", &delete_);
        prepare("BEGIN IMMEDIATE", &begin_);
        prepare("COMMIT", &commit_);
    }
    ~Peer() {
        for (sqlite3_stmt* statement : {insert_, delete_, begin_, commit_}) sqlite3_finalize(statement);
        sqlite3_close(database_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void begin() { step(begin_); }
    void commit() { step(commit_); }
    void insert(uint64_t number, const std::string& body) {
        sqlite3_bind_int64(insert_, 1, static_cast<sqlite3_int64>(number));
        sqlite3_bind_blob64(insert_, 2, body.data(), body.size(), SQLITE_STATIC);
        step(insert_);
    }
    void erase(uint64_t first, uint64_t last) {
        sqlite3_bind_int64(delete_, 1, static_cast<sqlite3_int64>(first));
        sqlite3_bind_int64(delete_, 2, static_cast<sqlite3_int64>(last));
        step(delete_);
    }

  private:
    void run(const char* sql) {
        if (sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(database_));
    }
    void prepare(const char* sql, sqlite3_stmt** statement) {
        if (sqlite3_prepare_v2(database_, sql, -1, statement, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(database_));
    }
    void step(sqlite3_stmt* statement) {
        if (sqlite3_step(statement) != SQLITE_DONE) fail(sqlite3_errmsg(database_));
        sqlite3_reset(statement);
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    sqlite3_stmt* delete_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

double sqliteRate(Durability durability, const Shape& shape) {
    const Folder folder;
    Peer peer(folder / "peer.sqlite", durability);
    const Message message = sample();
    const std::string body(message.image().begin(), message.image().end());
    uint64_t stored = 0;
    const int64_t start = nowNs();
    const int64_t end = start + static_cast<int64_t>(runSeconds() * 1e9);
    while (nowNs() < end) {
        peer.begin();
        const uint64_t first = stored + 1;
        for (uint64_t i = 0; i < shape.batch; ++i) peer.insert(first + i, body);
        if (shape.confirmed && first > 100) peer.erase(first - 100, first + shape.batch - 101);
        peer.commit();
        stored += shape.batch;
    }
    return static_cast<double>(stored) / (static_cast<double>(nowNs() - start) * 1e-9);
}

void compareRates(const char* metric, Durability durability, const Shape& shape) {
    compare("ledger", {{metric, Better::higher}},
            {"quorl", [=] { return std::vector<double>{quorlRate(durability, shape)}; }},
            {{durability == Durability::power ? "sqlite, WAL, full" : "sqlite, WAL, normal",
              [=] { return std::vector<double>{sqliteRate(durability, shape)}; }}});
}

// Bytes of memory in use, by what the allocator says.
double memoryInUse() {
    return static_cast<double>(mallinfo2().uordblks);
}

// Seconds to open a ledger of a million messages, and bytes of memory for each of them.
void reportOpening() {
    const Folder folder;
    const std::string path = folder / "quorl.ledger";
    const Message message = sample();
    {
        const auto ledger = openLedger(path, Durability::process);
        for (uint64_t number = 1; number <= kPending;) {
            Transaction transaction;
            for (int i = 0; i < 1000; ++i) transaction.writes.push_back(put(message, number++));
            must(ledger->apply(std::move(transaction)));
        }
    }
    {
        Peer peer(folder / "peer.sqlite", Durability::process);
        const std::string body(message.image().begin(), message.image().end());
        for (uint64_t number = 1; number <= kPending;) {
            peer.begin();
            for (int i = 0; i < 1000; ++i) peer.insert(number++, body);
            peer.commit();
        }
    }
    double memory = 0;
    compare("ledger", {{"open_1000000_seconds", Better::lower}},
            {"quorl",
             [&] {
                 const double before = memoryInUse();
                 const int64_t start = nowNs();
                 std::unique_ptr<Ledger> ledger;
                 Counting counting;
                 must(Ledger::open({.path = path, .name = "bench", .durability = Durability::process}, &ledger));
                 must(ledger->load(counting));
                 const double seconds = static_cast<double>(nowNs() - start) * 1e-9;
                 memory = memoryInUse() - before;
                 if (counting.messages != kPending) fail("messages are missing");
                 return std::vector<double>{seconds};
             }},
            {{"sqlite, numbers and sizes", [&] {
                  sqlite3* database = nullptr;
                  const int64_t start = nowNs();
                  sqlite3_stmt* all = nullptr;
                  if (sqlite3_open((folder / "peer.sqlite").c_str(), &database) != SQLITE_OK ||
                      sqlite3_prepare_v2(database, "SELECT seq, length(body) FROM m ORDER BY seq", -1, &all, nullptr) !=
                          SQLITE_OK) {
                      fail("sqlite");
                  }
                  size_t count = 0;
                  while (sqlite3_step(all) == SQLITE_ROW) count += sqlite3_column_int64(all, 1) != 0 ? 1 : 0;
                  sqlite3_finalize(all);
                  const double seconds = static_cast<double>(nowNs() - start) * 1e-9;
                  sqlite3_close(database);
                  if (count != kPending) fail("rows are missing");
                  return std::vector<double>{seconds};
              }}});
    report("ledger", {"open_1000000_bytes_each", Better::lower}, memory / static_cast<double>(kPending));
}

}  // namespace

int main() {
    compareRates("power.one_by_one", Durability::power, {});
    compareRates("power.100_at_once", Durability::power, {.batch = 100});
    // The peer is one thread of our own: what sharing a sync is worth.
    compare("ledger", {{"power.64_threads", Better::higher}},
            {"quorl", [] { return std::vector<double>{quorlRate(Durability::power, {.threads = 64})}; }},
            {{"quorl, one thread", [] { return std::vector<double>{quorlRate(Durability::power, {})}; }}});
    compareRates("process.one_by_one", Durability::process, {});
    compareRates("process.stored_and_confirmed", Durability::process, {.confirmed = true});
    compareRates("process.100_at_once", Durability::process, {.batch = 100, .confirmed = true});
    compare("ledger", {{"process.8_threads", Better::higher}},
            {"quorl", [] { return std::vector<double>{quorlRate(Durability::process, {.threads = 8})}; }},
            {{"quorl, one thread", [] { return std::vector<double>{quorlRate(Durability::process, {})}; }}});
    reportOpening();
}
