// What the sender keeps in the ledger, starting from it again, and looking into it.
//
// Keys: 's' the sender itself; 'S' id a subject; 'L' name a listener; 'A' id name what is kept of a subject for a listener.
#include <algorithm>
#include <iterator>

#include "certified/protocol/sender.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr size_t interestsMost = 1024;
constexpr size_t rangesMost = 64;  // stored of what a listener has confirmed out of turn
constexpr uint64_t numberBlock = 65'536;

}  // namespace

// ---- writing

void Sender::storeSender() {
    Writer<64> value;
    value.fixed(incarnation_);
    value.fixed(key_[0]);
    value.fixed(key_[1]);
    value.number(idLimit_);
    shared_.putState("s", value.string());
    shared_.syncStep();
}

void Sender::reserveNumbers(Subject& subject) const noexcept {
    if (!shared_.settings.ledger || !shared_.settings.mayLoseTail) return;
    constexpr uint64_t most = UINT64_MAX - 1;
    subject.reserved =
        std::max(subject.reserved, subject.last < most - numberBlock ? subject.last + numberBlock : most);
}

void Sender::storeSubject(Subject& subject) {
    // What a power failure leaves of a subject begins with this. If it leaves nothing, the subject is another one when it is used
    // again. So the first numbers that are reserved need not be safe before they are used.
    if (!subject.stored) reserveNumbers(subject);
    Writer<8> key;
    key.byte('S');
    key.number(subject.id);
    Writer<320> value;
    value.text(subject.text);
    value.byte(subject.transient ? 1 : 0);
    value.number(subject.last);
    value.number(subject.reserved);
    shared_.putState(key.string(), value.string());
    subject.stored = true;
    subject.durable = subject.last;
}

void Sender::storeSubscriber(const Subscriber& subscriber) {
    std::string value;
    Writer<64> head;
    head.fixed(subscriber.session);
    head.number(subscriber.switches);
    head.byte(static_cast<uint8_t>((subscriber.disallowed ? 1 : 0) | (subscriber.transient ? 2 : 0)));
    head.fixed(static_cast<uint64_t>(subscriber.heard));
    head.number(subscriber.interests.size());
    value = head.string();
    for (const Interest& interest : subscriber.interests) {
        Writer<300> part;
        part.text(interest.pattern);
        part.fixed(interest.session);
        part.number(interest.attempt);
        value += part.string();
    }
    shared_.putState('L' + subscriber.name, std::move(value));
}

void Sender::store(Agreement& agreement) {
    Writer<8 + nameMax> key;
    key.byte('A');
    key.number(agreement.subject->id);
    key.raw(agreement.subscriber->name.data(), agreement.subscriber->name.size());
    Writer<32 + 20 * rangesMost> value;
    value.number(agreement.confirmed.upTo());
    value.fixed(agreement.session);
    value.number(agreement.attempt);
    // What is left out is asked for again by a listener that does not remember it either.
    uint64_t previous = agreement.confirmed.upTo();
    size_t count = 0;
    for (const auto& [first, last] : agreement.confirmed.ranges()) {
        if (++count > rangesMost) break;
        value.number(first - previous);
        value.number(last - first);
        previous = last;
    }
    shared_.putState(key.string(), value.string());
    // As long as the agreement is there, it speaks for these numbers.
    agreement.subject->durable = std::max(agreement.subject->durable, agreement.confirmed.upTo());
}

void Sender::storeAll() {
    storeSender();
    for (auto& [id, subject] : subjects_) {
        if (subject->stored) storeSubject(*subject);
    }
    for (auto& [id, subscriber] : subscribers_) {
        storeSubscriber(*subscriber);
        for (auto& [subject, agreement] : subscriber->agreements) store(*agreement);
    }
}

void Sender::forEachMessage(const std::function<void(const StoredMessage&)>& visit) const {
    for (const auto& [id, subject] : subjects_) {
        for (uint64_t number = subject->slots.nextTaken(1); number != 0;
             number = subject->slots.nextTaken(number + 1)) {
            const Slot& slot = *subject->slots.find(number);
            visit({id, number, slot.size, slot.expires});
        }
    }
}

// ---- reading

