#include "certified/ledger/database.h"

#include <cerrno>
#include <utility>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/owned_file.h"

namespace quorl::certified {

Database::Database(Database&& other) noexcept
    : connection_(std::exchange(other.connection_, nullptr)), name_(std::move(other.name_)) {}

Database& Database::operator=(Database&& other) noexcept {
    std::swap(connection_, other.connection_);
    std::swap(name_, other.name_);
    return *this;
}

Database::~Database() {
    close();
}

void Database::close() noexcept {
    // Statements that are still there keep the connection as a zombie until they go.
    sqlite3_close_v2(std::exchange(connection_, nullptr));
}

Outcome Database::open(const std::string& name, const std::string& file, int flags, const char* vfs) {
    name_ = name;
    const int code =
        sqlite3_open_v2(file.c_str(), &connection_, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, vfs);
    if (code != SQLITE_OK) return failure(code, "open");
    return {};
}

Outcome Database::execute(const std::string& sql) {
    const int code = sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return failure(code, "use");
    return {};
}

Outcome Database::prepare(const char* sql, Statement* statement) {
    Statement made;
    const int code = sqlite3_prepare_v3(connection_, sql, -1, SQLITE_PREPARE_PERSISTENT, &made.statement_, nullptr);
    if (code != SQLITE_OK) return failure(code, "use");
    *statement = std::move(made);
    return {};
}

Outcome Database::failure(int code, const char* doing) const {
    const std::string which = std::string("cannot ") + doing + " the ledger " + name_ + ": ";
    const int error = connection_ != nullptr ? sqlite3_system_errno(connection_) : 0;
    switch (code & 0xff) {
        case SQLITE_NOMEM:
            return {QUORL_NO_MEMORY, which + "no memory"};
        case SQLITE_FULL:
            return {QUORL_IO_FAILED,
                    which + "the disk is full; what it holds is safe, and it goes on when there is room"};
        case SQLITE_IOERR:
            if (code == SQLITE_IOERR_DATA) {
                return {QUORL_INVALID_FILE, which + "it is damaged: the page at byte " +
                                                std::to_string(damagedPageOffset()) + " has a wrong checksum"};
            }
            if (code == SQLITE_IOERR_NOMEM) return {QUORL_NO_MEMORY, which + "no memory"};
            if (error == ENOSPC || error == EDQUOT) return failure(SQLITE_FULL, doing);
            return {QUORL_IO_FAILED,
                    which + (error != 0 ? systemError(error) : "SQLite says " + std::string(sqlite3_errstr(code)))};
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return {QUORL_INVALID_FILE, which + "it is damaged"};
        case SQLITE_CANTOPEN:
            return {QUORL_IO_FAILED, which + "it, or its log " + name_ + "-wal, cannot be opened" +
                                         (error != 0 ? ": " + systemError(error) : std::string())};
        case SQLITE_TOOBIG:
            return {QUORL_INVALID_SIZE, which + "it takes values of at most 1,000,000,000 bytes"};
        default:
            break;
    }
    return {QUORL_IO_FAILED,
            which + "SQLite says " + (connection_ != nullptr ? sqlite3_errmsg(connection_) : sqlite3_errstr(code))};
}

}  // namespace quorl::certified
