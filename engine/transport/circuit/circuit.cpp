// The circuits of this process: their machines, what drives them, and the transports over them.
#include "transport/circuit/circuit.h"

#include <sys/random.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/environment.h"
#include "base/futex.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread.h"
#include "event/dispatch.h"
#include "event/queue.h"
#include "subject/subject.h"
#include "transport/advisory.h"
#include "transport/circuit/machine.h"
#include "transport/circuit/parameters.h"
#include "transport/local.h"
#include "transport/router.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {
namespace {

// What waiters see of a circuit.
enum Phase : uint32_t { pending = 0, up = 1, lost = 2, closed = 3 };

struct Circuit {
    explicit Circuit(const Settings& settings) noexcept : machine(settings) {}

    // Set once, before anything can reach the circuit.
    uint64_t token = 0;   // names it among all circuits there ever were
    uint32_t parent = 0;  // the transport below
    std::string address;  // where this end hears

    std::atomic<uint32_t> listener{0};     // of that address; 0 until it is made
    std::atomic<uint32_t> transport{0};    // of the circuit itself; 0 until it is published
    std::atomic<uint32_t> phase{pending};  // threads that wait for the connection sleep on it
    std::atomic<int64_t> due{INT64_MAX};   // of the machine
    std::atomic<uint32_t> roomChanges{0};  // threads that wait for room to send sleep on it
    std::atomic<uint32_t> roomWaiters{0};

    Router router;  // of what the peer sends

