// Records of companions' objects, their lives, and what stands on which transport.
#include "companion/object.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "base/environment.h"
#include "base/mutex.h"
#include "base/registry.h"
#include "base/status.h"
#include "companion/access.h"
#include "companion/objects.h"
#include "event/queue.h"
#include "transport/transport.h"

namespace quorl::companion {
namespace {

struct ObjectRecord : Record {
    ObjectRef object;
    transport::Transport* parent = nullptr;  // the record is its child
};

struct EventRecord : event::Event {
    ObjectRef object;
    std::string sourceText;
    Record* owner = nullptr;  // the record is its child

    EventObject& target() const noexcept { return static_cast<EventObject&>(*object); }
};

constexpr uint16_t typeOf(Type type) noexcept {
    return static_cast<uint16_t>(type);
}

const ObjectRef& objectIn(const Record& record) noexcept {
    return registry::isEvent(record.type) ? static_cast<const EventRecord&>(record).object
                                          : static_cast<const ObjectRecord&>(record).object;
}

const char* nameOf(Type type) noexcept {
    switch (type) {
        case Type::certifiedTransport:
            return "certified transport";
        case Type::certifiedListener:
            return "certified listener";
        case Type::member:
            return "member";
        default:
            return "monitor";
    }
}

quorl_status noObject(Type type, uint32_t id) noexcept {
    const bool transport = type == Type::certifiedTransport;
    return environment::noObject(transport ? QUORL_INVALID_TRANSPORT : QUORL_INVALID_EVENT, nameOf(type), id);
}

quorl_status noThreadState() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
}

void completed(Record& record) noexcept {
    objectIn(record)->completed();
}

void destroyObject(Record* record) noexcept {
    auto* object = static_cast<ObjectRecord*>(record);
    if (object->parent != nullptr) registry::dropChild(*object->parent);
    delete object;
}

void destroyEventRecord(Record* record) noexcept {
    auto* event = static_cast<EventRecord*>(record);
    if (event->owner != nullptr) registry::dropChild(*event->owner);
    registry::dropChild(*event->queue);
    delete event;
}

// ---- what stands on which transport

struct Standing {
    uint64_t serial;  // ascending
    uint32_t transport;
    Type type;
    uint32_t id;
};

constinit Mutex standingLock;
// Made with the first, and kept.
constinit std::vector<Standing>* standing GUARDED_BY(standingLock) POINTS_TO_GUARDED_BY(standingLock) = nullptr;
constinit uint64_t lastSerial GUARDED_BY(standingLock) = 0;
constinit std::atomic<uint32_t> standingCount{0};

// Throws std::bad_alloc.
void addStanding(uint32_t transport, Type type, uint32_t id) {
    Lock lock(standingLock);
    if (standing == nullptr) standing = new std::vector<Standing>;
    standing->push_back({++lastSerial, transport, type, id});
    standingCount.store(static_cast<uint32_t>(standing->size()), std::memory_order_seq_cst);
}

// Whether the transport is open still: it tells of its end from now on. Under a read guard.
bool standsOn(uint32_t id) noexcept {
    auto* found = registry::find<transport::Transport>(id);
    if (found == nullptr) return false;
    found->state->beParent();
    return registry::find<transport::Transport>(id) != nullptr;
}

void dropStanding(uint32_t id) noexcept {
    Lock lock(standingLock);
    if (standing == nullptr) return;
    std::erase_if(*standing, [id](const Standing& one) { return one.id == id; });
    standingCount.store(static_cast<uint32_t>(standing->size()), std::memory_order_relaxed);
}

// The next on the transport behind *one, so that no memory is needed for a list. False: there is none.
bool nextStanding(uint32_t transport, Standing* one) noexcept {
    Lock lock(standingLock);
    if (standing == nullptr) return false;
    auto at = std::ranges::upper_bound(*standing, one->serial, {}, &Standing::serial);
    at = std::find_if(at, standing->end(), [&](const Standing& each) { return each.transport == transport; });
    if (at == standing->end()) return false;
    *one = *at;
    return true;
}

void tellStanding(uint32_t transport, void (Object::*word)() noexcept) noexcept {
    if (standingCount.load(std::memory_order_seq_cst) == 0) return;
    for (Standing one{}; nextStanding(transport, &one);) {
        const Pin pin(one.type, one.id);
        if (pin) ((*pin.object()).*word)();
    }
}

void announced(uint32_t transport) noexcept {
    KeptErrorText kept;
    tellStanding(transport, &Object::parentCloses);
}

void transportClosed(uint32_t transport) noexcept {
    KeptErrorText kept;
    tellStanding(transport, &Object::parentClosed);
}

void back(uint32_t transport) noexcept {
    KeptErrorText kept;
    tellStanding(transport, &Object::parentBack);
}

void closes(uint32_t) noexcept {}

void lost(uint32_t) noexcept {}

constinit transport::EndingWatch watch{closes, transportClosed, lost, nullptr, announced, back};

// ---- events

void takeForEvent(ThreadState& thread, event::Event& event, message::ContentRef content, uint32_t tag) {
    auto& record = static_cast<EventRecord&>(event);
    const Message message = content ? Access::wrap(content) : Message();
    quorlMsg handle = nullptr;
    if (content && message::deliverWhole(std::move(content), event.id, &handle) != QUORL_OK) {
        record.target().dropped(message, tag);
        return;
    }
    ++thread.callbackDepth;
    record.target().run({event.id, tag, event.arg, message, handle});
    --thread.callbackDepth;
    if (handle != nullptr) message::finishDelivery(handle);
}

void droppedOfEvent(event::Event& event, message::ContentRef content, uint32_t tag) {
    const Message message = content ? Access::wrap(std::move(content)) : Message();
    static_cast<EventRecord&>(event).target().dropped(message, tag);
}

// Publishes a record that is ready; it goes when that fails.
quorl_status publishRecord(Record& record, Type type, uint32_t* id) noexcept {
    const uint32_t reserved = registry::reserve();
    if (reserved == 0) {
        record.destroy(&record);
        return registry::noId(nameOf(type));
    }
    if (!registry::publish(record, reserved, typeOf(type))) {
        registry::abandon(reserved);
        record.destroy(&record);
        return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    }
    *id = reserved;
    return QUORL_OK;
}

}  // namespace

