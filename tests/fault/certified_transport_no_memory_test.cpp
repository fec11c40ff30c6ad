// Certified transports with a ledger when memory is short, their own, the ledger's and SQLite's: each allocation of each call fails once,
// the program's and the library's. Nothing ends the process, a refused call says so, and what was accepted or confirmed is so
// when the ledger is opened again.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "failing_allocator.h"
#include "failing_sqlite.h"
#include "quorl/quorlcm.h"

namespace {

using quorltest::failAllocation;
using quorltest::stopFailing;
using quorltest::Whose;
using Numbers = std::vector<int>;
using Clock = std::chrono::steady_clock;

constexpr auto limit = std::chrono::seconds(60);
constexpr int64_t most = 5'000;
constexpr const char* senderName = "a.sender.of.a.name.that.is.not.short";
constexpr const char* listenerName = "a.listener.of.a.name.that.is.not.short";

class Folder {
  public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "quorl-memory-XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const char* name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

int numberOf(quorlMsg message) {
    quorl_i32 number = -1;
    EXPECT_EQ(quorlMsg_GetI32Ex(message, "n", &number, 0), QUORL_OK);
    return number;
}

struct Given {
    quorlMsg message;
    int number;
};

struct Way {
    bool power;
    Whose fails;
};

class CertifiedTransportNoMemory : public testing::TestWithParam<Way> {
  protected:
    static void SetUpTestSuite() {
        static const bool once = quorltest::failSqliteToo();
        ASSERT_TRUE(once);
    }
    void SetUp() override {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlTransport_Create(&transport_, nullptr, nullptr, nullptr), QUORL_OK);
        ASSERT_EQ(quorlQueue_Create(&queue_), QUORL_OK);
    }
    void TearDown() override {
        for (const Given& one : given_) quorlMsg_Destroy(one.message);
        EXPECT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
    }

    quorl_status create(const char* name, const std::string& path, quorlcmTransport* made) {
        return quorlcmTransport_Create(made, transport_, name, QUORL_TRUE, path.c_str(),
                                       GetParam().power ? QUORL_TRUE : QUORL_FALSE, nullptr);
    }
    quorlcmTransport open(const char* name, const char* file) {
        quorlcmTransport made = 0;
        EXPECT_EQ(create(name, folder_.file(file), &made), QUORL_OK) << quorl_LastErrorText();
        return made;
    }
    // Returns when the ledger is closed.
    void close(quorlcmTransport transport) {
        std::atomic<bool> completed = false;
        const auto complete = [](quorlcmTransport, void* closure) {
            auto& done = *static_cast<std::atomic<bool>*>(closure);
            done = true;
            done.notify_all();
        };
        ASSERT_EQ(quorlcmTransport_DestroyEx(transport, complete, &completed), QUORL_OK) << quorl_LastErrorText();
        completed.wait(false);
    }
    quorl_status send(quorlcmTransport transport, int number) {
        quorlMsg message = nullptr;
        EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
        EXPECT_EQ(quorlMsg_SetSendSubject(message, "a.subject.that.is.not.short"), QUORL_OK);
        EXPECT_EQ(quorlMsg_AddI32Ex(message, "n", number, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_AddStringEx(message, "text", text_.c_str(), 0), QUORL_OK);
        const quorl_status status = tried([&] { return quorlcmTransport_Send(transport, message); });
        quorlMsg_Destroy(message);
        return status;
    }
    quorlcmEvent listen(quorlcmTransport transport) {
        quorlcmEvent listener = 0;
        EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue_, onMessage, transport, "a.>", this), QUORL_OK);
        EXPECT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
        return listener;
    }
    template <class F>
    bool until(F&& condition) {
        for (const auto end = Clock::now() + limit; !condition();) {
            if (Clock::now() > end) return false;
            quorlQueue_TimedDispatch(queue_, 0.01);
        }
        return true;
    }
    Numbers given() const {
        Numbers numbers;
        for (const Given& one : given_) numbers.push_back(one.number);
        return numbers;
    }

