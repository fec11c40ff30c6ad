// Every allocation of every operation fails once: the operation says so, nothing ends the process, and afterwards all works.
// First those of the calling thread, then those of the library's own threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "../companion/echo.h"
#include "companion/credentials.h"
#include "failing_allocator.h"
#include "quorl/private.h"
#include "quorl/quorl.h"
#include "quorl/quorlcmq.h"
#include "quorl/quorlft.h"
#include "transport/nats/scripted_daemon.h"

namespace {

using quorltest::failAllocation;
using quorltest::stopFailing;
using quorltest::Whose;

constexpr double limit = 60;  // seconds
constexpr int64_t most = 3'000;

// Runs the operation until none of its allocations fails. may: what else than success and QUORL_NO_MEMORY it may say when
// one has.
void failEach(const char* name, Whose fails, const std::function<quorl_status()>& run,
              const std::vector<quorl_status>& may = {}) {
    SCOPED_TRACE(name);
    for (int64_t allowed = 0;; ++allowed) {
        ASSERT_LT(allowed, most) << "does not come to an end";
        failAllocation(fails, allowed);
        const quorl_status status = run();
        if (!stopFailing()) {
            EXPECT_EQ(status, QUORL_OK) << quorl_LastErrorText();
            break;
        }
        const bool expected =
            status == QUORL_OK || status == QUORL_NO_MEMORY || std::find(may.begin(), may.end(), status) != may.end();
        EXPECT_TRUE(expected) << "allocation " << allowed << ": " << quorlStatus_GetText(status) << ", "
                              << quorl_LastErrorText();
        if (status != QUORL_OK) {
            EXPECT_NE(quorl_LastErrorText()[0], '\0') << "allocation " << allowed;
        }
    }
    EXPECT_EQ(run(), QUORL_OK) << "afterwards: " << quorl_LastErrorText();
}

void ignore(quorlEvent, quorlMsg, void*) {}
void ignoreAll(quorlMsg*, quorl_u32) {}

void count(quorlEvent, quorlMsg, void* closure) {
    ++*static_cast<int*>(closure);
}

void reply(quorlEvent, quorlMsg request, void* closure) {
    quorlMsg answer = nullptr;
    EXPECT_EQ(quorlMsg_Create(&answer), QUORL_OK);
    EXPECT_EQ(quorlTransport_SendReply(*static_cast<quorlTransport*>(closure), answer, request), QUORL_OK);
    quorlMsg_Destroy(answer);
}

quorlMsg messageOn(const char* subject) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddStringEx(message, "text", "value", 0), QUORL_OK);
    return message;
}

class NoMemory : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlTransport_Create(&transport_, nullptr, nullptr, nullptr), QUORL_OK);
        ASSERT_EQ(quorlQueue_Create(&queue_), QUORL_OK);
        message_ = messageOn("a.b");
    }
    void TearDown() override {
        quorlMsg_Destroy(message_);
        const quorl_status status = quorl_Close();
        EXPECT_TRUE(status == QUORL_OK || (mayLose_ && status == QUORL_DAEMON_NOT_CONNECTED)) << quorl_LastErrorText();
    }

    quorlTransport transport_ = 0;
    quorlQueue queue_ = 0;
    quorlMsg message_ = nullptr;
    bool mayLose_ = false;
};

// Takes what waits, and counts what a listener was given.
void drain(quorlQueue queue) {
    while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) {
    }
}

TEST(NoMemoryAtFirst, opening_and_closing) {
    // On threads of their own, so that the thread's state is made too.
    failEach("open", Whose::callers, [] {
        quorl_status status = quorl_Open();
        if (status == QUORL_OK) status = quorl_Close();
        return status;
    });
    failEach("parameters", Whose::callers, [] {
        const char* given[] = {"queue.highwater=100000", "service=a.name.that.is.longer.than.a.short.string",
                               "service="};
        return quorl_SetQRParameters(3, given);
    });
}

TEST_F(NoMemory, queues_and_groups) {
    failEach("queue", Whose::callers, [] {
        quorlQueue queue = 0;
        const quorl_status status = quorlQueue_Create(&queue);
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
        }
        return status;
    });
    failEach("name", Whose::callers,
             [this] { return quorlQueue_SetName(queue_, "a name that is longer than any short string is"); });
    failEach("group", Whose::callers, [this] {
        quorlQueueGroup group = 0;
        quorl_status status = quorlQueueGroup_Create(&group);
        if (status != QUORL_OK) return status;
        status = quorlQueueGroup_Add(group, queue_);
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlQueueGroup_Remove(group, queue_), QUORL_OK);
        }
        EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
        return status;
    });
}

