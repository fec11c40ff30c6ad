// Senders, and registering with them.
#include "certified/protocol/receiver.h"

#include <algorithm>
#include <new>
#include <utility>

#include "certified/protocol/keyed_hash.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr int64_t firstTry = 200 * milliseconds;
constexpr int64_t longestTry = 30 * seconds;
constexpr int64_t firstAsk = 100 * milliseconds;
constexpr int64_t longestAsk = 5 * seconds;
constexpr int64_t announceEvery = 60 * seconds;
constexpr int64_t tokenPause = 100 * milliseconds;
constexpr int64_t supersededFor = 600 * seconds;
constexpr int64_t apart = milliseconds / 5;  // between registrations of a machine that starts with many

bool isInbox(std::string_view subject) noexcept {
    return subject.starts_with("_INBOX.");
}

}  // namespace

Receiver::Stream::Stream() : registerPause(firstTry, longestTry), askPause(firstAsk, longestAsk) {}
Receiver::Pattern::Pattern() : pause(firstTry, longestTry) {}

Receiver::Receiver(Shared& shared) : shared_(shared) {}

// ---- sources

Receiver::Source* Receiver::findSource(std::string_view name, uint64_t incarnation) noexcept {
    if (lastSource_ != nullptr && lastSource_->incarnation == incarnation && lastSource_->name == name)
        return lastSource_;
    const auto found = sourcesByName_.find(name);
    if (found == sourcesByName_.end()) return nullptr;
    for (Source* source : found->second) {
        if (source->incarnation == incarnation) return lastSource_ = source;
    }
    return nullptr;
}

Receiver::Source* Receiver::findSource(uint64_t id) noexcept {
    const auto found = sources_.find(id);
    return found == sources_.end() ? nullptr : found->second.get();
}

Receiver::Source* Receiver::makeSource(std::string_view name, uint64_t incarnation) {
    if (!validName(name) || sources_.size() >= shared_.settings.sources) return nullptr;
    auto source = std::make_unique<Source>();
    Source& made = *source;
    made.id = lastSourceId_ + 1;
    made.name = name;
    made.address = addressOf(name);
    made.incarnation = incarnation;
    // Its own secret with each sender: what one of them knows says nothing about the others.
    made.session = keyedHash(shared_.chance.listenerKey, name) | 1;
    made.heardAt = shared_.now.monotonic;
    auto& list = sourcesByName_[made.name];
    list.push_back(&made);
    try {
        sources_.emplace(made.id, std::move(source));
    } catch (...) {
        list.pop_back();
        throw;
    }
    ++lastSourceId_;
    return &made;
}

// The sender, which is made known. Others of its name give way when it says that it has the name, and not before: it may be a
// rival that does not get it.
Receiver::Source* Receiver::meet(std::string_view name, uint64_t incarnation) {
    Source* source = findSource(name, incarnation);
    if (source != nullptr) return source;
    // Another program that claims this one's name is no sender: the name is this one's, or this one waits for it.
    if (name == shared_.settings.name && incarnation != shared_.incarnation) return nullptr;
    source = makeSource(name, incarnation);
    if (source == nullptr) return nullptr;
    setForgetTime(*source);
    return source;
}

void Receiver::forgetSource(Source& source) {
    while (!source.byId.empty()) forgetStream(*source.byId.begin()->second);
    while (!source.bySubject.empty()) forgetStream(*source.bySubject.begin()->second);
    const auto found = sourcesByName_.find(source.name);
    std::erase(found->second, &source);
    if (found->second.empty()) sourcesByName_.erase(found);
    if (lastSource_ == &source) lastSource_ = nullptr;
    sources_.erase(source.id);
}

Receiver::Source* Receiver::authentic(const Frame& frame) {
    Source* source = findSource(frame.name, frame.incarnation);
    if (source == nullptr || source->session != frame.session) {
        ++shared_.foreign;
        return nullptr;
    }
    heard(*source);
    return source;
}

void Receiver::heard(Source& source) {
    source.heardAt = shared_.now.monotonic;
    if (!source.superseded) return;
    // It is back: its ledger has moved, or two programs have the name.
    source.superseded = false;
    setPatternTime(source, shared_.now.monotonic);
}

