// Putting messages in order, missing some, delivering and confirming them.
#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "certified/protocol/receiver.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr int64_t reordering = 20 * milliseconds;  // by which messages may overtake one another
constexpr int64_t confirmWithin = 20 * milliseconds;
constexpr uint32_t confirmEvery = 64;
constexpr uint64_t askedMost = 256;  // messages asked for at once
constexpr size_t goneMost = 65'536;  // ranges, of one stream
constexpr uint64_t overhead = 256;   // bytes that a message takes beyond its image, roughly

uint64_t weightOf(const companion::Message& message) noexcept {
    return message.image().size() + overhead;
}

}  // namespace

// ---- what comes in

companion::Message Receiver::withoutAttributes(const companion::Message& message) const {
    if (message.attributes().empty() || shared_.settings.queue) return message;
    companion::Message plain;
    if (message.withAttributes({}, &plain) != QUORL_OK) throw std::bad_alloc();
    return plain;
}

void Receiver::deliverPlain(const companion::Message& message, uint32_t listener) {
    if (listeners_.contains(listener)) shared_.out->deliveries.push_back({listener, withoutAttributes(message), 0, 0});
}

void Receiver::onPlain(const companion::Message& message, uint32_t listener) {
    deliverPlain(message, listener);
}

void Receiver::onData(const Frame& frame, companion::Message message, uint32_t listener) {
    Source* source = findSource(frame.name, frame.incarnation);
    if (source == nullptr && wanted(message.subject())) source = meet(frame.name, frame.incarnation);
    if (source == nullptr) return deliverPlain(message, listener);
    source->heardAt = shared_.now.monotonic;
    Stream* stream = nullptr;
    const auto found = source->byId.find(frame.subjectId);
    if (found != source->byId.end()) {
        stream = found->second;
        if (stream->subject != message.subject()) {
            ++shared_.foreign;
            return;
        }
    } else {
        const auto bySubject = source->bySubject.find(message.subject());
        // Late, from before the sender forgot the subject and used it again.
        if (bySubject != source->bySubject.end() && bySubject->second->subjectId > frame.subjectId) return;
        stream = streamFor(*source, frame.subjectId, message.subject());
        if (stream == nullptr) return deliverPlain(message, listener);
    }
    if (stream->state == State::refused || stream->state == State::cancelling) return deliverPlain(message, listener);
    if (stream->listeners.empty()) return;
    take(*stream, frame.number, std::move(message));
}

void Receiver::onResent(const Frame& frame, const companion::Message& message) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    const auto found = source->byId.find(frame.subjectId);
    if (found == source->byId.end() || found->second->subject != frame.subject) return;
    Stream& stream = *found->second;
    if (stream.state != State::active || stream.listeners.empty() || frame.number < stream.next) return;
    // As it was sent at first.
    Frame data;
    data.kind = Kind::data;
    data.name = frame.name;
    data.incarnation = frame.incarnation;
    data.subjectId = frame.subjectId;
    FrameWriter writer;
    encodeDataPrefix(data, writer);
    encodeDataRest(frame.number, frame.limit, writer);
    companion::Message first;
    if (message.withSubjects(stream.subject, message.replySubject(), &first) != QUORL_OK ||
        first.withAttributes(writer.bytes(), &first) != QUORL_OK)
        throw std::bad_alloc();
    take(stream, frame.number, std::move(first));
}

// The sender has registered this name for what the relay agent was given, and may be away now: what is known of the stream, or
// what comes first, is where it goes on, until the sender says more.
void Receiver::onKept(const Frame& frame, companion::Message message, uint64_t after) {
    Source* source = findSource(frame.name, frame.incarnation);
    if (source == nullptr && wanted(message.subject())) source = meet(frame.name, frame.incarnation);
    Stream* stream = source != nullptr ? streamFor(*source, frame.subjectId, message.subject()) : nullptr;
    if (stream == nullptr || stream->listeners.empty()) return;
    if (stream->state == State::registering) {
        if (!stream->resumes && !stream->presumed) {
            stream->confirmed = NumberSet(frame.number - 1);
            stream->next = frame.number;
        } else if (after != 0 && after + 1 < frame.number && after + 1 >= stream->next) {
            // The sender has said that what is in between will not come.
            const Range range{after + 1, frame.number - 1};
            stream->confirmed.add(range, [&](Range fresh) {
                shared_.tell(Event::Kind::skipped, source->name, stream->subject, fresh.first, fresh.last,
                             textOf(Reason::notKept));
            });
            moved(*stream);
        }
        stream->presumed = true;
    } else if (stream->state != State::active) {
        return;
    }
    take(*stream, frame.number, std::move(message));
    deliverReady(*stream);
}

