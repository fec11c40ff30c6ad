// One machine: its two sides, and what goes to which.
#include "certified/protocol/machine.h"

#include <algorithm>
#include <new>
#include <utility>

#include "certified/protocol/frame.h"
#include "certified/protocol/presence.h"
#include "certified/protocol/receiver.h"
#include "certified/protocol/sender.h"
#include "certified/protocol/shared.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

// 'V': the version of all that is stored, and whose it is.
constexpr uint8_t stateVersion = 1;
constexpr int64_t withoutMemory = 10 * milliseconds;  // until what found no memory is tried again
constexpr std::string_view versionKey = "V";
// Subjects, listeners, agreements, streams and what is confirmed of them: each stands on those before.
constexpr std::string_view loadOrder = "VsSLARC";

std::string_view withoutKind(std::string_view key) noexcept {
    return key.substr(1);
}

}  // namespace

Machine::Machine(const Settings& settings, const Chance& chance)
    : shared_(std::make_unique<Shared>(settings, chance)),
      sender_(std::make_unique<Sender>(*shared_)),
      receiver_(std::make_unique<Receiver>(*shared_)),
      presence_(std::make_unique<Presence>(*shared_)) {}
Machine::Machine(Machine&&) noexcept = default;
Machine& Machine::operator=(Machine&&) noexcept = default;
Machine::~Machine() = default;

const std::string& Machine::name() const noexcept {
    return shared_->settings.name;
}

const std::string& Machine::address() const noexcept {
    return shared_->address;
}

bool Machine::suspended() const noexcept {
    return shared_->suspended;
}

Counts Machine::counts() const noexcept {
    Counts counts;
    counts.foreign = shared_->foreign;
    sender_->count(counts);
    receiver_->count(counts);
    return counts;
}

// ---- starting

quorl_status Machine::load(std::string_view key, std::string_view value) {
    if (key.empty()) return QUORL_INVALID_FILE;
    loaded_.emplace_back(key, value);
    return QUORL_OK;
}

quorl_status Machine::loadState() {
    const auto place = [](const auto& entry) { return loadOrder.find(entry.first.front()); };
    std::ranges::stable_sort(loaded_, {}, place);
    const auto entries = std::exchange(loaded_, {});
    for (const auto& [key, content] : entries) {
        const std::string_view rest = withoutKind(key);
        Reader keyReader(rest);
        Reader value((std::string_view(content)));
        bool good = true;
        switch (key.front()) {
            case 'V': {
                const uint8_t version = value.byte();
                if (version > stateVersion) return QUORL_VERSION_MISMATCH;
                const std::string_view name = value.text();
                good = value.done() && version != 0;
                if (good && name != shared_->settings.name) return QUORL_ARG_CONFLICT;
                break;
            }
            case 's':
                good = sender_->loadSender(value);
                break;
            case 'S':
                good = sender_->loadSubject(keyReader, value);
                break;
            case 'L':
                good = sender_->loadSubscriber(rest, value);
                break;
            case 'A': {
                // The name stands behind the subject's number.
                const uint64_t id = keyReader.number();
                good = keyReader.ok() && sender_->loadAgreement(id, rest.substr(rest.size() - keyReader.left()), value);
                break;
            }
            case 'R':
                good = receiver_->loadStream(keyReader, value);
                break;
            case 'C':
                good = receiver_->loadConfirmed(keyReader);
                break;
            default:
                break;  // nothing that would have to be known
        }
        if (!good) return QUORL_INVALID_FILE;
    }
    return QUORL_OK;
}

quorl_status Machine::load(const StoredMessage& message) {
    if (const quorl_status status = check(); status != QUORL_OK) return status;
    return sender_->loadMessage(message) ? QUORL_OK : QUORL_INVALID_FILE;
}

void Machine::storeVersion() {
    Writer<nameMax + 16> version;
    version.byte(stateVersion);
    version.text(shared_->settings.name);
    shared_->putState(std::string(versionKey), version.string());
}

quorl_status Machine::check() {
    return loaded_.empty() ? QUORL_OK : loadState();
}

quorl_status Machine::start(bool complete, Now now, Output& out) {
    if (const quorl_status status = check(); status != QUORL_OK) return status;
    const Step step(*shared_, now, out);
    storeVersion();
    presence_->start();
    sender_->start(complete);
    receiver_->start();
    if (shared_->settled) receiver_->settled();
    return QUORL_OK;
}

// The name is this machine's from now on, or is again. Until now whoever heard of it could not tell it from a rival.
void Machine::settled() {
    sender_->sayHello(everybody);
    receiver_->settled();
}

// ---- time and storage

int64_t Machine::due() const noexcept {
    return shared_->timers.due();
}

