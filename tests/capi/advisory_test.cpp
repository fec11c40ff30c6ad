// Advisories and the questions that the library answers itself.
#include <unistd.h>

#include <string>

#include "support.h"

namespace quorltest {
namespace {

// The subjects that came, in the order of their callbacks. Closure of onSubject.
struct Subjects {
    std::vector<std::string> came;
};
void onSubject(quorlEvent, quorlMsg message, void* closure) {
    const char* subject = nullptr;
    EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
    static_cast<Subjects*>(closure)->came.emplace_back(subject);
}

class Advisory : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        queue = newQueue();
    }
    quorlQueue queue = 0;
};

// The reply to a question, the caller's to destroy.
quorlMsg ask(quorlTransport transport, const char* subject) {
    quorlMsg request = newMessage(subject);
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    return reply;
}

std::string textOf(quorlMsg message, const char* name) {
    const char* text = nullptr;
    EXPECT_EQ(quorlMsg_GetStringEx(message, name, &text, 0), QUORL_OK) << quorl_LastErrorText();
    return text == nullptr ? "" : text;
}

TEST_F(Advisory, reachesEachMatchingListenerOnceOnAnyTransport) {
    const quorlTransport plain = newTransport();
    const quorlTransport other = newTransport("service.b", "network.b");
    Subjects all;
    Subjects warnings;
    Subjects oneByOne;
    Subjects wide;
    Subjects ordinary;
    Subjects errors;
    listen(queue, plain, "_QUORL.>", onSubject, &all);
    listen(queue, other, "_QUORL.WARN.>", onSubject, &warnings);
    listen(queue, other, "_QUORL.WARN.plant.hot", onSubject, &oneByOne);
    listen(queue, plain, "_QUORL.*.plant.*", onSubject, &wide);
    listen(queue, plain, ">", onSubject, &ordinary);
    listen(queue, plain, "_QUORL.ERROR.>", onSubject, &errors);
    EXPECT_EQ(sendNumber(plain, "_QUORL.WARN.plant.hot", 1), QUORL_OK);
    drain(queue);
    const std::vector<std::string> once{"_QUORL.WARN.plant.hot"};
    EXPECT_EQ(all.came, once);
    EXPECT_EQ(warnings.came, once);
    EXPECT_EQ(oneByOne.came, once);
    EXPECT_EQ(wide.came, once);
    EXPECT_TRUE(ordinary.came.empty());
    EXPECT_TRUE(errors.came.empty());
}

TEST_F(Advisory, otherSystemSubjectsStayOnTheirBus) {
    const quorlTransport plain = newTransport();
    const quorlTransport other = newTransport("service.b");
    Subjects near;
    Subjects far;
    Subjects wide;
    listen(queue, plain, "_QUORL.PROTOCOL.x", onSubject, &near);
    listen(queue, other, "_QUORL.PROTOCOL.x", onSubject, &far);
    listen(queue, plain, "_QUORL.>", onSubject, &wide);
    EXPECT_EQ(sendNumber(plain, "_QUORL.PROTOCOL.x", 1), QUORL_OK);
    drain(queue);
    EXPECT_EQ(near.came.size(), 1u);
    EXPECT_TRUE(wide.came.empty()) << "a wildcard stands for advisories alone";
    EXPECT_TRUE(far.came.empty());
}

TEST_F(Advisory, endsWithItsListenerAndItsTransport) {
    const quorlTransport plain = newTransport();
    const quorlTransport other = newTransport("service.b");
    Subjects first;
    Subjects second;
    const quorlEvent listener = listen(queue, plain, "_QUORL.INFO.a.b", onSubject, &first);
    listen(queue, other, "_QUORL.INFO.>", onSubject, &second);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(sendNumber(plain, "_QUORL.INFO.a.b", 1), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(other), QUORL_OK);
    EXPECT_EQ(sendNumber(plain, "_QUORL.INFO.a.b", 2), QUORL_OK);
    drain(queue);
    EXPECT_TRUE(first.came.empty());
    EXPECT_EQ(second.came.size(), 1u);
}

TEST_F(Advisory, cannotBeSentToAPattern) {
    const quorlTransport transport = newTransport();
    Subjects all;
    for (int listened = 0; listened < 2; ++listened) {
        EXPECT_EQ(sendNumber(transport, "_QUORL.WARN.>", 1), QUORL_INVALID_SUBJECT);
        EXPECT_EQ(sendNumber(transport, "_QUORL.WARN.*.x", 1), QUORL_INVALID_SUBJECT);
        listen(queue, transport, "_QUORL.>", onSubject, &all);
    }
    EXPECT_EQ(drain(queue), 0);
}

TEST_F(Advisory, lastErrorIsTheAskingThreads) {
    const quorlTransport transport = newTransport();
    EXPECT_EQ(quorlQueue_TimedDispatch(4711, 0), QUORL_INVALID_QUEUE);
    const std::string text = quorl_LastErrorText();
    ASSERT_NE(text, "");
    std::thread([&] {
        quorlMsg reply = ask(transport, "_QUORL.LASTERROR");
        EXPECT_EQ(textOf(reply, "text"), "");
        quorlMsg_Destroy(reply);
    }).join();
    for (int i = 0; i < 2; ++i) {
        quorlMsg reply = ask(transport, "_QUORL.LASTERROR");
        EXPECT_EQ(textOf(reply, "text"), text);
        EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
        EXPECT_EQ(quorl_LastErrorText(), text);
    }
}

