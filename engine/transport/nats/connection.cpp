// The life of a connection: its thread, its sessions, what is subscribed to.
#include "transport/nats/connection.h"

#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/futex.h"
#include "base/status.h"
#include "transport/advisory.h"
#include "transport/nats/assembler.h"
#include "transport/nats/port.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {
namespace {

constexpr int64_t millisecond = 1'000'000;
constexpr int64_t second = 1000 * millisecond;

// Between attempts to connect again: doubled from the first to the last, so that a daemon that is started again is found
// at once, and one that stays away costs nothing.
constexpr int64_t firstPause = 20 * millisecond;
constexpr int64_t longestPause = second;
// A session that was there so long has nothing to do with the next one.
constexpr int64_t steadyTime = 5 * second;

// Patterns that an advisory names at most.
constexpr size_t patternsTold = 64;

// What a creator's limit leaves for the last attempt to end and say why it failed: the rest is for the attempts.
int64_t reasonsShare(int64_t limit) noexcept {
    return std::min(limit / 4, 250 * millisecond);
}

using Id = std::array<uint8_t, 16>;

Id randomId() noexcept {
    Id id{};
    size_t have = 0;
    while (have < id.size()) {
        const ssize_t got = getrandom(id.data() + have, id.size() - have, 0);
        if (got > 0) have += static_cast<size_t>(got);
    }
    return id;
}

std::string hexadecimal(const Id& id) {
    std::string text;
    for (const uint8_t byte : id) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string defaultName() {
    return std::string(program_invocation_short_name) + " " + std::to_string(getpid());
}

}  // namespace

Connection::Connection(ConnectionKey key, std::vector<Server> servers, const Limits& limits, bool readyCheck)
    : key_(std::move(key)),
      log_(std::make_shared<ConnectionLog>(key_)),
      connectTimeout_(nanosecondsOf(limits.connectTimeout)),
      readyCheck_(readyCheck),
      inbound_(wirePrefix(key_.network, key_.service)),
      probeSubject_(inbound_.prefix + "_PROBE." + hexadecimal(randomId())),
      outbox_(inbound_.prefix, limits.reconnectBuffer, observers_),
      name_(key_.description.empty() ? defaultName() : key_.description),
      writer_(message::wire::load<uint64_t>(randomId().data())),
      servers_(std::move(servers)),
      chance_(message::wire::load<uint64_t>(randomId().data())) {
    observers_.add(log_);
    observers_.largestMessage(largestEntry -
                              static_cast<uint32_t>(entrySize(QUORL_SUBJECT_MAX, 0, message::attributesMax)));
}

Connection::~Connection() {
    thread_.join();
    if (epoll_ >= 0) close(epoll_);
    if (wakeEvent_ >= 0) close(wakeEvent_);
}

quorl_status Connection::start() noexcept {
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    wakeEvent_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    inbound_.wakeEvent = wakeEvent_;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = wakeEvent_;
    if (epoll_ < 0 || wakeEvent_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeEvent_, &event) != 0)
        return fail(QUORL_INIT_FAILURE, "the system provides no event loop: %s", strerrordesc_np(errno));
    return thread_.start(
        "quorl-nats",
        [](void* connection) -> void* {
            static_cast<Connection*>(connection)->run();
            return nullptr;
        },
        this);
}

void Connection::stop() noexcept {
    int64_t unset = 0;
    stopBy_.compare_exchange_strong(unset, monotonicNow() + std::max(connectTimeout_, 100 * millisecond));
    // Whoever is still inside a send is refused from now on, so that what was accepted can be sent to its end.
    outbox_.shut();
    stopping_.store(true, std::memory_order_seq_cst);
    wakeThread();
    futexWake(phase_, INT32_MAX);
}

quorl_status Connection::await() noexcept {
    for (;;) {
        const uint32_t phase = phase_.load(std::memory_order_acquire);
        if (phase >= failedToConnect) break;
        futexWait(phase_, phase);
    }
    if (dropped() == 0 && unconfirmedAtEnd() == 0) return QUORL_OK;
    std::string why;
    try {
        Lock lock(lock_);
        why = reason_;
    } catch (const std::bad_alloc&) {
        // Without it.
    }
    return fail(QUORL_DAEMON_NOT_CONNECTED,
                "closing the last transport to %s: %" PRIu64 " messages are dropped, and %" PRIu64
                " more were sent and may not have arrived%s%s",
                key_.daemon.c_str(), dropped(), unconfirmedAtEnd(), why.empty() ? "" : ": ", why.c_str());
}

