// Starting and joining threads of the library.
#include "base/thread.h"

#include <csignal>
#include <cstring>

#include "base/status.h"

namespace quorl {
namespace {

void* enter(void* body) {
    reinterpret_cast<void (*)()>(body)();
    return nullptr;
}

}  // namespace

quorl_status Thread::start(const char* name, void (*body)()) noexcept {
    return start(name, enter, reinterpret_cast<void*>(body));
}

quorl_status Thread::start(const char* name, void* (*body)(void*), void* argument) noexcept {
    // A new thread inherits the mask of its creator.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&handle_, nullptr, body, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) return fail(QUORL_INIT_FAILURE, "thread %s: %s", name, strerrordesc_np(error));
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
