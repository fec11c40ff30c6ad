// A certified transport: a machine on the library's host, its ledger, and what it hears and says on a plain transport.
//
// The lock serializes the steps of the machine. Under it the step's writes are submitted to the ledger, its messages sent and its
// deliveries posted, so that all three have the order of the steps. What waits comes behind it: for the disk, for room on the
// transport. A call of the program waits itself, so that many share a commit; what the host's thread has stored is waited for
// by the committer. Either then tells the machine, which sends what had to be safe first.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/committer.h"
#include "certified/ledger/ledger.h"
#include "certified/protocol/machine.h"
#include "certified/relay/link.h"
#include "companion/certified.h"
#include "companion/host.h"
#include "quorl/quorlcm.h"

namespace quorl::certified {

class CmListener;

class Node final : public companion::CertifiedTransport,
                   public companion::Guest,
                   private RelayLink::Owner,
                   public std::enable_shared_from_this<Node> {
  public:
    // What a relay agent hears of a transport that it made to stand in for another. Called under the transport's lock: it waits
    // for nothing. What is delivered is never confirmed.
    struct StandIn {
        virtual ~StandIn() = default;
        virtual void delivered(const companion::Message& message) noexcept = 0;
        // What a listener has said to the address, and has shown to be its own.
        virtual void heard(const companion::Message& message) noexcept = 0;
    };
    struct Wish {
        uint32_t transport = 0;
        std::string name;  // empty: one of the library's own
        bool requestOld = false;
        std::string ledger;  // empty: in memory
        bool sync = false;
        std::string relay = {};                  // name of its relay agent; empty: none
        StandIn* standIn = nullptr;              // lives until the transport has completed
        std::vector<std::string> patterns = {};  // that a stand-in listens to
    };
    // Makes a certified transport and gives it an id.
    static quorl_status create(const Wish& wish, uint32_t* id);

    Node(const Wish& wish, const Settings& settings, const Chance& chance);
    ~Node() override;

    // ---- sending; statuses have a detail text
    quorl_status send(quorlMsg handle) noexcept;
    quorl_status sendReply(quorlMsg reply, quorlMsg request) noexcept;
    quorl_status sendRequest(quorlMsg request, quorlMsg* reply, double timeout) noexcept;

    // Calls change(machine, now, output) as one step, and waits until what it stored is as durable as the ledger is.
    template <class F>
    quorl_status call(F&& change) noexcept {
        return step(std::forward<F>(change), Waits::yes);
    }
    quorl_status sync() noexcept;
    // To the relay agent, and from it. QUORL_NOT_PERMITTED: there is none.
    quorl_status connect() noexcept;
    quorl_status disconnect() noexcept;
    quorl_status review(const char* pattern, quorlcmReviewCallback callback, const void* closure) noexcept;

    // ---- listening
    bool isQueue() const noexcept override { return false; }
    quorl_status listen(uint32_t queue, quorlcmEventCallback callback, const char* pattern, const void* closure,
                        uint32_t* id) noexcept override;
    void unlisten(uint32_t number, bool cancel) noexcept;
    // When this returns, the message will not be delivered again; but after a callback, where the ledger syncs, it is only on its way
    // to the disk, so that callbacks do not wait for that one by one.
    enum class Confirmed : bool { byCallback, byProgram };
    quorl_status confirm(uint32_t number, const companion::Message& message, Confirmed how) noexcept;
    void lost() noexcept { ++dropped_; }

    // ---- what the library and its host tell
    void closed() noexcept override;
    void completed() noexcept override;
    void parentClosed() noexcept override;
    void parentBack() noexcept override;
    void wake() noexcept override;
    void received(uint32_t ear, companion::Message&& message) noexcept override;

  private:
    enum class Waits : bool { no, yes };
    // What a step leaves to be done without the lock.
    struct After {
        Pending stored;
        std::vector<Fetch> fetches;
        std::vector<Event> events;
        quorl_status sent = QUORL_OK;  // the first failure of the transport
        Outcome refused;               // the ledger did not take the step
        bool waitsForRoom = false;     // messages are left that found none
    };
    // A request that waits for its reply.
    struct Request {
        companion::Message reply;
        bool replied = false;
        bool aborted = false;
        std::condition_variable changed;
    };

    // One step, and what belongs under the lock. evenEnded: also when the transport is closed.
    template <class F>
    quorl_status locked(F&& change, After& after, bool evenEnded = false) noexcept;
    // The same, and what comes behind it. A failure has its detail text.
    template <class F>
    quorl_status step(F&& change, Waits waits) noexcept;
    void carryOut(quorl_status status, After& after) noexcept;
    bool tellFailure(uint64_t token, quorl_status status) noexcept;
    quorl_status finish(After& after, Waits waits) noexcept;
    void ended(uint64_t token, const Outcome& outcome, After& after) noexcept;
    void deliver(std::vector<Delivery>& deliveries) noexcept;
    void flush(After& after) noexcept;
    void flushAll(int64_t deadline) noexcept;
    std::string storageText() noexcept;
    quorl_status explain(quorl_status status) noexcept;
    template <class F>
    quorl_status sendBy(const companion::Message& message, F&& change) noexcept;
    quorl_status awaitReply(Request& request, uint32_t number, int64_t deadline, quorlMsg* reply) noexcept;

    quorl_status load();
    quorl_status start(const std::vector<std::string>& patterns) noexcept;
    quorl_status hear(std::string_view subject, uint32_t number) noexcept;
    quorl_status goOnLine() noexcept;
    quorl_status copyFor(RelayCopy& copy) noexcept;
    void take(const companion::Message& message, uint64_t after) noexcept override;
    bool isStored(const companion::Message& message) noexcept override;
    bool image(const StoredMessage& message, companion::Message* read) noexcept override;

    static Now now() noexcept { return {companion::monotonicNow(), companion::wallNow()}; }

    const uint32_t transport_;
    const std::string name_;
    std::atomic<uint32_t> id_{0};
    std::unique_ptr<Ledger> ledger_;  // null: in memory
    Committer committer_;
    std::atomic<uint64_t> dropped_{0};
    std::atomic<bool> started_{false};
    std::atomic<bool> back_{false};  // the way is there again, and the machine does not know
    const bool syncs_;               // the ledger, before it says that something is stored
    StandIn* const standIn_;
    std::unique_ptr<RelayLink> relay_;  // null: no relay agent
    std::mutex relayLock_;              // one of connect and disconnect at a time; before lock_

    std::mutex lock_;  // guards what follows
    Machine machine_;
    Output out_;
    bool ended_ = false;    // only what was stored is waited for
    bool offLine_ = false;  // hears and sends nothing
    uint32_t relayEar_ = 0;
    std::string storageText_;
    // What the ledger did not take, and the machine had no memory to be told: it takes no step before it knows. 0: nothing.
    uint64_t untold_ = 0;
    quorl_status untoldStatus_ = QUORL_OK;
    std::deque<companion::Message> backlog_;  // what found no room
    std::map<uint32_t, uint32_t> ears_;       // the library's listeners: the numbers of the machine's
    std::map<uint32_t, uint32_t> listeners_;  // the other way round
    std::map<uint32_t, Request*> requests_;   // by the numbers of the machine's listeners
    uint32_t lastRequest_ = 0;
};

template <class F>
quorl_status Node::locked(F&& change, After& after, bool evenEnded) noexcept {
    const std::lock_guard lock(lock_);
    if (ended_ && !evenEnded) return QUORL_INVALID_TRANSPORT;
    quorl_status status;
    out_.clear();
    if (untold_ != 0 && !tellFailure(untold_, untoldStatus_)) {
        status = QUORL_NO_MEMORY;
    } else {
        try {
            status = change(machine_, now(), out_);
        } catch (const std::bad_alloc&) {
            status = QUORL_NO_MEMORY;
        }
    }
    carryOut(status, after);
    return status;
}

template <class F>
quorl_status Node::step(F&& change, Waits waits) noexcept {
    After after;
    const quorl_status status = locked(change, after);
    const quorl_status stored = finish(after, waits);
    return status != QUORL_OK ? explain(status) : stored;
}

// The host of all certified transports; the module starts and stops it.
companion::Host& host() noexcept;
quorl_status useModule() noexcept;

// What the module tells of all certified transports.
struct Figures {
    std::atomic<uint32_t> transports{0};
    std::atomic<uint64_t> accepted{0};   // sends
    std::atomic<uint64_t> delivered{0};  // to queues
    std::atomic<uint64_t> confirmed{0};  // by listeners here
    std::atomic<uint64_t> dropped{0};    // by the limits of queues
};
Figures& figures() noexcept;

}  // namespace quorl::certified
