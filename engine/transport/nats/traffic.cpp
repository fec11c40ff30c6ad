// The traffic of a connection: how its thread serves the socket, how messages are written, how probes watch over both.
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/status.h"
#include "transport/local.h"
#include "transport/nats/connection.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {
namespace {

constexpr int64_t microsecond = 1'000;
constexpr int64_t millisecond = 1'000'000;
constexpr int64_t second = 1000 * millisecond;

// A sender that sent less than this ago is sending a stream: its messages are gathered by the thread. Writing to a socket
// takes a few microseconds, a request and its reply several tens.
constexpr int64_t streamGap = 25 * microsecond;

// While messages come in a stream, those that are fewer bytes than the first wait for others this long before they are
// written together: each write costs the system, the daemon and the receivers more than a message does.
constexpr size_t streamSize = 32u << 10;
constexpr int64_t streamPause = 50 * microsecond;

// Of transports that gather: bytes when they name none, and how long the first message waits at most.
constexpr size_t gatherSize = 64u << 10;
constexpr int64_t gatherTime = 2 * millisecond;

// A probe follows what was sent after so many bytes, unless one is under way, and after this time at the latest; without anything sent one goes out now and then, to see
// whether the daemon is still there; one that is not back, while nothing else comes in either, is missed.
constexpr uint64_t probeBytes = 1u << 20;
constexpr int64_t probeDelay = 100 * millisecond;
constexpr int64_t probePeriod = 15 * second;
constexpr int64_t silenceLimit = 10 * second;
// The same for what goes out and does not move; and for a probe while other things come in, which may have been waiting in the
// daemon before it.
constexpr int64_t outputLimit = silenceLimit;
constexpr int64_t overdueLimit = 120 * second;

// Between two advisories about messages that were none.
constexpr int64_t rejectionsPeriod = second;

}  // namespace

quorl_status Connection::send(const message::ContentRef& content, const Batching& batching) noexcept {
    if (const quorl_status status = Router::check(content.sendSubject()); status != QUORL_OK) return status;
    if (const quorl_status status = local::checkReply(content.replySubject()); status != QUORL_OK) return status;
    const int64_t keep = batching.keep.load(std::memory_order_relaxed);
    size_t waiting;
    if (const quorl_status status = outbox_.put(content, keep != 0 ? monotonicNow() + keep : forever, &waiting);
        status != QUORL_OK)
        return status;
    // Either this sees that the thread sleeps, or the thread sees the message before it does.
    if (!asleep_.load(std::memory_order_seq_cst)) return QUORL_OK;
    if (batching.gather.load(std::memory_order_relaxed)) {
        const size_t size = batching.size.load(std::memory_order_relaxed);
        if (waiting >= (size != 0 ? size : gatherSize)) {
            flushNow_.store(true, std::memory_order_seq_cst);
            wake();
        } else if (!gathering_.exchange(true, std::memory_order_seq_cst)) {
            wake();
        }
        return QUORL_OK;
    }
    const int64_t now = monotonicNow();
    if (now - lastSend_.exchange(now, std::memory_order_relaxed) >= streamGap && io_.try_lock()) {
        const bool sent = session_ != nullptr && phase_.load(std::memory_order_relaxed) == connected &&
                          flush() == Flushed::all && !session_->lost();
        io_.unlock();
        if (sent && outbox_.empty()) {
            // The thread is told once that a probe is due.
            if (!unconfirmed_.exchange(true, std::memory_order_relaxed)) wake();
            return QUORL_OK;
        }
    }
    flushNow_.store(true, std::memory_order_seq_cst);
    wake();
    return QUORL_OK;
}

