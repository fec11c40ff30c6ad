// Counting opens, and the way between closed and open.
#include "base/environment.h"

#include <pthread.h>

#include <new>

#include "base/forked.h"
#include "base/futex.h"
#include "base/mutex.h"
#include "base/reclaimer.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread_state.h"

namespace quorl::environment {
namespace {

enum Phase : uint32_t { closed, opened, stopping };

constinit Mutex guard;  // held through start, not through stop
constinit uint32_t openCount GUARDED_BY(guard) = 0;
// Written under the lock, read by anyone; threads that wait for the end of stop sleep on it.
constinit std::atomic<uint32_t> phase{closed};
// Made on first use, and kept.
struct Settings {
    std::vector<const Parameter*> known;
    ParameterSet set;
};
constinit Settings* settings GUARDED_BY(guard) = nullptr;

ParameterSet* parameterSetMade(Modules modules) noexcept REQUIRES(guard) {
    if (settings != nullptr) return &settings->set;
    try {
        std::vector<const Parameter*> known;
        for (const Module* module : modules)
            known.insert(known.end(), module->parameters.begin(), module->parameters.end());
        ParameterSet set(known);
        settings = new Settings{std::move(known), std::move(set)};
        return &settings->set;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool insideCallback() noexcept {
    const ThreadState* state = currentThreadState;
    return state != nullptr && state->callbackDepth != 0;
}

constinit Modules forgetful;  // those of the first open; set before forks are watched

// In the child of a fork, on its only thread. When the library is closed nothing of it runs, and the child may open it.
void afterFork() noexcept UNCHECKED_GUARDS {
    if (phase.load(std::memory_order_relaxed) == closed && guard.try_lock()) {
        guard.unlock();
        return;
    }
    forked::flag.store(true, std::memory_order_relaxed);
    phase.store(closed, std::memory_order_relaxed);
    forgetThread();
    for (const Module* module : forgetful) {
        if (module->forget != nullptr) module->forget();
    }
}

quorl_status watchForks(Modules modules) noexcept REQUIRES(guard) {
    if (!forgetful.empty()) return QUORL_OK;
    if (pthread_atfork(nullptr, nullptr, afterFork) != 0) return fail(QUORL_NO_MEMORY, "no memory to watch for forks");
    forgetful = modules;
    return QUORL_OK;
}

// No lock is held but, after a start that failed, guard, for which nobody waits then.
quorl_status stop(Modules modules) noexcept {
    registry::end();
    for (auto module = modules.rbegin(); module != modules.rend(); ++module) {
        if ((*module)->close != nullptr) (*module)->close();
    }
    reclaimer::finish();
    quorl_status status = QUORL_OK;
    for (auto module = modules.rbegin(); module != modules.rend(); ++module) {
        const quorl_status stopped = (*module)->stop != nullptr ? (*module)->stop() : QUORL_OK;
        if (status == QUORL_OK) status = stopped;
    }
    return status;
}

quorl_status start(Modules modules) noexcept {
    if (threadState() == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    quorl_status status = reclaimer::start();
    if (status != QUORL_OK) return status;
    registry::begin();
    for (const Module* module : modules) {
        if (module->start != nullptr && status == QUORL_OK) status = module->start();
    }
    if (status != QUORL_OK) {
        const KeptErrorText kept;
        stop(modules);
    }
    return status;
}

}  // namespace

quorl_status open(Modules modules, const char* path) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    for (;;) {
        guard.lock();
        if (phase.load(std::memory_order_relaxed) != stopping) break;
        guard.unlock();
        if (insideCallback())
            return fail(QUORL_INIT_FAILURE, "the library is being closed, and waits for this callback");
        futexWait(phase, stopping);
    }
    quorl_status status = QUORL_OK;
    ParameterSet* parameters = parameterSetMade(modules);
    const bool first = openCount == 0;
    if (parameters == nullptr) status = fail(QUORL_NO_MEMORY, "no memory for the parameters");
    if (status == QUORL_OK && path != nullptr) status = parameters->read(path, !first);
    if (status == QUORL_OK && first) status = watchForks(modules);
    if (status == QUORL_OK && first) {
        status = start(modules);
        if (status != QUORL_OK) parameters->forgetFiles();
    }
    if (status == QUORL_OK) {
        ++openCount;
        phase.store(opened, std::memory_order_release);
    }
    guard.unlock();
    return status;
}

quorl_status close(Modules modules) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    {
        Lock lock(guard);
        if (phase.load(std::memory_order_relaxed) != opened)
            return fail(QUORL_NOT_INITIALIZED, "the library is not open");
        if (openCount == 1 && insideCallback())
            return fail(QUORL_NOT_PERMITTED,
                        "the last close cannot be called inside a callback: it waits for all of them");
        if (--openCount != 0) return QUORL_OK;
        phase.store(stopping, std::memory_order_release);
    }
    const quorl_status status = stop(modules);
    {
        Lock lock(guard);
        settings->set.forgetFiles();
        phase.store(closed, std::memory_order_release);
    }
    futexWake(phase, INT32_MAX);
    return status;
}

quorl_status setParameters(Modules modules, const std::vector<std::string_view>& given) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    if (given.empty()) return QUORL_OK;
    Lock lock(guard);
    if (phase.load(std::memory_order_relaxed) != closed)
        return fail(QUORL_NOT_PERMITTED, "parameters can be set only before the library is opened");
    ParameterSet* parameters = parameterSetMade(modules);
    if (parameters == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the parameters");
    return parameters->set(given);
}

bool isOpen() noexcept {
    return phase.load(std::memory_order_acquire) == opened;
}

bool isOpenWithout(const TextParameter& parameter) noexcept {
    if (!isOpen()) return false;
    Lock lock(guard);
    return phase.load(std::memory_order_relaxed) == opened && settings->set.values().of(parameter).empty();
}

// They do not change while the library is open.
const Parameters& parameters() noexcept UNCHECKED_GUARDS {
    return settings->set.values();
}

quorl_status noObject(quorl_status status, const char* kind, quorl_u32 id) noexcept {
    if (!isOpen()) return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    return fail(status, "%s %u does not exist or has been destroyed", kind, id);
}

quorl_status requireOpen() noexcept {
    return isOpen() ? QUORL_OK : fail(QUORL_NOT_INITIALIZED, "the library is not open");
}

}  // namespace quorl::environment
