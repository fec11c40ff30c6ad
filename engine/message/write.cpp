// Changing messages: appending, replacing and removing fields, subjects.
#include "message/write.h"

#include <algorithm>

#include "message/append.h"
#include "message/field_faults.h"
#include "message/pool.h"

namespace quorl::message {
namespace {

// Images up to this size are copied when a shared message gets another subject; larger ones are shared on.
constexpr uint32_t smallImage = 1024;

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for a field");
}

quorl_status tooLarge() noexcept {
    return fail(QUORL_INVALID_SIZE, "the message would pass %u bytes", wire::maxSize);
}

// What stands between a field's name and its value, but for the padding.
uint8_t* putLengths(uint8_t* to, Kind kind, uint32_t length, uint32_t bytes) noexcept {
    if (kind == Kind::scalar || kind == Kind::message) return to;
    to = wire::putLength(to, length);
    return kind == Kind::strings ? wire::putLength(to, bytes) : to;
}

uint32_t headSize(const Name& name, uint16_t id, uint8_t type) noexcept {
    return (type >= userTypeFirst ? 2 : 1) + (id != 0 ? 2 : 0) + (name.length == wire::noName ? 0 : name.length + 1u);
}

uint32_t lengthsSize(Kind kind, uint32_t length, uint32_t bytes) noexcept {
    if (kind == Kind::scalar || kind == Kind::message) return 0;
    return wire::lengthSize(length) + (kind == Kind::strings ? wire::lengthSize(bytes) : 0);
}

uint8_t* pad(uint8_t* image, uint8_t* to, uint32_t alignment) noexcept {
    uint8_t* aligned = image + wire::alignUp(static_cast<uint32_t>(to - image), alignment);
    while (to != aligned) *to++ = 0;
    return to;
}

uint8_t* putBytes(uint8_t* to, const Value& value) noexcept {
    switch (value.kind) {
        case Kind::strings: {
            const auto* texts = static_cast<const char* const*>(value.data);
            for (uint32_t i = 0; i < value.length; ++i) {
                const size_t size = std::strlen(texts[i]) + 1;
                std::memcpy(to, texts[i], size);
                to += size;
            }
            return to;
        }
        case Kind::messages: {
            const auto* images = static_cast<const Image*>(value.data);
            for (uint32_t i = 0; i < value.length; ++i) {
                std::memcpy(to, images[i].bytes, images[i].size);
                to += images[i].size;
                // The first image is aligned, so that the distance to the next is a matter of its size alone.
                for (uint32_t over = images[i].size; i + 1 < value.length && over % wire::imageAlignment != 0; ++over) {
                    *to++ = 0;
                }
            }
            return to;
        }
        default:
            if (value.bytes != 0) std::memcpy(to, value.data, value.bytes);
            return to + value.bytes;
    }
}

// Lengths, padding and value, behind a field's name.
uint8_t* putValue(uint8_t* image, uint8_t* to, const Value& value, Field& field) noexcept {
    to = pad(image, putLengths(to, value.kind, value.length, value.bytes), typeInfo(value.type).alignment);
    field.value = static_cast<uint32_t>(to - image);
    field.length = value.length;
    field.depth = value.depth;
    return putBytes(to, value);
}

// Appends field i of from as it is, but for its padding.
void appendCopy(Content& content, const Content& from, uint32_t i) noexcept {
    const Field& source = from.field(i);
    Field& field = content.field(content.count);
    field = source;
    wire::keepTail(content.top, content.count, field.tail);
    uint8_t* to = content.image + content.size;
    field.head = content.size;
    std::memcpy(to, from.image + source.head, source.nameEnd() - source.head);
    to += source.nameEnd() - source.head;
    const uint32_t bytes = from.end(i) - source.value;
    const TypeInfo& info = typeInfo(source.type);
    to = pad(content.image, putLengths(to, info.kind, source.length, bytes), info.alignment);
    field.value = static_cast<uint32_t>(to - content.image);
    std::memcpy(to, from.image + source.value, bytes);
    content.size = static_cast<uint32_t>(to + bytes - content.image);
    ++content.count;
    content.depth = std::max(content.depth, field.depth);
}

// A content with the first count fields of from, its subjects and room for bytes more, tables included.
Content* copyStart(const Content& from, uint32_t count, size_t bytes) noexcept {
    Content* copy = newContent(from.size + count * sizeof(Field) + bytes);
    if (copy == nullptr) return nullptr;
    if (!copy->copySubjects(from)) {
        copy->release();
        return nullptr;
    }
    copy->size = count < from.count ? from.field(count).head : from.size;
    copy->count = count;
    std::memcpy(copy->image, from.image, copy->size);
    std::memcpy(static_cast<void*>(copy->top - count), from.top - count, count * sizeof(Field) + wire::tailsSize);
    for (uint32_t i = 0; i < count; ++i) copy->depth = std::max(copy->depth, copy->field(i).depth);
    return copy;
}

// The most that the fields from first on may grow when they are moved.
size_t paddingBehind(const Content& content, uint32_t first) noexcept {
    size_t most = 0;
    for (uint32_t i = first; i < content.count; ++i) most += typeInfo(content.field(i).type).alignment - 1;
    return most;
}

quorl_status replace(Slot& slot, uint32_t index, const Value& value) noexcept {
    const Content& old = *slot.content;
    const Field& source = old.field(index);
    const uint32_t behind = old.count - index - 1;
    const size_t padding = paddingBehind(old, index + 1);
    const size_t most = fieldOverhead(source.nameLength) + value.bytes + padding;
    // Refused without a copy, but for what the padding may save.
    const uint64_t stays = old.size - (old.end(index) - source.nameEnd());
    const uint64_t least = stays + lengthsSize(value.kind, value.length, value.bytes) + value.bytes;
    if (least > wire::maxSize + padding || old.size + uint64_t{most} > UINT32_MAX) return tooLarge();
    Content* fresh = copyStart(old, index, most + (behind + 1) * sizeof(Field));
    if (fresh == nullptr) return noMemory();
    Change change(slot);
    if (!change.replaceBy(fresh)) return noMemory();

    Field& field = fresh->field(index);
    uint8_t* to = putHead(fresh->image, fresh->image + fresh->size, old.nameOf(source), source.id, source.type, field);
    to = putValue(fresh->image, to, value, field);
    fresh->size = static_cast<uint32_t>(to - fresh->image);
    wire::keepTail(fresh->top, fresh->count++, field.tail);
    fresh->depth = std::max(fresh->depth, field.depth);
    if (fresh->size > wire::maxSize) return tooLarge();
    for (uint32_t i = index + 1; i < old.count; ++i) appendCopy(*fresh, old, i);
    if (fresh->size > wire::maxSize) return tooLarge();
    fresh->stampHeader();
    change.commit();
    return QUORL_OK;
}

}  // namespace

