// Connecting to a daemon, and speaking with it.
#include "transport/nats/session.h"

#include <poll.h>
#include <strings.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "base/c_locale.h"
#include "base/clock.h"
#include "base/status.h"
#include "secure/credentials.h"
#include "transport/nats/readable.h"

namespace quorl::transport::nats {
namespace {

// Bytes that one read of the socket takes at most, and that read goes on for while there are more.
constexpr size_t readSize = 128u << 10;
constexpr size_t readAtOnce = 512u << 10;
// A larger buffer, which a large message needed, goes when it is empty.
constexpr size_t inKept = 1u << 20;
// Bytes that are gathered before they are written.
constexpr size_t writeSize = 64u << 10;
constexpr size_t outKept = 512u << 10;
// Bytes that may wait because the socket did not take them.
constexpr size_t unsentMost = 128u << 10;

// With so many bytes waiting in the socket, or fewer after nothing was read for a while, this process does not read as fast as
// others send; and how long after that it may be the reason of a loss.
constexpr int behind = 1 << 20;
constexpr size_t behindAfterPause = 16u << 10;
constexpr int64_t longPause = 500'000'000;
constexpr int64_t recently = 5'000'000'000;

constexpr size_t longestWords = 256;  // of a daemon that are repeated, in bytes

// What comes in follows the limits of the daemons that others send to, now or before: any of a cluster.
constexpr size_t mostIncoming = PayloadLimit::most;
constexpr const char* takesTooLittle =
    "the daemon now accepts only messages of less than 512 bytes: raise its max_payload";
static_assert(PayloadLimit::least == 512);

// What a program says of itself, with what goes between the quotation marks of JSON. Overwritten when it goes, since there may
// be a password in it.
class Introduction {
  public:
    explicit Introduction(size_t most) { text_.reserve(most); }  // so that nothing is left where the text grew out of
    ~Introduction() { explicit_bzero(text_.data(), text_.size()); }
    Introduction(const Introduction&) = delete;
    Introduction& operator=(const Introduction&) = delete;

    static constexpr size_t roomOf(std::string_view plain) noexcept { return 6 * plain.size() + 16; }

