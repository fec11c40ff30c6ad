// Messages on their way from a sender to listeners, through queues.
#include <map>

#include "support.h"

namespace quorltest {
namespace {

class Delivery : public Open {};

TEST_F(Delivery, reachesAMatchingListener) {
    const quorlTransport transport = newTransport();
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "plant.*.temp", onNumber, &numbers);
    EXPECT_EQ(sendNumber(transport, "plant.line3.temp", 7), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, "plant.line3.pressure", 8), QUORL_OK);
    EXPECT_EQ(countOf(QUORL_DEFAULT_QUEUE), 1u);
    EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0), QUORL_TIMEOUT);
    EXPECT_EQ(numbers.came, std::vector{7});
}

TEST_F(Delivery, givesTheListenerAndItsClosure) {
    struct Seen {
        quorlEvent event = 0;
        void* closure = nullptr;
        std::string subject;
    } seen;
    const quorlTransport transport = newTransport();
    const quorlEvent listener = listen(
        QUORL_DEFAULT_QUEUE, transport, "a.>",
        [](quorlEvent event, quorlMsg message, void* closure) {
            auto* to = static_cast<Seen*>(closure);
            to->event = event;
            const char* subject = nullptr;
            EXPECT_EQ(quorlMsg_GetClosure(message, &to->closure), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
            to->subject = subject;
        },
        &seen);
    sendNumber(transport, "a.b.c", 1);
    EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(seen.event, listener);
    EXPECT_EQ(seen.closure, &seen);
    EXPECT_EQ(seen.subject, "a.b.c");
}

TEST_F(Delivery, carriesTheMessageAsItWasWhenItWasSent) {
    const quorlTransport transport = newTransport();
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "a", onNumber, &numbers);
    quorlMsg message = newMessage("a", 1);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
    EXPECT_EQ(quorlMsg_UpdateI32Ex(message, "n", 2, 0), QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 2);
    EXPECT_EQ(numbers.came, (std::vector{1, 2}));
}

TEST_F(Delivery, aDetachedMessageOutlivesItsCallback) {
    quorlMsg kept = nullptr;
    const quorlTransport transport = newTransport();
    listen(
        QUORL_DEFAULT_QUEUE, transport, "a",
        [](quorlEvent, quorlMsg message, void* closure) {
            EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
            *static_cast<quorlMsg*>(closure) = message;
        },
        &kept);
    sendNumber(transport, "a", 5);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(numberOf(kept), 5);
    EXPECT_EQ(quorlMsg_Destroy(kept), QUORL_OK);
}

TEST_F(Delivery, anotherMessageIsGoneAfterItsCallback) {
    quorlMsg kept = nullptr;
    const quorlTransport transport = newTransport();
    listen(
        QUORL_DEFAULT_QUEUE, transport, "a",
        [](quorlEvent, quorlMsg message, void* closure) { *static_cast<quorlMsg*>(closure) = message; }, &kept);
    sendNumber(transport, "a", 5);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
    EXPECT_EQ(quorlMsg_Destroy(kept), QUORL_INVALID_MSG);
}

TEST_F(Delivery, reachesEveryListenerOnceEach) {
    const quorlTransport sender = newTransport();
    const quorlTransport receiver = newTransport();
    Numbers numbers[40];
    for (int i = 0; i < 40; ++i) listen(QUORL_DEFAULT_QUEUE, i % 2 ? sender : receiver, "x.y", onNumber, &numbers[i]);
    sendNumber(sender, "x.y", 3);
    sendNumber(sender, "x.y", 4);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 80);
    for (auto& each : numbers) EXPECT_EQ(each.came, (std::vector{3, 4}));
}

