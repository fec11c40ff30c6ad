// Who is registered for what, what they have confirmed, and reminding those who have not.
#include <algorithm>
#include <array>
#include <iterator>

#include "certified/protocol/keyed_hash.h"
#include "certified/protocol/sender.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr size_t refusedMost = 1024;         // refusals that are remembered
constexpr int64_t apart = milliseconds / 5;  // between notes when all are sent at once

}  // namespace

// ---- subscribers

Sender::Subscriber* Sender::findSubscriber(std::string_view name) noexcept {
    const auto found = subscribersByName_.find(name);
    return found == subscribersByName_.end() ? nullptr : found->second;
}

Sender::Subscriber* Sender::findSubscriber(uint64_t id) noexcept {
    const auto found = subscribers_.find(id);
    return found == subscribers_.end() ? nullptr : found->second.get();
}

Sender::Subscriber& Sender::makeSubscriber(std::string_view name) {
    auto subscriber = std::make_unique<Subscriber>();
    Subscriber& made = *subscriber;
    made.id = lastSubscriber_ + 1;
    made.name = name;
    made.address = addressOf(name);
    made.heardAt = shared_.now.monotonic;
    subscribersByName_.emplace(made.name, &made);
    try {
        subscribers_.emplace(made.id, std::move(subscriber));
    } catch (...) {
        subscribersByName_.erase(subscribersByName_.find(name));
        throw;
    }
    ++lastSubscriber_;
    return made;
}

// Nothing is known of it that would have to be remembered.
void Sender::forgetIfNothing(Subscriber& subscriber) {
    if (subscriber.disallowed || !subscriber.interests.empty() || !subscriber.agreements.empty()) return;
    shared_.eraseState('L' + subscriber.name);
    subscribersByName_.erase(subscribersByName_.find(subscriber.name));
    subscribers_.erase(subscriber.id);
}

// What the listener has to show: for its present session what it showed before, for another one what was not shown yet.
uint64_t Sender::tokenOf(const Subscriber* subscriber, const Frame& frame) const {
    if (subscriber == nullptr) return tokenFor(frame.name, frame.session, 0);
    if (subscriber->token != 0 && subscriber->session == frame.session) return subscriber->token;
    return tokenFor(frame.name, frame.session, subscriber->switches);
}

bool Sender::believes(const Frame& frame) noexcept {
    return frame.incarnation == incarnation_ && frame.token == tokenOf(findSubscriber(frame.name), frame);
}

