// Changing messages: appending, replacing and removing fields, subjects.
#include "message/write.h"

#include <algorithm>
#include <functional>

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
    return fail(QUORL_INVALID_SIZE, "the message would become larger than %u bytes", wire::maxSize);
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

// What a content that is copied to get room for bytes gets beside them: beyond the sizes that are kept, blocks double, so
// that making a message large step by step stays linear.
size_t spareRoom(const Content& from, size_t bytes) noexcept {
    constexpr size_t keptSizes = 8192;
    const size_t present = from.size + from.count * sizeof(Field);
    return present + bytes > keptSizes && present > bytes ? present - bytes : 0;
}

// The most that the fields from first on may grow when they are moved.
size_t paddingBehind(const Content& content, uint32_t first) noexcept {
    size_t most = 0;
    for (uint32_t i = first; i < content.count; ++i) most += typeInfo(content.field(i).type).alignment - 1;
    return most;
}

// ---- changes in place -------------------------------------------------------------------------------------------

// The content's fields from first on lie raised bytes (a multiple of the largest alignment) above where their records
// say, the first of them at offset from. They move down to offset to, each with the padding that is right there. What
// moves down moves no field up: a value's place never grows when what stands before it shrinks.
void settle(Content& content, uint32_t first, uint32_t raised, uint32_t from, uint32_t to) noexcept {
    uint8_t* const image = content.image;
    uint32_t down = from - to;   // how far what comes next moves
    uint32_t pieceStart = from;  // of the bytes that move in one piece; those before it are where they belong
    const auto movePieceTo = [&](uint32_t end) {
        if (down != 0) std::memmove(image + pieceStart - down, image + pieceStart, end - pieceStart);
    };
    for (uint32_t i = first; i < content.count; ++i) {
        if ((raised | down) == 0) return;
        Field& field = content.field(i);
        const TypeInfo& info = typeInfo(field.type);
        const uint32_t value = field.value + raised;
        const uint32_t nameEnd = field.nameEnd() + raised;
        field.head += raised - down;
        if (down % info.alignment != 0) {
            // An array of numbers or messages: none of them has a length that its count does not tell.
            const uint32_t lengthsEnd = nameEnd + lengthsSize(info.kind, field.length, 0);
            const uint32_t padded = wire::alignUp(lengthsEnd - down, info.alignment);
            movePieceTo(lengthsEnd);
            std::memset(image + lengthsEnd - down, 0, padded - (lengthsEnd - down));
            pieceStart = value;
            down = value - padded;
        }
        field.value = value - down;
    }
    const uint32_t end = content.size + raised;
    movePieceTo(end);
    content.size = end - down;
}

// The depth of a content of that depth before, in which field index was changed or what stood there removed.
uint8_t depthAround(const Content& content, uint32_t index, uint8_t before) noexcept {
    uint8_t deepest = 0;
    for (uint32_t i = index; i-- > 0 && deepest < before;) deepest = std::max(deepest, content.field(i).depth);
    for (uint32_t i = index; i < content.count && deepest < before; ++i) {
        deepest = std::max(deepest, content.field(i).depth);
    }
    return deepest;
}

void removeInPlace(Content& content, uint32_t index) noexcept {
    indexWithout(content, index);
    const uint8_t depth = content.field(index).depth;
    const uint32_t behind = content.end(index);
    settle(content, index + 1, 0, behind, content.field(index).head);
    Field* const last = content.top - content.count;
    std::memmove(static_cast<void*>(last + 1), last, (content.count - index - 1) * sizeof(Field));
    --content.count;
    for (uint32_t i = index; i < std::min(content.count, wire::tailsKept); ++i) {
        wire::keepTail(content.top, i, content.field(i).tail);
    }
    if (depth != 0 && depth == content.depth) content.depth = depthAround(content, index, depth);
    content.stampHeader();
}

// The offset behind field index when it has that value.
uint64_t endWith(const Content& content, uint32_t index, const Value& value) noexcept {
    const uint32_t lengths = lengthsSize(value.kind, value.length, value.bytes);
    const uint32_t start = content.field(index).nameEnd() + lengths;
    return uint64_t{wire::alignUp(start, typeInfo(value.type).alignment)} + value.bytes;
}

// How far what stands behind field index is raised before it gets a value that ends there.
uint32_t raiseFor(const Content& content, uint32_t index, uint64_t end) noexcept {
    const uint32_t behind = content.end(index);
    return end <= behind ? 0 : wire::alignUp(static_cast<uint32_t>(end) - behind, wire::imageAlignment);
}