bool Change::moveToRoom(size_t bytes) noexcept {
    const Content* from = slot_.content;
    if (from == nullptr) {
        fresh_ = newContent(bytes);
        return fresh_ != nullptr;
    }
    // Beyond the sizes that are kept, blocks double, so that building a large message stays linear.
    constexpr size_t keptSizes = 8192;
    const size_t present = from->size + from->count * sizeof(Field);
    fresh_ = copyContent(*from, present + bytes > keptSizes ? std::max(bytes, present) : bytes);
    if (fresh_ == nullptr) return false;
    if (from->unshared() && fresh_->sizeClass > from->sizeClass) pool::outgrown(fresh_->sizeClass);
    return true;
}

bool Change::needSubjects() noexcept {
    if (!handouts_.begin(slot_)) return false;
    Content* content = slot_.content;
    if (content == nullptr) return moveToRoom(0);
    if (content->references.load(std::memory_order_acquire) == 1 && !handouts_.keepsContent()) return true;
    if (content->size <= smallImage) return moveToRoom(0);
    fresh_ = newEnvelopeOver(content);
    return fresh_ != nullptr && fresh_->copySubjects(*content);
}

quorl_status idInUse(const Content& content, uint32_t index, uint16_t id) noexcept {
    const char* name = content.name(content.field(index));
    return fail(QUORL_ID_IN_USE, "the id %u is that of field %u, \"%s\"", id, index, name != nullptr ? name : "");
}

