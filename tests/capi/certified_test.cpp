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

#include "child.h"
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

void destroyAndWait(quorlcmTransport transport) {
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
            EXPECT_EQ(quorlMsg_GetU64Ex(listeners[i], "confirmed_up_to", &listener.confirmed, 0), QUORL_OK);
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

// ---- making and ending

TEST_F(Certified, whatCannotBeMadeIsRefusedWithAReason) {
    quorlcmTransport made = 0;
    EXPECT_EQ(tryToCreate(nullptr, here, {}), QUORL_INVALID_ARG);
    EXPECT_EQ(tryToCreate(&made, 4711, {.name = "a"}), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(tryToCreate(&made, queue, {}), QUORL_INVALID_TRANSPORT);
    const std::string longest(200, 'n');
    const std::string tooLong(201, 'n');
    for (const char* name : {"", "a..b", ".a", "a.", "a.*", ">", "_a", "_INBOX.a.1", tooLong.c_str(), "\xff"}) {
        EXPECT_EQ(tryToCreate(&made, here, {.name = name}), QUORL_INVALID_NAME) << name;
        EXPECT_STRNE(quorl_LastErrorText(), "") << name;
    }
    EXPECT_EQ(tryToCreate(&made, here, {.ledger = folder.file("l")}), QUORL_INVALID_ARG) << "no name for a ledger";
    EXPECT_EQ(quorlcmTransport_Create(&made, here, "a", QUORL_FALSE, "", QUORL_FALSE, nullptr), QUORL_INVALID_ARG);
    const std::string ledger = folder.file("l");
    for (const char* relay : {"", "a..b", "a.*", "_a", tooLong.c_str()}) {
        EXPECT_EQ(quorlcmTransport_Create(&made, here, "a", QUORL_FALSE, ledger.c_str(), QUORL_FALSE, relay),
                  QUORL_INVALID_NAME)
            << relay;
    }
    EXPECT_EQ(quorlcmTransport_Create(&made, here, "a", QUORL_FALSE, nullptr, QUORL_FALSE, "relay"), QUORL_INVALID_ARG)
        << "no ledger for the copy";
    EXPECT_EQ(quorlcmTransport_Create(&made, here, nullptr, QUORL_FALSE, nullptr, QUORL_FALSE, "relay"),
              QUORL_INVALID_ARG);
    EXPECT_EQ(made, 0u);
    newCertified(here, {.name = longest.c_str()});
}

TEST_F(Certified, filesThatAreNoLedgersAreLeftAsTheyAre) {
    quorlcmTransport made = 0;
    fs::create_directory(folder.file("directory"));
    EXPECT_EQ(tryToCreate(&made, here, {.name = "a", .ledger = folder.file("directory")}), QUORL_INVALID_FILE)
        << quorl_LastErrorText();
    EXPECT_EQ(tryToCreate(&made, here, {.name = "a", .ledger = folder.file("none/l")}), QUORL_FILE_NOT_FOUND);
    const std::string text = "This is a letter, and no ledger.\n";
    std::ofstream(folder.file("letter")) << text;
    EXPECT_EQ(tryToCreate(&made, here, {.name = "a", .ledger = folder.file("letter")}), QUORL_INVALID_FILE);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("letter"), std::string::npos);
    std::ifstream again(folder.file("letter"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), text);
    destroyAndWait(newCertified(here, {.name = "a", .ledger = folder.file("l")}));
    EXPECT_EQ(tryToCreate(&made, here, {.name = "b", .ledger = folder.file("l")}), QUORL_NOT_FILE_OWNER)
        << "of another name";
    const quorlcmTransport owner = newCertified(here, {.name = "a", .ledger = folder.file("l")});
    EXPECT_EQ(tryToCreate(&made, there, {.name = "a", .ledger = folder.file("l")}), QUORL_NOT_FILE_OWNER) << "in use";
    destroyAndWait(owner);
    destroyAndWait(newCertified(here, {.name = "a", .ledger = folder.file("l"), .sync = true}));
}

TEST_F(Certified, endsOnce) {
    const quorlcmTransport transport = newCertified(here, {.name = "a", .ledger = folder.file("l")});
    destroyAndWait(transport);
    Counter none;
    const auto count = [](quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); };
    EXPECT_EQ(quorlcmTransport_DestroyEx(transport, count, &none), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_Destroy(transport), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_Destroy(0), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_Destroy(here), QUORL_INVALID_TRANSPORT);
    const quorlcmTransport other = newCertified(here);
    EXPECT_EQ(quorlcmTransport_Destroy(other), QUORL_OK);
    EXPECT_EQ(none.value(), 0);
}

