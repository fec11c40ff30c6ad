// What is no ledger to be opened: a status, a text that names the file, and the file as it was.
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "certified/ledger/format.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

// Expects that status, a text with the words, and that nothing in the folder has changed.
void expectRefused(const Folder& folder, const std::string& path, quorl_status status, const std::string& words,
                   const std::string& name = "orders") {
    const auto before = filesIn(folder);
    const Outcome outcome = refusal(path, name);
    EXPECT_EQ(outcome.status, status) << outcome.text;
    EXPECT_NE(outcome.text.find(words), std::string::npos) << outcome.text;
    EXPECT_NE(outcome.text.find(path), std::string::npos) << outcome.text;
    EXPECT_EQ(filesIn(folder), before);
}

void makeDatabase(const std::string& path, const std::string& sql) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
}

TEST(Refusal, OfWhatIsNoFile) {
    const Folder folder;
    EXPECT_EQ(refusal("").status, QUORL_INVALID_ARG);
    EXPECT_EQ(refusal(folder / "orders.ledger", "").status, QUORL_INVALID_ARG);
    expectRefused(folder, folder / "nowhere/orders.ledger", QUORL_FILE_NOT_FOUND, "there is no folder");
    expectRefused(folder, folder.path(), QUORL_INVALID_FILE, "it is a folder");
    std::filesystem::create_symlink(folder / "nothing", folder / "link");
    expectRefused(folder, folder / "link", QUORL_INVALID_FILE, "symbolic link to nothing");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    expectRefused(folder, folder / "pipe", QUORL_INVALID_FILE, "it is not a file");
    writeFile(folder / "plain", "x");
    expectRefused(folder, folder / "plain/orders.ledger", QUORL_FILE_NOT_FOUND, "there is no folder");
    expectRefused(folder, folder / std::string(300, 'x'), QUORL_IO_FAILED, "File name too long");
    // Others than root are told of their rights first.
    const std::string reason = geteuid() == 0 ? "the folder /proc takes no new files" : "Permission denied";
    expectRefused(folder, "/proc/orders.ledger", QUORL_IO_FAILED, reason);
}

TEST(Refusal, OfWhatIsNoLedger) {
    const Folder folder;
    const std::string path = folder / "file";
    writeFile(path, "");
    expectRefused(folder, path, QUORL_INVALID_FILE, "is empty");
    writeFile(path, "x");
    expectRefused(folder, path, QUORL_INVALID_FILE, "is no ledger");
    writeFile(path, std::string(100'000, 'x'));
    expectRefused(folder, path, QUORL_INVALID_FILE, "is no ledger");
    writeFile(path, std::string("SQLite format 3\0", 16));
    expectRefused(folder, path, QUORL_INVALID_FILE, "is no ledger");
    std::filesystem::remove(path);
    makeDatabase(path, "CREATE TABLE message(id INTEGER)");
    expectRefused(folder, path, QUORL_INVALID_FILE, "of another program");
    const std::string own = "PRAGMA application_id=" + std::to_string(format::applicationId);
    makeDatabase(path, own + "; PRAGMA user_version=2");
    expectRefused(folder, path, QUORL_VERSION_MISMATCH, "has format 2");
    makeDatabase(path, "PRAGMA user_version=1");
    expectRefused(folder, path, QUORL_INVALID_FILE, "gives pages another size");
}

TEST(Refusal, OfALedgerOfAnotherName) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1)))));
    expectRefused(folder, path, QUORL_NOT_FILE_OWNER, "certified name orders, not of trades", "trades");
}

// As after kill -9: the file and its log.
void leaveOpen(const std::string& path) {
    const Folder other;
    const auto ledger = opened(other / "orders.ledger");
    ASSERT_TRUE(good(ledger->apply(step(put(1, 1)))));
    std::filesystem::copy_file(other / "orders.ledger", path);
    std::filesystem::copy_file(other / "orders.ledger-wal", path + "-wal");
    std::filesystem::copy_file(other / "orders.ledger-steps", path + "-steps");
}

