// A connection of this process to a daemon, kept up for as long as transports use it: what goes out, what comes in, what
// happens when the daemon goes away.
//
// One thread of its own connects, subscribes and unsubscribes, reads and writes. A sender whose message finds that thread
// idle writes it itself, which saves a change of threads; one that finds it busy leaves the message to it, where messages
// gather into frames.
//
// Probes are messages of the connection to itself. The probe that has come back says that all that was sent before it has
// arrived at the daemon, so that no more than what followed it can be lost; one that does not come back says that the
// connection is dead, whatever the system thinks of it.
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"
#include "base/thread.h"
#include "transport/nats/admissions.h"
#include "transport/nats/connection_log.h"
#include "transport/nats/frame_writer.h"
#include "transport/nats/outbox.h"
#include "transport/nats/parameters.h"
#include "transport/nats/session.h"
#include "transport/nats/subscription.h"
#include "transport/nats/tally.h"
#include "transport/transport.h"

namespace quorl::transport::nats {

class Connection final : public Ending {
  public:
    // How a transport gathers what it sends.
    struct Batching {
        std::atomic<bool> gather{false};  // until size bytes wait or a short time has passed
        std::atomic<uint32_t> size{0};    // 0: no bound of its own
        std::atomic<int64_t> keep{0};  // nanoseconds that a message is worth keeping for a daemon that is away; 0: any
    };

    struct Limits {
        double connectTimeout = parameters::connectTimeout.initial;                             // seconds
        uint32_t reconnectBuffer = static_cast<uint32_t>(parameters::reconnectBuffer.initial);  // bytes
    };
    Connection(ConnectionKey key, std::vector<Server> servers, const Limits& limits, bool readyCheck);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // QUORL_INIT_FAILURE, QUORL_NO_MEMORY.
    quorl_status start() noexcept;
    // Waits until the first attempt to connect has ended, up to the limit for it. QUORL_DAEMON_NOT_FOUND,
    // QUORL_USERPASS_MISMATCH and others with the reason; QUORL_NOT_INITIALIZED when the library closes meanwhile.
    quorl_status waitUntilConnected() noexcept;
    bool failed() const noexcept { return phase_.load(std::memory_order_acquire) == failedToConnect; }

    // Asks the thread to send what waits, within the limit for closing, and to end. Then finished becomes true, and join
    // returns.
    void stop() noexcept;
    // Waits until it has finished after stop. QUORL_DAEMON_NOT_CONNECTED: messages were dropped, as the detail says.
    quorl_status await() noexcept override;
    // After it has finished: messages that were accepted and did not go out before the end, and those that went out in
    // its course and may not have arrived.
    uint64_t dropped() const noexcept { return dropped_.get(); }
    uint64_t unconfirmedAtEnd() const noexcept { return unconfirmedAtEnd_.get(); }
    bool finished() const noexcept { return phase_.load(std::memory_order_acquire) >= failedToConnect; }
    void join() noexcept { thread_.join(); }

    const ConnectionKey& key() const noexcept { return key_; }

    // The program's description, as the daemon's tools show it: from the next session on, which is made at once when nothing
    // was sent or listened to yet.
    void describe(std::string_view description) noexcept;

    // Backend::noRoom, and what put and Router::check say.
    quorl_status send(const message::ContentRef& content, const Batching& batching) noexcept;
    Outbox& outbox() noexcept { return outbox_; }

    quorl_status listen(Listener& listener) noexcept;
    void unlisten(Listener& listener) noexcept;
    // The pattern of all inboxes of one transport.
    quorl_status listenToInboxes(std::string_view pattern) noexcept { return addUser(pattern, {}, nullptr); }
    void unlistenToInboxes(std::string_view pattern) noexcept { removeUser(pattern, {}, nullptr); }
    Router& inboxes() noexcept { return inbound_.inboxes; }

    // Of this connection: the transports over it, and its log.
    Observers& observers() noexcept { return observers_; }
    // See Backend. On any thread; does not wait.
    Passage passage(std::string_view inbox, int64_t now) noexcept;

    // What the statistics say. On any thread; does not wait for the daemon. Throws std::bad_alloc.
    struct Figures {
        const char* phase = "";
        std::string server;  // that is used, or was used last; empty before the first
        uint64_t messagesOut = 0;
        uint64_t bytesOut = 0;
        uint64_t messagesIn = 0;
        uint64_t bytesIn = 0;
        uint64_t waiting = 0;          // bytes that wait to be sent
        uint64_t reconnects = 0;       // how often the daemon came back
        uint64_t lost = 0;             // messages refused or dropped while it was away
        uint64_t unconfirmed = 0;      // messages that were on their way to it when it went
        uint64_t malformed = 0;        // what came in and was no message
        uint64_t refused = 0;          // how often the daemon has refused a message or a subscription
        uint64_t refusedPatterns = 0;  // that it refuses now
        std::string reason;  // of the last refusal, loss or attempt to connect again that failed; empty: of none