void Connection::serve() noexcept {
    uint32_t watched = EPOLLIN;
    bool held = false;      // the stream was made to wait for more
    int64_t lastFlush = 0;  // when something was last written
    while (!stopping_.load(std::memory_order_acquire)) {
        const int64_t now = monotonicNow();
        const bool rejections = inbound_.rejections.waiting();
        if (rejections && now >= adviseRejectionsAt_) {
            adviseRejections();
            adviseRejectionsAt_ = now + rejectionsPeriod;
        }
        const bool refusals = (newRefusals_ != 0 || admissions_.hasNews()) && !admissions_.undecided();
        if (refusals && now >= adviseRefusalsAt_) {
            adviseRefusals();
            adviseRefusalsAt_ = now + rejectionsPeriod;
        }
        bool blocked;
        int64_t look;
        int socket;
        uint32_t wanted;
        {
            Lock io(io_);
            if (renamed_.load(std::memory_order_relaxed) && mayRename()) {
                phase_.store(away, std::memory_order_release);  // senders leave what they have to this thread
                return;
            }
            applyChanges();
            askAgain(now);
            const bool gathers = gathering_.load(std::memory_order_relaxed);
            if (gathers && gatherUntil_ == 0) gatherUntil_ = now + gatherTime;
            const bool wait = gathers && now < gatherUntil_ && !flushNow_.load(std::memory_order_relaxed);
            const size_t waits = outbox_.waiting();
            held = precise_ && !held && !wait && waits != 0 && waits < streamSize && now - lastFlush < 2 * streamPause;
            blocked = false;
            if (!wait && !held) {
                gathering_.store(false, std::memory_order_relaxed);
                flushNow_.store(false, std::memory_order_relaxed);
                gatherUntil_ = 0;
                Flushed flushed = flush();
                while (flushed == Flushed::changesFirst) {
                    applyChanges();
                    flushed = flush();
                }
                blocked = flushed == Flushed::blocked;
                if (waits != 0) lastFlush = monotonicNow();
            }
            session_->answer();
            watchProbes(now);
            if (session_->buffered() != 0) {
                session_->write();
                blocked = blocked || session_->buffered() != 0;
            }
            if (session_->lost() || givenUp_ != nullptr) return;
            wanted = blocked ? EPOLLIN | EPOLLOUT : EPOLLIN;
            look = nextLook();
            if (gatherUntil_ != 0) look = std::min(look, gatherUntil_);
            if (rejections) look = std::min(look, adviseRejectionsAt_);
            if (refusals) look = std::min(look, adviseRefusalsAt_);
            socket = session_->socket();
        }
        if (wanted != watched) {
            epoll_event event{};
            event.events = wanted;
            event.data.fd = socket;
            epoll_ctl(epoll_, EPOLL_CTL_MOD, socket, &event);
            watched = wanted;
        }
        // While the socket takes nothing, senders need not wake the thread: the socket will.
        if (!blocked && !held) asleep_.store(true, std::memory_order_seq_cst);
        int64_t timeout = std::clamp<int64_t>(look - now, 0, 60 * second);
        if (changesWaiting_.load(std::memory_order_seq_cst) != 0 ||
            (!blocked && gatherUntil_ == 0 && (!outbox_.empty() || gathering_.load(std::memory_order_seq_cst))) ||
            flushNow_.load(std::memory_order_seq_cst))
            timeout = 0;
        if (held) timeout = streamPause;
        std::array<epoll_event, 2> events;
        const int count = waitForEvents(events.data(), static_cast<int>(events.size()), timeout);
        asleep_.store(false, std::memory_order_relaxed);
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<size_t>(i)];
            if (event.data.fd == wakeEvent_) {
                emptyWakeEvent();
            } else if ((event.events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
                for (bool more = true; more;) {
                    {
                        Lock io(io_);
                        more = session_->take();
                        lastRead_ = monotonicNow();
                        readAt_.store(lastRead_, std::memory_order_relaxed);
                    }
                    // Whoever answers what is handed over now need not wait until this thread comes round.
                    asleep_.store(true, std::memory_order_seq_cst);
                    session_->use();
                    asleep_.store(false, std::memory_order_relaxed);
                }
            }
        }
    }
}

