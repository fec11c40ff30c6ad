// The record of a listener: an event that the messages of a transport feed.
#pragma once

#include <string>

#include "event/event.h"

namespace quorl::transport {

struct Transport;

struct Listener : event::Event {
    std::string subject;             // set once: the pattern
    Transport* transport = nullptr;  // set once; the listener is its child

    // Guarded by the transport's lock.
    bool attached = false;  // the backend knows the listener
    bool detached = false;  // it will not be attached any more
    Listener* next = nullptr;
    Listener* previous = nullptr;
};

struct ListenerRequest {
    uint32_t queue;
    uint32_t transport;
    const char* subject;  // may be null
    const void* closure;
    quorlEventCallback callback;              // of an ordinary listener
    quorlEventVectorCallback vectorCallback;  // of a vector listener
    const void* groupId;
    bool vector;
    event::Take take = nullptr;  // the library listens itself, to any subject: no callback is needed
    void* owner = nullptr;       // of take
};

// Starts and stops feeding the listener, from the backend and inside the process as its subject demands. Under the
// transport's lock.
quorl_status startListening(Listener& listener) noexcept;
void stopListening(Listener& listener) noexcept;

quorl_status createListener(uint32_t* id, const ListenerRequest& request) noexcept;

}  // namespace quorl::transport