void Receiver::supersede(std::string_view name, uint64_t incarnation) {
    const auto found = sourcesByName_.find(name);
    if (found == sourcesByName_.end()) return;
    for (Source* source : found->second) {
        if (source->incarnation == incarnation || source->superseded) continue;
        source->superseded = true;
        source->hasName = false;
        if (std::exchange(source->hadName, false)) shared_.tell(Event::Kind::senderStartedAnew, name, {});
        setForgetTime(*source);
    }
}

void Receiver::setForgetTime(Source& source) {
    const int64_t interval = source.superseded ? supersededFor : inactivity_;
    if (interval == 0) return;
    const int64_t at = source.heardAt + interval;
    if (at >= source.forgetAt) return;
    shared_.set(at, Timing::source, source.id);
    source.forgetAt = at;
}

void Receiver::setInactivity(int64_t interval) {
    inactivity_ = interval;
    for (auto& [id, source] : sources_) setForgetTime(*source);
}

void Receiver::onSourceTime(uint64_t sourceId) {
    Source* source = findSource(sourceId);
    if (source == nullptr || source->forgetAt > shared_.now.monotonic) return;
    const Taken taken(source->forgetAt);
    const int64_t interval = source->superseded ? supersededFor : inactivity_;
    if (interval == 0) return;
    if (shared_.now.monotonic - source->heardAt < interval) return setForgetTime(*source);
    for (auto& [subject, stream] : source->bySubject)
        shared_.tell(Event::Kind::stopped, source->name, subject, 0, 0, "the sender was not heard for too long");
    forgetSource(*source);
}

// ---- streams

Receiver::Stream* Receiver::findStream(StreamId id) noexcept {
    const auto found = streams_.find(id);
    return found == streams_.end() ? nullptr : found->second.get();
}

bool Receiver::wanted(std::string_view subject) const {
    return std::ranges::any_of(listeners_, [&](const auto& entry) { return matches(entry.second.pattern, subject); });
}

void Receiver::collectListeners(Stream& stream) {
    stream.listeners.clear();
    for (const auto& [number, listener] : listeners_) {
        if (matches(listener.pattern, stream.subject)) stream.listeners.push_back(number);
    }
}

Receiver::Stream* Receiver::makeStream(Source& source, uint32_t subjectId, std::string_view subject) {
    if (streams_.size() >= shared_.settings.streams) return nullptr;
    auto made = std::make_unique<Stream>();
    Stream& stream = *made;
    stream.id = lastStream_ + 1;
    stream.source = &source;
    stream.subjectId = subjectId;
    stream.subject = subject;
    collectListeners(stream);
    streams_.emplace(stream.id, std::move(made));
    ++lastStream_;
    try {
        source.bySubject[stream.subject] = &stream;
        if (subjectId != 0) source.byId[subjectId] = &stream;
    } catch (...) {
        source.bySubject.erase(stream.subject);
        streams_.erase(stream.id);
        throw;
    }
    return &stream;
}

void Receiver::forgetStream(Stream& stream) {
    eraseStored(stream);
    dropEarly(stream, UINT64_MAX);
    Source& source = *stream.source;
    if (const auto found = source.byId.find(stream.subjectId); found != source.byId.end() && found->second == &stream)
        source.byId.erase(found);
    if (const auto found = source.bySubject.find(stream.subject);
        found != source.bySubject.end() && found->second == &stream)
        source.bySubject.erase(found);
    streams_.erase(stream.id);
}

Receiver::Stream* Receiver::streamFor(Source& source, uint32_t subjectId, std::string_view subject) {
    const auto byId = source.byId.find(subjectId);
    if (byId != source.byId.end()) {
        if (byId->second->subject == subject) return byId->second;
        ++shared_.foreign;
        return nullptr;
    }
    if (subjectId == 0 || !wanted(subject)) return nullptr;
    const auto bySubject = source.bySubject.find(subject);
    if (bySubject != source.bySubject.end()) {
        Stream& old = *bySubject->second;
        // Ids ascend: what has a lower one is late.
        if (old.subjectId > subjectId) return nullptr;
        if (old.subjectId == 0) {
            old.subjectId = subjectId;
            source.byId[subjectId] = &old;
            return &old;
        }
        // The sender has forgotten the subject, and uses it again.
        releaseAsPlain(old, UINT64_MAX);
        forgetStream(old);
    }
    Stream* stream = makeStream(source, subjectId, subject);
    if (stream == nullptr) return nullptr;
    stream->presumed = isInbox(subject);
    registerAgain(*stream, shared_.now.monotonic);
    return stream;
}

