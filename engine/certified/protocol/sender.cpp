// Numbers, messages, and what becomes of them.
#include "certified/protocol/sender.h"

#include <algorithm>
#include <new>
#include <utility>

#include "certified/protocol/keyed_hash.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr int64_t longestNote = 30 * seconds;
constexpr size_t idleSubjects = 10'000;  // without agreements that are remembered
constexpr size_t cachedMost = 65'536;
constexpr uint32_t idBlock = 4096;
constexpr int64_t replyLimit = 600 * seconds;  // of a reply without another limit
constexpr int64_t expiryGrid = 10 * milliseconds;
constexpr int64_t longestLook = 60 * seconds;  // the wall clock may be set
constexpr size_t wantedMost = 4096;
constexpr uint64_t askedMost = 256;  // messages sent again at once
constexpr uint64_t askedBytes = 1ull << 20;

}  // namespace

Sender::Subscriber::Subscriber() : pause(firstNote, longestNote) {}

Sender::Sender(Shared& shared)
    : shared_(shared), incarnation_(shared.chance.incarnation), key_(shared.chance.senderKey) {
    shared_.incarnation = incarnation_;
}

// ---- subjects

Sender::Subject* Sender::find(std::string_view text) noexcept {
    const auto found = subjectsByText_.find(text);
    return found == subjectsByText_.end() ? nullptr : found->second;
}

Sender::Subject* Sender::find(uint64_t id) noexcept {
    const auto found = subjects_.find(static_cast<uint32_t>(id));
    return found == subjects_.end() ? nullptr : found->second.get();
}

Sender::Subject& Sender::make(std::string_view text, bool transient) {
    // Ids are reserved in blocks: one that a listener may have heard is never another subject's.
    if (nextId_ >= idLimit_) {
        idLimit_ = nextId_ + idBlock;
        storeSender();
    }
    auto subject = std::make_unique<Subject>();
    Subject& made = *subject;
    made.id = nextId_;
    made.text = text;
    made.transient = transient;
    Frame frame;
    frame.kind = Kind::data;
    frame.name = shared_.settings.name;
    frame.incarnation = incarnation_;
    frame.subjectId = made.id;
    FrameWriter writer;
    encodeDataPrefix(frame, writer);
    made.prefix = writer.string();
    idle_.push_back(&made);
    made.idle = std::prev(idle_.end());
    try {
        subjectsByText_.emplace(made.text, &made);
        try {
            subjects_.emplace(made.id, std::move(subject));
        } catch (...) {
            subjectsByText_.erase(subjectsByText_.find(text));
            throw;
        }
    } catch (...) {
        idle_.pop_back();
        throw;
    }
    ++nextId_;
    // Whoever wants what is sent here from the first message on. All of them, or there is no subject.
    auto& writes = shared_.out->store.writes;
    const size_t written = writes.size();
    try {
        for (auto& [id, subscriber] : subscribers_) {
            if (subscriber->disallowed || transient) continue;
            for (const Interest& interest : subscriber->interests) {
                if (!matches(interest.pattern, text)) continue;
                if (agreements_ < shared_.settings.agreements) agree(made, *subscriber, 1, interest.session);
                break;
            }
        }
    } catch (...) {
        while (writes.size() > written) writes.pop_back();
        for (Agreement* agreement : std::exchange(made.agreements, {})) {
            agreement->subscriber->agreements.erase(made.id);
            --agreements_;
        }
        made.stored = false;
        forgetSubject(made);
        throw;
    }
    return made;
}

void Sender::limitIdle() {
    while (idle_.size() > idleSubjects) forgetSubject(*idle_.front());
}

// Nobody is registered for it any more.
void Sender::forgetSubject(Subject& subject) {
    if (subject.stored) {
        Writer<8> key;
        key.byte('S');
        key.number(subject.id);
        shared_.eraseState(key.string());
    }
    if (subject.idle != idle_.end()) idle_.erase(subject.idle);
    subjectsByText_.erase(subjectsByText_.find(subject.text));
    subjects_.erase(subject.id);
}

// ---- sending

companion::Message Sender::dataOf(const Subject& subject, uint64_t number, int64_t limit,
                                  const companion::Message& message) {
    FrameWriter writer;
    writer.raw(subject.prefix.data(), subject.prefix.size());
    encodeDataRest(number, limit, writer);
    companion::Message data;
    if (message.withAttributes(writer.bytes(), &data) != QUORL_OK) throw std::bad_alloc();
    return data;
}

