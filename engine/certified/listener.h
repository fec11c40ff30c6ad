// A certified listener: the program's event, and what follows from its callbacks.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "certified/node.h"
#include "companion/certified.h"
#include "quorl/quorlcm.h"

namespace quorl::certified {

class CmListener final : public companion::CertifiedListener {
  public:
    CmListener(std::shared_ptr<Node> node, quorlcmEventCallback callback, const void* closure)
        : node_(std::move(node)), callback_(callback), closure_(closure) {}

    void published(uint32_t id) noexcept { id_ = id; }
    void setExplicitConfirm() noexcept override { explicit_ = true; }
    quorl_status confirm(quorlMsg handle) noexcept override;

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
};

}  // namespace quorl::certified
