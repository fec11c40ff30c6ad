// Inboxes, requests and replies.
#include <unistd.h>

#include <cmath>
#include <set>

#include "support.h"

namespace quorltest {
namespace {

class Request : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
    }

    struct Responder {
        quorlTransport transport;
        std::string seenReplySubject;
    };
    // Replies with the number asked for plus 100.
    static void onRequest(quorlEvent, quorlMsg request, void* closure) {
        auto& to = *static_cast<Responder*>(closure);
        const char* subject = nullptr;
        EXPECT_EQ(quorlMsg_GetReplySubject(request, &subject), QUORL_OK);
        to.seenReplySubject = subject;
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlMsg_Create(&reply), QUORL_OK);
        EXPECT_EQ(quorlMsg_AddI32Ex(reply, "n", numberOf(request) + 100, 0), QUORL_OK);
        EXPECT_EQ(quorlTransport_SendReply(to.transport, reply, request), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    }

    // Dispatches the queue until it is destroyed.
    void dispatchInBackground() {
        threads.start([this] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
    }
    void TearDown() override {
        quorlQueue_DestroyEx(queue, nullptr, nullptr);
        threads.join();
        Open::TearDown();
    }

    quorlTransport transport = 0;
    quorlQueue queue = 0;
    Threads threads;
};

TEST_F(Request, getsItsReply) {
    Responder responder{newTransport(), ""};
    listen(queue, responder.transport, "ask", onRequest, &responder);
    dispatchInBackground();
    quorlMsg request = newMessage("ask");
    std::set<std::string> inboxes;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(quorlMsg_UpdateI32Ex(request, "n", i, 0), QUORL_OK);
        quorlMsg reply = nullptr;
        ASSERT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(numberOf(reply), i + 100);
        EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
        const char* subject = nullptr;
        EXPECT_EQ(quorlMsg_GetReplySubject(request, &subject), QUORL_OK);
        EXPECT_EQ(subject, responder.seenReplySubject);
        EXPECT_TRUE(inboxes.insert(subject).second) << subject;
    }
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
}

TEST_F(Request, manyAtOnceGetTheirOwnReplies) {
    Responder responder{newTransport(), ""};
    listen(queue, responder.transport, "ask", onRequest, &responder);
    dispatchInBackground();
    Threads askers;
    for (int asker = 0; asker < 6; ++asker) {
        askers.start([&, asker] {
            for (int i = 0; i < 300; ++i) {
                quorlMsg request = newMessage("ask", asker * 1000 + i);
                quorlMsg reply = nullptr;
                ASSERT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK);
                ASSERT_EQ(numberOf(reply), asker * 1000 + i + 100);
                quorlMsg_Destroy(reply);
                quorlMsg_Destroy(request);
            }
        });
    }
    askers.join();
}

TEST_F(Request, worksInsideACallbackWithoutDispatching) {
    Responder responder{newTransport(), ""};
    const quorlQueue other = newQueue();
    listen(other, responder.transport, "ask", onRequest, &responder);
    threads.start([=] {
        while (quorlQueue_TimedDispatch(other, -1) == QUORL_OK) {
        }
    });
    struct State {
        quorlTransport transport;
        int answer = 0;
    } state{transport};
    listen(
        queue, transport, "go",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<State*>(closure);
            quorlMsg request = newMessage("ask", numberOf(message));
            quorlMsg reply = nullptr;
            ASSERT_EQ(quorlTransport_SendRequest(to.transport, request, &reply, limit), QUORL_OK);
            to.answer = numberOf(reply);
            quorlMsg_Destroy(reply);
            quorlMsg_Destroy(request);
        },
        &state);
    sendNumber(transport, "go", 1);
    sendNumber(transport, "go", 2);
    settle();
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(state.answer, 101);
    EXPECT_EQ(countOf(queue), 1u);
    EXPECT_EQ(quorlQueue_DestroyEx(other, nullptr, nullptr), QUORL_OK);
}

TEST_F(Request, takesTheFirstReplyOnly) {
    // Outlives the test's body: the callback goes on after the first reply has come.
    static quorlTransport responder;
    responder = newTransport();
    listen(
        queue, responder, "ask",
        [](quorlEvent, quorlMsg request, void* closure) {
            for (int i = 1; i <= 3; ++i) {
                quorlMsg reply = newMessage("ignored", i);
                EXPECT_EQ(quorlTransport_SendReply(*static_cast<const quorlTransport*>(closure), reply, request),
                          QUORL_OK);
                quorlMsg_Destroy(reply);
            }
        },
        &responder);
    dispatchInBackground();
    quorlMsg request = newMessage("ask");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK);
    EXPECT_EQ(numberOf(reply), 1);
    quorlMsg_Destroy(reply);
    quorlMsg_Destroy(request);
}

TEST_F(Request, timesOut) {
    quorlMsg request = newMessage("nobody");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, 0.01), QUORL_TIMEOUT);
    EXPECT_EQ(reply, nullptr);
    quorlMsg_Destroy(request);
}

TEST_F(Request, isInterruptedWhenItsTransportCloses) {
    Counter ready;
    pid_t thread = 0;
    threads.start([&] {
        thread = gettid();
        quorlMsg request = newMessage("nobody");
        quorlMsg reply = nullptr;
        ready.add();
        EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, -1), QUORL_INTR);
        quorlMsg_Destroy(request);
    });
    ASSERT_TRUE(ready.waitFor(1));
    ASSERT_TRUE(waitUntilAsleep(thread));
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    threads.join();
}