quorl_status append(Slot& slot, const Name& name, uint16_t id, const Value& value) noexcept {
    if (value.depth > QUORL_MSG_MAX_DEPTH) {
        return fail(QUORL_INVALID_MSG, "messages would be nested deeper than %d", QUORL_MSG_MAX_DEPTH);
    }
    const Content* present = slot.content;
    if (id != 0 && present != nullptr) {
        const uint32_t other = findId(*present, id);
        if (other != notFound) return idInUse(*present, other, id);
    }
    const uint32_t size = present != nullptr ? present->size : wire::headerSize;
    const uint32_t before = size + headSize(name, id, value.type) + lengthsSize(value.kind, value.length, value.bytes);
    if (wire::alignUp(before, typeInfo(value.type).alignment) + uint64_t{value.bytes} > wire::maxSize)
        return tooLarge();
    const size_t most = fieldOverhead(name.length) + value.bytes;
    Change change(slot);
    if (!change.needRoom(most + sizeof(Field))) return noMemory();
    Content& into = change.pending();
    Field& field = into.field(into.count);  // free room until closeField
    uint8_t* to = putHead(into.image, into.image + into.size, name, id, value.type, field);
    to = putValue(into.image, to, value, field);
    closeField(change.commit(), to, value.depth);
    return QUORL_OK;
}

[[gnu::noinline]] quorl_status appendGenerally(quorlMsg message, const char* name, uint16_t id, uint8_t type,
                                               uint32_t length, const void* data) noexcept {
    Slot* slot;
    Name checked;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readName(name, &checked); status != QUORL_OK) return status;
    const TypeInfo& info = typeInfo(type);
    const quorl_status status = append(*slot, checked, id, {type, info.kind, 0, length, length * info.wireSize, data});
    return status == QUORL_OK ? status : inField(status, name, id);
}

quorl_status update(Slot& slot, const Name& name, uint16_t id, const Value& value) noexcept {
    if (slot.content == nullptr) return append(slot, name, id, value);
    uint32_t index;
    const quorl_status status = locate(*slot.content, name, id, &index);
    if (status == QUORL_NOT_FOUND) return append(slot, name, id, value);
    if (status != QUORL_OK) return status;
    const Field& present = slot.content->field(index);
    if (present.type != value.type) {
        return fail(QUORL_INVALID_TYPE, "it is %s, not %s", TypeText(present.type).text, TypeText(value.type).text);
    }
    if (value.depth > QUORL_MSG_MAX_DEPTH) {
        return fail(QUORL_INVALID_MSG, "messages would be nested deeper than %d", QUORL_MSG_MAX_DEPTH);
    }
    const bool plain = value.kind != Kind::strings && value.kind != Kind::message && value.kind != Kind::messages;
    if (!plain || present.length != value.length) return replace(slot, index, value);

    Change change(slot);
    if (!change.needRoom(0)) return noMemory();
    Content& content = change.pending();
    if (value.bytes != 0) std::memmove(content.image + content.field(index).value, value.data, value.bytes);
    change.commit();
    return QUORL_OK;
}

quorl_status remove(Slot& slot, uint32_t index) noexcept {
    const Content& old = *slot.content;
    const size_t padding = paddingBehind(old, index);
    if (old.size + uint64_t{padding} > UINT32_MAX) return tooLarge();
    Content* fresh = copyStart(old, index, (old.count - index) * sizeof(Field) + padding);
    if (fresh == nullptr) return noMemory();
    Change change(slot);
    if (!change.replaceBy(fresh)) return noMemory();
    for (uint32_t i = index + 1; i < old.count; ++i) appendCopy(*fresh, old, i);
    if (fresh->size > wire::maxSize) return tooLarge();  // the fields behind may need more padding than before
    fresh->stampHeader();
    change.commit();
    return QUORL_OK;
}

quorl_status setSubject(Slot& slot, std::string_view subject, bool reply) noexcept {
    if (subject.empty() && slot.content == nullptr) return QUORL_OK;
    Change change(slot);
    if (!change.needSubjects()) return fail(QUORL_NO_MEMORY, "no memory for a subject");
    Content& content = change.pending();
    if (!(reply ? content.setReplySubject(subject) : content.setSendSubject(subject))) {
        return fail(QUORL_NO_MEMORY, "no memory for a subject");
    }
    change.commit();
    return QUORL_OK;
}

quorl_status reset(Slot& slot) noexcept {
    ChangeOfHandouts handouts;
    if (!handouts.begin(slot)) return fail(QUORL_NO_MEMORY, "no memory to keep what a bracket has handed out");
    const bool keep = handouts.keepsContent();
    handouts.commit(slot);
    Content* content = slot.content;
    if (content == nullptr) return QUORL_OK;
    // A message that is emptied is filled again as a rule, so that it keeps its block, unless that is a large one.
    if (!keep && content->unshared() && pool::recycles(*content)) {
        content->clear();
    } else {
        content->release();
        slot.content = nullptr;
    }
    return QUORL_OK;
}

}  // namespace quorl::message
