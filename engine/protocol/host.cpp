// The host's thread, and the table of its guests.
#include "protocol/host.h"

#include <algorithm>
#include <new>
#include <string>
#include <unordered_map>

#include "base/clock.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/dispatch.h"
#include "event/queue.h"

namespace quorl::protocol {

struct Host::State {
    std::unordered_map<uint64_t, GuestRef> guests;  // by token
    uint64_t lastToken = 0;
    DueHeap<Guest> due;  // has room for all guests
    std::vector<Posted> posted;
};

namespace {

// Of a count that one thread alone changes.
void increment(std::atomic<uint64_t>& count) noexcept {
    count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// No default limit may drop what came in; the name is for the statistics.
void prepareQueue(uint32_t id, const char* name) noexcept {
    ReadGuard guard(*threadState());
    auto* queue = registry::find<event::Queue>(id);
    if (queue == nullptr) return;
    event::setLimit(*queue, {});
    try {
        std::string text = name;
        Lock lock(queue->nameLock);
        queue->name.swap(text);
    } catch (const std::bad_alloc&) {
        // It goes without.
    }
}

}  // namespace

quorl_status Host::makeReady() noexcept {
    if (!registry::accepting()) return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    if (state_ == nullptr) state_ = new (std::nothrow) State;
    if (state_ == nullptr) return fail(QUORL_NO_MEMORY, "no memory for %s", queueName_);
    if (thread_.started()) return QUORL_OK;
    if (threadState() == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    uint32_t queue = 0;
    if (const quorl_status status = event::createQueue(&queue); status != QUORL_OK) return status;
    prepareQueue(queue, queueName_);
    stopping_.store(false, std::memory_order_relaxed);
    sleepsUntil_.store(INT64_MAX, std::memory_order_relaxed);
    queue_.store(queue, std::memory_order_release);
    const quorl_status status = thread_.start(
        threadName_,
        [](void* host) -> void* {
            static_cast<Host*>(host)->run();
            return nullptr;
        },
        this);
    if (status == QUORL_OK) return status;
    queue_.store(0, std::memory_order_relaxed);
    KeptErrorText kept;
    event::destroyQueue(queue, nullptr, nullptr, false);
    return status;
}

quorl_status Host::add(const GuestRef& guest) noexcept {
    try {
        Lock lock(lock_);
        if (const quorl_status status = makeReady(); status != QUORL_OK) return status;
        state_->due.reserve(state_->guests.size() + 1);
        const uint64_t token = state_->lastToken + 1;
        state_->guests.emplace(token, guest);
        state_->lastToken = token;
        guest->token_ = token;
        count_.fetch_add(1, std::memory_order_relaxed);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for %s", queueName_);
    }
}

void Host::remove(uint64_t token) noexcept {
    GuestRef last;  // its end may take other locks
    Lock lock(lock_);
    if (state_ == nullptr) return;
    const auto found = state_->guests.find(token);
    if (found == state_->guests.end()) return;
    last = std::move(found->second);
    state_->guests.erase(found);
    forget(*last);
}

void Host::forget(Guest& guest) noexcept {
    state_->due.remove(guest);
    // What is scheduled from now on finds it scheduled already.
    guest.scheduled_.store(INT64_MIN, std::memory_order_relaxed);
    count_.fetch_sub(1, std::memory_order_relaxed);
}

GuestRef Host::find(uint64_t token) noexcept {
    Lock lock(lock_);
    if (state_ == nullptr) return nullptr;
    const auto found = state_->guests.find(token);
    return found == state_->guests.end() ? nullptr : found->second;
}

std::vector<GuestRef> Host::guests(bool (*matches)(void* asked, const Guest& guest), void* asked) noexcept {
    std::vector<GuestRef> found;
    Lock lock(lock_);
    if (state_ == nullptr) return found;
    try {
        for (const auto& [token, guest] : state_->guests) {
            if (matches(asked, *guest)) found.push_back(guest);
        }
    } catch (const std::bad_alloc&) {
        found.clear();
    }
    return found;
}

uint32_t Host::waiting(ThreadState& thread) const noexcept {
    ReadGuard guard(thread);
    auto* queue = registry::find<event::Queue>(queue_.load(std::memory_order_acquire));
    return queue != nullptr ? event::countOf(*queue) : 0;
}

void Host::wakeThread() noexcept {
    const uint32_t queue = queue_.load(std::memory_order_acquire);
    if (queue == 0) return;
    KeptErrorText kept;
    key_.store(queue, std::memory_order_seq_cst);
    event::signalDispatchable(queue);
}

// Whether the thread has to be woken for it.
bool Host::scheduleLocked(Guest& guest, int64_t due) noexcept {
    if (due >= guest.scheduled_.load(std::memory_order_relaxed)) return false;
    guest.scheduled_.store(due, std::memory_order_release);
    state_->due.set(guest, due);
    if (due >= sleepsUntil_.load(std::memory_order_relaxed)) return false;
    sleepsUntil_.store(due, std::memory_order_relaxed);
    // The thread itself comes round to it before it sleeps.
    return currentThreadState != runner_.load(std::memory_order_relaxed);
}

void Host::schedule(Guest& guest, int64_t due) noexcept {
    if (due >= guest.scheduled_.load(std::memory_order_acquire)) return;
    bool wake;
    {
        Lock lock(lock_);
        wake = scheduleLocked(guest, due);
    }
    if (wake) wakeThread();
}

void Host::wakeAll(bool (*matches)(void* asked, const Guest& guest), void* asked) noexcept {
    const int64_t now = monotonicNow();
    bool wake = false;
    {
        Lock lock(lock_);
        if (state_ == nullptr) return;
        for (const auto& [token, guest] : state_->guests) {
            if (matches(asked, *guest) && scheduleLocked(*guest, now)) wake = true;
        }
    }
    if (wake) wakeThread();
}

bool Host::post(uint64_t guest, uint64_t token) noexcept {
    try {
        Lock lock(lock_);
        if (state_ == nullptr) return false;
        state_->posted.push_back({guest, token});
        anyPosted_.store(true, std::memory_order_release);
    } catch (const std::bad_alloc&) {
        return false;
    }
    wakeThread();
    return true;
}

GuestRef Host::takeDue(int64_t now, int64_t* next) noexcept {
    Lock lock(lock_);
    auto& due = state_->due;
    *next = due.empty() ? INT64_MAX : due.first()->heapDue;
    // Whoever sets an earlier time from now on wakes the thread.
    sleepsUntil_.store(*next, std::memory_order_relaxed);
    if (*next > now) return nullptr;
    Guest& first = *due.first();
    due.remove(first);
    // It sets its next time itself, once it is awake.
    first.scheduled_.store(INT64_MAX, std::memory_order_release);
    return state_->guests.find(first.token_)->second;
}

void Host::handlePosted(ThreadState& thread) noexcept {
    if (!anyPosted_.load(std::memory_order_acquire)) return;
    std::vector<Posted> posted;
    {
        Lock lock(lock_);
        posted.swap(state_->posted);
        anyPosted_.store(false, std::memory_order_relaxed);
    }
    for (const Posted& each : posted) {
        if (const GuestRef guest = find(each.guest)) guest->persisted(thread, each.token);
    }
}

// As many as were due at once: what comes in is not kept waiting by guests that are due again and again.
int64_t Host::wakeThoseDue(ThreadState& thread, int64_t now) noexcept {
    int64_t next;
    for (uint32_t left = count(); GuestRef guest = takeDue(now, &next);) {
        guest->wake(thread);
        increment(woken_);
        if (left-- == 0) break;
    }
    return next;
}

void Host::run() noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    runner_.store(thread, std::memory_order_relaxed);
    event::setThreadKey(&key_);
    const uint32_t queue = queue_.load(std::memory_order_acquire);
    while (!stopping_.load(std::memory_order_acquire)) {
        increment(turns_);
        handlePosted(*thread);
        double timeout = -1;
        if (int64_t next = sleepsUntil_.load(std::memory_order_relaxed); next != INT64_MAX) {
            const int64_t now = monotonicNow();
            if (next <= now) next = wakeThoseDue(*thread, now);
            if (next != INT64_MAX) timeout = static_cast<double>(std::max<int64_t>(next - now, 0)) / 1e9;
        }
        const quorl_status status = event::dispatchQueue(queue, timeout);
        if (status == QUORL_OK) ++handled_;
        if (status == QUORL_INVALID_QUEUE || status == QUORL_NOT_INITIALIZED) break;
    }
    event::setThreadKey(nullptr);
    runner_.store(nullptr, std::memory_order_relaxed);
}

// The state itself is kept, and while the library closes nobody starts the thread: it is safe to join it without the lock,
// which it may need to end.
void Host::stop() noexcept {
    {
        Lock lock(lock_);
        if (state_ == nullptr || !thread_.started()) return;
    }
    stopping_.store(true, std::memory_order_release);
    wakeThread();
    thread_.join();
    event::destroyQueue(queue_.exchange(0, std::memory_order_acq_rel), nullptr, nullptr, false);
    std::unordered_map<uint64_t, GuestRef> left;  // their ends may take other locks
    Lock lock(lock_);
    left.swap(state_->guests);
    for (const auto& [token, guest] : left) forget(*guest);
    state_->posted.clear();
    anyPosted_.store(false, std::memory_order_relaxed);
}

}  // namespace quorl::protocol