TEST_F(NoMemory, listeners) {
    for (const char* subject : {"a.b.c", "a.*.c", "a.>", "_QUORL.WARN.>", "_QUORL.>"}) {
        failEach(subject, Whose::callers, [&] {
            quorlEvent event = 0;
            const quorl_status status = quorlEvent_CreateListener(&event, queue_, ignore, transport_, subject, nullptr);
            if (status == QUORL_OK) {
                EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
            }
            return status;
        });
    }
    failEach("inbox", Whose::callers, [&] {
        char inbox[QUORL_SUBJECT_MAX + 1];
        quorl_status status = quorlTransport_CreateInbox(transport_, inbox, sizeof inbox);
        if (status != QUORL_OK) return status;
        quorlEvent event = 0;
        status = quorlEvent_CreateListener(&event, queue_, ignore, transport_, inbox, nullptr);
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        }
        return status;
    });
    failEach("vector", Whose::callers, [&] {
        quorlEvent event = 0;
        const quorl_status status =
            quorlEvent_CreateGroupVectorListener(&event, queue_, ignoreAll, transport_, "a.b.c", nullptr, nullptr);
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        }
        return status;
    });
}

TEST_F(NoMemory, timers) {
    for (const double interval : {1000.0, 0.0}) {
        failEach("timer", Whose::callers, [&] {
            quorlEvent timer = 0;
            quorl_status status = quorlEvent_CreateTimer(&timer, queue_, ignore, interval, nullptr);
            if (status != QUORL_OK) return status;
            status = quorlEvent_ResetTimerInterval(timer, 2000);
            EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
            return status;
        });
    }
}

TEST_F(NoMemory, the_threads_of_timers_and_of_the_reclaimer) {
    failEach("timer", Whose::librarys, [&] {
        quorlQueue queue = 0;
        quorlEvent timer = 0;
        quorl_status status = quorlQueue_Create(&queue);
        if (status == QUORL_OK) status = quorlEvent_CreateTimer(&timer, queue, ignore, 0.001, nullptr);
        if (status == QUORL_OK) status = quorlQueue_TimedDispatch(queue, limit);
        if (timer != 0) {
            EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
        }
        EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
        return status;
    });
}

TEST_F(NoMemory, transports) {
    failEach("embedded", Whose::callers, [] {
        quorlTransport transport = 0;
        quorl_status status =
            quorlTransport_Create(&transport, "a service with a long name", "and.a.network.with.a.long.name", nullptr);
        if (status == QUORL_SERVICE_NOT_FOUND)
            status = quorlTransport_Create(&transport, "a-service-with-a-long-name", "and.a.network.with.a.long.name",
                                           nullptr);
        if (status == QUORL_OK) {
            EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
        }
        return status;
    });
    failEach("description", Whose::callers, [this] {
        return quorlTransport_SetDescription(transport_, "a description that is longer than a short string");
    });
}

TEST_F(NoMemory, sending) {
    std::vector<quorlEvent> events(40);
    int heard = 0;
    for (quorlEvent& event : events)
        ASSERT_EQ(quorlEvent_CreateListener(&event, queue_, count, transport_, "a.>", &heard), QUORL_OK);
    int round = 0;
    failEach("send", Whose::callers, [&] {
        // Each time a subject that no cache has.
        char subject[200];
        std::snprintf(subject, sizeof subject, "a.%0150d", round++);
        quorlMsg message = nullptr;
        quorl_status status = quorlMsg_Create(&message);
        if (status != QUORL_OK) return status;
        status = quorlMsg_SetSendSubject(message, subject);
        if (status == QUORL_OK) status = quorlTransport_Send(transport_, message);
        quorlMsg_Destroy(message);
        return status;
    });
    drain(queue_);
    EXPECT_GT(heard, 0);
    failEach("vector", Whose::callers, [&] {
        const quorlMsg messages[] = {message_, message_, message_};
        return quorlTransport_Sendv(transport_, messages, 3);
    });
    drain(queue_);
    failEach("dispatch", Whose::callers,
             [&] {
                 quorl_status status = quorlTransport_Send(transport_, message_);
                 for (size_t i = 0; i < events.size() && status == QUORL_OK; ++i)
                     status = quorlQueue_TimedDispatch(queue_, 0);
                 drain(queue_);
                 return status;
             },
             {QUORL_TIMEOUT});
}

