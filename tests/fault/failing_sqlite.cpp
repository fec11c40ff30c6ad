// SQLite's memory, with its size in front of each block.
#include "failing_sqlite.h"

#include <sqlite3.h>

#include <cstdlib>

#include "failing_allocator.h"

namespace quorltest {
namespace {

constexpr size_t head = 16;
void* sqliteMalloc(int size) {
    auto* const block = static_cast<char*>(tryMalloc(static_cast<size_t>(size) + head));
    if (block == nullptr) return nullptr;
    *reinterpret_cast<int*>(block) = size;
    return block + head;
}
void sqliteFree(void* memory) {
    std::free(static_cast<char*>(memory) - head);
}
void* sqliteRealloc(void* memory, int size) {
    auto* const block =
        static_cast<char*>(tryRealloc(static_cast<char*>(memory) - head, static_cast<size_t>(size) + head));
    if (block == nullptr) return nullptr;
    *reinterpret_cast<int*>(block) = size;
    return block + head;
}
int sqliteSize(void* memory) {
    return memory == nullptr ? 0 : *reinterpret_cast<int*>(static_cast<char*>(memory) - head);
}
int sqliteRoundUp(int size) {
    return (size + 7) & ~7;
}
int sqliteInit(void*) {
    return SQLITE_OK;
}
void sqliteShutdown(void*) {}

constexpr sqlite3_mem_methods methods = {sqliteMalloc,  sqliteFree, sqliteRealloc,  sqliteSize,
                                         sqliteRoundUp, sqliteInit, sqliteShutdown, nullptr};

}  // namespace

bool failSqliteToo() {
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) == SQLITE_OK &&
           sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0) == SQLITE_OK;
}

}  // namespace quorltest
