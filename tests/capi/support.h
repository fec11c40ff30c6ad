// What the tests of the C interface share: an open library, and waits that end when the thing happened.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "asleep.h"
#include "quorl/private.h"
#include "quorl/quorl.h"

namespace quorltest {

inline constexpr double limit = 60;  // seconds within which anything that is waited for must happen

// Threads that must not outlive the test.
class Threads {
  public:
    ~Threads() { join(); }
    template <class F>
    void start(F&& body) {
        threads_.emplace_back(std::forward<F>(body));
    }
    void join() {
        for (auto& thread : threads_) {
            if (thread.joinable()) thread.join();
        }
        threads_.clear();
    }

  private:
    std::vector<std::thread> threads_;
};

// A count that a thread may wait for.
class Counter {
  public:
    void add(int amount = 1) {
        std::lock_guard lock(mutex_);
        value_ += amount;
        changed_.notify_all();
    }
    int value() {
        std::lock_guard lock(mutex_);
        return value_;
    }
    // False when it did not get that far within the limit.
    bool waitFor(int wanted) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(limit), [&] { return value_ >= wanted; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int value_ = 0;
};

// The transports that tests have made, on any thread; those that are closed do no harm.
class TransportsMade {
  public:
    void add(quorlTransport transport) {
        std::lock_guard lock(mutex_);
        made_.push_back(transport);
    }
    void clear() {
        std::lock_guard lock(mutex_);
        made_.clear();
    }
    std::vector<quorlTransport> all() {
        std::lock_guard lock(mutex_);
        return made_;
    }

  private:
    std::mutex mutex_;
    std::vector<quorlTransport> made_;
};
inline TransportsMade transportsMade;

// The library, open during the test.
class Open : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(quorl_Open(), QUORL_OK) << quorl_LastErrorText(); }
    void TearDown() override {
        EXPECT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
        transportsMade.clear();
    }
};

inline quorlTransport newTransport(const char* service = nullptr, const char* network = nullptr) {
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, service, network, nullptr), QUORL_OK) << quorl_LastErrorText();
    transportsMade.add(transport);
    return transport;
}

// Returns when all that the process has sent on the transport's connection is in the queues of its listeners there: a message
// to itself has come back. Not for transports that are closed.
inline void settleOn(quorlTransport transport) {
    char inbox[QUORL_SUBJECT_MAX + 1];
    if (quorlTransport_CreateInbox(transport, inbox, sizeof inbox) != QUORL_OK) return;
    quorlQueue queue = 0;
    quorlEvent listener = 0;
    quorlMsg message = nullptr;
    ASSERT_EQ(quorlQueue_Create(&queue), QUORL_OK);
    ASSERT_EQ(quorlEvent_CreateListener(
                  &listener, queue, [](quorlEvent, quorlMsg, void*) {}, transport, inbox, nullptr),
              QUORL_OK);
    ASSERT_EQ(quorlMsg_Create(&message), QUORL_OK);
    ASSERT_EQ(quorlMsg_SetSendSubject(message, inbox), QUORL_OK);
    ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    quorlMsg_Destroy(message);
    quorlEvent_DestroyEx(listener, nullptr);
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
}

// The same for all transports that tests have made. On the bus of this process there is nothing to wait for: a send
// returns when the message is in its queues. The suites of delivery and requests run over both.
inline void settle() {
    if (quorl_IsIPM() == QUORL_TRUE) return;
    for (const quorlTransport transport : transportsMade.all()) settleOn(transport);
}

inline quorlQueue newQueue() {
    quorlQueue queue = 0;
    EXPECT_EQ(quorlQueue_Create(&queue), QUORL_OK) << quorl_LastErrorText();
    return queue;
}

inline quorlMsg newMessage(const char* subject, int number = 0) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddI32Ex(message, "n", number, 0), QUORL_OK);
    return message;
}

inline quorl_status sendNumber(quorlTransport transport, const char* subject, int number) {
    quorlMsg message = newMessage("to.be.replaced", number);
    quorl_status status = quorlMsg_SetSendSubject(message, subject);
    if (status == QUORL_OK) status = quorlTransport_Send(transport, message);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return status;
}

inline int numberOf(quorlMsg message) {
    quorl_i32 number = -1;
    EXPECT_EQ(quorlMsg_GetI32Ex(message, "n", &number, 0), QUORL_OK);
    return number;
}

inline quorl_u32 countOf(quorlQueue queue) {
    settle();
    quorl_u32 count = UINT32_MAX;
    EXPECT_EQ(quorlQueue_GetCount(queue, &count), QUORL_OK);
    return count;
}

// The numbers that came, in the order of their callbacks. Used as closure of onNumber; of one dispatching thread.
struct Numbers {
    std::vector<int> came;
};
inline void onNumber(quorlEvent, quorlMsg message, void* closure) {
    static_cast<Numbers*>(closure)->came.push_back(numberOf(message));
}

inline quorlEvent listen(quorlQueue queue, quorlTransport transport, const char* subject, quorlEventCallback callback,
                         const void* closure) {
    quorlEvent event = 0;
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, callback, transport, subject, closure), QUORL_OK)
        << quorl_LastErrorText();
    return event;
}

// Dispatches until the queue has nothing left.
inline int drain(quorlQueue queue) {
    int dispatched = 0;
    int before = -1;
    while (dispatched != before) {
        before = dispatched;
        settle();
        while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) ++dispatched;
    }
    return dispatched;
}

}  // namespace quorltest