TEST_F(Certified, everyFunctionRefusesWhatIsNoCertifiedTransport) {
    quorlMsg message = newMessage("a", 1);
    quorlMsg reply = nullptr;
    quorlcmEvent listener = 0;
    const auto nothing = [](quorlcmTransport, const char*, quorlMsg, void*) -> void* { return nullptr; };
    for (const quorlcmTransport wrong : {quorlcmTransport{0}, quorlcmTransport{4711}, here, queue}) {
        const quorl_status statuses[] = {
            quorlcmTransport_Send(wrong, message),
            quorlcmTransport_SendRequest(wrong, message, &reply, 0),
            quorlcmTransport_SendReply(wrong, message, message),
            quorlcmTransport_AllowListener(wrong, "a"),
            quorlcmTransport_DisallowListener(wrong, "a"),
            quorlcmTransport_AddListener(wrong, "a", "b"),
            quorlcmTransport_RemoveListener(wrong, "a", "b"),
            quorlcmTransport_RemoveSendState(wrong, "a"),
            quorlcmTransport_ExpireMessages(wrong, "a", 1),
            quorlcmTransport_SyncLedger(wrong),
            quorlcmTransport_ConnectToRelayAgent(wrong),
            quorlcmTransport_DisconnectFromRelayAgent(wrong),
            quorlcmTransport_SetDefaultCMTimeLimit(wrong, 1),
            quorlcmTransport_SetPublisherInactivityDiscardInterval(wrong, 1),
            quorlcmTransport_ReviewLedger(wrong, nothing, nullptr, nullptr),
            quorlcmEvent_CreateListener(&listener, queue, onCertified, wrong, "a", nullptr),
        };
        for (const quorl_status status : statuses) EXPECT_EQ(status, QUORL_INVALID_TRANSPORT) << wrong;
        EXPECT_EQ(quorlcmEvent_DestroyEx(wrong, QUORL_TRUE, nullptr), QUORL_INVALID_EVENT);
        EXPECT_EQ(quorlcmEvent_SetExplicitConfirm(wrong), QUORL_INVALID_EVENT);
        EXPECT_EQ(quorlcmEvent_ConfirmMsg(wrong, message), QUORL_INVALID_EVENT);
        EXPECT_EQ(_quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(wrong), QUORL_INVALID_EVENT);
    }
    quorlMsg_Destroy(message);
}

TEST_F(Certified, settingsAreChecked) {
    const quorlcmTransport transport = newCertified(here, {.name = "a"});
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double good : {0.0, 1e-12, 1.0, 1e300, infinite})
        EXPECT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(transport, good), QUORL_OK) << good;
    for (const double bad : {-1.0, -1e-300, nan, -infinite})
        EXPECT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(transport, bad), QUORL_INVALID_ARG) << bad;
    EXPECT_EQ(quorlcmTransport_SetPublisherInactivityDiscardInterval(transport, 0), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_SetPublisherInactivityDiscardInterval(transport, INT32_MAX), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_SetPublisherInactivityDiscardInterval(transport, -1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlcmTransport_ConnectToRelayAgent(transport), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_DisconnectFromRelayAgent(transport), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_SyncLedger(transport), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_ReviewLedger(transport, nullptr, nullptr, nullptr), QUORL_INVALID_CALLBACK);
    for (const char* bad : {static_cast<const char*>(nullptr), "", "a..b", "a.*"})
        EXPECT_EQ(quorlcmTransport_AddListener(transport, bad, "a"), QUORL_INVALID_NAME) << (bad ? bad : "null");
    for (const char* bad : {static_cast<const char*>(nullptr), "", "a..b", "_QUORL.x"})
        EXPECT_EQ(quorlcmTransport_AddListener(transport, "b", bad), QUORL_INVALID_SUBJECT) << (bad ? bad : "null");
}

