// Callbacks of certified listeners, and confirming.
#include "certified/listener.h"

#include "companion/status.h"

namespace quorl::certified {

using companion::fail;

// The program is done with the message when its callback has returned, unless it says so itself.
void CmListener::run(const companion::Delivery& delivery) noexcept {
    callback_(delivery.event, delivery.handle, const_cast<void*>(delivery.closure));
    if (explicit_.load(std::memory_order_relaxed) || delivery.message.attributes().empty()) return;
    companion::KeptErrorText kept;
    node_->confirm(delivery.event, delivery.message, Node::Confirmed::byCallback);
}

void CmListener::dropped(const companion::Message&, uint32_t) noexcept {
    node_->lost();
}

quorl_status CmListener::confirm(quorlMsg handle) noexcept {
    companion::Message message;
    quorl_status status = companion::Message::received(handle, &message);
    if (status == QUORL_NOT_FOUND) return fail(status, "the message was not sent by certified delivery");
    if (status != QUORL_OK) return status;
    if (!explicit_.load(std::memory_order_relaxed))
        return fail(QUORL_NOT_PERMITTED,
                    "certified listener %u confirms by itself what its callback has returned from; call "
                    "quorlcmEvent_SetExplicitConfirm first",
                    id_.load());
    return node_->confirm(id_, message, Node::Confirmed::byProgram);
}

void CmListener::closed() noexcept {
    node_->unlisten(id_, cancels());
}

void CmListener::completed() noexcept {
    complete(id_, closure_);
}

}  // namespace quorl::certified