    // Taken before the locks of the parent's carrier.
    Mutex lock;
    Machine machine GUARDED_BY(lock);
    Output output GUARDED_BY(lock);
};
using CircuitRef = std::shared_ptr<Circuit>;

struct Service {
    std::map<uint64_t, CircuitRef> circuits;  // by token
    uint64_t lastToken = 0;
    uint32_t queue = 0;  // of what comes in for all circuits
    Thread thread;
};

constinit Mutex serviceLock;
// Made with the first circuit, and kept.
constinit Service* service GUARDED_BY(serviceLock) POINTS_TO_GUARDED_BY(serviceLock) = nullptr;
constinit std::atomic<bool> stopping{false};        //
constinit std::atomic<uint32_t> queueId{0};         // 0 while no thread runs
constinit std::atomic<uint32_t> alive{0};           // circuits in the service
constinit std::atomic<int64_t> nextDue{INT64_MAX};  // the thread wakes no later
// The thread's key for signals.
alignas(4) constinit std::atomic<uint32_t> threadKey{0};
thread_local constinit bool onServiceThread = false;

void wakeThread() noexcept {
    const uint32_t queue = queueId.load(std::memory_order_acquire);
    if (queue == 0) return;
    KeptErrorText kept;
    threadKey.store(queue, std::memory_order_seq_cst);
    event::signalDispatchable(queue);
}

void lowerNextDue(int64_t due) noexcept {
    int64_t now = nextDue.load(std::memory_order_seq_cst);
    do {
        if (now <= due) return;
    } while (!nextDue.compare_exchange_weak(now, due, std::memory_order_seq_cst));
    if (!onServiceThread) wakeThread();
}

CircuitRef find(uint64_t token) noexcept {
    Lock lock(serviceLock);
    if (service == nullptr) return nullptr;
    const auto found = service->circuits.find(token);
    return found == service->circuits.end() ? nullptr : found->second;
}

// The circuits that match, or as many as there is memory for.
template <class F>
std::vector<CircuitRef> collect(F&& matches) noexcept {
    std::vector<CircuitRef> found;
    Lock lock(serviceLock);
    if (service == nullptr) return found;
    try {
        found.reserve(service->circuits.size());
    } catch (const std::bad_alloc&) {
        return found;
    }
    for (const auto& [token, circuit] : service->circuits) {
        if (matches(*circuit)) found.push_back(circuit);
    }
    return found;
}

// Sends what the machine gave out. What does not get out is a lost frame.
void transmit(Circuit& circuit, ThreadState& thread) noexcept REQUIRES(circuit.lock) {
    if (circuit.output.frames.empty()) return;
    KeptErrorText kept;
    Section section(thread);
    auto* parent = registry::find<Transport>(circuit.parent);
    if (parent == nullptr) {
        circuit.output.frames.clear();
        circuit.machine.fail("the transport below was closed", circuit.output);
        return;
    }
    bool crowded = false;
    for (Outgoing& outgoing : circuit.output.frames) {
        // Room is not waited for: this may be the thread that makes the room.
        if (!crowded) {
            message::ContentRef wire;
            const std::string& to = outgoing.to.empty() ? circuit.machine.peer() : outgoing.to;
            if (encode(outgoing.frame, to, &wire) != QUORL_OK) continue;
            crowded = parent->carrier->send(thread, std::move(wire)) == Carrier::noRoom;
        }
        if (crowded) circuit.machine.repeatSoon(outgoing.frame, monotonicNow());
    }
    circuit.output.frames.clear();
}

// Ends the waiting requests of a circuit that has no peer any more.
void abortRequests(uint32_t id, ThreadState& thread) noexcept {
    Section section(thread);
    auto* transport = registry::find<Transport>(id);
    if (transport == nullptr) return;
    Lock lock(transport->lock);
    abortAll(*transport);
}

// Takes a circuit out of the service. The caller's reference keeps it.
void retire(Circuit& circuit) noexcept {
    CircuitRef last;
    {
        Lock lock(serviceLock);
        const auto found = service->circuits.find(circuit.token);
        if (found == service->circuits.end()) return;
        last = std::move(found->second);
        service->circuits.erase(found);
        alive.fetch_sub(1, std::memory_order_relaxed);
    }
    if (const uint32_t listener = circuit.listener.exchange(0, std::memory_order_acq_rel); listener != 0) {
        KeptErrorText kept;
        event::destroyEvent(listener, nullptr);
    }
}

void tell(const Circuit& circuit, const char* name, const char* reason, uint64_t undelivered) noexcept {
    advise(Severity::warn, "circuit", name,
           {{"transport", circuit.transport.load(std::memory_order_relaxed)},
            {"reason", reason},
            {"undelivered", undelivered}});
}

// Whether a send ends at once, well or not.
bool takesMessages(const Machine& machine) noexcept {
    return machine.state() != Machine::State::up || machine.hasRoom();
}

// Calls step(machine, output) and does what comes out of it. Inside no lock of the circuit.
template <class F>
quorl_status drive(Circuit& circuit, ThreadState& thread, F&& step) noexcept {
    quorl_status status = QUORL_OK;
    std::vector<message::ContentRef> deliveries;
    bool connected;
    bool ended;
    bool done;
    bool wake;
    uint64_t undelivered;
    const char* reason;
    {
        Lock lock(circuit.lock);
        circuit.output.clear();
        try {
            status = step(circuit.machine, circuit.output);
        } catch (const std::bad_alloc&) {
            status = QUORL_NO_MEMORY;
        }
        transmit(circuit, thread);
        deliveries.swap(circuit.output.deliveries);
        connected = circuit.output.connected;
        ended = circuit.output.lost;
        undelivered = circuit.output.undelivered;
        done = circuit.machine.state() == Machine::State::done;
        reason = circuit.machine.reason();
        const int64_t due = circuit.machine.due();
        circuit.due.store(due, std::memory_order_relaxed);
        if (due != INT64_MAX) lowerNextDue(due);
        wake = circuit.roomWaiters.load(std::memory_order_seq_cst) != 0 && takesMessages(circuit.machine);
    }
    if (wake) {
        circuit.roomChanges.fetch_add(1, std::memory_order_release);
        futexWake(circuit.roomChanges, INT32_MAX);
    }
    uint32_t expected = pending;
    if (connected && circuit.phase.compare_exchange_strong(expected, up)) futexWake(circuit.phase, INT32_MAX);
    if (!deliveries.empty()) {
        Section section(thread);
        for (auto& content : deliveries) circuit.router.route(thread, std::move(content));
    }
    if (ended) {
        for (uint32_t from : {pending, up}) circuit.phase.compare_exchange_strong(from, lost);
        futexWake(circuit.phase, INT32_MAX);
        if (const uint32_t id = circuit.transport.load(std::memory_order_acquire); id != 0) abortRequests(id, thread);
        tell(circuit, "lost", reason, undelivered);
    } else if (undelivered != 0) {
        tell(circuit, "undelivered", "the program closed the circuit", undelivered);
    }
    if (done) retire(circuit);
    return status;
}

// ---- the thread -------------------------------------------------------------------------------------------------

void onFrame(quorlEvent, quorlMsg message, void* closure) {
    const CircuitRef circuit = find(reinterpret_cast<uintptr_t>(closure));
    Frame frame;
    if (!circuit || !decode(message, &frame)) return;
    drive(*circuit, *threadState(), [&](Machine& machine, Output& out) {
        machine.receive(std::move(frame), monotonicNow(), out);
        return QUORL_OK;
    });
}

Passage passageBelow(const Circuit& circuit, ThreadState& thread, int64_t now) noexcept {
    Section section(thread);
    auto* parent = registry::find<Transport>(circuit.parent);
    return parent != nullptr ? parent->carrier->passage(circuit.address, now) : Passage::open(now);
}

void tickAll(ThreadState& thread, int64_t now) noexcept {
    // Whoever sets an earlier time from now on lowers it again.
    nextDue.store(INT64_MAX, std::memory_order_seq_cst);
    const std::vector<CircuitRef> circuits = collect([](const Circuit&) { return true; });
    if (circuits.empty() && alive.load(std::memory_order_relaxed) != 0) return lowerNextDue(now + 10'000'000);
    for (const CircuitRef& circuit : circuits) {
        if (circuit->due.load(std::memory_order_relaxed) > now) {
            Lock lock(circuit->lock);
            if (const int64_t due = circuit->machine.due(); due != INT64_MAX) lowerNextDue(due);
            continue;
        }
        const Passage passage = passageBelow(*circuit, thread, now);
        drive(*circuit, thread, [&](Machine& machine, Output& out) {
            machine.tick(now, passage, out);
            return QUORL_OK;
        });
    }
}

void runService() {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    onServiceThread = true;
    event::setThreadKey(&threadKey);
    const uint32_t queue = queueId.load(std::memory_order_acquire);
    while (!stopping.load(std::memory_order_acquire)) {
        const int64_t now = monotonicNow();
        if (now >= nextDue.load(std::memory_order_seq_cst)) tickAll(*thread, now);
        const int64_t due = nextDue.load(std::memory_order_seq_cst);
        const double timeout = due == INT64_MAX ? -1 : static_cast<double>(std::max<int64_t>(due - now, 0)) / 1e9;
        const quorl_status status = event::dispatchQueue(queue, timeout);
        if (status == QUORL_INVALID_QUEUE || status == QUORL_NOT_INITIALIZED) break;
    }
    event::setThreadKey(nullptr);
    onServiceThread = false;
}

// No default limit may drop what came in; the name is for the statistics.
void prepareQueue(uint32_t id) noexcept {
    Section section(*threadState());
    auto* queue = registry::find<event::Queue>(id);
    if (queue == nullptr) return;
    event::setLimit(*queue, {});
    try {
        std::string name = "quorl.circuits";
        Lock lock(queue->nameLock);
        queue->name.swap(name);
    } catch (const std::bad_alloc&) {
        // It goes without.
    }
}

// Makes the queue and starts the thread when they are not there.
quorl_status makeReady() noexcept REQUIRES(serviceLock) {
    if (!registry::accepting()) return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    if (service == nullptr) service = new (std::nothrow) Service;
    if (service == nullptr) return fail(QUORL_NO_MEMORY, "no memory for circuits");
    if (service->thread.started()) return QUORL_OK;
    uint32_t queue = 0;
    if (const quorl_status status = event::createQueue(&queue); status != QUORL_OK) return status;
    prepareQueue(queue);
    stopping.store(false, std::memory_order_relaxed);
    nextDue.store(INT64_MAX, std::memory_order_relaxed);
    queueId.store(queue, std::memory_order_release);
    service->queue = queue;
    const quorl_status status = service->thread.start("quorl-circuits", runService);
    if (status == QUORL_OK) return status;
    queueId.store(0, std::memory_order_relaxed);
    KeptErrorText kept;
    event::destroyQueue(queue, nullptr, nullptr, false);
    return status;
}

// ---- the transport ----------------------------------------------------------------------------------------------

quorl_status notConnected(Circuit& circuit) noexcept {
    switch (circuit.phase.load(std::memory_order_acquire)) {
        case pending:
            return fail(QUORL_VC_NOT_CONNECTED, "the circuit is not connected yet");
        case Phase::closed:
            return fail(QUORL_VC_NOT_CONNECTED, "the circuit was closed");
        default:
            break;
    }
    Lock lock(circuit.lock);
    return fail(QUORL_VC_NOT_CONNECTED, "the circuit is lost: %s", circuit.machine.reason());
}

class CircuitCarrier final : public Carrier {
  public:
    explicit CircuitCarrier(CircuitRef circuit) noexcept : circuit_(std::move(circuit)) {}