    // From here the call has the allocation fail that was chosen.
    quorl_status tried(const std::function<quorl_status()>& call) {
        if (allowed_ < 0) return call();
        failAllocation(GetParam().fails, allowed_);
        const quorl_status status = call();
        if (settles_) settles_();
        happened_ = stopFailing();
        if (status != QUORL_OK) {
            EXPECT_EQ(status, QUORL_NO_MEMORY) << "allocation " << allowed_ << ": " << quorl_LastErrorText();
            EXPECT_NE(quorl_LastErrorText()[0], '\0') << "allocation " << allowed_;
        }
        return status;
    }
    // Has each allocation of call fail, until none is left that could.
    void each(const char* what, const std::function<void()>& call) {
        int64_t failures = 0;
        for (allowed_ = 0;; ++allowed_) {
            ASSERT_LT(allowed_, most) << "does not come to an end";
            happened_ = false;
            call();
            if (HasFatalFailure()) return;
            if (!happened_) break;
            ++failures;
        }
        allowed_ = -1;
        std::printf("%s: %lld allocations failed\n", what, static_cast<long long>(failures));
    }

    static void onMessage(quorlcmEvent, quorlMsg message, void* closure) {
        EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
        static_cast<CertifiedTransportNoMemory*>(closure)->given_.push_back({message, numberOf(message)});
    }

    Folder folder_;
    quorlTransport transport_ = 0;
    quorlQueue queue_ = 0;
    std::vector<Given> given_;
    int64_t allowed_ = -1;
    bool happened_ = false;
    std::function<void()> settles_;  // waits for what the library's threads do after the call
    const std::string text_ = std::string(300, 'x');
};

// A send that was accepted is in the ledger, and one that was refused is not, whatever found no memory on its way there.
TEST_P(CertifiedTransportNoMemory, WhatIsAcceptedIsInTheLedger) {
    quorlcmTransport sender = open(senderName, "sender");
    ASSERT_EQ(quorlcmTransport_AddListener(sender, listenerName, "a.>"), QUORL_OK);
    Numbers accepted;
    int number = 0;
    if (GetParam().fails == Whose::librarys) {
        settles_ = [&] { quorlcmTransport_SyncLedger(sender); };
    }
    each("send", [&] {
        const int mine = ++number;
        if (send(sender, mine) == QUORL_OK) accepted.push_back(mine);
        // It goes on when there is memory again, if not at once.
        const int64_t allowed = std::exchange(allowed_, -1);
        for (const auto end = Clock::now() + limit;;) {
            const int next = ++number;
            const quorl_status status = send(sender, next);
            if (status == QUORL_OK) {
                accepted.push_back(next);
                break;
            }
            ASSERT_EQ(status, QUORL_NO_MEMORY) << quorl_LastErrorText();
            ASSERT_LT(Clock::now(), end) << "sends do not work again";
            std::this_thread::yield();
        }
        allowed_ = allowed;
    });
    close(sender);
    sender = open(senderName, "sender");
    quorlcmTransport receiver = open(listenerName, "listener");
    listen(receiver);
    ASSERT_TRUE(until([&] { return given_.size() >= accepted.size(); }));
    EXPECT_EQ(given(), accepted);
}

