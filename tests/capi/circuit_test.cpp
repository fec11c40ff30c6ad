// Virtual circuits over the bus of the process: connecting, sending, requests, and every order of closing.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "support.h"

namespace quorltest {
namespace {

struct Pair {
    quorlTransport acceptor = 0;
    quorlTransport connector = 0;
    std::string subject;
};

class Circuit : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        here_ = newTransport();
        there_ = newTransport();
    }

    Pair newPair() { return newPair(here_, there_); }
    static Pair newPair(quorlTransport here, quorlTransport there) {
        Pair pair;
        const char* subject = nullptr;
        EXPECT_EQ(quorlTransport_CreateAcceptVc(&pair.acceptor, &subject, here), QUORL_OK) << quorl_LastErrorText();
        pair.subject = subject;
        EXPECT_EQ(quorlTransport_CreateConnectVc(&pair.connector, subject, there), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_WaitForVcConnection(pair.connector, limit), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_WaitForVcConnection(pair.acceptor, limit), QUORL_OK) << quorl_LastErrorText();
        return pair;
    }

    // Dispatches until so many numbers came. False when that took too long.
    static bool waitFor(const Numbers& numbers, size_t count, quorlQueue queue = QUORL_DEFAULT_QUEUE) {
        while (numbers.came.size() < count) {
            if (quorlQueue_TimedDispatch(queue, limit) != QUORL_OK) return false;
        }
        return true;
    }
    // Sends until the peer is found to be gone; the status then.
    static quorl_status sendUntilRefused(quorlTransport circuit) {
        quorl_status status = QUORL_OK;
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while ((status = sendNumber(circuit, "a", 0)) == QUORL_OK && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        return status;
    }

    quorlTransport here_ = 0;
    quorlTransport there_ = 0;
};

TEST_F(Circuit, carries_messages_between_its_ends_and_to_nobody_else) {
    const Pair pair = newPair();
    Numbers accepted;
    Numbers connected;
    Numbers bus;
    listen(QUORL_DEFAULT_QUEUE, pair.acceptor, "price.*", onNumber, &accepted);
    listen(QUORL_DEFAULT_QUEUE, pair.connector, ">", onNumber, &connected);
    listen(QUORL_DEFAULT_QUEUE, here_, ">", onNumber, &bus);
    ASSERT_EQ(sendNumber(pair.connector, "price.x", 1), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(sendNumber(pair.connector, "other", 2), QUORL_OK);
    ASSERT_EQ(sendNumber(pair.connector, "price.y", 3), QUORL_OK);
    ASSERT_EQ(sendNumber(pair.acceptor, "price.z", 4), QUORL_OK);
    ASSERT_TRUE(waitFor(accepted, 2));
    ASSERT_TRUE(waitFor(connected, 1));
    EXPECT_EQ(accepted.came, (std::vector<int>{1, 3}));
    EXPECT_EQ(connected.came, (std::vector<int>{4}));
    ASSERT_EQ(sendNumber(there_, "price.x", 5), QUORL_OK);
    ASSERT_TRUE(waitFor(bus, 1));
    EXPECT_EQ(bus.came, (std::vector<int>{5}));
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(accepted.came.size() + connected.came.size(), 3u);
}

TEST_F(Circuit, keeps_subjects_and_every_field) {
    const Pair pair = newPair();
    struct Seen {
        std::string send, reply, text;
        int depth = 0;
    } seen;
    listen(
        QUORL_DEFAULT_QUEUE, pair.acceptor, "a.b",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& got = *static_cast<Seen*>(closure);
            const char* text = nullptr;
            if (quorlMsg_GetSendSubject(message, &text) == QUORL_OK) got.send = text;
            if (quorlMsg_GetReplySubject(message, &text) == QUORL_OK) got.reply = text;
            if (quorlMsg_GetStringEx(message, "text", &text, 0) == QUORL_OK) got.text = text;
            quorlMsg inner = nullptr;
            while (quorlMsg_GetMsgEx(message, "inner", &inner, 0) == QUORL_OK) {
                message = inner;
                ++got.depth;
            }
        },
        &seen);
    // As deep as messages go: a circuit adds no level of its own.
    quorlMsg message = newMessage("x");
    for (int depth = 1; depth < QUORL_MSG_MAX_DEPTH; ++depth) {
        quorlMsg outer = newMessage("a.b");
        ASSERT_EQ(quorlMsg_AddMsgEx(outer, "inner", message, 0), QUORL_OK) << depth << quorl_LastErrorText();
        ASSERT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        message = outer;
    }
    ASSERT_EQ(quorlMsg_AddStringEx(message, "text", "gr\xc3\xbc\xc3\x9f", 0), QUORL_OK);
    ASSERT_EQ(quorlMsg_SetReplySubject(message, "c.d"), QUORL_OK);
    ASSERT_EQ(quorlTransport_Send(pair.connector, message), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(seen.send, "a.b");
    EXPECT_EQ(seen.reply, "c.d");
    EXPECT_EQ(seen.text, "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(seen.depth, QUORL_MSG_MAX_DEPTH - 1);
}

TEST_F(Circuit, keeps_order_in_both_directions_at_once) {
    const Pair pair = newPair();
    constexpr int count = 20000;
    const quorlQueue queues[] = {newQueue(), newQueue()};
    Numbers numbers[2];
    listen(queues[0], pair.acceptor, "n", onNumber, &numbers[0]);
    listen(queues[1], pair.connector, "n", onNumber, &numbers[1]);
    Threads threads;
    for (const quorlTransport sender : {pair.acceptor, pair.connector}) {
        threads.start([sender] {
            for (int i = 0; i < count; ++i) {
                ASSERT_EQ(sendNumber(sender, "n", i), QUORL_OK) << quorl_LastErrorText();
            }
        });
    }
    for (int end = 0; end < 2; ++end) {
        threads.start([&, end] { ASSERT_TRUE(waitFor(numbers[end], count, queues[end])); });
    }
    threads.join();
    for (const Numbers& got : numbers) {
        ASSERT_EQ(got.came.size(), static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) ASSERT_EQ(got.came[static_cast<size_t>(i)], i);
    }
}

TEST_F(Circuit, answers_requests) {
    const Pair pair = newPair();
    const quorlQueue queue = newQueue();
    struct Server {
        quorlTransport circuit;
    } server{pair.acceptor};
    listen(
        queue, pair.acceptor, "ask",
        [](quorlEvent, quorlMsg request, void* closure) {
            quorlMsg reply = newMessage("unused", numberOf(request) + 1);
            EXPECT_EQ(quorlTransport_SendReply(static_cast<Server*>(closure)->circuit, reply, request), QUORL_OK);
            EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
        },
        &server);
    Threads threads;
    threads.start([queue] {
        for (int i = 0; i < 100; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    });
    for (int i = 0; i < 100; ++i) {
        quorlMsg request = newMessage("ask", i);
        quorlMsg reply = nullptr;
        ASSERT_EQ(quorlTransport_SendRequest(pair.connector, request, &reply, limit), QUORL_OK)
            << quorl_LastErrorText();
        EXPECT_EQ(numberOf(reply), i + 1);
        EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
        EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    }
}

TEST_F(Circuit, is_refused_where_it_cannot_be) {
    quorlTransport circuit = 7;
    const char* subject = nullptr;
    EXPECT_EQ(quorlTransport_CreateAcceptVc(nullptr, &subject, here_), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_CreateAcceptVc(&circuit, nullptr, here_), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_CreateAcceptVc(&circuit, &subject, 999), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_CreateConnectVc(nullptr, "_INBOX.a.1", here_), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlTransport_CreateConnectVc(&circuit, nullptr, here_), QUORL_INVALID_SUBJECT);
    EXPECT_STREQ(quorl_LastErrorText(), "no subject to connect to");
    EXPECT_EQ(quorlTransport_CreateConnectVc(&circuit, "_INBOX.a.1", 999), QUORL_INVALID_TRANSPORT);
    const std::string endless = "_INBOX." + std::string(300, 'x');
    for (const char* malformed : {"", "a.b", "_INBOX.", "_INBOX..", "_INBOX.*", "_INBOX.>", endless.c_str()}) {
        EXPECT_EQ(quorlTransport_CreateConnectVc(&circuit, malformed, here_), QUORL_INVALID_SUBJECT) << malformed;
        EXPECT_STRNE(quorl_LastErrorText(), "");
    }
    EXPECT_EQ(quorlTransport_WaitForVcConnection(999, 0), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(here_, 0), QUORL_INVALID_TRANSPORT);
    EXPECT_NE(strstr(quorl_LastErrorText(), "not a circuit"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(circuit, 7u);
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&circuit, &subject, here_), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(circuit, std::nan("")), QUORL_INVALID_ARG);
}

TEST_F(Circuit, that_nobody_connects_to_is_not_connected_and_waiting_ends) {
    quorlTransport acceptor = 0;
    const char* subject = nullptr;
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here_), QUORL_OK);
    EXPECT_EQ(strncmp(subject, "_INBOX.", 7), 0);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(acceptor, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(acceptor, 0.01), QUORL_TIMEOUT);
    EXPECT_EQ(sendNumber(acceptor, "a", 0), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "not connected yet"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(sendNumber(acceptor, "a.*", 0), QUORL_INVALID_SUBJECT);
    quorlMsg request = newMessage("a");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(acceptor, request, &reply, limit), QUORL_VC_NOT_CONNECTED);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    quorlTransport connector = 0;
    ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, "_INBOX.nobody.1", here_), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(connector, 0.01), QUORL_TIMEOUT);
    EXPECT_EQ(sendNumber(connector, "a", 0), QUORL_VC_NOT_CONNECTED);
}