TEST_F(Certified, limitsOfMessagesAreTheHandles) {
    quorlMsg message = newMessage("a", 1);
    double seconds = -1;
    const char* sender = nullptr;
    quorl_u64 sequence = 0;
    EXPECT_EQ(quorlMsg_GetCMTimeLimit(message, &seconds), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlMsg_GetCMSender(message, &sender), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlMsg_GetCMSequence(message, &sequence), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlMsg_GetCMTimeLimit(message, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlMsg_GetCMSender(message, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlMsg_GetCMSequence(message, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlMsg_GetCMTimeLimit(nullptr, &seconds), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlMsg_SetCMTimeLimit(nullptr, 1), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlMsg_SetCMTimeLimit(message, -1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlMsg_SetCMTimeLimit(message, std::numeric_limits<double>::quiet_NaN()), QUORL_INVALID_ARG);
    for (const double given : {0.0, 0.5, 60.0, 86400.0 * 365}) {
        ASSERT_EQ(quorlMsg_SetCMTimeLimit(message, given), QUORL_OK);
        ASSERT_EQ(quorlMsg_GetCMTimeLimit(message, &seconds), QUORL_OK);
        EXPECT_EQ(seconds, given);
    }
    ASSERT_EQ(quorlMsg_SetCMTimeLimit(message, std::numeric_limits<double>::infinity()), QUORL_OK);
    ASSERT_EQ(quorlMsg_GetCMTimeLimit(message, &seconds), QUORL_OK);
    EXPECT_EQ(seconds, 0);
    quorlMsg_Destroy(message);
}

// ---- sending

TEST_F(Certified, theLimitOfASentMessageIsTheOneThatItWasSentWith) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const auto limitAfterSending = [&](quorlMsg message) {
        EXPECT_EQ(quorlcmTransport_Send(sender, message), QUORL_OK);
        double seconds = -1;
        EXPECT_EQ(quorlMsg_GetCMTimeLimit(message, &seconds), QUORL_OK) << quorl_LastErrorText();
        return seconds;
    };
    quorlMsg message = newMessage("a", 1);
    EXPECT_EQ(limitAfterSending(message), 0.0);
    ASSERT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(sender, 30), QUORL_OK);
    EXPECT_EQ(limitAfterSending(message), 30.0);
    ASSERT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(sender, 0), QUORL_OK);
    EXPECT_EQ(limitAfterSending(message), 0.0) << "the default is not the message's own";
    ASSERT_EQ(quorlMsg_SetCMTimeLimit(message, 5), QUORL_OK);
    EXPECT_EQ(limitAfterSending(message), 5.0);
    quorlMsg_Destroy(message);
}

TEST_F(Certified, whatCannotBeSentIsRefused) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    EXPECT_EQ(quorlcmTransport_Send(sender, nullptr), QUORL_INVALID_MSG);
    quorlMsg without = nullptr;
    ASSERT_EQ(quorlMsg_Create(&without), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_Send(sender, without), QUORL_INVALID_SUBJECT);
    quorlMsg_Destroy(without);
    EXPECT_EQ(sendCertified(sender, "_QUORL.INFO.a.b", 1), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(sendCertified(sender, "a", 1), QUORL_OK);
    ASSERT_EQ(quorlTransport_Destroy(here), QUORL_OK);
    EXPECT_EQ(sendCertified(sender, "a", 1), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_Destroy(sender), QUORL_OK);
}

TEST_F(Certified, plainListenersAndPlainSendersTakePart) {
    struct Plain {
        int came = 0;
        quorl_status sender = QUORL_OK;
    } plain;
    Came came;
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    listen(
        queue, there, "a",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Plain*>(closure);
            const char* name = nullptr;
            to.came = numberOf(message);
            to.sender = quorlMsg_GetCMSender(message, &name);
        },
        &plain);
    listenCertified(queue, receiver, "a", &came);
    ASSERT_EQ(sendCertified(sender, "a", 7), QUORL_OK);
    ASSERT_TRUE(until(queue, [&] { return plain.came == 7 && !came.all.empty(); }));
    EXPECT_EQ(plain.sender, QUORL_NOT_FOUND);
    ASSERT_EQ(sendNumber(here, "a", 8), QUORL_OK);
    ASSERT_TRUE(until(queue, [&] { return came.all.size() >= 2; }));
    EXPECT_EQ(came.all.back().number, 8);
    EXPECT_EQ(came.all.back().sender, "");
    EXPECT_EQ(came.all.back().limit, -1);
}

// ---- listeners that were added, allowed and taken away

