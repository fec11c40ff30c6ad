// A member of this process: its machine on the host, over a plain transport, and the event by which its program hears.
//
// All steps but the first and the last are the host's thread's, so that actions have one order.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "companion/driver.h"
#include "companion/object.h"
#include "ftolerance/group.h"
#include "ftolerance/protocol/member.h"
#include "quorl/quorlft.h"

namespace quorl::ftolerance {

class MemberEvent final : public companion::EventObject, public companion::Driver<Member, MemberOutput> {
  public:
    MemberEvent(Member machine, uint32_t transport, std::string group, std::string subject,
                quorlftMemberCallback callback);

    // Once it has its id. QUORL_INVALID_TRANSPORT and others; then it is to be closed.
    static quorl_status start(const std::shared_ptr<MemberEvent>& self, uint32_t id) noexcept;
    void setWeight(uint16_t weight) noexcept;

    void run(const companion::Delivery& delivery) noexcept override;
    void closed() noexcept override;
    void wake() noexcept override;
    void received(uint32_t listener, companion::Message&& message) noexcept override;

  private:
    void transmit(Member& machine, MemberOutput& output) noexcept override;
    void deliver(MemberNews news) noexcept override;

    const uint32_t transport_;
    const std::string subject_;
    const quorlftMemberCallback callback_;
    Who who_;  // complete before the first step
    std::atomic<uint32_t> listener_{0};
    std::atomic<uint32_t> weight_{0};  // to be set; 0: none is
    std::atomic<uint32_t> returned_{
        0};                       // the deactivation that the program has returned from; 0: none since the last look
    uint32_t deactivations_ = 0;  // told so far; the host's thread's
};

}  // namespace quorl::ftolerance