TEST_F(Circuit, over_another_bus_finds_no_peer) {
    const quorlTransport elsewhere = newTransport("elsewhere");
    quorlTransport acceptor = 0;
    quorlTransport connector = 0;
    const char* subject = nullptr;
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here_), QUORL_OK);
    ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, elsewhere), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(connector, 0.3), QUORL_TIMEOUT);
}

TEST_F(Circuit, has_one_peer_and_refuses_a_second) {
    const Pair pair = newPair();
    quorlTransport second = 0;
    ASSERT_EQ(quorlTransport_CreateConnectVc(&second, pair.subject.c_str(), there_), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(second, limit), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "refused"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(sendNumber(second, "a", 0), QUORL_VC_NOT_CONNECTED);
    EXPECT_EQ(sendNumber(pair.connector, "a", 0), QUORL_OK);
}

TEST_F(Circuit, that_is_closed_brings_home_what_was_sent_and_tells_the_peer) {
    for (const bool acceptorCloses : {false, true}) {
        const Pair pair = newPair();
        const quorlTransport closing = acceptorCloses ? pair.acceptor : pair.connector;
        const quorlTransport left = acceptorCloses ? pair.connector : pair.acceptor;
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, left, "n", onNumber, &numbers);
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(sendNumber(closing, "n", i), QUORL_OK);
        ASSERT_EQ(quorlTransport_Destroy(closing), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(closing), QUORL_INVALID_TRANSPORT);
        ASSERT_TRUE(waitFor(numbers, 5000));
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(numbers.came[static_cast<size_t>(i)], i);
        EXPECT_EQ(sendUntilRefused(left), QUORL_VC_NOT_CONNECTED);
        EXPECT_NE(strstr(quorl_LastErrorText(), "the peer closed"), nullptr) << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_WaitForVcConnection(left, limit), QUORL_VC_NOT_CONNECTED);
        EXPECT_EQ(quorlTransport_Destroy(left), QUORL_OK);
    }
}

