// The calls of libnats.
#include "transport/nats/session.h"

#include <nats/nats.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/fence.h"
#include "base/futex.h"
#include "base/status.h"
#include "secure/credentials.h"
#include "transport/nats/probe.h"

namespace quorl::transport::nats {
namespace {

// With so many bytes waiting in the socket, or fewer after nothing was read for a while, this process does not read as fast as
// others send; and how long after that it may be the reason of a loss.
constexpr int behind = 1 << 20;
constexpr int behindAfterPause = 16 << 10;
constexpr int64_t longPause = 500'000'000;
constexpr int64_t recently = 5'000'000'000;

// With TLS: milliseconds for which what was written may wait without the daemon taking any of it.
constexpr unsigned int unsentLimit = 10'000;

constexpr int readSize = 128 << 10;  // bytes that one read takes at most
// A daemon that announces less is none that this can work with; one that announces more is not believed.
constexpr int64_t leastPayload = 512;
constexpr int64_t mostPayload = 64 << 20;  // what the daemon itself has as its upper limit

// The loop is ours: libnats asks for events only by what it leaves unsent, which is looked at after each call.
natsStatus attachSocket(void** loop, void* given, natsConnection*, natsSock socket) {
    *static_cast<int*>(given) = static_cast<int>(socket);
    *loop = given;
    return NATS_OK;
}
natsStatus ignoreInterest(void*, bool) {
    return NATS_OK;
}
natsStatus ignoreDetach(void*) {
    return NATS_OK;
}
// Without a handler of its own libnats writes to the standard error. The subscription may be freed memory.
void ignoreError(natsConnection*, natsSubscription*, natsStatus, void*) {}

struct DestroyOptions {
    void operator()(natsOptions* options) const noexcept { natsOptions_Destroy(options); }
};

// The words of libnats, without the place in its source that stands before them.
std::string lastWords(natsStatus status) {
    natsStatus unused;
    const char* text = nats_GetLastError(&unused);
    if (text == nullptr || *text == '\0') text = natsStatus_GetText(status);
    if (*text == '(') {
        if (const char* end = std::strstr(text, "): ")) text = end + 3;
    }
    return text;
}

// Whether the calling thread has the system's usual policy now, and is of batch work from here on: woken by a thread that
// runs, it lets that one finish instead of taking its processor. Threads inherit it.
bool becomeBatch() noexcept {
    int policy = SCHED_OTHER;
    sched_param parameters{};
    if (pthread_getschedparam(pthread_self(), &policy, &parameters) != 0 || policy != SCHED_OTHER) return false;
    return pthread_setschedparam(pthread_self(), SCHED_BATCH, &parameters) == 0;
}

// libnats with its threads, if it is not open yet. None of them has anything to do that is urgent. One is woken for each
// message that is given back, while the thread that gave it back is on its way to whoever waits for the message: two
// changes of threads for each message that nobody gains by.
void openLibrary() noexcept {
    const bool batch = becomeBatch();
    nats_Open(-1);
    const sched_param parameters{};
    if (batch) pthread_setschedparam(pthread_self(), SCHED_OTHER, &parameters);
}

// A text as libnats may put it between the quotation marks of the JSON in which it introduces the program: it escapes nothing
// itself. Overwritten when it goes, since it may be a password.
class Quoted {
  public:
    explicit Quoted(std::string_view plain) {
        text_.reserve(6 * plain.size());  // so that nothing is left where the text grew out of
        for (const char c : plain) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || byte == 0x7f) {
                text_.append("\\u00") += "0123456789abcdef"[byte >> 4];
                text_ += "0123456789abcdef"[byte & 15];
            } else {
                if (c == '"' || c == '\\') text_ += '\\';
                text_ += c;
            }
        }
    }
    ~Quoted() { explicit_bzero(text_.data(), text_.size()); }
    Quoted(const Quoted&) = delete;
    Quoted& operator=(const Quoted&) = delete;
    const char* text() const noexcept { return text_.c_str(); }

  private:
    std::string text_;
};

double seconds(int64_t nanoseconds) noexcept {
    return static_cast<double>(nanoseconds) / 1e9;
}

