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
constexpr uint64_t idCellOf(uint16_t id, uint32_t field) noexcept {
    return uint64_t{id} << 32 | (field + 1);
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
        while (ids[at] != 0 && ids[at] >> 32 != field.id) at = (at + 1) & index.mask;
        if (ids[at] == 0) ids[at] = idCellOf(field.id, number);
    }
    ++index.fields;
}

// ---- taking a field out -----------------------------------------------------------------------------------------

// One of the two tables, and how a cell's first place in it is found.
struct Table {
    uint64_t* cells;
    uint32_t mask;

    // The place of that cell, looked for from its first place on; notFound.
    uint32_t find(uint64_t cell, uint32_t first) const noexcept {
        for (uint32_t at = first & mask; cells[at] != 0; at = (at + 1) & mask) {
            if (cells[at] == cell) return at;
        }
        return notFound;
    }

    // Empties a place. Cells behind it that a search would no longer reach move up.
    template <class FirstPlace>
    void erase(uint32_t place, FirstPlace firstPlaceOf) const noexcept {
        for (uint32_t at = (place + 1) & mask; cells[at] != 0; at = (at + 1) & mask) {
            const uint32_t first = firstPlaceOf(cells[at]) & mask;
            if (((at - first) & mask) < ((at - place) & mask)) continue;
            cells[place] = cells[at];
            place = at;
        }
        cells[place] = 0;
    }
};

uint32_t findIdFrom(const Content& content, uint16_t id, uint32_t from) noexcept {
    for (uint32_t i = from; i < content.count; ++i) {
        if (content.field(i).id == id) return i;
    }
    return notFound;
}

// The field goes: its name's cell becomes that of the next field with the name, if there is one.
void removeName(const Content& content, const Table& names, uint32_t number) noexcept {
    const Field& field = content.field(number);
    const uint64_t hash = hashOf(content, field);
    const uint32_t place = names.find(cellOf(hash, number), static_cast<uint32_t>(hash));
    if (place == notFound) return;  // not the first of its name
    const uint32_t next = findNameFrom(content, content.nameOf(field), number + 1);
    if (next != notFound) {
        names.cells[place] = cellOf(hash, next);
    } else {
        names.erase(
            place, [&](uint64_t cell) { return static_cast<uint32_t>(hashOf(content, content.field(fieldOf(cell)))); });
    }
}

void removeId(const Content& content, const Table& ids, uint32_t number) noexcept {
    const uint16_t id = content.field(number).id;
    if (id == 0) return;
    const uint32_t place = ids.find(idCellOf(id, number), hashId(id));
    if (place == notFound) return;
    const uint32_t next = findIdFrom(content, id, number + 1);
    if (next != notFound) {
        ids.cells[place] = idCellOf(id, next);
    } else {
        ids.erase(place, [](uint64_t cell) { return hashId(static_cast<uint16_t>(cell >> 32)); });
    }
}

// The fields behind number count one less. A few are looked up one by one; for many, both tables are gone through.
void renumberBehind(const Content& content, const FieldIndex& index, const Table& names, const Table& ids,
                    uint32_t number) noexcept {
    const uint32_t behind = content.count - number - 1;
    if (behind < index.mask / 8) {
        for (uint32_t i = number + 1; i < content.count; ++i) {
            const Field& field = content.field(i);
            const uint64_t hash = hashOf(content, field);
            uint32_t place = names.find(cellOf(hash, i), static_cast<uint32_t>(hash));
            if (place != notFound) --names.cells[place];
            if (field.id == 0) continue;
            place = ids.find(idCellOf(field.id, i), hashId(field.id));
            if (place != notFound) --ids.cells[place];
        }
        return;
    }
    const uint32_t removed = number + 1;  // as it stands in a cell
    for (const Table& table : {names, ids}) {
        for (uint32_t at = 0; at <= table.mask; ++at) {
            table.cells[at] -= static_cast<uint32_t>(table.cells[at]) > removed ? 1 : 0;
        }
    }
}

// What the search for instances remembers, without field number.
uint64_t lastInstanceWithout(const Content& content, uint64_t last, uint32_t number) noexcept {
    if (last == 0) return 0;
    const auto found = static_cast<uint32_t>(last);
    if (found < number) return last;
    const Field& field = content.field(number);
    if (found > number) {
        const bool counted = sameName(content, content.field(found), content.nameOf(field));
        return last - 1 - (counted ? uint64_t{1} << 32 : 0);
    }
    // The instance before it, so that instances can be removed one after the other from the last one on.
    const auto instance = static_cast<uint32_t>(last >> 32);
    if (instance == 1) return 0;
    for (uint32_t i = number; i-- > 0;) {
        if (sameName(content, content.field(i), content.nameOf(field))) return uint64_t{instance - 1} << 32 | i;
    }
    return 0;
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
    return findIdFrom(content, id, 0);
}

void indexWithout(Content& content, uint32_t number) noexcept {
    FieldIndex* index = content.index.load(std::memory_order_relaxed);
    if (index == nullptr) return;
    const Table names{index->names(), index->mask};
    const Table ids{index->ids(), index->mask};
    const uint64_t last = index->lastInstance.load(std::memory_order_relaxed);
    index->lastInstance.store(lastInstanceWithout(content, last, number), std::memory_order_relaxed);
    removeName(content, names, number);
    removeId(content, ids, number);
    renumberBehind(content, *index, names, ids, number);
    --index->fields;
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