// As a language binding does it: an inbox of its own, a listener on it, and a dispatch.
TEST_F(Advisory, questionsAreAnsweredToAnInbox) {
    const quorlTransport transport = newTransport("service.c");
    EXPECT_EQ(quorlQueue_TimedDispatch(4711, 0), QUORL_INVALID_QUEUE);
    const std::string text = quorl_LastErrorText();
    char inbox[QUORL_SUBJECT_MAX + 1];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    std::vector<std::string> texts;
    listen(
        queue, transport, inbox,
        [](quorlEvent, quorlMsg message, void* closure) {
            static_cast<std::vector<std::string>*>(closure)->push_back(textOf(message, "text"));
        },
        &texts);
    quorlMsg request = newMessage("_QUORL.LASTERROR");
    EXPECT_EQ(quorlMsg_SetReplySubject(request, inbox), QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport, request), QUORL_OK);
    EXPECT_EQ(quorlTransport_Sendv(transport, &request, 1), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    EXPECT_EQ(drain(queue), 2);
    EXPECT_EQ(texts, (std::vector<std::string>{text, text}));
}

TEST_F(Advisory, aQuestionWithoutReplySubjectIsNotAnswered) {
    const quorlTransport transport = newTransport();
    Subjects all;
    listen(queue, transport, "_QUORL.INFO.>", onSubject, &all);
    EXPECT_EQ(sendNumber(transport, "_QUORL.STATS", 0), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, "_QUORL.LASTERROR", 0), QUORL_OK);
    EXPECT_EQ(drain(queue), 0);
}

quorl_u64 wholeOf(quorlMsg message, const char* name) {
    quorl_u64 value = UINT64_MAX;
    EXPECT_EQ(quorlMsg_GetU64Ex(message, name, &value, 0), QUORL_OK) << name << ": " << quorl_LastErrorText();
    return value;
}

TEST_F(Advisory, statisticsCountTrafficAndLag) {
    const quorlTransport transport = newTransport();
    Numbers numbers;
    for (int i = 0; i < 3; ++i) listen(queue, transport, "a", onNumber, &numbers);
    quorlMsg before = ask(transport, "_QUORL.STATS");
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(sendNumber(transport, "a", i), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, "*", 0), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(drain(queue), 3000);
    quorlMsg after = ask(transport, "_QUORL.STATS");
    EXPECT_EQ(wholeOf(after, "messages_out") - wholeOf(before, "messages_out"), 1000u);
    EXPECT_EQ(wholeOf(after, "messages_in") - wholeOf(before, "messages_in"), 3000u);
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    quorlMsg one = newMessage("a", 1);
    EXPECT_EQ(quorlMsg_GetAsBytes(one, &bytes), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetByteSize(one, &size), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(one), QUORL_OK);
    EXPECT_EQ(wholeOf(after, "bytes_out") - wholeOf(before, "bytes_out"), 1000u * size);
    EXPECT_EQ(wholeOf(after, "bytes_in") - wholeOf(before, "bytes_in"), 3000u * size);
    quorlMsg lag = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgEx(after, "lag", &lag, 0), QUORL_OK);
    EXPECT_GE(wholeOf(lag, "samples"), 1u);
    double last = 0;
    for (const char* name : {"p50", "p90", "p99", "p999", "max"}) {
        double seconds = -1;
        EXPECT_EQ(quorlMsg_GetF64Ex(lag, name, &seconds, 0), QUORL_OK);
        EXPECT_GE(seconds, last) << name;
        last = seconds;
    }
    EXPECT_GT(last, 0);
    EXPECT_STREQ(textOf(after, "version").c_str(), quorl_Version());
    EXPECT_EQ(wholeOf(after, "process"), static_cast<quorl_u64>(getpid()));
    EXPECT_EQ(quorlMsg_Destroy(before), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(after), QUORL_OK);
}

TEST_F(Advisory, statisticsCountWhatLives) {
    const quorlTransport transport = newTransport();
    EXPECT_EQ(quorlQueue_SetName(queue, "orders"), QUORL_OK);
    Numbers numbers;
    listen(queue, transport, "a", onNumber, &numbers);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(sendNumber(transport, "a", i), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    quorlMsg reply = ask(transport, "_QUORL.STATS");
    quorlMsg objects = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgEx(reply, "objects", &objects, 0), QUORL_OK);
    quorl_u32 count = 0;
    EXPECT_EQ(quorlMsg_GetU32Ex(objects, "listeners", &count, 0), QUORL_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(quorlMsg_GetU32Ex(objects, "queues", &count, 0), QUORL_OK);
    EXPECT_EQ(count, 2u);  // the default queue too
    EXPECT_EQ(quorlMsg_GetU32Ex(objects, "transports", &count, 0), QUORL_OK);
    EXPECT_EQ(count, 1u);
    const quorlMsg* queues = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgArrayEx(reply, "queues", &queues, &count, 0), QUORL_OK);
    ASSERT_EQ(count, 2u);
    for (quorl_u32 i = 0; i < count; ++i) {
        quorl_u32 id = 0;
        quorl_u64 waiting = 0;
        quorl_u64 most = 0;
        quorl_u64 dispatched = 0;
        EXPECT_EQ(quorlMsg_GetU32Ex(queues[i], "queue", &id, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(queues[i], "waiting", &waiting, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(queues[i], "most_waiting", &most, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(queues[i], "dispatched", &dispatched, 0), QUORL_OK);
        EXPECT_EQ(textOf(queues[i], "name"), id == queue ? "orders" : "");
        EXPECT_EQ(waiting, id == queue ? 2u : 0u);
        EXPECT_EQ(most, id == queue ? 3u : 0u);
        EXPECT_EQ(dispatched, id == queue ? 1u : 0u);
    }
    EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    drain(queue);
}

}  // namespace
}  // namespace quorltest