TEST_F(Certified, anAddedListenerGetsEverythingFromThenOn) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", "a"), QUORL_OK) << quorl_LastErrorText();
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(sendCertified(sender, "a", i), QUORL_OK);
    auto kept = review(sender)["a"];
    EXPECT_EQ(kept.messages, 3u);
    EXPECT_EQ(kept.first, 1u);
    EXPECT_EQ(kept.last, 3u);
    EXPECT_GT(kept.bytes, 0u);
    EXPECT_EQ(kept.listeners["receiver"].unconfirmed, 3u);
    EXPECT_FALSE(kept.listeners["receiver"].registered);
    Came came;
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver", .requestOld = true});
    listenCertified(queue, receiver, "a", &came);
    ASSERT_TRUE(until(queue, [&] { return came.all.size() == 3; }));
    EXPECT_EQ(came.numbers(), (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(nothingKept(sender, "a"));
}

TEST_F(Certified, whatIsKeptCanBeGivenUp) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "first", "a"), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "second", "a"), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "second", "b"), QUORL_OK);
    for (int i = 1; i <= 5; ++i) ASSERT_EQ(sendCertified(sender, "a", i), QUORL_OK);
    ASSERT_EQ(sendCertified(sender, "b", 1), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_ExpireMessages(sender, "a", 2), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(review(sender)["a"].messages, 3u);
    EXPECT_EQ(review(sender)["a"].first, 3u);
    ASSERT_EQ(quorlcmTransport_RemoveListener(sender, "first", "a"), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(review(sender)["a"].messages, 3u) << "the other one still wants them";
    ASSERT_EQ(quorlcmTransport_ExpireMessages(sender, "a", UINT64_MAX), QUORL_OK);
    EXPECT_EQ(review(sender)["a"].messages, 0u);
    ASSERT_EQ(quorlcmTransport_RemoveSendState(sender, "b"), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(review(sender).count("b"), 0u);
    for (const char* bad : {static_cast<const char*>(nullptr), "", "a..b"}) {
        EXPECT_EQ(quorlcmTransport_ExpireMessages(sender, bad, 1), QUORL_INVALID_SUBJECT) << (bad ? bad : "null");
        EXPECT_EQ(quorlcmTransport_RemoveSendState(sender, bad), QUORL_INVALID_SUBJECT) << (bad ? bad : "null");
    }
}

TEST_F(Certified, aDisallowedListenerIsNotRegistered) {
    Came came;
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    ASSERT_EQ(quorlcmTransport_DisallowListener(sender, "receiver"), QUORL_OK) << quorl_LastErrorText();
    listenCertified(queue, receiver, "a", &came);
    // It hears what is sent, as anybody does; nothing is kept for it.
    ASSERT_EQ(sendCertified(sender, "a", 1), QUORL_OK);
    ASSERT_TRUE(until(queue, [&] { return !came.all.empty(); }));
    EXPECT_EQ(review(sender)["a"].listeners.count("receiver"), 0u);
    ASSERT_EQ(quorlcmTransport_AllowListener(sender, "receiver"), QUORL_OK) << quorl_LastErrorText();
    const quorlcmTransport again = newCertified(there, {.name = "another"});
    listenCertified(queue, again, "a", &came);
    ASSERT_EQ(sendCertified(sender, "a", 2), QUORL_OK);
    EXPECT_TRUE(registered(sender, "a", "another"));
}

TEST_F(Certified, messagesExpire) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "never", "a"), QUORL_OK);
    ASSERT_EQ(sendCertified(sender, "a", 1, 0.02), QUORL_OK);
    EXPECT_TRUE(nothingKept(sender, "a"));
    ASSERT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(sender, 0.02), QUORL_OK);
    ASSERT_EQ(sendCertified(sender, "a", 2), QUORL_OK);
    EXPECT_TRUE(nothingKept(sender, "a"));
    ASSERT_EQ(sendCertified(sender, "a", 3, 0), QUORL_OK) << "its own limit is never";
    ASSERT_EQ(sendCertified(sender, "a", 4), QUORL_OK);
    EXPECT_TRUE(until(queue, [&] { return review(sender)["a"].messages == 1; }));
}

// ---- confirming