void replaceInPlace(Content& content, uint32_t index, const Value& value) noexcept {
    Field& field = content.field(index);
    const uint8_t depth = field.depth;
    const uint32_t behind = content.end(index);
    const auto end = static_cast<uint32_t>(endWith(content, index, value));
    const uint32_t raised = raiseFor(content, index, end);
    if (raised != 0) {
        std::memmove(content.image + behind + raised, content.image + behind, content.size - behind);
    }
    putValue(content.image, content.image + field.nameEnd(), value, field);
    settle(content, index + 1, raised, behind + raised, end);
    if (value.depth >= content.depth) {
        content.depth = value.depth;
    } else if (depth == content.depth) {
        content.depth = depthAround(content, index, depth);
    }
    content.stampHeader();
}

// Whether the value, or a part of it, lies in the content's image.
bool liesIn(const Content& content, const Value& value) noexcept {
    const auto within = [&](const void* data) {
        return std::less_equal<>()(content.image, static_cast<const uint8_t*>(data)) &&
               std::less<>()(static_cast<const uint8_t*>(data), content.image + content.size);
    };
    if (value.kind == Kind::strings) {
        const auto* texts = static_cast<const char* const*>(value.data);
        return std::any_of(texts, texts + value.length, within);
    }
    if (value.kind == Kind::messages) {
        const auto* images = static_cast<const Image*>(value.data);
        return std::any_of(images, images + value.length, [&](const Image& image) { return within(image.bytes); });
    }
    return value.bytes != 0 && within(value.data);
}

// Whether a content that shrinks to that size is better copied than left in its block, which is as large as it was.
bool leavesMuch(const Content& content, uint64_t size) noexcept {
    const auto capacity = static_cast<uint64_t>(reinterpret_cast<const uint8_t*>(content.top) - content.image);
    return !pool::recycles(content) && 8 * (size + content.count * sizeof(Field)) < capacity;
}

quorl_status replace(Slot& slot, uint32_t index, const Value& value) noexcept {
    const Content& old = *slot.content;
    const Field& source = old.field(index);
    Change change(slot);
    if (!change.begin()) return noMemory();
    const uint64_t end = endWith(old, index, value);
    if (end <= wire::maxSize) {
        const uint32_t raised = raiseFor(old, index, end);
        const uint64_t size = old.size + end - old.end(index);
        if (uint64_t{old.size} + raised <= wire::maxSize && change.hasRoom(raised) && !leavesMuch(old, size) &&
            !liesIn(old, value)) {
            replaceInPlace(*slot.content, index, value);
            change.commit();
            return QUORL_OK;
        }
    }
    const uint32_t behind = old.count - index - 1;
    const size_t padding = paddingBehind(old, index + 1);
    const size_t most = fieldOverhead(source.nameLength) + value.bytes + padding;
    // Refused without a copy, but for what the padding may save.
    const uint64_t stays = old.size - (old.end(index) - source.nameEnd());
    const uint64_t least = stays + lengthsSize(value.kind, value.length, value.bytes) + value.bytes;
    if (least > wire::maxSize + padding || old.size + uint64_t{most} > UINT32_MAX) return tooLarge();
    const size_t spare = value.bytes > old.end(index) - source.value ? spareRoom(old, most) : 0;
    Content* fresh = copyStart(old, index, most + spare + (behind + 1) * sizeof(Field));
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
    fresh_ = copyContent(*from, bytes + spareRoom(*from, bytes));
    if (fresh_ == nullptr) return false;
    if (from->unshared() && fresh_->sizeClass > from->sizeClass) pool::outgrown(fresh_->sizeClass);
    return true;
}

bool Change::needSubjects() noexcept {
    if (!borrowed_.begin(slot_)) return false;
    Content* content = slot_.content;
    if (content == nullptr) return moveToRoom(0);
    if (content->references.load(std::memory_order_acquire) == 1 && !borrowed_.keepsContent()) return true;
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
        if (other != notFound && !sameName(*present, present->field(other), name)) return idInUse(*present, other, id);
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
    if (quorl_status status = readNewName(name, &checked); status != QUORL_OK) return status;
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
    Change change(slot);
    if (!change.begin()) return noMemory();
    const bool canStay = change.hasRoom(0);
    Content* fresh = nullptr;
    if (!canStay || leavesMuch(old, old.size - (old.end(index) - old.field(index).head))) {
        fresh = copyStart(old, index, (old.count - index) * sizeof(Field) + paddingBehind(old, index));
    }
    if (fresh == nullptr && canStay) {
        removeInPlace(*slot.content, index);
        change.commit();
        return QUORL_OK;
    }
    if (!change.replaceBy(fresh)) return noMemory();
    for (uint32_t i = index + 1; i < old.count; ++i) appendCopy(*fresh, old, i);
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
    ChangeOfBorrowed borrowed;
    if (!borrowed.begin(slot)) return fail(QUORL_NO_MEMORY, "no memory to keep references that a bracket holds");
    const bool keep = borrowed.keepsContent();
    borrowed.commit(slot);
    dropAttributes(slot);
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
