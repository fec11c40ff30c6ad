// Opening, closing, parameters, and what is refused while the library is not open.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support.h"

namespace quorltest {
namespace {

// A file that goes with the test.
class File {
  public:
    explicit File(const std::string& text) {
        path_ = (std::filesystem::temp_directory_path() / "quorl-parameters.XXXXXX").string();
        const int descriptor = mkstemp(path_.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        std::ofstream(path_) << text;
    }
    ~File() { unlink(path_.c_str()); }
    const char* path() const { return path_.c_str(); }

  private:
    std::string path_;
};

quorl_status setParameter(const char* parameter) {
    return quorl_SetQRParameters(1, &parameter);
}

// Leaves no parameter behind that another test would meet.
class Environment : public testing::Test {
  protected:
    void TearDown() override {
        while (quorl_Close() == QUORL_OK) {
        }
        for (const char* parameter : {"daemon=", "service=", "network=", "queue.limit=0"})
            EXPECT_EQ(setParameter(parameter), QUORL_OK) << quorl_LastErrorText();
    }
};

TEST_F(Environment, opensNest) {
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(quorl_OpenEx(""), QUORL_OK);
    const quorlQueue queue = newQueue();
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(countOf(queue), 0u);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
}

TEST_F(Environment, theDefaultQueueAlwaysHasTheFirstId) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(_quorlObjectId_Verify(1, QUORL_OBJECT_QUEUE), QUORL_NOT_INITIALIZED);
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        EXPECT_EQ(_quorlObjectId_Verify(1, QUORL_OBJECT_QUEUE), QUORL_OK);
        EXPECT_NE(newQueue(), 1u);
        ASSERT_EQ(quorl_Close(), QUORL_OK);
    }
}

TEST_F(Environment, everythingThatNeedsItSaysWhenItIsNotOpen) {
    quorl_u32 id = 7;
    quorl_u32 number = 0;
    double seconds = 0;
    const char* text = nullptr;
    char inbox[255];
    void* record = nullptr;
    quorlQueueLimitPolicy policy;
    quorlMsg message = newMessage("a");
    quorlMsg reply = nullptr;
    const auto callback = [](quorlEvent, quorlMsg, void*) {};
    const auto vectorCallback = [](quorlMsg*, quorl_u32) {};
    EXPECT_EQ(quorlQueue_Create(&id), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_DestroyEx(1, nullptr, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_DestroyEx(2, nullptr, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_SetName(1, "x"), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_GetName(1, &text), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_GetCount(1, &number), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_TimedDispatch(1, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_SetPriority(1, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_GetPriority(1, &number), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(1, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(1, &policy, &number, &number), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueueGroup_Create(&id), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueueGroup_Destroy(2), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueueGroup_Add(2, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueueGroup_Remove(2, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(2, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_CreateListener(&id, 1, callback, 2, "a", nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&id, 1, vectorCallback, 2, "a", nullptr, nullptr),
              QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_CreateTimer(&id, 1, callback, 1, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_GetTimerInterval(2, &seconds), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(2, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlEvent_DestroyEx(2, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_Create(&id, nullptr, nullptr, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_Destroy(2), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_SetDescription(2, "x"), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_RequestReliability(2, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_SetBatchMode(2, QUORLTRANSPORT_DEFAULT_BATCH), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_SetBatchSize(2, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_CreateInbox(2, inbox, sizeof inbox), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_Send(2, message), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_Sendv(2, &message, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_SendRequest(2, message, &reply, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_SendReply(2, message, message), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(_quorlObjectId_Verify(1, 2), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(_quorlObjectId_GetEx(1, 2, &record, 0, 0), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(_quorlDispatchable_Signal(1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorl_IsIPM(), QUORL_FALSE);
    EXPECT_EQ(id, 7u);
    quorlMsg_Destroy(message);
}

TEST_F(Environment, closingDestroysWhatIsLeft) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    Numbers numbers;
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &numbers);
    quorlEvent timer = 0;
    ASSERT_EQ(quorlEvent_CreateTimer(
                  &timer, queue, [](quorlEvent, quorlMsg, void*) {}, 0.0005, nullptr),
              QUORL_OK);
    sendNumber(transport, "a", 1);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_INVALID_EVENT);
    EXPECT_TRUE(numbers.came.empty());
}

TEST_F(Environment, closingWaitsForCallbacksAndWakesDispatchers) {
    struct State {
        Counter started, finish;
        std::atomic<bool> running{false};
    } state;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = newTransport();
    listen(
        QUORL_DEFAULT_QUEUE, transport, "slow",
        [](quorlEvent, quorlMsg, void* closure) {
            auto& to = *static_cast<State*>(closure);
            to.running = true;
            to.started.add();
            EXPECT_TRUE(to.finish.waitFor(1));
            // Everything may be called here, also while the library closes.
            quorlQueue queue = 0;
            quorlQueue_Create(&queue);
            EXPECT_NE(quorl_Open(), QUORL_OK);
            EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
            to.running = false;
        },
        &state);
    sendNumber(transport, "slow", 1);
    Threads threads;
    Counter ready;
    threads.start([&] { EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), QUORL_OK); });
    ASSERT_TRUE(state.started.waitFor(1));
    pid_t sleeper = 0;
    threads.start([&] {
        sleeper = gettid();
        ready.add();
        EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), QUORL_INVALID_QUEUE);
    });
    ASSERT_TRUE(ready.waitFor(1));
    ASSERT_TRUE(waitUntilAsleep(sleeper));
    pid_t closer = 0;
    threads.start([&] {
        closer = gettid();
        ready.add();
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        EXPECT_FALSE(state.running);
    });
    ASSERT_TRUE(ready.waitFor(2));
    ASSERT_TRUE(waitUntilAsleep(closer));
    EXPECT_TRUE(state.running);
    state.finish.add();
    threads.join();
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
}

TEST_F(Environment, theLastCloseIsRefusedInsideACallback) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = newTransport();
    static int calls;
    calls = 0;
    listen(
        QUORL_DEFAULT_QUEUE, transport, "a",
        [](quorlEvent, quorlMsg, void*) {
            EXPECT_EQ(quorl_Close(), QUORL_NOT_PERMITTED);
            EXPECT_EQ(quorl_Open(), QUORL_OK);
            EXPECT_EQ(quorl_Close(), QUORL_OK);
            ++calls;
        },
        nullptr);
    sendNumber(transport, "a", 1);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
    EXPECT_EQ(calls, 1);
    // Also in a completion.
    Counter completed;
    const quorlEvent other = listen(
        QUORL_DEFAULT_QUEUE, transport, "b", [](quorlEvent, quorlMsg, void*) {}, &completed);
    EXPECT_EQ(quorlEvent_DestroyEx(other,
                                   [](quorlEvent, void* counter) {
                                       EXPECT_EQ(quorl_Close(), QUORL_NOT_PERMITTED);
                                       static_cast<Counter*>(counter)->add();
                                   }),
              QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Environment, aReferenceDoesNotHoldTheCloseUpAndStaysReadable) {
    int closure = 0;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlEvent listener = listen(
        QUORL_DEFAULT_QUEUE, newTransport(), "a", [](quorlEvent, quorlMsg, void*) {}, &closure);
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 1, 0), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(static_cast<_quorlRecordHead*>(record)->arg, &closure);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    EXPECT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_Verify(listener, QUORL_OBJECT_EVENT), QUORL_NOT_FOUND);
}

// The default queue of an earlier opening may go while the one of this opening, which has the same id, is in use.
TEST_F(Environment, aReferenceFromAnEarlierOpeningLeavesTheDefaultQueueAlone) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlEvent listener = listen(
        QUORL_DEFAULT_QUEUE, newTransport(), "a", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 1, 0), QUORL_OK);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    ASSERT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    // What was given back before these was looked at when they are complete.
    Counter completed;
    for (int i = 1; i <= 2; ++i) {
        ASSERT_EQ(quorlQueue_DestroyEx(
                      newQueue(), [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, &completed),
                  QUORL_OK);
        ASSERT_TRUE(completed.waitFor(i));
    }
    EXPECT_EQ(countOf(QUORL_DEFAULT_QUEUE), 0u);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Environment, messagesOutliveIt) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    quorlMsg message = newMessage("a", 4);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(numberOf(message), 4);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
}

TEST_F(Environment, threadsThatOpenAndCloseAtOnce) {
    Threads threads;
    for (int i = 0; i < 4; ++i) {
        threads.start([] {
            for (int round = 0; round < 50; ++round) {
                ASSERT_EQ(quorl_Open(), QUORL_OK);
                Numbers numbers;
                const quorlTransport transport = newTransport();
                const quorlQueue queue = newQueue();
                listen(queue, transport, "a", onNumber, &numbers);
                sendNumber(transport, "a", round);
                EXPECT_GE(drain(queue), 1);
                ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
                ASSERT_EQ(quorl_Close(), QUORL_OK);
            }
        });
    }
    threads.join();
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
}

// ---- parameters

TEST_F(Environment, parametersAreSetBeforeOpening) {
    EXPECT_EQ(quorl_SetQRParameters(0, nullptr), QUORL_OK);
    EXPECT_EQ(quorl_SetQRParameters(1, nullptr), QUORL_INVALID_ARG);
    const char* withNull[] = {"service=7", nullptr};
    EXPECT_EQ(quorl_SetQRParameters(2, withNull), QUORL_INVALID_ARG);
    for (const char* bad : {"", "=", "=x", "service", "unknown=1", "queue.limit=-1", "queue.limit=x",
                            "queue.limit=", "queue.limit=4294967296", "connect.timeout=-1", "connect.timeout=nan",
                            "connect.timeout=inf", "reconnect.buffer=1k", "service=a b", "dispatch.spin=1001"})
        EXPECT_EQ(setParameter(bad), QUORL_INVALID_ARG) << bad;
    for (const char* good : {"queue.limit=7", " queue.limit = 0 ", "connect.timeout=2.5", "reconnect.buffer=1000",
                             "service=", "network=lab", "network=", "dispatch.spin=20"})
        EXPECT_EQ(setParameter(good), QUORL_OK) << good << ": " << quorl_LastErrorText();
    EXPECT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(setParameter("queue.limit=7"), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorl_SetQRParameters(0, nullptr), QUORL_OK);
}

TEST_F(Environment, parametersAreSetAllOrNone) {
    const char* mixed[] = {"queue.limit=3", "queue.limit=x"};
    EXPECT_EQ(quorl_SetQRParameters(2, mixed), QUORL_INVALID_ARG);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    quorlQueueLimitPolicy policy;
    quorl_u32 most, amount;
    EXPECT_EQ(quorlQueue_GetLimitPolicy(newQueue(), &policy, &most, &amount), QUORL_OK);
    EXPECT_EQ(most, 0u);
}

TEST_F(Environment, theQueueLimitHoldsForNewQueues) {
    ASSERT_EQ(setParameter("queue.limit=3"), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    for (const quorlQueue queue : {QUORL_DEFAULT_QUEUE, newQueue()}) {
        quorlQueueLimitPolicy policy;
        quorl_u32 most, amount;
        EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, &most, &amount), QUORL_OK);
        EXPECT_EQ(policy, QUORLQUEUE_DISCARD_FIRST);
        EXPECT_EQ(most, 3u);
        EXPECT_EQ(amount, 1u);
    }
}

TEST_F(Environment, serviceAndNetworkHaveDefaults) {
    ASSERT_EQ(setParameter("service=7500"), QUORL_OK);
    ASSERT_EQ(setParameter("network=lab"), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport byDefault = newTransport();
    const quorlTransport named = newTransport("7500", "lab");
    const quorlTransport other = newTransport("", "");
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, named, "a", onNumber, &numbers);
    sendNumber(byDefault, "a", 1);
    sendNumber(other, "a", 2);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, std::vector{1});
}

TEST_F(Environment, aDefaultDaemonIsNotInThisProcess) {
    EXPECT_EQ(quorl_IsIPM(), QUORL_FALSE);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(quorl_IsIPM(), QUORL_TRUE);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    ASSERT_EQ(setParameter("daemon=127.0.0.1:1"), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(quorl_IsIPM(), QUORL_FALSE);
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, nullptr), QUORL_DAEMON_NOT_FOUND);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("127.0.0.1:1"), std::string::npos);
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, ""), QUORL_OK);
}

TEST_F(Environment, filesGiveParameters) {
    const File file("# what holds here\n\n  queue.limit = 9   # events\nservice=7500\n");
    ASSERT_EQ(quorl_OpenEx(file.path()), QUORL_OK) << quorl_LastErrorText();
    quorlQueueLimitPolicy policy;
    quorl_u32 most, amount;
    EXPECT_EQ(quorlQueue_GetLimitPolicy(newQueue(), &policy, &most, &amount), QUORL_OK);
    EXPECT_EQ(most, 9u);
    // The same once more agrees; another does not.
    EXPECT_EQ(quorl_OpenEx(file.path()), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    const File other("queue.limit=10\n");
    EXPECT_EQ(quorl_OpenEx(other.path()), QUORL_ARG_CONFLICT);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
    // What a file gave ends with the library.
    EXPECT_EQ(quorl_OpenEx(other.path()), QUORL_OK);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(newQueue(), &policy, &most, &amount), QUORL_OK);
    EXPECT_EQ(most, 10u);
}

TEST_F(Environment, filesDoNotContradictWhatWasSet) {
    ASSERT_EQ(setParameter("queue.limit=9"), QUORL_OK);
    const File other("queue.limit=10\n");
    EXPECT_EQ(quorl_OpenEx(other.path()), QUORL_ARG_CONFLICT);
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
    const File same("queue.limit=9");
    EXPECT_EQ(quorl_OpenEx(same.path()), QUORL_OK);
}

TEST_F(Environment, errorsInFilesNameTheLine) {
    EXPECT_EQ(quorl_OpenEx(nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorl_OpenEx("/nonexistent/quorl.conf"), QUORL_FILE_NOT_FOUND);
    // What is no regular file is refused, and not waited for.
    EXPECT_EQ(quorl_OpenEx("/"), QUORL_INVALID_FILE);
    EXPECT_STREQ(quorl_LastErrorText(), "/: a directory; give a regular file");
    EXPECT_EQ(quorl_OpenEx("/dev/zero"), QUORL_INVALID_FILE);
    char folder[] = "/tmp/quorl-pipe.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string pipe = std::string(folder) + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(quorl_OpenEx(pipe.c_str()), QUORL_INVALID_FILE);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("give a regular file"), std::string::npos);
    unlink(pipe.c_str());
    rmdir(folder);
    std::string much;
    while (much.size() <= 1 << 20) much += "# as large as no file of parameters is\n";
    const File large(much.c_str());
    EXPECT_EQ(quorl_OpenEx(large.path()), QUORL_INVALID_FILE);
    for (const char* bad : {"rubbish", "unknown=1", "queue.limit=x", "=5"}) {
        const File file("# first\nqueue.limit=1\n" + std::string(bad) + "\nqueue.limit=2\n");
        EXPECT_EQ(quorl_OpenEx(file.path()), QUORL_INVALID_FILE) << bad;
        EXPECT_NE(std::string(quorl_LastErrorText()).find("line 3"), std::string::npos) << quorl_LastErrorText();
        EXPECT_NE(std::string(quorl_LastErrorText()).find(file.path()), std::string::npos);
    }
    const File longLine("#" + std::string(10000, 'x') + "\n");
    EXPECT_EQ(quorl_OpenEx(longLine.path()), QUORL_INVALID_FILE);
    EXPECT_EQ(quorl_Close(), QUORL_NOT_INITIALIZED);
}

TEST_F(Environment, aDaemonsAddressIsCheckedWhenItIsSet) {
    for (const char* bad :
         {"a b", "http://a", "embedded://a", "a:0", "nats://", "[::1", "a,", "nats://user:secret@a"}) {
        EXPECT_EQ(setParameter(("daemon=" + std::string(bad)).c_str()), QUORL_INVALID_ARG) << bad;
        const std::string words = quorl_LastErrorText();
        EXPECT_NE(words.find("parameter daemon: "), std::string::npos) << words;
        EXPECT_EQ(words.find("secret"), std::string::npos) << words;
        // The words of whoever reads the address of a transport.
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        quorlTransport transport = 0;
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, bad), QUORL_DAEMON_NOT_FOUND);
        EXPECT_EQ(words, std::string("parameter daemon: ") + quorl_LastErrorText());
        EXPECT_EQ(quorl_IsIPM(), QUORL_TRUE) << "nothing was set";
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        const File file("daemon=" + std::string(bad));
        EXPECT_EQ(quorl_OpenEx(file.path()), QUORL_INVALID_FILE) << bad;
        EXPECT_NE(std::string(quorl_LastErrorText()).find("line 1: "), std::string::npos) << quorl_LastErrorText();
    }
    EXPECT_EQ(setParameter("daemon=tls://a,[::1]:4223"), QUORL_OK) << quorl_LastErrorText();
}

TEST_F(Environment, hasAVersionAndTexts) {
    int major = 0, minor = 0, patch = 0;
    char more = 0;
    EXPECT_EQ(sscanf(quorl_Version(), "%d.%d.%d%c", &major, &minor, &patch, &more), 3);
    quorl_DisableQRDMReadyCheck();
    EXPECT_EQ(quorlQueue_TimedDispatch(1, 0), QUORL_NOT_INITIALIZED);
    EXPECT_STRNE(quorl_LastErrorText(), "");
    std::thread([] { EXPECT_STREQ(quorl_LastErrorText(), ""); }).join();
}

// ---- transports' settings

class TransportSettings : public Open {};

TEST_F(TransportSettings, areChecked) {
    const quorlTransport transport = newTransport();
    quorlTransport other = 0;
    const std::string longest(63, 's');
    EXPECT_EQ(quorlTransport_Create(&other, longest.c_str(), longest.c_str(), nullptr), QUORL_OK);
    EXPECT_EQ(quorlTransport_Create(nullptr, nullptr, nullptr, nullptr), QUORL_INVALID_ARG);
    const std::string tooLong = longest + "s";
    for (const char* bad : {"a b", "\t", "caf\xc3\xa9", tooLong.c_str()}) {
        EXPECT_EQ(quorlTransport_Create(&other, bad, nullptr, nullptr), QUORL_SERVICE_NOT_FOUND);
        EXPECT_EQ(quorlTransport_Create(&other, nullptr, bad, nullptr), QUORL_NETWORK_NOT_FOUND);
    }
    // A daemon's address in the place of a name would make a bus that nobody else is on.
    for (const char* address : {"nats://127.0.0.1:4222", "tls://u:secret@h", "://"}) {
        EXPECT_EQ(quorlTransport_Create(&other, address, nullptr, nullptr), QUORL_SERVICE_NOT_FOUND);
        EXPECT_NE(strstr(quorl_LastErrorText(), "parameter for the daemon"), nullptr) << quorl_LastErrorText();
        EXPECT_EQ(strstr(quorl_LastErrorText(), "secret"), nullptr) << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_Create(&other, nullptr, address, ""), QUORL_NETWORK_NOT_FOUND);
        EXPECT_NE(strstr(quorl_LastErrorText(), "parameter for the daemon"), nullptr) << quorl_LastErrorText();
    }
    EXPECT_EQ(quorlTransport_Create(&other, nullptr, nullptr, "nats://127.0.0.1:1"), QUORL_DAEMON_NOT_FOUND);
    const std::string text(255, 'd');
    EXPECT_EQ(quorlTransport_SetDescription(transport, text.c_str()), QUORL_OK);
    EXPECT_EQ(quorlTransport_SetDescription(transport, (text + "d").c_str()), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_SetDescription(transport, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_SetDescription(999, "x"), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_RequestReliability(transport, 0), QUORL_OK);
    EXPECT_EQ(quorlTransport_RequestReliability(transport, 60.5), QUORL_OK);
    for (double bad : {-1.0, static_cast<double>(INFINITY), static_cast<double>(NAN)})
        EXPECT_EQ(quorlTransport_RequestReliability(transport, bad), QUORL_INVALID_TIME_INTERVAL);
    EXPECT_EQ(quorlTransport_RequestReliability(999, 1), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_SetBatchMode(transport, QUORLTRANSPORT_TIMER_BATCH), QUORL_OK);
    EXPECT_EQ(quorlTransport_SetBatchMode(transport, static_cast<quorlTransportBatchMode>(2)), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_SetBatchMode(999, QUORLTRANSPORT_TIMER_BATCH), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_SetBatchSize(transport, 0), QUORL_OK);
    EXPECT_EQ(quorlTransport_SetBatchSize(999, 0), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_Destroy(999), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_Send(999, nullptr), QUORL_INVALID_TRANSPORT);
}

}  // namespace
}  // namespace quorltest
