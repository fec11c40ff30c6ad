// Asking the relay agent, and asking again.
#include "certified/relay/link.h"

#include <sys/random.h>

#include <algorithm>
#include <chrono>
#include <new>

#include "companion/host.h"
#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::certified {

using companion::fail;
using companion::Message;

namespace {

constexpr int64_t milliseconds = 1'000'000;
constexpr int64_t askAgain = 500 * milliseconds;
constexpr int64_t lookAgain = 50 * milliseconds;  // whether what was taken is confirmed
constexpr int64_t offerAgain = 1000 * milliseconds;
constexpr uint64_t window = 256;      // parts of a copy that are on their way
constexpr size_t itemsMost = 512;     // taken and not confirmed: less than a machine holds back
constexpr size_t forgetMost = 1'500;  // bytes of ranges in one frame

uint64_t drawExchange() noexcept {
    uint64_t drawn = 0;
    // Without chance, the clock has to do: it only tells one exchange from the next.
    if (getrandom(&drawn, sizeof drawn, 0) != sizeof drawn) drawn = static_cast<uint64_t>(companion::monotonicNow());
    return drawn | 1;
}

}  // namespace

RelayLink::RelayLink(Owner& owner, uint32_t transport, std::string_view agent, std::string_view name)
    : owner_(owner), transport_(transport), agent_(agent), address_(std::string(relayPrefix) + agent_), name_(name) {}

quorl_status RelayLink::open() {
    return companion::createInbox(transport_, &inbox_);
}

quorl_status RelayLink::silent() const noexcept {
    return fail(QUORL_TIMEOUT,
                "the relay agent \"%s\" does not answer \"%s\"; see that quorl-relay runs, and try again",
                agent_.c_str(), name_.c_str());
}

// Not under the lock: it may wait for room.
quorl_status RelayLink::say(RelayKind kind, uint64_t number, std::span<const uint8_t> rest,
                            const Message* fields) noexcept {
    RelayFrame frame;
    frame.kind = kind;
    frame.name = name_;
    frame.inbox = inbox_;
    {
        const std::lock_guard lock(lock_);
        frame.exchange = exchange_;
    }
    frame.number = number;
    frame.rest = rest;
    FrameWriter writer;
    encode(frame, writer);
    Message message;
    quorl_status status =
        fields != nullptr ? fields->withSubjects(address_, {}, &message) : Message::empty(address_, &message);
    if (status == QUORL_OK) status = message.withAttributes(writer.bytes(), &message);
    while (status == QUORL_OK) {
        const uint32_t seen = companion::roomReports(transport_);
        status = companion::send(transport_, message);
        if (status != companion::noRoom) break;
        status = companion::awaitRoom(transport_, seen, companion::monotonicNow() + askAgain);
    }
    // What is not sent is as if it were lost, and is sent again.
    return status == QUORL_DAEMON_NOT_CONNECTED ? QUORL_OK : status;
}

template <class F>
bool RelayLink::await(std::unique_lock<std::mutex>& lock, int64_t deadline, F&& condition) {
    for (;;) {
        if (stopping_ || condition()) return true;
        const int64_t left = deadline - companion::monotonicNow();
        if (left <= 0) return false;
        changed_.wait_for(lock, std::chrono::nanoseconds(left));
    }
}

quorl_status RelayLink::connect(int64_t deadline) noexcept {
    {
        const std::lock_guard lock(lock_);
        exchange_ = drawExchange();
        connected_ = false;
        failure_.clear();
    }
    for (;;) {
        if (const quorl_status status = say(RelayKind::connect, 0, {}); status != QUORL_OK) return status;
        std::unique_lock lock(lock_);
        const int64_t until = std::min(deadline, companion::monotonicNow() + askAgain);
        await(lock, until, [&] { return connected_ || !failure_.empty(); });
        if (stopping_) return fail(QUORL_INTR, "the certified transport was destroyed while it connected");
        if (!failure_.empty())
            return fail(QUORL_IO_FAILED, "the relay agent \"%s\" failed: %s", agent_.c_str(), failure_.c_str());
        if (connected_) return QUORL_OK;
        if (companion::monotonicNow() >= deadline) return silent();
    }
}

