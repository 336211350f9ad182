// CppSQLite3Query: a prepared statement stepped to its first row, then row by row.
//
// Owns the statement and finalises it when destroyed. Movable, not copyable; a moved-from query
// throws "Null Virtual Machine pointer" on use. Made by CppSQLite3DB::execQuery; one thread at a
// time.
#pragma once

#include <cstdint>
#include <memory>

struct sqlite3_stmt;

class CppSQLite3Query {
 public:
  // Takes ownership of `statement`, already stepped once; `eof` says that it yielded no row.
  CppSQLite3Query(sqlite3_stmt* statement, bool eof);
  CppSQLite3Query(CppSQLite3Query&& other) noexcept = default;
  CppSQLite3Query& operator=(CppSQLite3Query&& other) noexcept = default;
  CppSQLite3Query(const CppSQLite3Query&) = delete;
  CppSQLite3Query& operator=(const CppSQLite3Query&) = delete;
  virtual ~CppSQLite3Query();

  // True when the statement yielded no row.
  bool eof() const;

  // Number of columns of the result.
  int numFields() const;

  // The current row's value of column `field` (0-based), null for SQL NULL; throws when out of range.
  const char* fieldValue(int field) const;

  // The current row's value of column `field` as a 64-bit integer, converted as SQLite converts
  // (SQL NULL reads as 0); throws when out of range.
  std::int64_t getInt64Field(int field) const;

  // The index of the column named `name`; throws "Invalid field name requested" when none is.
  int fieldIndex(const char* name) const;

  // Steps to the next row; eof() then says whether there was none.
  void nextRow();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };

  void checkVM() const;
  void checkField(int field) const;

  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  bool eof_;
  int fields_;
};
