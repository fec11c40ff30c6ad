// A message's content: its wire image, the table of its fields and its subjects, in one block of memory.
//
// One block holds, in this order: the Content itself, the image, which grows up, free room, the table of fields, which
// grows down, and behind it the first names' tails (wire::tailsSize bytes). A content is counted; while more than one reference is out it never changes,
// so that any number of threads may read it. A view is a content whose image lies in another one, its base. An envelope is
// one that shares a whole message, its base's, under subjects of its own; attributes, if the message has any, stand in
// the envelope's block.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <atomic>
#include <bit>
#include <cstdint>
#include <string_view>

#include "message/attributes.h"
#include "message/memory.h"
#include "message/wire.h"

namespace quorl::message {

struct FieldIndex;

using wire::Field;

constexpr uint32_t notFound = UINT32_MAX;

// A field's name as a caller gives it; none when it is made without arguments.
struct Name {
    const char* text = nullptr;
    uint32_t tail = 0;  // as Field::tail
    uint8_t length = wire::noName;

    Name() noexcept = default;
    Name(const char* given, uint32_t size) noexcept
        : text(given), tail(wire::tailOf(given, size)), length(static_cast<uint8_t>(size)) {}
};

class alignas(cacheLine) Content {
  public:
    static constexpr size_t subjectRoom =
        64;  // bytes of a subject with its terminator that need no memory of their own

    std::atomic<uint32_t> references;
    uint32_t size;   // bytes of the image
    uint8_t* image;  // aligned to wire::imageAlignment
    Field* top;      // the table's end: field i is top[-1 - i]; the tails stand behind it
    uint32_t count;  // fields
    uint8_t sizeClass;
    uint8_t depth;  // levels of messages inside; of a view not known (0)
    uint8_t sendLength;
    uint8_t replyLength;
    union {
        Content* base;         // owner of the image and, when sharesTable, of the table; null: this one. Counted.
        Content* nextOfBatch;  // in a free list
    };
    std::atomic<FieldIndex*> index;  // made by the first search of a content with many fields; null before
    union {
        char* longSend;  // a subject that needs memory of its own; null when it fits
        Content* nextBatch;
    };
    char* longReply;

    char shortSend[subjectRoom];
    char shortReply[subjectRoom];

    const Field& field(uint32_t i) const noexcept { return top[-1 - static_cast<ptrdiff_t>(i)]; }
    Field& field(uint32_t i) noexcept { return top[-1 - static_cast<ptrdiff_t>(i)]; }
    // Of the byte behind field i.
    uint32_t end(uint32_t i) const noexcept { return i + 1 < count ? field(i + 1).head : size; }
    const char* name(const Field& of) const noexcept {
        return of.nameLength == wire::noName ? nullptr : reinterpret_cast<const char*>(image + of.name());
    }
    Name nameOf(const Field& of) const noexcept {
        return of.nameLength == wire::noName ? Name() : Name(name(of), of.nameLength);
    }
    const uint8_t* value(const Field& of) const noexcept { return image + of.value; }

    std::string_view sendSubject() const noexcept { return {longSend != nullptr ? longSend : shortSend, sendLength}; }
    std::string_view replySubject() const noexcept {
        return {longReply != nullptr ? longReply : shortReply, replyLength};
    }

    // Of envelopes alone: their own blocks begin with the size of the attributes.
    bool isEnvelope() const noexcept { return base != nullptr && top == base->top; }
    Attributes attributes() const noexcept {
        if (!isEnvelope()) [[likely]]
            return {};
        const auto* own = reinterpret_cast<const uint8_t*>(this + 1);
        return {own + sizeof(uint32_t), wire::load<uint32_t>(own)};
    }

    // Bytes between the image and the table; of an own image only.
    size_t room() const noexcept {
        return static_cast<size_t>(reinterpret_cast<const uint8_t*>(top - count) - (image + size));
    }
    bool unshared() const noexcept { return references.load(std::memory_order_acquire) == 1 && base == nullptr; }

    void retain() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references.load(std::memory_order_acquire) == 1 ||
            references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            recycle();
        }
    }

    // Takes all fields and both subjects away. The content must be unshared.
    void clear() noexcept;

    // Writes size and count into the image's header.
    void stampHeader() noexcept {
        wire::store(image + wire::sizeAt, size);
        wire::store(image + wire::countAt, count);
    }

    // Sets a subject; false: no memory, and nothing is changed. The content must be unshared or new.
    bool setSendSubject(std::string_view subject) noexcept;
    bool setReplySubject(std::string_view subject) noexcept;
    bool copySubjects(const Content& from) noexcept {
        return setSendSubject(from.sendSubject()) && setReplySubject(from.replySubject());
    }

    void dropIndex() noexcept;

  private:
    void recycle() noexcept;
};
static_assert(sizeof(Content) == 3 * cacheLine);

