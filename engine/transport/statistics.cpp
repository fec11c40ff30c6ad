// Gathering the statistics.
#include "transport/statistics.h"

#include <unistd.h>

#include <new>
#include <vector>

#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"
#include "message/delivery.h"

namespace quorl::transport::statistics {
namespace {

constinit Mutex guard;
constinit Part* parts GUARDED_BY(guard) POINTS_TO_GUARDED_BY(guard) = nullptr;  // the newest first

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

// Adds fields one after the other; the first failure is kept, and ends the adding.
class Writer {
  public:
    explicit Writer(quorlMsg message) noexcept : message_(message) {}
    Writer& u32(const char* name, uint32_t value) noexcept {
        if (status_ == QUORL_OK) status_ = quorlMsg_AddU32Ex(message_, name, value, 0);
        return *this;
    }
    Writer& u64(const char* name, uint64_t value) noexcept {
        if (status_ == QUORL_OK) status_ = quorlMsg_AddU64Ex(message_, name, value, 0);
        return *this;
    }
    Writer& seconds(const char* name, int64_t nanoseconds) noexcept {
        if (status_ == QUORL_OK)
            status_ = quorlMsg_AddF64Ex(message_, name, static_cast<double>(nanoseconds) * 1e-9, 0);
        return *this;
    }
    Writer& text(const char* name, const char* value) noexcept {
        if (status_ == QUORL_OK) status_ = quorlMsg_AddStringEx(message_, name, value, 0);
        return *this;
    }
    Writer& message(const char* name, quorlMsg value) noexcept {
        if (status_ == QUORL_OK) status_ = quorlMsg_AddMsgEx(message_, name, value, 0);
        return *this;
    }
    Writer& messages(const char* name, const std::vector<quorlMsg>& values) noexcept {
        if (status_ == QUORL_OK)
            status_ = quorlMsg_AddMsgArrayEx(message_, name, values.data(), static_cast<uint32_t>(values.size()), 0);
        return *this;
    }
    quorl_status status() const noexcept { return status_; }

  private:
    quorlMsg message_;
    quorl_status status_ = QUORL_OK;
};

// A message of this call's own.
class Owned {
  public:
    Owned() noexcept { status_ = quorlMsg_Create(&message_); }
    ~Owned() {
        if (status_ == QUORL_OK) quorlMsg_Destroy(message_);
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    quorl_status status() const noexcept { return status_; }
    quorlMsg get() const noexcept { return message_; }

  private:
    quorlMsg message_ = nullptr;
    quorl_status status_;
};

quorl_status describe(quorlMsg message, event::Queue& queue) noexcept {
    event::QueueFigures figures;
    event::figuresOf(queue, &figures);
    Writer writer(message);
    writer.u32("queue", queue.id)
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
    writer.text("name", queue.name.c_str());
    return writer.status();
}

quorl_status addQueues(quorlMsg message, const std::vector<uint32_t>& ids) noexcept {
    std::vector<quorlMsg> described;
    quorl_status status = QUORL_OK;
    try {
        described.reserve(ids.size());
        for (const uint32_t id : ids) {
            auto* queue = registry::find<event::Queue>(id);
            if (queue == nullptr) continue;
            quorlMsg one;
            status = quorlMsg_Create(&one);
            if (status != QUORL_OK) break;
            described.push_back(one);
            status = describe(one, *queue);
            if (status != QUORL_OK) break;
        }
    } catch (const std::bad_alloc&) {
        status = fail(QUORL_NO_MEMORY, "no memory for the queues' statistics");
    }
    if (status == QUORL_OK) status = Writer(message).messages("queues", described).status();
    for (const quorlMsg one : described) quorlMsg_Destroy(one);
    return status;
}

quorl_status addObjects(quorlMsg message, const Census& census, uint64_t messages) noexcept {
    const Owned objects;
    if (objects.status() != QUORL_OK) return objects.status();
    Writer writer(objects.get());
    writer.u32("listeners", census.listeners)
        .u32("vector_listeners", census.vectorListeners)
        .u32("timers", census.timers)
        .u32("queues", census.queues)
        .u32("queue_groups", census.groups)
        .u32("transports", census.transports)
        .u32("others", census.others)
        .u64("messages", messages);
    if (writer.status() != QUORL_OK) return writer.status();
    return Writer(message).message("objects", objects.get()).status();
}

quorl_status addTraffic(quorlMsg message) noexcept {
    uint64_t messagesOut = 0;
    uint64_t bytesOut = 0;
    uint64_t messagesIn = 0;
    uint64_t bytesIn = 0;
    for (const ThreadState* thread = ThreadState::first(); thread != nullptr; thread = thread->nextState) {
        const auto& traffic = thread->traffic;
        messagesOut += traffic.messagesOut.load(std::memory_order_relaxed);
        bytesOut += traffic.bytesOut.load(std::memory_order_relaxed);
        messagesIn += traffic.messagesIn.load(std::memory_order_relaxed);
        bytesIn += traffic.bytesIn.load(std::memory_order_relaxed);
    }
    return Writer(message)
        .u64("messages_out", messagesOut)
        .u64("bytes_out", bytesOut)
        .u64("messages_in", messagesIn)
        .u64("bytes_in", bytesIn)
        .status();
}

quorl_status addLag(quorlMsg message) noexcept {
    const Owned lag;
    if (lag.status() != QUORL_OK) return lag.status();
    const Histogram::Summary summary = event::dispatchLag();
    Writer writer(lag.get());
    writer.u64("samples", summary.count)
        .seconds("p50", summary.p50)
        .seconds("p90", summary.p90)
        .seconds("p99", summary.p99)
        .seconds("p999", summary.p999)
        .seconds("max", summary.most);
    if (writer.status() != QUORL_OK) return writer.status();
    return Writer(message).message("lag", lag.get()).status();
}

}  // namespace

quorl_status fill(quorlMsg message) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    // Without the message that is filled, and those made on the way.
    const uint64_t messages = message::liveMessages() - 1;
    Writer writer(message);
    writer.text("version", QUORL_VERSION).u32("process", static_cast<uint32_t>(getpid()));
    if (writer.status() != QUORL_OK) return writer.status();
    if (const quorl_status status = addTraffic(message); status != QUORL_OK) return status;
    if (const quorl_status status = addLag(message); status != QUORL_OK) return status;
    {
        Section section(*thread);
        Census census;
        registry::forEachOpen(count, &census);
        if (!census.complete) return fail(QUORL_NO_MEMORY, "no memory for the queues' statistics");
        if (const quorl_status status = addObjects(message, census, messages); status != QUORL_OK) return status;
        if (const quorl_status status = addQueues(message, census.queueIds); status != QUORL_OK) return status;
    }
    Lock lock(guard);
    for (const Part* part = parts; part != nullptr; part = part->next) {
        if (const quorl_status status = part->fill(message); status != QUORL_OK) return status;
    }
    return QUORL_OK;
}

void add(Part& part) noexcept {
    Lock lock(guard);
    for (const Part* each = parts; each != nullptr; each = each->next) {
        if (each == &part) return;
    }
    part.next = parts;
    parts = &part;
}

}  // namespace quorl::transport::statistics
