// What the listening side keeps in the ledger, and starting from it again.
//
// Keys: 'R' number a stream, and up to where it is confirmed; 'C' number number a message that was confirmed before its turn.
#include <algorithm>

#include "certified/protocol/receiver.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

std::string keyOf(char kind, uint32_t stored) {
    Writer<8> key;
    key.byte(static_cast<uint8_t>(kind));
    key.number(stored);
    return key.string();
}

std::string keyOf(char kind, uint32_t stored, uint64_t number) {
    Writer<20> key;
    key.byte(static_cast<uint8_t>(kind));
    key.number(stored);
    key.number(number);
    return key.string();
}

}  // namespace

void Receiver::storePosition(Stream& stream) {
    if (!shared_.settings.ledger || !shared_.settings.lasting) {
        stream.unstored.clear();
        stream.positionDirty = false;
        return;
    }
    // A stream without a registration is not stored; its sender begins anew.
    if (stream.stored == 0 && !stream.resumes && !stream.presumed) return;
    if (stream.stored == 0) stream.stored = ++lastStored_;
    Writer<600> value;
    value.text(stream.source->name);
    value.fixed(stream.source->incarnation);
    value.number(stream.subjectId);
    value.text(stream.subject);
    value.byte(stream.state == State::cancelling ? 1 : 0);
    value.number(stream.confirmed.upTo());
    shared_.putState(keyOf('R', stream.stored), value.string());
    for (const uint64_t number : stream.unstored) {
        if (number <= stream.confirmed.upTo() || stream.storedBeyond.contains(number)) continue;
        shared_.putState(keyOf('C', stream.stored, number), {});
        stream.storedBeyond.insert(number);
    }
    stream.unstored.clear();
    while (!stream.storedBeyond.empty() && *stream.storedBeyond.begin() <= stream.confirmed.upTo()) {
        shared_.eraseState(keyOf('C', stream.stored, *stream.storedBeyond.begin()));
        stream.storedBeyond.erase(stream.storedBeyond.begin());
    }
    stream.positionDirty = false;
}

void Receiver::storeAll() {
    for (auto& [id, stream] : streams_) {
        storePosition(*stream);
        for (const uint64_t number : stream->storedBeyond) shared_.putState(keyOf('C', stream->stored, number), {});
    }
}

std::vector<std::string> Receiver::patterns() const {
    std::set<std::string> patterns;
    for (const auto& [number, listener] : listeners_) {
        if (listener.pattern.front() != '_') patterns.insert(listener.pattern);
    }
    return {patterns.begin(), patterns.end()};
}

void Receiver::eraseStored(Stream& stream) {
    if (stream.stored == 0) return;
    shared_.eraseState(keyOf('R', stream.stored));
    for (const uint64_t number : stream.storedBeyond) shared_.eraseState(keyOf('C', stream.stored, number));
    stream.storedBeyond.clear();
    stream.unstored.clear();
    stream.stored = 0;
}

bool Receiver::loadStream(Reader& key, Reader& value) {
    const uint64_t stored = key.number();
    if (!key.done() || stored == 0 || stored > UINT32_MAX) return false;
    const std::string_view name = value.text();
    const uint64_t incarnation = value.fixed();
    const uint64_t subjectId = value.number();
    const std::string_view subject = value.text();
    const uint8_t state = value.byte();
    const uint64_t upTo = value.number();
    if (!value.done() || !validName(name) || !validSubject(subject) || subjectId == 0 || subjectId > UINT32_MAX ||
        upTo == UINT64_MAX)
        return false;
    Source* source = findSource(name, incarnation);
    if (source == nullptr) source = makeSource(name, incarnation);
    if (source != nullptr) source->hadName = true;
    if (source == nullptr || source->bySubject.contains(subject)) return false;
    Stream* stream = makeStream(*source, static_cast<uint32_t>(subjectId), subject);
    if (stream == nullptr) return false;
    stream->stored = static_cast<uint32_t>(stored);
    stream->state = state == 1 ? State::cancelling : State::registering;
    stream->resumes = true;
    stream->confirmed = NumberSet(upTo);
    stream->next = upTo + 1;
    lastStored_ = std::max(lastStored_, stream->stored);
    return loading_.emplace(stream->stored, stream->id).second;
}

bool Receiver::loadConfirmed(Reader& key) {
    const uint64_t stored = key.number();
    const uint64_t number = key.number();
    const auto found = stored <= UINT32_MAX ? loading_.find(static_cast<uint32_t>(stored)) : loading_.end();
    if (!key.done() || found == loading_.end() || number == 0 || number == UINT64_MAX) return false;
    Stream& stream = *findStream(found->second);
    stream.confirmed.add({number, number});
    stream.storedBeyond.insert(number);
    return true;
}

void Receiver::close() {
    for (auto& [id, source] : sources_) flushConfirms(*source);
}

}  // namespace quorl::certified
