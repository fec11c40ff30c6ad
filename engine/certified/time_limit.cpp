// Handle attributes: the companion's number, a version, the limit that the program has set in 8 bytes (0: none), the number in 8 bytes
// (0: it was not sent), the limit that the send has given it in 8 bytes, and perhaps the sender's name with its terminator.
#include "certified/time_limit.h"

#include <array>
#include <cmath>
#include <cstring>
#include <span>

#include "certified/protocol/frame.h"
#include "certified/protocol/machine.h"
#include "certified/protocol/subject.h"
#include "companion/message.h"
#include "companion/status.h"

namespace quorl::certified {

using companion::fail;
using companion::Message;

namespace {

constexpr size_t limitAt = 2;
constexpr size_t numberAt = limitAt + sizeof(int64_t);
constexpr size_t usedAt = numberAt + sizeof(uint64_t);
constexpr size_t nameAt = usedAt + sizeof(int64_t);

struct Own {
    int64_t limit = 0;
    uint64_t number = 0;
    int64_t used = 0;
    const char* sender = nullptr;  // in the handle
};

quorl_status readOwn(quorlMsg handle, Own* own) noexcept {
    std::span<const uint8_t> bytes;
    if (const quorl_status status = companion::handleAttributes(handle, &bytes); status != QUORL_OK) return status;
    if (bytes.size() < nameAt || bytes[0] != companionNumber) return QUORL_OK;
    std::memcpy(&own->limit, bytes.data() + limitAt, sizeof own->limit);
    std::memcpy(&own->number, bytes.data() + numberAt, sizeof own->number);
    std::memcpy(&own->used, bytes.data() + usedAt, sizeof own->used);
    if (bytes.size() > nameAt) own->sender = reinterpret_cast<const char*>(bytes.data() + nameAt);
    return QUORL_OK;
}

quorl_status writeOwn(quorlMsg handle, int64_t limit, uint64_t number, int64_t used, std::string_view sender) noexcept {
    std::array<uint8_t, nameAt + nameMax + 1> bytes{companionNumber, 1};
    std::memcpy(bytes.data() + limitAt, &limit, sizeof limit);
    std::memcpy(bytes.data() + numberAt, &number, sizeof number);
    std::memcpy(bytes.data() + usedAt, &used, sizeof used);
    if (!sender.empty()) std::memcpy(bytes.data() + nameAt, sender.data(), sender.size());
    return companion::setHandleAttributes(handle, {bytes.data(), sender.empty() ? nameAt : nameAt + sender.size() + 1});
}

// QUORL_NOT_FOUND: it was not sent by certified delivery. The views live as long as the message.
quorl_status readAttributes(quorlMsg handle, Message* message, Attributes* attributes) noexcept {
    const quorl_status status = Message::received(handle, message);
    if (status != QUORL_OK && status != QUORL_NOT_FOUND) return status;
    if (status == QUORL_OK && attributesOf(*message, attributes)) return status;
    return fail(QUORL_NOT_FOUND, "the message was not sent by certified delivery");
}

double secondsOf(int64_t limit) noexcept {
    return limit == 0 || limit == neverExpires ? 0 : static_cast<double>(limit) / 1e9;
}

}  // namespace

quorl_status timeLimitOf(quorlMsg handle, int64_t* limit) noexcept {
    Own own;
    const quorl_status status = readOwn(handle, &own);
    *limit = own.limit;
    return status;
}

quorl_status readTimeLimit(double seconds, int64_t* limit) noexcept {
    if (std::isnan(seconds) || seconds < 0)
        return fail(QUORL_INVALID_ARG, "a time limit of %g seconds is none: it is a number of seconds, or 0 for never",
                    seconds);
    const double nanoseconds = std::ceil(seconds * 1e9);
    const bool never = seconds == 0 || !(nanoseconds < static_cast<double>(neverExpires));
    *limit = never ? neverExpires : static_cast<int64_t>(nanoseconds);
    return QUORL_OK;
}

quorl_status setTimeLimit(quorlMsg handle, double seconds) noexcept {
    int64_t limit = 0;
    if (const quorl_status status = readTimeLimit(seconds, &limit); status != QUORL_OK) return status;
    return writeOwn(handle, limit, 0, 0, {});
}

void noteSent(quorlMsg handle, std::string_view sender, uint64_t number, int64_t limit) noexcept {
    companion::KeptErrorText kept;
    Own own;
    // Without memory the getters say that they know nothing.
    if (readOwn(handle, &own) == QUORL_OK && (number != 0 || own.number != 0))
        writeOwn(handle, own.limit, number, limit, number != 0 ? sender : std::string_view());
}

quorl_status getTimeLimit(quorlMsg handle, double* seconds) noexcept {
    Own own;
    if (const quorl_status status = readOwn(handle, &own); status != QUORL_OK) return status;
    if (own.limit != 0 || own.number != 0) {
        *seconds = secondsOf(own.number != 0 ? own.used : own.limit);
        return QUORL_OK;
    }
    Message message;
    Attributes attributes;
    const quorl_status status = readAttributes(handle, &message, &attributes);
    if (status == QUORL_OK) *seconds = secondsOf(attributes.limit);
    return status;
}

// The name is a part of a longer text in the attributes: the handle keeps a copy with a terminator.
quorl_status getSender(quorlMsg handle, const char** sender) noexcept {
    Own own;
    if (const quorl_status status = readOwn(handle, &own); status != QUORL_OK) return status;
    if (own.sender == nullptr) {
        Message message;
        Attributes attributes;
        quorl_status status = readAttributes(handle, &message, &attributes);
        if (status == QUORL_OK) status = writeOwn(handle, own.limit, 0, 0, attributes.sender);
        if (status == QUORL_OK) status = readOwn(handle, &own);
        if (status != QUORL_OK) return status;
    }
    *sender = own.sender;
    return QUORL_OK;
}

quorl_status getSequence(quorlMsg handle, uint64_t* sequence) noexcept {
    Own own;
    if (const quorl_status status = readOwn(handle, &own); status != QUORL_OK) return status;
    *sequence = own.number;
    if (own.number != 0) return QUORL_OK;
    Message message;
    Attributes attributes;
    const quorl_status status = readAttributes(handle, &message, &attributes);
    if (status == QUORL_OK) *sequence = attributes.number;
    return status;
}

}  // namespace quorl::certified