quorl_status publish(const ObjectRef& object, const Registration& registration, uint32_t* id) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    if (registry::isEvent(typeOf(registration.type)))
        return fail(QUORL_INVALID_ARG, "a %s is an event", nameOf(registration.type));
    ReadGuard guard(*thread);
    auto* parent = registration.transport != 0 ? registry::find<transport::Transport>(registration.transport) : nullptr;
    if (registration.transport != 0 && parent == nullptr)
        return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", registration.transport);
    auto* record = new (std::nothrow) ObjectRecord;
    if (record == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a %s", nameOf(registration.type));
    record->object = object;
    record->arg = registration.closure;
    record->parent = parent;
    record->completed = completed;
    record->destroy = destroyObject;
    if (parent != nullptr) registry::addChild(*parent);
    uint32_t made = 0;
    if (const quorl_status status = publishRecord(*record, registration.type, &made); status != QUORL_OK) return status;
    if (parent != nullptr) {
        // In the list before the transport is looked for again: either that look or whoever closes it sees the other.
        quorl_status status = QUORL_OK;
        try {
            addStanding(registration.transport, registration.type, made);
        } catch (const std::bad_alloc&) {
            status = fail(QUORL_NO_MEMORY, "no memory for a %s", nameOf(registration.type));
        }
        if (status == QUORL_OK && !standsOn(registration.transport))
            status = environment::noObject(QUORL_INVALID_TRANSPORT, "transport", registration.transport);
        if (status != QUORL_OK) {
            // As if it had never been: neither closed() nor completed() is called, unless the library, which closes, was first.
            dropStanding(made);
            if (registry::close(made, typeOf(registration.type)) != nullptr) {
                record->completed = nullptr;
                registry::retire(*record);
            }
            return status;
        }
    }
    *id = made;
    return QUORL_OK;
}