TEST(Refusal, OfALedgerThatWasNotClosed) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    leaveOpen(path);
    expectRefused(folder, path, QUORL_NOT_FILE_OWNER, "certified name orders, not of trades", "trades");
    std::filesystem::rename(path + "-wal", folder / "aside");
    expectRefused(folder, path, QUORL_INVALID_FILE,
                  "-wal, byte 0: the ledger was not closed, and its log, which has what was stored last, is missing");
    std::filesystem::rename(folder / "aside", path + "-wal");
    EXPECT_EQ(heldBy(*opened(path)).numbers(1), std::vector<uint64_t>{1});
}

// Whoever loads it cannot make sense of what it keeps: closed, or left by a killed process with a journal that would go into it.
TEST(Refusal, ByWhoeverLoadsIt) {
    struct Picky final : Held {
        Outcome verdict() override { return {QUORL_VERSION_MISMATCH, "by a newer release"}; }
    };
    for (const bool closed : {true, false}) {
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        if (closed) {
            ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1), putState("a", "1")))));
        } else {
            leaveOpen(path);
        }
        const auto before = filesIn(folder);
        for (const Durability durability : {Durability::process, Durability::power}) {
            std::unique_ptr<Ledger> ledger;
            Picky picky;
            ASSERT_TRUE(good(Ledger::open({.path = path, .name = "orders", .durability = durability}, &ledger)));
            EXPECT_EQ(ledger->load(picky).status, QUORL_VERSION_MISMATCH);
            EXPECT_EQ(picky.numbers(1), std::vector<uint64_t>{1});
            ledger.reset();
            EXPECT_EQ(filesIn(folder), before);
        }
        EXPECT_EQ(heldBy(*opened(path)).numbers(1), std::vector<uint64_t>{1});
    }
}

// In a child that is another user, or sees another world: what body answers, or 0 when that child cannot be had.
template <class F>
quorl_status inChild(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(120);
        _exit(static_cast<int>(body()));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return static_cast<quorl_status>(WEXITSTATUS(status));
}

TEST(Refusal, OfWhatBelongsToAnother) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1)))));
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    const auto before = filesIn(folder);
    const bool root = geteuid() == 0;
    ASSERT_EQ(chmod(path.c_str(), root ? 0600 : 0), 0);
    EXPECT_EQ(inChild([&] {
                  if (root && setuid(65534) != 0) return QUORL_EOF;
                  return refusal(path).status;
              }),
              root ? QUORL_NOT_FILE_OWNER : QUORL_IO_FAILED);
    EXPECT_EQ(inChild([&] {
                  if (root && setuid(65534) != 0) return QUORL_EOF;
                  if (!root && chmod(folder.path().c_str(), 0555) != 0) return QUORL_EOF;
                  return refusal(folder / "new.ledger").status;
              }),
              QUORL_IO_FAILED);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(filesIn(folder), before);
}

TEST(Refusal, OnAReadOnlyFileSystem) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1)))));
    const auto before = filesIn(folder);
    // 0: this machine gives no such view of the folder to the test.
    const auto refusedThere = [&](const std::string& tried) {
        return inChild([&] {
            const char* there = folder.path().c_str();
            if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 && unshare(CLONE_NEWNS) != 0) return QUORL_OK;
            if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount(there, there, nullptr, MS_BIND, nullptr) != 0 ||
                mount(nullptr, there, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
                return QUORL_OK;
            }
            const Outcome outcome = refusal(tried);
            return outcome.text.find("Read-only file system") != std::string::npos ? outcome.status : QUORL_EOF;
        });
    };
    const std::set<quorl_status> fine = {QUORL_IO_FAILED, QUORL_OK};
    EXPECT_TRUE(fine.contains(refusedThere(path)));
    EXPECT_TRUE(fine.contains(refusedThere(folder / "new.ledger")));
    EXPECT_EQ(filesIn(folder), before);
}

}  // namespace
}  // namespace quorl::certified