    Circuit& circuit() const noexcept { return *circuit_; }

    quorl_status check(std::string_view subject) const noexcept override { return Router::check(subject); }

    quorl_status send(ThreadState& thread, message::ContentRef content) noexcept override {
        if (const quorl_status status = Router::check(content.sendSubject()); status != QUORL_OK) return status;
        if (const quorl_status status = local::checkReply(content.replySubject()); status != QUORL_OK) return status;
        if (content.byteSize() > largestContent)
            return fail(QUORL_INVALID_SIZE, "a circuit carries messages of at most %u bytes", largestContent);
        const quorl_status status = drive(*circuit_, thread, [&](Machine& machine, Output& out) {
            return machine.send(std::move(content), monotonicNow(), out);
        });
        switch (status) {
            case QUORL_OK:
                return status;
            case QUORL_VC_NOT_CONNECTED:
                return notConnected(*circuit_);
            case QUORL_QUEUE_LIMIT:
                return noRoom;
            default:
                return fail(status, "no memory for a message on a circuit");
        }
    }
    quorl_status deliver(ThreadState& thread, message::ContentRef content) noexcept override {
        return circuit_->router.route(thread, std::move(content));
    }

    quorl_status listen(Listener& listener) noexcept override {
        return guarded([&] { circuit_->router.add(listener); });
    }
    void unlisten(Listener& listener) noexcept override { circuit_->router.remove(listener); }