TEST_F(NoMemory, a_queue_at_its_limit) {
    quorlEvent event = 0;
    quorlQueue advisories = 0;
    quorlEvent hearing = 0;
    int heard = 0;
    ASSERT_EQ(quorlEvent_CreateListener(&event, queue_, ignore, transport_, "a.b", nullptr), QUORL_OK);
    ASSERT_EQ(quorlQueue_Create(&advisories), QUORL_OK);
    ASSERT_EQ(quorlEvent_CreateListener(&hearing, advisories, count, transport_, "_QUORL.>", &heard), QUORL_OK);
    failEach("limit", Whose::callers, [&] {
        quorl_status status = quorlQueue_SetLimitPolicy(queue_, QUORLQUEUE_DISCARD_FIRST, 2, 1);
        for (int i = 0; i < 4 && status == QUORL_OK; ++i) status = quorlTransport_Send(transport_, message_);
        drain(queue_);
        drain(advisories);
        return status;
    });
    EXPECT_GT(heard, 0);
}

TEST_F(NoMemory, requests) {
    quorlQueue questions = 0;
    quorlEvent answering = 0;
    ASSERT_EQ(quorlQueue_Create(&questions), QUORL_OK);
    ASSERT_EQ(quorlEvent_CreateListener(&answering, questions, reply, transport_, "question", &transport_), QUORL_OK);
    std::thread answers([&] {
        while (quorlQueue_TimedDispatch(questions, -1) == QUORL_OK) {
        }
    });
    quorlMsg question = messageOn("question");
    // The engine's own answers too: the statistics are the largest.
    quorlMsg statistics = messageOn("_QUORL.STATS");
    quorlMsg failure = messageOn("_QUORL.LASTERROR");
    for (const quorlMsg message : {question, statistics, failure}) {
        failEach("request", Whose::callers, [&] {
            quorlMsg answer = nullptr;
            const quorl_status status = quorlTransport_SendRequest(transport_, message, &answer, limit);
            if (status == QUORL_OK) quorlMsg_Destroy(answer);
            return status;
        });
        quorlMsg_Destroy(message);
    }
    EXPECT_EQ(quorlQueue_DestroyEx(questions, nullptr, nullptr), QUORL_OK);
    answers.join();
}

// Both ends, a message over them, and their end.
quorl_status overACircuit(quorlTransport parent, quorlQueue queue, quorlMsg message) {
    quorlTransport accepting = 0;
    quorlTransport connecting = 0;
    quorlEvent event = 0;
    int heard = 0;
    const char* subject = nullptr;
    quorl_status status = quorlTransport_CreateAcceptVc(&accepting, &subject, parent);
    if (status != QUORL_OK) return status;
    status = quorlEvent_CreateListener(&event, queue, count, accepting, "a.b", &heard);
    if (status == QUORL_OK) status = quorlTransport_CreateConnectVc(&connecting, subject, parent);
    if (status == QUORL_OK) status = quorlTransport_WaitForVcConnection(connecting, limit);
    if (status == QUORL_OK) status = quorlTransport_Send(connecting, message);
    if (status == QUORL_OK) status = quorlQueue_TimedDispatch(queue, limit);
    if (status == QUORL_OK) {
        EXPECT_EQ(heard, 1);
    }
    if (event != 0) {
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    }
    if (connecting != 0) {
        EXPECT_EQ(quorlTransport_Destroy(connecting), QUORL_OK);
    }
    EXPECT_EQ(quorlTransport_Destroy(accepting), QUORL_OK);
    drain(queue);
    return status;
}

TEST_F(NoMemory, circuits) {
    failEach("circuit", Whose::callers, [&] { return overACircuit(transport_, queue_, message_); });
    failEach("circuit", Whose::librarys, [&] { return overACircuit(transport_, queue_, message_); });
}

TEST_F(NoMemory, credentials) {
    failEach("user", Whose::callers, [] {
        const quorl_status set = quorl::companion::setUser("a name", "a password");
        const quorl_status taken = quorl::companion::setUser(nullptr, nullptr);
        return set == QUORL_OK ? taken : set;
    });
    failEach("certificates", Whose::callers, [] {
        const char* daemon = "a-daemon-with-a-long-name";
        const quorl_status set = quorl::companion::setDaemonCertificates(daemon, "not looked at here");
        const quorl_status taken = quorl::companion::setDaemonCertificates(daemon, nullptr);
        return set == QUORL_OK ? taken : set;
    });
}

