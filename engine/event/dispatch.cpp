// Timed dispatch of queues and groups.
#include "event/dispatch.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/alarm.h"
#include "event/dispatch_state.h"
#include "event/group.h"
#include "event/parameters.h"
#include "event/queue.h"
#include "message/traffic.h"

namespace quorl::event {
namespace {

// The point at which a dispatch gives up; the clock is only read when it is asked for.
class Deadline {
  public:
    explicit Deadline(double timeout) noexcept : timeout_(timeout) {}
    bool polls() const noexcept { return timeout_ == 0; }
    int64_t point() noexcept {
        if (!known_) {
            point_ = deadlineAfter(timeout_);
            known_ = true;
        }
        return point_;
    }

  private:
    double timeout_;
    int64_t point_ = 0;
    bool known_ = false;
};

// Whether the calling thread's key holds id; if so it is cleared. The cell is the program's: only its own thread may look
// at it.
bool takeSignal(DispatchState& thread, uint32_t id) noexcept {
    if (thread.key == nullptr) return false;
    std::atomic_ref<uint32_t> cell(*static_cast<uint32_t*>(thread.key));
    uint32_t held = cell.load(std::memory_order_acquire);
    return held == id && cell.compare_exchange_strong(held, 0, std::memory_order_acq_rel, std::memory_order_relaxed);
}

quorl_status interrupted() noexcept {
    return fail(QUORL_INTR, "the dispatch was interrupted by a signal");
}

// ---- callbacks

void releaseBatch(const Batch& batch) noexcept {
    for (uint32_t i = 0; i < batch.count; ++i) {
        if (i == 0 || batch.events[i] != batch.events[i - 1]) registry::releaseReference(*batch.events[i]);
    }
}

// Destroys the messages of a batch but for those that the callback has taken out of its array by setting their entries to
// null. The array is the callback's to write into: it may be sorted, or hold anything; given is what it held before.
void finishBatch(std::array<quorlMsg, QUORL_VECTOR_MAX>& left, std::array<quorlMsg, QUORL_VECTOR_MAX>& given,
                 uint32_t count) noexcept {
    if (std::equal(given.begin(), given.begin() + count, left.begin())) [[likely]] {
        for (uint32_t i = 0; i < count; ++i) message::finishDelivery(given[i]);
        return;
    }
    const std::array<quorlMsg, QUORL_VECTOR_MAX> places = left;
    const std::less<> before;
    std::sort(left.begin(), left.begin() + count, before);
    const auto isLeft = [&](quorlMsg message) {
        return std::binary_search(left.begin(), left.begin() + count, message, before);
    };
    uint32_t nulls = 0;
    uint32_t missing = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (places[i] == nullptr) ++nulls;
        if (!isLeft(given[i])) ++missing;
    }
    // With more missing than nulls, some were overwritten: then a message's own place tells.
    for (uint32_t i = 0; i < count; ++i) {
        if (isLeft(given[i]) || (missing > nulls && places[i] != nullptr)) message::finishDelivery(given[i]);
    }
}

quorl_status runBatch(ThreadState& thread, const Event& event, Batch& batch) noexcept {
    std::array<quorlMsg, QUORL_VECTOR_MAX> messages;
    std::array<quorlMsg, QUORL_VECTOR_MAX> given;
    uint32_t count = 0;
    uint64_t bytes = 0;
    quorl_status status = QUORL_OK;
    for (uint32_t i = 0; i < batch.count; ++i) {
        auto content = message::ContentRef::adopt(batch.contents[i]);
        bytes += content.byteSize();
        const quorl_status made = message::deliver(std::move(content), batch.events[i]->id, &messages[count]);
        if (made == QUORL_OK) {
            given[count] = messages[count];
            ++count;
        } else {
            status = made;
        }
    }
    thread.part<message::Traffic>().received(count, bytes);
    if (count != 0) {
        auto& mine = thread.part<DispatchState>();
        const RunningBatch running{batch, mine.runningBatch};
        mine.runningBatch = &running;
        ++thread.callbackDepth;
        event.vectorCallback(messages.data(), count);
        --thread.callbackDepth;
        mine.runningBatch = running.outer;
        finishBatch(messages, given, count);
    }
    releaseBatch(batch);
    return status;
}

// Runs what was taken and ends the event's pin.
quorl_status run(ThreadState& thread, const Taken& taken, Batch& batch) noexcept {
    Event& event = *taken.event;
    quorl_status status = QUORL_OK;
    switch (event.kind) {
        case Kind::listener: {
            quorlMsg message;
            auto content = message::ContentRef::adopt(taken.content);
            thread.part<message::Traffic>().received(1, content.byteSize());
            status = message::deliver(std::move(content), event.id, &message);
            if (status != QUORL_OK) break;
            ++thread.callbackDepth;
            event.callback(event.id, message, const_cast<void*>(event.arg));
            --thread.callbackDepth;
            message::finishDelivery(message);
            break;
        }
        case Kind::vectorListener:
            status = runBatch(thread, event, batch);
            break;
        case Kind::timer:
            if (event.front.endless.load(std::memory_order_relaxed)) {
                ReadGuard guard(thread);
                push(event, {}, taken.tag);
            }
            ++thread.callbackDepth;
            event.callback(event.id, nullptr, const_cast<void*>(event.arg));
            --thread.callbackDepth;
            break;
        case Kind::taker: {
            auto content = message::ContentRef::adopt(taken.content);
            if (content) thread.part<message::Traffic>().received(1, content.byteSize());
            event.take(thread, event, std::move(content), taken.tag);
            break;
        }
    }
    registry::unpin(thread, &event);
    return status;
}

// ---- sleeping

// Sleeps until woken or until the deadline. remove() takes the waiter off its list if it is still there, under the list's
// lock, and says whether it was.
template <class Remove>
Wake sleep(DispatchState& thread, int64_t deadline, Remove&& remove) noexcept {
    for (;;) {
        const auto wake = static_cast<Wake>(thread.wake.load(std::memory_order_acquire));
        if (wake != asleep) return wake;
        if (!futexWait(thread.wake, asleep, deadline) && remove()) return asleep;
    }
}

// What a woken thread does next.
enum class Next { lookAgain, interrupt };

Next afterSignal(DispatchState& thread, uint32_t id) noexcept {
    return thread.key == nullptr || takeSignal(thread, id) ? Next::interrupt : Next::lookAgain;
}

// ---- spinning

// A thread that goes to sleep and is woken costs itself and the waker microseconds: more than an event costs altogether.
// While events come that fast, one thread of the queue looks out for the next one for a while before it sleeps. It stops
// doing so as soon as that proves futile, so that quiet queues cost nothing.
bool severalProcessors() noexcept {
    static const bool several = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    return several;
}

bool spinForEvent(Queue& queue, uint64_t seen) noexcept {
    const uint32_t budget = queue.spin.load(std::memory_order_relaxed);
    if (budget == 0 || !severalProcessors()) return false;
    if (queue.spinners.exchange(1, std::memory_order_acquire) != 0) return false;
    const int64_t start = monotonicNow();
    bool came = false;
    int64_t spent = 0;
    for (int pauses = 1; !came && spent < budget; pauses = std::min(pauses * 2, 16)) {
        for (int i = 0; i < pauses; ++i) spinPause();
        came = queue.entries.end(std::memory_order_relaxed) != seen;
        spent = monotonicNow() - start;
    }
    queue.spinners.store(0, std::memory_order_release);
    if (!came) queue.spin.store(budget / 2 < 1000 ? 0 : budget / 2, std::memory_order_relaxed);
    return came;
}

// Learns from a sleep that an event ended: a short one would better have been a spin, unless the sender needed this very
// processor to send.
void learnFromSleep(Queue& queue, const DispatchState& thread, int64_t asleepFor) noexcept {
    if (thread.wakerProcessor.load(std::memory_order_relaxed) == sched_getcpu()) return;
    const uint32_t most = environment::parameters().of(parameters::dispatchSpin) * 1000;
    if (asleepFor < 2 * static_cast<int64_t>(most)) queue.spin.store(most, std::memory_order_relaxed);
}

}  // namespace

