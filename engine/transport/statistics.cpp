// Gathering the statistics.
#include "transport/statistics.h"

#include <unistd.h>

#include <atomic>
#include <new>
#include <vector>

#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"
#include "message/delivery.h"
#include "message/traffic.h"

namespace quorl::transport::statistics {
namespace {

constinit Mutex adding;
constinit std::atomic<Part*> parts{nullptr};  // the newest first; only ever grows

constexpr size_t mostQueues = 4096;  // described one by one

// What lives, found in one walk over the registry.
struct Census {
    uint32_t listeners = 0;
    uint32_t vectorListeners = 0;
    uint32_t timers = 0;
    uint32_t queues = 0;
    uint32_t groups = 0;
    uint32_t transports = 0;
    uint32_t others = 0;
    std::vector<uint32_t> queueIds;  // the first mostQueues
    bool complete = true;            // whether there was memory for the ids
};

void countEvent(Census& census, uint32_t id) noexcept {
    const auto* event = registry::find<event::Event>(id);
    if (event == nullptr) return;
    switch (event->kind) {
        case event::Kind::listener:
        case event::Kind::taker:
            ++census.listeners;
            break;
        case event::Kind::vectorListener:
            ++census.vectorListeners;
            break;
        case event::Kind::timer:
            ++census.timers;
            break;
    }
}

void count(void* closure, uint32_t id, uint16_t type) {
    auto& census = *static_cast<Census*>(closure);
    switch (type) {
        case QUORL_OBJECT_EVENT:
            countEvent(census, id);
            break;
        case QUORL_OBJECT_QUEUE:
            ++census.queues;
            try {
                if (census.queueIds.size() < mostQueues) census.queueIds.push_back(id);
            } catch (const std::bad_alloc&) {
                census.complete = false;
            }
            break;
        case QUORL_OBJECT_QUEUE_GROUP:
            ++census.groups;
            break;
        case QUORL_OBJECT_TRANSPORT:
            ++census.transports;
            break;
        default:
            ++census.others;
    }
}

void addSeconds(message::Builder& message, const char* name, int64_t nanoseconds) noexcept {
    message.f64(name, static_cast<double>(nanoseconds) * 1e-9);
}

void describe(message::Builder& message, event::Queue& queue) noexcept {
    event::QueueFigures figures;
    event::figuresOf(queue, &figures);
    message.u32("queue", queue.id)
        .u32("priority", queue.priority.load(std::memory_order_relaxed))
        .u64("waiting", figures.waiting)
        .u64("most_waiting", figures.mostWaiting)
        .u64("dispatched", figures.taken)
        .u64("dropped", figures.dropped)
        .u64("refused", figures.refused)
        .u32("policy", static_cast<uint32_t>(figures.limit.policy))
        .u32("max_events", figures.limit.maxEvents)
        .u32("discard_amount", figures.limit.discardAmount);
    Lock lock(queue.nameLock);
    message.text("name", queue.name);
}

void addQueues(message::Builder& message, const std::vector<uint32_t>& ids) noexcept {
    try {
        std::vector<message::ContentRef> described;
        described.reserve(ids.size());
        for (const uint32_t id : ids) {
            auto* queue = registry::find<event::Queue>(id);
            if (queue == nullptr) continue;
            message::Builder one;
            describe(one, *queue);
            message.fails(one.content(&described.emplace_back()));
            if (message.status() != QUORL_OK) return;
        }
        message.messages("queues", described);
    } catch (const std::bad_alloc&) {
        message.fails(fail(QUORL_NO_MEMORY, "no memory for the queues' statistics"));
    }
}

void addObjects(message::Builder& message, const Census& census, uint64_t messages) noexcept {
    message::Builder objects;
    objects.u32("listeners", census.listeners)
        .u32("vector_listeners", census.vectorListeners)
        .u32("timers", census.timers)
        .u32("queues", census.queues)
        .u32("queue_groups", census.groups)
        .u32("transports", census.transports)
        .u32("others", census.others)
        .u64("messages", messages);
    message.message("objects", objects);
}

void addTraffic(message::Builder& message) noexcept {
    uint64_t messagesOut = 0;
    uint64_t bytesOut = 0;
    uint64_t messagesIn = 0;
    uint64_t bytesIn = 0;
    for (const ThreadState* thread = ThreadState::first(); thread != nullptr; thread = thread->nextState) {
        const auto* traffic = thread->findPart<message::Traffic>();
        if (traffic == nullptr) continue;
        messagesOut += traffic->messagesOut.load(std::memory_order_relaxed);
        bytesOut += traffic->bytesOut.load(std::memory_order_relaxed);
        messagesIn += traffic->messagesIn.load(std::memory_order_relaxed);
        bytesIn += traffic->bytesIn.load(std::memory_order_relaxed);
    }
    message.u64("messages_out", messagesOut)
        .u64("bytes_out", bytesOut)
        .u64("messages_in", messagesIn)
        .u64("bytes_in", bytesIn);
}

void addLag(message::Builder& message) noexcept {
    const Histogram::Summary summary = event::dispatchLag();
    message::Builder lag;
    lag.u64("samples", summary.count);
    addSeconds(lag, "p50", summary.p50);
    addSeconds(lag, "p90", summary.p90);
    addSeconds(lag, "p99", summary.p99);
    addSeconds(lag, "p999", summary.p999);
    addSeconds(lag, "max", summary.most);
    message.message("lag", lag);
}

}  // namespace

void fill(message::Builder& message) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return message.fails(fail(QUORL_NO_MEMORY, "no memory for the thread's state"));
    // Without the message that is filled, and those made on the way.
    const uint64_t messages = message::liveMessages() - 1;
    message.text("version", QUORL_VERSION).u32("process", static_cast<uint32_t>(getpid()));
    addTraffic(message);
    addLag(message);
    {
        ReadGuard guard(*thread);
        Census census;
        registry::forEachOpen(count, &census);
        if (!census.complete) return message.fails(fail(QUORL_NO_MEMORY, "no memory for the queues' statistics"));
        addObjects(message, census, messages);
        addQueues(message, census.queueIds);
    }
    const Part* part = parts.load(std::memory_order_acquire);
    for (; part != nullptr && message.status() == QUORL_OK; part = part->next) part->fill(message);
}

void add(Part& part) noexcept {
    Lock lock(adding);
    Part* const newest = parts.load(std::memory_order_relaxed);
    for (const Part* each = newest; each != nullptr; each = each->next) {
        if (each == &part) return;
    }
    part.next = newest;
    parts.store(&part, std::memory_order_release);
}

}  // namespace quorl::transport::statistics