bool Sender::loadSender(Reader& value) {
    shared_.incarnation = incarnation_ = value.fixed();
    key_[0] = value.fixed();
    key_[1] = value.fixed();
    const uint64_t limit = value.number();
    if (!value.done() || limit == 0 || limit > UINT32_MAX) return false;
    nextId_ = idLimit_ = static_cast<uint32_t>(limit);
    return true;
}

bool Sender::loadSubject(Reader& key, Reader& value) {
    const uint64_t id = key.number();
    if (!key.done() || id == 0 || id > UINT32_MAX) return false;
    auto subject = std::make_unique<Subject>();
    subject->id = static_cast<uint32_t>(id);
    subject->text = value.text();
    subject->transient = (value.byte() & 1) != 0;
    subject->last = value.number();
    subject->reserved = value.number();
    if (!value.done() || !validSubject(subject->text) || subject->last == UINT64_MAX || subject->reserved == UINT64_MAX)
        return false;
    subject->stored = true;
    subject->durable = subject->last;
    subject->idle = idle_.end();
    if (!subjectsByText_.emplace(subject->text, subject.get()).second) return false;
    return subjects_.emplace(subject->id, std::move(subject)).second;
}

bool Sender::loadSubscriber(std::string_view name, Reader& value) {
    if (!validName(name)) return false;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber == nullptr) subscriber = &makeSubscriber(name);
    subscriber->session = value.fixed();
    subscriber->switches = value.number();
    const uint8_t flags = value.byte();
    subscriber->disallowed = (flags & 1) != 0;
    subscriber->transient = (flags & 2) != 0;
    subscriber->heard = static_cast<int64_t>(value.fixed());
    const uint64_t count = value.number();
    if (!value.ok() || count > interestsMost) return false;
    for (uint64_t i = 0; i < count; ++i) {
        Interest interest;
        interest.pattern = value.text();
        interest.session = value.fixed();
        interest.attempt = value.number();
        if (!value.ok() || !validPattern(interest.pattern)) return false;
        subscriber->interests.push_back(std::move(interest));
    }
    return value.done();
}

bool Sender::loadAgreement(uint64_t id, std::string_view name, Reader& value) {
    Subject* subject = id <= UINT32_MAX ? find(id) : nullptr;
    if (subject == nullptr || !validName(name)) return false;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber == nullptr) subscriber = &makeSubscriber(name);
    auto agreement = std::make_unique<Agreement>();
    agreement->subject = subject;
    agreement->subscriber = subscriber;
    agreement->confirmed = NumberSet(value.number());
    agreement->session = value.fixed();
    agreement->attempt = value.number();
    uint64_t previous = agreement->confirmed.upTo();
    while (value.ok() && value.left() != 0 && previous != UINT64_MAX) {
        const uint64_t gap = value.number();
        const uint64_t more = value.number();
        if (!value.ok() || gap == 0 || gap > UINT64_MAX - previous || more >= UINT64_MAX - previous - gap) return false;
        agreement->confirmed.add({previous + gap, previous + gap + more});
        previous += gap + more;
    }
    if (!value.done() || agreement->confirmed.upTo() == UINT64_MAX || subscriber->agreements.contains(subject->id))
        return false;
    subject->agreements.push_back(agreement.get());
    subject->last = std::max(subject->last, agreement->confirmed.highest());
    subject->durable = subject->last;
    subscriber->agreements.emplace(subject->id, std::move(agreement));
    ++agreements_;
    return true;
}

bool Sender::loadMessage(const StoredMessage& message) {
    Subject* subject = find(uint64_t{message.subject});
    if (subject == nullptr || message.number == 0 || message.number == UINT64_MAX ||
        subject->slots.find(message.number) != nullptr)
        return false;
    Slot& slot = subject->slots.take(message.number);
    slot.size = message.size;
    slot.expires = message.expires;
    subject->last = std::max(subject->last, message.number);
    if (message.expires != 0) subject->expiries.emplace_hint(subject->expiries.end(), message.expires, message.number);
    ++messages_;
    bytes_ += message.size;
    return true;
}

