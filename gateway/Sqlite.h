#pragma once
// A thin owner of SQLite handles: a connection, a prepared statement with typed binds and
// columns. Errors come back as false with the database's message; nothing throws.

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zanthd {

class Statement {
  public:
    Statement() = default;
    Statement(sqlite3* db, std::string_view sql);
    ~Statement();
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool Ok() const { return stmt_ != nullptr; }
    Statement& Bind(int index, int64_t value);
    Statement& Bind(int index, double value);
    Statement& Bind(int index, std::string_view text);
    Statement& BindNull(int index);
    // SQLITE_ROW, SQLITE_DONE or an error code.
    int Step();
    // Step to SQLITE_DONE and reset: true when it got there.
    bool Run();
    void Reset();
    int64_t Int(int column) const;
    double Real(int column) const;
    std::string Text(int column) const;
    bool IsNull(int column) const;

  private:
    sqlite3_stmt* stmt_ = nullptr;
};

class Database {
  public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Opens (creating unless readOnly) with a busy time-out; false with Error() set.
    bool Open(const std::string& path, bool readOnly, int busyMs);
    void Close();
    bool Exec(const char* sql);
    Statement Prepare(std::string_view sql) { return Statement(db_, sql); }
    std::string Error() const;
    int ErrorCode() const { return db_ ? sqlite3_errcode(db_) : SQLITE_CANTOPEN; }
    sqlite3* Handle() const { return db_; }

  private:
    sqlite3* db_ = nullptr;
};

}  // namespace zanthd