// ---- handing over

quorl_status RelayLink::sendPart(const RelayCopy& copy, const std::string& state, uint64_t number) noexcept {
    const uint64_t stateParts = (state.size() + relayRestMost - 1) / relayRestMost;
    if (number <= stateParts) {
        const size_t at = (number - 1) * relayRestMost;
        const auto* bytes = reinterpret_cast<const uint8_t*>(state.data()) + at;
        return say(RelayKind::state, number, {bytes, std::min(relayRestMost, state.size() - at)});
    }
    const StoredMessage& stored = copy.messages[number - stateParts - 1];
    Message image;
    Writer<relayRestMost> rest;
    // One that cannot be read any more has no image: the relay agent leaves it out.
    const bool readable = owner_.image(stored, &image);
    rest.number(readable ? stored.subject : 0);
    rest.number(stored.number);
    rest.fixed(static_cast<uint64_t>(stored.expires));
    rest.text(readable ? image.subject() : std::string_view());
    rest.text(readable ? image.replySubject() : std::string_view());
    return say(RelayKind::message, number, rest.bytes(), readable ? &image : nullptr);
}

quorl_status RelayLink::handOver(const RelayCopy& copy, int64_t patience) noexcept {
    std::string state;
    try {
        const auto add = [&](std::string_view text) {
            Writer<10> size;
            size.number(text.size());
            state += size.string();
            state += text;
        };
        for (const std::string& pattern : copy.patterns) {
            add("P" + pattern);
            add({});
        }
        for (const Write& write : copy.state) {
            add("K" + write.key);
            add(write.value);
        }
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory to hand over to the relay agent");
    }
    const uint64_t parts = (state.size() + relayRestMost - 1) / relayRestMost + copy.messages.size();
    {
        const std::lock_guard lock(lock_);
        exchange_ = drawExchange();
        got_ = 0;
        standsIn_ = false;
        failure_.clear();
    }
    uint64_t sent = 0;  // of parts, and of the end behind them
    uint64_t known = 0;
    int64_t heardAt = companion::monotonicNow();
    for (;;) {
        for (; sent < std::min(parts + 1, known + window); ++sent) {
            const quorl_status status = sent < parts ? sendPart(copy, state, sent + 1) : say(RelayKind::end, parts, {});
            if (status != QUORL_OK) return status;
        }
        std::unique_lock lock(lock_);
        const bool heard = await(lock, companion::monotonicNow() + askAgain,
                                 [&] { return got_ != known || standsIn_ || !failure_.empty(); });
        if (stopping_) return fail(QUORL_INTR, "the certified transport was destroyed while it disconnected");
        if (!failure_.empty())
            return fail(QUORL_IO_FAILED, "the relay agent \"%s\" cannot stand in for \"%s\": %s", agent_.c_str(),
                        name_.c_str(), failure_.c_str());
        if (standsIn_) return QUORL_OK;
        if (heard) {
            // Back to 0 is an agent that was started anew.
            if (got_ < known) sent = got_;
            known = got_;
            heardAt = companion::monotonicNow();
        } else {
            if (companion::monotonicNow() - heardAt >= patience) {
                lock.unlock();
                callOff();
                return silent();
            }
            sent = known;
        }
    }
}

// The transport goes on by itself, from which a copy that the agent comes to later would know nothing.
void RelayLink::callOff() noexcept {
    {
        const std::lock_guard lock(lock_);
        exchange_ = drawExchange();
    }
    say(RelayKind::connect, 0, {});
}

// ---- taking

quorl_status RelayLink::startTaking() noexcept {
    try {
        thread_ = std::make_unique<companion::Thread>();
        const std::lock_guard lock(lock_);
        if (stopping_) return QUORL_OK;
        taking_ = true;
        nextItem_ = 1;
        paused_ = true;
        nothingMore_ = false;
        items_.clear();
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory to take what the relay agent has kept");
    }
    return thread_->start(
        "quorl-relayed", [](void* self) { static_cast<RelayLink*>(self)->takeAll(); }, this);
}

void RelayLink::stopTaking() noexcept {
    {
        const std::lock_guard lock(lock_);
        taking_ = false;
    }
    changed_.notify_all();
    thread_.reset();
}