TEST_F(Delivery, servicesAndNetworksSeparateBuses) {
    const quorlTransport plain = newTransport();
    const quorlTransport service = newTransport("7500");
    const quorlTransport network = newTransport("7500", "lab");
    const quorlTransport again = newTransport("7500", "lab");
    Numbers onPlain, onService, onNetwork;
    listen(QUORL_DEFAULT_QUEUE, plain, ">", onNumber, &onPlain);
    listen(QUORL_DEFAULT_QUEUE, service, ">", onNumber, &onService);
    listen(QUORL_DEFAULT_QUEUE, network, ">", onNumber, &onNetwork);
    sendNumber(plain, "a", 1);
    sendNumber(service, "a", 2);
    sendNumber(again, "a", 3);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(onPlain.came, std::vector{1});
    EXPECT_EQ(onService.came, std::vector{2});
    EXPECT_EQ(onNetwork.came, std::vector{3});
}

TEST_F(Delivery, aNewListenerIsSeenBySubjectsThatWereSentBefore) {
    const quorlTransport transport = newTransport();
    Numbers first, second;
    const quorlEvent listener = listen(QUORL_DEFAULT_QUEUE, transport, "a", onNumber, &first);
    sendNumber(transport, "a", 1);
    settle();
    listen(QUORL_DEFAULT_QUEUE, transport, "a", onNumber, &second);
    sendNumber(transport, "a", 2);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    sendNumber(transport, "a", 3);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(first.came, (std::vector{1, 2}));
    EXPECT_EQ(second.came, (std::vector{2, 3}));
}

// Many subjects, so that what a sending thread remembers of them is replaced over and over.
TEST_F(Delivery, everySubjectFindsItsListener) {
    const quorlTransport transport = newTransport();
    std::vector<Numbers> numbers(3000);
    for (int i = 0; i < 3000; ++i)
        listen(QUORL_DEFAULT_QUEUE, transport, ("s." + std::to_string(i)).c_str(), onNumber, &numbers[i]);
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 3000; ++i) sendNumber(transport, ("s." + std::to_string(i)).c_str(), i + round);
    }
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 6000);
    for (int i = 0; i < 3000; ++i) EXPECT_EQ(numbers[i].came, (std::vector{i, i + 1}));
}

TEST_F(Delivery, keepsTheOrderOfEachOfSeveralSenders) {
    constexpr int senders = 4;
    constexpr int each = 20000;
    const quorlTransport transport = newTransport();
    struct Order {
        std::map<int, int> next;
        int wrong = 0;
        int came = 0;
    } order;
    listen(
        QUORL_DEFAULT_QUEUE, transport, "order.*",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Order*>(closure);
            const int number = numberOf(message);
            int& next = to.next[number / each];
            if (number % each != next) ++to.wrong;
            next = number % each + 1;
            ++to.came;
        },
        &order);
    Threads threads;
    for (int sender = 0; sender < senders; ++sender) {
        threads.start([=] {
            const std::string subject = "order." + std::to_string(sender);
            for (int i = 0; i < each; ++i) sendNumber(transport, subject.c_str(), sender * each + i);
        });
    }
    while (order.came < senders * each && quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) == QUORL_OK) {
    }
    EXPECT_EQ(order.came, senders * each);
    EXPECT_EQ(order.wrong, 0);
}