TEST_F(Certified, explicitListenersConfirmThemselves) {
    Came came;
    came.keep = true;
    Came others;
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    const quorlcmEvent listener = listenCertified(queue, receiver, "a", &came);
    const quorlcmEvent other = listenCertified(queue, receiver, "b", &others);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_EQ(_quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(listener), QUORL_OK);
    ASSERT_EQ(sendCertified(sender, "a", 0), QUORL_OK);
    ASSERT_TRUE(registered(sender, "a", "receiver"));
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(sendCertified(sender, "a", i), QUORL_OK);
    ASSERT_TRUE(
        until(queue, [&] { return came.all.size() >= 4 || (came.all.size() == 3 && came.all[0].number == 1); }));
    const auto unconfirmed = review(sender)["a"].listeners["receiver"].unconfirmed;
    EXPECT_GE(unconfirmed, 3u);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(other, came.kept.back()), QUORL_NOT_PERMITTED) << "it confirms by itself";
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(other), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(other, came.kept.back()), QUORL_NOT_PERMITTED) << "it is not its message";
    quorlMsg plain = newMessage("a", 1);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, plain), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, nullptr), QUORL_INVALID_MSG);
    quorlMsg_Destroy(plain);
    for (quorlMsg message : came.kept) {
        const char* from = nullptr;
        if (quorlMsg_GetCMSender(message, &from) != QUORL_OK) continue;
        const quorl_status status = quorlcmEvent_ConfirmMsg(listener, message);
        EXPECT_TRUE(status == QUORL_OK || numberOf(message) == 0) << quorl_LastErrorText();
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, message), QUORL_OK) << "twice is no error";
        }
    }
    EXPECT_TRUE(nothingKept(sender, "a"));
}

TEST_F(Certified, aListenerThatGoesCancelsItsAgreementsOrDoesNot) {
    for (const bool cancel : {false, true}) {
        Came came;
        Counter completed;
        const std::string subject = cancel ? "cancelled" : "kept";
        const quorlcmTransport sender = newCertified(here, {.name = cancel ? "sender2" : "sender1"});
        const quorlcmTransport receiver = newCertified(there, {.name = cancel ? "receiver2" : "receiver1"});
        quorlcmEvent listener = 0;
        ASSERT_EQ(quorlcmEvent_CreateListener(
                      &listener, queue, [](quorlcmEvent, quorlMsg, void*) {}, receiver, subject.c_str(), &completed),
                  QUORL_OK);
        ASSERT_EQ(sendCertified(sender, subject.c_str(), 0), QUORL_OK);
        ASSERT_TRUE(registered(sender, subject.c_str(), cancel ? "receiver2" : "receiver1"));
        ASSERT_EQ(quorlcmEvent_DestroyEx(listener, cancel ? QUORL_TRUE : QUORL_FALSE,
                                         [](quorlcmEvent, void* closure) { static_cast<Counter*>(closure)->add(); }),
                  QUORL_OK);
        ASSERT_TRUE(completed.waitFor(1));
        EXPECT_EQ(quorlcmEvent_DestroyEx(listener, QUORL_FALSE, nullptr), QUORL_INVALID_EVENT);
        if (cancel) {
            EXPECT_TRUE(until(queue, [&] { return review(sender)[subject].listeners.empty(); }));
        } else {
            ASSERT_EQ(sendCertified(sender, subject.c_str(), 1), QUORL_OK);
            EXPECT_EQ(review(sender)[subject].messages, 1u);
        }
        destroyAndWait(sender);
        destroyAndWait(receiver);
    }
}

TEST_F(Certified, listenersAreChecked) {
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    quorlcmEvent listener = 0;
    EXPECT_EQ(quorlcmEvent_CreateListener(nullptr, queue, onCertified, receiver, "a", nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, nullptr, receiver, "a", nullptr), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(quorlcmEvent_CreateListener(&listener, 4711, onCertified, receiver, "a", nullptr), QUORL_INVALID_QUEUE);
    for (const char* bad : {static_cast<const char*>(nullptr), "", "a..b", "a.*b", "_INBOX.x", "_QUORL.>"})
        EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, onCertified, receiver, bad, nullptr),
                  QUORL_INVALID_SUBJECT)
            << (bad ? bad : "null");
    EXPECT_EQ(listener, 0u);
}

// ---- requests

struct Server {
    quorlcmTransport transport;
    bool certified;
    quorlTransport plain;
};
void onRequest(quorlcmEvent, quorlMsg request, void* closure) {
    auto& server = *static_cast<Server*>(closure);
    quorlMsg reply = newMessage("unused", 10 * numberOf(request));
    const quorl_status status = server.certified ? quorlcmTransport_SendReply(server.transport, reply, request)
                                                 : quorlTransport_SendReply(server.plain, reply, request);
    EXPECT_EQ(status, QUORL_OK) << quorl_LastErrorText();
    quorlMsg_Destroy(reply);
}

