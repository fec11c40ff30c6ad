// Adding fields to messages of the engine's own.
#include "message/builder.h"

#include <algorithm>
#include <new>

#include "message/field_faults.h"
#include "message/values.h"

namespace quorl::message {
namespace {

// The image of a content, and its depth as a field's value.
Image imageOf(const Content* content, uint8_t* depth) noexcept {
    const uint8_t inside = content->base != nullptr ? wire::depthOf(content->image) : content->depth;
    *depth = std::max<uint8_t>(*depth, inside + 1);
    return {content->image, content->size};
}

}  // namespace

Builder::Builder() noexcept : slot_(openSlot(Owner::caller)) {
    status_ = slot_ != nullptr ? QUORL_OK : fail(QUORL_NO_MEMORY, "no memory for a message");
}

Builder::Builder(const ContentRef& from) noexcept : slot_(nullptr) {
    quorlMsg handle = nullptr;
    status_ = newMessage(ContentRef(from).release(), Owner::caller, 0, &handle);
    if (status_ == QUORL_OK) slot_ = resolve(handle);
}

Builder::~Builder() {
    if (slot_ != nullptr) dropMessage(*slot_);
}

Builder& Builder::add(Key key, const Value& value) noexcept {
    if (status_ != QUORL_OK) return *this;
    Name name;
    status_ = readNewName(key.name, &name);
    if (status_ == QUORL_OK) status_ = append(*slot_, name, key.id, value);
    if (status_ != QUORL_OK) status_ = inField(status_, key.name, key.id);
    return *this;
}

Builder& Builder::without(const char* name) noexcept {
    Name wanted;
    fails(readNewName(name, &wanted));
    uint32_t index = 0;
    while (status_ == QUORL_OK && slot_->content != nullptr && locate(*slot_->content, wanted, 0, &index) == QUORL_OK)
        status_ = remove(*slot_, index);
    return *this;
}

Builder& Builder::number(Key key, uint8_t type, const void* value) noexcept {
    return add(key, {type, Kind::scalar, 0, 1, typeInfo(type).wireSize, value});
}

Builder& Builder::boolean(Key key, bool value) noexcept {
    const uint8_t byte = value ? 1 : 0;
    return number(key, QUORLMSG_BOOL, &byte);
}

Builder& Builder::u8(Key key, uint8_t value) noexcept {
    return number(key, QUORLMSG_U8, &value);
}

Builder& Builder::u32(Key key, uint32_t value) noexcept {
    return number(key, QUORLMSG_U32, &value);
}

Builder& Builder::u64(Key key, uint64_t value) noexcept {
    return number(key, QUORLMSG_U64, &value);
}

Builder& Builder::f64(Key key, double value) noexcept {
    return number(key, QUORLMSG_F64, &value);
}

Builder& Builder::text(Key key, const char* value) noexcept {
    if (status_ != QUORL_OK) return *this;
    ValueHolder holder;
    status_ = holder.fromString(value);
    return status_ == QUORL_OK ? add(key, holder.value) : *this;
}

Builder& Builder::text(Key key, std::string_view value) noexcept {
    try {
        return text(key, std::string(value).c_str());
    } catch (const std::bad_alloc&) {
        fails(fail(QUORL_NO_MEMORY, "no memory for a text of a message"));
        return *this;
    }
}

Builder& Builder::texts(Key key, const std::vector<std::string>& values) noexcept {
    if (status_ != QUORL_OK) return *this;
    try {
        std::vector<const char*> texts;
        texts.reserve(values.size());
        for (const std::string& value : values) texts.push_back(value.c_str());
        ValueHolder holder;
        status_ = holder.fromStrings(texts.data(), static_cast<uint32_t>(texts.size()));
        return status_ == QUORL_OK ? add(key, holder.value) : *this;
    } catch (const std::bad_alloc&) {
        fails(fail(QUORL_NO_MEMORY, "no memory for the texts of a message"));
        return *this;
    }
}

Builder& Builder::bytes(Key key, const void* value, uint32_t size) noexcept {
    if (status_ != QUORL_OK) return *this;
    ValueHolder holder;
    status_ = holder.fromBytes(QUORLMSG_OPAQUE, value, size);
    return status_ == QUORL_OK ? add(key, holder.value) : *this;
}

Builder& Builder::message(Key key, const ContentRef& value) noexcept {
    uint8_t depth = 0;
    const Image image = imageOf(value.get(), &depth);
    return add(key, {QUORLMSG_MSG, Kind::message, depth, image.size, image.size, image.bytes});
}

Builder& Builder::message(Key key, const Builder& value) noexcept {
    ContentRef inner;
    fails(value.content(&inner));
    return status_ == QUORL_OK ? message(key, inner) : *this;
}

Builder& Builder::messages(Key key, const std::vector<ContentRef>& values) noexcept {
    if (status_ != QUORL_OK) return *this;
    try {
        std::vector<Image> images;
        images.reserve(values.size());
        uint64_t bytes = 0;
        uint8_t depth = 0;
        for (const ContentRef& value : values) {
            images.push_back(imageOf(value.get(), &depth));
            bytes = wire::alignUp(static_cast<uint32_t>(bytes), wire::imageAlignment) + images.back().size;
            if (bytes > wire::maxSize) {
                fails(valueTooLong());
                return *this;
            }
        }
        return add(key, {QUORLMSG_MSGARRAY, Kind::messages, depth, static_cast<uint32_t>(images.size()),
                         static_cast<uint32_t>(bytes), images.data()});
    } catch (const std::bad_alloc&) {
        fails(fail(QUORL_NO_MEMORY, "no memory for the messages of a message"));
        return *this;
    }
}

quorl_status Builder::content(ContentRef* content) const noexcept {
    return status_ == QUORL_OK ? snapshot(handleOf(*slot_), content) : status_;
}

quorl_status Builder::content(std::string_view sendSubject, ContentRef* content) const noexcept {
    if (status_ != QUORL_OK) return status_;
    const quorl_status status = setSubject(*slot_, sendSubject, false);
    return status == QUORL_OK ? snapshot(handleOf(*slot_), content) : status;
}

}  // namespace quorl::message
