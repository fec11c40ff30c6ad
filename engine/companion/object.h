// Objects of companion libraries: what an id of type 100, 101, 200 or 201 names.
//
//     class Sender final : public Object { ... };
//     auto sender = std::make_shared<Sender>(...);
//     publish(sender, {.type = Type::certifiedTransport, .transport = transport}, &id);
//
//     Hold<Sender> sender(Type::certifiedTransport, id);      // in each call; it completes no earlier than this ends
//     if (!sender) return sender.status();
//
//     close(Type::certifiedTransport, id);                    // QUORL_OK for one caller
//
// An object is closed once, by a call of the program's or with the library: its id names nothing from then on. It completes
// when nobody holds it any more and none of its callbacks runs: then the companion calls the program's completion. It is freed
// after that, when nobody refers to it.
//
// The functions of Object and EventObject are called with no lock of the engine held, and throw nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "companion/message.h"
#include "quorl/private.h"

namespace quorl::companion {

enum class Type : uint16_t {
    certifiedTransport = QUORL_OBJECT_CM_TRANSPORT,
    certifiedListener = QUORL_OBJECT_CM_EVENT,
    member = QUORL_OBJECT_FT_MEMBER,
    monitor = QUORL_OBJECT_FT_MONITOR,
};

class Object {
  public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    // Its id names nothing any more: says good-bye, closes what belongs to it. On the thread that closes it; it may wait, but
    // for no thread of the program's. Calls that hold the object may still be under way.
    virtual void closed() noexcept {}
    // Nobody holds it any more. On a thread of the library's, once, behind closed.
    virtual void completed() noexcept {}

    // The transport that it stands on is about to be closed. All still works; it may wait.
    virtual void parentCloses() noexcept {}
    // The transport is gone: nothing can be sent. It does not wait. Also told when publish is about to fail for that reason.
    virtual void parentClosed() noexcept {}
    // Its way was gone and is there again; what was sent meanwhile, or shortly before, may not have arrived. It does not wait, and
    // locks of what reports it are held: it notes it, and does what follows elsewhere.
    virtual void parentBack() noexcept {}
};
using ObjectRef = std::shared_ptr<Object>;

struct Registration {
    Type type;
    const void* closure = nullptr;  // of the program's, for bindings
    uint32_t transport = 0;         // that the object stands on; 0: none
};

// Gives the object an id. From then on the library keeps a reference, until it has completed and what stands on it is gone.
// Types of events are published by publishEvent. QUORL_INVALID_TRANSPORT, QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY.
QUORL_API quorl_status publish(const ObjectRef& object, const Registration& registration, uint32_t* id) noexcept;

// Closes the object for exactly one caller. claimed: called for that one before closed(), so that it may leave a completion.
// QUORL_NOT_INITIALIZED, or the status of an id that names no such object: QUORL_INVALID_TRANSPORT for certified transports,
// QUORL_INVALID_EVENT for the others.
QUORL_API quorl_status close(Type type, uint32_t id, void (*claimed)(Object& object, void* argument) = nullptr,
                             void* argument = nullptr) noexcept;

// Keeps an open object from completing. Ends on the thread that it began on, in the reverse order of others there.
class [[nodiscard, gnu::visibility("default")]] Pin {
  public:
    Pin(Type type, uint32_t id) noexcept;
    ~Pin();
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

    explicit operator bool() const noexcept {
        return record_ != nullptr;
    }
    // When there is no such object: why, with its detail text.
    quorl_status status() const noexcept;
    const ObjectRef& object() const noexcept;
    const void* closure() const noexcept;

  private:
    Type type_;
    uint32_t id_;
    void* record_ = nullptr;
};

template <class T>
class [[nodiscard]] Hold {
  public:
    Hold(Type type, uint32_t id) noexcept : pin_(type, id) {}
    explicit operator bool() const noexcept { return static_cast<bool>(pin_); }
    quorl_status status() const noexcept { return pin_.status(); }
    T* operator->() const noexcept { return static_cast<T*>(pin_.object().get()); }
    T& operator*() const noexcept { return *operator->(); }
    // For whoever refers to the object longer, and keeps its memory, not the object, by that.
    std::shared_ptr<T> shared() const noexcept { return std::static_pointer_cast<T>(pin_.object()); }
    const void* closure() const noexcept { return pin_.closure(); }

  private:
    Pin pin_;
};

// The object of a record that a binding got from _quorlObjectId_GetEx with a reference, which it still has. QUORL_NOT_FOUND: of
// another type.
QUORL_API quorl_status objectOf(void* record, Type type, ObjectRef* object, uint32_t* id) noexcept;

// ---- events: objects that wait in a queue of the program's --------------------------------------------------------

// One dispatch of something that was posted.
struct Delivery {
    uint32_t event;
    uint32_t tag;            // as it was posted
    const void* closure;     // as it was registered
    const Message& message;  // as it was posted; none when there was none
    // The message for the program: the library's, as in any callback, and gone when run has returned, unless the program
    // has detached or destroyed it. Message::received gives the whole message back. Null when none was posted.
    quorlMsg handle;
};

class EventObject : public Object {
  public:
    // Runs on the thread that dispatches the queue. Calls the program's callback, and does what comes after it.
    virtual void run(const Delivery& delivery) noexcept = 0;
    // What was posted will not run: the queue's limit dropped it, or there was no memory for its handle. Not told when the event
    // is closed or the queue destroyed, and not when even this finds no memory. It does not wait, and calls nothing of the
    // program's.
    virtual void dropped(const Message&, uint32_t) noexcept {}
};

struct EventRegistration {
    Type type;
    uint32_t queue;
    const void* closure = nullptr;
    std::string source = {};  // what feeds it, for people who read advisories: a subject, the name of a group
    uint32_t owner =
        0;  // the certified transport that it belongs to, which stays in memory as long as it does; 0: none
};

// QUORL_INVALID_QUEUE, QUORL_INVALID_TRANSPORT (no such owner), QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY.
QUORL_API quorl_status publishEvent(const std::shared_ptr<EventObject>& object, const EventRegistration& registration,
                                    uint32_t* id) noexcept;

// Puts one entry into the event's queue, behind what was posted before: limits, priorities and alarms hold for it as for any
// other event. tag: below 2^31. What a limit drops, and what finds no memory, is told by dropped. QUORL_INVALID_EVENT: there
// is no such event any more. QUORL_INVALID_QUEUE: its queue was destroyed.
QUORL_API quorl_status post(Type type, uint32_t id, const Message& message, uint32_t tag = 0) noexcept;

}  // namespace quorl::companion
