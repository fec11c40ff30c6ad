// Sending into a circuit, and listening to what comes out of it.
#include "transport/circuit/backend.h"

#include <new>
#include <utility>

#include "base/status.h"
#include "transport/circuit/frame.h"
#include "transport/local.h"

namespace quorl::transport::circuit {
namespace {

template <class F>
quorl_status guarded(F&& change) noexcept {
    try {
        change();
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory on a circuit");
    }
}

}  // namespace

quorl_status CircuitCarrier::check(std::string_view subject) const noexcept {
    return Router::check(subject);
}

quorl_status CircuitCarrier::send(ThreadState& thread, message::ContentRef content) noexcept {
    if (const quorl_status status = Router::check(content.sendSubject()); status != QUORL_OK) return status;
    if (const quorl_status status = local::checkReply(content.replySubject()); status != QUORL_OK) return status;
    if (content.byteSize() > largestContent)
        return fail(QUORL_INVALID_SIZE, "a circuit carries messages of at most %u bytes", largestContent);
    const quorl_status status = end_->send(thread, std::move(content));
    switch (status) {
        case QUORL_OK:
            return status;
        case QUORL_VC_NOT_CONNECTED:
            return end_->notConnected();
        case QUORL_QUEUE_LIMIT:
            return noRoom;
        default:
            return fail(status, "no memory for a message on a circuit");
    }
}

quorl_status CircuitCarrier::deliver(ThreadState& thread, message::ContentRef content) noexcept {
    return end_->router().route(thread, std::move(content));
}

quorl_status CircuitCarrier::listen(Listener& listener) noexcept {
    return guarded([&] { end_->router().add(listener); });
}

void CircuitCarrier::unlisten(Listener& listener) noexcept {
    end_->router().remove(listener);
}

quorl_status CircuitCarrier::openRequest(Request& request) noexcept {
    return guarded([&] { end_->router().add(request); });
}

void CircuitCarrier::closeRequest(Request& request) noexcept {
    end_->router().remove(request);
}

bool CircuitCarrier::awaitRoom(int64_t deadline) noexcept {
    return end_->awaitRoom(deadline);
}

Passage CircuitCarrier::passage(std::string_view, int64_t now) noexcept {
    ThreadState* thread = threadState();
    return thread != nullptr ? end_->passage(*thread, now) : Passage::open(now);
}

void CircuitCarrier::closed(ThreadState& thread) noexcept {
    end_->close(thread);
}

quorl_status CircuitCarrier::whyAborted() const noexcept {
    return end_->isLost() ? end_->notConnected() : Carrier::whyAborted();
}

}  // namespace quorl::transport::circuit