void Receiver::setStreamTime(Stream& stream) {
    const int64_t at = std::min(stream.registerAt, stream.askAt);
    if (at >= stream.timerAt) return;
    shared_.set(at, Timing::stream, stream.id);
    stream.timerAt = at;
}

void Receiver::registerAgain(Stream& stream, int64_t at) {
    // Answers to all tries count, but none to an earlier registration.
    if (stream.state != State::cancelling) stream.state = State::registering;
    stream.attempt = ++attempts_;
    stream.registerPause.reset();
    stream.registerAt = at;
    stream.askAt = INT64_MAX;
    setStreamTime(stream);
    if (at <= shared_.now.monotonic && shared_.settled) subscribe(stream);
}

void Receiver::onStreamTime(uint64_t streamId) {
    Stream* stream = findStream(streamId);
    if (stream == nullptr || stream->timerAt > shared_.now.monotonic) return;
    const Taken taken(stream->timerAt);
    if (stream->registerAt <= shared_.now.monotonic) subscribe(*stream);
    if (stream->askAt <= shared_.now.monotonic) ask(*stream);
    setStreamTime(*stream);
}

void Receiver::sendSubscribe(Source& source, std::string_view subject, uint64_t attempt, uint8_t flags,
                             uint32_t subjectId, uint64_t number) {
    // Without a token the first frame of a while is enough to be told one.
    if (source.token == 0) {
        if (shared_.now.monotonic - source.askedTokenAt < tokenPause) return;
        source.askedTokenAt = shared_.now.monotonic;
    }
    Frame frame;
    frame.kind = Kind::subscribe;
    frame.name = shared_.settings.name;
    frame.incarnation = source.incarnation;
    frame.session = source.session;
    frame.token = source.token;
    frame.attempt = attempt;
    frame.flags = flags;
    if (shared_.settings.requestOld) frame.flags |= flagOld;
    if (!shared_.settings.lasting) frame.flags |= flagTransient;
    frame.subjectId = subjectId;
    frame.number = number;
    frame.subject = subject;
    FrameWriter writer;
    encode(frame, writer);
    shared_.sendWhenStored(writer, source.address);
}

void Receiver::sendCancel(Source& source, std::string_view subject, uint64_t attempt, uint8_t flags) {
    Frame frame;
    frame.kind = Kind::cancel;
    frame.name = shared_.settings.name;
    frame.incarnation = source.incarnation;
    frame.session = source.session;
    frame.token = source.token;
    frame.attempt = attempt;
    frame.flags = flags;
    if (!shared_.settings.lasting) frame.flags |= flagTransient;
    frame.subject = subject;
    FrameWriter writer;
    encode(frame, writer);
    shared_.sendWhenStored(writer, source.address);
}

// Asks to be registered, or to be forgotten, and again when there is no answer.
void Receiver::subscribe(Stream& stream) {
    const Taken taken(stream.registerAt);
    if (!shared_.settled) return;
    if (stream.state == State::cancelling) {
        sendCancel(*stream.source, stream.subject, stream.attempt, 0);
    } else if (stream.state == State::registering && !stream.listeners.empty()) {
        sendSubscribe(*stream.source, stream.subject, stream.attempt, stream.resumes ? flagResumes : 0,
                      stream.subjectId, stream.resumes ? stream.confirmed.upTo() + 1 : 0);
    } else {
        return;
    }
    stream.registerAt = shared_.now.monotonic + stream.registerPause.take();
    setStreamTime(stream);
}