    Introduction& operator+=(std::string_view text) {
        text_ += text;
        return *this;
    }
    void quote(std::string_view plain) {
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
    std::string_view view() const noexcept { return text_; }

  private:
    std::string text_;
};

quorl_status refuse(quorl_status status, const Session::Request& request, const std::string& why, int64_t since) {
    return fail(status, "connect %s: %s%s", request.server.url().c_str(), why.c_str(),
                elapsedText(monotonicNow() - since).c_str());
}

bool startsWith(std::string_view text, const char* words) noexcept {
    const size_t size = std::strlen(words);
    return text.size() >= size && strncasecmp(text.data(), words, size) == 0;
}

}  // namespace

// ---- connecting

std::string elapsedText(int64_t nanoseconds) {
    constexpr int64_t worthTelling = 50'000'000;
    if (nanoseconds < worthTelling) return {};
    std::array<char, 32> text;
    const CLocale locale;
    std::snprintf(text.data(), text.size(), " after %.1f s", static_cast<double>(nanoseconds) / 1e9);
    return text.data();
}

quorl_status Session::open(const Request& request, std::unique_ptr<Session>* session) noexcept {
    try {
        std::unique_ptr<Session> made(new Session);
        if (const quorl_status status = made->connect(request); status != QUORL_OK) return status;
        *session = std::move(made);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return quorl::fail(QUORL_NO_MEMORY, "no memory for a connection");
    }
}

Session::~Session() = default;

quorl_status Session::connect(const Request& request) {
    const int64_t start = monotonicNow();
    const int64_t deadline = start + request.timeout;
    secure::Credentials credentials;
    if (const quorl_status status = secure::lookup(request.named.hostAndPort(), &credentials); status != QUORL_OK)
        return status;
    refusals_ = request.refusals;
    out_.reserve(2 * writeSize);
    std::string why;
    socket_ = Socket::connect(request.server, deadline, &why);
    if (socket_ == nullptr || !greet(deadline, &why)) return refuse(QUORL_DAEMON_NOT_FOUND, request, why, start);
    if (request.server.tls) {
        // What comes in the clear beside the greeting may be anybody's word.
        if (!complaint_.empty())
            return refuse(QUORL_DAEMON_NOT_FOUND, request, "before TLS somebody says \"" + complaint_ + "\"", start);
        if (inBegin_ != inEnd_ || said_ != 1)
            return refuse(QUORL_DAEMON_NOT_FOUND, request, "the daemon speaks before TLS", start);
        if (!info_.offersTls)
            return refuse(QUORL_DAEMON_NOT_FOUND, request, "the daemon offers no TLS: configure it there", start);
    } else if (info_.demandsTls) {
        return refuse(QUORL_DAEMON_NOT_FOUND, request, "the daemon demands TLS: use an address that begins with tls://",
                      start);
    }
    bool refused = false;
    bool good = true;
    if (request.server.tls) {
        bool trusted = false;
        good = socket_->startTls(request.named.host, credentials, deadline, &trusted, &why);
        refused = !good && trusted;
        tls_ = good;
        if (good) forgetClear();
    }
    if (good) {
        good = introduce(request, credentials, deadline, &why);
        // With TLS 1.3 a program learns only after the handshake that its certificate is missed or refused.
        refused = !good && tls_ && complaint_.empty() && lost() && broke_.load() == nullptr;
    }
    if (good) return QUORL_OK;
    if (refused && info_.demandsCertificate) {
        return refuse(QUORL_USERPASS_MISMATCH, request,
                      credentials.certPem.present() ? "the certificate of the program is refused"
                                                    : "a certificate of the program is demanded",
                      start);
    }
    if (deniedEntry()) {
        return refuse(QUORL_USERPASS_MISMATCH, request,
                      credentials.user.present() ? "the user name or the password is refused"
                                                 : "a user name with a password, or a certificate, is demanded",
                      start);
    }
    return refuse(QUORL_DAEMON_NOT_FOUND, request, why, start);
}

// Reads until the daemon has told of itself.
bool Session::greet(int64_t deadline, std::string* why) {
    while (!greeted_ && !lost() && complaint_.empty()) {
        if (!socket_->await(POLLIN, deadline)) {
            *why = "no greeting: is it a nats-server that listens there?";
            return false;
        }
        take();
        use();
    }
    if (greeted_ && !lost()) return true;
    if (!greeted_ && !complaint_.empty()) {
        *why = "instead of a greeting the daemon says \"" + complaint_ + "\"";
    } else if (greeted_ && !PayloadLimit::announced(info_.maxPayload)) {
        *why = "it accepts messages of at most " + std::to_string(info_.maxPayload) +
               " bytes: raise its max_payload to " + std::to_string(PayloadLimit::least) + " or more";
    } else {
        *why = broke_.load() != nullptr ? "what answers there is not a nats-server: check host and port"
                                        : "the connection was closed without a greeting";
    }
    return false;
}

// What came before TLS may have come from anybody. Of the greeting stays what harms nothing when it is forged: the limit of
// payloads, which is within its range, whether a certificate is demanded, which goes into a text, and other servers of the
// daemon, which have to show the certificate of the one that the program named before they are told anything.
void Session::forgetClear() {
    parser_ = Parser();
    in_.reset();
    inRoom_ = inBegin_ = inEnd_ = 0;
    takenAtOnce_ = 0;
    behindAt_ = readAt_ = 0;
    pinged_ = answered_ = false;
    complaint_.clear();
}

// Says who the program is, and waits until the daemon takes it in.
bool Session::introduce(const Request& request, const secure::Credentials& credentials, int64_t deadline,
                        std::string* why) {
    const std::string_view user = credentials.user.view();
    const std::string_view password = credentials.password.view();
    Introduction words(256 + Introduction::roomOf(request.name) + Introduction::roomOf(user) +
                       Introduction::roomOf(password));
    words += "CONNECT {\"verbose\":false,\"pedantic\":false,\"lang\":\"quorl\",\"version\":\"" QUORL_VERSION
             "\",\"protocol\":1,\"echo\":true,\"tls_required\":";
    words += tls_ ? "true" : "false";
    words += ",\"name\":\"";
    words.quote(request.name);
    if (credentials.user.present()) {
        words += "\",\"user\":\"";
        words.quote(user);
        words += "\",\"pass\":\"";
        words.quote(password);
    }
    words += "\"}\r\nPING\r\n";
    // Not by way of the buffer, where it would stay.
    for (std::string_view left = words.view(); !left.empty();) {
        const ssize_t sent = socket_->write(left.data(), left.size());
        if (sent < 0) fail(nullptr);
        if (sent < 0 || (sent == 0 && !socket_->await(POLLOUT, deadline))) break;
        left.remove_prefix(static_cast<size_t>(sent));
    }
    asked_ = true;
    parser_.allow(mostIncoming);
    while (!answered_ && !lost() && complaint_.empty()) {
        if (!socket_->pending() && !socket_->await(POLLIN, deadline)) {
            *why = "the daemon did not answer in time";
            return false;
        }
        take();
        use();
        answer();
        write();
    }
    if (answered_ && !lost()) return true;
    if (!complaint_.empty()) {
        *why = "the daemon says \"" + complaint_ + "\"";
    } else {
        const char* broke = broke_.load();
        *why = broke != nullptr ? broke : "the daemon closed the connection";
    }
    return false;
}

void Session::onPing() noexcept {
    ++said_;
    pinged_ = true;
}

void Session::onPong() noexcept {
    ++said_;
    answered_ = asked_;  // one that comes before the question answers nothing
}

void Session::onInfo(std::string_view json) noexcept {
    ++said_;
    try {
        Info info;
        if (!readInfo(json, &info)) return fail("the daemon speaks another protocol");
        // It tells of its cluster when that changes; all other words leave it out.
        if (info.servers.empty()) info.servers.swap(info_.servers);
        info_ = std::move(info);
    } catch (const std::bad_alloc&) {
        return fail("no memory for what the daemon says");
    }
    greeted_ = true;
    // What is being sent meanwhile keeps to the limit that was: the session ends, and nothing is sent to this daemon until it
    // takes more again.
    const auto announced = PayloadLimit::announced(info_.maxPayload);
    if (!announced) return fail(takesTooLittle);
    limit_.store(*announced, std::memory_order_relaxed);
}

std::vector<Server> Session::servers() const {
    std::vector<Server> servers;
    for (const std::string& address : info_.servers) {
        std::vector<Server> one;
        if (servers.size() == mostServers || parseAddress(address, &one) != QUORL_OK || one.size() != 1) continue;
        one.front().tls = tls_;
        servers.push_back(std::move(one.front()));
    }
    return servers;
}

// ---- the end

void Session::fail(const char* why) noexcept {
    if (!lost()) broke_.store(why, std::memory_order_relaxed);
    lost_.store(true, std::memory_order_release);
}

std::string Session::reason() const {
    std::string text;
    const char* broke = broke_.load(std::memory_order_relaxed);
    if (broke != nullptr) {
        text = broke;
    } else if (!complaint_.empty()) {
        text = "the daemon says \"" + complaint_ + "\"";
    } else {
        text = socket_->reason();
    }
    // A daemon does not say why it cuts somebody off.
    if (broke == nullptr && behindAt_ != 0 && monotonicNow() - behindAt_ < recently)
        text += ", while much waited to be read: perhaps cut off by the daemon as a slow consumer";
    return text;
}

bool Session::deniedEntry() const noexcept {
    return startsWith(complaint_, "authorization violation") || startsWith(complaint_, "authentication") ||
           startsWith(complaint_, "user authentication");
}

void Session::onError(std::string_view text) noexcept {
    ++said_;
    try {
        const Complaint complaint = readComplaint(text);
        const std::string words = readable(text, longestWords);
        const bool ends = complaint.kind == Complaint::Kind::ends;
        const bool unknown = complaint.kind == Complaint::Kind::unknown;
        if (!answered_ || ends || unknown) complaint_ = words;
        if (refusals_ != nullptr && answered_ && !ends) refusals_->refused(complaint, words);
    } catch (const std::bad_alloc&) {
        fail("the daemon complains");
    }
}

// ---- reading

// Room behind what was read, for more, or for the rest of a message that is not whole. What a daemon announces takes no memory
// yet, only what has come.
bool Session::makeRoom() noexcept {
    const size_t held = inEnd_ - inBegin_;
    if (held == 0) {
        inBegin_ = inEnd_ = 0;
        if (inRoom_ > inKept) {
            in_.reset();
            inRoom_ = 0;
        }
    }
    if (inRoom_ != 0 && inRoom_ - inEnd_ >= readSize / 2) return true;
    size_t room = std::max(inRoom_, readSize);
    if (held > room / 2) room = std::max(room, std::min(parser_.wanted() + readSize / 2, 2 * room));
    if (room == inRoom_) {
        std::memmove(in_.get(), in_.get() + inBegin_, held);
    } else {
        std::unique_ptr<uint8_t[]> larger(new (std::nothrow) uint8_t[room]);
        if (larger == nullptr) return false;
        if (held != 0) std::memcpy(larger.get(), in_.get() + inBegin_, held);
        in_ = std::move(larger);
        inRoom_ = room;
    }
    inBegin_ = 0;
    inEnd_ = held;
    return true;
}

bool Session::take() noexcept {
    if (lost()) return false;
    if (!makeRoom()) {
        fail("no memory for a message of the daemon");
        return false;
    }
    const size_t room = inRoom_ - inEnd_;
    const ssize_t got = socket_->read(in_.get() + inEnd_, room);
    if (got < 0) {
        fail(nullptr);
        return false;
    }
    inEnd_ += static_cast<size_t>(got);
    takenAtOnce_ += static_cast<size_t>(got);
    const bool full = static_cast<size_t>(got) == room;
    const int64_t now = monotonicNow();
    if (full && !tls_) {
        int waiting = 0;
        ioctl(socket_->socket(), FIONREAD, &waiting);
        if (waiting >= behind) behindAt_ = now;
    }
    // With TLS there may be more than the socket shows.
    if (got != 0 && (tls_ || full) && (takenAtOnce_ < readAtOnce || socket_->pending())) return true;
    if (takenAtOnce_ >= behindAfterPause && readAt_ != 0 && now - readAt_ >= longPause) behindAt_ = now;
    takenAtOnce_ = 0;
    readAt_ = now;
    return false;
}

void Session::use() noexcept {
    inBegin_ += parser_.read(in_.get() + inBegin_, inEnd_ - inBegin_, *this);
    if (parser_.fault() != nullptr) fail(parser_.fault());
}

void Session::onMessage(uint64_t subscription, std::string_view subject, const uint8_t* payload, size_t size) noexcept {
    ++said_;
    // What was on its way when its sink left has none.
    const auto found = sinks_.find(subscription);
    if (found != sinks_.end()) found->second->received(subject, payload, size);
}

void Session::answer() noexcept {
    // One answer for all that was asked, when the daemon takes what was said before: a daemon that asks without reading makes
    // nothing grow.
    if (!pinged_ || buffered() >= unsentMost) return;
    if (append("PONG\r\n")) pinged_ = false;
}

// ---- writing

bool Session::append(std::string_view text) noexcept {
    if (lost()) return false;
    try {
        const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());  // the vector's own type: one copy, not many
        out_.insert(out_.end(), bytes, bytes + text.size());
        return true;
    } catch (const std::bad_alloc&) {
        fail("no memory for a message to the daemon");
        return false;
    }
}

void Session::write() noexcept {
    while (!lost() && outSent_ != out_.size()) {
        const ssize_t sent = socket_->write(out_.data() + outSent_, out_.size() - outSent_);
        if (sent < 0) return fail(nullptr);
        if (sent == 0) return;
        outSent_ += static_cast<size_t>(sent);
        written_ += static_cast<uint64_t>(sent);
    }
    out_.clear();
    outSent_ = 0;
    if (out_.capacity() > outKept) out_.shrink_to_fit();
}

bool Session::takesMore() noexcept {
    if (buffered() >= unsentMost) write();
    return buffered() < unsentMost;
}

bool Session::publish(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept {
    if (lost() || size > limit().bytes()) return false;
    std::array<char, 24> length;
    const auto [end, error] = std::to_chars(length.data(), length.data() + length.size(), size);
    const std::string_view number(length.data(), static_cast<size_t>(end - length.data()));
    append("PUB ");
    append(wireSubject);
    append(" ");
    append(number);
    append("\r\n");
    append({reinterpret_cast<const char*>(payload), size});
    append("\r\n");
    if (buffered() >= writeSize) write();
    return !lost();
}

bool Session::subscribe(Sink& sink, std::string_view wireSubject, std::string_view group) noexcept {
    try {
        sinks_.emplace(lastNumber_ + 1, &sink);
        sink.number_ = ++lastNumber_;
        std::string line = "SUB " + std::string(wireSubject) + " ";
        if (!group.empty()) line += std::string(group) + " ";
        line += std::to_string(sink.number_) + "\r\n";
        return append(line);
    } catch (const std::bad_alloc&) {
        fail("no memory for a subscription");
        return false;
    }
}

void Session::unsubscribe(Sink& sink) noexcept {
    if (sinks_.erase(sink.number_) == 0) return;
    try {
        append("UNSUB " + std::to_string(sink.number_) + "\r\n");
    } catch (const std::bad_alloc&) {
        fail("no memory for a subscription");
    }
}

}  // namespace quorl::transport::nats