        // Messages that may not have arrived.
        uint64_t missing() const noexcept { return lost + unconfirmed; }
    };
    Figures figures();

    // For the list of connections: who uses this one. Guarded by that list's lock.
    uint32_t users = 0;

  private:
    enum Phase : uint32_t { connecting, connected, away, failedToConnect, done };

    // A change of what is subscribed to, in the order in which the program asked for it.
    struct Change {
        std::unique_ptr<Subscription> subscription;  // to unsubscribe and then free; null: subscribe to added
        Subscription* added = nullptr;
    };

    class ProbeSink final : public Sink {
      public:
        explicit ProbeSink(Connection& connection) noexcept : connection_(connection) {}
        void received(std::string_view, const uint8_t* payload, size_t size) noexcept override;

      private:
        Connection& connection_;
    };

    class RefusalSink final : public Refusals {
      public:
        explicit RefusalSink(Connection& connection) noexcept : connection_(connection) {}
        void refused(const Complaint& complaint, std::string_view words) noexcept override {
            connection_.refused(complaint, words);
        }

      private:
        Connection& connection_;
    };

    quorl_status addUser(std::string_view pattern, std::string_view share, Listener* listener) noexcept;
    void removeUser(std::string_view pattern, std::string_view share, Listener* listener) noexcept;
    bool endSubscription(std::unique_ptr<Subscription>& subscription) noexcept REQUIRES(lock_);
    void endLeftBehind() noexcept REQUIRES(lock_);

    // Of the thread.
    void run() noexcept;
    void keepUp() noexcept;
    bool mayRename() noexcept;
    void reconnect() noexcept;
    void connectFirst();
    quorl_status connectAgain();
    // A server, and which of those that the program named it is, or was named by.
    struct Target {
        Server server;
        Server named;
    };
    quorl_status takeUp(const Target& target, int64_t deadline);
    void learnServers();
    int64_t withJitter(int64_t pause) noexcept;
    bool awaitProbe(Session& session, int64_t deadline) noexcept;
    void serve() noexcept;
    bool over() const noexcept;
    bool finishSending() noexcept;
    void settle() noexcept;
    void countLoss() noexcept;
    void refused(const Complaint& complaint, std::string_view words) noexcept;
    void remember(std::string_view reason) noexcept;
    void dropSession() noexcept;
    void pause(int64_t nanoseconds) noexcept;
    void emptyWakeEvent() noexcept;
    void adviseRejections() noexcept;
    void adviseRefusals() noexcept;
    void adviseTaken(const Admissions::News& news) noexcept;
    void adviseDenied(quorl_status status) noexcept;
    void adviseDropped() noexcept;
    uint64_t messagesWaiting() noexcept;

    // Under io_.
    void applyChanges() noexcept;
    void askAgain(int64_t now) noexcept;
    void subscribe(Session& session, Subscription& subscription) noexcept;
    void watchProbes(int64_t now) noexcept;
    void watchOutput(int64_t now) noexcept;
    int64_t nextLook() const noexcept;
    int waitForEvents(epoll_event* events, int most, int64_t nanoseconds) noexcept;
    enum class Flushed { all, blocked, changesFirst };
    Flushed flush() noexcept;
    bool sendProbe(Session& session, int64_t now) noexcept;
    bool probeIsBack(int64_t now) noexcept;
    void probeByBytes() noexcept;

    // Makes the thread look for work: when it sleeps, or in any case.
    void wake() noexcept;
    void wakeThread() noexcept;

    const ConnectionKey key_;
    const std::shared_ptr<ConnectionLog> log_;
    Observers observers_;
    const int64_t connectTimeout_;  // nanoseconds
    const bool readyCheck_;

    Inbound inbound_;
    const std::string probeSubject_;  // on the wire
    Outbox outbox_;
    Thread thread_;
    int epoll_ = -1;
    int wakeEvent_ = -1;

