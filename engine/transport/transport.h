// The seam between the engine and what carries messages: the bus of this process, a daemon, or a test's interposer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "base/record.h"
#include "base/thread_state.h"
#include "message/delivery.h"
#include "transport/listener.h"
#include "transport/observer.h"
#include "transport/passage.h"
#include "transport/sending_state.h"
#include "transport/state.h"

namespace quorl::transport {

// A reply that a thread waits for. On that thread's stack.
struct Request {
    // Values of SendingState::reply.
    enum State : uint32_t { waiting = 0, replied = 1, aborted = 2 };

    explicit Request(ThreadState& thread) noexcept : state(&thread.part<SendingState>().reply) {
        state->store(waiting, std::memory_order_relaxed);
    }

    std::atomic<uint32_t>* state;  // of the waiting thread, whose state is never freed: it may be woken late
    std::string inbox;
    message::ContentRef reply;  // written before the state says replied, guarded by the backend until then

    // Of the transport's list; guarded by the transport's lock.
    Request* next = nullptr;
    Request* previous = nullptr;
};

// What a backend still does when it was closed.
class Ending {
  public:
    Ending() = default;
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
    virtual ~Ending() = default;

    // Waits until it has ended, within the limit for closing. A failure, with its detail text: messages were dropped.
    virtual quorl_status await() noexcept = 0;
};

// One transport's way to its bus: the bus of this process, a daemon, a circuit, or a test's. Every function may be called by
// many threads at once. What all of them keep to, and tests/backends holds each of them to:
//
// Sending. A send takes the message whole or not at all, and does not wait. QUORL_OK: the message is accepted, and what the
// program does with its own from then on changes nothing. noRoom: nothing was sent and nothing is wrong, the way out is full
// for a message of that size until room is reported; a way that cannot be full never says so. Any other status is a failure
// with a detail text, and nothing was sent. What a subject alone makes send refuse, check refuses too. A message that is larger
// than what was reported as the largest may be refused for its size, others are not.
//
// Order. What one thread sends through a transport comes to each listener that matches once, and in the order of sending,
// whatever the subjects. Only a connection to a daemon that breaks may cost what was on its way, and tells so. Between messages
// of different threads, or of different transports, there is no order.
//
// Listening. It is in force when listen has returned, for what is sent in its wake: whatever the transport itself sends
// afterwards, where a transport hears itself, and what others send once something has come to them that the transport sent
// afterwards. What others send at the same time is heard or not. From when unlisten has returned nothing more is put into the
// listener's queue but by calls that were already doing so, and the listener's event takes none of that either.
//
// State. How the way is comes to those who observe it, in order: connected once, then away and back by turns, or lost. On a way
// that is lost nothing is sent, and what had come before is in the queues of its listeners. Room is reported after each noRoom,
// when there is some.
//
// Requests. The first message to the inbox is the reply; later ones are dropped. When closeRequest has returned nobody touches
// the request any more.
//
// Closing. By then the listeners are unlistened and the requests ended. close and closed do not wait. What was accepted before
// goes on its way: on the bus of this process it is in its queues already, a connection to a daemon sends it within the limit
// for closing, and ending waits for that, a circuit brings it home in the background. What is still under way on other threads
// ends soon, with any status. Nothing comes in any more. The backend is destroyed when no thread can be inside it.
class Backend {
  public:
    Backend() = default;
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;
    virtual ~Backend() = default;

    // Whether a message may be sent to the subject: QUORL_OK, or QUORL_INVALID_SUBJECT with its detail text. Asks nobody.
    virtual quorl_status check(std::string_view subject) const noexcept = 0;
    // Sends the content to its send subject, which it checks. The thread is under a read guard: this does not wait. noRoom:
    // nothing was sent; the caller ends its read guard, waits until room is reported, and tries again.
    static constexpr quorl_status noRoom = static_cast<quorl_status>(-1);
    virtual quorl_status send(ThreadState& thread, message::ContentRef content) noexcept = 0;

    // Puts the content, whose send subject is an inbox, where it would go if it had just come in from the bus: to the listeners
    // of this process, and the request, that match. Nothing goes out to others. The thread is under a read guard.
    virtual quorl_status deliver(ThreadState& thread, message::ContentRef content) noexcept {
        return send(thread, std::move(content));
    }

    // Starts and stops putting messages that match the listener's subject into its queue. The subject has been checked. Under
    // the transport's lock.
    virtual quorl_status listen(Listener& listener) noexcept = 0;
    virtual void unlisten(Listener& listener) noexcept = 0;