TEST_F(Request, isInterruptedWhenTheLibraryCloses) {
    Counter ready;
    pid_t thread = 0;
    threads.start([&] {
        thread = gettid();
        quorlMsg request = newMessage("nobody");
        quorlMsg reply = nullptr;
        ready.add();
        EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, -1), QUORL_INTR);
        quorlMsg_Destroy(request);
    });
    ASSERT_TRUE(ready.waitFor(1));
    ASSERT_TRUE(waitUntilAsleep(thread));
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    threads.join();
    EXPECT_EQ(quorl_Open(), QUORL_OK);
}

TEST_F(Request, argumentsAreChecked) {
    quorlMsg request = nullptr;
    quorlMsg reply = nullptr;
    ASSERT_EQ(quorlMsg_Create(&request), QUORL_OK);
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, 0), QUORL_INVALID_SUBJECT);
    ASSERT_EQ(quorlMsg_SetSendSubject(request, "a"), QUORL_OK);
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, nullptr, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, std::nan("")), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_SendRequest(999, request, &reply, 0), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_SendRequest(transport, nullptr, &reply, 0), QUORL_INVALID_MSG);
    quorlMsg other = newMessage("b");
    EXPECT_EQ(quorlTransport_SendReply(transport, other, other), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(quorlTransport_SendReply(transport, nullptr, other), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlTransport_SendReply(transport, other, nullptr), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlTransport_SendReply(999, other, other), QUORL_INVALID_TRANSPORT);
    quorlMsg_Destroy(other);
    quorlMsg_Destroy(request);
}

TEST_F(Request, anInboxIsItsTransportsAlone) {
    const quorlTransport other = newTransport();
    char inbox[255];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    EXPECT_EQ(std::string(inbox).substr(0, 7), "_INBOX.");
    quorlEvent event = 0;
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, onNumber, other, inbox, nullptr), QUORL_INVALID_SUBJECT);
    Numbers numbers;
    const quorlEvent listener = listen(queue, transport, inbox, onNumber, &numbers);
    listen(queue, transport, inbox, onNumber, &numbers);
    EXPECT_EQ(sendNumber(other, inbox, 1), QUORL_OK);
    EXPECT_EQ(drain(queue), 2);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(sendNumber(other, inbox, 2), QUORL_OK);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(numbers.came, (std::vector{1, 1, 2}));
    // One that was never made.
    std::string next(inbox);
    next.back() = '9';
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, onNumber, transport, next.c_str(), nullptr),
              QUORL_INVALID_SUBJECT);
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, onNumber, transport, (next + ".x").c_str(), nullptr),
              QUORL_INVALID_SUBJECT);
}

TEST_F(Request, anInboxMayBeHeardOneElementDeeper) {
    const quorlTransport other = newTransport();
    char inbox[255];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    const std::string below = std::string(inbox) + ".";
    Numbers numbers;
    const quorlEvent listener = listen(queue, transport, (below + "*").c_str(), onNumber, &numbers);
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(sendNumber(other, (below + std::to_string(i)).c_str(), i), QUORL_OK);
    EXPECT_EQ(sendNumber(other, inbox, 4), QUORL_OK);
    EXPECT_EQ(sendNumber(other, (below + "5.5").c_str(), 5), QUORL_OK);
    EXPECT_EQ(drain(queue), 3);
    EXPECT_EQ(numbers.came, (std::vector{1, 2, 3}));
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(sendNumber(other, (below + "6").c_str(), 6), QUORL_OK);
    EXPECT_EQ(drain(queue), 0);
    quorlEvent event = 0;
    const std::string prefix = std::string(inbox).substr(0, std::string(inbox).rfind('.') + 1);
    for (const std::string& pattern : {below + ">", below + "1", below + "*.*", prefix + "*", prefix + ">",
                                       prefix + ".*", prefix + "*.*", prefix + "999.*"})
        EXPECT_EQ(quorlEvent_CreateListener(&event, queue, onNumber, transport, pattern.c_str(), nullptr),
                  QUORL_INVALID_SUBJECT)
            << pattern;
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, onNumber, other, (below + "*").c_str(), nullptr),
              QUORL_INVALID_SUBJECT);
}

TEST_F(Request, inboxesFitTheirBufferOrAreRefused) {
    char inbox[255] = "untouched";
    EXPECT_EQ(quorlTransport_CreateInbox(transport, inbox, 10), QUORL_INSUFFICIENT_BUFFER);
    EXPECT_EQ(quorlTransport_CreateInbox(transport, inbox, 0), QUORL_INSUFFICIENT_BUFFER);
    EXPECT_STREQ(inbox, "untouched");
    EXPECT_EQ(quorlTransport_CreateInbox(transport, nullptr, 255), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_CreateInbox(999, inbox, 255), QUORL_INVALID_TRANSPORT);
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, 255), QUORL_OK);
    const auto length = static_cast<quorl_u32>(strlen(inbox));
    EXPECT_EQ(quorlTransport_CreateInbox(transport, inbox, length), QUORL_INSUFFICIENT_BUFFER);
    EXPECT_EQ(quorlTransport_CreateInbox(transport, inbox, length + 1), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