quorl_status Sender::send(const companion::Message& message, int64_t limit, uint64_t* number, int64_t* used) {
    if (number != nullptr) *number = 0;
    if (!validSubject(message.subject())) return QUORL_INVALID_SUBJECT;
    if (shared_.suspended) return QUORL_NOT_PERMITTED;
    if (const quorl_status status = shared_.storageStatus(); status != QUORL_OK) return status;
    if (message.subject().front() == '_') {
        shared_.sendWhenStored(message);
        return QUORL_OK;
    }
    Subject* subject = find(message.subject());
    if (subject == nullptr) {
        subject = &make(message.subject(), false);
        limitIdle();
    }
    return sendOn(*subject, message, limit, number, used);
}

quorl_status Sender::sendReply(const companion::Message& message, std::string_view requester, int64_t limit,
                               uint64_t* number, int64_t* used) {
    const std::string_view text = message.subject();
    if (!validSubject(text)) return QUORL_INVALID_SUBJECT;
    if (requester.empty() || !text.starts_with("_INBOX.")) return send(message, limit, number, used);
    if (number != nullptr) *number = 0;
    if (!validName(requester)) return QUORL_INVALID_NAME;
    if (shared_.suspended) return QUORL_NOT_PERMITTED;
    if (const quorl_status status = shared_.storageStatus(); status != QUORL_OK) return status;
    Subscriber* subscriber = findSubscriber(requester);
    if (subscriber != nullptr && subscriber->disallowed) {
        shared_.sendWhenStored(message);
        return QUORL_OK;
    }
    if (agreements_ >= shared_.settings.agreements ||
        (subscriber == nullptr && subscribers_.size() >= shared_.settings.listeners))
        return QUORL_QUEUE_LIMIT;
    if (subscriber == nullptr) subscriber = &makeSubscriber(requester);
    Subject* subject = find(text);
    if (subject == nullptr) subject = &make(text, true);
    if (!subscriber->agreements.contains(subject->id)) agree(*subject, *subscriber, subject->last + 1, anySession);
    if (limit == 0 && defaultLimit_ == 0) limit = replyLimit;
    const quorl_status status = sendOn(*subject, message, limit, number, used);
    if (status != QUORL_OK) flushReleased(*subject);
    return status;
}

quorl_status Sender::sendOn(Subject& subject, const companion::Message& message, int64_t limit, uint64_t* number,
                            int64_t* used) {
    if (limit == 0) limit = defaultLimit_;
    if (used != nullptr) *used = limit;
    const uint64_t next = subject.last + 1;
    companion::Message data = dataOf(subject, next, limit, message);
    if (subject.agreements.empty()) {
        shared_.tell(Event::Kind::settled, {}, subject.text, next, next);
        shared_.sendWhenStored(std::move(data));
        subject.last = subject.lastPlain = next;
        if (number != nullptr) *number = next;
        return QUORL_OK;
    }
    const auto size = static_cast<uint32_t>(message.image().size());
    const Settings& settings = shared_.settings;
    if (settings.pendingBytes != 0 && bytes_ + size > settings.pendingBytes && bytes_ != 0) return QUORL_QUEUE_LIMIT;
    if (settings.ledger && settings.mayLoseTail && next > subject.reserved) {
        reserveNumbers(subject);
        storeSubject(subject);
        shared_.syncStep();
    }
    int64_t expires = 0;
    if (limit != 0) expires = limit > INT64_MAX - shared_.now.wall ? INT64_MAX : shared_.now.wall + limit;
    shared_.putMessage(subject.id, next, expires, message);
    try {
        Slot& slot = subject.slots.take(next);
        slot.expires = expires;
        slot.size = size;
        slot.waiting = static_cast<uint32_t>(subject.agreements.size());
        slot.message = message;
        try {
            if (expires != 0) {
                subject.expiries.emplace_hint(subject.expiries.end(), expires, next);
                setExpiryTimer(subject);
            }
            cache(subject, next, slot);
            shared_.sendWhenStored(std::move(data));
        } catch (...) {
            subject.expiries.erase({expires, next});
            subject.slots.release(next);
            throw;
        }
    } catch (...) {
        shared_.undoPutMessage();
        throw;
    }
    subject.last = next;
    ++messages_;
    bytes_ += size;
    memoryBytes_ += size;
    for (Agreement* agreement : subject.agreements) {
        if (agreement->subscriber->noteAt == INT64_MAX) expectConfirmation(*agreement->subscriber);
    }
    watchFullness();
    if (number != nullptr) *number = next;
    return QUORL_OK;
}