void Sender::start(bool complete) {
    // The ids of what was not stored may have been heard of; they are not used again.
    storeSender();
    std::vector<uint32_t> ids;
    for (auto& [id, subject] : subjects_) ids.push_back(id);
    std::ranges::sort(ids);
    for (const uint32_t id : ids) {
        Subject& subject = *subjects_.find(id)->second;
        Frame frame;
        frame.kind = Kind::data;
        frame.name = shared_.settings.name;
        frame.incarnation = incarnation_;
        frame.subjectId = id;
        FrameWriter writer;
        encodeDataPrefix(frame, writer);
        subject.prefix = writer.string();
        // Listeners may have heard more than is left of it.
        if (!complete && shared_.settings.mayLoseTail) subject.last = std::max(subject.last, subject.reserved);
        // All of them at once: each would cost a sync with its next message.
        if (shared_.settings.mayLoseTail && subject.last >= subject.reserved) {
            reserveNumbers(subject);
            storeSubject(subject);
        }
        for (Agreement* agreement : subject.agreements) {
            // What is not kept any more was confirmed by this listener, or given up.
            NumberSet& confirmed = agreement->confirmed;
            uint64_t missing = confirmed.upTo() + 1;
            for (uint64_t number = subject.slots.nextTaken(missing); number != 0;
                 number = subject.slots.nextTaken(number + 1)) {
                if (confirmed.contains(number)) continue;
                ++subject.slots.find(number)->waiting;
                if (number > missing) confirmed.add({missing, number - 1});
                missing = number + 1;
            }
            if (missing <= subject.last) confirmed.add({missing, subject.last});
            // Whether the listener was told of what was given up is not stored: it is told once more.
            if (agreement->session != 0) agreement->givenUp = confirmed.upTo();
            agreement->progressAt = shared_.now.monotonic;
        }
        makeRoom(subject, UINT64_MAX);
        for (uint64_t number = subject.slots.nextTaken(1); number != 0; number = subject.slots.nextTaken(number + 1)) {
            if (subject.slots.find(number)->waiting == 0) release(subject, number);
        }
        setExpiryTimer(subject);
        flushReleased(subject);
    }
    for (auto& [id, subscriber] : subscribers_) {
        if (subscriber->session != 0)
            subscriber->token = tokenFor(subscriber->name, subscriber->session, subscriber->switches - 1);
        subscriber->heardAt = shared_.now.monotonic;
        if (subscriber->transient)
            shared_.set(shared_.now.monotonic + shared_.settings.transientSilence, Timing::transient, id);
        if (!subscriber->agreements.empty()) expectConfirmation(*subscriber);
    }
    sayHello(everybody);
}

void Sender::close() {
    if (!shared_.settings.ledger) return;
    for (auto& [id, subscriber] : subscribers_) {
        if (subscriber->heard != 0) storeSubscriber(*subscriber);
    }
}

// ---- looking

void Sender::review(std::string_view pattern, const std::function<bool(const Review&)>& visit) const {
    std::vector<const Subject*> subjects;
    for (const auto& [id, subject] : subjects_) {
        if ((pattern.empty() || matches(pattern, subject->text)) && !subject->agreements.empty())
            subjects.push_back(subject.get());
    }
    std::ranges::sort(subjects, {}, [](const Subject* subject) { return std::string_view(subject->text); });
    for (const Subject* subject : subjects) {
        Review review;
        review.subject = subject->text;
        const uint64_t first = subject->slots.nextTaken(1);
        review.first = first == 0 ? subject->last + 1 : first;
        review.last = subject->last;
        review.messages = subject->slots.count();
        for (uint64_t number = first; number != 0; number = subject->slots.nextTaken(number + 1))
            review.bytes += subject->slots.find(number)->size;
        for (const Agreement* agreement : subject->agreements)
            review.listeners.push_back({agreement->subscriber->name, agreement->confirmed.upTo(),
                                        unconfirmed(*agreement), agreement->subscriber->heard,
                                        agreement->session != 0 && agreement->session != anySession});
        std::ranges::sort(review.listeners, {}, &Review::Listener::name);
        if (visit(review)) return;
    }
}

void Sender::count(Counts& counts) const noexcept {
    counts.messages = messages_;
    counts.bytes = bytes_;
    counts.listeners = subscribers_.size();
    counts.agreements = agreements_;
    counts.memory += memoryBytes_ + cached_.size() * sizeof(Cached);
    for (const auto& [id, subject] : subjects_)
        counts.memory += subject->slots.memory() + subject->expiries.size() * 64 + sizeof(Subject);
}

}  // namespace quorl::certified