// A content with an empty message and room bytes for its image beyond the header and for its table. Null: no memory.
Content* newContent(size_t room) noexcept;

// A content with a copy of all of from but room to grow by grow bytes. Null: no memory.
Content* copyContent(const Content& from, size_t grow) noexcept;

// A content without subjects over an image inside base, which has been checked. Null: no memory.
Content* newView(Content* base, const uint8_t* image) noexcept;

// A content over the image and table of base, with no subjects yet, and with these attributes alone, which are within
// attributesMax. Null: no memory.
Content* newEnvelopeOver(Content* base, Attributes attributes = {}) noexcept;

// The same message without attributes: the content itself when it has none, the one below it where that has the same
// subjects, otherwise a new one. The caller's reference is passed on. Null: no memory, and the reference is given back.
Content* withoutAttributes(Content* content) noexcept;

// A content made from bytes that come from outside. QUORL_CORRUPT_MSG, QUORL_NO_MEMORY.
quorl_status readImage(const uint8_t* bytes, uint32_t size, Content** content) noexcept;

// The image of a message without fields.
extern const uint8_t emptyImage[wire::headerSize];

// ---- search -----------------------------------------------------------------------------------------------------

// The index of the field with that id (not 0), or of the first one with that name; notFound.
uint32_t findId(const Content& content, uint16_t id) noexcept;
uint32_t findName(const Content& content, const Name& name) noexcept;
// The first field with that name at index from or behind it.
uint32_t findNameFrom(const Content& content, const Name& name, uint32_t from) noexcept;

// Up to this many fields a search looks at each.
constexpr uint32_t fewFields = wire::tailsKept;

// Compared word by word, the last one overlapping the one before it, without the call that memcmp is.
[[gnu::always_inline]] inline bool sameName(const Content& content, const Field& field, const Name& name) noexcept {
    if (field.tail != name.tail || field.nameLength != name.length) return false;
    const uint32_t length = name.length;
    if (length < 4 || length == wire::noName) return true;  // the tail is all of it
    const uint8_t* present = content.image + field.name();
    const auto* given = reinterpret_cast<const uint8_t*>(name.text);
    if (length <= 8) return wire::load<uint32_t>(present) == wire::load<uint32_t>(given);
    for (uint32_t i = 0; i < length - 8; i += 8) {
        if (wire::load<uint64_t>(present + i) != wire::load<uint64_t>(given + i)) return false;
    }
    return wire::load<uint64_t>(present + length - 8) == wire::load<uint64_t>(given + length - 8);
}

// The bits of those of the tails behind top that are tail.
[[gnu::always_inline]] inline uint32_t sameTails(const Field* top, uint32_t tail) noexcept {
    static_assert(wire::tailsKept == 16);
#ifdef __SSE2__
    const auto* from = reinterpret_cast<const __m128i*>(top);
    const __m128i wanted = _mm_set1_epi32(static_cast<int>(tail));
    const auto same = [&](int four) { return _mm_cmpeq_epi32(_mm_loadu_si128(from + four), wanted); };
    const __m128i words = _mm_packs_epi16(_mm_packs_epi32(same(0), same(1)), _mm_packs_epi32(same(2), same(3)));
    return static_cast<uint32_t>(_mm_movemask_epi8(words));
#else
    const auto* tails = reinterpret_cast<const uint32_t*>(top);
    uint32_t bits = 0;
    for (uint32_t i = 0; i < wire::tailsKept; ++i) bits |= uint32_t{tails[i] == tail} << i;
    return bits;
#endif
}

// The search in a content with at most fewFields fields: the tails are compared all at once, and what they leave is
// looked at in the order of the fields.
[[gnu::always_inline]] inline uint32_t findAmongFew(const Content& content, const Name& name) noexcept {
    uint32_t candidates = sameTails(content.top, name.tail) & ((1u << content.count) - 1);
    for (; candidates != 0; candidates &= candidates - 1) {
        const auto index = static_cast<uint32_t>(std::countr_zero(candidates));
        if (sameName(content, content.field(index), name)) return index;
    }
    return notFound;
}

// The instance-th field (counted from 1) with that name; notFound.
uint32_t findInstance(const Content& content, const Name& name, uint32_t instance) noexcept;

// Tells the index, if there is one, of the field that was appended last. The content must be unshared.
void indexLast(Content& content) noexcept;

// Takes a field out of the index, if there is one, and counts those behind it one less; before the field goes. The
// content must be unshared.
void indexWithout(Content& content, uint32_t number) noexcept;

}  // namespace quorl::message