// What only this sender can have told, and only to who hears under that name.
uint64_t Sender::tokenFor(std::string_view name, uint64_t session, uint64_t switches) const {
    Writer<nameMax + 32> text;
    text.fixed(session);
    text.fixed(switches);
    text.raw(name.data(), name.size());
    const auto bytes = text.bytes();
    const uint64_t token = keyedHash(key_, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return token == 0 ? 1 : token;
}

Sender::Subscriber* Sender::authentic(const Frame& frame) {
    Subscriber* subscriber = findSubscriber(frame.name);
    if (frame.incarnation != incarnation_ || subscriber == nullptr || subscriber->disallowed ||
        subscriber->token == 0 || frame.session != subscriber->session || frame.token != subscriber->token)
        return nullptr;
    return subscriber;
}

void Sender::heardFrom(Subscriber& subscriber) {
    subscriber.heard = shared_.now.wall;
    subscriber.heardAt = shared_.now.monotonic;
}

void Sender::sendUnknown(const Frame& frame) {
    if (frame.incarnation != incarnation_) return sayHello(addressOf(frame.name));
    Frame answer;
    answer.kind = Kind::unknown;
    answer.name = shared_.settings.name;
    answer.incarnation = incarnation_;
    answer.session = frame.session;
    answer.subjectId = frame.subjectId;
    FrameWriter writer;
    encode(answer, writer);
    shared_.sendWhenStored(writer, addressOf(frame.name));
}

void Sender::sayHello(std::string_view to) {
    Frame hello;
    hello.kind = Kind::hello;
    hello.name = shared_.settings.name;
    hello.incarnation = incarnation_;
    if (shared_.settled) hello.flags = flagSettled;
    FrameWriter writer;
    encode(hello, writer);
    shared_.sendWhenStored(writer, to);
}

// ---- registration

void Sender::onAnnounce(const Frame& frame) {
    Subscriber* subscriber = findSubscriber(frame.name);
    if (subscriber != nullptr) {
        if (subscriber->disallowed) return;
        subscriber->heardAt = shared_.now.monotonic;
        // It may have been away, and the pauses between notes have become long. Not sooner than the shortest of them, so that
        // nobody has more notes sent by announcing again and again.
        if (subscriber->noteAt != INT64_MAX && shared_.now.monotonic - subscriber->notedAt >= firstNote)
            remindNow(*subscriber);
    }
    sayHello(addressOf(frame.name));
}

// The listener has shown that it hears under its name: from now on this is its session. False: too many are known.
bool Sender::takeUpSession(Subscriber& subscriber, const Frame& frame) {
    subscriber.token = tokenFor(frame.name, frame.session, subscriber.switches);
    subscriber.session = frame.session;
    ++subscriber.switches;
    subscriber.transient = (frame.flags & flagTransient) != 0;
    if (subscriber.transient)
        shared_.set(shared_.now.monotonic + shared_.settings.transientSilence, Timing::transient, subscriber.id);
    storeSubscriber(subscriber);
    shared_.syncStep();
    // While nobody answered, the pauses between notes have become long.
    if (!subscriber.agreements.empty()) remindNow(subscriber);
    return true;
}

// Listeners ask again and again: the program is told once for each start of a listener and subject.
bool Sender::newlyRefused(const Frame& frame) {
    Writer<8 + 2 * 256> text;
    text.fixed(frame.session);
    text.raw(frame.name.data(), frame.name.size());
    text.byte(0);
    text.raw(frame.subject.data(), frame.subject.size());
    const auto bytes = text.bytes();
    const uint64_t which = keyedHash(key_, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    if (std::ranges::find(refused_, which) != refused_.end()) return false;
    if (refused_.size() >= refusedMost) refused_.pop_front();
    refused_.push_back(which);
    return true;
}

void Sender::onSubscribe(const Frame& frame) {
    if (frame.incarnation != incarnation_) return sayHello(addressOf(frame.name));
    Frame answer;
    answer.name = shared_.settings.name;
    answer.incarnation = incarnation_;
    answer.session = frame.session;
    answer.attempt = frame.attempt;
    answer.flags = frame.flags & flagPattern;
    answer.subject = frame.subject;
    const auto reply = [&](Kind kind) {
        answer.kind = kind;
        FrameWriter writer;
        encode(answer, writer);
        shared_.sendWhenStored(writer, addressOf(frame.name));
    };
    const auto refuse = [&](Reason reason) {
        answer.reason = reason;
        if (newlyRefused(frame)) shared_.tell(Event::Kind::refused, frame.name, frame.subject, 0, 0, textOf(reason));
        reply(Kind::refused);
    };
    Subscriber* subscriber = findSubscriber(frame.name);
    if (subscriber == nullptr || subscriber->token == 0 || frame.session != subscriber->session ||
        frame.token != subscriber->token) {
        const uint64_t token = tokenOf(subscriber, frame);
        if (frame.token != token) {
            answer.token = token;
            return reply(Kind::challenge);
        }
        if (subscriber != nullptr && subscriber->disallowed) return refuse(Reason::disallowed);
        if (subscriber == nullptr) {
            if (subscribers_.size() >= shared_.settings.listeners) return refuse(Reason::full);
            subscriber = &makeSubscriber(frame.name);
        }
        takeUpSession(*subscriber, frame);
    }
    if (subscriber->disallowed) return refuse(Reason::disallowed);
    heardFrom(*subscriber);
    if ((frame.flags & flagPattern) != 0) {
        if (!addInterest(*subscriber, frame.subject, frame.session, frame.attempt)) return refuse(Reason::full);
        answer.number = 1;
        return reply(Kind::accepted);
    }
    Subject* subject = find(frame.subject);
    // An answer that was waited for has been confirmed, or given up.
    if (subject == nullptr && frame.subject.front() == '_') {
        answer.reason = Reason::removed;
        return reply(Kind::refused);
    }
    if (subject == nullptr) subject = &make(frame.subject, false);
    auto found = subscriber->agreements.find(subject->id);
    if (found == subscriber->agreements.end()) {
        if (agreements_ >= shared_.settings.agreements) return refuse(Reason::full);
        agree(*subject, *subscriber, subject->last + 1, frame.session);
        shared_.syncStep();  // the listener relies on it
        found = subscriber->agreements.find(subject->id);
    }
    Agreement& agreement = *found->second;
    if (agreement.session == frame.session && frame.attempt < agreement.attempt) return;  // it is late
    // Numbers count for the subject that they were given for; it may have been forgotten since, and be another one now.
    const bool resumes = (frame.flags & flagResumes) != 0 && frame.subjectId == subject->id;
    const uint64_t before = agreement.confirmed.upTo();
    bool changed = agreement.session != frame.session || agreement.attempt != frame.attempt;
    // Without being asked for, what was kept for an earlier session is not.
    if (agreement.session != frame.session && agreement.session != anySession && (frame.flags & flagOld) == 0) {
        if (agreement.confirmed.upTo() < subject->last)
            settle(agreement, {agreement.confirmed.upTo() + 1, subject->last}, Reason::newSession);
    } else if (resumes && frame.number > 1) {
        const uint64_t upTo = std::min(frame.number - 1, subject->last);
        if (upTo > before) settle(agreement, {before + 1, upTo}, Reason::none);
    }
    changed = changed || agreement.confirmed.upTo() != before;
    agreement.session = frame.session;
    agreement.attempt = frame.attempt;
    if (changed) {
        store(agreement);
        shared_.syncStep();
        shared_.tell(Event::Kind::registered, subscriber->name, subject->text, agreement.confirmed.upTo() + 1);
    }
    answer.subjectId = subject->id;
    answer.number = agreement.confirmed.upTo() + 1;
    answer.last = subject->last;
    reply(Kind::accepted);
    flushReleased(*subject);
}

void Sender::onCancel(const Frame& frame) {
    if (frame.incarnation != incarnation_) return sayHello(addressOf(frame.name));
    Frame answer;
    answer.name = shared_.settings.name;
    answer.incarnation = incarnation_;
    answer.session = frame.session;
    answer.attempt = frame.attempt;
    answer.flags = frame.flags & flagPattern;
    answer.subject = frame.subject;
    answer.kind = Kind::cancelled;
    Subscriber* subscriber = findSubscriber(frame.name);
    if (subscriber != nullptr && authentic(frame) == nullptr) {
        const uint64_t token = tokenOf(subscriber, frame);
        if (frame.token != token) {
            answer.kind = Kind::challenge;
            answer.token = token;
            FrameWriter writer;
            encode(answer, writer);
            return shared_.sendWhenStored(writer, addressOf(frame.name));
        }
        takeUpSession(*subscriber, frame);
    }
    if (subscriber != nullptr) {
        heardFrom(*subscriber);
        const auto isOlder = [&](uint64_t session, uint64_t attempt) {
            return session != frame.session || attempt <= frame.attempt;
        };
        if ((frame.flags & flagPattern) != 0) {
            std::erase_if(subscriber->interests, [&](const Interest& interest) {
                return interest.pattern == frame.subject && isOlder(interest.session, interest.attempt);
            });
            storeSubscriber(*subscriber);
            // The listener never heard of those that it has not registered for itself.
            std::vector<Agreement*> unheard;
            for (auto& [id, agreement] : subscriber->agreements) {
                const std::string& text = agreement->subject->text;
                if (agreement->attempt != 0 || !matches(frame.subject, text)) continue;
                const bool wanted = std::ranges::any_of(
                    subscriber->interests, [&](const Interest& interest) { return matches(interest.pattern, text); });
                if (!wanted) unheard.push_back(agreement.get());
            }
            for (Agreement* agreement : unheard) {
                Subject& subject = *agreement->subject;
                end(*agreement, Reason::cancelled, false);
                flushReleased(subject);
            }
        } else if (Subject* subject = find(frame.subject); subject != nullptr) {
            const auto found = subscriber->agreements.find(subject->id);
            if (found != subscriber->agreements.end() && isOlder(found->second->session, found->second->attempt)) {
                end(*found->second, Reason::cancelled, false);
                flushReleased(*subject);
            }
        }
        shared_.syncStep();
        forgetIfNothing(*subscriber);
    }
    FrameWriter writer;
    encode(answer, writer);
    shared_.sendWhenStored(writer, addressOf(frame.name));
}

bool Sender::addInterest(Subscriber& subscriber, std::string_view pattern, uint64_t session, uint64_t attempt) {
    const auto found = std::ranges::find(subscriber.interests, pattern, &Interest::pattern);
    if (found != subscriber.interests.end()) {
        if (found->session == session && found->attempt >= attempt) return true;
        if (session != 0) {
            found->session = session;
            found->attempt = attempt;
        }
    } else {
        if (subscriber.interests.size() >= shared_.settings.patterns) return false;
        subscriber.interests.push_back({std::string(pattern), session, attempt});
    }
    storeSubscriber(subscriber);
    shared_.syncStep();
    const auto& interest = *std::ranges::find(subscriber.interests, pattern, &Interest::pattern);
    applyInterest(subscriber, Interest(interest));
    return true;
}

void Sender::applyInterest(Subscriber& subscriber, const Interest& interest) {
    const auto apply = [&](Subject& subject) {
        if (subject.transient || subscriber.agreements.contains(subject.id)) return;
        if (agreements_ >= shared_.settings.agreements) return;
        agree(subject, subscriber, subject.last + 1, interest.session);
    };
    if (!hasWildcard(interest.pattern)) {
        if (Subject* subject = find(interest.pattern); subject != nullptr) apply(*subject);
        return;
    }
    for (auto& [id, subject] : subjects_) {
        if (matches(interest.pattern, subject->text)) apply(*subject);
    }
}

// ---- agreements

Sender::Agreement& Sender::agree(Subject& subject, Subscriber& subscriber, uint64_t from, uint64_t session) {
    auto made = std::make_unique<Agreement>();
    Agreement& agreement = *made;
    agreement.subject = &subject;
    agreement.subscriber = &subscriber;
    agreement.confirmed = NumberSet(from - 1);
    agreement.session = session;
    agreement.progressAt = shared_.now.monotonic;
    subject.agreements.push_back(&agreement);
    try {
        subscriber.agreements.emplace(subject.id, std::move(made));
    } catch (...) {
        subject.agreements.pop_back();
        throw;
    }
    ++agreements_;
    if (subject.idle != idle_.end()) {
        idle_.erase(subject.idle);
        subject.idle = idle_.end();
    }
    if (!subject.stored || subject.durable < subject.last) storeSubject(subject);
    store(agreement);
    return agreement;
}

void Sender::end(Agreement& agreement, Reason reason, bool tellListener) {
    Subject& subject = *agreement.subject;
    Subscriber& subscriber = *agreement.subscriber;
    const uint64_t given = unconfirmed(agreement);
    if (agreement.confirmed.upTo() < subject.last)
        settle(agreement, {agreement.confirmed.upTo() + 1, subject.last}, reason);
    if (tellListener && subscriber.session != 0) {
        Frame frame;
        frame.kind = Kind::ended;
        frame.name = shared_.settings.name;
        frame.incarnation = incarnation_;
        frame.session = subscriber.session;
        frame.attempt = agreement.attempt;
        frame.reason = reason;
        frame.subjectId = subject.id;
        FrameWriter writer;
        encode(frame, writer);
        shared_.sendWhenStored(writer, subscriber.address);
    }
    if (!subject.transient || given != 0)
        shared_.tell(Event::Kind::ended, subscriber.name, subject.text, 0, given, textOf(reason));
    Writer<8 + nameMax> key;
    key.byte('A');
    key.number(subject.id);
    key.raw(subscriber.name.data(), subscriber.name.size());
    shared_.eraseState(key.string());
    std::erase(subject.agreements, &agreement);
    subscriber.agreements.erase(subject.id);
    --agreements_;
    // The agreement spoke for the numbers that were given.
    if (!subject.agreements.empty()) storeSubject(subject);
}

uint64_t Sender::unconfirmed(const Agreement& agreement) const noexcept {
    const NumberSet& confirmed = agreement.confirmed;
    return agreement.subject->last - confirmed.upTo() - confirmed.beyond();
}

uint64_t Sender::firstUnconfirmed(const Agreement& agreement) const noexcept {
    return agreement.confirmed.upTo() + 1;
}

void Sender::settle(Agreement& agreement, Range range, Reason given) {
    struct Fresh {
        Range range;
        bool kept = false;  // some of it was
    };
    Subject& subject = *agreement.subject;
    std::vector<Fresh> fresh;
    makeRoom(subject, range.last - range.first + 1);
    agreement.confirmed.add(range, [&](Range one) { fresh.push_back({one}); });
    // From here to where it is told nothing needs memory, so that a message and those that wait for it agree.
    const size_t before = subject.released.size();
    for (Fresh& one : fresh) {
        for (uint64_t number = subject.slots.nextTaken(one.range.first); number != 0 && number <= one.range.last;
             number = subject.slots.nextTaken(number + 1)) {
            one.kept = true;
            if (--subject.slots.find(number)->waiting == 0) release(subject, number);
        }
    }
    const std::string& name = agreement.subscriber->name;
    std::vector<Range> gone;
    for (const auto& [one, kept] : fresh) {
        if (!kept) continue;
        if (given == Reason::none) {
            shared_.tell(Event::Kind::confirmed, name, subject.text, one.first, one.last);
        } else {
            shared_.tell(Event::Kind::undelivered, name, subject.text, one.first, one.last, textOf(given));
            gone.push_back(one);
        }
    }
    const auto kind = given == Reason::none ? Event::Kind::completed : Event::Kind::settled;
    for (size_t i = before; i < subject.released.size();) {
        Range completed{subject.released[i], subject.released[i]};
        while (++i < subject.released.size() && subject.released[i] == completed.last + 1) ++completed.last;
        shared_.tell(kind, {}, subject.text, completed.first, completed.last);
    }
    if (gone.empty()) return;
    store(agreement);
    if (agreement.session == 0 || given == Reason::cancelled) return;
    agreement.givenUp = std::max(agreement.givenUp, gone.back().last);
    sendGone(agreement, gone, given);
    expectConfirmation(*agreement.subscriber);
}

void Sender::onConfirm(const Frame& frame) {
    Subscriber* subscriber = authentic(frame);
    if (subscriber == nullptr) return sendUnknown(frame);
    heardFrom(*subscriber);
    const uint64_t id = subscriber->id;
    forEachConfirmed(frame.list, [&](const Confirmed& part) {
        subscriber = findSubscriber(id);
        if (subscriber == nullptr) return;
        const auto found = subscriber->agreements.find(part.subjectId);
        if (found == subscriber->agreements.end()) {
            Frame about = frame;
            about.subjectId = part.subjectId;
            return sendUnknown(about);
        }
        Agreement& agreement = *found->second;
        Subject& subject = *agreement.subject;
        if (part.upTo > subject.last) {
            // Nobody can have confirmed what was not sent.
            ++shared_.foreign;
            return;
        }
        const uint64_t before = agreement.confirmed.upTo();
        const uint64_t settled = before + agreement.confirmed.beyond();
        if (part.upTo >= agreement.givenUp) agreement.givenUp = 0;
        if (part.upTo > before) settle(agreement, {before + 1, part.upTo}, Reason::none);
        forEachRange(part.ranges, part.upTo, [&](Range range) {
            if (range.last <= subject.last) settle(agreement, range, Reason::none);
        });
        if (agreement.confirmed.upTo() + agreement.confirmed.beyond() != settled) store(agreement);
        if (agreement.confirmed.upTo() != before) subscriber->pause.reset();
        flushReleased(subject);
    });
}

// ---- reminding

void Sender::expectConfirmation(Subscriber& subscriber) {
    if (subscriber.noteAt != INT64_MAX) return;
    const int64_t at = shared_.now.monotonic + subscriber.pause.take();
    shared_.set(at, Timing::note, subscriber.id);
    subscriber.noteAt = at;
}

void Sender::remindNow(Subscriber& subscriber) {
    subscriber.pause.reset();
    shared_.set(shared_.now.monotonic, Timing::note, subscriber.id);
    subscriber.noteAt = shared_.now.monotonic;
}

void Sender::onNote(uint64_t subscriberId) {
    Subscriber* subscriber = findSubscriber(subscriberId);
    if (subscriber == nullptr || subscriber->noteAt > shared_.now.monotonic) return;
    const Taken taken(subscriber->noteAt);
    if (shared_.suspended) return expectConfirmation(*subscriber);
    Frame note;
    note.kind = Kind::note;
    note.name = shared_.settings.name;
    note.incarnation = incarnation_;
    note.session = subscriber->session;
    FrameWriter writer;
    encode(note, writer);
    const size_t empty = writer.size();
    bool any = false;
    bool full = false;
    bool progress = false;
    // Those that do not fit come first the next time.
    auto next = subscriber->agreements.lower_bound(subscriber->noteNext);
    for (size_t i = 0; i < subscriber->agreements.size() && !full; ++i, ++next) {
        if (next == subscriber->agreements.end()) next = subscriber->agreements.begin();
        Agreement& agreement = *next->second;
        if (unconfirmed(agreement) == 0 && agreement.givenUp == 0) {
            agreement.progressAt = shared_.now.monotonic;
            continue;
        }
        any = true;
        const uint64_t settled = agreement.confirmed.upTo() + agreement.confirmed.beyond();
        if (settled != agreement.noted) {
            agreement.noted = settled;
            agreement.progressAt = shared_.now.monotonic;
            agreement.lagging = false;
            progress = true;
        } else if (unconfirmed(agreement) != 0 && !agreement.lagging &&
                   shared_.now.monotonic - agreement.progressAt >= shared_.settings.lagging) {
            agreement.lagging = true;
            shared_.tell(Event::Kind::lagging, subscriber->name, agreement.subject->text, firstUnconfirmed(agreement),
                         unconfirmed(agreement));
        }
        full = !addNoted(
            {agreement.subject->id, firstUnconfirmed(agreement), agreement.subject->last, agreement.subject->text},
            writer);
        if (full) subscriber->noteNext = agreement.subject->id;
    }
    if (writer.size() != empty) {
        shared_.sendWhenStored(writer, subscriber->address);
        subscriber->notedAt = shared_.now.monotonic;
    }
    if (progress || !any) subscriber->pause.reset();
    if (any) expectConfirmation(*subscriber);
}

void Sender::backOnLine() {
    sayHello(everybody);
    int64_t at = shared_.now.monotonic;
    for (auto& [id, subscriber] : subscribers_) {
        if (subscriber->agreements.empty()) continue;
        subscriber->pause.reset();
        if (subscriber->noteAt <= at) continue;
        shared_.set(at, Timing::note, id);
        subscriber->noteAt = at;
        at += apart;
    }
}

// A name that ends with its program, and has not been heard for long, will not come back.
void Sender::onTransient(uint64_t subscriberId) {
    Subscriber* subscriber = findSubscriber(subscriberId);
    if (subscriber == nullptr || !subscriber->transient) return;
    const int64_t until = subscriber->heardAt + shared_.settings.transientSilence;
    if (until > shared_.now.monotonic) return shared_.set(until, Timing::transient, subscriberId);
    while (!subscriber->agreements.empty()) {
        Subject& subject = *subscriber->agreements.begin()->second->subject;
        end(*subscriber->agreements.begin()->second, Reason::silent, false);
        flushReleased(subject);
    }
    subscriber->interests.clear();
    forgetIfNothing(*subscriber);
}

// ---- the program's

quorl_status Sender::allow(std::string_view name) {
    if (!validName(name)) return QUORL_INVALID_NAME;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber == nullptr || !subscriber->disallowed) return QUORL_OK;
    subscriber->disallowed = false;
    storeSubscriber(*subscriber);
    forgetIfNothing(*subscriber);
    sayHello(addressOf(name));
    return QUORL_OK;
}

quorl_status Sender::disallow(std::string_view name) {
    if (!validName(name)) return QUORL_INVALID_NAME;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber == nullptr) {
        if (subscribers_.size() >= 2ull * shared_.settings.listeners) return QUORL_QUEUE_LIMIT;
        subscriber = &makeSubscriber(name);
    }
    subscriber->disallowed = true;
    subscriber->interests.clear();
    while (!subscriber->agreements.empty()) {
        Subject& subject = *subscriber->agreements.begin()->second->subject;
        end(*subscriber->agreements.begin()->second, Reason::disallowed, true);
        flushReleased(subject);
    }
    storeSubscriber(*subscriber);
    return QUORL_OK;
}