TEST_F(Circuit, that_is_lost_is_told_in_an_advisory) {
    struct Seen {
        quorl_u32 transport = 0;
        std::string reason;
        quorl_u64 undelivered = 99;
    } seen;
    const Pair pair = newPair();
    listen(
        QUORL_DEFAULT_QUEUE, here_, "_QUORL.WARN.circuit.lost",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& got = *static_cast<Seen*>(closure);
            const char* text = "";
            EXPECT_EQ(quorlMsg_GetU32Ex(message, "transport", &got.transport, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetStringEx(message, "reason", &text, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetU64Ex(message, "undelivered", &got.undelivered, 0), QUORL_OK);
            got.reason = text;
        },
        &seen);
    ASSERT_EQ(quorlTransport_Destroy(pair.connector), QUORL_OK);
    ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(seen.transport, pair.acceptor);
    EXPECT_EQ(seen.reason, "the peer closed the circuit");
    EXPECT_EQ(seen.undelivered, 0u);
}

TEST_F(Circuit, ends_with_the_transport_below_it_and_tells_the_peer) {
    for (const bool acceptorsParent : {false, true}) {
        const quorlTransport here = newTransport();
        const quorlTransport there = newTransport();
        const Pair pair = newPair(here, there);
        const quorlTransport struck = acceptorsParent ? pair.acceptor : pair.connector;
        const quorlTransport left = acceptorsParent ? pair.connector : pair.acceptor;
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, left, "n", onNumber, &numbers);
        for (int i = 0; i < 1000; ++i) ASSERT_EQ(sendNumber(struck, "n", i), QUORL_OK);
        ASSERT_EQ(quorlTransport_Destroy(acceptorsParent ? here : there), QUORL_OK);
        EXPECT_EQ(sendNumber(struck, "n", 0), QUORL_VC_NOT_CONNECTED);
        EXPECT_NE(strstr(quorl_LastErrorText(), "below"), nullptr) << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_WaitForVcConnection(struck, limit), QUORL_VC_NOT_CONNECTED);
        ASSERT_TRUE(waitFor(numbers, 1000));
        EXPECT_EQ(sendUntilRefused(left), QUORL_VC_NOT_CONNECTED);
        EXPECT_EQ(quorlTransport_Destroy(acceptorsParent ? there : here), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(left), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(struck), QUORL_OK);
    }
}

