// Ports, and the list of connections.
#include "transport/nats/port.h"

#include <algorithm>
#include <cinttypes>
#include <new>
#include <vector>

#include "base/clock.h"
#include "base/environment.h"
#include "base/futex.h"
#include "base/status.h"
#include "subject/subject.h"
#include "transport/nats/connection.h"
#include "transport/nats/connection_statistics.h"

namespace quorl::transport::nats {
namespace {

using Shared = std::shared_ptr<Connection>;

constinit Mutex listLock;
// While the library is open.
constinit std::vector<Shared>* list GUARDED_BY(listLock) POINTS_TO_GUARDED_BY(listLock) = nullptr;
constinit bool closing GUARDED_BY(listLock) = true;
constinit std::atomic<uint32_t> listChanges{0};  // stop sleeps on it
constinit std::atomic<bool> readyCheckOff{false};
// Of connections that have ended since the library was opened.
struct Ended {
    std::atomic<uint64_t> dropped{0};
    std::atomic<uint64_t> unconfirmed{0};
};
constinit Ended ended;
constinit std::atomic<uint64_t> missingEver{0};  // of those that have ended since the process began

// Takes those that have ended off the list; they are joined by whoever gets them.
std::vector<Shared> takeFinished() REQUIRES(listLock) {
    std::vector<Shared> taken;
    taken.reserve(list->size());
    std::erase_if(*list, [&](Shared& connection) {
        if (!connection->finished() || connection->users != 0) return false;
        taken.push_back(std::move(connection));
        return true;
    });
    return taken;
}

// Whether it was the last to use it.
bool leave(const Shared& connection) noexcept {
    bool last;
    {
        Lock lock(listLock);
        last = --connection->users == 0;
    }
    if (last) connection->stop();
    listChanges.fetch_add(1, std::memory_order_release);
    futexWake(listChanges);
    return last;
}

quorl_status join(const ConnectionKey& key, const std::vector<Server>& servers, Shared* joined) {
    std::vector<Shared> ended;
    Shared connection;
    {
        Lock lock(listLock);
        if (closing) return fail(QUORL_NOT_INITIALIZED, "the library is being closed");
        ended = takeFinished();
        // One that nobody uses any more is about to end.
        const auto found = std::find_if(list->begin(), list->end(), [&](const Shared& one) {
            return one->users != 0 && !one->failed() && one->key() == key;
        });
        if (found != list->end()) {
            connection = *found;
            ++connection->users;
        } else {
            list->reserve(list->size() + 1);
            const Parameters& given = environment::parameters();
            const Connection::Limits limits{given.of(parameters::connectTimeout),
                                            given.of(parameters::reconnectBuffer)};
            connection =
                std::make_shared<Connection>(key, servers, limits, !readyCheckOff.load(std::memory_order_relaxed));
            if (const quorl_status status = connection->start(); status != QUORL_OK) return status;
            connection->users = 1;
            list->push_back(connection);
        }
    }
    ended.clear();
    const quorl_status status = connection->waitUntilConnected();
    if (status != QUORL_OK) {
        leave(connection);
        return status;
    }
    *joined = std::move(connection);
    return QUORL_OK;
}

class Port final : public Backend {
  public:
    explicit Port(Shared connection) noexcept : connection_(std::move(connection)) {}

    ~Port() override {
        if (!closed_.load(std::memory_order_relaxed)) Port::close();
    }

    quorl_status check(std::string_view subject) const noexcept override { return Router::check(subject); }

    quorl_status send(ThreadState&, message::ContentRef content) noexcept override {
        return connection_->send(content, batching_);
    }
    void observe(const ObserverRef& observer) override { connection_->observers().add(observer); }
    void unobserve(const Observer& observer) noexcept override { connection_->observers().remove(observer); }

    // The connection goes with its last transport; its memory stays for the calls that are under way.
    void close() noexcept override {
        closed_.store(true, std::memory_order_seq_cst);
        if (!inboxPattern_.empty()) connection_->unlistenToInboxes(inboxPattern_);
        last_ = leave(connection_);
    }
    std::shared_ptr<Ending> ending() noexcept override { return last_ ? connection_ : nullptr; }

    quorl_status deliver(ThreadState& thread, message::ContentRef content) noexcept override {
        return connection_->inboxes().route(thread, std::move(content));
    }