int Connection::waitForEvents(epoll_event* events, int most, int64_t nanoseconds) noexcept {
    if (precise_) {
        const timespec limit{nanoseconds / second, nanoseconds % second};
        const int count = epoll_pwait2(epoll_, events, most, &limit, nullptr);
        if (count >= 0 || (errno != ENOSYS && errno != EPERM)) return count;
        precise_ = false;  // an older system, or one whose filter does not know the call
    }
    return epoll_wait(epoll_, events, most, static_cast<int>((nanoseconds + millisecond - 1) / millisecond));
}

// Sends what waits and makes sure that it arrives: what is still unread when a socket is closed may cost what was written.
// False: the session was lost meanwhile, and there is time left.
bool Connection::finishSending() noexcept {
    const int64_t deadline = stopBy_.load(std::memory_order_relaxed);
    Lock io(io_);
    for (;;) {
        applyChanges();
        const Flushed flushed = flush();
        const int64_t left = deadline - monotonicNow();
        if (session_->lost() || givenUp_ != nullptr) return left <= 0;
        if (flushed == Flushed::all) break;
        if (left <= 0) return true;
        if (flushed == Flushed::changesFirst) continue;
        pollfd waited{session_->socket(), POLLIN | POLLOUT, 0};
        if (poll(&waited, 1, static_cast<int>(left / millisecond + 1)) < 0 && errno != EINTR) return true;
        if ((waited.revents & (POLLIN | POLLERR | POLLHUP)) != 0) session_->read();
    }
    if (sendProbe(*session_, monotonicNow()) && awaitProbe(*session_, deadline)) {
        probeIsBack(monotonicNow());
        return true;
    }
    return !session_->lost() || monotonicNow() >= deadline;
}

// ---- writing

Connection::Flushed Connection::flush() noexcept {
    // What waits is for the next session: this one may lack a subscription that was asked for before a message.
    if (givenUp_ != nullptr) return Flushed::blocked;
    for (;;) {
        if (current_ == nullptr) {
            if (outbox_.empty()) break;
            current_ = outbox_.take();
            nextFrame_ = 0;
            if (current_ == nullptr) break;
        }
        // What was listened to before a message was sent is subscribed to before the message goes out.
        if (changesWaiting_.load(std::memory_order_seq_cst) != 0) return Flushed::changesFirst;
        for (; nextFrame_ < current_->frames.size(); ++nextFrame_) {
            const Outbox::Frame& frame = current_->frames[nextFrame_];
            if (frame.keepUntil < returned_) {
                outbox_.addLost(frame.messages);
                continue;
            }
            if (!session_->takesMore() || !writer_.write(*session_, *current_, frame)) {
                if (writer_.failed()) givenUp_ = "no memory for a part of a message";
                return Flushed::blocked;
            }
            handed_ += frame.messages;
            handedBytes_ += frame.size != 0 ? frame.size : current_->contents[frame.content].byteSize();
            if (handedBytes_.get() - probedBytes_ > probeBytes) probeByBytes();
        }
        outbox_.giveBack(std::move(current_));
    }
    if (session_->buffered() == 0) return Flushed::all;
    session_->write();
    return session_->buffered() == 0 ? Flushed::all : Flushed::blocked;
}

// ---- probes

void Connection::ProbeSink::received(std::string_view, const uint8_t* payload, size_t size) noexcept {
    FrameKind kind;
    if (size != probeSize || !readKind(payload, size, &kind) || kind != FrameKind::probe) return;
    const auto number = message::wire::load<uint64_t>(payload + frameHeaderSize);
    connection_.probeSeen_.store(number, std::memory_order_release);
    connection_.admissions_.returned(number, monotonicNow());
    connection_.wakeThread();
}

bool Connection::sendProbe(Session& session, int64_t now) noexcept {
    std::array<uint8_t, probeSize> probe;
    message::wire::store(probe.data(), frameHead(FrameKind::probe));
    message::wire::store(probe.data() + frameHeaderSize, ++probeNumber_);
    unconfirmed_.store(false, std::memory_order_relaxed);
    probed_ = handed_.get();
    probedBytes_ = handedBytes_.get();
    probeUnderWay_ = true;
    missed_ = false;
    probeTime_ = now;
    probeSentAt_.store(now, std::memory_order_relaxed);
    return session.publish(probeSubject_, probe.data(), probe.size());
}