// What the program has confirmed does not come again, and what it has not does.
TEST_P(CertifiedTransportNoMemory, WhatIsConfirmedDoesNotComeAgain) {
    constexpr int messages = 1500;
    quorlcmTransport sender = open(senderName, "sender");
    quorlcmTransport receiver = open(listenerName, "listener");
    ASSERT_EQ(quorlcmTransport_AddListener(sender, listenerName, "a.>"), QUORL_OK);
    for (int number = 1; number <= messages; ++number) ASSERT_EQ(send(sender, number), QUORL_OK);
    const quorlcmEvent listener = listen(receiver);
    ASSERT_TRUE(until([&] { return given_.size() >= messages; }));
    if (GetParam().fails == Whose::librarys) {
        settles_ = [&] { quorlcmTransport_SyncLedger(receiver); };
    }
    std::vector<bool> confirmed(messages + 1);
    size_t next = 0;
    each("confirm", [&] {
        ASSERT_LT(next, given_.size());
        const Given& one = given_[next++];
        const auto confirm = [&] { return quorlcmEvent_ConfirmMsg(listener, one.message); };
        confirmed[static_cast<size_t>(one.number)] = tried(confirm) == QUORL_OK;
    });
    close(receiver);
    for (const Given& one : given_) quorlMsg_Destroy(one.message);
    given_.clear();
    receiver = open(listenerName, "listener");
    listen(receiver);
    ASSERT_TRUE(until([&] { return !given_.empty() && given_.back().number == messages; }));
    // One that was refused may have been confirmed all the same; it may come or not.
    size_t refused = 0;
    Numbers came = given();
    for (int number = 1; number <= messages; ++number) {
        const bool is = std::binary_search(came.begin(), came.end(), number);
        if (confirmed[static_cast<size_t>(number)]) {
            EXPECT_FALSE(is) << number << " comes again";
        } else if (static_cast<size_t>(number) > next) {
            EXPECT_TRUE(is) << number << " was not confirmed, and does not come";
        } else {
            ++refused;
        }
    }
    std::printf("%zu confirmations were refused\n", refused);
}

TEST_P(CertifiedTransportNoMemory, OpensClosesAndLooksIntoItsLedger) {
    quorlcmTransport sender = open(senderName, "sender");
    ASSERT_EQ(quorlcmTransport_AddListener(sender, listenerName, "a.>"), QUORL_OK);
    Numbers sent(20);
    std::iota(sent.begin(), sent.end(), 1);
    for (const int number : sent) ASSERT_EQ(send(sender, number), QUORL_OK);
    close(sender);
    const std::string path = folder_.file("sender");
    each("open and close", [&] {
        quorlcmTransport made = 0;
        tried([&] {
            const quorl_status status = create(senderName, path, &made);
            if (status == QUORL_OK) close(made);
            return status;
        });
    });
    sender = open(senderName, "sender");
    const auto seen = [](quorlcmTransport, const char*, quorlMsg summary, void* closure) -> void* {
        EXPECT_EQ(quorlMsg_GetU64Ex(summary, "messages", static_cast<quorl_u64*>(closure), 0), QUORL_OK);
        return nullptr;
    };
    each("review", [&] {
        quorl_u64 kept = 0;
        const quorl_status status = tried([&] { return quorlcmTransport_ReviewLedger(sender, seen, nullptr, &kept); });
        if (status == QUORL_OK) {
            EXPECT_EQ(kept, sent.size());
        }
    });
    each("sync", [&] { tried([&] { return quorlcmTransport_SyncLedger(sender); }); });
    each("add and remove", [&] {
        tried([&] {
            const quorl_status status = quorlcmTransport_AddListener(sender, "another.name.that.is.not.short", "a.b");
            return status == QUORL_OK ? quorlcmTransport_RemoveListener(sender, "another.name.that.is.not.short", "a.b")
                                      : status;
        });
    });
    each("listen and stop", [&] {
        tried([&] {
            quorlcmEvent listener = 0;
            const quorl_status status = quorlcmEvent_CreateListener(&listener, queue_, onMessage, sender, "b.>", this);
            return status == QUORL_OK ? quorlcmEvent_DestroyEx(listener, QUORL_TRUE, nullptr) : status;
        });
    });
    close(sender);
    sender = open(senderName, "sender");
    const quorlcmTransport receiver = open(listenerName, "listener");
    listen(receiver);
    ASSERT_TRUE(until([&] { return given_.size() >= sent.size(); }));
    EXPECT_EQ(given(), sent);
}

INSTANTIATE_TEST_SUITE_P(Each, CertifiedTransportNoMemory,
                         testing::Values(Way{false, Whose::callers}, Way{true, Whose::callers},
                                         Way{false, Whose::librarys}, Way{true, Whose::librarys}),
                         [](const auto& each) {
                             return std::string(each.param.power ? "power" : "process") +
                                    (each.param.fails == Whose::callers ? "_of_the_program" : "_of_the_library");
                         });

}  // namespace