    // The transport's lock is held by whoever calls the next four.
    quorl_status listen(Listener& listener) noexcept override {
        if (!subject::isInbox(listener.subject)) return connection_->listen(listener);
        try {
            if (const quorl_status status = openInboxes(listener.subject); status != QUORL_OK) return status;
            connection_->inboxes().add(listener);
            return QUORL_OK;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a listener of an inbox");
        }
    }
    void unlisten(Listener& listener) noexcept override {
        if (subject::isInbox(listener.subject)) {
            connection_->inboxes().remove(listener);
        } else {
            connection_->unlisten(listener);
        }
    }
    quorl_status openRequest(Request& request) noexcept override {
        try {
            if (const quorl_status status = openInboxes(request.inbox); status != QUORL_OK) return status;
            connection_->inboxes().add(request);
            return QUORL_OK;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a request");
        }
    }
    void closeRequest(Request& request) noexcept override { connection_->inboxes().remove(request); }

    void configure(const Settings& settings) noexcept override {
        batching_.gather.store(settings.batchMode == QUORLTRANSPORT_TIMER_BATCH, std::memory_order_relaxed);
        batching_.size.store(settings.batchSize, std::memory_order_relaxed);
        batching_.keep.store(nanosecondsOf(settings.reliability), std::memory_order_relaxed);
    }

    Passage passage(std::string_view inbox, int64_t now) noexcept override { return connection_->passage(inbox, now); }

    void describe(std::string_view description) noexcept override { connection_->describe(description); }

  private:
    // Inboxes of a transport have the first two elements in common, and one subscription together.
    quorl_status openInboxes(std::string_view inbox) {
        if (!inboxPattern_.empty()) return QUORL_OK;
        std::string pattern(inbox.substr(0, inbox.find('.', inbox.find('.') + 1) + 1));
        pattern += '>';
        if (const quorl_status status = connection_->listenToInboxes(pattern); status != QUORL_OK) return status;
        inboxPattern_ = std::move(pattern);
        return QUORL_OK;
    }

    const Shared connection_;
    Connection::Batching batching_;
    std::atomic<bool> closed_{false};
    bool last_ = false;         // the connection ends with this; written by close
    std::string inboxPattern_;  // guarded by the transport's lock; empty: no inbox is listened to
};

}  // namespace

quorl_status openPort(std::string_view daemon, std::string_view service, std::string_view network,
                      std::unique_ptr<Backend>* port) noexcept {
    try {
        std::vector<Server> servers;
        if (const quorl_status status = parseAddress(daemon, &servers); status != QUORL_OK) return status;
        Shared connection;
        const ConnectionKey key{std::string(daemon), std::string(service), std::string(network)};
        if (const quorl_status status = join(key, servers, &connection); status != QUORL_OK) return status;
        try {
            *port = std::make_unique<Port>(connection);
        } catch (const std::bad_alloc&) {
            leave(connection);
            throw;
        }
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a transport");
    }
}

std::vector<std::shared_ptr<Connection>> connections() {
    Lock lock(listLock);
    return list != nullptr ? *list : std::vector<Shared>();
}

void hasEnded(uint64_t dropped, uint64_t unconfirmed, uint64_t missing) noexcept {
    ended.dropped.fetch_add(dropped, std::memory_order_relaxed);
    ended.unconfirmed.fetch_add(unconfirmed, std::memory_order_relaxed);
    missingEver.fetch_add(missing, std::memory_order_relaxed);
}

uint64_t missingOfEnded() noexcept {
    return missingEver.load(std::memory_order_relaxed);
}

void disableReadyCheck() noexcept {
    readyCheckOff.store(true, std::memory_order_relaxed);
}

void start() noexcept {
    countConnections();
    Lock lock(listLock);
    if (list == nullptr) list = new (std::nothrow) std::vector<Shared>;
    closing = list == nullptr;
}

quorl_status stop() noexcept {
    std::unique_ptr<std::vector<Shared>> left;
    {
        Lock lock(listLock);
        if (list == nullptr) return QUORL_OK;
        closing = true;
        for (const Shared& connection : *list) connection->stop();
    }
    // Those who still create a transport notice, and leave; the transports themselves are closed.
    for (;;) {
        const uint32_t seen = listChanges.load(std::memory_order_acquire);
        {
            Lock lock(listLock);
            if (std::none_of(list->begin(), list->end(), [](const Shared& one) { return one->users != 0; })) {
                left.reset(list);
                list = nullptr;
                break;
            }
        }
        futexWait(listChanges, seen);
    }
    for (const Shared& connection : *left) connection->join();
    left.reset();
    const uint64_t dropped = ended.dropped.exchange(0);
    const uint64_t unconfirmed = ended.unconfirmed.exchange(0);
    if (dropped == 0 && unconfirmed == 0) return QUORL_OK;
    return fail(QUORL_DAEMON_NOT_CONNECTED,
                "%" PRIu64 " messages for daemons were dropped when their transports closed, and %" PRIu64
                " more were sent and may not have arrived",
                dropped, unconfirmed);
}

}  // namespace quorl::transport::nats