    quorl_status openRequest(Request& request) noexcept override {
        return guarded([&] { circuit_->router.add(request); });
    }
    void closeRequest(Request& request) noexcept override { circuit_->router.remove(request); }

    // A circuit loses nothing; what the peer has not acknowledged is on its way. What comes in is whole, but for what the way
    // below puts together.
    Passage passage(std::string_view, int64_t now) noexcept override {
        Passage passage = Passage::open(now);
        if (ThreadState* thread = threadState(); thread != nullptr)
            passage.arriving = passageBelow(*circuit_, *thread, now).arriving;
        Lock lock(circuit_->lock);
        passage.passed = circuit_->machine.confirmedUntil(now);
        return passage;
    }

    bool awaitRoom(int64_t deadline) noexcept override {
        Circuit& circuit = *circuit_;
        circuit.roomWaiters.fetch_add(1, std::memory_order_seq_cst);
        for (;;) {
            const uint32_t seen = circuit.roomChanges.load(std::memory_order_acquire);
            {
                Lock lock(circuit.lock);
                if (takesMessages(circuit.machine)) break;
            }
            if (!futexWait(circuit.roomChanges, seen, deadline)) break;
        }
        circuit.roomWaiters.fetch_sub(1, std::memory_order_relaxed);
        return circuit.phase.load(std::memory_order_acquire) != Phase::closed;
    }

    void closed(ThreadState& thread) noexcept override {
        circuit_->phase.store(Phase::closed, std::memory_order_release);
        futexWake(circuit_->phase, INT32_MAX);
        drive(*circuit_, thread, [](Machine& machine, Output& out) {
            machine.close(monotonicNow(), out);
            return QUORL_OK;
        });
    }
    quorl_status whyAborted() const noexcept override {
        if (circuit_->phase.load(std::memory_order_acquire) != lost) return Carrier::whyAborted();
        return notConnected(*circuit_);
    }

  private:
    template <class F>
    static quorl_status guarded(F&& change) noexcept {
        try {
            change();
            return QUORL_OK;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory on a circuit");
        }
    }

    const CircuitRef circuit_;
};

// Draws what tells a circuit from all others in the world.
bool drawSession(uint64_t* session) noexcept {
    return getrandom(session, sizeof *session, 0) == static_cast<ssize_t>(sizeof *session);
}

// Puts the circuit into the service and lets it hear.
quorl_status enlist(const CircuitRef& circuit) {
    uint32_t queue;
    {
        Lock lock(serviceLock);
        if (const quorl_status status = makeReady(); status != QUORL_OK) return status;
        circuit->token = ++service->lastToken;
        service->circuits.emplace(circuit->token, circuit);
        alive.fetch_add(1, std::memory_order_relaxed);
        queue = service->queue;
    }
    // The closure is the token itself: it names no memory that could be gone.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const auto* closure = reinterpret_cast<const void*>(static_cast<uintptr_t>(circuit->token));
    const ListenerRequest request{.queue = queue,
                                  .transport = circuit->parent,
                                  .subject = circuit->address.c_str(),
                                  .closure = closure,
                                  .callback = onFrame,
                                  .vectorCallback = nullptr,
                                  .groupId = nullptr,
                                  .vector = false};
    uint32_t listener = 0;
    const quorl_status status = createListener(&listener, request);
    circuit->listener.store(listener, std::memory_order_release);
    if (status != QUORL_OK) retire(*circuit);
    return status;
}

// peer: null for an accepting end.
quorl_status create(uint32_t* id, uint32_t parent, const char* peer, CircuitRef* made) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    try {
        std::array<char, QUORL_SUBJECT_MAX + 1> address;
        if (const quorl_status status = createInbox(parent, address.data(), address.size()); status != QUORL_OK)
            return status;
        Settings settings;
        settings.lostAfter = nanosecondsOf(environment::parameters().of(parameters::timeout));
        const auto circuit = std::make_shared<Circuit>(settings);
        circuit->parent = parent;
        circuit->address = address.data();
        if (peer != nullptr) {
            uint64_t session;
            if (!drawSession(&session)) return fail(QUORL_OS_ERROR, "the system gives no random numbers");
            Lock lock(circuit->lock);
            circuit->machine = Machine(settings, session, circuit->address, peer, monotonicNow());
        }
        auto carrier = std::make_unique<CircuitCarrier>(circuit);
        if (const quorl_status status = enlist(circuit); status != QUORL_OK) return status;
        uint32_t published = 0;
        if (const quorl_status status = publishTransport(&published, std::move(carrier)); status != QUORL_OK) {
            retire(*circuit);
            return status;
        }
        circuit->transport.store(published, std::memory_order_release);
        if (peer != nullptr) {
            drive(*circuit, *thread, [](Machine& machine, Output& out) {
                machine.tick(monotonicNow(), out);
                return QUORL_OK;
            });
        }
        *id = published;
        *made = circuit;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a circuit");
    }
}