TEST_F(Circuit, ends_a_request_that_waits_when_the_peer_goes) {
    const Pair pair = newPair();
    const quorlQueue queue = newQueue();
    struct Server {
        quorlTransport circuit;
    } server{pair.acceptor};
    listen(
        queue, pair.acceptor, "ask",
        [](quorlEvent, quorlMsg, void* closure) {
            EXPECT_EQ(quorlTransport_Destroy(static_cast<Server*>(closure)->circuit), QUORL_OK);
        },
        &server);
    Threads threads;
    threads.start([queue] { ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK); });
    quorlMsg request = newMessage("ask");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(pair.connector, request, &reply, -1), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "the peer closed"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
}

// Whatever ends the circuit ends a request that waits without a limit, with the reason.
TEST_F(Circuit, ends_a_request_that_waits_when_a_transport_goes) {
    enum class Gone { circuit, below, belowThePeer };
    const struct {
        Gone gone;
        quorl_status status;
        const char* says;
    } rows[] = {{Gone::circuit, QUORL_INTR, "closed"},
                {Gone::below, QUORL_VC_NOT_CONNECTED, "below"},
                {Gone::belowThePeer, QUORL_VC_NOT_CONNECTED, "the peer closed"}};
    for (const auto& row : rows) {
        const quorlTransport belowAcceptor = newTransport();
        const quorlTransport belowConnector = newTransport();
        quorlTransport acceptor = 0;
        quorlTransport connector = 0;
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, belowAcceptor), QUORL_OK);
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, belowConnector), QUORL_OK);
        ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK);
        Counter asked;
        const quorlQueue queue = newQueue();
        listen(
            queue, acceptor, "ask", [](quorlEvent, quorlMsg, void* closure) { static_cast<Counter*>(closure)->add(); },
            &asked);
        Threads threads;
        threads.start([&] {
            quorlMsg request = newMessage("ask");
            quorlMsg reply = nullptr;
            EXPECT_EQ(quorlTransport_SendRequest(connector, request, &reply, -1), row.status);
            EXPECT_NE(strstr(quorl_LastErrorText(), row.says), nullptr) << quorl_LastErrorText();
            EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
        });
        ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
        ASSERT_TRUE(asked.waitFor(1));
        const quorlTransport goes = row.gone == Gone::circuit ? connector
                                    : row.gone == Gone::below ? belowConnector
                                                              : belowAcceptor;
        EXPECT_EQ(quorlTransport_Destroy(goes), QUORL_OK);
        threads.join();
    }
}