void Machine::tick(Now now, Output& out) {
    const Step step(*shared_, now, out);
    Timers::Timer timer;
    while (shared_->timers.take(now.monotonic, &timer)) {
        try {
            onTime(timer);
        } catch (const std::bad_alloc&) {
            shared_->timers.setAgain(timer, now.monotonic + withoutMemory);
            throw;
        }
    }
}

void Machine::onTime(const Timers::Timer& timer) {
    switch (static_cast<Timing>(timer.what)) {
        case Timing::storage:
            shared_->tryStorage();
            break;
        case Timing::presence:
            if (presence_->onTime()) settled();
            break;
        case Timing::expiry:
            sender_->onExpiry(timer.which);
            break;
        case Timing::transient:
            sender_->onTransient(timer.which);
            break;
        case Timing::note:
            sender_->onNote(timer.which);
            break;
        case Timing::confirm:
            receiver_->onConfirmTime(timer.which);
            break;
        case Timing::stream:
            receiver_->onStreamTime(timer.which);
            break;
        case Timing::source:
            receiver_->onSourceTime(timer.which);
            break;
        case Timing::pattern:
            receiver_->onPatternTime(timer.which);
            break;
        case Timing::announce:
            receiver_->onAnnounceTime();
            break;
    }
}

void Machine::persisted(uint64_t token, Now now, Output& out) {
    const Step step(*shared_, now, out);
    shared_->persisted(token);
}

void Machine::storageFailed(uint64_t token, quorl_status status, Now now, Output& out) {
    const Step step(*shared_, now, out);
    shared_->storageFailed(token, status);
    sender_->notStored(shared_->notStored);
    shared_->notStored.clear();
}

void Machine::fetched(const Fetch& fetch, const companion::Message& message, Now now, Output& out) {
    const Step step(*shared_, now, out);
    sender_->fetched(fetch, message);
}

// ---- sending

quorl_status Machine::send(const companion::Message& message, int64_t limit, Now now, Output& out, uint64_t* number,
                           int64_t* used) {
    const Step step(*shared_, now, out);
    return sender_->send(message, limit, number, used);
}

quorl_status Machine::sendReply(const companion::Message& message, std::string_view requester, int64_t limit, Now now,
                                Output& out, uint64_t* number, int64_t* used) {
    const Step step(*shared_, now, out);
    return sender_->sendReply(message, requester, limit, number, used);
}

void Machine::setDefaultTimeLimit(int64_t limit) noexcept {
    sender_->setDefaultLimit(limit);
}

quorl_status Machine::allowListener(std::string_view name, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(sender_->allow(name));
}

quorl_status Machine::disallowListener(std::string_view name, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(sender_->disallow(name));
}

quorl_status Machine::addListener(std::string_view name, std::string_view pattern, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return sender_->add(name, pattern);
}

quorl_status Machine::removeListener(std::string_view name, std::string_view pattern, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(sender_->remove(name, pattern));
}

quorl_status Machine::removeSendState(std::string_view subject, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(sender_->removeSendState(subject));
}

quorl_status Machine::expireMessages(std::string_view subject, uint64_t upTo, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(sender_->expire(subject, upTo));
}

quorl_status Machine::retryStorage(Now now, Output& out) {
    const Step step(*shared_, now, out);
    return stored(QUORL_OK);
}

quorl_status Machine::stored(quorl_status status) {
    if (status != QUORL_OK || shared_->storageStatus() == QUORL_OK || shared_->tryNow()) return status;
    return shared_->storageStatus();
}

void Machine::review(std::string_view pattern, const std::function<bool(const Review&)>& visit) const {
    sender_->review(pattern, visit);
}

// ---- listening

quorl_status Machine::createListener(uint32_t number, std::string_view pattern, Now now, Output& out) {
    const Step step(*shared_, now, out);
    return receiver_->createListener(number, pattern);
}

void Machine::destroyListener(uint32_t number, bool cancel, Now now, Output& out) {
    const Step step(*shared_, now, out);
    receiver_->destroyListener(number, cancel);
}

quorl_status Machine::confirm(uint32_t listener, StreamId stream, uint64_t number, Confirm when, Now now, Output& out) {
    const Step step(*shared_, now, out);
    const quorl_status status = receiver_->confirm(listener, stream, number, when);
    return when == Confirm::now ? stored(status) : status;
}

StreamId Machine::streamOf(const companion::Message& message, uint64_t* number) const noexcept {
    Frame frame;
    if (!message || decode(message.attributes(), &frame) != Decoded::frame || frame.kind != Kind::data) return 0;
    *number = frame.number;
    return receiver_->streamOf(frame, message.subject());
}

void Machine::setRoom(uint64_t messages, uint64_t bytes, Now now, Output& out) {
    const Step step(*shared_, now, out);
    receiver_->setRoom(messages, bytes);
}