void Connection::wakeThread() noexcept {
    const uint64_t one = 1;
    // Fails only when the event is set already, to its greatest value.
    static_cast<void>(!::write(wakeEvent_, &one, sizeof one));
}

void Connection::wake() noexcept {
    if (asleep_.exchange(false, std::memory_order_seq_cst)) wakeThread();
}

void Connection::emptyWakeEvent() noexcept {
    uint64_t count;
    static_cast<void>(!::read(wakeEvent_, &count, sizeof count));
}

void Connection::describe(std::string_view description) noexcept {
    try {
        std::string name = description.empty() ? defaultName() : std::string(description);
        {
            Lock lock(lock_);
            if (name == name_) return;
            name_.swap(name);
        }
        renamed_.store(true, std::memory_order_release);
        wakeThread();
    } catch (const std::bad_alloc&) {
        // It keeps the name that it has.
    }
}

// Under io_. Whether a new session may take the place of this one, since nothing has come or gone through it.
bool Connection::mayRename() noexcept {
    if (!renamed_.exchange(false, std::memory_order_acquire)) return false;
    if (handed_.get() != 0 || current_ != nullptr || !outbox_.empty()) return false;
    Lock lock(lock_);
    return subscriptions_.empty() && changes_.empty();
}

quorl_status Connection::waitUntilConnected() noexcept {
    const int64_t deadline = monotonicNow() + connectTimeout_;
    for (;;) {
        const uint32_t phase = phase_.load(std::memory_order_acquire);
        if (phase == connected || phase == away) return QUORL_OK;
        if (phase != connecting) break;
        if (stopping_.load(std::memory_order_acquire))
            return fail(QUORL_NOT_INITIALIZED, "the library is being closed");
        if (!futexWait(phase_, connecting, deadline)) {
            return fail(QUORL_DAEMON_NOT_FOUND, "connect %s: no answer after %.1f s", key_.daemon.c_str(),
                        static_cast<double>(connectTimeout_) / 1e9);
        }
    }
    Lock lock(lock_);
    return fail(firstStatus_, "%s", firstText_.empty() ? "no memory for a connection" : firstText_.c_str());
}

// ---- what the program listens to

quorl_status Connection::addUser(std::string_view pattern, std::string_view share, Listener* listener) noexcept {
    bool fresh = false;
    try {
        const SubscriptionKey key(pattern, share);
        Lock lock(lock_);
        auto found = subscriptions_.find(key.view());
        fresh = found == subscriptions_.end();
        if (fresh) {
            auto made = std::make_unique<Subscription>(inbound_, pattern, share);
            if (listener != nullptr) made->add(*listener);
            changes_.push_back({nullptr, made.get()});
            try {
                found = subscriptions_.emplace(key.view(), std::move(made)).first;
            } catch (const std::bad_alloc&) {
                changes_.pop_back();
                throw;
            }
            changesWaiting_.store(1, std::memory_order_seq_cst);
        } else if (listener != nullptr) {
            found->second->add(*listener);
        }
        ++found->second->users;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a subscription");
    }
    if (fresh) wakeThread();
    return QUORL_OK;
}

void Connection::removeUser(std::string_view pattern, std::string_view share, Listener* listener) noexcept {
    {
        Lock lock(lock_);
        const auto found = subscriptions_.find(SubscriptionKey(pattern, share).view());
        if (found == subscriptions_.end()) return;
        auto& subscription = found->second;
        if (listener != nullptr) subscription->remove(*listener);
        if (--subscription->users != 0) return;
        if (endSubscription(subscription)) {
            subscriptions_.erase(found);
        } else {
            leftBehind_ = true;
        }
        changesWaiting_.store(1, std::memory_order_seq_cst);
    }
    wakeThread();
}