void Receiver::activate(Stream& stream, const Frame& accepted) {
    const uint64_t from = accepted.number;
    stream.registerAt = INT64_MAX;
    if (stream.subjectId != accepted.subjectId) {
        // What has come under another number of the subject is not registered for, and never will be.
        Source& source = *stream.source;
        releaseAsPlain(stream, UINT64_MAX);
        if (const auto found = source.byId.find(stream.subjectId); found != source.byId.end()) source.byId.erase(found);
        eraseStored(stream);
        stream.confirmed = NumberSet();
        stream.next = 1;
        stream.lastKnown = 0;
        stream.inFlight = {};
        stream.resumes = stream.presumed = false;
        stream.subjectId = accepted.subjectId;
        source.byId[accepted.subjectId] = &stream;
    }
    const bool first = !stream.resumes && !stream.presumed;
    if (first) {
        releaseAsPlain(stream, from);
        stream.confirmed = NumberSet(from - 1);
        stream.next = from;
    } else if (from - 1 > stream.confirmed.upTo()) {
        // What is in between will not come: it was given up, or, where this ledger has lost something, confirmed.
        const Range range{stream.confirmed.upTo() + 1, from - 1};
        if (stream.next <= range.last) {
            shared_.tell(Event::Kind::skipped, stream.source->name, stream.subject, std::max(stream.next, range.first),
                         range.last, textOf(Reason::notKept));
        }
        for (uint64_t number = stream.inFlight.nextTaken(range.first); number != 0 && number <= range.last;
             number = stream.inFlight.nextTaken(number + 1))
            stream.inFlight.release(number);
        stream.confirmed.add(range);
        dropEarly(stream, range.last);
        stream.next = std::max(stream.next, stream.confirmed.upTo() + 1);
    }
    stream.state = State::active;
    stream.presumed = false;
    stream.lastKnown = std::max(accepted.last, stream.early.empty() ? 0 : stream.early.rbegin()->first);
    const bool known = std::exchange(stream.resumes, true);
    stream.positionDirty = true;
    if (!known) shared_.tell(Event::Kind::listening, stream.source->name, stream.subject, from);
    storePosition(stream);
    shared_.syncStep();
    deliverReady(stream);
    lookForGap(stream, 0);
    expectConfirm(stream, 0);
}

void Receiver::refuse(Stream& stream) {
    stream.registerAt = INT64_MAX;
    if (stream.state == State::refused) return;
    releaseAsPlain(stream, UINT64_MAX);
    stream.state = State::refused;
}

// ---- patterns

void Receiver::wantPatterns(Source& source) {
    if (source.superseded) return;
    for (const auto& [number, listener] : listeners_) {
        if (listener.pattern.front() == '_') continue;
        const auto [at, isNew] = source.patterns.try_emplace(listener.pattern);
        Pattern& pattern = at->second;
        if (!isNew && (pattern.state == Pattern::State::registered || pattern.state == Pattern::State::wanted))
            continue;
        pattern.state = Pattern::State::wanted;
        pattern.attempt = ++attempts_;
        pattern.at = shared_.now.monotonic;
        pattern.pause.reset();
    }
    setPatternTime(source, shared_.now.monotonic);
    // A pattern may register for subjects whose messages are plain so far.
    for (auto& [subject, stream] : source.bySubject) {
        if (stream->state == State::refused && !stream->listeners.empty())
            registerAgain(*stream, shared_.now.monotonic);
    }
}

void Receiver::setPatternTime(Source& source, int64_t at) {
    if (at >= source.patternAt) return;
    shared_.set(at, Timing::pattern, source.id);
    source.patternAt = at;
}

void Receiver::onPatternTime(uint64_t sourceId) {
    Source* source = findSource(sourceId);
    if (source == nullptr || source->patternAt > shared_.now.monotonic) return;
    const Taken taken(source->patternAt);
    if (source->superseded || !shared_.settled) return;
    int64_t next = INT64_MAX;
    for (auto& [text, pattern] : source->patterns) {
        const bool cancelling = pattern.state == Pattern::State::cancelling;
        if (!cancelling && pattern.state != Pattern::State::wanted) continue;
        if (pattern.at <= shared_.now.monotonic) {
            if (cancelling) {
                sendCancel(*source, text, pattern.attempt, flagPattern);
            } else {
                sendSubscribe(*source, text, pattern.attempt, flagPattern, 0, 0);
            }
            pattern.at = shared_.now.monotonic + pattern.pause.take();
        }
        next = std::min(next, pattern.at);
    }
    if (next != INT64_MAX) setPatternTime(*source, next);
}

void Receiver::announceSoon() {
    announced_ = 0;
    shared_.set(shared_.now.monotonic, Timing::announce);
    announceAt_ = shared_.now.monotonic;
}

