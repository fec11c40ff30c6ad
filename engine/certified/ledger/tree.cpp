#include "certified/ledger/tree.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "certified/ledger/checked_pages.h"

namespace quorl::certified {
namespace {

constexpr size_t usable = format::pageSize - pageReserve;
constexpr int deepest = 30;

// Kinds of pages.
enum : int { innerKeyed = 2, innerNumbered = 5, leafKeyed = 10, leafNumbered = 13 };

uint32_t two(const unsigned char* at) noexcept {
    return uint32_t{at[0]} << 8 | at[1];
}
uint32_t four(const unsigned char* at) noexcept {
    return two(at) << 16 | two(at + 2);
}

// A number of 1 to 9 bytes, seven bits in each but the ninth. Its length; 0: it does not end before the end.
size_t readVarint(const unsigned char* at, const unsigned char* end, uint64_t* number) noexcept {
    uint64_t value = 0;
    for (size_t i = 0; i < 9 && at + i < end; ++i) {
        if (i == 8) {
            *number = value << 8 | at[i];
            return 9;
        }
        value = value << 7 | (at[i] & 0x7f);
        if ((at[i] & 0x80) == 0) {
            *number = value;
            return i + 1;
        }
    }
    return 0;
}

size_t headerOf(uint32_t number) noexcept {
    return number == 1 ? 100 : 0;  // the file's own header comes first
}

}  // namespace

bool readRow(std::string_view payload, std::span<Value> values) noexcept {
    const auto* const begin = reinterpret_cast<const unsigned char*>(payload.data());
    const auto* const end = begin + payload.size();
    uint64_t headerSize = 0;
    size_t at = readVarint(begin, end, &headerSize);
    if (at == 0 || headerSize > payload.size()) return false;
    uint64_t body = headerSize;
    for (Value& value : values) {
        uint64_t type = 0;
        const size_t length = readVarint(begin + at, begin + headerSize, &type);
        if (length == 0) return false;
        at += length;
        static constexpr uint8_t widths[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
        const uint64_t size = type < 12 ? widths[type] : (type - 12) / 2;
        if (size > payload.size() - body) return false;
        value = {};
        if (type >= 12) {
            value.kind = Value::Kind::bytes;
            value.bytes = payload.substr(body, size);
        } else if (type >= 1 && type <= 9 && type != 7) {
            value.kind = Value::Kind::number;
            uint64_t number = type == 9 ? 1 : 0;
            if (size != 0 && (begin[body] & 0x80) != 0) number = ~uint64_t{0};
            for (uint64_t i = 0; i < size; ++i) number = number << 8 | begin[body + i];
            value.number = static_cast<int64_t>(number);
        } else if (type != 0) {
            return false;
        }
        body += size;
    }
    return true;
}

bool Trees::see(uint32_t number) noexcept {
    if (number == 0 || number >= seen_.size() || seen_[number]) return false;
    seen_[number] = true;
    ++pagesSeen_;
    return true;
}

bool Trees::read(uint32_t root, const Reader& reader, Outcome* outcome) {
    return descend(root, INT64_MIN, INT64_MAX, 0, reader, outcome);
}

bool Trees::descend(uint32_t number, int64_t first, int64_t last, int depth, const Reader& reader, Outcome* outcome) {
    const auto page = std::make_unique<PageFile::Page>();
    const auto gap = [&](const char* why, bool wholeTree) {
        reader.gap({.why = why,
                    .inLog = page->inLog,
                    .offset = page->offset,
                    .first = first,
                    .last = last,
                    .wholeTree = wholeTree});
        return reader.goOn();
    };
    page->offset = int64_t{number} * format::pageSize - format::pageSize;
    if (!see(number)) return gap("is led to twice, or is not there", true);
    *outcome = file_.read(number, page.get());
    if (!outcome->ok()) return false;
    if (!page->intact) return gap("has a wrong checksum", true);
    const size_t header = headerOf(number);
    const int type = page->bytes[header];
    const bool inner = type == innerKeyed || type == innerNumbered;
    const bool numbered = type == innerNumbered || type == leafNumbered;
    if (depth > deepest || (!inner && type != leafKeyed && type != leafNumbered))
        return gap("is no page of a tree", true);
    const size_t cells = header + (inner ? 12 : 8);
    const size_t count = two(page->bytes + header + 3);
    if (cells + 2 * count > usable) return gap("counts more rows than it has room for", inner);

    std::string scratch;
    int64_t next = first;
    for (size_t i = 0; i < count; ++i) {
        Cell cell;
        const size_t at = two(page->bytes + cells + 2 * i);
        const bool whole = readCell(*page, at, type, &cell);
        if (!whole || (numbered && (cell.number < next || cell.number > last))) {
            first = next;
            return gap("has rows that make no sense", inner);
        }
        if (inner && !descend(cell.child, next, numbered ? cell.number : last, depth + 1, reader, outcome))
            return false;
        if (type != innerNumbered) {
            std::string_view payload;
            if (const char* why = payloadOf(*page, cell, numbered, &scratch, &payload, outcome)) {
                if (!outcome->ok()) return false;
                reader.gap({.why = why,
                            .inLog = page->inLog,
                            .offset = page->offset,
                            .first = numbered ? cell.number : first,
                            .last = numbered ? cell.number : last,
                            .wholePage = false});
            } else {
                reader.row({.number = cell.number, .payload = payload, .page = page.get()});
            }
        }
        if (numbered) {
            if (cell.number == INT64_MAX) break;
            next = cell.number + 1;
        }
    }
    if (inner && !descend(four(page->bytes + header + 8), next, last, depth + 1, reader, outcome)) return false;
    return reader.goOn();
}

bool Trees::readCell(const PageFile::Page& page, size_t at, int type, Cell* cell) const noexcept {
    const unsigned char* const end = page.bytes + usable;
    const unsigned char* here = page.bytes + at;
    if (at < 8 || at + 4 > usable) return false;
    if (type == innerKeyed || type == innerNumbered) {
        cell->child = four(here);
        here += 4;
    }
    if (type != innerNumbered) {
        const size_t length = readVarint(here, end, &cell->payloadSize);
        if (length == 0) return false;
        here += length;
    }
    if (type == innerNumbered || type == leafNumbered) {
        uint64_t number = 0;
        const size_t length = readVarint(here, end, &number);
        if (length == 0) return false;
        cell->number = static_cast<int64_t>(number);
        here += length;
    }
    cell->payloadAt = static_cast<size_t>(here - page.bytes);
    return true;
}

// Null, or why it cannot be had.
const char* Trees::payloadOf(const PageFile::Page& page, const Cell& cell, bool numbered, std::string* scratch,
                             std::string_view* payload, Outcome* outcome) {
    constexpr uint64_t largest = 1'000'000'000;
    const uint64_t most = numbered ? usable - 35 : (usable - 12) * 64 / 255 - 23;
    const uint64_t least = (usable - 12) * 32 / 255 - 23;
    const uint64_t size = cell.payloadSize;
    if (size > largest) return "has a row that makes no sense";
    uint64_t local = size;
    if (size > most) {
        local = least + (size - least) % (usable - 4);
        if (local > most) local = least;
    }
    const bool overflows = local < size;
    if (cell.payloadAt + local + (overflows ? 4 : 0) > usable) return "has a row that makes no sense";
    const auto* const bytes = reinterpret_cast<const char*>(page.bytes + cell.payloadAt);
    *payload = {bytes, local};
    if (!overflows) return nullptr;
    scratch->assign(bytes, local);
    uint32_t next = four(page.bytes + cell.payloadAt + local);
    const auto further = std::make_unique<PageFile::Page>();
    while (scratch->size() < size) {
        if (!see(next)) return "has a row whose further pages cannot be found";
        *outcome = file_.read(next, further.get());
        if (!outcome->ok()) return "";
        if (!further->intact) return "has a row one of whose further pages has a wrong checksum";
        scratch->append(reinterpret_cast<const char*>(further->bytes + 4),
                        std::min<uint64_t>(usable - 4, size - scratch->size()));
        next = four(further->bytes);
    }
    *payload = *scratch;
    return nullptr;
}

bool Trees::readFreeList(uint64_t* count, Outcome* outcome) {
    const auto page = std::make_unique<PageFile::Page>();
    *outcome = file_.read(1, page.get());
    if (!outcome->ok() || !page->intact) return false;
    const uint32_t promised = four(page->bytes + 36);
    uint32_t trunk = four(page->bytes + 32);
    *count = 0;
    while (trunk != 0) {
        if (!see(trunk)) return false;
        ++*count;
        *outcome = file_.read(trunk, page.get());
        const uint32_t leaves = four(page->bytes + 4);
        if (!outcome->ok() || !page->intact || leaves > usable / 4 - 2) return false;
        for (uint32_t i = 0; i < leaves; ++i) {
            if (!see(four(page->bytes + 8 + size_t{4} * i))) return false;
            ++*count;
        }
        trunk = four(page->bytes);
    }
    return *count == promised;
}

std::vector<uint32_t> Trees::unseen() const {
    std::vector<uint32_t> found;
    for (uint32_t number = 1; number < seen_.size(); ++number) {
        if (!seen_[number]) found.push_back(number);
    }
    return found;
}

void Trees::readLeaf(uint32_t number, const std::function<void(const Row&)>& row, Outcome* outcome) {
    const auto page = std::make_unique<PageFile::Page>();
    *outcome = file_.read(number, page.get());
    if (!outcome->ok() || !page->intact || number == 1 || page->bytes[0] != leafNumbered) return;
    const size_t count = two(page->bytes + 3);
    if (8 + 2 * count > usable) return;
    std::string scratch;
    for (size_t i = 0; i < count; ++i) {
        Cell cell;
        std::string_view payload;
        if (readCell(*page, two(page->bytes + 8 + 2 * i), leafNumbered, &cell) &&
            payloadOf(*page, cell, true, &scratch, &payload, outcome) == nullptr) {
            row({.number = cell.number, .payload = payload, .page = page.get()});
        }
    }
}

}  // namespace quorl::certified