bool Receiver::isStored(const Frame& data) const noexcept {
    const auto found = sourcesByName_.find(data.name);
    if (found == sourcesByName_.end()) return false;
    for (const Source* source : found->second) {
        if (source->incarnation != data.incarnation) continue;
        const auto stream = source->byId.find(data.subjectId);
        return stream != source->byId.end() && !stream->second->positionDirty &&
               stream->second->confirmed.contains(data.number);
    }
    return false;
}

void Receiver::take(Stream& stream, uint64_t number, companion::Message message) {
    if (stream.state == State::registering && !stream.presumed) {
        // What is kept may go to the program as a plain message, and what it has confirmed does not.
        const bool done = stream.resumes && (number < stream.next || stream.confirmed.contains(number));
        if (!done) keepEarly(stream, number, std::move(message));
        return;
    }
    if (number < stream.next || stream.confirmed.contains(number)) return;
    stream.lastKnown = std::max(stream.lastKnown, number);
    if (number == stream.next && hasRoom(stream)) {
        deliver(stream, number, message);
        dropEarly(stream, number);
        if (stream.early.empty() && stream.confirmed.rangeCount() == 0) {
            if (stream.next > stream.lastKnown) {
                stream.askAt = INT64_MAX;
            } else if (stream.askedUpTo != 0 && stream.next > stream.askedUpTo) {
                stream.askPause.reset();
                lookForGap(stream, 0);
            }
            return;
        }
        deliverReady(stream);
    } else {
        keepEarly(stream, number, std::move(message));
    }
    lookForGap(stream, reordering);
}

bool Receiver::keepEarly(Stream& stream, uint64_t number, companion::Message&& message) {
    const uint64_t weight = weightOf(message);
    if (earlyBytes_ + weight > shared_.settings.earlyBytes || stream.early.size() >= shared_.settings.earlyMessages)
        return false;
    // What lies far ahead would be asked for again sooner than its turn comes.
    if ((stream.resumes || stream.presumed) && number - stream.next >= 2ull * shared_.settings.earlyMessages)
        return false;
    if (!stream.early.try_emplace(number, std::move(message)).second) return false;
    earlyBytes_ += weight;
    ++earlyCount_;
    return true;
}

void Receiver::dropEarly(Stream& stream, uint64_t upTo) noexcept {
    while (!stream.early.empty() && stream.early.begin()->first <= upTo) {
        earlyBytes_ -= weightOf(stream.early.begin()->second);
        --earlyCount_;
        stream.early.erase(stream.early.begin());
    }
}

void Receiver::releaseAsPlain(Stream& stream, uint64_t below) {
    while (!stream.early.empty() && stream.early.begin()->first < below) {
        const auto first = stream.early.begin();
        for (const uint32_t listener : stream.listeners) deliverPlain(first->second, listener);
        dropEarly(stream, first->first);
    }
}

// ---- delivering

bool Receiver::hasRoom(const Stream& stream) const noexcept {
    return roomMessages_ != 0 && roomBytes_ != 0 && stream.inFlight.count() < shared_.settings.inFlight;
}

void Receiver::deliver(Stream& stream, uint64_t number, const companion::Message& message) {
    auto& deliveries = shared_.out->deliveries;
    const size_t before = deliveries.size();
    InFlight& flight = stream.inFlight.take(number);
    try {
        flight.first = stream.listeners.front();
        if (stream.listeners.size() > 1) flight.more = std::make_unique<std::vector<uint32_t>>(stream.listeners);
        for (const uint32_t listener : stream.listeners) deliveries.push_back({listener, message, stream.id, number});
    } catch (...) {
        deliveries.resize(before);
        stream.inFlight.release(number);
        throw;
    }
    stream.next = number + 1;
    if (roomMessages_ != UINT64_MAX) --roomMessages_;
    if (roomBytes_ != UINT64_MAX) roomBytes_ -= std::min<uint64_t>(roomBytes_, message.image().size());
}

void Receiver::setRoom(uint64_t messages, uint64_t bytes) {
    const bool wasFull = roomMessages_ == 0 || roomBytes_ == 0;
    roomMessages_ = messages;
    roomBytes_ = bytes;
    if (!wasFull || messages == 0 || bytes == 0) return;
    for (auto& [id, stream] : streams_) {
        if (stream->listeners.empty()) continue;
        deliverReady(*stream);
        lookForGap(*stream, 0);
    }
}

