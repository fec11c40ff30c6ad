// Counting opens, and the way between closed and open.
#include "base/environment.h"

#include <pthread.h>

#include <new>

#include "base/forked.h"
#include "base/futex.h"
#include "base/mutex.h"
#include "base/status.h"
#include "base/thread_state.h"

namespace quorl::environment {
namespace {

enum Phase : uint32_t { closed, opened, stopping };

constinit Mutex guard;  // held through start, not through stop
constinit uint32_t openCount GUARDED_BY(guard) = 0;
// Written under the lock, read by anyone; threads that wait for the end of stop sleep on it.
constinit std::atomic<uint32_t> phase{closed};
constinit ParameterSet* parameterSet GUARDED_BY(guard) = nullptr;  // made on first use, and kept
constinit std::atomic<bool> readyCheckOff{false};

ParameterSet* parameterSetMade() noexcept REQUIRES(guard) {
    if (parameterSet == nullptr) parameterSet = new (std::nothrow) ParameterSet;
    return parameterSet;
}

bool insideCallback() noexcept {
    const ThreadState* state = currentThreadState;
    return state != nullptr && state->callbackDepth != 0;
}

using ForgetMessages = void (*)() noexcept;
constinit ForgetMessages forgetMessages = nullptr;  // set before forks are watched

// In the child of a fork, on its only thread. When the library is closed nothing of it runs, and the child may open it.
void afterFork() noexcept UNCHECKED_GUARDS {
    if (phase.load(std::memory_order_relaxed) == closed && guard.try_lock()) {
        guard.unlock();
        return;
    }
    forked::flag.store(true, std::memory_order_relaxed);
    phase.store(closed, std::memory_order_relaxed);
    forgetThread();
    forgetMessages();
}

quorl_status watchForks(const Engine& engine) noexcept REQUIRES(guard) {
    if (forgetMessages != nullptr) return QUORL_OK;
    if (pthread_atfork(nullptr, nullptr, afterFork) != 0) return fail(QUORL_NO_MEMORY, "no memory to watch for forks");
    forgetMessages = engine.forgetMessages;
    return QUORL_OK;
}

}  // namespace

quorl_status open(const Engine& engine, const char* path) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    for (;;) {
        guard.lock();
        if (phase.load(std::memory_order_relaxed) != stopping) break;
        guard.unlock();
        if (insideCallback()) return fail(QUORL_INIT_FAILURE, "the library closes and waits for this callback");
        futexWait(phase, stopping);
    }
    quorl_status status = QUORL_OK;
    ParameterSet* parameters = parameterSetMade();
    const bool first = openCount == 0;
    if (parameters == nullptr) status = fail(QUORL_NO_MEMORY, "no memory for the parameters");
    if (status == QUORL_OK && path != nullptr) status = parameters->read(path, !first);
    if (status == QUORL_OK && first) status = watchForks(engine);
    if (status == QUORL_OK && first) {
        status = engine.start();
        if (status != QUORL_OK) parameters->forgetFiles();
    }
    if (status == QUORL_OK) {
        ++openCount;
        phase.store(opened, std::memory_order_release);
    }
    guard.unlock();
    return status;
}

quorl_status close(const Engine& engine) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    {
        Lock lock(guard);
        if (phase.load(std::memory_order_relaxed) != opened)
            return fail(QUORL_NOT_INITIALIZED, "the library is not open");
        if (openCount == 1 && insideCallback())
            return fail(QUORL_NOT_PERMITTED, "the last close would wait for the callback that calls it");
        if (--openCount != 0) return QUORL_OK;
        phase.store(stopping, std::memory_order_release);
    }
    const quorl_status status = engine.stop();
    {
        Lock lock(guard);
        parameterSet->forgetFiles();
        phase.store(closed, std::memory_order_release);
    }
    futexWake(phase, INT32_MAX);
    return status;
}

quorl_status setParameters(const std::vector<std::string_view>& settings) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    if (settings.empty()) return QUORL_OK;
    Lock lock(guard);
    if (phase.load(std::memory_order_relaxed) != closed)
        return fail(QUORL_NOT_PERMITTED, "parameters are set before the library is opened");
    ParameterSet* parameters = parameterSetMade();
    if (parameters == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the parameters");
    return parameters->set(settings);
}

bool isOpen() noexcept {
    return phase.load(std::memory_order_acquire) == opened;
}

bool isIpm() noexcept {
    if (!isOpen()) return false;
    Lock lock(guard);
    return phase.load(std::memory_order_relaxed) == opened && parameterSet->values().daemon.empty();
}

// They do not change while the library is open.
const Parameters& parameters() noexcept UNCHECKED_GUARDS {
    return parameterSet->values();
}

void disableReadyCheck() noexcept {
    readyCheckOff.store(true, std::memory_order_relaxed);
}

bool readyCheckDisabled() noexcept {
    return readyCheckOff.load(std::memory_order_relaxed);
}

quorl_status noObject(quorl_status status, const char* kind, quorl_u32 id) noexcept {
    if (!isOpen()) return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    return fail(status, "%u is no %s that lives", id, kind);
}

quorl_status requireOpen() noexcept {
    return isOpen() ? QUORL_OK : fail(QUORL_NOT_INITIALIZED, "the library is not open");
}

}  // namespace quorl::environment