void Receiver::onAnnounceTime() {
    if (announceAt_ > shared_.now.monotonic) return;
    const Taken taken(announceAt_);
    if (!shared_.settled) return;
    Frame frame;
    frame.kind = Kind::announce;
    frame.name = shared_.settings.name;
    FrameWriter writer;
    encode(frame, writer);
    const size_t empty = writer.size();
    std::set<std::string_view> patterns;
    for (const auto& [number, listener] : listeners_) {
        if (listener.pattern.front() != '_') patterns.insert(listener.pattern);
    }
    if (patterns.empty()) return;
    for (const std::string_view pattern : patterns) {
        if (addPattern(pattern, writer)) continue;
        shared_.sendNow(writer, everybody);
        writer.cut(empty);
        addPattern(pattern, writer);
    }
    shared_.sendNow(writer, everybody);
    constexpr std::array<int64_t, 2> soon = {seconds, 10 * seconds};
    const int64_t next = shared_.now.monotonic + (announced_ < soon.size() ? soon[announced_] : announceEvery);
    shared_.set(next, Timing::announce);
    announceAt_ = next;
    ++announced_;
}

// ---- the program's

quorl_status Receiver::createListener(uint32_t number, std::string_view pattern) {
    if (!validPattern(pattern)) return QUORL_INVALID_SUBJECT;
    if (number == 0 || listeners_.contains(number)) return QUORL_INVALID_ARG;
    listeners_.emplace(number, Listener{number, std::string(pattern)});
    try {
        startListening(number, pattern);
    } catch (...) {
        for (auto& [id, stream] : streams_) std::erase(stream->listeners, number);
        listeners_.erase(number);
        throw;
    }
    return QUORL_OK;
}

void Receiver::startListening(uint32_t number, std::string_view pattern) {
    for (auto& [id, stream] : streams_) {
        if (!matches(pattern, stream->subject)) continue;
        stream->listeners.push_back(number);
        if (stream->state == State::refused || stream->state == State::cancelling) {
            stream->state = State::registering;
            registerAgain(*stream, shared_.now.monotonic);
        } else if (stream->state == State::registering && stream->registerAt == INT64_MAX) {
            registerAgain(*stream, shared_.now.monotonic);
        } else if (stream->listeners.size() == 1 && stream->state == State::active) {
            deliverReady(*stream);
            lookForGap(*stream, 0);
            expectConfirm(*stream, 0);
        }
    }
    if (pattern.front() == '_') return;
    for (auto& [id, source] : sources_) wantPatterns(*source);
    announceSoon();
}

void Receiver::destroyListener(uint32_t number, bool cancel) {
    const auto listener = listeners_.find(number);
    if (listener == listeners_.end()) return;
    const std::string pattern = std::move(listener->second.pattern);
    listeners_.erase(listener);
    std::vector<StreamId> concerned;
    for (auto& [id, stream] : streams_) {
        if (std::ranges::find(stream->listeners, number) != stream->listeners.end()) concerned.push_back(id);
    }
    for (const StreamId id : concerned) {
        Stream& stream = *findStream(id);
        std::erase(stream.listeners, number);
        if (!stream.listeners.empty()) {
            for (uint64_t at = stream.inFlight.nextTaken(1); at != 0; at = stream.inFlight.nextTaken(at + 1)) {
                InFlight& message = *stream.inFlight.find(at);
                if (message.more) {
                    std::erase(*message.more, number);
                } else if (message.first == number) {
                    done(stream, at, Machine::Confirm::soon);
                    continue;
                }
                if (message.more && message.more->empty()) done(stream, at, Machine::Confirm::soon);
            }
            deliverReady(stream);
            continue;
        }
        // What nobody has confirmed is delivered again to whoever listens next.
        stream.inFlight = {};
        dropEarly(stream, UINT64_MAX);
        stream.next = stream.confirmed.upTo() + 1;
        stream.askedUpTo = 0;
        stream.askAt = INT64_MAX;
        if (isInbox(stream.subject)) {
            forgetStream(stream);
        } else if (cancel) {
            stream.state = State::cancelling;
            if (stream.stored != 0) storePosition(stream);
            registerAgain(stream, shared_.now.monotonic);
        } else if (stream.state != State::active) {
            stream.registerAt = INT64_MAX;
        }
    }
    const bool shared =
        std::ranges::any_of(listeners_, [&](const auto& other) { return other.second.pattern == pattern; });
    if (shared || !cancel || pattern.front() == '_') return;
    for (auto& [id, source] : sources_) {
        const auto found = source->patterns.find(pattern);
        if (found == source->patterns.end()) continue;
        found->second.state = Pattern::State::cancelling;
        found->second.attempt = ++attempts_;
        found->second.at = shared_.now.monotonic;
        found->second.pause.reset();
        setPatternTime(*source, shared_.now.monotonic);
    }
}