// Delivers what has its turn now.
void Receiver::deliverReady(Stream& stream) {
    if ((stream.state != State::active && !stream.presumed) || stream.listeners.empty()) return;
    const uint64_t before = stream.next;
    for (;;) {
        if (stream.confirmed.contains(stream.next)) {
            stream.next = stream.confirmed.behind(stream.next);
            continue;
        }
        if (!hasRoom(stream)) break;
        dropEarly(stream, stream.next - 1);
        if (stream.early.empty() || stream.early.begin()->first != stream.next) break;
        deliver(stream, stream.next, stream.early.begin()->second);
    }
    dropEarly(stream, stream.next - 1);
    if (stream.next == before) return;
    stream.askPause.reset();
    if (stream.next > stream.lastKnown) stream.askAt = INT64_MAX;
}

// Whether something is missing that has been sent; if so, it is asked for after that time.
void Receiver::lookForGap(Stream& stream, int64_t in) {
    if (stream.state != State::active || stream.listeners.empty()) return;
    if (stream.next > stream.lastKnown || !hasRoom(stream)) {
        stream.askAt = INT64_MAX;
        return;
    }
    // What was asked for has come, and there is more.
    if (stream.askedUpTo != 0 && stream.next > stream.askedUpTo) in = 0;
    const int64_t at = shared_.now.monotonic + in;
    if (stream.askAt <= at) return;
    if (in == 0 && stream.askAt != INT64_MAX && stream.next <= stream.askedUpTo) return;
    stream.askAt = at;
    setStreamTime(stream);
}

void Receiver::ask(Stream& stream) {
    const Taken taken(stream.askAt);
    // What found no memory when its turn came has it now.
    deliverReady(stream);
    Source& source = *stream.source;
    if (stream.state != State::active || stream.listeners.empty() || stream.next > stream.lastKnown ||
        !hasRoom(stream) || source.token == 0 || !shared_.settled)
        return;
    Frame frame;
    frame.kind = Kind::ask;
    frame.name = shared_.settings.name;
    frame.incarnation = source.incarnation;
    frame.session = source.session;
    frame.token = source.token;
    frame.subjectId = stream.subjectId;
    FrameWriter writer;
    encode(frame, writer);
    uint64_t left = askedMost;
    uint64_t previous = 0;
    const uint64_t end = std::min(stream.lastKnown, stream.next + shared_.settings.earlyMessages - 1);
    auto early = stream.early.lower_bound(stream.next);
    for (uint64_t number = stream.next; number <= end && left != 0;) {
        for (; early != stream.early.end() && early->first == number; ++early) ++number;
        uint64_t last = early == stream.early.end() ? end : std::min(end, early->first - 1);
        if (number > last) continue;
        last = std::min(last, number + left - 1);
        if (!addRange({number, last}, previous, writer)) break;
        left -= last - number + 1;
        previous = last;
        number = last + 1;
    }
    if (previous == 0) return;
    stream.askedUpTo = previous;
    shared_.sendWhenStored(writer, source.address);
    stream.askAt = shared_.now.monotonic + stream.askPause.take();
}

void Receiver::onGone(const Frame& frame) {
    Source* source = authentic(frame);
    if (source == nullptr) return;
    const auto found = source->byId.find(frame.subjectId);
    if (found == source->byId.end() || found->second->state != State::active) return;
    Stream& stream = *found->second;
    // No sender has so much to say that this many gaps are left.
    if (stream.confirmed.rangeCount() > goneMost) return;
    bool any = false;
    forEachRange(frame.list, 0, [&](Range range) {
        // What has come is delivered, or was.
        range.first = std::max(range.first, stream.next);
        for (auto early = stream.early.lower_bound(range.first); range.first <= range.last;) {
            Range missing = range;
            if (early != stream.early.end() && early->first <= range.last) {
                missing.last = early->first - 1;
                range.first = early->first + 1;
                ++early;
            } else {
                range.first = range.last + 1;
            }
            if (missing.first > missing.last) continue;
            stream.confirmed.add(missing, [&](Range fresh) {
                any = true;
                shared_.tell(Event::Kind::skipped, source->name, stream.subject, fresh.first, fresh.last,
                             textOf(frame.reason));
            });
        }
    });
    if (!any) return;
    stream.lastKnown = std::max(stream.lastKnown, stream.confirmed.highest());
    moved(stream);
    deliverReady(stream);
    lookForGap(stream, reordering);
    expectConfirm(stream, 1);
}

