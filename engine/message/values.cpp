// Checking and measuring the values that callers give.
#include "message/values.h"

#include <algorithm>

#include "base/readable.h"
#include "message/field_faults.h"

namespace quorl::message {
namespace {

// The image of a live message and its depth.
quorl_status imageOf(quorlMsg message, Image* image, uint8_t* depth) noexcept {
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    *image = {content->image, content->size};
    const uint8_t inside = content->base != nullptr ? wire::depthOf(content->image) : content->depth;
    *depth = std::max<uint8_t>(*depth, inside + 1);
    return QUORL_OK;
}

// A record says by its type alone that its bytes are addresses of texts. Whoever took the type for that of plain bytes
// gave other bytes, which may be no addresses at all.
quorl_status checkTexts(const quorlMsgField& record) noexcept {
    const auto* texts = static_cast<const char* const*>(record.data.array);
    for (uint32_t i = 0; texts != nullptr && i < record.count; ++i) {
        if (readableLength(texts[i], wire::maxSize + size_t{1}) != unreadable) continue;
        return fail(QUORL_INVALID_SIZE, "the %u bytes of element %u of %u are not the address of a string", record.size,
                    i, record.count);
    }
    return QUORL_OK;
}

}  // namespace

quorl_status valueTooLong() noexcept {
    return fail(QUORL_INVALID_SIZE, "the value is larger than a message may be");
}

quorl_status ValueHolder::fromString(const char* text) noexcept {
    uint32_t size = 0;
    if (quorl_status status = checkString(text, &size); status != QUORL_OK) return status;
    value = {QUORLMSG_STRING, Kind::string, 0, size, size, text};
    return QUORL_OK;
}

quorl_status ValueHolder::fromBytes(uint8_t type, const void* bytes, uint32_t size) noexcept {
    if (quorl_status status = checkBytes(bytes, size); status != QUORL_OK) return status;
    value = {type, Kind::bytes, 0, size, size, bytes};
    return QUORL_OK;
}

quorl_status ValueHolder::fromMessage(quorlMsg message) noexcept {
    Image image;
    uint8_t depth = 0;
    if (quorl_status status = imageOf(message, &image, &depth); status != QUORL_OK) return status;
    value = {QUORLMSG_MSG, Kind::message, depth, image.size, image.size, image.bytes};
    return QUORL_OK;
}

quorl_status ValueHolder::fromNumbers(uint8_t type, const void* array, uint32_t count) noexcept {
    uint32_t bytes = 0;
    if (quorl_status status = checkNumbers(type, array, count, &bytes); status != QUORL_OK) return status;
    value = {type, Kind::numbers, 0, count, bytes, array};
    return QUORL_OK;
}

quorl_status ValueHolder::fromStrings(const char* const* array, uint32_t count) noexcept {
    if (array == nullptr && count != 0) return fail(QUORL_INVALID_ARG, "the array is null");
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (array[i] == nullptr) return fail(QUORL_INVALID_ARG, "string %u of the array is null", i);
        bytes += std::strlen(array[i]) + 1;
        if (bytes > wire::maxSize) return valueTooLong();
    }
    value = {QUORLMSG_STRINGARRAY, Kind::strings, 0, count, static_cast<uint32_t>(bytes), array};
    return QUORL_OK;
}

quorl_status ValueHolder::fromMessages(const quorlMsg* array, uint32_t count) noexcept {
    if (array == nullptr && count != 0) return fail(QUORL_INVALID_ARG, "the array is null");
    if (count > wire::maxSize / wire::headerSize) return valueTooLong();
    images_ = static_cast<Image*>(allocate(sizeof(Image) * std::max(count, 1u)));
    if (images_ == nullptr) return fail(QUORL_NO_MEMORY, "no memory for an array of %u messages", count);
    uint64_t bytes = 0;
    uint8_t depth = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (quorl_status status = imageOf(array[i], &images_[i], &depth); status != QUORL_OK) {
            return failWithin(status, "message %u of the array", i);
        }
        bytes = wire::alignUp(static_cast<uint32_t>(bytes), wire::imageAlignment) + images_[i].size;
        if (bytes > wire::maxSize) return valueTooLong();
    }
    value = {QUORLMSG_MSGARRAY, Kind::messages, depth, count, static_cast<uint32_t>(bytes), images_};
    return QUORL_OK;
}

quorl_status ValueHolder::fromDateTime(const quorlMsgDateTime* time) noexcept {
    if (time == nullptr) return fail(QUORL_INVALID_ARG, "the date-time is null");
    if (time->nsec > 999'999'999)
        return fail(QUORL_INVALID_ARG, "%u nanoseconds are too many: give 0 to 999999999", time->nsec);
    wire::store(scalar_, time->sec);
    wire::store(scalar_ + 8, time->nsec);
    value = {QUORLMSG_DATETIME, Kind::scalar, 0, 1, wireSizeOf<quorlMsgDateTime>, scalar_};
    return QUORL_OK;
}

void ValueHolder::fromBool(quorl_bool boolean) noexcept {
    scalar_[0] = boolean != 0;
    value = {QUORLMSG_BOOL, Kind::scalar, 0, 1, wireSizeOf<quorl_bool>, scalar_};
}

void ValueHolder::fromScalar(uint8_t type, const void* data) noexcept {
    value = {type, Kind::scalar, 0, 1, typeInfo(type).wireSize, data};
}

quorl_status ValueHolder::fromRecord(const quorlMsgField& record) noexcept {
    const TypeInfo& info = typeInfo(record.type);
    if (info.kind == Kind::none) return fail(QUORL_INVALID_TYPE, "field type %d does not exist", record.type);
    const bool isArray = info.kind == Kind::numbers || info.kind == Kind::strings || info.kind == Kind::messages;
    if (!isArray && record.count != 1) {
        return fail(QUORL_INVALID_COUNT, "a field of type %s holds 1 value, not %u", TypeText(record.type).text,
                    record.count);
    }
    if (info.nativeSize != 0 && record.size != info.nativeSize) {
        return fail(QUORL_INVALID_SIZE, "a value of type %s has %d bytes, not %u", TypeText(record.type).text,
                    info.nativeSize, record.size);
    }
    switch (info.kind) {
        case Kind::scalar:
            if (record.type == QUORLMSG_DATETIME) return fromDateTime(&record.data.date);
            if (record.type == QUORLMSG_BOOL) {
                fromBool(record.data.boolean);
            } else {
                fromScalar(record.type, &record.data);
            }
            return QUORL_OK;
        case Kind::string:
            if (record.data.str != nullptr && strnlen(record.data.str, record.size) + 1 != record.size) {
                return fail(QUORL_INVALID_SIZE, "the string with its terminator does not have %u bytes", record.size);
            }
            return fromString(record.data.str);
        case Kind::bytes:
            return fromBytes(record.type, record.data.buf, record.size);
        case Kind::message:
            return fromMessage(record.data.msg);
        case Kind::numbers:
            return fromNumbers(record.type, record.data.array, record.count);
        case Kind::strings:
            if (quorl_status status = checkTexts(record); status != QUORL_OK) return status;
            return fromStrings(static_cast<const char* const*>(record.data.array), record.count);
        case Kind::messages:
            return fromMessages(static_cast<const quorlMsg*>(record.data.array), record.count);
        case Kind::none:
            break;
    }
    return fail(QUORL_INVALID_TYPE, "field type %d does not exist", record.type);
}

}  // namespace quorl::message
