#include "SqliteDatabase.h"

#include "CoException.h"
#include "CoMsg.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;

SqliteDatabase::SqliteDatabase(const std::string& path) : path_(path) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &handle_, flags, nullptr) != SQLITE_OK) {
        const std::string reason = handle_ != nullptr ? sqlite3_errmsg(handle_) : "out of memory";
        sqlite3_close(handle_);
        throw CoException(coFormat("Cannot open database '%s': %s", path.c_str(), reason.c_str()));
    }
    try {
        // With the write-ahead log, FULL is what makes each commit wait for the disk.
        execute("PRAGMA journal_mode=WAL");
        execute("PRAGMA synchronous=FULL");
    } catch (...) {
        sqlite3_close(handle_);
        throw;
    }
}

SqliteDatabase::~SqliteDatabase() {
    for (auto& [sql, statements] : prepared_) {
        for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
    }
    sqlite3_close(handle_);
}

void SqliteDatabase::execute(const char* sql) {
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail("use");
}

std::int64_t SqliteDatabase::lastInsertId() const {
    return sqlite3_last_insert_rowid(handle_);
}

void SqliteDatabase::fail(const char* attempted) const {
    throw CoException(
        coFormat("Cannot %s database '%s': %s", attempted, path_.c_str(), sqlite3_errmsg(handle_)));
}

bool SqliteDatabase::couldNotWrite() const {
    const int code = sqlite3_extended_errcode(handle_);
    return code == SQLITE_FULL || code == SQLITE_IOERR_WRITE;
}

sqlite3_stmt* SqliteDatabase::take(const char* sql) {
    std::vector<sqlite3_stmt*>& atRest = prepared_[sql];
    if (!atRest.empty()) {
        sqlite3_stmt* statement = atRest.back();
        atRest.pop_back();
        return statement;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(handle_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK)
        fail("query");
    return statement;
}

void SqliteDatabase::giveBack(const char* sql, sqlite3_stmt* statement) {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    prepared_[sql].push_back(statement);
}

SqliteQuery::SqliteQuery(SqliteDatabase& database, const char* sql)
    : database_(database), sql_(sql), statement_(database.take(sql)) {}

SqliteQuery::~SqliteQuery() {
    database_.giveBack(sql_, statement_);
}

void SqliteQuery::check(int code) {
    if (code != SQLITE_OK) database_.fail("query");
}

SqliteQuery& SqliteQuery::number(std::int64_t value) {
    check(sqlite3_bind_int64(statement_, ++bound_, value));
    return *this;
}

SqliteQuery& SqliteQuery::text(std::string_view value) {
    check(sqlite3_bind_text64(statement_, ++bound_, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

SqliteQuery& SqliteQuery::bytes(std::string_view value) {
    // A null address would bind NULL instead of an empty value.
    const char* data = value.empty() ? "" : value.data();
    check(sqlite3_bind_blob64(statement_, ++bound_, data, value.size(), SQLITE_STATIC));
    return *this;
}

bool SqliteQuery::step() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) database_.fail("use");
    return code == SQLITE_ROW;
}

std::int64_t SqliteQuery::numberAt(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string SqliteQuery::bytesAt(int column) const {
    const void* data = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return data == nullptr ? std::string()
                           : std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& database) : database_(database) {
    database_.execute("BEGIN IMMEDIATE");
}

SqliteTransaction::~SqliteTransaction() {
    if (!open_) return;
    try {
        database_.execute("ROLLBACK");
    } catch (const CoException& error) {
        // A failed statement may have rolled back already; then there is nothing left to undo.
        CO_MSG_DEBUG("%s", error.what());
    }
}

void SqliteTransaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

}  // namespace vantreld
