// SQLite's trees of pages, as far as a ledger has them: rows of a table in the order of their numbers, and rows of a table without
// numbers in the order of their keys. Read with bounds checked everywhere; what cannot be read is told and passed over.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "certified/ledger/page_file.h"

namespace quorl::certified {

// A value of a row.
struct Value {
    enum class Kind { null, number, bytes };
    Kind kind = Kind::null;
    int64_t number = 0;
    std::string_view bytes;
};

// A row's values, without its number.
bool readRow(std::string_view payload, std::span<Value> values) noexcept;

class Trees {
  public:
    struct Row {
        int64_t number = 0;  // 0 where rows have none
        std::string_view payload;
        const PageFile::Page* page = nullptr;
    };
    // A page of the tree, or what hangs below it, cannot be read: rows of these numbers are not known.
    struct Gap {
        const char* why = "";
        bool inLog = false;
        int64_t offset = 0;
        int64_t first = 0;
        int64_t last = 0;
        bool wholePage = true;   // false: this row alone
        bool wholeTree = false;  // below it are further pages
    };
    struct Reader {
        std::function<void(const Row&)> row;
        std::function<void(const Gap&)> gap;
        std::function<bool()> goOn;  // after each page
    };

    explicit Trees(const PageFile& file) : file_(file), seen_(size_t{file.pages()} + 1) {}

    // false: goOn said so, or the file cannot be read: outcome.
    bool read(uint32_t root, const Reader& reader, Outcome* outcome);
    // Pages to which neither a tree that was read nor the list of free pages leads.
    std::vector<uint32_t> unseen() const;
    // Marks the pages of the list of free pages. false: the list is damaged.
    bool readFreeList(uint64_t* count, Outcome* outcome);
    // The rows of one page that holds rows with numbers; of any other page none.
    void readLeaf(uint32_t number, const std::function<void(const Row&)>& row, Outcome* outcome);

    uint64_t pagesSeen() const noexcept { return pagesSeen_; }

  private:
    struct Cell {
        uint32_t child = 0;
        int64_t number = 0;
        uint64_t payloadSize = 0;
        size_t payloadAt = 0;
    };

    bool see(uint32_t number) noexcept;
    bool descend(uint32_t number, int64_t first, int64_t last, int depth, const Reader& reader, Outcome* outcome);
    bool readCell(const PageFile::Page& page, size_t at, int type, Cell* cell) const noexcept;
    const char* payloadOf(const PageFile::Page& page, const Cell& cell, bool numbered, std::string* scratch,
                          std::string_view* payload, Outcome* outcome);

    const PageFile& file_;
    std::vector<bool> seen_;
    uint64_t pagesSeen_ = 0;
};

}  // namespace quorl::certified