quorl_status publishEvent(const std::shared_ptr<EventObject>& object, const EventRegistration& registration,
                          uint32_t* id) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    if (!registry::isEvent(typeOf(registration.type)))
        return fail(QUORL_INVALID_ARG, "a %s is not an event", nameOf(registration.type));
    ReadGuard guard(*thread);
    auto* queue = registry::find<event::Queue>(registration.queue);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", registration.queue);
    Record* owner = nullptr;
    if (registration.owner != 0) {
        owner = registry::find(registration.owner, typeOf(Type::certifiedTransport));
        if (owner == nullptr) return noObject(Type::certifiedTransport, registration.owner);
    }
    std::unique_ptr<EventRecord> record;
    try {
        record = std::make_unique<EventRecord>();
        record->sourceText = registration.source;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a %s", nameOf(registration.type));
    }
    record->source = record->sourceText;
    record->object = object;
    record->arg = registration.closure;
    record->kind = event::Kind::taker;
    record->take = takeForEvent;
    record->dropped = droppedOfEvent;
    record->queue = queue;
    record->owner = owner;
    record->completed = completed;
    record->destroy = destroyEventRecord;
    registry::addChild(*queue);
    if (owner != nullptr) registry::addChild(*owner);
    return publishRecord(*record.release(), registration.type, id);
}

quorl_status post(Type type, uint32_t id, const Message& message, uint32_t tag) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    if (tag >= event::takerTags) return fail(QUORL_INVALID_ARG, "a tag is below 2^31");
    ReadGuard guard(*thread);
    auto* record =
        registry::isEvent(typeOf(type)) ? static_cast<EventRecord*>(registry::find(id, typeOf(type))) : nullptr;
    if (record == nullptr) return noObject(type, id);
    if (event::push(*record, Access::content(message), tag)) return QUORL_OK;
    if (registry::find(id, typeOf(type)) == nullptr) return noObject(type, id);
    return fail(QUORL_INVALID_QUEUE, "the queue of %s %u was destroyed", nameOf(type), id);
}

quorl_status close(Type type, uint32_t id, void (*claimed)(Object& object, void* argument), void* argument) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    Record* record;
    {
        ReadGuard guard(*thread);
        record =
            registry::isEvent(typeOf(type)) ? event::closeEvent(id, typeOf(type)) : registry::close(id, typeOf(type));
    }
    if (record == nullptr) return noObject(type, id);
    // The record is this caller's until it is retired.
    if (!registry::isEvent(typeOf(type))) dropStanding(id);
    Object& object = *objectIn(*record);
    if (claimed != nullptr) claimed(object, argument);
    object.closed();
    registry::retire(*record);
    return QUORL_OK;
}

quorl_status objectOf(void* given, Type type, ObjectRef* object, uint32_t* id) noexcept {
    if (given == nullptr) return fail(QUORL_INVALID_ARG, "the record is null");
    const auto* record = static_cast<const Record*>(given);
    if (record->type != typeOf(type)) return fail(QUORL_NOT_FOUND, "the record is not a %s's", nameOf(type));
    *object = objectIn(*record);
    *id = record->id;
    return QUORL_OK;
}

Pin::Pin(Type type, uint32_t id) noexcept : type_(type), id_(id) {
    if (ThreadState* thread = threadState(); thread != nullptr) record_ = registry::pin(*thread, id, typeOf(type));
}

Pin::~Pin() {
    if (record_ != nullptr) registry::unpin(*currentThreadState, static_cast<Record*>(record_));
}

quorl_status Pin::status() const noexcept {
    if (record_ != nullptr) return QUORL_OK;
    return threadState() != nullptr ? noObject(type_, id_) : noThreadState();
}

const ObjectRef& Pin::object() const noexcept {
    return objectIn(*static_cast<const Record*>(record_));
}

const void* Pin::closure() const noexcept {
    return static_cast<const Record*>(record_)->arg;
}

void objects::watchTransports() noexcept {
    transport::watchEnding(watch);
}

void objects::closeAll() noexcept {
    KeptErrorText kept;
    registry::forEachOpen(typeOf(Type::certifiedListener), [](uint32_t id) { close(Type::certifiedListener, id); });
    registry::forEachOpen(typeOf(Type::member), [](uint32_t id) { close(Type::member, id); });
    registry::forEachOpen(typeOf(Type::monitor), [](uint32_t id) { close(Type::monitor, id); });
    registry::forEachOpen(typeOf(Type::certifiedTransport), [](uint32_t id) { close(Type::certifiedTransport, id); });
}

}  // namespace quorl::companion