quorl_status refuse(quorl_status status, const Session::Request& request, const std::string& why, int64_t since) {
    return fail(status, "connect %s: %s after %.1f s", request.server.url().c_str(), why.c_str(),
                seconds(monotonicNow() - since));
}

}  // namespace

// The thread was woken by the one that reads, which holds a lock of libnats at that time and will sleep soon.
void Session::onMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
    static thread_local const bool batch = becomeBatch();
    static_cast<void>(batch);
    Feed& feed = *static_cast<Feed*>(closure);
    const char* subject = natsMsg_GetSubject(message);
    const auto size = static_cast<size_t>(std::max(0, natsMsg_GetDataLength(message)));
    feed.received(subject, reinterpret_cast<const uint8_t*>(natsMsg_GetData(message)), size);
    natsMsg_Destroy(message);
    auto& handed = feed.session_->handed_;
    const uint64_t cost = handed.cost.load(std::memory_order_relaxed) + size + messageCost;
    announce(handed.cost, cost);
    if (cost >= handed.resumeAt.load(std::memory_order_seq_cst)) [[unlikely]]
        feed.session_->ringIfPaused();
}

// On the thread of libnats.
void Session::ringIfPaused() noexcept {
    if (handed_.resumeAt.exchange(never, std::memory_order_seq_cst) == never) return;
    const uint64_t one = 1;
    static_cast<void>(!::write(wakeEvent_, &one, sizeof one));
}

void Session::onFinished(void* closure) {
    Feed& feed = *static_cast<Feed*>(closure);
    Session& session = *feed.session_;
    feed.finished_.store(true, std::memory_order_seq_cst);  // the feed may be gone from here on
    session.ringIfPaused();                                 // what waited for it does so no longer
    // And the session from the next step on, but for the word, which waking only names.
    if (session.feedsLeft_.fetch_sub(1, std::memory_order_acq_rel) == 1) futexWake(session.feedsLeft_, INT32_MAX);
}

quorl_status Session::open(const Request& request, std::unique_ptr<Session>* session) noexcept {
    try {
        std::unique_ptr<Session> made(new Session);
        if (const quorl_status status = made->connect(request); status != QUORL_OK) return status;
        *session = std::move(made);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a connection");
    }
}

