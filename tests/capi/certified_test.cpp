// Certified delivery through the C interface: every function, and what each refuses.
#include "quorl/quorlcm.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>

#include "support.h"

namespace quorltest {
namespace {

namespace fs = std::filesystem;

// A directory that goes with everything in it.
class Folder {
  public:
    Folder() {
        std::string pattern = (fs::temp_directory_path() / "quorl-certified-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~Folder() { fs::remove_all(path_); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    fs::path path_;
};

struct Choice {
    const char* name = nullptr;
    bool requestOld = false;
    std::string ledger = {};
    bool sync = false;
};

quorl_status tryToCreate(quorlcmTransport* made, quorlTransport transport, const Choice& choice) {
    return quorlcmTransport_Create(made, transport, choice.name, choice.requestOld ? QUORL_TRUE : QUORL_FALSE,
                                   choice.ledger.empty() ? nullptr : choice.ledger.c_str(),
                                   choice.sync ? QUORL_TRUE : QUORL_FALSE, nullptr);
}

quorlcmTransport newCertified(quorlTransport transport, const Choice& choice = {}) {
    quorlcmTransport made = 0;
    EXPECT_EQ(tryToCreate(&made, transport, choice), QUORL_OK) << quorl_LastErrorText();
    return made;
}

[[maybe_unused]] void destroyAndWait(quorlcmTransport transport) {
    Counter completed;
    ASSERT_EQ(
        quorlcmTransport_DestroyEx(
            transport, [](quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); }, &completed),
        QUORL_OK)
        << quorl_LastErrorText();
    ASSERT_TRUE(completed.waitFor(1));
}

quorl_status sendCertified(quorlcmTransport transport, const char* subject, int number, double limitSeconds = -1) {
    quorlMsg message = newMessage(subject, number);
    if (limitSeconds >= 0) {
        EXPECT_EQ(quorlMsg_SetCMTimeLimit(message, limitSeconds), QUORL_OK);
    }
    const quorl_status status = quorlcmTransport_Send(transport, message);
    quorlMsg_Destroy(message);
    return status;
}

// What came to a listener.
struct Came {
    struct One {
        int number;
        std::string sender;  // empty: not certified
        quorl_u64 sequence;
        double limit;
    };
    std::vector<One> all;
    std::vector<quorlMsg> kept;  // detached, when keep says so
    bool keep = false;

    ~Came() {
        for (quorlMsg message : kept) quorlMsg_Destroy(message);
    }
    std::vector<int> numbers() const {
        std::vector<int> numbers;
        for (const One& one : all) numbers.push_back(one.number);
        return numbers;
    }
};

void onCertified(quorlcmEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Came*>(closure);
    Came::One one{numberOf(message), "", 0, -1};
    const char* sender = nullptr;
    if (quorlMsg_GetCMSender(message, &sender) == QUORL_OK) {
        one.sender = sender;
        EXPECT_EQ(quorlMsg_GetCMSequence(message, &one.sequence), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetCMTimeLimit(message, &one.limit), QUORL_OK);
    }
    to.all.push_back(std::move(one));
    if (!to.keep) return;
    EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
    to.kept.push_back(message);
}

quorlcmEvent listenCertified(quorlQueue queue, quorlcmTransport transport, const char* subject, Came* came) {
    quorlcmEvent listener = 0;
    EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, onCertified, transport, subject, came), QUORL_OK)
        << quorl_LastErrorText();
    return listener;
}

// Dispatches until condition holds.
template <class F>
bool until(quorlQueue queue, F&& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        quorlQueue_TimedDispatch(queue, 0.01);
    }
    return true;
}

// What a review says of one subject.
struct Reviewed {
    struct Listener {
        quorl_u64 confirmed = 0;
        quorl_u64 unconfirmed = 0;
        bool registered = false;
    };
    quorl_u64 first = 0, last = 0, messages = 0, bytes = 0;
    std::map<std::string, Listener> listeners;
};

