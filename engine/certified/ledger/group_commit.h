// Steps of many threads made durable together: a thread that waits for its step commits all that came until then, in their
// order, for everybody else that waits.
//
//     auto ticket = group.submit(step, false);   // under the lock that gives steps their order
//     Outcome outcome = group.wait(ticket);      // without it
#pragma once

#include <sched.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "certified/ledger/outcome.h"

namespace quorl::certified {

template <class Step>
class GroupCommit {
    struct Batch;

  public:
    using Ticket = std::shared_ptr<Batch>;

    // commit: makes steps durable, all of them or none. By one thread at a time.
    explicit GroupCommit(std::function<Outcome(std::vector<Step>&)> commit)
        : commit_(std::move(commit)), open_(std::make_shared<Batch>()) {}

    // Puts a step behind those that came before. After a failure every step fails until one that knows of the failure: it may
    // build on what is not there.
    Ticket submit(Step step, bool knowsOfFailure) {
        const std::lock_guard guard(lock_);
        if (failed_ != nullptr && !knowsOfFailure) return failed_;
        for (Ticket* spare : {&spares_.first, &spares_.second}) {
            if (*spare == nullptr) *spare = std::make_shared<Batch>();
        }
        open_->steps.push_back(std::move(step));
        failed_ = nullptr;
        return open_;
    }

    // Until the step of the ticket is durable, or has failed.
    Outcome wait(const Ticket& batch) {
        for (;;) {
            const uint32_t seen = batch->state.load(std::memory_order_acquire);
            if (seen == Batch::done) return batch->outcome;
            if (takeLead(batch)) {
                lead();
            } else {
                batch->state.wait(seen, std::memory_order_acquire);
            }
        }
    }

    // Until everything that was submitted is durable or has failed.
    Outcome flush() {
        Ticket led;
        Ticket last;
        {
            const std::lock_guard guard(lock_);
            led = led_;
            if (!open_->steps.empty()) last = open_;
        }
        Outcome outcome;
        if (led != nullptr) outcome = wait(led);
        if (last != nullptr) outcome = wait(last);
        return outcome;
    }

  private:
    struct Batch {
        enum : uint32_t { queued, unled, done };  // unled: one of those that wait shall lead it
        std::atomic<uint32_t> state{queued};
        std::vector<Step> steps;  // under lock_, then the leader's
        Outcome outcome;          // before done

        void fail(const Outcome& other) noexcept {
            steps = {};
            outcome.status = other.status;
            try {
                outcome.text = other.text;
            } catch (const std::bad_alloc&) {
                outcome.text.clear();
            }
        }
    };

    // Of the batches that are not done only the open one has no leader, and only while none is led.
    bool takeLead(const Ticket& batch) {
        const std::lock_guard guard(lock_);
        if (led_ != nullptr || open_ != batch) return false;
        led_ = batch;
        return true;
    }

    void lead() noexcept {
        gather();
        Ticket batch;
        Ticket spare;
        {
            const std::lock_guard guard(lock_);
            batch = std::exchange(open_, std::move(spares_.first));
            spare = std::move(spares_.second);
        }
        lastSize_ = batch->steps.size();
        batch->outcome = commit_(batch->steps);
        batch->steps = {};
        Ticket fallen;
        Ticket waiting;
        {
            const std::lock_guard guard(lock_);
            if (!batch->outcome.ok()) {
                fallen = std::exchange(open_, std::move(spare));
                fallen->fail(batch->outcome);
                failed_ = batch;
            }
            led_ = nullptr;
            if (!open_->steps.empty()) waiting = open_;
        }
        finish(*batch);
        if (fallen != nullptr) finish(*fallen);
        if (waiting != nullptr) {
            uint32_t expected = Batch::queued;
            if (waiting->state.compare_exchange_strong(expected, Batch::unled)) waiting->state.notify_one();
        }
    }

    // Those that shared the last commit are about to come again: without them every other commit would be of one step.
    void gather() {
        for (size_t before = 0, turns = 0; turns < 16; ++turns) {
            const size_t now = openSize();
            if (now >= lastSize_ || (now == before && turns >= 4)) return;
            before = now;
            sched_yield();
        }
    }
    size_t openSize() {
        const std::lock_guard guard(lock_);
        return open_->steps.size();
    }

    static void finish(Batch& batch) {
        batch.state.store(Batch::done, std::memory_order_release);
        batch.state.notify_all();
    }

    const std::function<Outcome(std::vector<Step>&)> commit_;
    std::mutex lock_;
    Ticket open_;    // takes what is submitted; under lock_
    Ticket led_;     // the batch that has a leader, null when none has; under lock_
    Ticket failed_;  // a batch that failed, until somebody says that he knows of it; under lock_
    // What the leader of the open batch needs is there before a step is in it: a step of which it was said that it has failed, for want
    // of memory, must not be committed later. Under lock_.
    std::pair<Ticket, Ticket> spares_;
    size_t lastSize_ = 0;  // of the last batch; the leader's
};

}  // namespace quorl::certified
