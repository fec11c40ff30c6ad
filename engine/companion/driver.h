// A machine on a companion's host: the lock that serializes its steps, and the order in which a step's output is carried out.
//
//     class Node final : public Driver<Machine, Output> { ... transmit, deliver ... };
//     node->step([&](Machine& machine, Output& out) { return machine.send(message, monotonicNow(), out); });
//
// The machine has due(), in nanoseconds on the monotonic clock; Output has clear(), and takeRest(), which moves out what is for
// the program. Of what one step gives out, what is to be stored is handed over first, then what is to be sent, both under the
// lock, so that their order is the order of the steps; what is for the program comes last, with no lock held.
#pragma once

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

#include "companion/host.h"

namespace quorl::companion {

template <class Machine, class Output>
class Driver : public Guest {
  public:
    Driver(Host& host, Machine machine) : host_(host), machine_(std::move(machine)) {}

    // Calls change(machine, output) and carries out what comes of it. change returns a status and may throw std::bad_alloc;
    // what the machine was doing is then as if a message had been lost. The calling thread holds no lock of this object.
    template <class F>
    quorl_status step(F&& change) noexcept {
        quorl_status status;
        auto rest = [&] {
            const std::lock_guard lock(lock_);
            output_.clear();
            try {
                status = change(machine_, output_);
            } catch (const std::bad_alloc&) {
                status = QUORL_NO_MEMORY;
            }
            store(machine_, output_);
            transmit(machine_, output_);
            // A machine that had no memory may be due at once again.
            const int64_t notBefore = status == QUORL_NO_MEMORY ? monotonicNow() + pauseWithoutMemory : INT64_MIN;
            if (const int64_t due = machine_.due(); due != INT64_MAX) host_.schedule(*this, std::max(due, notBefore));
            return output_.takeRest();
        }();
        deliver(std::move(rest));
        return status;
    }

    // Looks at the machine between two steps.
    template <class F>
    auto look(F&& at) noexcept {
        const std::lock_guard lock(lock_);
        return at(std::as_const(machine_));
    }

  protected:
    // Hands over what is to be stored; what depends on its being safe waits in the machine for persisted(token), which the
    // guest gets from Host::post.
    virtual void store(Machine&, Output&) noexcept {}
    // Sends, without waiting for room; may tell the machine what came of it.
    virtual void transmit(Machine& machine, Output& output) noexcept = 0;
    // Gives the program what is its. No lock is held, and steps of other threads may go on: what has an order is given out by
    // steps of one thread alone, the host's above all.
    virtual void deliver(typename Output::Rest rest) noexcept = 0;

    Host& host() noexcept { return host_; }

  private:
    static constexpr int64_t pauseWithoutMemory = 10'000'000;  // nanoseconds

    Host& host_;
    std::mutex lock_;
    Machine machine_;
    Output output_;
};

}  // namespace quorl::companion