// Takes the subscription over, to be ended by the thread. False: no memory.
bool Connection::endSubscription(std::unique_ptr<Subscription>& subscription) noexcept {
    try {
        changes_.emplace_back();
    } catch (const std::bad_alloc&) {
        return false;
    }
    changes_.back().subscription = std::move(subscription);
    return true;
}

// Ends those that had to stay, or as many as there is memory for.
void Connection::endLeftBehind() noexcept {
    leftBehind_ = false;
    for (auto each = subscriptions_.begin(); each != subscriptions_.end() && !leftBehind_;) {
        if (each->second->users != 0) {
            ++each;
        } else if (endSubscription(each->second)) {
            each = subscriptions_.erase(each);
        } else {
            leftBehind_ = true;
        }
    }
}

namespace {

std::string_view shareOf(const Listener& listener) noexcept {
    return listener.share != nullptr ? std::string_view(listener.share->name) : std::string_view();
}

}  // namespace

quorl_status Connection::listen(Listener& listener) noexcept {
    return addUser(listener.subject, shareOf(listener), &listener);
}

void Connection::unlisten(Listener& listener) noexcept {
    removeUser(listener.subject, shareOf(listener), &listener);
}

void Connection::applyChanges() noexcept {
    if (changesWaiting_.load(std::memory_order_seq_cst) == 0) return;
    std::vector<Change> changes;
    {
        Lock lock(lock_);
        if (leftBehind_) endLeftBehind();
        changes.swap(changes_);
        changesWaiting_.store(0, std::memory_order_relaxed);
    }
    for (Change& change : changes) {
        if (change.added != nullptr) {
            if (session_ != nullptr && !change.added->subscribed) subscribe(*session_, *change.added);
        } else {
            Subscription& gone = *change.subscription;
            admissions_.withdrawn(gone);
            if (gone.subscribed) session_->unsubscribe(gone);
            gone.subscribed = false;
        }
    }
    refusedNow_.store(admissions_.refused(), std::memory_order_relaxed);
}

void Connection::subscribe(Session& session, Subscription& subscription) noexcept {
    try {
        admissions_.asked(subscription, probeNumber_);
        subscription.subscribed =
            session.subscribe(subscription, toWire(inbound_.prefix, subscription.pattern()), subscription.share());
    } catch (const std::bad_alloc&) {
        subscription.subscribed = false;
    }
    if (!subscription.subscribed && !session.lost()) givenUp_ = "no memory for a subscription";
}

// Asks for what the daemon has refused once more.
void Connection::askAgain(int64_t now) noexcept {
    while (Subscription* doubtful = admissions_.takeDoubtful()) {
        session_->unsubscribe(*doubtful);
        doubtful->subscribed = false;
    }
    if (Subscription* due = admissions_.takeDue(now)) subscribe(*session_, *due);
    refusedNow_.store(admissions_.refused(), std::memory_order_relaxed);
}

// ---- the thread

void Connection::run() noexcept {
    bool running = false;
    try {
        connectFirst();
        running = phase_.load(std::memory_order_relaxed) == connected;
        if (running) keepUp();
    } catch (const std::bad_alloc&) {
        Lock lock(lock_);
        firstStatus_ = QUORL_NO_MEMORY;
        firstText_.clear();
    }
    settle();
    dropSession();
    outbox_.setConnected(false);
    phase_.store(running ? done : failedToConnect, std::memory_order_release);
    futexWake(phase_, INT32_MAX);
}

void Connection::connectFirst() {
    const int64_t deadline = monotonicNow() + connectTimeout_ - reasonsShare(connectTimeout_);
    std::string texts;
    quorl_status worst = QUORL_DAEMON_NOT_FOUND;
    for (size_t i = 0; i < servers_.size() && !stopping_.load(std::memory_order_acquire); ++i) {
        const int64_t now = monotonicNow();
        // What is left is shared among those that are left, so that one that does not answer leaves time for the others.
        const int64_t share = std::max<int64_t>(deadline - now, 0) / static_cast<int64_t>(servers_.size() - i);
        const quorl_status status = takeUp({servers_[i], servers_[i]}, now + share);
        if (status == QUORL_OK) {
            nextServer_ = i + 1;
            outbox_.setConnected(true);
            observers_.connected();
            phase_.store(connected, std::memory_order_release);
            futexWake(phase_, INT32_MAX);
            return;
        }
        if (status != QUORL_DAEMON_NOT_FOUND) worst = status;
        if (!texts.empty()) texts += "; ";
        texts += lastErrorText();
    }
    // Said once, however many servers were tried.
    if (texts.find(": connection refused") != std::string::npos)
        texts +=
            ". Is the daemon running? Start nats-server there, or 'quorl daemon' here; 'quorl doctor' finds out more";
    Lock lock(lock_);
    firstStatus_ = worst;
    firstText_ = texts;
}