TEST_F(Certified, requestsAreAnswered) {
    for (const bool certified : {true, false}) {
        const std::string subject = certified ? "certified" : "plain";
        Server server{newCertified(there, {.name = certified ? "server1" : "server2"}), certified, there};
        const quorlcmTransport client = newCertified(here, {.name = certified ? "client1" : "client2"});
        quorlcmEvent listener = 0;
        ASSERT_EQ(quorlcmEvent_CreateListener(&listener, queue, onRequest, server.transport, subject.c_str(), &server),
                  QUORL_OK);
        std::atomic<bool> done{false};
        std::atomic<bool> goOn{false};
        std::atomic<int> asked{0};
        Threads threads;
        threads.start([&] {
            for (int i = 1; i <= 5; ++i) {
                quorlMsg request = newMessage(subject.c_str(), i);
                quorlMsg reply = nullptr;
                EXPECT_EQ(quorlcmTransport_SendRequest(client, request, &reply, limit), QUORL_OK)
                    << quorl_LastErrorText();
                if (reply != nullptr) {
                    EXPECT_EQ(numberOf(reply), 10 * i);
                    // The first request found nobody registered, and was a plain one.
                    const char* sender = nullptr;
                    const quorl_status status = quorlMsg_GetCMSender(reply, &sender);
                    if (i > 1 || !certified) {
                        EXPECT_EQ(status, certified ? QUORL_OK : QUORL_NOT_FOUND);
                    }
                    quorlMsg_Destroy(reply);
                }
                quorlMsg_Destroy(request);
                asked = i;
                while (i == 1 && !goOn) std::this_thread::yield();
            }
            done = true;
        });
        EXPECT_TRUE(until(queue, [&] { return asked == 1; }));
        EXPECT_TRUE(registered(client, subject.c_str(), certified ? "server1" : "server2"));
        goOn = true;
        EXPECT_TRUE(until(queue, [&] { return done.load(); }));
        threads.join();
    }
}