// Images that the ledger has too stay in memory for a while: what is missed is missed soon.
void Sender::cache(Subject& subject, uint64_t number, Slot& slot) {
    if (!shared_.settings.ledger) return;
    cached_.push_back({subject.id, number, slot.size});
    cachedBytes_ += slot.size;
    while (cachedBytes_ > shared_.settings.cacheBytes || cached_.size() > cachedMost) {
        const Cached oldest = cached_.front();
        cached_.pop_front();
        cachedBytes_ -= oldest.size;
        Subject* of = find(uint64_t{oldest.subject});
        Slot* at = of != nullptr ? of->slots.find(oldest.number) : nullptr;
        if (at == nullptr || !at->message) continue;
        if (at == &slot) break;
        at->message = {};
        memoryBytes_ -= at->size;
    }
}

void Sender::watchFullness() {
    const Settings& settings = shared_.settings;
    if (settings.pendingBytes == 0) return;
    const uint64_t alarm = settings.pendingBytes / 100 * settings.nearlyFull;
    if (!nearlyFull_ && bytes_ >= alarm) {
        nearlyFull_ = true;
        shared_.tell(Event::Kind::nearlyFull, {}, {}, bytes_, settings.pendingBytes);
    } else if (nearlyFull_ && bytes_ < alarm - alarm / 8) {
        nearlyFull_ = false;
        shared_.tell(Event::Kind::noLongerFull, {}, {}, bytes_, settings.pendingBytes);
    }
}

void Sender::notStored(const std::vector<NotStored>& messages) {
    std::map<uint32_t, uint64_t> first;
    for (const NotStored& one : messages) {
        uint64_t& number = first.try_emplace(one.subject, one.number).first->second;
        number = std::min(number, one.number);
    }
    for (const auto& [id, number] : first) {
        if (Subject* subject = find(uint64_t{id}); subject != nullptr) takeBack(*subject, number);
    }
}

// Messages from that number on were not stored, so nobody has heard of them, nor of anything behind them: their numbers are given
// again, and listeners see no gap.
void Sender::takeBack(Subject& subject, uint64_t first) {
    // Unless one of them was given to a message that nobody was registered for, whose send is over.
    if (subject.lastPlain >= first) {
        const uint32_t id = subject.id;
        giveUp(subject, {first, subject.lastPlain}, Reason::refusedSend);
        if (find(uint64_t{id}) == nullptr) return;
        first = subject.lastPlain + 1;
    }
    if (first > subject.last) return;
    for (uint64_t number = subject.slots.nextTaken(first); number != 0; number = subject.slots.nextTaken(number + 1)) {
        forget(subject, number);
    }
    subject.last = first - 1;
    subject.durable = std::min(subject.durable, subject.last);
    std::vector<Agreement*> changed;
    for (Agreement* agreement : subject.agreements) {
        if (agreement->givenUp > subject.last) agreement->givenUp = 0;
        if (agreement->confirmed.cut(subject.last)) changed.push_back(agreement);
    }
    // What is to be written when the ledger works again must not count them either.
    if (subject.stored) storeSubject(subject);
    for (Agreement* agreement : changed) store(*agreement);
    flushReleased(subject);
}

// ---- sending again

void Sender::resend(const Agreement& agreement, uint64_t number, const Slot& slot, const companion::Message& message) {
    Frame frame;
    frame.kind = Kind::resent;
    frame.name = shared_.settings.name;
    frame.incarnation = incarnation_;
    frame.session = agreement.subscriber->session;
    frame.subjectId = agreement.subject->id;
    frame.number = number;
    if (slot.expires != 0) frame.limit = std::max<int64_t>(slot.expires - shared_.now.wall, 1);
    frame.subject = agreement.subject->text;
    FrameWriter writer;
    encode(frame, writer);
    companion::Message again;
    if (message.withSubjects(agreement.subscriber->address, message.replySubject(), &again) != QUORL_OK ||
        again.withAttributes(writer.bytes(), &again) != QUORL_OK)
        throw std::bad_alloc();
    shared_.sendWhenStored(std::move(again));
}

void Sender::sendGone(const Agreement& agreement, const std::vector<Range>& ranges, Reason reason) {
    Frame frame;
    frame.kind = Kind::gone;
    frame.name = shared_.settings.name;
    frame.incarnation = incarnation_;
    frame.session = agreement.subscriber->session;
    frame.reason = reason;
    frame.subjectId = agreement.subject->id;
    FrameWriter writer;
    encode(frame, writer);
    uint64_t previous = 0;
    for (const Range& range : ranges) {
        if (!addRange(range, previous, writer)) break;
        previous = range.last;
    }
    if (previous != 0) shared_.sendWhenStored(writer, agreement.subscriber->address);
}

