// SQLite as the ledger uses it: a connection and its statements that go by themselves, and its errors as outcomes.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "certified/ledger/outcome.h"

namespace quorl::certified {

class Statement;

// One thread at a time.
class Database {
  public:
    Database() noexcept = default;
    Database(Database&& other) noexcept;
    Database& operator=(Database&& other) noexcept;
    ~Database();

    // name: as errors call it; file: as SQLite does. vfs: null for SQLite's usual one.
    Outcome open(const std::string& name, const std::string& file, int flags, const char* vfs);
    Outcome execute(const std::string& sql);
    Outcome prepare(const char* sql, Statement* statement);

    // What SQLite's last failure on this connection was.
    Outcome failure(int code, const char* doing) const;
    // Forgets the connection without a word to SQLite, which in a forked child would write to the parent's file.
    void abandon() noexcept { connection_ = nullptr; }
    void close() noexcept;
    sqlite3* connection() const noexcept { return connection_; }

  private:
    sqlite3* connection_ = nullptr;
    std::string name_;
};

// A prepared statement, which is used again and again.
class Statement {
  public:
    Statement() noexcept = default;
    Statement(Statement&& other) noexcept : statement_(other.statement_) { other.statement_ = nullptr; }
    Statement& operator=(Statement&& other) noexcept {
        std::swap(statement_, other.statement_);
        return *this;
    }
    ~Statement() { sqlite3_finalize(statement_); }
    void abandon() noexcept { statement_ = nullptr; }

    // Parameters count from 1. What is bound is not copied: it lasts until reset().
    void bind(int at, int64_t number) noexcept { sqlite3_bind_int64(statement_, at, number); }
    void bindText(int at, std::string_view text) noexcept {
        sqlite3_bind_text64(statement_, at, text.data() != nullptr ? text.data() : "", text.size(), SQLITE_STATIC,
                            SQLITE_UTF8);
    }
    void bindBytes(int at, std::string_view bytes) noexcept {
        sqlite3_bind_blob64(statement_, at, bytes.data() != nullptr ? bytes.data() : "", bytes.size(), SQLITE_STATIC);
    }
    void bindNothing(int at) noexcept { sqlite3_bind_null(statement_, at); }

    int step() noexcept { return sqlite3_step(statement_); }  // SQLITE_ROW, SQLITE_DONE, or a failure
    void reset() noexcept { sqlite3_reset(statement_); }

    // Columns count from 0. Views last until the next step.
    int64_t number(int column) const noexcept { return sqlite3_column_int64(statement_, column); }
    bool isNull(int column) const noexcept { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    bool isNumber(int column) const noexcept { return sqlite3_column_type(statement_, column) == SQLITE_INTEGER; }
    std::string_view bytes(int column) const noexcept {
        const void* at = sqlite3_column_blob(statement_, column);
        const int size = sqlite3_column_bytes(statement_, column);
        return at == nullptr ? std::string_view()
                             : std::string_view(static_cast<const char*>(at), static_cast<size_t>(size));
    }

  private:
    friend class Database;
    sqlite3_stmt* statement_ = nullptr;
};

// Resets a statement at the end of a scope, so that what was bound is not looked at any more.
class [[nodiscard]] Resetting {
  public:
    explicit Resetting(Statement& statement) noexcept : statement_(statement) {}
    ~Resetting() { statement_.reset(); }
    Resetting(const Resetting&) = delete;
    Resetting& operator=(const Resetting&) = delete;

  private:
    Statement& statement_;
};

}  // namespace quorl::certified
