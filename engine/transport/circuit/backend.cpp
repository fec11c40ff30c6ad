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

quorl_status CircuitBackend::check(std::string_view subject) const noexcept {
    return Router::check(subject);
}

quorl_status CircuitBackend::send(ThreadState& thread, message::ContentRef content) noexcept {
    if (const quorl_status status = Router::check(content.sendSubject()); status != QUORL_OK) return status;
    if (const quorl_status status = local::checkReply(content.replySubject()); status != QUORL_OK) return status;
    if (content.byteSize() > end_->largest())
        return fail(QUORL_INVALID_SIZE, "the circuit carries messages of at most %u bytes, and this one has %u",
                    end_->largest(), content.byteSize());
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

quorl_status CircuitBackend::deliver(ThreadState& thread, message::ContentRef content) noexcept {
    return end_->router().route(thread, std::move(content));
}

quorl_status CircuitBackend::listen(Listener& listener) noexcept {
    return guarded([&] { end_->router().add(listener); });
}

void CircuitBackend::unlisten(Listener& listener) noexcept {
    end_->router().remove(listener);
}

quorl_status CircuitBackend::openRequest(Request& request) noexcept {
    return guarded([&] { end_->router().add(request); });
}

void CircuitBackend::closeRequest(Request& request) noexcept {
    end_->router().remove(request);
}

Passage CircuitBackend::passage(std::string_view, int64_t now) noexcept {
    ThreadState* thread = threadState();
    return thread != nullptr ? end_->passage(*thread, now) : Passage::open(now);
}

void CircuitBackend::closed(ThreadState& thread) noexcept {
    end_->close(thread);
}

quorl_status CircuitBackend::whyAborted() const noexcept {
    return end_->observers().isLost() ? end_->notConnected() : Backend::whyAborted();
}

}  // namespace quorl::transport::circuit
