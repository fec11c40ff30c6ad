// Turning what callers give (numbers, texts, arrays, handles, field records) into values for a message.
#pragma once

#include "message/message.h"

namespace quorl::message {

quorl_status valueTooLong() noexcept;

// Check what is to be added and measure it: QUORL_INVALID_ARG, QUORL_INVALID_SIZE.
inline quorl_status checkString(const char* text, uint32_t* size) noexcept {
    if (text == nullptr) return fail(QUORL_INVALID_ARG, "the string is null");
    const size_t whole = std::strlen(text) + 1;
    if (whole > wire::maxSize) return valueTooLong();
    *size = static_cast<uint32_t>(whole);
    return QUORL_OK;
}
inline quorl_status checkBytes(const void* bytes, uint32_t size) noexcept {
    if (bytes == nullptr && size != 0) return fail(QUORL_INVALID_ARG, "the bytes are null");
    return size <= wire::maxSize ? QUORL_OK : valueTooLong();
}
inline quorl_status checkNumbers(uint8_t type, const void* array, uint32_t count, uint32_t* bytes) noexcept {
    if (array == nullptr && count != 0) return fail(QUORL_INVALID_ARG, "the array is null");
    const uint64_t whole = uint64_t{count} * typeInfo(type).wireSize;
    if (whole > wire::maxSize) return valueTooLong();
    *bytes = static_cast<uint32_t>(whole);
    return QUORL_OK;
}

// A value, and the memory that it may need until it is written. Every from... checks its arguments and gives
// QUORL_INVALID_ARG, QUORL_INVALID_MSG, QUORL_INVALID_SIZE or QUORL_NO_MEMORY with a detail text.
struct ValueHolder {
    Value value{};

    quorl_status fromString(const char* text) noexcept;
    quorl_status fromBytes(uint8_t type, const void* bytes, uint32_t size) noexcept;
    quorl_status fromMessage(quorlMsg message) noexcept;
    quorl_status fromNumbers(uint8_t type, const void* array, uint32_t count) noexcept;
    quorl_status fromStrings(const char* const* array, uint32_t count) noexcept;
    quorl_status fromMessages(const quorlMsg* array, uint32_t count) noexcept;
    quorl_status fromDateTime(const quorlMsgDateTime* time) noexcept;
    void fromBool(quorl_bool boolean) noexcept;
    void fromScalar(uint8_t type, const void* data) noexcept;  // neither a boolean nor a date-time
    // QUORL_INVALID_TYPE and QUORL_INVALID_COUNT too.
    quorl_status fromRecord(const quorlMsgField& record) noexcept;

    ValueHolder() noexcept = default;
    ~ValueHolder() {
        if (images_ != nullptr) deallocate(images_);
    }
    ValueHolder(const ValueHolder&) = delete;
    ValueHolder& operator=(const ValueHolder&) = delete;

  private:
    uint8_t scalar_[12];       // a boolean or a date-time as in the image
    Image* images_ = nullptr;  // of an array of messages
};

}  // namespace quorl::message