// ---- confirming

StreamId Receiver::streamOf(const Frame& data, std::string_view subject) const noexcept {
    const auto found = sourcesByName_.find(data.name);
    if (found == sourcesByName_.end()) return 0;
    for (const Source* source : found->second) {
        if (source->incarnation != data.incarnation) continue;
        const auto stream = source->byId.find(data.subjectId);
        if (stream != source->byId.end() && stream->second->subject == subject) return stream->second->id;
    }
    return 0;
}

quorl_status Receiver::confirm(uint32_t listener, StreamId id, uint64_t number, Machine::Confirm when) {
    Stream* stream = findStream(id);
    if (stream == nullptr) return QUORL_NOT_FOUND;
    if (std::ranges::find(stream->listeners, listener) == stream->listeners.end()) return QUORL_NOT_PERMITTED;
    InFlight* flight = stream->inFlight.find(number);
    if (flight == nullptr) return number < stream->next ? QUORL_OK : QUORL_NOT_FOUND;
    if (flight->more) {
        std::erase(*flight->more, listener);
        if (!flight->more->empty()) return QUORL_OK;
    } else if (flight->first != listener) {
        return QUORL_OK;
    }
    const bool wasFull = !hasRoom(*stream);
    done(*stream, number, when);
    if (wasFull) {
        deliverReady(*stream);
        lookForGap(*stream, 0);
    }
    return QUORL_OK;
}

void Receiver::done(Stream& stream, uint64_t number, Machine::Confirm when) {
    const uint64_t before = stream.confirmed.upTo();
    const bool outOfTurn = number != before + 1;
    if (outOfTurn && shared_.settings.ledger) stream.unstored.push_back(number);
    try {
        stream.confirmed.add({number, number});
    } catch (...) {
        if (outOfTurn && shared_.settings.ledger) stream.unstored.pop_back();
        throw;
    }
    stream.inFlight.release(number);
    stream.positionDirty = true;
    if (when == Machine::Confirm::now) storePosition(stream);
    expectConfirm(stream, 1);
}

// What is confirmed has changed without a confirmation.
void Receiver::moved(Stream& stream) {
    stream.positionDirty = true;
}

void Receiver::setConfirmTime(Source& source, int64_t at) {
    if (at >= source.confirmAt) return;
    shared_.set(at, Timing::confirm, source.id);
    source.confirmAt = at;
}

void Receiver::expectConfirm(Stream& stream, uint32_t messages) {
    Source& source = *stream.source;
    if (!stream.confirmDirty) {
        source.dirty.push_back(stream.id);
        stream.confirmDirty = true;
    }
    source.sinceConfirm += messages;
    if (source.sinceConfirm >= confirmEvery && source.token != 0) return flushConfirms(source);
    setConfirmTime(source, shared_.now.monotonic + confirmWithin);
}

void Receiver::onConfirmTime(uint64_t sourceId) {
    Source* source = findSource(sourceId);
    if (source == nullptr || source->confirmAt > shared_.now.monotonic) return;
    const Taken taken(source->confirmAt);
    flushConfirms(*source);
}

// Stores what is confirmed, and says so to the sender when it is stored.
void Receiver::flushConfirms(Source& source) {
    source.sinceConfirm = 0;
    Frame frame;
    frame.kind = Kind::confirm;
    frame.name = shared_.settings.name;
    frame.incarnation = source.incarnation;
    frame.session = source.session;
    frame.token = source.token;
    FrameWriter writer;
    encode(frame, writer);
    const size_t empty = writer.size();
    const std::vector<StreamId> dirty = std::exchange(source.dirty, {});
    for (const StreamId id : dirty) {
        Stream* stream = findStream(id);
        if (stream == nullptr || stream->source != &source) continue;
        stream->confirmDirty = false;
        if (stream->positionDirty) storePosition(*stream);
        if (stream->state != State::active || !shared_.settled) continue;
        if (addConfirmed(stream->subjectId, stream->confirmed, writer)) continue;
        shared_.sendWhenStored(writer, source.address);
        writer.cut(empty);
        addConfirmed(stream->subjectId, stream->confirmed, writer);
    }
    if (writer.size() != empty) shared_.sendWhenStored(writer, source.address);
}

}  // namespace quorl::certified