    // Takes the first message to request.inbox as the reply. From close on the request is left alone.
    virtual quorl_status openRequest(Request& request) noexcept = 0;
    virtual void closeRequest(Request& request) noexcept = 0;

    // From now on the way's state is reported to it; it is told at once how the way is. The same without. No lock is held.
    // Throws std::bad_alloc.
    virtual void observe(const ObserverRef& observer) = 0;
    virtual void unobserve(const Observer&) noexcept {}

    // What is known of the way of messages to and from others; inbox: where those come that are asked about.
    virtual Passage passage(std::string_view inbox, int64_t now) noexcept;

    // What the program has asked of the transport. Under the transport's lock.
    struct Settings {
        double reliability = 0;  // seconds
        quorlTransportBatchMode batchMode = QUORLTRANSPORT_DEFAULT_BATCH;
        uint32_t batchSize = 0;  // bytes
    };
    virtual void configure(const Settings&) noexcept {}
    // How the program describes itself. Under the transport's lock.
    virtual void describe(std::string_view) noexcept {}

    // The transport was closed, and all its listeners are gone. Under the transport's lock; calls on it may still be under
    // way, and end soon.
    virtual void close() noexcept {}
    // The same, a little later: under a read guard, no lock held.
    virtual void closed(ThreadState&) noexcept {}
    // After close: what whoever destroys the transport waits for. Null: nothing.
    virtual std::shared_ptr<Ending> ending() noexcept { return nullptr; }
    // The status, with its detail text, of a request that was ended before its time.
    virtual quorl_status whyAborted() const noexcept;
};

struct Transport : Record {
    static constexpr uint16_t objectType = QUORL_OBJECT_TRANSPORT;

    ~Transport();

    // Set once, before the transport is published.
    std::unique_ptr<Backend> backend;
    std::shared_ptr<TransportState> state;  // observes the backend
    std::string inboxPrefix;                // of all inboxes that the transport makes

    std::atomic<uint64_t> inboxes{0};  // made so far; the inbox's last element counts them from 1

    // Taken before the locks of a backend, but for those under which the state of its way is reported, and before the locks of
    // queues.
    Mutex lock;
    bool closed GUARDED_BY(lock) = false;
    Listener* listeners GUARDED_BY(lock) = nullptr;
    Request* requests GUARDED_BY(lock) = nullptr;
    std::string description GUARDED_BY(lock);
    Backend::Settings settings GUARDED_BY(lock);
};

quorl_status createTransport(uint32_t* id, const char* service, const char* network, const char* daemon) noexcept;
// Makes a transport over the backend. QUORL_NOT_INITIALIZED, QUORL_OS_ERROR, QUORL_NO_MEMORY.
quorl_status publishTransport(uint32_t* id, std::unique_ptr<Backend> backend) noexcept;
// Told of the end of each transport on which something stands, so that it ends too, and when its way is back.
struct EndingWatch {
    void (*closes)(uint32_t transport) noexcept;  // it is about to be closed; under a read guard, no lock held
    void (*closed)(uint32_t transport) noexcept;  // nobody finds it any more; the same
    void (*lost)(uint32_t transport) noexcept;    // its way is; locks of what reports it may be held
    EndingWatch* next = nullptr;
    // Before all that, and under no read guard, so that it may wait; also for a transport that somebody else closes first, or
    // that is none. May be null.
    void (*announced)(uint32_t transport) noexcept = nullptr;
    void (*back)(uint32_t transport) noexcept = nullptr;  // as lost. May be null
};
// From now on; the watch lives for ever. Again without effect. While the library starts.
void watchEnding(EndingWatch& watch) noexcept;

// The transport's way is lost: ends the requests that wait on it, and tells the watches of a parent.
void wayIsLost(uint32_t id, bool parent) noexcept;
// It is there again: tells the watches of a parent.
void wayIsBack(uint32_t id) noexcept;

// wait: until what was sent has gone where it goes, within the limit for closing. QUORL_DAEMON_NOT_CONNECTED: messages were
// dropped, though the transport is destroyed all the same.
quorl_status destroyTransport(uint32_t id, bool wait = true) noexcept;

// Writes a new inbox. subject has room for limit bytes.
quorl_status createInbox(uint32_t id, char* subject, uint32_t limit) noexcept;

quorl_status send(uint32_t id, quorlMsg message) noexcept;
quorl_status sendAll(uint32_t id, const quorlMsg* messages, uint32_t count) noexcept;
quorl_status sendReply(uint32_t id, quorlMsg reply, quorlMsg request) noexcept;
quorl_status sendRequest(uint32_t id, quorlMsg request, quorlMsg* reply, double timeout) noexcept;

}  // namespace quorl::transport