// ---- starting

void Receiver::start() {
    loading_.clear();
    int64_t at = shared_.now.monotonic;
    for (auto& [id, stream] : streams_) {
        stream->source->heardAt = shared_.now.monotonic;
        setForgetTime(*stream->source);
        stream->attempt = ++attempts_;
        stream->registerAt = at += apart;
        setStreamTime(*stream);
    }
}

void Receiver::settled() {
    announceSoon();
    int64_t at = shared_.now.monotonic;
    for (auto& [id, stream] : streams_) {
        if (stream->state == State::registering || stream->state == State::cancelling) wantAgain(*stream, at += apart);
    }
    for (auto& [id, source] : sources_) {
        wantPatterns(*source);
        setConfirmTime(*source, shared_.now.monotonic);
    }
}

void Receiver::wantAgain(Stream& stream, int64_t at) {
    stream.registerPause.reset();
    stream.registerAt = at;
    setStreamTime(stream);
}

void Receiver::backOnLine() {
    settled();
    for (auto& [id, stream] : streams_) {
        if (stream->state != State::active) continue;
        stream->askPause.reset();
        stream->askAt = INT64_MAX;
        lookForGap(*stream, 0);
    }
    for (auto& [id, source] : sources_) {
        for (auto& [text, pattern] : source->patterns) {
            pattern.at = std::min(pattern.at, shared_.now.monotonic);
            pattern.pause.reset();
        }
    }
}

// ---- what senders say

void Receiver::onHello(const Frame& frame) {
    if (listeners_.empty()) return;
    Source* source = meet(frame.name, frame.incarnation);
    if (source == nullptr) return;
    heard(*source);
    if ((frame.flags & flagSettled) != 0 && !source->hasName) {
        source->hasName = source->hadName = true;
        supersede(frame.name, frame.incarnation);
    }
    // The sender can be heard. A try that was made just now is not made again: two programs of one name may answer each other's.
    const int64_t soon = shared_.now.monotonic + firstTry;
    for (auto& [subject, stream] : source->bySubject) {
        if ((stream->state == State::registering || stream->state == State::cancelling) && stream->registerAt > soon)
            registerAgain(*stream, shared_.now.monotonic);
    }
    for (auto& [text, pattern] : source->patterns) {
        if (pattern.at <= soon) continue;
        pattern.at = shared_.now.monotonic;
        pattern.pause.reset();
    }
    wantPatterns(*source);
}

void Receiver::onChallenge(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr || source->token == frame.token) return;
    // Tokens seldom change, and answering each would let two that are out of step answer each other for ever.
    if (source->token != 0 && shared_.now.monotonic - source->tokenAt < tokenPause) return;
    source->token = frame.token;
    source->tokenAt = shared_.now.monotonic;
    for (auto& [subject, stream] : source->bySubject) {
        // A new token is that of a new session: the sender knows nothing of this one's registrations.
        if (stream->state == State::active && !stream->listeners.empty()) stream->state = State::registering;
        if (stream->state == State::registering || stream->state == State::cancelling)
            registerAgain(*stream, shared_.now.monotonic);
    }
    for (auto& [text, pattern] : source->patterns) {
        if (pattern.state == Pattern::State::registered) pattern.state = Pattern::State::wanted;
        pattern.at = shared_.now.monotonic;
    }
    setPatternTime(*source, shared_.now.monotonic);
}

