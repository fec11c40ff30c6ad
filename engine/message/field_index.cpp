// Searching fields by name and by id.
#include "message/field_index.h"

#include <sys/random.h>

#include <ctime>

namespace quorl::message {
namespace {

// The names of a message may come from somebody who wishes us ill: without knowing the key nobody can choose names
// that meet in one cell. One for the process, made by the first use.
uint64_t hashKey() noexcept {
    static constinit std::atomic<uint64_t> key{0};
    uint64_t value = key.load(std::memory_order_relaxed);
    if (value != 0) [[likely]]
        return value;
    uint64_t fresh = 0;
    if (getrandom(&fresh, sizeof fresh, GRND_NONBLOCK) != sizeof fresh) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        fresh = static_cast<uint64_t>(now.tv_nsec) * 0x9e3779b97f4a7c15u ^ static_cast<uint64_t>(now.tv_sec);
    }
    fresh |= 1;
    return key.compare_exchange_strong(value, fresh, std::memory_order_relaxed) ? fresh : value;
}

__extension__ using Wide = unsigned __int128;

uint64_t mix(uint64_t a, uint64_t b) noexcept {
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t hashName(const void* name, uint32_t length) noexcept {
    const auto* bytes = static_cast<const uint8_t*>(name);
    const uint64_t key = hashKey();
    uint64_t hash = key ^ length;
    for (; length > 16; bytes += 16, length -= 16) {
        hash = mix(hash ^ wire::load<uint64_t>(bytes), key ^ wire::load<uint64_t>(bytes + 8) ^ 0x2d358dccaa6c78a5u);
    }
    uint64_t low = 0;
    uint64_t high = 0;
    if (length >= 8) {
        low = wire::load<uint64_t>(bytes);
        high = wire::load<uint64_t>(bytes + length - 8);
    } else if (length >= 4) {
        low = wire::load<uint32_t>(bytes);
        high = wire::load<uint32_t>(bytes + length - 4);
    } else if (length > 0) {
        low = bytes[0] | uint64_t{bytes[length / 2]} << 8 | uint64_t{bytes[length - 1]} << 16;
    }
    return mix(low ^ hash, high ^ 0x8bb84b93962eacc9u ^ key);
}

uint64_t hashOf(const Content& content, const Field& field) noexcept {
    return field.nameLength == wire::noName ? hashKey() : hashName(content.image + field.name(), field.nameLength);
}
uint64_t hashOf(const Name& name) noexcept {
    return name.length == wire::noName ? hashKey() : hashName(name.text, name.length);
}
uint32_t hashId(uint16_t id) noexcept {
    return id * 0x9e3779b1u >> 7;
}

constexpr uint64_t cellOf(uint64_t hash, uint32_t field) noexcept {
    return (hash & 0xffffffff00000000u) | (field + 1);
}
constexpr uint32_t fieldOf(uint64_t cell) noexcept {
    return static_cast<uint32_t>(cell) - 1;
}

void insert(const Content& content, FieldIndex& index, uint32_t number) noexcept {
    const Field& field = content.field(number);
    const uint64_t hash = hashOf(content, field);
    uint64_t* names = index.names();
    for (uint32_t at = static_cast<uint32_t>(hash) & index.mask;; at = (at + 1) & index.mask) {
        if (names[at] == 0) {
            names[at] = cellOf(hash, number);
            break;
        }
        // The first field of a name is the one that a search finds.
        if (names[at] >> 32 == hash >> 32) {
            const Field& other = content.field(fieldOf(names[at]));
            if (sameName(content, other, content.nameOf(field))) break;
        }
    }
    if (field.id != 0) {
        uint64_t* ids = index.ids();
        uint32_t at = hashId(field.id) & index.mask;
        while (ids[at] != 0) at = (at + 1) & index.mask;
        ids[at] = uint64_t{field.id} << 32 | (number + 1);
    }
    ++index.fields;
}

// Null: no memory; the search must do without.
FieldIndex* build(const Content& content) noexcept {
    uint32_t capacity = 64;
    while (capacity < content.count + content.count / 2) capacity *= 2;
    const size_t cells = size_t{2} * capacity * sizeof(uint64_t);
    void* memory = allocate(sizeof(FieldIndex) + cells);
    if (memory == nullptr) return nullptr;
    auto* index = static_cast<FieldIndex*>(memory);
    index->mask = capacity - 1;
    index->fields = 0;
    index->lastInstance.store(0, std::memory_order_relaxed);
    std::memset(index->names(), 0, cells);
    for (uint32_t i = 0; i < content.count; ++i) insert(content, *index, i);
    return index;
}

// The content's index, made if need be; several threads may be here at once. Null: no memory.
FieldIndex* indexOf(const Content& content) noexcept {
    auto& shared = const_cast<std::atomic<FieldIndex*>&>(content.index);
    FieldIndex* index = shared.load(std::memory_order_acquire);
    if (index != nullptr) [[likely]]
        return index;
    FieldIndex* fresh = build(content);
    if (fresh == nullptr) return nullptr;
    if (shared.compare_exchange_strong(index, fresh, std::memory_order_acq_rel)) return fresh;
    deallocate(fresh);
    return index;
}

}  // namespace

uint32_t findNameFrom(const Content& content, const Name& name, uint32_t from) noexcept {
    const Field* end = content.top - content.count;
    for (const Field* field = content.top - from; field != end;) {
        --field;
        if (sameName(content, *field, name)) return static_cast<uint32_t>(content.top - field - 1);
    }
    return notFound;
}

uint32_t findName(const Content& content, const Name& name) noexcept {
    if (content.count <= fewFields) return findAmongFew(content, name);
    const FieldIndex* index = indexOf(content);
    if (index == nullptr) return findNameFrom(content, name, 0);
    const uint64_t hash = hashOf(name);
    const uint64_t* names = index->names();
    for (uint32_t at = static_cast<uint32_t>(hash) & index->mask; names[at] != 0; at = (at + 1) & index->mask) {
        if (names[at] >> 32 != hash >> 32) continue;
        const uint32_t number = fieldOf(names[at]);
        if (sameName(content, content.field(number), name)) return number;
    }
    return notFound;
}

uint32_t findInstance(const Content& content, const Name& name, uint32_t instance) noexcept {
    FieldIndex* index = content.count > fewFields ? indexOf(content) : nullptr;
    uint32_t number = notFound;
    uint32_t at = 1;  // the instance that number is
    if (index != nullptr) {
        const uint64_t last = index->lastInstance.load(std::memory_order_relaxed);
        if (last != 0 && last >> 32 <= instance &&
            sameName(content, content.field(static_cast<uint32_t>(last)), name)) {
            number = static_cast<uint32_t>(last);
            at = static_cast<uint32_t>(last >> 32);
        }
    }
    if (number == notFound) number = findName(content, name);
    for (; number != notFound && at < instance; ++at) number = findNameFrom(content, name, number + 1);
    if (index != nullptr && number != notFound) {
        index->lastInstance.store(uint64_t{instance} << 32 | number, std::memory_order_relaxed);
    }
    return number;
}

uint32_t findId(const Content& content, uint16_t id) noexcept {
    if (content.count > fewFields) {
        if (const FieldIndex* index = indexOf(content)) {
            const uint64_t* ids = index->ids();
            for (uint32_t at = hashId(id) & index->mask; ids[at] != 0; at = (at + 1) & index->mask) {
                if (ids[at] >> 32 == id) return fieldOf(ids[at]);
            }
            return notFound;
        }
    }
    for (uint32_t i = 0; i < content.count; ++i) {
        if (content.field(i).id == id) return i;
    }
    return notFound;
}

void indexLast(Content& content) noexcept {
    FieldIndex* index = content.index.load(std::memory_order_relaxed);
    if (index == nullptr) return;
    if ((index->fields + 1) + (index->fields + 1) / 2 > index->mask + 1) {
        content.dropIndex();  // too full; the next search makes a larger one
        return;
    }
    insert(content, *index, content.count - 1);
}

}  // namespace quorl::message