// The first message from that number on that is kept for the listener; 0: none is.
uint64_t Sender::nextUnconfirmed(const Agreement& agreement, uint64_t number) const noexcept {
    for (;;) {
        number = agreement.subject->slots.nextTaken(number);
        if (number == 0 || !agreement.confirmed.contains(number)) return number;
        number = agreement.confirmed.behind(number);
    }
}

void Sender::onAsk(const Frame& frame) {
    Subscriber* subscriber = authentic(frame);
    if (subscriber == nullptr) return sendUnknown(frame);
    heardFrom(*subscriber);
    const auto found = subscriber->agreements.find(frame.subjectId);
    if (found == subscriber->agreements.end()) return sendUnknown(frame);
    const Agreement& agreement = *found->second;
    const Subject& subject = *agreement.subject;
    std::vector<Range> missing;
    uint64_t messages = 0;
    uint64_t bytes = 0;
    bool beyond = false;
    forEachRange(frame.list, 0, [&](Range range) {
        if (range.last > subject.last) {
            beyond = true;
            range.last = subject.last;
        }
        uint64_t number = missing.empty() ? range.first : std::max(range.first, missing.back().last + 1);
        while (number <= range.last && messages < askedMost && bytes < askedBytes) {
            const Slot* slot = agreement.confirmed.contains(number) ? nullptr : subject.slots.find(number);
            if (slot == nullptr) {
                // Up to the next one that is kept for it, however little was asked for.
                const uint64_t next = nextUnconfirmed(agreement, number);
                const uint64_t last = next == 0 ? subject.last : next - 1;
                missing.push_back({number, last});
                number = last + 1;
                continue;
            }
            ++messages;
            bytes += slot->size;
            if (slot->message) {
                resend(agreement, number, *slot, slot->message);
            } else if (wanted_.size() < wantedMost) {
                auto& subscribers = wanted_[{subject.id, number}];
                if (subscribers.empty()) shared_.out->fetches.push_back({subject.id, number});
                if (std::ranges::find(subscribers, subscriber->id) == subscribers.end())
                    subscribers.push_back(subscriber->id);
            }
            ++number;
        }
    });
    if (!missing.empty()) sendGone(agreement, missing, Reason::notKept);
    if (!beyond) return;
    // The listener has heard of more than there is.
    Frame note;
    note.kind = Kind::note;
    note.name = shared_.settings.name;
    note.incarnation = incarnation_;
    note.session = subscriber->session;
    FrameWriter writer;
    encode(note, writer);
    addNoted({subject.id, agreement.confirmed.upTo() + 1, subject.last, subject.text}, writer);
    shared_.sendWhenStored(writer, subscriber->address);
}

void Sender::fetched(const Fetch& fetch, const companion::Message& message) {
    const auto found = wanted_.find({fetch.subject, fetch.number});
    if (found == wanted_.end()) return;
    const std::vector<uint64_t> subscribers = std::move(found->second);
    wanted_.erase(found);
    Subject* subject = find(uint64_t{fetch.subject});
    Slot* slot = subject != nullptr ? subject->slots.find(fetch.number) : nullptr;
    if (slot == nullptr) return;
    if (!message) return giveUp(*subject, {fetch.number, fetch.number}, Reason::damaged);
    for (const uint64_t id : subscribers) {
        const Subscriber* subscriber = findSubscriber(id);
        if (subscriber == nullptr) continue;
        const auto agreement = subscriber->agreements.find(fetch.subject);
        if (agreement == subscriber->agreements.end() || agreement->second->confirmed.contains(fetch.number)) continue;
        resend(*agreement->second, fetch.number, *slot, message);
    }
}

// ---- what is kept no longer

void Sender::makeRoom(Subject& subject, uint64_t numbers) {
    const size_t size = subject.released.size() + static_cast<size_t>(std::min(numbers, subject.slots.count()));
    if (size > subject.released.capacity()) subject.released.reserve(std::max(size, 2 * subject.released.capacity()));
}

void Sender::release(Subject& subject, uint64_t number) noexcept {
    forget(subject, number);
    subject.released.push_back(number);
}