    std::atomic<uint32_t> phase_{connecting};  // creators sleep on it
    std::atomic<bool> stopping_{false};
    std::atomic<int64_t> stopBy_{0};        // on the monotonic clock; set before stopping
    std::atomic<bool> asleep_{false};       // the thread waits, or is about to, and has nothing to send
    std::atomic<bool> gathering_{false};    // what waits to be sent may wait for more
    std::atomic<bool> flushNow_{false};     // but no longer
    std::atomic<bool> unconfirmed_{false};  // something was sent since the last probe
    std::atomic<bool> renamed_{false};      // the session does not know the name yet
    std::atomic<uint32_t> changesWaiting_{0};
    std::atomic<int64_t> lastSend_{0};     // when a sender last found the thread asleep
    std::atomic<uint64_t> probeSeen_{0};   // the number of the last probe that came back
    std::atomic<int64_t> probeSentAt_{0};  // of the one that is under way; 0: none is
    std::atomic<int64_t> passedAt_{0};     // when the last one that came back was sent; 0: none ever came back
    std::atomic<int64_t> readAt_{0};       // when bytes last came in
    std::atomic<int64_t> lossAt_{0};       // when the connection was last lost, once it is back; 0: never
    Tally lostEver_;  // of the thread, like the next; without what the outbox has lost since the daemon was there
    Tally unconfirmedEver_;
    Tally refusedEver_;
    Tally dropped_;
    Tally unconfirmedAtEnd_;
    std::atomic<uint64_t> refusedNow_{0};  // subscriptions

    Mutex lock_;                                             // taken inside io_ and inside transports' locks
    quorl_status firstStatus_ GUARDED_BY(lock_) = QUORL_OK;  // of the first attempt to connect
    std::string firstText_ GUARDED_BY(lock_);
    std::string server_ GUARDED_BY(lock_);  // that is used, or was used last
    std::string reason_ GUARDED_BY(lock_);  // Figures::reason
    std::string name_ GUARDED_BY(lock_);    // for the daemon's tools, from the next session on
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
    };
    // One without users is about to go: there was no memory to say so to the daemon.
    std::unordered_map<std::string, std::unique_ptr<Subscription>, Hash, std::equal_to<>> subscriptions_
        GUARDED_BY(lock_);
    bool leftBehind_ GUARDED_BY(lock_) = false;  // there may be such
    std::vector<Change> changes_ GUARDED_BY(lock_);

    // Of what follows: whoever calls the session holds it, unless the session says otherwise. The thread, which alone makes and
    // drops sessions, may look which one there is without it.
    Mutex io_;
    std::unique_ptr<Session> session_;
    std::unique_ptr<Outbox::Chunk> current_;  // partly sent
    size_t nextFrame_ = 0;                    // of it
    FrameWriter writer_;
    ProbeSink probeSink_{*this};
    RefusalSink refusalSink_{*this};
    const char* givenUp_ = nullptr;  // why the session is taken for lost; null while it is not
    int64_t returned_ = 0;           // when the session began
    Tally handed_;                   // messages given to sessions, ever
    Tally handedBytes_;              // their bytes
    Tally confirmed_;                // of the messages, those before the last probe that came back
    uint64_t probed_ = 0;            // of the messages, those before the last probe that was sent
    uint64_t probedBytes_ = 0;       // of the bytes, those before it
    uint64_t probeNumber_ = 0;       // of the last probe; never repeated
    bool probeUnderWay_ = false;
    bool missed_ = false;      // it should have come back a second ago
    int64_t probeTime_ = 0;    // when a probe was last sent or came back
    int64_t outputAt_ = 0;     // when what goes out was last looked at
    int64_t outputMoved_ = 0;  // when it was last seen to move, or to be all gone
    uint64_t outputGone_ = 0;  // bytes that the other side's system had confirmed then
    int64_t lastRead_ = 0;

    // Of the thread.
    const std::vector<Server> servers_;  // those that the program named
    std::vector<Target> further_;        // and those that the daemon told of
    size_t nextServer_ = 0;              // of both
    Server named_;                       // of the session
    int64_t pause_ = 0;                  // before the next attempt to connect again
    uint64_t chance_;                    // for pauses: not secret, and different in each process
    bool precise_ = true;                // the system waits for fractions of a millisecond
    int64_t gatherUntil_ = 0;            // 0: not set
    int64_t adviseRejectionsAt_ = 0;     // not before
    int64_t adviseRefusalsAt_ = 0;       // the same
    Admissions admissions_;
    uint64_t newRefusals_ = 0;    // since they were last told
    std::string refusalWords_;    // of the last of them
    std::string refusedSubject_;  // of the first of them that was a message
    bool probeRefused_ = false;   // probes are not carried in this session
    bool denied_ = false;         // it was told that the daemon takes this process in no more
    int64_t lostAt_ = 0;
    std::string lostReason_;
    uint64_t lostUnconfirmed_ = 0;
};

}  // namespace quorl::transport::nats