// Of the one that is under way.
bool Connection::probeIsBack(int64_t now) noexcept {
    if (probeSeen_.load(std::memory_order_acquire) != probeNumber_) return false;
    probeUnderWay_ = false;
    probeTime_ = now;
    passedAt_.store(probeSentAt_.exchange(0, std::memory_order_relaxed), std::memory_order_relaxed);
    confirmed_ += probed_ - confirmed_.get();
    return true;
}

// In the midst of writing: what is not confirmed stays little however fast it is.
void Connection::probeByBytes() noexcept {
    if (probeUnderWay_ && probeSeen_.load(std::memory_order_acquire) != probeNumber_) return;
    const int64_t now = monotonicNow();
    if (probeUnderWay_) probeIsBack(now);
    sendProbe(*session_, now);
}

// Whether the daemon, or the way to it, takes what goes out. What comes in says nothing about that.
void Connection::watchOutput(int64_t now) noexcept {
    const int64_t gap = now - outputAt_;
    if (gap < second / 2) return;
    outputAt_ = now;
    const size_t underWay = session_->underWay();
    const uint64_t gone = session_->written() - std::min<uint64_t>(underWay, session_->written());
    if ((underWay == 0 && session_->buffered() == 0) || gone > outputGone_) {
        outputGone_ = gone;
        outputMoved_ = now;
        return;
    }
    // It may be this process that has not run for so long.
    if (gap > 3 * second) outputMoved_ = std::max(outputMoved_, now - outputLimit + second);
    if (now - outputMoved_ > outputLimit) givenUp_ = "the daemon takes nothing of what is sent to it";
}

void Connection::watchProbes(int64_t now) noexcept {
    watchOutput(now);
    if (probeUnderWay_ && !probeIsBack(now)) {
        if (readyCheck_ && now - probeSentAt_.load(std::memory_order_relaxed) > overdueLimit)
            givenUp_ = "the daemon sends, and does not take what is sent to it";
        if (now - std::max(probeTime_, lastRead_) > silenceLimit) {
            // Without the ready check the daemon may be one that does not carry probes.
            if (readyCheck_ && missed_) givenUp_ = "the daemon is silent";
            // Looked at a second time, since this process may be what has not run for so long.
            missed_ = true;
            probeTime_ = now - silenceLimit + second;
        }
        return;
    }
    if (probeRefused_ && readyCheck_) givenUp_ = "the daemon refuses what shows that messages arrive";
    const bool sent = handed_.get() != confirmed_.get();
    if (now - probeTime_ >= (sent ? probeDelay : probePeriod) || admissions_.wantsProbe(probeNumber_))
        sendProbe(*session_, now);
}

// When the thread has to look at the probes again.
int64_t Connection::nextLook() const noexcept {
    if (probeUnderWay_) return std::min(std::max(probeTime_, lastRead_) + silenceLimit, outputAt_ + second);
    return std::min(admissions_.nextDue(), probeTime_ + (handed_.get() != confirmed_.get() ? probeDelay : probePeriod));
}

// While a probe is under way, what was sent, or had come to the daemon, since the one before it may be under way too. When nothing
// comes in at all that says nothing: the way is not slow then, but dead.
Passage Connection::passage(std::string_view inbox, int64_t now) noexcept {
    Passage passage = Passage::open(now);
    const int64_t passed = passedAt_.load(std::memory_order_relaxed);
    const bool away = phase_.load(std::memory_order_acquire) != connected;
    if (passed != 0) {
        const bool underWay = probeSentAt_.load(std::memory_order_relaxed) != 0;
        if (away || underWay || !outbox_.empty() || handed_.get() != confirmed_.get()) passage.passed = passed;
        if (!away && underWay && now - readAt_.load(std::memory_order_relaxed) < second) passage.handedOn = passed;
    }
    passage.arriving = inbound_.assembler.lastPart(inbox);
    passage.lossAt = lossAt_.load(std::memory_order_relaxed);
    return passage;
}

}  // namespace quorl::transport::nats
