// The record of a listener: an event that the messages of a transport feed.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "event/event.h"
#include "quorl/private.h"

namespace quorl::transport {

struct Transport;

// Listeners that share a name: one of them gets each message. Kept by its members' records, so that whoever finds one of them
// under a read guard finds this too.
struct Share {
    explicit Share(std::string sharedName) : name(std::move(sharedName)) {}

    const std::string name;
    std::atomic<uint32_t> turn{0};  // counts messages, so that the members take turns
    uint32_t members = 0;           // that listen; guarded by the router's lock
};

struct Listener : event::Event {
    std::string subject;             // set once: the pattern
    std::shared_ptr<Share> share;    // null: it shares with nobody. A router joins those of one name when it adds them
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
    const char* share = nullptr;  // the name under which it shares; null: none, or what the subject says
    event::Take take = nullptr;   // the library listens itself, to any subject: no callback is needed
    void* owner = nullptr;        // of take
};

// A subject of the form "_QUORL.SHARE.<name>.<subject>" makes a listener to that subject which shares under that name.
inline constexpr std::string_view sharePrefix = QUORL_SHARE_PREFIX;
inline constexpr size_t longestShareName = 63;
// Whether the name is one to share under: 1 to longestShareName bytes of printable ASCII without blanks, '.', '*' and '>'.
bool validShareName(std::string_view name) noexcept;

// Starts and stops feeding the listener, from the backend and inside the process as its subject demands. Under the
// transport's lock.
quorl_status startListening(Listener& listener) noexcept;
void stopListening(Listener& listener) noexcept;

quorl_status createListener(uint32_t* id, const ListenerRequest& request) noexcept;

}  // namespace quorl::transport