// Makes a session with the server, with all subscriptions. QUORL_DAEMON_NOT_FOUND and others with the reason.
quorl_status Connection::takeUp(const Target& target, int64_t deadline) {
    const int64_t start = monotonicNow();
    std::string url = target.server.url();
    Server named = target.named;
    Session::Request request{target.server, named, {}, std::max<int64_t>(deadline - start, millisecond)};
    {
        Lock lock(lock_);
        request.name = name_;
    }
    request.refusals = &refusalSink_;
    std::unique_ptr<Session> session;
    if (const quorl_status status = Session::open(request, &session); status != QUORL_OK) return status;
    Lock io(io_);
    session_ = std::move(session);
    givenUp_ = nullptr;
    probeRefused_ = false;
    bool good = session_->subscribe(probeSink_, probeSubject_);
    {
        Lock lock(lock_);
        for (auto& [pattern, subscription] : subscriptions_) {
            if (!good) break;
            subscribe(*session_, *subscription);
            good = subscription->subscribed;
        }
    }
    const int64_t now = monotonicNow();
    good = good && sendProbe(*session_, now);
    if (good && readyCheck_) good = awaitProbe(*session_, std::max(deadline, now + millisecond));
    if (good) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = session_->socket();
        good = epoll_ctl(epoll_, EPOLL_CTL_ADD, session_->socket(), &event) == 0;
    }
    if (good) {
        returned_ = monotonicNow();
        outputAt_ = outputMoved_ = returned_;
        outputGone_ = 0;
        named_ = std::move(named);
        Lock lock(lock_);
        server_.swap(url);
        lastRead_ = returned_;
        return QUORL_OK;
    }
    std::string why = "it does not carry messages of this bus";
    if (session_->lost()) why = session_->reason();
    if (probeRefused_) why += ": it says \"" + refusalWords_ + "\"";
    io_.unlock();
    dropSession();
    io_.lock();
    return fail(QUORL_DAEMON_NOT_FOUND, "connect %s: %s%s", target.server.url().c_str(), why.c_str(),
                elapsedText(monotonicNow() - start).c_str());
}

