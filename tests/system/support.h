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

inline quorlTransport transportTo(const std::string& daemon, const char* service = nullptr,
                                  const char* network = nullptr) {
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, service, network, daemon.c_str()), QUORL_OK) << quorl_LastErrorText();
    return transport;
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
        for (const char* field : {"unconfirmed", "sent", "lost", "count"}) {
            quorl_u64 number = 0;
            if (quorlMsg_GetU64Ex(message, field, &number, 0) == QUORL_OK) one.numbers[field] = number;
        }
        for (const char* field : {"daemon", "service", "network", "reason", "subject"}) {
            if (quorlMsg_GetStringEx(message, field, &text, 0) == QUORL_OK) one.texts[field] = text;
        }
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

}  // namespace quorltest