quorl_status Session::connect(const Request& request) {
    const int64_t start = monotonicNow();
    wakeEvent_ = request.wakeEvent;
    if (natsStatistics_Create(&statistics_) != NATS_OK) return fail(QUORL_NO_MEMORY, "no memory for a connection");
    secure::Credentials credentials;
    if (const quorl_status status = secure::lookup(request.server.hostAndPort(), &credentials); status != QUORL_OK)
        return status;
    openLibrary();
    natsOptions* made = nullptr;
    if (natsOptions_Create(&made) != NATS_OK) return fail(QUORL_NO_MEMORY, "no memory for a connection");
    std::unique_ptr<natsOptions, DestroyOptions> options(made);
    natsStatus status = natsOptions_SetURL(made, ("nats://" + request.server.hostAndPort()).c_str());
    const auto set = [&](natsStatus outcome) {
        if (status == NATS_OK) status = outcome;
    };
    set(natsOptions_SetName(made, Quoted(request.name).text()));
    // It holds for connecting and once more for the greetings: the whole is watched over.
    set(natsOptions_SetTimeout(made, std::max<int64_t>(request.timeout / 1'000'000, 1)));
    set(natsOptions_SetAllowReconnect(made, false));
    set(natsOptions_SetIgnoreDiscoveredServers(made, true));
    set(natsOptions_SetPingInterval(made, 0));
    set(natsOptions_SetSendAsap(made, true));  // otherwise there is a thread that flushes
    set(natsOptions_SetIOBufSize(made, readSize));
    set(natsOptions_UseGlobalMessageDelivery(made, true));
    set(natsOptions_SetErrorHandler(made, ignoreError, nullptr));
    set(natsOptions_SetEventLoop(made, &socket_, attachSocket, ignoreInterest, ignoreInterest, ignoreDetach));
    if (credentials.user.present())
        set(natsOptions_SetUserInfo(made, Quoted(credentials.user.view()).text(),
                                    Quoted(credentials.password.view()).text()));
    if (request.server.tls) {
        set(natsOptions_SetSecure(made, true));
        set(natsOptions_SetExpectedHostname(made, request.server.host.c_str()));
        if (credentials.caPem.present()) set(natsOptions_SetCATrustedCertificates(made, credentials.caPem.text()));
        if (credentials.certPem.present())
            set(natsOptions_SetCertificatesChain(made, credentials.certPem.text(), credentials.keyPem.text()));
    }
    if (status != NATS_OK) return refuse(QUORL_DAEMON_NOT_FOUND, request, lastWords(status), start);

    ConnectWatch watch(request.server.port, start + request.timeout);
    if (!watch.started()) return refuse(QUORL_DAEMON_NOT_FOUND, request, "no thread to watch over it", start);
    status = natsConnection_Connect(&connection_, made);
    if (status == NATS_OK) connected_.emplace(socket_);
    const bool cut = watch.end();
    if (status == NATS_OK && !cut) {
        tls_ = request.server.tls;
        if (tls_) setsockopt(socket_, IPPROTO_TCP, TCP_USER_TIMEOUT, &unsentLimit, sizeof unsentLimit);
        if (takePayloadLimit()) return QUORL_OK;
        const std::string why =
            "it takes messages of " + std::to_string(natsConnection_GetMaxPayload(connection_)) + " bytes only";
        return refuse(QUORL_DAEMON_NOT_FOUND, request, why, start);
    }
    if (status != NATS_OK) connection_ = nullptr;
    if (cut) return refuse(QUORL_DAEMON_NOT_FOUND, request, "no complete greeting", start);
    std::string why;
    quorl_status outcome = QUORL_DAEMON_NOT_FOUND;
    switch (status) {
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
            outcome = QUORL_USERPASS_MISMATCH;
            why = credentials.user.present() ? "the user name or the password is refused"
                                             : "a user name with a password, or a certificate, is demanded";
            break;
        case NATS_SECURE_CONNECTION_REQUIRED:
        case NATS_SSL_ERROR:
            why = request.server.tls ? lastWords(status) : "the daemon demands TLS (tls://)";
            break;
        case NATS_SECURE_CONNECTION_WANTED:
            why = "the daemon offers no TLS";
            break;
        case NATS_NO_SERVER:
        case NATS_TIMEOUT: {
            const int64_t left = start + request.timeout - monotonicNow();
            why = whyUnreachable(request.server, std::max<int64_t>(left, 0));
            if (why.empty()) why = status == NATS_TIMEOUT ? "no greeting" : "no daemon speaks there";
            break;
        }
        default: {
            why = lastWords(status);
            const bool hungUp = status == NATS_IO_ERROR || status == NATS_CONNECTION_CLOSED || why.ends_with("got ''");
            // With TLS 1.3 a program learns only after the handshake that its certificate is missed or refused.
            const int64_t left = start + request.timeout - monotonicNow();
            if (hungUp && request.server.tls && demandsCertificate(request.server, std::max<int64_t>(left, 0))) {
                outcome = QUORL_USERPASS_MISMATCH;
                why = credentials.certPem.present() ? "the certificate of the program is refused"
                                                    : "a certificate of the program is demanded";
            } else if (hungUp) {
                why = "the daemon hangs up";
            }
        }
    }
    return refuse(outcome, request, why, start);
}

// False: it is too low to work with.
bool Session::takePayloadLimit() noexcept {
    const int64_t payload = natsConnection_GetMaxPayload(connection_);
    if (payload < leastPayload) {
        broke_ = "the daemon takes no message that is worth the name";
        return false;
    }
    maxPayload_ = static_cast<size_t>(std::min(payload, mostPayload));
    return true;
}

Session::~Session() {
    connected_.reset();
    natsStatistics_Destroy(statistics_);
    if (connection_ == nullptr) return;
    natsConnection_Close(connection_);
    natsConnection_Destroy(connection_);
}