void Receiver::onAccepted(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    if ((frame.flags & flagPattern) != 0) {
        const auto found = source->patterns.find(frame.subject);
        if (found != source->patterns.end() && found->second.attempt == frame.attempt &&
            found->second.state == Pattern::State::wanted)
            found->second.state = Pattern::State::registered;
        return;
    }
    const auto found = source->bySubject.find(frame.subject);
    if (found == source->bySubject.end() || found->second->state != State::registering ||
        found->second->attempt != frame.attempt || frame.subjectId == 0)
        return;
    activate(*found->second, frame);
}

void Receiver::onRefused(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    if ((frame.flags & flagPattern) != 0) {
        const auto found = source->patterns.find(frame.subject);
        if (found != source->patterns.end() && found->second.attempt == frame.attempt)
            found->second.state = Pattern::State::refused;
        return;
    }
    const auto found = source->bySubject.find(frame.subject);
    if (found == source->bySubject.end() || found->second->state != State::registering ||
        found->second->attempt != frame.attempt)
        return;
    if (!isInbox(frame.subject))
        shared_.tell(Event::Kind::stopped, source->name, frame.subject, 0, 0, textOf(frame.reason));
    refuse(*found->second);
}

void Receiver::onNote(const Frame& frame) {
    Source* source = findSource(frame.name, frame.incarnation);
    const bool known = source != nullptr && source->session == frame.session;
    if (known) heard(*source);
    forEachNoted(frame.list, [&](const Noted& part) {
        if (source == nullptr) {
            // A session of an earlier life, or none: something is kept for this name.
            if (!wanted(part.subject)) return;
            source = meet(frame.name, frame.incarnation);
            if (source == nullptr) return;
        }
        Stream* stream = streamFor(*source, part.subjectId, part.subject);
        if (stream == nullptr) return;
        if (stream->state == State::registering || stream->state == State::cancelling) {
            // The sender can be heard.
            const int64_t soon = shared_.now.monotonic + firstTry;
            if (stream->registerAt > soon && shared_.settled &&
                (!stream->listeners.empty() || stream->state == State::cancelling))
                registerAgain(*stream, shared_.now.monotonic);
            return;
        }
        if (stream->state != State::active || stream->listeners.empty()) return;
        if (!known) {
            // Another member had registered for the queue, and is not the one that acts for it any more.
            if (shared_.settings.queue) registerAgain(*stream, shared_.now.monotonic);
            return;
        }
        stream->lastKnown = std::max(part.last, stream->early.empty() ? 0 : stream->early.rbegin()->first);
        lookForGap(*stream, 0);
        expectConfirm(*stream, 0);
    });
}

void Receiver::onUnknown(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    // Nothing that was said to this session was known: its token is not, either.
    const auto found = source->byId.find(frame.subjectId);
    if (frame.subjectId == 0 || found == source->byId.end()) {
        for (auto& [subject, stream] : source->bySubject) {
            if (stream->state == State::active && !stream->listeners.empty())
                registerAgain(*stream, shared_.now.monotonic);
        }
        return;
    }
    Stream& stream = *found->second;
    if (stream.state == State::active && !stream.listeners.empty()) registerAgain(stream, shared_.now.monotonic);
}

void Receiver::onCancelled(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    if ((frame.flags & flagPattern) != 0) {
        const auto found = source->patterns.find(frame.subject);
        if (found != source->patterns.end() && found->second.attempt == frame.attempt &&
            found->second.state == Pattern::State::cancelling)
            source->patterns.erase(found);
        return;
    }
    const auto found = source->bySubject.find(frame.subject);
    if (found == source->bySubject.end() || found->second->state != State::cancelling ||
        found->second->attempt != frame.attempt)
        return;
    forgetStream(*found->second);
}

void Receiver::onEnded(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    const auto found = source->byId.find(frame.subjectId);
    if (found == source->byId.end() || frame.attempt < found->second->attempt) return;
    shared_.tell(Event::Kind::stopped, source->name, found->second->subject, 0, 0, textOf(frame.reason));
    forgetStream(*found->second);
}

void Receiver::count(Counts& counts) const noexcept {
    counts.sources = sources_.size();
    counts.streams = streams_.size();
    counts.memory += earlyBytes_ + earlyCount_ * 64;
    for (const auto& [id, stream] : streams_) counts.memory += stream->inFlight.memory() + sizeof(Stream);
}

}  // namespace quorl::certified