void Sender::forget(Subject& subject, uint64_t number) noexcept {
    Slot* slot = subject.slots.find(number);
    --messages_;
    bytes_ -= slot->size;
    if (slot->message) memoryBytes_ -= slot->size;
    if (slot->expires != 0) subject.expiries.erase({slot->expires, number});
    subject.slots.release(number);
}

// Has the ledger forget what was released, and sees to it that no number is given twice. The subject may be gone afterwards.
void Sender::flushReleased(Subject& subject) {
    if (!subject.released.empty()) {
        std::ranges::sort(subject.released);
        for (size_t i = 0; i < subject.released.size();) {
            size_t end = i + 1;
            while (end < subject.released.size() && subject.released[end] == subject.released[end - 1] + 1) ++end;
            shared_.eraseMessages(subject.id, subject.released[i], subject.released[end - 1]);
            i = end;
        }
        // What the stored messages said of the last number goes with them.
        if (subject.released.back() > subject.durable) storeSubject(subject);
        subject.released.clear();
    }
    watchFullness();
    if (subject.transient && subject.slots.empty()) {
        while (!subject.agreements.empty()) end(*subject.agreements.back(), Reason::none, false);
    }
    // Numbers that are not stored are not sure to be given once. So a subject is another one when it is used again.
    if (subject.agreements.empty() && (subject.stored || subject.transient)) forgetSubject(subject);
}

void Sender::giveUp(Subject& subject, Range range, Reason reason) {
    uint64_t number = subject.slots.nextTaken(range.first);
    if (number == 0 || number > range.last) return;
    const std::vector<Agreement*> agreements = subject.agreements;
    for (Agreement* agreement : agreements) {
        const uint64_t first = std::max(range.first, agreement->confirmed.upTo() + 1);
        if (first <= range.last) settle(*agreement, {first, range.last}, reason);
    }
    flushReleased(subject);
}

// The wall clock says when; it is looked at when the monotonic one says that it may have come, and again if it has not.
void Sender::setExpiryTimer(Subject& subject) {
    if (subject.expiries.empty()) return;
    const int64_t in = std::clamp<int64_t>(subject.expiries.begin()->first - shared_.now.wall, 0, longestLook);
    const int64_t at = (shared_.now.monotonic + in) / expiryGrid * expiryGrid + expiryGrid;
    if (at >= subject.expiryAt) return;
    shared_.set(at, Timing::expiry, subject.id);
    subject.expiryAt = at;
}

void Sender::onExpiry(uint64_t subjectId) {
    Subject* subject = find(subjectId);
    if (subject == nullptr || subject->expiryAt > shared_.now.monotonic) return;
    const Taken taken(subject->expiryAt);
    std::vector<uint64_t> expired;
    for (const auto& [at, number] : subject->expiries) {
        if (at > shared_.now.wall) break;
        expired.push_back(number);
    }
    std::ranges::sort(expired);
    for (size_t i = 0; i < expired.size();) {
        Range range{expired[i], expired[i]};
        while (++i < expired.size() && expired[i] == range.last + 1) ++range.last;
        shared_.tell(Event::Kind::expired, {}, subject->text, range.first, range.last);
        giveUp(*subject, range, Reason::expired);
        subject = find(subjectId);
        if (subject == nullptr) return;
    }
    setExpiryTimer(*subject);
}

quorl_status Sender::expire(std::string_view text, uint64_t upTo) {
    if (!validSubject(text)) return QUORL_INVALID_SUBJECT;
    Subject* subject = find(text);
    if (subject == nullptr) return QUORL_NOT_FOUND;
    const uint64_t first = subject->slots.nextTaken(1);
    upTo = std::min(upTo, subject->last);
    if (first == 0 || first > upTo) return QUORL_OK;
    shared_.tell(Event::Kind::expired, {}, subject->text, first, upTo);
    giveUp(*subject, {first, upTo}, Reason::removed);
    return QUORL_OK;
}

quorl_status Sender::removeSendState(std::string_view text) {
    if (!validSubject(text)) return QUORL_INVALID_SUBJECT;
    Subject* subject = find(text);
    if (subject == nullptr) return QUORL_NOT_FOUND;
    const uint64_t last = subject->last;
    giveUp(*subject, {1, last}, Reason::removed);
    subject = find(text);
    if (subject == nullptr) return QUORL_OK;
    while (!subject->agreements.empty()) end(*subject->agreements.back(), Reason::removed, true);
    const bool stored = subject->stored;
    flushReleased(*subject);
    if (!stored) forgetSubject(*subject);
    return QUORL_OK;
}

}  // namespace quorl::certified
