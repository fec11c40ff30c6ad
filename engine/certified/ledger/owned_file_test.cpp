// That a ledger has one owner, however somebody else comes to its file, and that ownership ends with the process.
#include "certified/ledger/owned_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>

#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

constexpr int limitSeconds = 120;

// A process of the test, which says when it is ready and then waits to be killed.
class Child {
  public:
    explicit Child(const std::function<bool()>& body) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        process_ = fork();
        if (process_ == 0) {
            alarm(limitSeconds);
            const char said = body() ? '+' : '-';
            if (write(ends[1], &said, 1) != 1) _exit(1);
            for (;;) pause();
        }
        close(ends[1]);
        pollfd ready{ends[0], POLLIN, 0};
        EXPECT_EQ(poll(&ready, 1, limitSeconds * 1000), 1);
        char said = 0;
        EXPECT_EQ(::read(ends[0], &said, 1), 1);
        EXPECT_EQ(said, '+');
        close(ends[0]);
    }
    ~Child() { kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    void kill() {
        if (process_ <= 0) return;
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }
    pid_t process() const { return process_; }

  private:
    pid_t process_ = 0;
};

Outcome tryOpen(const std::string& path) {
    std::unique_ptr<Ledger> ledger;
    Held held;
    Outcome outcome = Ledger::open({.path = path, .name = "orders"}, &ledger);
    return outcome.ok() ? ledger->load(held) : outcome;
}

testing::AssertionResult refusedFor(const Outcome& outcome, const std::string& holder) {
    if (outcome.status != QUORL_NOT_FILE_OWNER) return testing::AssertionFailure() << "status " << outcome.status;
    if (outcome.text.find(holder) == std::string::npos) return testing::AssertionFailure() << outcome.text;
    return testing::AssertionSuccess();
}

TEST(Ownership, IsOneInAProcess) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    std::filesystem::create_symlink(path, folder / "symbolic");
    std::filesystem::create_hard_link(path, folder / "hard");
    std::filesystem::create_directory(folder / "inner");
    for (const std::string& other : {path, folder / "symbolic", folder / "hard", folder / "inner/../orders.ledger"}) {
        EXPECT_TRUE(refusedFor(tryOpen(other), "in use by this process")) << other;
    }
    ASSERT_TRUE(good(ledger->apply(step(put(1, 1)))));
    ledger.reset();
    EXPECT_EQ(heldBy(*opened(folder / "symbolic")).numbers(1), std::vector<uint64_t>{1});
    EXPECT_EQ(heldBy(*opened(folder / "hard")).numbers(1), std::vector<uint64_t>{1});
}

TEST(Ownership, IsKnownToOtherProcesses) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    opened(path).reset();
    std::filesystem::create_symlink(path, folder / "symbolic");
    std::filesystem::create_hard_link(path, folder / "hard");
    std::unique_ptr<Ledger> theirs;
    Child child([&] {
        theirs = opened(path);
        return theirs != nullptr && theirs->apply(step(put(1, 1))).ok();
    });
    const std::string holder = "process " + std::to_string(child.process());
    for (const std::string& other : {path, folder / "symbolic", folder / "hard"}) {
        EXPECT_TRUE(refusedFor(tryOpen(other), holder)) << other;
    }
    child.kill();
    const auto ledger = opened(path);
    ASSERT_NE(ledger, nullptr);
    EXPECT_EQ(heldBy(*ledger).numbers(1), std::vector<uint64_t>{1});
}

TEST(Ownership, EndsWithTheProcessAndNotWithItsChildren) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    int alive[2];    // ends the grandchild
    int started[2];  // says that it runs: a fork returns in the parent before that
    ASSERT_EQ(pipe2(alive, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(started, O_CLOEXEC), 0);
    std::unique_ptr<Ledger> theirs;
    Child child([&] {
        theirs = opened(path);
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            alarm(limitSeconds);
            char end = 0;
            close(alive[1]);
            _exit(write(started[1], "+", 1) == 1 && ::read(alive[0], &end, 1) == 0 ? 0 : 1);
        }
        char said = 0;
        return theirs != nullptr && grandchild > 0 && ::read(started[0], &said, 1) == 1;
    });
    EXPECT_EQ(tryOpen(path).status, QUORL_NOT_FILE_OWNER);
    child.kill();
    EXPECT_TRUE(good(tryOpen(path)));
    for (const int end : {alive[0], alive[1], started[0], started[1]}) close(end);
}

TEST(Ownership, StaysWithTheParentOfAFork) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    ASSERT_TRUE(good(ledger->apply(step(put(1, 1)))));
    {
        const Child child([&] { return refusedFor(tryOpen(path), "process " + std::to_string(getppid())); });
    }
    const std::string before = contentOf(path) + contentOf(path + "-wal");
    {
        Child child([&] {
            Held held;
            companion::Message message;
            const bool refused = ledger->apply(step(put(1, 2))).status == QUORL_NOT_PERMITTED &&
                                 ledger->read(1, 1, &message).status == QUORL_NOT_PERMITTED &&
                                 ledger->load(held).status == QUORL_NOT_PERMITTED &&
                                 ledger->sync().status == QUORL_NOT_PERMITTED;
            ledger.reset();
            return refused && tryOpen(path).status == QUORL_NOT_FILE_OWNER;
        });
    }
    EXPECT_EQ(contentOf(path) + contentOf(path + "-wal"), before);
    ASSERT_TRUE(good(ledger->apply(step(put(1, 3)))));
    EXPECT_EQ(heldBy(*ledger).numbers(1), (std::vector<uint64_t>{1, 3}));
}

TEST(Ownership, SurvivesThatTheProgramOpensTheFile) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const auto ledger = opened(path);
    EXPECT_FALSE(contentOf(path).empty());
    const Child child([&] { return refusedFor(tryOpen(path), "in use by"); });
}

TEST(Ownership, KeepsOutWhatUsesTheFileAsADatabase) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const auto ledger = opened(path);
    const Child child([&] {
        sqlite3* database = nullptr;
        sqlite3_open(path.c_str(), &database);
        return sqlite3_exec(database, "SELECT * FROM state", nullptr, nullptr, nullptr) == SQLITE_BUSY;
    });
}

TEST(Ownership, IsRefusedWhileTheFileIsUsedAsADatabase) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    opened(path).reset();
    const Child child([&] {
        sqlite3* database = nullptr;
        sqlite3_open(path.c_str(), &database);
        return sqlite3_exec(database, "SELECT * FROM state", nullptr, nullptr, nullptr) == SQLITE_OK;
    });
    EXPECT_TRUE(refusedFor(tryOpen(path), "process " + std::to_string(child.process())));
}

TEST(Ownership, HasManyReadersOrOneOwner) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    std::unique_ptr<OwnedFile> reader;
    EXPECT_TRUE(refusedFor(OwnedFile::open(path, OwnedFile::Use::read, &reader), "in use by this process"));
    ledger.reset();
    {
        const Child child([&] { return OwnedFile::open(path, OwnedFile::Use::read, &reader).ok(); });
        std::unique_ptr<OwnedFile> second;
        EXPECT_TRUE(good(OwnedFile::open(path, OwnedFile::Use::read, &second)));
        EXPECT_TRUE(refusedFor(tryOpen(path), "in use by"));
        second.reset();
        EXPECT_TRUE(refusedFor(tryOpen(path), "process " + std::to_string(child.process())));
    }
    EXPECT_TRUE(good(tryOpen(path)));
}

}  // namespace
}  // namespace quorl::certified
