// Callbacks of those who take tasks, and completing.
#include "dqueue/task_listener.h"

#include "companion/status.h"
#include "quorl/private.h"

namespace quorl::dqueue {

using companion::fail;

// The program has done the task when its callback has returned, unless it says
// so itself.
void TaskListener::run(const companion::Delivery& delivery) noexcept {
    if (member_->isCutOff()) return;
    callback_(delivery.event, delivery.handle, const_cast<void*>(delivery.closure));
    const bool certified = !delivery.message.attributes().empty();
    if ((certified ? explicitConfirm_ : explicitComplete_).load(std::memory_order_relaxed)) return;
    companion::KeptErrorText kept;
    member_->complete(delivery.tag);
}

void TaskListener::dropped(const companion::Message&, uint32_t task) noexcept {
    member_->drop(task);
}

namespace {

// Where a binding says by the subject of a task that it gives it back
// (private.h).
bool isGivenBack(quorlMsg handle) noexcept {
    companion::Message message;
    return companion::Message::of(handle, &message) == QUORL_OK && message.subject() == QUORL_DQ_RETURN_SUBJECT;
}

quorl_status readTask(quorlMsg handle, companion::Message* message) noexcept {
    const quorl_status status = companion::Message::received(handle, message);
    if (status != QUORL_NOT_FOUND) return status;
    return fail(status,
                "the task was not sent by certified delivery, and is "
                "completed when its callback returns");
}

}  // namespace

quorl_status TaskListener::confirm(quorlMsg handle) noexcept {
    if (isGivenBack(handle)) return giveBack(handle);
    companion::Message message;
    if (const quorl_status status = readTask(handle, &message); status != QUORL_OK) return status;
    if (!explicitConfirm_.load(std::memory_order_relaxed))
        return fail(QUORL_NOT_PERMITTED,
                    "certified listener %u completes by itself what its callback "
                    "has returned from; call "
                    "quorlcmEvent_SetExplicitConfirm first",
                    id_.load());
    return member_->complete(message);
}

quorl_status TaskListener::giveBack(quorlMsg handle) noexcept {
    companion::Message message;
    const quorl_status status = readTask(handle, &message);
    return status == QUORL_OK ? member_->giveBack(message) : status;
}

void TaskListener::closed() noexcept {
    member_->unlisten(id_, cancels());
}

void TaskListener::completed() noexcept {
    complete(id_, closure_);
}

}  // namespace quorl::dqueue
