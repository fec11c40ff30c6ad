// Starting and joining threads of the library.
#include "base/thread.h"

#include <csignal>
#include <cstring>

#include "base/status.h"
#include "base/thread_state.h"

namespace quorl {
namespace {

void* runPlain(void* body) {
    reinterpret_cast<void (*)()>(body)();
    return nullptr;
}

}  // namespace

void* Thread::enter(void* given) {
    auto* thread = static_cast<Thread*>(given);
    adoptThreadState(*thread->state_);
    return thread->body_(thread->argument_);
}

quorl_status Thread::start(const char* name, void (*body)()) noexcept {
    return start(name, runPlain, reinterpret_cast<void*>(body));
}

quorl_status Thread::start(const char* name, void* (*body)(void*), void* argument) noexcept {
    state_ = reserveThreadState();
    if (state_ == nullptr) return fail(QUORL_NO_MEMORY, "no memory for thread %s", name);
    body_ = body;
    argument_ = argument;
    // A new thread inherits the mask of its creator.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&handle_, nullptr, enter, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        returnThreadState(*state_);
        return fail(QUORL_INIT_FAILURE, "thread %s: %s", name, strerrordesc_np(error));
    }
    pthread_setname_np(handle_, name);
    started_ = true;
    return QUORL_OK;
}

void Thread::join() noexcept {
    if (!started_) return;
    pthread_join(handle_, nullptr);
    started_ = false;
}

}  // namespace quorl