TEST_F(Certified, requestsEndWithTheirTimeLimitOrTheirTransport) {
    const quorlcmTransport client = newCertified(here, {.name = "client"});
    quorlMsg request = newMessage("nobody", 1);
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlcmTransport_SendRequest(client, request, nullptr, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlcmTransport_SendRequest(client, request, &reply, std::numeric_limits<double>::quiet_NaN()),
              QUORL_INVALID_ARG);
    EXPECT_EQ(quorlcmTransport_SendRequest(client, request, &reply, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlcmTransport_SendRequest(client, request, &reply, 0.01), QUORL_TIMEOUT);
    EXPECT_EQ(quorlcmTransport_SendReply(client, request, request), QUORL_INVALID_SUBJECT);
    std::atomic<pid_t> waiter{0};
    Threads threads;
    threads.start([&] {
        waiter = gettid();
        EXPECT_EQ(quorlcmTransport_SendRequest(client, request, &reply, -1), QUORL_INTR);
    });
    while (waiter == 0) std::this_thread::yield();
    ASSERT_TRUE(waitUntilAsleep(waiter));
    destroyAndWait(client);
    threads.join();
    quorlMsg_Destroy(request);
}

// ---- ledgers

class WithLedger : public Certified, public testing::WithParamInterface<bool> {};

TEST_P(WithLedger, aSenderThatComesBackSendsWhatNobodyHasConfirmed) {
    const std::string path = folder.file("sender.ledger");
    const Choice choice{.name = "sender", .ledger = path, .sync = GetParam()};
    {
        const quorlcmTransport sender = newCertified(here, choice);
        ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", "a"), QUORL_OK);
        for (int i = 1; i <= 20; ++i) ASSERT_EQ(sendCertified(sender, "a", i), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlcmTransport_SyncLedger(sender), QUORL_OK);
        destroyAndWait(sender);
    }
    const quorlcmTransport sender = newCertified(here, choice);
    EXPECT_EQ(review(sender)["a"].messages, 20u);
    Came came;
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver", .requestOld = true});
    listenCertified(queue, receiver, "a", &came);
    ASSERT_TRUE(until(queue, [&] { return came.all.size() == 20; }));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(came.all[i].number, i + 1);
    EXPECT_TRUE(nothingKept(sender, "a"));
    ASSERT_EQ(sendCertified(sender, "a", 21), QUORL_OK);
    ASSERT_TRUE(until(queue, [&] { return came.all.size() == 21; }));
    EXPECT_GE(came.all[20].sequence, 21u);
}

TEST_P(WithLedger, aListenerThatComesBackGetsNothingTwice) {
    const Choice choice{
        .name = "receiver", .requestOld = true, .ledger = folder.file("receiver.ledger"), .sync = GetParam()};
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", "a"), QUORL_OK);
    std::vector<int> all;
    for (int life = 0; life < 4; ++life) {
        Came came;
        const quorlcmTransport receiver = newCertified(there, choice);
        listenCertified(queue, receiver, "a", &came);
        for (int i = 0; i < 5; ++i) ASSERT_EQ(sendCertified(sender, "a", life * 5 + i), QUORL_OK);
        ASSERT_TRUE(until(queue, [&] { return came.all.size() == 5; }));
        destroyAndWait(receiver);
        for (const Came::One& one : came.all) all.push_back(one.number);
    }
    for (int i = 0; i < 20; ++i) EXPECT_EQ(all[i], i);
    EXPECT_EQ(all.size(), 20u);
}

INSTANTIATE_TEST_SUITE_P(Both, WithLedger, testing::Bool(),
                         [](const auto& info) { return info.param ? "power" : "process"; });

// Sends of many threads share commits; every one of them is there afterwards, in the order of its thread.
TEST_F(Certified, manyThreadsSendAtOnce) {
    constexpr int threads = 4;
    constexpr int each = 200;
    const quorlcmTransport sender = newCertified(here, {.name = "sender", .ledger = folder.file("s"), .sync = true});
    const quorlcmTransport receiver =
        newCertified(there, {.name = "receiver", .requestOld = true, .ledger = folder.file("r")});
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", "t"), QUORL_OK);
    Came came;
    listenCertified(queue, receiver, "t", &came);
    {
        Threads senders;
        for (int t = 0; t < threads; ++t) {
            senders.start([&, t] {
                for (int i = 0; i < each; ++i) EXPECT_EQ(sendCertified(sender, "t", t * each + i), QUORL_OK);
            });
        }
        ASSERT_TRUE(until(queue, [&] { return came.all.size() >= threads * each; }));
    }
    std::vector<int> next;
    for (int t = 0; t < threads; ++t) next.push_back(t * each);
    for (size_t i = 0; i < came.all.size(); ++i) {
        EXPECT_EQ(came.all[i].sequence, i + 1);
        EXPECT_EQ(came.all[i].number, next[came.all[i].number / each]++);
    }
    EXPECT_EQ(came.all.size(), size_t{threads * each});
    EXPECT_TRUE(nothingKept(sender, "t"));
}

// The completion comes when everything is done, whatever is under way.
TEST_F(Certified, endsUnderLoad) {
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    Came came;
    listenCertified(queue, receiver, "load", &came);
    for (int life = 0; life < 30; ++life) {
        const quorlcmTransport sender = newCertified(here, {.name = "sender", .ledger = folder.file("s")});
        std::atomic<int> sent{0};
        Threads senders;
        for (int t = 0; t < 2; ++t) {
            senders.start([&] {
                while (sendCertified(sender, "load", 1) == QUORL_OK) ++sent;
            });
        }
        EXPECT_TRUE(until(queue, [&] { return sent > 20; }));
        destroyAndWait(sender);
        senders.join();
    }
}

// ---- looking into a ledger, and being told

TEST_F(Certified, aReviewStopsWhenItIsToldTo) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    for (const char* subject : {"a.1", "a.2", "b.1"}) {
        ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", subject), QUORL_OK);
        ASSERT_EQ(sendCertified(sender, subject, 1), QUORL_OK);
    }
    EXPECT_EQ(review(sender).size(), 3u);
    EXPECT_EQ(review(sender, "a.*").size(), 2u);
    EXPECT_EQ(review(sender, "c").size(), 0u);
    int calls = 0;
    const auto stop = [](quorlcmTransport, const char*, quorlMsg message, void* closure) -> void* {
        ++*static_cast<int*>(closure);
        EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        return closure;
    };
    EXPECT_EQ(quorlcmTransport_ReviewLedger(sender, stop, nullptr, &calls), QUORL_OK);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(quorlcmTransport_ReviewLedger(sender, stop, "a..b", &calls), QUORL_INVALID_SUBJECT);
}

