// A companion library of the tests' own, which uses every function of the border. Its transports number what they send and its
// listeners confirm what their callbacks have seen; nothing is repeated.
#pragma once

#include <atomic>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace echo {

// What has happened since the process began.
struct Figures {
    std::atomic<int> transports{0};    // objects in memory
    std::atomic<int> listeners{0};     // objects in memory
    std::atomic<int> closed{0};        // of either kind
    std::atomic<int> completed{0};     // of either kind
    std::atomic<int> parentCloses{0};  // words before a transport went
    std::atomic<int> goodbyes{0};      // of those, the ones in which a last message could still be sent
    std::atomic<int> parentClosed{0};
    std::atomic<int> confirmed{0};  // callbacks that returned
    std::atomic<int> dropped{0};    // messages that did not get to a callback
    std::atomic<int> foreign{0};    // messages without the attributes of this library
    std::atomic<int> pings{0};      // that a machine sent
    std::atomic<int> heard{0};      // pings that came in
    std::atomic<int> persisted{0};
    std::atomic<int> modulesClosed{0};
    std::atomic<int> modulesStopped{0};
    std::atomic<int> forgets{0};
};
QUORL_API Figures& figures() noexcept;

using Completion = void (*)(uint32_t id, void* closure);

// pingEvery: seconds between pings on _QUORL.ECHO.<name>; 0: none.
QUORL_API quorl_status createTransport(uint32_t* id, quorlTransport transport, const char* name, double pingEvery,
                                       const void* closure) noexcept;
QUORL_API quorl_status destroyTransport(uint32_t id, Completion completion, void* closure) noexcept;
// Sends the message with the transport's next number beside its fields, and with the time limit of its handle.
QUORL_API quorl_status send(uint32_t id, quorlMsg message) noexcept;
// Lets the guest hear persisted on the host's thread.
QUORL_API quorl_status persist(uint32_t id) noexcept;

// Hears what echo transports send, and nothing else.
QUORL_API quorl_status createListener(uint32_t* id, quorlQueue queue, quorlEventCallback callback, uint32_t transport,
                                      const char* subject, const void* closure) noexcept;
QUORL_API quorl_status destroyListener(uint32_t id, Completion completion) noexcept;

// A member's event: an action without a message.
QUORL_API quorl_status createMember(uint32_t* id, quorlQueue queue,
                                    void (*callback)(uint32_t id, uint32_t action, void* closure),
                                    const void* closure) noexcept;
QUORL_API quorl_status act(uint32_t id, uint32_t action) noexcept;
QUORL_API quorl_status destroyMember(uint32_t id) noexcept;

// The number of a message that a listener got, and the time limit that the sender had set on its handle.
QUORL_API quorl_status numberOf(quorlMsg message, uint64_t* number) noexcept;
QUORL_API quorl_status timeLimitOf(quorlMsg message, uint8_t* limit) noexcept;
QUORL_API quorl_status setTimeLimit(quorlMsg message, uint8_t limit) noexcept;

// Tries each function of the border in turn; the number of the first that does not answer QUORL_NOT_PERMITTED, from 1. For the
// child of a fork.
QUORL_API int firstNotRefused(uint32_t transport, uint32_t echoTransport, quorlMsg message) noexcept;

}  // namespace echo
