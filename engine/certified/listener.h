// A certified listener: the program's event, and what follows from its callbacks.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "certified/node.h"
#include "companion/object.h"
#include "quorl/quorlcm.h"

namespace quorl::certified {

class CmListener final : public companion::EventObject {
  public:
    CmListener(std::shared_ptr<Node> node, quorlcmEventCallback callback, const void* closure)
        : node_(std::move(node)), callback_(callback), closure_(closure) {}

    void published(uint32_t id) noexcept { id_ = id; }
    void setExplicit() noexcept { explicit_ = true; }
    // cancel: the senders forget it. The completion runs when the library has finished with it; null for none.
    static quorl_status closeWith(uint32_t id, bool cancel, quorlcmEventOnComplete completion) noexcept;
    quorl_status confirm(quorlMsg handle) noexcept;

    void run(const companion::Delivery& delivery) noexcept override;
    void dropped(const companion::Message& message, uint32_t tag) noexcept override;
    void closed() noexcept override;
    void completed() noexcept override;

  private:
    const std::shared_ptr<Node> node_;
    const quorlcmEventCallback callback_;
    const void* const closure_;
    std::atomic<uint32_t> id_{0};
    std::atomic<bool> explicit_{false};
    // Set by whoever closes it, before closed().
    bool cancel_ = false;
    quorlcmEventOnComplete completion_ = nullptr;
};

}  // namespace quorl::certified