TEST_F(Certified, advisoriesTellWhatBecomesOfMessages) {
    struct Told {
        std::map<std::string, int> counts;
    } told;
    const quorlQueue advisories = newQueue();
    listen(
        advisories, here, "_QUORL.*.certified.*",
        [](quorlEvent, quorlMsg message, void* closure) {
            const char* subject = nullptr;
            EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
            ++static_cast<Told*>(closure)->counts[subject];
        },
        &told);
    Came came;
    const quorlcmTransport sender = newCertified(here, {.name = "sender"});
    const quorlcmTransport receiver = newCertified(there, {.name = "receiver"});
    listenCertified(queue, receiver, "a", &came);
    ASSERT_EQ(sendCertified(sender, "a", 0), QUORL_OK);
    ASSERT_TRUE(registered(sender, "a", "receiver"));
    ASSERT_EQ(sendCertified(sender, "a", 1), QUORL_OK);
    EXPECT_TRUE(until(queue, [&] {
        drain(advisories);
        return told.counts["_QUORL.INFO.certified.completed"] != 0;
    }));
    EXPECT_NE(told.counts["_QUORL.INFO.certified.registered"], 0);
    EXPECT_NE(told.counts["_QUORL.INFO.certified.listening"], 0);
    EXPECT_NE(told.counts["_QUORL.INFO.certified.confirmed"], 0);
}

TEST_F(Certified, ofTwoWithOneNameOneWaits) {
    std::set<std::string> told;
    const quorlQueue advisories = newQueue();
    listen(
        advisories, here, "_QUORL.*.certified.*",
        [](quorlEvent, quorlMsg message, void* closure) {
            const char* subject = nullptr;
            EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
            static_cast<std::set<std::string>*>(closure)->insert(subject);
        },
        &told);
    const quorlcmTransport first = newCertified(here, {.name = "same"});
    const quorlcmTransport second = newCertified(there, {.name = "same"});
    EXPECT_TRUE(until(queue, [&] {
        drain(advisories);
        return told.count("_QUORL.ERROR.certified.name_taken") != 0;
    }));
    const bool firstWaits = sendCertified(first, "a", 1) != QUORL_OK;
    EXPECT_EQ(sendCertified(firstWaits ? first : second, "a", 1), QUORL_NOT_PERMITTED);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("same"), std::string::npos);
    EXPECT_EQ(sendCertified(firstWaits ? second : first, "a", 1), QUORL_OK);
}

// The child of a fork touches nothing of its parent's.
TEST_F(Certified, isShutInAForkedChild) {
    const quorlcmTransport sender = newCertified(here, {.name = "sender", .ledger = folder.file("s")});
    Came came;
    const quorlcmEvent listener = listenCertified(queue, sender, "a", &came);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "receiver", "b"), QUORL_OK);
    ASSERT_EQ(sendCertified(sender, "b", 1), QUORL_OK);
    quorlMsg message = newMessage("b", 2);
    EXPECT_EQ(
        inChild([&] {
            quorlMsg reply = nullptr;
            uint32_t id = 0;
            double seconds = 0;
            const auto nothing = [](quorlcmTransport, const char*, quorlMsg, void*) -> void* { return nullptr; };
            const quorl_status statuses[] = {
                quorlcmTransport_Send(sender, message),
                quorlcmTransport_SendRequest(sender, message, &reply, -1),
                quorlcmTransport_SendReply(sender, message, message),
                quorlcmTransport_AddListener(sender, "other", "b"),
                quorlcmTransport_SyncLedger(sender),
                quorlcmTransport_ReviewLedger(sender, nothing, nullptr, nullptr),
                quorlcmTransport_Create(&id, here, "n", QUORL_FALSE, folder.file("n").c_str(), QUORL_FALSE, nullptr),
                quorlcmTransport_Destroy(sender),
                quorlcmEvent_CreateListener(&id, queue, onCertified, sender, "a", nullptr),
                quorlcmEvent_ConfirmMsg(listener, message),
                quorlcmEvent_DestroyEx(listener, QUORL_TRUE, nullptr),
                quorlMsg_SetCMTimeLimit(message, 1),
                quorlMsg_GetCMTimeLimit(message, &seconds),
            };
            int call = 0;
            for (const quorl_status status : statuses) {
                ++call;
                if (status != QUORL_NOT_PERMITTED) return call;
            }
            return fs::exists(folder.file("n")) ? 100 : 0;
        }),
        0);
    ASSERT_EQ(quorlcmTransport_Send(sender, message), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(review(sender)["b"].messages, 2u);
    quorlMsg_Destroy(message);
}

}  // namespace
}  // namespace quorltest
