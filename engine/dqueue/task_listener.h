// A certified listener of a distributed queue: the program's event, and what
// follows from its callbacks.
#pragma once

#include <atomic>
#include <memory>

#include "companion/certified.h"
#include "dqueue/member.h"

namespace quorl::dqueue {

class TaskListener final : public companion::CertifiedListener {
  public:
    TaskListener(std::shared_ptr<QueueMember> member, quorlcmEventCallback callback, const void* closure)
        : member_(std::move(member)), callback_(callback), closure_(closure) {}

    void published(uint32_t id) noexcept { id_ = id; }

    bool takesTasks() const noexcept override { return true; }
    void setExplicitConfirm() noexcept override { explicitConfirm_ = true; }
    void setExplicitComplete() noexcept override { explicitComplete_ = true; }
    quorl_status confirm(quorlMsg handle) noexcept override;
    // Of a task of a certified sender.
    quorl_status giveBack(quorlMsg handle) noexcept;

    // The tag of a delivery is the number of its task.
    void run(const companion::Delivery& delivery) noexcept override;
    void dropped(const companion::Message& message, uint32_t task) noexcept override;
    void closed() noexcept override;
    void completed() noexcept override;

  private:
    const std::shared_ptr<QueueMember> member_;
    const quorlcmEventCallback callback_;
    const void* const closure_;
    std::atomic<uint32_t> id_{0};
    std::atomic<bool> explicitConfirm_{false};
    std::atomic<bool> explicitComplete_{false};
};

}  // namespace quorl::dqueue