void abandon(Circuit& circuit, ThreadState& thread, const char* reason) noexcept {
    drive(circuit, thread, [reason](Machine& machine, Output& out) {
        machine.abandon(reason, out);
        return QUORL_OK;
    });
}

}  // namespace

quorl_status createAccept(uint32_t* id, const char** subject, uint32_t parent) noexcept {
    CircuitRef circuit;
    const quorl_status status = create(id, parent, nullptr, &circuit);
    if (status == QUORL_OK) *subject = circuit->address.c_str();
    return status;
}

quorl_status createConnect(uint32_t* id, const char* subject, uint32_t parent) noexcept {
    if (subject == nullptr) return fail(QUORL_INVALID_SUBJECT, "no subject to connect to");
    const std::string_view text(subject, strnlen(subject, QUORL_SUBJECT_MAX + 1));
    if (!subject::isInbox(text) || !subject::validForSending(text))
        return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is no subject that an accepting end gave out", QUORL_SUBJECT_MAX,
                    subject);
    CircuitRef circuit;
    return create(id, parent, subject, &circuit);
}

quorl_status waitForConnection(uint32_t id, double timeout) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    registry::Pin<Transport> transport(*thread, id);
    if (!transport) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    auto* carrier = dynamic_cast<CircuitCarrier*>(transport->carrier.get());
    if (carrier == nullptr) return fail(QUORL_INVALID_TRANSPORT, "transport %u is no circuit", id);
    Circuit& circuit = carrier->circuit();
    const int64_t deadline = deadlineAfter(timeout);
    while (circuit.phase.load(std::memory_order_acquire) == pending) {
        if (!futexWait(circuit.phase, pending, deadline)) break;
    }
    switch (circuit.phase.load(std::memory_order_acquire)) {
        case up:
            return QUORL_OK;
        case lost:
            return notConnected(circuit);
        case Phase::closed:
            return fail(QUORL_INTR, "the circuit was closed while a thread waited for it");
        default:
            return fail(QUORL_TIMEOUT, "the circuit was not connected in time");
    }
}

void parentCloses(uint32_t parent) noexcept {
    if (alive.load(std::memory_order_relaxed) == 0) return;
    ThreadState& thread = *threadState();
    for (const CircuitRef& circuit : collect([parent](const Circuit& one) { return one.parent == parent; }))
        abandon(*circuit, thread, "the transport below was closed");
}

// The service itself is kept, and while the library closes nobody starts its thread: both are safe without the lock, which
// the thread may need to end.
void stop() noexcept UNCHECKED_GUARDS {
    ThreadState* thread = threadState();
    {
        Lock lock(serviceLock);
        if (service == nullptr || !service->thread.started()) return;
    }
    for (const CircuitRef& circuit : collect([](const Circuit&) { return true; })) {
        abandon(*circuit, *thread, "the library was closed");
        retire(*circuit);
    }
    stopping.store(true, std::memory_order_release);
    wakeThread();
    service->thread.join();
    queueId.store(0, std::memory_order_release);
    event::destroyQueue(service->queue, nullptr, nullptr, false);
}

}  // namespace quorl::transport::circuit
