// A member of this process: its machine on the host, over a plain transport, and the event by which its program hears.
//
// All steps but the first and the last are the host's thread's, so that actions have one order.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "companion/driver.h"
#include "companion/object.h"
#include "ftolerance/group.h"
#include "ftolerance/protocol/member.h"
#include "quorl/quorlft.h"

namespace quorl::ftolerance {

// What a callback was told. serial: of the member's actions, growing.
struct LastTold {
    uint32_t member = 0;
    uint32_t action = 0;
    uint64_t serial = 0;
    uint64_t token = 0;
};

class MemberEvent final : public companion::EventObject, public companion::Driver<Member, MemberOutput> {
  public:
    MemberEvent(Member machine, uint32_t transport, std::string group, std::string subject,
                quorlftMemberCallback callback);

    // Once it has its id. QUORL_INVALID_TRANSPORT and others; then it is to be closed.
    static quorl_status start(const std::shared_ptr<MemberEvent>& self, uint32_t id) noexcept;
    void setWeight(uint16_t weight) noexcept;

    // Of the activation that the program was told last, in its callback and from then on; 0: of none yet.
    uint64_t token() const noexcept { return token_; }
    // From now on the program says itself when it has done what a deactivation wants, by returned, and not by its callback.
    void defer() noexcept { defers_ = true; }
    void returned() noexcept;
    // What the calling thread's last callback was told. False: of no member.
    static bool lastTold(LastTold* told) noexcept;

    void run(const companion::Delivery& delivery) noexcept override;
    void dropped(const companion::Message&, uint32_t tag) noexcept override;
    void closed() noexcept override;
    void wake() noexcept override;
    void received(uint32_t listener, companion::Message&& message) noexcept override;

  private:
    void transmit(Member& machine, MemberOutput& output) noexcept override;
    void deliver(MemberNews news) noexcept override;
    void leave() noexcept;
    void sendLastFrame(int64_t deadline) noexcept;
    uint32_t nextTag(const Told& told) noexcept;
    void done(uint32_t deactivation) noexcept;

    const uint32_t transport_;
    const std::string subject_;
    const quorlftMemberCallback callback_;
    Who who_;                      // complete before the first step
    std::optional<Frame> unsent_;  // that found no room; belongs to the steps
    std::atomic<uint32_t> listener_{0};
    std::atomic<uint32_t> weight_{0};  // to be set; 0: none is
    std::atomic<uint32_t> returned_{
        0};                      // the deactivation that was done last, by its number; 0: none since the last look
    uint32_t actions_ = 0;       // told so far, in 29 bits; the host's thread's
    uint32_t deactivation_ = 0;  // the last of them that was a deactivation; the host's thread's

    std::atomic<uint64_t> token_{0};
    std::atomic<uint32_t> stopping_{0};  // the deactivation that the callback was told last
    std::atomic<bool> defers_{false};

    // Told actions that wait in the program's queue, the oldest first. Guarded by waitingLock_.
    struct Waiting {
        uint32_t number;
        uint64_t serial;
        uint64_t token;
    };
    Waiting takeWaiting(uint32_t number) noexcept;
    std::mutex waitingLock_;
    std::deque<Waiting> waiting_;
    uint64_t serial_ = 0;  // the host's thread's
};

}  // namespace quorl::ftolerance