// Reads and writes until the last probe has come back. False: the session was lost, or not in time, or the daemon refuses
// probes, or there is no more time for anything.
bool Connection::awaitProbe(Session& session, int64_t deadline) noexcept {
    while (probeSeen_.load(std::memory_order_acquire) != probeNumber_) {
        if (session.lost() || probeRefused_) return false;
        if (session.buffered() != 0) session.write();
        const int64_t left = deadline - monotonicNow();
        if (left <= 0 || over()) return false;
        std::array<pollfd, 2> waited{{{session.socket(), POLLIN, 0}, {wakeEvent_, POLLIN, 0}}};
        if (session.buffered() != 0) waited[0].events |= POLLOUT;
        if (poll(waited.data(), waited.size(), static_cast<int>(left / millisecond + 1)) < 0 && errno != EINTR)
            return false;
        if (waited[1].revents != 0) emptyWakeEvent();
        if ((waited[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) session.read();
    }
    return true;
}

void Connection::dropSession() noexcept {
    Lock io(io_);
    if (session_ == nullptr) return;
    session_.reset();
    {
        Lock lock(lock_);
        for (auto& [pattern, subscription] : subscriptions_) subscription->subscribed = false;
        for (Change& change : changes_) {
            if (change.subscription != nullptr) change.subscription->subscribed = false;
        }
    }
    admissions_.restart();
    writer_.restart();  // a message that was sent in part is sent whole again
    probeUnderWay_ = false;
    probeSentAt_.store(0, std::memory_order_relaxed);
}

void Connection::pause(int64_t nanoseconds) noexcept {
    const int64_t end = monotonicNow() + nanoseconds;
    while (!over()) {
        // Whoever closes the last transport waits no longer than it was told.
        const int64_t until =
            stopping_.load(std::memory_order_acquire) ? std::min(end, stopBy_.load(std::memory_order_relaxed)) : end;
        const int64_t left = until - monotonicNow();
        if (left <= 0) return;
        pollfd waited{wakeEvent_, POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(left / millisecond + 1)) > 0) emptyWakeEvent();
        Lock io(io_);
        applyChanges();
    }
}

void Connection::keepUp() noexcept {
    for (;;) {
        serve();
        if (stopping_.load(std::memory_order_acquire) && finishSending()) return;
        if (phase_.load(std::memory_order_relaxed) == away) {  // left for a new name: nobody loses anything, or is told
            dropSession();
            if (nextServer_ != 0) --nextServer_;
            bool renamed = false;
            try {
                renamed = connectAgain() == QUORL_OK;
                if (!renamed) lostReason_ = lastErrorText();
            } catch (const std::bad_alloc&) {
                lostReason_.clear();
            }
            if (over()) return;
            if (renamed) {
                phase_.store(connected, std::memory_order_release);
                continue;
            }
            lostUnconfirmed_ = 0;
        } else {
            countLoss();
        }
        lostAt_ = monotonicNow();
        outbox_.setConnected(false);
        phase_.store(away, std::memory_order_release);
        dropSession();
        observers_.away({lostReason_, lostUnconfirmed_});
        reconnect();
        if (over()) return;
        const uint64_t kept = messagesWaiting();
        const uint64_t lost = outbox_.takeLost();
        lostEver_ += lost;
        denied_ = false;
        outbox_.setConnected(true);
        lossAt_.store(lostAt_, std::memory_order_relaxed);
        phase_.store(connected, std::memory_order_release);
        observers_.back({static_cast<double>(monotonicNow() - lostAt_) / 1e9, kept, lost, lostUnconfirmed_});
    }
}

// Of the session that is lost: what was on its way, why, and which servers it knew.
void Connection::countLoss() noexcept {
    Lock io(io_);
    if (probeUnderWay_) probeIsBack(monotonicNow());
    lostUnconfirmed_ = handed_.get() - confirmed_.get();
    confirmed_ += lostUnconfirmed_;
    unconfirmedEver_ += lostUnconfirmed_;
    if (stopping_.load(std::memory_order_acquire)) unconfirmedAtEnd_ += lostUnconfirmed_;
    try {
        if (session_->deniedEntry()) pause_ = longestPause;
        learnServers();
        lostReason_ = givenUp_ != nullptr ? givenUp_ : session_->reason();
    } catch (const std::bad_alloc&) {
        lostReason_.clear();
    }
    remember(lostReason_);
}

// Nothing more is to be done: all was sent, or there is no more time.
bool Connection::over() const noexcept {
    return stopping_.load(std::memory_order_acquire) &&
           ((phase_.load(std::memory_order_relaxed) != connected && outbox_.empty()) ||
            monotonicNow() >= stopBy_.load(std::memory_order_relaxed));
}

// At the end: what was accepted, and did not go out or may not have arrived, is counted and told.
void Connection::settle() noexcept {
    uint64_t left = outbox_.shut();
    {
        Lock io(io_);
        for (size_t i = nextFrame_; current_ != nullptr && i < current_->frames.size(); ++i)
            left += current_->frames[i].messages;
        const uint64_t underWay = handed_.get() - confirmed_.get();
        unconfirmedEver_ += underWay;
        unconfirmedAtEnd_ += underWay;
        confirmed_ += underWay;
    }
    dropped_ += left;
    lostEver_ += left + outbox_.takeLost();
    hasEnded(left, unconfirmedAtEnd_.get(), lostEver_.get() + unconfirmedEver_.get());
    if (left == 0 && unconfirmedAtEnd_.get() == 0) return;
    if (session_ != nullptr) remember("the daemon did not take them in time");
    adviseDropped();
}

void Connection::remember(std::string_view reason) noexcept {
    if (reason.empty()) return;
    try {
        std::string text(reason);
        Lock lock(lock_);
        reason_.swap(text);
    } catch (const std::bad_alloc&) {
        // The last one stays.
    }
}

// Of the session that is lost.
void Connection::learnServers() {
    const std::vector<Server> found = session_->servers();
    if (found.empty()) return;
    std::vector<Target> targets;
    targets.reserve(found.size());
    for (const Server& server : found) targets.push_back({server, named_});
    further_ = std::move(targets);
}

// Half of it, and up to all of it: processes that lost one daemon do not come back in step.
int64_t Connection::withJitter(int64_t pause) noexcept {
    chance_ = chance_ * 6364136223846793005u + 1442695040888963407u;
    return pause / 2 + static_cast<int64_t>((chance_ >> 33) % static_cast<uint64_t>(pause / 2 + 1));
}

// Until it has succeeded, or all is to end. A session that did not last counts as an attempt that failed.
void Connection::reconnect() noexcept {
    if (lostAt_ - returned_ >= steadyTime) pause_ = 0;
    while (!over()) {
        if (pause_ != 0) pause(withJitter(pause_));
        if (over()) return;  // no attempt was made: what the last one said stays
        pause_ = std::clamp(2 * pause_, firstPause, longestPause);
        try {
            const quorl_status status = connectAgain();
            if (status == QUORL_OK) return;
            remember(lastErrorText());
            adviseDenied(status);
        } catch (const std::bad_alloc&) {
            // Perhaps next time.
        }
    }
}

// One attempt at each server, beginning behind the one that was used last. When none succeeds: what the last one said, or one
// that refused the credentials.
quorl_status Connection::connectAgain() {
    std::vector<Target> all;
    all.reserve(servers_.size() + further_.size());
    for (const Server& server : servers_) all.push_back({server, server});
    for (const Target& target : further_) {
        if (std::find(servers_.begin(), servers_.end(), target.server) == servers_.end()) all.push_back(target);
    }
    quorl_status worst = QUORL_DAEMON_NOT_FOUND;
    std::string words;
    for (size_t i = 0; i < all.size() && !over(); ++i) {
        const size_t index = (nextServer_ + i) % all.size();
        int64_t deadline = monotonicNow() + connectTimeout_;
        if (stopping_.load(std::memory_order_acquire))
            deadline = std::min(deadline, stopBy_.load(std::memory_order_relaxed));
        const quorl_status status = takeUp(all[index], deadline);
        if (status == QUORL_OK) {
            nextServer_ = index + 1;
            return QUORL_OK;
        }
        if (worst != QUORL_DAEMON_NOT_FOUND) continue;
        worst = status;
        words = lastErrorText();
    }
    return fail(worst, "%s", words.c_str());
}

// No lock held.
void Connection::adviseRejections() noexcept {
    try {
        Rejections::Notice notice;
        if (!inbound_.rejections.take(&notice) || !advisoriesHeard()) return;
        advise(Severity::warn, "daemon", "malformed",
               {{"daemon", key_.daemon},
                {"service", key_.service},
                {"network", key_.network},
                {"count", notice.count},
                {"reason", notice.reason},
                {"subject", notice.subject}});
    } catch (const std::bad_alloc&) {
        // Perhaps next time.
    }
}

void Connection::refused(const Complaint& complaint, std::string_view words) noexcept {
    refusedEver_ += 1;
    remember(words);
    if (complaint.wireSubject == probeSubject_) probeRefused_ = true;
    if (complaint.kind == Complaint::Kind::full) admissions_.full();
    // Those of subscriptions are counted by which of them are refused.
    if (complaint.kind != Complaint::Kind::subscribing && complaint.kind != Complaint::Kind::full) ++newRefusals_;
    try {
        refusalWords_ = words;
        ReadSubject subject;
        if (complaint.wireSubject.empty() || !fromWire(inbound_.prefix, complaint.wireSubject, &subject)) return;
        if (complaint.kind == Complaint::Kind::publishing && refusedSubject_.empty()) refusedSubject_ = subject.view();
        if (complaint.kind != Complaint::Kind::subscribing) return;
        Subscription* denied = nullptr;
        {
            Lock lock(lock_);
            const auto found = subscriptions_.find(SubscriptionKey(subject.view(), complaint.group).view());
            if (found != subscriptions_.end()) denied = found->second.get();
        }
        // Freed by this thread alone.
        if (denied != nullptr) admissions_.denied(*denied, monotonicNow());
    } catch (const std::bad_alloc&) {
        // Counted all the same.
    }
}

// No lock held.
void Connection::adviseRefusals() noexcept {
    try {
        const Admissions::News news = admissions_.takeNews(patternsTold);
        refusedNow_.store(admissions_.refused(),
                          std::memory_order_relaxed);  // whoever hears of it finds it in the figures
        const uint64_t count = std::exchange(newRefusals_, 0) + news.refusedCount;
        const std::string words = std::exchange(refusalWords_, {});
        const std::string subject = std::exchange(refusedSubject_, {});
        if (!advisoriesHeard()) return;
        if (news.takenCount != 0) adviseTaken(news);
        if (count == 0) return;
        advise(Severity::warn, "daemon", "refused",
               {{"daemon", key_.daemon},
                {"service", key_.service},
                {"network", key_.network},
                {"count", count},
                {"reason", words},
                {"subject", subject},
                {"patterns", news.refused},
                {"pattern_count", news.refusedCount}});
    } catch (const std::bad_alloc&) {
        // Perhaps next time.
    }
}

void Connection::adviseTaken(const Admissions::News& news) noexcept {
    advise(Severity::info, "daemon", "accepted",
           {{"daemon", key_.daemon},
            {"service", key_.service},
            {"network", key_.network},
            {"patterns", news.taken},
            {"pattern_count", news.takenCount}});
}

// The daemon is there, and does not take this process in: once for each loss. What it says itself stands in quotation marks.
void Connection::adviseDenied(quorl_status status) noexcept {
    if (denied_ || (status != QUORL_USERPASS_MISMATCH && std::strchr(lastErrorText(), '"') == nullptr)) return;
    denied_ = true;
    if (!advisoriesHeard()) return;
    advise(
        Severity::error, "daemon", "denied",
        {{"daemon", key_.daemon}, {"service", key_.service}, {"network", key_.network}, {"reason", lastErrorText()}});
}

void Connection::adviseDropped() noexcept {
    if (!advisoriesHeard()) return;
    try {
        std::string reason;
        {
            Lock lock(lock_);
            reason = reason_;
        }
        advise(Severity::warn, "daemon", "dropped",
               {{"daemon", key_.daemon},
                {"service", key_.service},
                {"network", key_.network},
                {"reason", reason},
                {"dropped", dropped()},
                {"unconfirmed", unconfirmedAtEnd()}});
    } catch (const std::bad_alloc&) {
        // The statistics have it.
    }
}

Connection::Figures Connection::figures() {
    Figures figures;
    {
        Lock lock(lock_);
        figures.server = server_;
        figures.reason = reason_;
    }
    figures.phase = failed() ? "failed" : finished() ? "ended" : log_->phase();
    figures.messagesOut = handed_.get();
    figures.bytesOut = handedBytes_.get();
    figures.messagesIn = inbound_.messages.get();
    figures.bytesIn = inbound_.bytes.get();
    figures.waiting = outbox_.waiting();
    figures.reconnects = log_->reconnects();
    figures.lost = lostEver_.get() + outbox_.lost();
    figures.unconfirmed = unconfirmedEver_.get();
    figures.malformed = inbound_.rejections.total();
    figures.refused = refusedEver_.get();
    figures.refusedPatterns = refusedNow_.load(std::memory_order_relaxed);
    return figures;
}

uint64_t Connection::messagesWaiting() noexcept {
    uint64_t count = outbox_.messages();
    Lock io(io_);
    for (size_t i = nextFrame_; current_ != nullptr && i < current_->frames.size(); ++i)
        count += current_->frames[i].messages;
    return count;
}

}  // namespace quorl::transport::nats
