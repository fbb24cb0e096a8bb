#include "gateway/Sqlite.h"

namespace zanthd {

Statement::Statement(sqlite3* db, std::string_view sql) {
    if (db == nullptr) return;
    if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &stmt_, nullptr) !=
        SQLITE_OK) {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
    }
}

Statement::~Statement() { sqlite3_finalize(stmt_); }

Statement::Statement(Statement&& other) noexcept : stmt_(other.stmt_) { other.stmt_ = nullptr; }

Statement& Statement::operator=(Statement&& other) noexcept {
    if (this != &other) {
        sqlite3_finalize(stmt_);
        stmt_ = other.stmt_;
        other.stmt_ = nullptr;
    }
    return *this;
}

Statement& Statement::Bind(int index, int64_t value) {
    if (stmt_) sqlite3_bind_int64(stmt_, index, value);
    return *this;
}

Statement& Statement::Bind(int index, double value) {
    if (stmt_) sqlite3_bind_double(stmt_, index, value);
    return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
    if (stmt_) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }
    return *this;
}

Statement& Statement::BindNull(int index) {
    if (stmt_) sqlite3_bind_null(stmt_, index);
    return *this;
}

int Statement::Step() { return stmt_ ? sqlite3_step(stmt_) : SQLITE_MISUSE; }

bool Statement::Run() {
    int rc = Step();
    Reset();
    return rc == SQLITE_DONE || rc == SQLITE_ROW;
}

void Statement::Reset() {
    if (stmt_) {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
}

int64_t Statement::Int(int column) const { return sqlite3_column_int64(stmt_, column); }

double Statement::Real(int column) const { return sqlite3_column_double(stmt_, column); }

std::string Statement::Text(int column) const {
    const unsigned char* text = sqlite3_column_text(stmt_, column);
    int n = sqlite3_column_bytes(stmt_, column);
    return text ? std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(n))
                : std::string();
}

bool Statement::IsNull(int column) const {
    return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

Database::~Database() { Close(); }

bool Database::Open(const std::string& path, bool readOnly, int busyMs) {
    Close();
    int flags = readOnly ? SQLITE_OPEN_READONLY : (SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    flags |= SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) return false;
    sqlite3_busy_timeout(db_, busyMs);
    sqlite3_extended_result_codes(db_, 1);
    return true;
}

void Database::Close() {
    if (db_) sqlite3_close_v2(db_);
    db_ = nullptr;
}

bool Database::Exec(const char* sql) {
    return db_ && sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string Database::Error() const {
    return db_ ? sqlite3_errmsg(db_) : "no database";
}

}  // namespace zanthd