bool Session::lost() const noexcept {
    return broke_ != nullptr || natsConnection_IsClosed(connection_);
}

std::string Session::reason() const {
    if (broke_ != nullptr) return broke_;
    const char* text = nullptr;
    const natsStatus status = natsConnection_GetLastError(connection_, &text);
    if (text == nullptr || *text == '\0')
        text = status != NATS_OK ? natsStatus_GetText(status) : "closed by the daemon";
    if (*text == '(') {
        if (const char* end = std::strstr(text, "): ")) text = end + 3;
    }
    // A daemon does not say why it cuts somebody off.
    if (behindAt_ != 0 && monotonicNow() - behindAt_ < recently)
        return std::string(text) + ", while much waited to be read: perhaps cut off by the daemon as a slow consumer";
    return text;
}

void Session::read() noexcept {
    // A daemon that sends without end and never completes a message would otherwise be believed up to the size that it
    // names, which may be any.
    int waiting = 0;
    ioctl(socket_, FIONREAD, &waiting);
    // With TLS a read takes one record, which may be small.
    std::array<uint8_t, 5> head{};  // type, version, size
    int most = readSize;
    if (tls_ && recv(socket_, head.data(), head.size(), MSG_PEEK | MSG_DONTWAIT) == ssize_t{head.size()})
        most = head[3] << 8 | head[4];
    const int64_t now = monotonicNow();
    if (waiting >= behind || (waiting >= behindAfterPause && now - readAt_ >= longPause)) behindAt_ = now;
    readAt_ = now;
    natsConnection_ProcessReadEvent(connection_);
    uint64_t messages = messagesSeen_;
    uint64_t bytes = 0;
    if (natsConnection_GetStats(connection_, statistics_) == NATS_OK) {
        natsStatistics_GetCounts(statistics_, &messages, &bytes, nullptr, nullptr, nullptr);
        taken_ = bytes + messages * messageCost;
    }
    if (messages != messagesSeen_) {
        messagesSeen_ = messages;
        readSinceMessage_ = 0;
    } else {
        readSinceMessage_ += static_cast<uint64_t>(std::clamp(waiting, 0, most));
        if (readSinceMessage_ > maxPayload_ + size_t{4} * readSize) broke_ = "the daemon sends a message without end";
    }
}

// Without asking: too high by what came in for feeds that were unsubscribed.
uint64_t Session::waiting() const noexcept {
    const uint64_t gone = handed_.cost.load(std::memory_order_acquire) + unclaimed_;
    // A recount may have taken the message that is just being handed over for one that nobody gets.
    return taken_ > gone ? taken_ - gone : 0;
}

// What has come in for feeds that libnats had forgotten already is in its statistics, and with no feed.
uint64_t Session::countWaiting() noexcept {
    uint64_t waits = 0;
    for (Feed* feed : feeds_) {
        if (feed->left_) {
            // It is emptied sooner or later, and says so when it is.
            if (!feed->finished_.load(std::memory_order_seq_cst)) waits += feed->leftBehind_;
            continue;
        }
        int messages = 0;
        int bytes = 0;
        if (natsSubscription_GetPending(feed->handle_, &messages, &bytes) == NATS_OK)
            waits += static_cast<uint64_t>(bytes) + static_cast<uint64_t>(messages) * messageCost;
    }
    unclaimed_ = taken_ - handed_.cost.load(std::memory_order_seq_cst) - waits;
    return waits;
}

bool Session::mayRead() noexcept {
    if (paused_) {
        if (handed_.resumeAt.load(std::memory_order_seq_cst) != never) {
            behindAt_ = monotonicNow();
            return false;
        }
    } else {
        if (waiting() <= mostWaiting) return true;
        // Well below the bound, or it would be counted again after every read.
        if (countWaiting() <= mostWaiting / 4 * 3) return true;
    }
    const uint64_t waits = countWaiting();
    paused_ = waits > mostWaiting / 2;
    if (!paused_) return true;
    behindAt_ = monotonicNow();
    handed_.resumeAt.store(handed_.cost.load(std::memory_order_relaxed) + (waits - mostWaiting / 2),
                           std::memory_order_seq_cst);
    heavyFence();
    // What was handed over, or finished, before it could be seen that somebody waits for it.
    paused_ = countWaiting() > mostWaiting / 2;
    if (!paused_) handed_.resumeAt.store(never, std::memory_order_seq_cst);
    return !paused_;
}

