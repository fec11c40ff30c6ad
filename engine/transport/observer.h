// What a backend reports of its way to others, to those who have to know: the transports that stand on it, what makes
// advisories of it, what counts.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/mutex.h"

namespace quorl::transport {

// Every function may be called on any thread, and does not wait. The backend holds no lock that a transport, a router or a
// queue is asked for with, except for room and largestMessage, which take none of those.
class Observer {
  public:
    struct Away {
        std::string_view reason;
        uint64_t unconfirmed = 0;  // messages that were on their way, and may not have arrived
    };
    struct Back {
        double seconds = 0;        // that it was away
        uint64_t sent = 0;         // messages that were kept meanwhile, and go out now
        uint64_t lost = 0;         // messages that were refused or dropped meanwhile
        uint64_t unconfirmed = 0;  // as when it went
    };
    struct Lost {
        const char* reason = "";   // a text that stays
        uint64_t undelivered = 0;  // messages that others have not confirmed
    };

    Observer() = default;
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    virtual ~Observer() = default;

    // The way is there, for the first time.
    virtual void connected() noexcept {}
    // It is gone, and the backend tries to get it back; it is there again.
    virtual void away(const Away&) noexcept {}
    virtual void back(const Back&) noexcept {}
    // It is gone for good. Nothing follows.
    virtual void lost(const Lost&) noexcept {}
    // Where a message was refused with noRoom, one may find room now.
    virtual void room() noexcept {}
    // It takes messages of at most so many bytes, whatever their subjects.
    virtual void largestMessage(uint32_t) noexcept {}
};
using ObserverRef = std::shared_ptr<Observer>;

// Those who observe one way: each report goes to all of them, and who comes later is told how the way is.
class Observers final : public Observer {
  public:
    enum class State : uint32_t { pending, connected, away, lost };

    // Throws std::bad_alloc. No lock of a transport is held.
    void add(ObserverRef observer);
    // Afterwards it hears nothing more. The same.
    void remove(const Observer& observer) noexcept;

    State state() const noexcept { return state_.load(std::memory_order_acquire); }
    // Whether the way was lost by this report, or by an earlier one.
    bool isLost() const noexcept { return state() == State::lost; }

    void connected() noexcept override;
    void away(const Away& report) noexcept override;
    void back(const Back& report) noexcept override;
    void lost(const Lost& report) noexcept override;
    void room() noexcept override;
    void largestMessage(uint32_t bytes) noexcept override;

  private:
    template <class F>
    void tellAll(F&& report) noexcept REQUIRES(reporting_);

    Mutex reporting_;  // held while states are reported, so that they come in one order; taken before list_
    std::atomic<State> state_{State::pending};
    const char* lostReason_ GUARDED_BY(reporting_) = "";
    uint32_t largest_ GUARDED_BY(reporting_) = 0;  // 0: not reported
    Mutex list_;
    std::vector<ObserverRef> observers_ GUARDED_BY(list_);  // changed under both
};

}  // namespace quorl::transport
