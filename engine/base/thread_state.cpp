// How threads come to their state and leave it.
#include "base/thread_state.h"

#include <pthread.h>

#include <new>

#include "base/forked.h"
#include "base/mutex.h"
#include "base/thread_slots.h"

namespace quorl {

thread_local constinit ThreadState* currentThreadState [[gnu::tls_model("initial-exec")]] = nullptr;

namespace {

constinit Mutex registration;
constinit bool prepared GUARDED_BY(registration) = false;  // fences and key
pthread_key_t endOfThread;                                 // set once, when prepared
constinit std::atomic<ThreadState*> allStates{nullptr};    // written under registration; only ever grows

void leave(void* given) {
    auto* state = static_cast<ThreadState*>(given);
    // The C library has cleared the key's value; destructors below may come back into the engine, which still finds the
    // state through the thread-local pointer.
    runSlotDestructors(*state);
    for (auto room = state->rooms.rbegin(); room != state->rooms.rend(); ++room) {
        if (room->leave != nullptr) room->leave(room->memory);
    }
    state->callbackDepth = 0;  // of callbacks that ended their thread
    currentThreadState = nullptr;
    state->owned.store(false, std::memory_order_release);
}

}  // namespace

ThreadState* ThreadState::first() noexcept {
    return allStates.load(std::memory_order_seq_cst);
}

void forgetThread() noexcept {
    if (currentThreadState == nullptr) return;
    pthread_setspecific(endOfThread, nullptr);
    currentThreadState = nullptr;
}

ThreadState* reserveThreadState() noexcept {
    if (forked::here()) return nullptr;
    Lock lock(registration);
    if (!prepared) {
        if (pthread_key_create(&endOfThread, leave) != 0) return nullptr;
        fence::prepare();
        prepared = true;
    }
    ThreadState* state = allStates.load(std::memory_order_relaxed);
    while (state != nullptr && state->owned.load(std::memory_order_acquire)) state = state->nextState;
    if (state != nullptr) {
        state->owned.store(true, std::memory_order_relaxed);
        return state;
    }
    state = new (std::nothrow) ThreadState;
    if (state == nullptr) return nullptr;
    state->owned.store(true, std::memory_order_relaxed);
    state->nextState = allStates.load(std::memory_order_relaxed);
    allStates.store(state, std::memory_order_seq_cst);
    return state;
}

void adoptThreadState(ThreadState& state) noexcept {
    // What fails here is the end of the thread alone: the state stays with it for ever.
    pthread_setspecific(endOfThread, &state);
    currentThreadState = &state;
}

void returnThreadState(ThreadState& state) noexcept {
    state.owned.store(false, std::memory_order_release);
}

ThreadState* registerThread() noexcept {
    ThreadState* state = reserveThreadState();
    if (state == nullptr) return nullptr;
    if (pthread_setspecific(endOfThread, state) != 0) {
        returnThreadState(*state);
        return nullptr;
    }
    currentThreadState = state;
    return state;
}

}  // namespace quorl