void Session::write() noexcept {
    natsConnection_ProcessWriteEvent(connection_);
}

size_t Session::buffered() const noexcept {
    return static_cast<size_t>(std::max(0, natsConnection_Buffered(connection_)));
}

bool Session::publish(const char* wireSubject, const uint8_t* payload, size_t size) noexcept {
    switch (natsConnection_Publish(connection_, wireSubject, payload, static_cast<int>(size))) {
        case NATS_OK:
            return true;
        case NATS_MAX_PAYLOAD:
            takePayloadLimit();  // a daemon may change it, and tells libnats
            return false;
        default:
            // It may have kept half of it: what follows would be taken for the other half.
            if (broke_ == nullptr && !natsConnection_IsClosed(connection_)) broke_ = "no memory for a message";
            return false;
    }
}

bool Session::subscribe(Feed& feed, const char* wireSubject) noexcept {
    try {
        if (feeds_.size() == feeds_.capacity()) feeds_.reserve(std::max<size_t>(16, 2 * feeds_.size()));
    } catch (const std::bad_alloc&) {
        return false;
    }
    feed.session_ = this;
    feed.finished_.store(false, std::memory_order_relaxed);
    if (natsConnection_Subscribe(&feed.handle_, connection_, wireSubject, onMessage, &feed) != NATS_OK) {
        feed.handle_ = nullptr;
        return false;
    }
    feed.left_ = false;
    feed.place_ = static_cast<uint32_t>(feeds_.size());
    feeds_.push_back(&feed);
    feedsLeft_.fetch_add(1, std::memory_order_relaxed);
    if (natsSubscription_SetPendingLimits(feed.handle_, -1, -1) == NATS_OK &&
        natsSubscription_SetOnCompleteCB(feed.handle_, onFinished, &feed) == NATS_OK)
        return true;
    // Only when the connection is closed: nobody would tell that the feed is finished.
    feedsLeft_.fetch_sub(1, std::memory_order_relaxed);
    feed.finished_.store(true, std::memory_order_relaxed);
    return false;
}

void Session::unsubscribe(Feed& feed) noexcept {
    if (feed.handle_ == nullptr) return;
    int messages = 0;
    int bytes = 0;
    natsSubscription_GetPending(feed.handle_, &messages, &bytes);
    feed.leftBehind_ = static_cast<uint64_t>(bytes) + static_cast<uint64_t>(messages) * messageCost;
    feed.left_ = true;
    natsSubscription_Unsubscribe(feed.handle_);
}

bool Session::finished(Feed& feed) noexcept {
    if (feed.handle_ == nullptr) return true;
    if (!feed.finished_.load(std::memory_order_acquire)) return false;
    release(feed);
    return true;
}

void Session::close() noexcept {
    connected_.reset();
    natsConnection_Close(connection_);
    for (;;) {
        const uint32_t left = feedsLeft_.load(std::memory_order_acquire);
        if (left == 0) break;
        futexWait(feedsLeft_, left);
    }
}

void Session::release(Feed& feed) noexcept {
    if (feed.handle_ == nullptr) return;
    natsSubscription_Destroy(feed.handle_);
    feed.handle_ = nullptr;
    feeds_[feed.place_] = feeds_.back();
    feeds_[feed.place_]->place_ = feed.place_;
    feeds_.pop_back();
}

ReadingMemory::ReadingMemory() noexcept {
    std::array<void*, kept / blockSize> blocks;
    for (void*& block : blocks) block = std::malloc(blockSize);
    top_ = std::malloc(topSize);
    for (void* block : blocks) std::free(block);
}

ReadingMemory::~ReadingMemory() {
    std::free(top_);
}

void Session::shutDownLibrary() noexcept {
    nats_CloseAndWait(0);
}

}  // namespace quorl::transport::nats