TEST_F(Circuit, that_is_destroyed_wakes_those_who_wait_for_it) {
    for (int round = 0; round < 3; ++round) {
        quorlTransport acceptor = 0;
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here_), QUORL_OK);
        std::atomic<pid_t> waiter{0};
        std::atomic<quorl_status> status{QUORL_OK};
        Threads threads;
        threads.start([&] {
            waiter = gettid();
            status = quorlTransport_WaitForVcConnection(acceptor, -1);
        });
        while (waiter == 0) std::this_thread::yield();
        ASSERT_TRUE(waitUntilAsleep(waiter));
        ASSERT_EQ(quorlTransport_Destroy(acceptor), QUORL_OK);
        threads.join();
        EXPECT_TRUE(status == QUORL_INTR || status == QUORL_INVALID_TRANSPORT) << status;
    }
}

TEST_F(Circuit, runs_over_another_circuit) {
    const Pair lower = newPair();
    const Pair upper = newPair(lower.acceptor, lower.connector);
    Numbers numbers;
    Numbers below;
    listen(QUORL_DEFAULT_QUEUE, upper.acceptor, ">", onNumber, &numbers);
    listen(QUORL_DEFAULT_QUEUE, lower.acceptor, ">", onNumber, &below);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(sendNumber(upper.connector, "n", i), QUORL_OK);
    ASSERT_TRUE(waitFor(numbers, 1000));
    EXPECT_TRUE(below.came.empty());
    ASSERT_EQ(quorlTransport_Destroy(lower.connector), QUORL_OK);
    EXPECT_EQ(sendNumber(upper.connector, "n", 0), QUORL_VC_NOT_CONNECTED);
    EXPECT_EQ(sendUntilRefused(upper.acceptor), QUORL_VC_NOT_CONNECTED);
}

// What waits in the upper one finds its way through the lower one, which goes second.
TEST_F(Circuit, over_another_brings_home_what_was_sent_when_the_lowest_transport_goes) {
    const quorlTransport lowest = newTransport();
    const Pair lower = newPair(here_, lowest);
    const Pair upper = newPair(lower.acceptor, lower.connector);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, upper.acceptor, "n", onNumber, &numbers);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(sendNumber(upper.connector, "n", i), QUORL_OK);
    ASSERT_EQ(quorlTransport_Destroy(lowest), QUORL_OK);
    EXPECT_EQ(sendNumber(upper.connector, "n", 0), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "below"), nullptr) << quorl_LastErrorText();
    ASSERT_TRUE(waitFor(numbers, 1000));
    EXPECT_EQ(sendUntilRefused(upper.acceptor), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "the peer closed"), nullptr) << quorl_LastErrorText();
}