quorl_status dispatchQueue(uint32_t id, double timeout) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    registry::Pin<Queue> pinned(*thread, id);
    if (!pinned) return environment::noObject(QUORL_INVALID_QUEUE, "queue", id);
    auto& mine = thread->part<DispatchState>();
    if (takeSignal(mine, id)) return interrupted();
    Queue& queue = *pinned;
    Deadline deadline(timeout);
    const uint32_t signalled = queue.signalled.load(std::memory_order_relaxed);
    for (;;) {
        Taken taken;
        Batch batch;
        queue.front.lock.lock();
        const bool found = takeFirst(queue, *thread, &taken, &batch);
        const uint64_t seen = queue.entries.begin();
        queue.front.lock.unlock();
        if (found) {
            if (taken.cleared) [[unlikely]]
                clearAlarms(queue);
            return run(*thread, taken, batch);
        }
        if (deadline.polls()) return fail(QUORL_TIMEOUT, "no event waits in queue %u", id);
        if (spinForEvent(queue, seen)) continue;

        Waiter waiter{&mine};
        {
            Lock lock(queue.back.lock);
            if (queue.back.closed) return fail(QUORL_INVALID_QUEUE, "queue %u was destroyed", id);
            if (takeSignal(mine, id)) return interrupted();
            if (mine.key == nullptr && queue.signalled.load(std::memory_order_relaxed) != signalled)
                return interrupted();
            if (queue.entries.backCount() != seen) continue;
            queue.back.sleepers.add(waiter);
        }
        const int64_t point = deadline.point();
        const int64_t began = monotonicNow();
        const Wake wake = sleep(mine, point, [&] {
            Lock lock(queue.back.lock);
            if (waiter.listed) queue.back.sleepers.remove(waiter);
            return mine.wake.load(std::memory_order_relaxed) == asleep;
        });
        switch (wake) {
            case asleep:
                return fail(QUORL_TIMEOUT, "no event came to queue %u in time", id);
            case wokenForEvent:
                learnFromSleep(queue, mine, monotonicNow() - began);
                break;
            case wokenBySignal:
                if (afterSignal(mine, id) == Next::interrupt) return interrupted();
                break;
            case wokenByClose:
                return fail(QUORL_INVALID_QUEUE, "queue %u was destroyed", id);
        }
    }
}