TEST_F(Delivery, severalDispatchersShareAQueueAndLoseNothing) {
    constexpr int messages = 50000;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    static std::atomic<int> came;
    came = 0;
    std::vector<std::atomic<int>> times(messages);
    listen(
        queue, transport, "a",
        [](quorlEvent, quorlMsg message, void* closure) {
            (*static_cast<std::vector<std::atomic<int>>*>(closure))[static_cast<size_t>(numberOf(message))]++;
            came++;
        },
        &times);
    Threads threads;
    for (int i = 0; i < 4; ++i) {
        threads.start([=] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
    }
    for (int i = 0; i < messages; ++i) sendNumber(transport, "a", i);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (came < messages && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    threads.join();
    for (auto& count : times) ASSERT_EQ(count, 1);
}

TEST_F(Delivery, sendvSendsAllInOrderOrNothing) {
    const quorlTransport transport = newTransport();
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "v.>", onNumber, &numbers);
    std::vector<quorlMsg> messages;
    for (int i = 0; i < 300; ++i) messages.push_back(newMessage(("v." + std::to_string(i)).c_str(), i));
    EXPECT_EQ(quorlTransport_Sendv(transport, messages.data(), 300), QUORL_OK);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 300);
    for (int i = 0; i < 300; ++i) EXPECT_EQ(numbers.came[static_cast<size_t>(i)], i);

    EXPECT_EQ(quorlMsg_SetSendSubject(messages[299], nullptr), QUORL_OK);
    EXPECT_EQ(quorlTransport_Sendv(transport, messages.data(), 300), QUORL_INVALID_SUBJECT);
    quorlMsg none = messages[7];
    messages[7] = nullptr;
    EXPECT_EQ(quorlTransport_Sendv(transport, messages.data(), 299), QUORL_INVALID_MSG);
    messages[7] = none;
    EXPECT_EQ(countOf(QUORL_DEFAULT_QUEUE), 0u);
    EXPECT_EQ(quorlTransport_Sendv(transport, nullptr, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_Sendv(transport, nullptr, 0), QUORL_OK);
    for (quorlMsg message : messages) quorlMsg_Destroy(message);
}

TEST_F(Delivery, refusesSubjectsThatNothingCanBeSentTo) {
    const quorlTransport transport = newTransport();
    quorlMsg message = nullptr;
    ASSERT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_INVALID_SUBJECT);
    for (const char* subject : {"a.*", "a.>", ">", "plant.a*b", "_other.a", "_x.y"}) {
        EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_INVALID_SUBJECT) << subject;
        EXPECT_EQ(quorlMsg_SetReplySubject(message, subject), QUORL_INVALID_SUBJECT) << subject;
    }
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_INVALID_MSG);
}

TEST_F(Delivery, refusesListenersThatMakeNoSense) {
    const quorlTransport transport = newTransport();
    quorlEvent event = 77;
    const std::string longest(QUORL_SUBJECT_MAX, 'x');
    const std::string tooLong = longest + "x";
    EXPECT_EQ(quorlEvent_CreateListener(&event, 999, onNumber, transport, "a", nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, nullptr, transport, "a", nullptr), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, 999, "a", nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, 1, "a", nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlEvent_CreateListener(nullptr, 1, onNumber, transport, "a", nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&event, 1, nullptr, transport, "a", nullptr, nullptr),
              QUORL_INVALID_CALLBACK);
    for (const char* subject : {"", ".", "a.", ".a", "a..b", "_x", "_INBOX.>", "_INBOX.abc", "_QUORL", tooLong.c_str()})
        EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, transport, subject, nullptr), QUORL_INVALID_SUBJECT)
            << subject;
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, transport, nullptr, nullptr), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(event, 77u);
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, transport, longest.c_str(), nullptr), QUORL_OK);
    EXPECT_EQ(quorlEvent_CreateListener(&event, 1, onNumber, transport, "_QUORL.>", nullptr), QUORL_OK);
}

TEST_F(Delivery, aLongSubjectFindsItsWay) {
    const quorlTransport transport = newTransport();
    std::string subject(QUORL_SUBJECT_MAX, 'x');
    subject[100] = '.';
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, subject.c_str(), onNumber, &numbers);
    sendNumber(transport, subject.c_str(), 1);
    sendNumber(transport, subject.c_str(), 2);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, (std::vector{1, 2}));
}

TEST_F(Delivery, wildcardsDoNotReachTheSystemsSubjects) {
    const quorlTransport transport = newTransport();
    Numbers all, two, system;
    listen(QUORL_DEFAULT_QUEUE, transport, ">", onNumber, &all);
    listen(QUORL_DEFAULT_QUEUE, transport, "*.*", onNumber, &two);
    listen(QUORL_DEFAULT_QUEUE, transport, "_QUORL.>", onNumber, &system);
    char inbox[255];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, inbox, 1), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, "_QUORL.INFO.a.b", 2), QUORL_OK);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_TRUE(all.came.empty());
    EXPECT_TRUE(two.came.empty());
    EXPECT_EQ(system.came, std::vector{2});
}

}  // namespace
}  // namespace quorltest