// Everything that a companion does over the border: objects, events, a machine on its host, messages with attributes.
TEST_F(NoMemory, companions) {
    const auto noted = [](uint32_t, uint32_t, void*) {};
    failEach("member", Whose::callers, [&] {
        uint32_t member = 0;
        quorl_status status = echo::createMember(&member, queue_, noted, nullptr);
        if (status != QUORL_OK) return status;
        status = echo::act(member, 3);
        drain(queue_);
        EXPECT_EQ(echo::destroyMember(member), QUORL_OK);
        return status;
    });
    const auto over = [&] {
        uint32_t made = 0;
        uint32_t listener = 0;
        quorl_status status =
            echo::createTransport(&made, transport_, "a.name.that.is.longer.than.a.short.string", 0, nullptr);
        if (status != QUORL_OK) return status;
        status = echo::createListener(&listener, queue_, ignore, made, "a.b", nullptr);
        if (status == QUORL_OK) status = echo::setTimeLimit(message_, 3);
        if (status == QUORL_OK) status = echo::send(made, message_);
        if (status == QUORL_OK) status = echo::persist(made);
        drain(queue_);
        if (listener != 0) {
            EXPECT_EQ(echo::destroyListener(listener, nullptr), QUORL_OK);
        }
        EXPECT_EQ(echo::destroyTransport(made, nullptr, nullptr), QUORL_OK);
        return status;
    };
    failEach("certified", Whose::callers, over);
    failEach("certified", Whose::librarys, over);
    // What was posted and did not get to its callback is told, once for each.
    uint32_t made = 0;
    uint32_t listener = 0;
    int came = 0;
    ASSERT_EQ(echo::createTransport(&made, transport_, "counted", 0, nullptr), QUORL_OK);
    ASSERT_EQ(echo::createListener(&listener, queue_, count, made, "counted", &came), QUORL_OK);
    quorlMsg message = messageOn("counted");
    const int dropped = echo::figures().dropped;
    int sent = 0;
    failEach("dispatch", Whose::callers, [&] {
        const quorl_status status = echo::send(made, message);
        if (status != QUORL_OK) return status;
        ++sent;
        // The companion's own thread posts it.
        while (quorlQueue_TimedDispatch(queue_, 0) == QUORL_TIMEOUT && came + echo::figures().dropped - dropped < sent)
            std::this_thread::yield();
        return QUORL_OK;
    });
    EXPECT_EQ(came + echo::figures().dropped - dropped, sent);
    quorlMsg_Destroy(message);
    EXPECT_EQ(echo::destroyListener(listener, nullptr), QUORL_OK);
    EXPECT_EQ(echo::destroyTransport(made, nullptr, nullptr), QUORL_OK);
}

TEST_F(NoMemory, fault_tolerance) {
    const auto group = [&] {
        const auto onAction = [](quorlftMember, const char*, quorlftAction, void*) {};
        const auto onCount = [](quorlftMonitor, const char*, quorl_u32, void*) {};
        const char* name = "a.group.of.a.name.that.is.longer.than.a.short.string";
        quorlftMember member = 0;
        quorlftMonitor monitor = 0;
        quorl_status status = quorlftMonitor_Create(&monitor, queue_, onCount, transport_, name, 0.002, nullptr);
        if (status == QUORL_OK)
            status = quorlftMember_Create(&member, queue_, onAction, transport_, name, 1, 1, 0.001, 0, 0.002, nullptr);
        if (status == QUORL_OK) status = quorlftMember_SetWeight(member, 2);
        quorl_u64 token = 0;
        if (status == QUORL_OK) status = quorlftMember_GetToken(member, &token);
        // Some of what comes of it, if it comes.
        for (int i = 0; i < 3; ++i) quorlQueue_TimedDispatch(queue_, 0.005);
        if (member != 0) {
            EXPECT_EQ(quorlftMember_Destroy(member), QUORL_OK);
        }
        if (monitor != 0) {
            EXPECT_EQ(quorlftMonitor_Destroy(monitor), QUORL_OK);
        }
        drain(queue_);
        return status;
    };
    failEach("calls", Whose::callers, group);
    failEach("machines", Whose::librarys, group);
}