quorl_status dispatchGroup(uint32_t id, double timeout) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    registry::Pin<Group> pinned(*thread, id);
    if (!pinned) return environment::noObject(QUORL_INVALID_QUEUE_GROUP, "queue group", id);
    auto& mine = thread->part<DispatchState>();
    if (takeSignal(mine, id)) return interrupted();
    Group& group = *pinned;
    Deadline deadline(timeout);
    const uint32_t signalled = group.signalled.load(std::memory_order_relaxed);
    for (;;) {
        Taken taken;
        Batch batch;
        Queue* queue = nullptr;
        Waiter waiter{&mine};
        {
            Lock lock(group.lock);
            if (group.closed) return fail(QUORL_INVALID_QUEUE_GROUP, "queue group %u was destroyed", id);
            if (!takeFrom(group, *thread, &queue, &taken, &batch)) {
                if (deadline.polls()) return fail(QUORL_TIMEOUT, "no event waits in queue group %u", id);
                if (takeSignal(mine, id)) return interrupted();
                if (mine.key == nullptr && group.signalled.load(std::memory_order_relaxed) != signalled)
                    return interrupted();
                group.sleepers.add(waiter);
                group.sleeping.store(group.sleeping.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
                if (anythingWaits(group)) {
                    group.sleepers.remove(waiter);
                    group.sleeping.store(group.sleeping.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
                    continue;
                }
            }
        }
        if (taken.event != nullptr) {
            if (taken.cleared) [[unlikely]]
                clearAlarms(*queue);
            const quorl_status status = run(*thread, taken, batch);
            registry::unpin(*thread, queue);
            return status;
        }
        const Wake wake = sleep(mine, deadline.point(), [&] {
            Lock lock(group.lock);
            if (waiter.listed) {
                group.sleepers.remove(waiter);
                group.sleeping.store(group.sleeping.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
            }
            return mine.wake.load(std::memory_order_relaxed) == asleep;
        });
        switch (wake) {
            case asleep:
                return fail(QUORL_TIMEOUT, "no event came to queue group %u in time", id);
            case wokenForEvent:
                break;
            case wokenBySignal:
                if (afterSignal(mine, id) == Next::interrupt) return interrupted();
                break;
            case wokenByClose:
                return fail(QUORL_INVALID_QUEUE_GROUP, "queue group %u was destroyed", id);
        }
    }
}

quorl_status setThreadKey(void* key) noexcept {
    if (reinterpret_cast<uintptr_t>(key) % alignof(uint32_t) != 0)
        return fail(QUORL_INVALID_ARG, "the key is not aligned to 4 bytes");
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    thread->part<DispatchState>().key = key;
    return QUORL_OK;
}

quorl_status signalDispatchable(uint32_t id) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    // Each of the woken threads looks at its own key: no other thread may.
    if (auto* queue = registry::find<Queue>(id)) {
        Lock lock(queue->back.lock);
        queue->signalled.fetch_add(1, std::memory_order_relaxed);
        queue->back.sleepers.wakeAll(wokenBySignal);
        return QUORL_OK;
    }
    if (auto* group = registry::find<Group>(id)) {
        Lock lock(group->lock);
        group->signalled.fetch_add(1, std::memory_order_relaxed);
        group->sleepers.wakeAll(wokenBySignal);
        group->sleeping.store(0, std::memory_order_relaxed);
        return QUORL_OK;
    }
    return environment::noObject(QUORL_INVALID_DISPATCHABLE, "queue or queue group", id);
}

}  // namespace quorl::event