// Either it is refused, or it learns that the transport below has gone; none waits for a peer in vain.
TEST_F(Circuit, that_is_made_while_the_transport_below_closes_does_not_stay) {
    for (int round = 0; round < 20; ++round) {
        const quorlTransport below = newTransport();
        // So that closing takes a while.
        for (int i = 0; i < 100; ++i) {
            quorlTransport circuit = 0;
            ASSERT_EQ(quorlTransport_CreateConnectVc(&circuit, "_INBOX.nobody.1", below), QUORL_OK);
        }
        std::vector<quorlTransport> made;
        Counter first;
        Threads threads;
        threads.start([&] {
            quorlTransport circuit = 0;
            const char* subject = nullptr;
            while (quorlTransport_CreateAcceptVc(&circuit, &subject, below) == QUORL_OK) {
                made.push_back(circuit);
                first.add();
            }
        });
        ASSERT_TRUE(first.waitFor(1));
        ASSERT_EQ(quorlTransport_Destroy(below), QUORL_OK);
        threads.join();
        for (const quorlTransport circuit : made) {
            ASSERT_EQ(quorlTransport_WaitForVcConnection(circuit, limit), QUORL_VC_NOT_CONNECTED);
            ASSERT_EQ(quorlTransport_Destroy(circuit), QUORL_OK);
        }
    }
}

TEST_F(Circuit, listens_only_to_its_own_inboxes) {
    const Pair pair = newPair();
    char inbox[QUORL_SUBJECT_MAX + 1];
    ASSERT_EQ(quorlTransport_CreateInbox(pair.acceptor, inbox, sizeof inbox), QUORL_OK);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, pair.acceptor, inbox, onNumber, &numbers);
    quorlEvent event = 0;
    EXPECT_EQ(quorlEvent_CreateListener(&event, QUORL_DEFAULT_QUEUE, onNumber, pair.connector, inbox, nullptr),
              QUORL_INVALID_SUBJECT);
    EXPECT_EQ(quorlEvent_CreateListener(&event, newQueue(), onNumber, here_, pair.subject.c_str(), nullptr), QUORL_OK)
        << "the connect subject is an inbox of the transport below";
    ASSERT_EQ(sendNumber(pair.connector, inbox, 5), QUORL_OK);
    ASSERT_TRUE(waitFor(numbers, 1));
    EXPECT_EQ(numbers.came, (std::vector<int>{5}));
}

// What anybody may send to the connect subject does no harm.
TEST_F(Circuit, ignores_messages_that_are_no_frames) {
    const Pair pair = newPair();
    for (int kind = 0; kind < 12; ++kind) {
        for (int shape = 0; shape < 4; ++shape) {
            quorlMsg message = newMessage(pair.subject.c_str());
            if (shape > 0) {
                EXPECT_EQ(quorlMsg_AddU8Ex(message, nullptr, shape == 1 ? 9 : 1, 1), QUORL_OK);
            }
            EXPECT_EQ(quorlMsg_AddU8Ex(message, nullptr, static_cast<quorl_u8>(kind), 2), QUORL_OK);
            if (shape > 1) {
                for (quorl_u16 id = 3; id < 6; ++id) EXPECT_EQ(quorlMsg_AddU64Ex(message, nullptr, 1, id), QUORL_OK);
            }
            if (shape > 2) {
                EXPECT_EQ(quorlMsg_AddStringEx(message, nullptr, "_INBOX.*", 6), QUORL_OK);
                EXPECT_EQ(quorlMsg_AddStringEx(message, nullptr, "a..b", 7), QUORL_OK);
                EXPECT_EQ(quorlMsg_AddOpaqueEx(message, nullptr, "corrupt", 7, 9), QUORL_OK);
            }
            EXPECT_EQ(quorlTransport_Send(there_, message), QUORL_OK) << quorl_LastErrorText();
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        }
    }
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, pair.acceptor, ">", onNumber, &numbers);
    ASSERT_EQ(sendNumber(pair.connector, "n", 1), QUORL_OK);
    ASSERT_TRUE(waitFor(numbers, 1));
}

