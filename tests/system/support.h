// What the tests over real daemons share: transports to a given address, advisories, senders of numbers.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "../capi/support.h"
#include "server.h"

namespace quorltest {

inline TransportsMade transportsToDaemons;
inline const bool theyGoBeforeTheirServer = [] {
    closeTransports = [] {
        for (const quorlTransport transport : transportsToDaemons.all()) quorlTransport_Destroy(transport);
        transportsToDaemons.clear();
    };
    return true;
}();

inline quorlTransport transportTo(const std::string& daemon, const char* service = nullptr,
                                  const char* network = nullptr) {
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, service, network, daemon.c_str()), QUORL_OK) << quorl_LastErrorText();
    transportsToDaemons.add(transport);
    return transport;
}

// A stream of numbers, each larger than the one before. Closure of onAscending.
struct Ascending {
    std::atomic<quorl_u64> count{0};
    std::atomic<int> last{-1};
    std::atomic<int> wrong{0};  // that were not
};
inline void onAscending(quorlEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Ascending*>(closure);
    const int number = numberOf(message);
    if (number <= to.last) ++to.wrong;
    to.last = number;
    ++to.count;
}

// The number that an environment variable asks for: the long forms of tests.
inline int numberFrom(const char* variable, int otherwise) {
    const char* text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

// Collects the advisories about daemons, on a queue with a thread of its own.
class Advisories {
  public:
    struct Seen {
        std::string subject;
        std::map<std::string, quorl_u64> numbers;
        std::map<std::string, std::string> texts;
        std::vector<std::string> patterns;
    };

    explicit Advisories(quorlTransport transport) : queue_(newQueue()) {
        listen(queue_, transport, "_QUORL.*.daemon.*", onAdvisory, this);
        threads_.start([queue = queue_] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
    }
    ~Advisories() {
        quorlQueue_DestroyEx(queue_, nullptr, nullptr);
        threads_.join();
    }

    bool waitFor(int lost, int back) { return lost_.waitFor(lost) && back_.waitFor(back); }
    bool waitForOthers(int others) { return others_.waitFor(others); }
    // The first of that subject, when it has come; without a subject when it does not come.
    Seen await(const std::string& subject) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        do {
            for (const Seen& one : seen()) {
                if (one.subject == subject) return one;
            }
            std::this_thread::yield();
        } while (std::chrono::steady_clock::now() < end);
        ADD_FAILURE() << subject << " does not come";
        return {};
    }
    std::vector<Seen> seen() {
        std::lock_guard lock(mutex_);
        return seen_;
    }
    quorl_u64 sumOf(const char* subject, const char* field) {
        quorl_u64 sum = 0;
        for (const Seen& one : seen()) {
            if (one.subject == subject && one.numbers.count(field) != 0) sum += one.numbers.at(field);
        }
        return sum;
    }

  private:
    static void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
        auto& to = *static_cast<Advisories*>(closure);
        Seen one;
        const char* text = nullptr;
        quorlMsg_GetSendSubject(message, &text);
        one.subject = text;
        for (const char* field : {"unconfirmed", "sent", "lost", "count", "dropped", "pattern_count"}) {
            quorl_u64 number = 0;
            if (quorlMsg_GetU64Ex(message, field, &number, 0) == QUORL_OK) one.numbers[field] = number;
        }
        for (const char* field : {"daemon", "service", "network", "reason", "subject"}) {
            if (quorlMsg_GetStringEx(message, field, &text, 0) == QUORL_OK) one.texts[field] = text;
        }
        const char* const* patterns = nullptr;
        quorl_u32 count = 0;
        if (quorlMsg_GetStringArrayEx(message, "patterns", &patterns, &count, 0) == QUORL_OK)
            one.patterns.assign(patterns, patterns + count);
        const bool lost = one.subject == "_QUORL.WARN.daemon.lost";
        const bool back = one.subject == "_QUORL.INFO.daemon.back";
        {
            std::lock_guard lock(to.mutex_);
            to.seen_.push_back(std::move(one));
        }
        if (lost) to.lost_.add();
        if (back) to.back_.add();
        if (!lost && !back) to.others_.add();
    }

    quorlQueue queue_;
    Threads threads_;
    std::mutex mutex_;
    std::vector<Seen> seen_;
    Counter lost_;
    Counter back_;
    Counter others_;
};

// One of a transport's questions to the library: its statistics.
class Statistics {
  public:
    explicit Statistics(quorlTransport transport) {
        quorlMsg question = newMessage("_QUORL.STATS");
        EXPECT_EQ(quorlTransport_SendRequest(transport, question, &answer_, limit), QUORL_OK);
        quorlMsg_Destroy(question);
    }
    ~Statistics() { quorlMsg_Destroy(answer_); }
    Statistics(const Statistics&) = delete;
    Statistics& operator=(const Statistics&) = delete;

    quorl_u64 number(const char* name) const { return of(answer_, name); }
    quorl_u32 daemons() const {
        const quorlMsg* all = nullptr;
        quorl_u32 count = 0;
        quorlMsg_GetMsgArrayEx(answer_, "daemons", &all, &count, 0);
        return count;
    }
    // Of the first connection.
    quorl_u64 ofDaemon(const char* name) const {
        const quorlMsg* all = nullptr;
        quorl_u32 count = 0;
        EXPECT_EQ(quorlMsg_GetMsgArrayEx(answer_, "daemons", &all, &count, 0), QUORL_OK);
        return count != 0 ? of(all[0], name) : UINT64_MAX;
    }

  private:
    static quorl_u64 of(quorlMsg message, const char* name) {
        quorl_u64 value = UINT64_MAX;
        EXPECT_EQ(quorlMsg_GetU64Ex(message, name, &value, 0), QUORL_OK) << name;
        return value;
    }

    quorlMsg answer_ = nullptr;
};

}  // namespace quorltest