std::map<std::string, Reviewed> review(quorlcmTransport transport, const char* pattern = nullptr) {
    std::map<std::string, Reviewed> found;
    const auto callback = [](quorlcmTransport, const char* subject, quorlMsg message, void* closure) -> void* {
        Reviewed& one = (*static_cast<std::map<std::string, Reviewed>*>(closure))[subject];
        const char* text = nullptr;
        EXPECT_EQ(quorlMsg_GetStringEx(message, "subject", &text, 0), QUORL_OK);
        EXPECT_STREQ(text, subject);
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "first", &one.first, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "last", &one.last, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "messages", &one.messages, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "bytes", &one.bytes, 0), QUORL_OK);
        const quorlMsg* listeners = nullptr;
        quorl_u32 count = 0;
        if (quorlMsg_GetMsgArrayEx(message, "listeners", &listeners, &count, 0) != QUORL_OK) return nullptr;
        for (quorl_u32 i = 0; i < count; ++i) {
            quorl_bool registered = QUORL_FALSE;
            EXPECT_EQ(quorlMsg_GetStringEx(listeners[i], "name", &text, 0), QUORL_OK);
            Reviewed::Listener& listener = one.listeners[text];
            EXPECT_EQ(quorlMsg_GetU64Ex(listeners[i], "confirmed", &listener.confirmed, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetU64Ex(listeners[i], "unconfirmed", &listener.unconfirmed, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetBoolEx(listeners[i], "registered", &registered, 0), QUORL_OK);
            listener.registered = registered == QUORL_TRUE;
        }
        return nullptr;
    };
    EXPECT_EQ(quorlcmTransport_ReviewLedger(transport, callback, pattern, &found), QUORL_OK) << quorl_LastErrorText();
    return found;
}

// A sender and a listener, each with a transport of its own on one bus.
class Certified : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        here = newTransport();
        there = newTransport();
        queue = newQueue();
    }
    // Until the sender knows of a registered listener on the subject.
    bool registered(quorlcmTransport sender, const char* subject, const char* name) {
        return until(queue, [&] {
            const auto found = review(sender, subject);
            const auto at = found.find(subject);
            return at != found.end() && at->second.listeners.count(name) != 0 &&
                   at->second.listeners.at(name).registered;
        });
    }
    bool nothingKept(quorlcmTransport sender, const char* subject) {
        return until(queue, [&] {
            const auto found = review(sender, subject);
            const auto at = found.find(subject);
            return at == found.end() || at->second.messages == 0;
        });
    }

    quorlTransport here = 0;
    quorlTransport there = 0;
    quorlQueue queue = 0;
    Folder folder;
};

TEST_F(Certified, whatIsSentIsDeliveredAndConfirmed) {
    Came came;
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    listenCertified(queue, receiver, "a.*", &came);
    // The first message finds nobody registered, and makes the listener ask for what follows.
    ASSERT_EQ(sendCertified(sender, "a.b", 0), QUORL_OK) << quorl_LastErrorText();
    ASSERT_TRUE(registered(sender, "a.b", "receiver"));
    const size_t before = came.all.size();
    for (int i = 1; i <= 5; ++i) ASSERT_EQ(sendCertified(sender, "a.b", i, i == 3 ? 60 : -1), QUORL_OK);
    ASSERT_TRUE(until(queue, [&] { return came.all.size() >= before + 5; }));
    for (size_t i = 0; i < 5; ++i) {
        const Came::One& one = came.all[before + i];
        EXPECT_EQ(one.number, static_cast<int>(i + 1));
        EXPECT_EQ(one.sender, "sender");
        EXPECT_EQ(one.sequence, i + 2);
    }
    EXPECT_EQ(came.all[before].limit, 0);
    EXPECT_EQ(came.all[before + 2].limit, 60);
    EXPECT_TRUE(nothingKept(sender, "a.b"));
}

}  // namespace
}  // namespace quorltest