void RelayLink::takeAll() noexcept {
    int64_t askedAt = INT64_MIN / 2;
    int64_t offeredAt = INT64_MIN / 2;
    uint64_t offered = 0;  // the last one that the machine was given
    std::unique_lock lock(lock_);
    while (taking_ && !stopping_) {
        try {
            // What lay too far ahead, or nobody listened to, is offered once more.
            const int64_t now = companion::monotonicNow();
            if (now - offeredAt >= offerAgain) {
                offeredAt = now;
                offered = 0;
            }
            std::vector<std::pair<uint64_t, Item>> open(items_.begin(), items_.end());
            lock.unlock();
            Writer<forgetMost> forget;
            uint64_t previous = 0;
            std::vector<uint64_t> done;
            for (const auto& [number, item] : open) {
                if (number > offered) {
                    offered = number;
                    owner_.take(item.message, item.after);
                }
                if (!owner_.isStored(item.message)) continue;
                const size_t before = forget.size();
                forget.number(number - previous);
                forget.number(0);
                if (!forget.fits()) {
                    forget.cut(before);
                    break;
                }
                previous = number;
                done.push_back(number);
            }
            open.clear();
            lock.lock();
            for (const uint64_t number : done) items_.erase(number);
            const bool ask = items_.size() < itemsMost / 2 && !nothingMore_ && (paused_ || now - askedAt >= askAgain);
            if (!done.empty() || ask) {
                const uint64_t from = ask ? nextItem_ : 0;
                if (ask) {
                    askedAt = now;
                    paused_ = false;
                }
                lock.unlock();
                // What is to be forgotten and is lost on the way comes once more at the next connection, and does nothing.
                say(RelayKind::take, from, forget.bytes());
                lock.lock();
            }
            if (nothingMore_ && items_.empty() && done.empty()) {
                taking_ = false;
                return;
            }
        } catch (const std::bad_alloc&) {
            if (!lock.owns_lock()) lock.lock();
        }
        const bool waiting = !paused_;
        await(lock, companion::monotonicNow() + lookAgain, [&] { return !taking_ || (waiting && paused_); });
    }
}

void RelayLink::onItem(const RelayFrame& frame, const Message& message) {
    Reader rest(frame.rest);
    const uint64_t after = rest.number();
    const std::string_view subject = rest.text();
    // Behind one that was lost nothing counts; it is asked for again.
    if (!rest.ok() || !taking_ || frame.number < nextItem_ || frame.last >= nextItem_ || items_.size() >= itemsMost)
        return;
    Item item;
    item.after = after;
    if (message.withSubjects(subject, message.replySubject(), &item.message) != QUORL_OK ||
        item.message.withAttributes(frame.rest.last(rest.left()), &item.message) != QUORL_OK)
        return;
    items_.emplace(frame.number, std::move(item));
    nextItem_ = frame.number + 1;
}

// ---- answers

void RelayLink::received(const Message& message) noexcept {
    RelayFrame frame;
    if (!decode(message.attributes(), &frame) || frame.name != name_) return;
    const std::lock_guard lock(lock_);
    if (frame.exchange != exchange_) return;
    try {
        switch (frame.kind) {
            case RelayKind::connected:
                connected_ = true;
                break;
            case RelayKind::item:
                onItem(frame, message);
                break;
            case RelayKind::pause:
                paused_ = true;
                if (frame.number == nextItem_ && frame.last == 0) nothingMore_ = true;
                break;
            case RelayKind::got:
                got_ = frame.number;
                break;
            case RelayKind::standsIn:
                standsIn_ = true;
                break;
            case RelayKind::failed:
                failure_.assign(reinterpret_cast<const char*>(frame.rest.data()), frame.rest.size());
                if (failure_.empty()) failure_ = "it does not say why";
                break;
            default:
                return;
        }
    } catch (const std::bad_alloc&) {
        // As if it had been lost.
    }
    changed_.notify_all();
}

void RelayLink::stop() noexcept {
    {
        const std::lock_guard lock(lock_);
        stopping_ = true;
        taking_ = false;
    }
    changed_.notify_all();
    thread_.reset();
}

}  // namespace quorl::certified