TEST_F(Circuit, many_at_once_come_and_go_from_many_threads) {
    Threads threads;
    for (int worker = 0; worker < 4; ++worker) {
        threads.start([this, worker] {
            for (int round = 0; round < 25; ++round) {
                const Pair pair = newPair();
                const quorlQueue queue = newQueue();
                Numbers numbers;
                const quorlEvent listener = listen(queue, pair.acceptor, "n", onNumber, &numbers);
                for (int i = 0; i < 20; ++i) ASSERT_EQ(sendNumber(pair.connector, "n", i), QUORL_OK);
                if ((round + worker) % 3 == 0) {
                    ASSERT_EQ(quorlTransport_Destroy(pair.connector), QUORL_OK);
                }
                ASSERT_TRUE(waitFor(numbers, 20, queue));
                if (round % 2 == 0) {
                    ASSERT_EQ(quorlTransport_Destroy(pair.acceptor), QUORL_OK);
                }
                ASSERT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
                ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
            }
        });
    }
}

TEST(CircuitLife, outlives_no_library_and_comes_again_with_the_next) {
    quorlTransport circuit = 0;
    const char* subject = nullptr;
    EXPECT_EQ(quorlTransport_CreateAcceptVc(&circuit, &subject, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_CreateConnectVc(&circuit, "_INBOX.a.1", 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(1, 0), QUORL_NOT_INITIALIZED);
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        const quorlTransport parent = newTransport();
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&circuit, &subject, parent), QUORL_OK);
        quorlTransport connector = 0;
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, parent), QUORL_OK);
        if (round % 2 == 0) {
            ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK);
            ASSERT_EQ(sendNumber(connector, "n", 1), QUORL_OK);
        }
        if (round == 4) {
            ASSERT_EQ(quorlTransport_Destroy(circuit), QUORL_OK);
        }
        ASSERT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
    }
}

struct Ends {
    quorlTransport acceptor = 0;
    quorlTransport connector = 0;
};

Ends connectedOver(quorlTransport parent) {
    Ends ends;
    const char* subject = nullptr;
    EXPECT_EQ(quorlTransport_CreateAcceptVc(&ends.acceptor, &subject, parent), QUORL_OK);
    EXPECT_EQ(quorlTransport_CreateConnectVc(&ends.connector, subject, parent), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(ends.connector, limit), QUORL_OK);
    return ends;
}

TEST(CircuitLife, brings_home_what_was_sent_also_when_it_would_wait_for_ever) {
    const char* endless[] = {"circuit.timeout=1e300"};
    ASSERT_EQ(quorl_SetQRParameters(1, endless), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const auto [acceptor, connector] = connectedOver(newTransport());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, acceptor, "n", onNumber, &numbers);
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(sendNumber(connector, "n", i), QUORL_OK);
    ASSERT_EQ(quorlTransport_Destroy(connector), QUORL_OK);
    while (numbers.came.size() < 5000) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    const char* usual[] = {"circuit.timeout=10"};
    EXPECT_EQ(quorl_SetQRParameters(1, usual), QUORL_OK);
}

// A default limit of queues is for the program's queues.
TEST(CircuitLife, is_not_cut_short_by_a_default_limit_of_queues) {
    const char* parameters[] = {"queue.limit=10", "circuit.timeout=5"};
    ASSERT_EQ(quorl_SetQRParameters(2, parameters), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const auto [acceptor, connector] = connectedOver(newTransport());
    const quorlQueue queue = newQueue();
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_OK);
    Numbers numbers;
    listen(queue, acceptor, "n", onNumber, &numbers);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(sendNumber(connector, "n", i), QUORL_OK);
    while (numbers.came.size() < 2000) ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    const char* defaults[] = {"queue.limit=0", "circuit.timeout=10"};
    EXPECT_EQ(quorl_SetQRParameters(2, defaults), QUORL_OK);
    const char* wrong[] = {"circuit.timeout=0.05"};
    EXPECT_EQ(quorl_SetQRParameters(1, wrong), QUORL_INVALID_ARG);
}

}  // namespace
}  // namespace quorltest