quorl_status Sender::add(std::string_view name, std::string_view pattern) {
    if (!validName(name)) return QUORL_INVALID_NAME;
    if (!validPattern(pattern) || pattern.front() == '_') return QUORL_INVALID_SUBJECT;
    if (const quorl_status status = shared_.storageStatus(); status != QUORL_OK) return status;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber != nullptr && subscriber->disallowed) return QUORL_NOT_PERMITTED;
    if (agreements_ >= shared_.settings.agreements ||
        (subscriber == nullptr && subscribers_.size() >= shared_.settings.listeners))
        return QUORL_QUEUE_LIMIT;
    if (subscriber == nullptr) subscriber = &makeSubscriber(name);
    return addInterest(*subscriber, pattern, 0, 0) ? QUORL_OK : QUORL_QUEUE_LIMIT;
}

quorl_status Sender::remove(std::string_view name, std::string_view pattern) {
    if (!validName(name)) return QUORL_INVALID_NAME;
    if (!validPattern(pattern)) return QUORL_INVALID_SUBJECT;
    Subscriber* subscriber = findSubscriber(name);
    if (subscriber == nullptr) return QUORL_NOT_FOUND;
    bool found = std::erase_if(subscriber->interests,
                               [&](const Interest& interest) { return interest.pattern == pattern; }) != 0;
    if (found) storeSubscriber(*subscriber);
    std::vector<Agreement*> ending;
    for (auto& [id, agreement] : subscriber->agreements) {
        const std::string& text = agreement->subject->text;
        if (!matches(pattern, text)) continue;
        const bool wanted =
            hasWildcard(pattern) && std::ranges::any_of(subscriber->interests, [&](const Interest& interest) {
                return matches(interest.pattern, text);
            });
        if (!wanted) ending.push_back(agreement.get());
    }
    for (Agreement* agreement : ending) {
        Subject& subject = *agreement->subject;
        end(*agreement, Reason::removed, true);
        flushReleased(subject);
        found = true;
    }
    forgetIfNothing(*subscriber);
    return found ? QUORL_OK : QUORL_NOT_FOUND;
}

}  // namespace quorl::certified