TEST_F(NoMemory, certified_delivery) {
    const auto over = [&] {
        quorlcmTransport made = 0;
        quorlcmEvent listener = 0;
        const auto nothing = [](quorlcmTransport, const char*, quorlMsg, void*) -> void* { return nullptr; };
        quorl_status status = quorlcmTransport_Create(&made, transport_, "a.certified.name.that.is.not.short",
                                                      QUORL_FALSE, nullptr, QUORL_FALSE, nullptr);
        if (status != QUORL_OK) return status;
        status = quorlcmTransport_AddListener(made, "another.name.that.is.not.short", "a.b");
        if (status == QUORL_OK) status = quorlcmEvent_CreateListener(&listener, queue_, ignore, made, "a.*", nullptr);
        if (status == QUORL_OK) status = quorlMsg_SetCMTimeLimit(message_, 30);
        if (status == QUORL_OK) status = quorlcmTransport_Send(made, message_);
        if (status == QUORL_OK) status = quorlcmTransport_ReviewLedger(made, nothing, nullptr, nullptr);
        if (status == QUORL_OK) status = quorlcmTransport_ExpireMessages(made, "a.b", 1);
        drain(queue_);
        if (listener != 0) {
            EXPECT_EQ(quorlcmEvent_DestroyEx(listener, QUORL_TRUE, nullptr), QUORL_OK);
        }
        EXPECT_EQ(quorlcmTransport_Destroy(made), QUORL_OK);
        return status;
    };
    failEach("certified", Whose::callers, over);
    failEach("certified", Whose::librarys, over);
}

TEST_F(NoMemory, distributed_queues) {
    const auto over = [&] {
        quorlcmTransport made = 0;
        quorlcmEvent listener = 0;
        quorl_status status = quorlcmTransport_CreateDistributedQueueEx(
            &made, transport_, "a.queue.whose.name.is.not.short", 1, 10, 1, 0.001, 0.004);
        if (status != QUORL_OK) return status;
        quorl_u32 count = 0;
        status = quorlcmEvent_CreateListener(&listener, queue_, ignore, made, "a.*", nullptr);
        if (status == QUORL_OK) status = quorlcmTransport_SetCompleteTime(made, 1);
        if (status == QUORL_OK) status = quorlcmTransport_SetTaskBacklogLimit(made, QUORLCMQ_BACKLOG_BYTES, 1 << 20);
        if (status == QUORL_OK) status = quorlcmTransport_SetWorkerWeight(made, 2);
        if (status == QUORL_OK) status = quorlcmTransport_SetWorkerTasks(made, 20);
        if (status == QUORL_OK) status = quorlTransport_Send(transport_, message_);
        quorlQueue_TimedDispatch(queue_, 0.02);
        if (status == QUORL_OK) status = quorlcmTransport_GetUnassignedMessageCount(made, &count);
        if (listener != 0) {
            EXPECT_EQ(quorlcmEvent_DestroyEx(listener, QUORL_TRUE, nullptr), QUORL_OK);
        }
        EXPECT_EQ(quorlcmTransport_Destroy(made), QUORL_OK);
        drain(queue_);
        return status;
    };
    failEach("dqueue", Whose::callers, over);
    failEach("dqueue", Whose::librarys, over);
}

TEST_F(NoMemory, connections_to_a_daemon) {
    quorl::transport::nats::ScriptedDaemon daemon;
    const std::string address = "127.0.0.1:" + std::to_string(daemon.port());
    const auto overADaemon = [&] {
        quorlTransport transport = 0;
        quorlEvent event = 0;
        quorl_status status = quorlTransport_Create(&transport, nullptr, nullptr, address.c_str());
        if (status != QUORL_OK) return status;
        status = quorlTransport_SetDescription(transport, "a description that is longer than a short string");
        if (status == QUORL_OK) status = quorlEvent_CreateListener(&event, queue_, ignore, transport, "a.>", nullptr);
        if (status == QUORL_OK) status = quorlTransport_Send(transport, message_);
        const quorl_status closed = quorlTransport_Destroy(transport);
        if (event != 0) {
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        }
        return status == QUORL_OK ? closed : status;
    };
    const std::vector<quorl_status> may{QUORL_DAEMON_NOT_FOUND, QUORL_DAEMON_NOT_CONNECTED};
    failEach("daemon", Whose::callers, overADaemon, may);
    failEach("daemon", Whose::librarys, overADaemon, may);
    // Some of the messages may not have arrived, which the last close tells.
    mayLose_ = true;
}

}  // namespace