void Machine::setPublisherInactivity(int64_t interval, Now now, Output& out) {
    const Step step(*shared_, now, out);
    receiver_->setInactivity(interval);
}

void Machine::close(Now now, Output& out) {
    const Step step(*shared_, now, out);
    receiver_->close();
    sender_->close();
    presence_->close();
}

// ---- what comes in

void Machine::receive(companion::Message message, uint32_t listener, Now now, Output& out) {
    const Step step(*shared_, now, out);
    Frame frame;
    const auto attributes = message.attributes();
    const Decoded decoded = attributes.empty() ? Decoded::foreign : decode(attributes, &frame);
    if (decoded == Decoded::frame) return dispatch(frame, std::move(message), listener);
    if (decoded == Decoded::newer && !newerTold_) {
        newerTold_ = true;
        shared_->tell(Event::Kind::newerPeer, {}, message.subject());
    }
    if (listener != 0) {
        if (!shared_->suspended) receiver_->onPlain(message, listener);
    } else {
        ++shared_->foreign;
    }
}

void Machine::dispatch(const Frame& frame, companion::Message message, uint32_t listener) {
    // To be heard under somebody else's pattern is not what a control frame is sent for.
    if (frame.kind == Kind::data) {
        if (listener != 0 && !shared_->suspended) receiver_->onData(frame, std::move(message), listener);
        return;
    }
    if (listener != 0) return;
    if (frame.kind == Kind::presence) {
        if (presence_->onPresence(frame)) settled();
        return;
    }
    if (shared_->suspended) return;
    switch (frame.kind) {
        case Kind::resent:
            return receiver_->onResent(frame, message);
        case Kind::announce:
            return sender_->onAnnounce(frame);
        case Kind::hello:
            return receiver_->onHello(frame);
        case Kind::subscribe:
            return sender_->onSubscribe(frame);
        case Kind::challenge:
            return receiver_->onChallenge(frame);
        case Kind::accepted:
            return receiver_->onAccepted(frame);
        case Kind::refused:
            return receiver_->onRefused(frame);
        case Kind::confirm:
            return sender_->onConfirm(frame);
        case Kind::ask:
            return sender_->onAsk(frame);
        case Kind::note:
            return receiver_->onNote(frame);
        case Kind::gone:
            return receiver_->onGone(frame);
        case Kind::unknown:
            return receiver_->onUnknown(frame);
        case Kind::cancel:
            return sender_->onCancel(frame);
        case Kind::cancelled:
            return receiver_->onCancelled(frame);
        case Kind::ended:
            return receiver_->onEnded(frame);
        default:
            return;
    }
}

// ---- a relay agent

void Machine::copy(Now now, Output& out) {
    const Step step(*shared_, now, out);
    storeVersion();
    sender_->storeAll();
    receiver_->storeAll();
}

std::vector<std::string> Machine::patterns() const {
    return receiver_->patterns();
}

void Machine::forEachMessage(const std::function<void(const StoredMessage&)>& visit) const {
    sender_->forEachMessage(visit);
}

void Machine::kept(companion::Message message, uint64_t after, Now now, Output& out) {
    const Step step(*shared_, now, out);
    Frame frame;
    if (decode(message.attributes(), &frame) != Decoded::frame || shared_->suspended) return;
    if (frame.kind != Kind::data) return dispatch(frame, std::move(message), 0);
    receiver_->onKept(frame, std::move(message), after);
}

bool Machine::believes(const companion::Message& message) const noexcept {
    Frame frame;
    if (shared_->suspended || decode(message.attributes(), &frame) != Decoded::frame) return false;
    return (frame.kind == Kind::subscribe || frame.kind == Kind::confirm || frame.kind == Kind::cancel) &&
           sender_->believes(frame);
}

bool Machine::isStored(const companion::Message& message) const noexcept {
    Frame frame;
    if (decode(message.attributes(), &frame) != Decoded::frame || frame.kind != Kind::data) return true;
    return receiver_->isStored(frame);
}

void Machine::backOnLine(Now now, Output& out) {
    const Step step(*shared_, now, out);
    if (shared_->suspended) return;
    sender_->backOnLine();
    if (shared_->settled) receiver_->backOnLine();
}

// ---- attributes

bool attributesOf(const companion::Message& message, Attributes* attributes) noexcept {
    Frame frame;
    if (!message || decode(message.attributes(), &frame) != Decoded::frame || frame.kind != Kind::data) return false;
    *attributes = {frame.name, frame.number, frame.limit};
    return true;
}

std::string_view requesterOf(const companion::Message& message) noexcept {
    Attributes attributes;
    return attributesOf(message, &attributes) ? attributes.sender : std::string_view();
}

}  // namespace quorl::certified
