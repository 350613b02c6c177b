#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vantreld {

/// One connection to an SQLite database file. Every failure throws CoException with what was attempted and
/// SQLite's reason. Not thread-safe: its owner serialises the calls.
class SqliteDatabase {
  public:
    /// Opens the file, creating it when it is not there. A committed change survives a crash of the machine.
    explicit SqliteDatabase(const std::string& path);
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;
    ~SqliteDatabase();

    /// Runs statements that give no rows.
    void execute(const char* sql);

    /// Row id of the last insertion.
    std::int64_t lastInsertId() const;

    [[noreturn]] void fail(const char* attempted) const;
    /// Whether the last failure was the disk's taking no more bytes. A commit that failed so is not on disk.
    bool couldNotWrite() const;

  private:
    friend class SqliteQuery;
    sqlite3_stmt* take(const char* sql);
    void giveBack(const char* sql, sqlite3_stmt* statement);

    std::string path_;
    sqlite3* handle_ = nullptr;
    // Prepared statements at rest, by the address of their text, which is a literal.
    std::unordered_map<const char*, std::vector<sqlite3_stmt*>> prepared_;
};

/// One use of a statement: bind the parameters in order, then step. `sql` must be a literal.
class SqliteQuery {
  public:
    SqliteQuery(SqliteDatabase& database, const char* sql);
    SqliteQuery(const SqliteQuery&) = delete;
    SqliteQuery& operator=(const SqliteQuery&) = delete;
    ~SqliteQuery();

    /// Binds the next parameter. Texts are ASCII; bytes are kept as they are and must outlive the query.
    SqliteQuery& number(std::int64_t value);
    SqliteQuery& text(std::string_view value);
    SqliteQuery& bytes(std::string_view value);

    /// Moves to the next row; false when there is none left.
    bool step();
    /// Runs a statement that gives no rows.
    void run() { step(); }

    std::int64_t numberAt(int column) const;
    std::string bytesAt(int column) const;

  private:
    void check(int code);

    SqliteDatabase& database_;
    const char* sql_;
    sqlite3_stmt* statement_;
    int bound_ = 0;
};

/// Groups changes: all of them are kept by commit(), none of them without it.
class SqliteTransaction {
  public:
    explicit SqliteTransaction(SqliteDatabase& database);
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    ~SqliteTransaction();

    /// On disk when it returns.
    void commit();

  private:
    SqliteDatabase& database_;
    bool open_ = true;
};

}  // namespace vantreld
