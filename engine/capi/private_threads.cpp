// Thread-local slots, conditions and mutexes for language bindings.
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

#include "base/forked.h"
#include "base/status.h"
#include "base/thread_slots.h"
#include "base/thread_state.h"
#include "quorl/private.h"

using namespace quorl;

struct __quorlCondition {
    pthread_cond_t condition;
    // How many signals were made. POSIX lets a wait end without one, so the count decides: a binding may wait once, with
    // nothing of its own to test.
    std::atomic<uint32_t> signals{0};
};

namespace {

// Valid keys are 1 to the number of slots made.
bool validKey(_quorlThreadLocal key) noexcept {
    return key - 1 < threadSlotsInUse();
}

quorl_status noSuchSlot(_quorlThreadLocal key) noexcept {
    return fail(QUORL_INVALID_ARG, "thread-local slot %u does not exist", key);
}

quorl_status noThreadState() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
}

quorl_status refuseForked() noexcept {
    return fail(QUORL_NOT_PERMITTED, "a forked process");
}

}  // namespace

extern "C" {

quorl_status _quorlThreadLocal_Create(_quorlThreadLocal* key) noexcept {
    return _quorlThreadLocal_CreateEx(key, nullptr);
}

quorl_status _quorlThreadLocal_CreateEx(_quorlThreadLocal* key, void (*destructor)(void*)) noexcept {
    if (key == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the slot is null");
    return createThreadSlot(key, destructor);
}

quorl_status _quorlThreadLocal_Set(_quorlThreadLocal key, void* value) noexcept {
    if (!validKey(key)) return noSuchSlot(key);
    ThreadState* state = threadState();
    if (state == nullptr) return noThreadState();
    state->slots[key - 1] = value;
    return QUORL_OK;
}

quorl_status _quorlThreadLocal_Get(_quorlThreadLocal key, void** value) noexcept {
    if (value == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the value is null");
    if (!validKey(key)) return noSuchSlot(key);
    ThreadState* state = threadState();
    if (state == nullptr) return noThreadState();
    *value = state->slots[key - 1];
    return QUORL_OK;
}

quorl_status _quorlMutex_Create(_quorlMutex* mutex) noexcept {
    if (mutex == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the mutex is null");
    if (forked::here()) return refuseForked();
    auto* made = new (std::nothrow) __quorlMutex{};
    if (made == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a mutex");
    if (pthread_mutex_init(&made->mutex, nullptr) != 0) {
        delete made;
        return fail(QUORL_NO_MEMORY, "the system provides no mutex");
    }
    *mutex = made;
    return QUORL_OK;
}

quorl_status _quorlMutex_Destroy(_quorlMutex mutex) noexcept {
    if (mutex == nullptr) return fail(QUORL_INVALID_ARG, "the mutex is null");
    if (forked::here()) return refuseForked();
    // POSIX leaves the destruction of a locked mutex undefined, so it is looked for first.
    if (pthread_mutex_trylock(&mutex->mutex) != 0) return fail(QUORL_NOT_PERMITTED, "the mutex is locked");
    pthread_mutex_unlock(&mutex->mutex);
    pthread_mutex_destroy(&mutex->mutex);
    delete mutex;
    return QUORL_OK;
}

quorl_status _quorlCondition_Create(_quorlCondition* condition) noexcept {
    if (condition == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the condition is null");
    if (forked::here()) return refuseForked();
    auto* made = new (std::nothrow) __quorlCondition{};
    if (made == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a condition");
    if (pthread_cond_init(&made->condition, nullptr) != 0) {
        delete made;
        return fail(QUORL_NO_MEMORY, "the system provides no condition");
    }
    *condition = made;
    return QUORL_OK;
}

quorl_status _quorlCondition_Destroy(_quorlCondition condition) noexcept {
    if (condition == nullptr) return fail(QUORL_INVALID_ARG, "the condition is null");
    if (forked::here()) return refuseForked();
    pthread_cond_destroy(&condition->condition);
    delete condition;
    return QUORL_OK;
}

quorl_status _quorlCondition_Wait(_quorlCondition condition, _quorlMutex mutex) noexcept {
    if (condition == nullptr || mutex == nullptr) return fail(QUORL_INVALID_ARG, "the condition or the mutex is null");
    if (forked::here()) return refuseForked();
    const uint32_t before = condition->signals.load();
    int error = 0;
    while (error == 0 && condition->signals.load() == before) {
        error = pthread_cond_wait(&condition->condition, &mutex->mutex);
    }
    return error == 0 ? QUORL_OK : fail(QUORL_OS_ERROR, "pthread_cond_wait: %s", strerrordesc_np(error));
}

quorl_status _quorlCondition_Signal(_quorlCondition condition) noexcept {
    if (condition == nullptr) return fail(QUORL_INVALID_ARG, "the condition is null");
    if (forked::here()) return refuseForked();
    condition->signals.fetch_add(1);
    const int error = pthread_cond_signal(&condition->condition);
    return error == 0 ? QUORL_OK : fail(QUORL_OS_ERROR, "pthread_cond_signal: %s", strerrordesc_np(error));
}

}  // extern "C"
