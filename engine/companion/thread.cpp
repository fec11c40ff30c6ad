// Threads of companions.
#include "companion/thread.h"

#include <new>

#include "base/status.h"
#include "base/thread.h"

namespace quorl::companion {

struct Thread::State {
    quorl::Thread thread;
    void (*body)(void*);
    void* argument;
};

Thread::Thread() noexcept = default;

Thread::~Thread() {
    join();
}

quorl_status Thread::start(const char* name, void (*body)(void* argument), void* argument) noexcept {
    state_.reset(new (std::nothrow) State{{}, body, argument});
    if (state_ == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a thread");
    return state_->thread.start(
        name,
        [](void* state) -> void* {
            auto& its = *static_cast<State*>(state);
            its.body(its.argument);
            return nullptr;
        },
        state_.get());
}

void Thread::join() noexcept {
    if (state_ != nullptr) state_->thread.join();
}

}  // namespace quorl::companion
