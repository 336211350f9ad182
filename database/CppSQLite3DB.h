// CppSQLite3DB: one connection to an SQLite database file.
//
// Owns the sqlite3 handle and closes it when destroyed or closed. Every failure throws
// CppSQLite3Exception (but for a Windows host without sqlite3.dll: std::runtime_error from open);
// nothing returns an error code. Waiting for a file that another connection
// has locked is left to SQLite's busy handler, for up to the busy time-out given at construction.
// Not copyable (one owner per handle). One thread at a time.
#pragma once

#include <memory>
#include <string>

#include "database/CppSQLite3Query.h"
#include "database/CppSQLite3Table.h"

struct sqlite3;

class CppSQLite3DB {
 public:
  // A closed connection that will wait up to `busyTimeoutMs` for a locked file once opened.
  explicit CppSQLite3DB(int busyTimeoutMs);
  CppSQLite3DB(const CppSQLite3DB&) = delete;
  CppSQLite3DB& operator=(const CppSQLite3DB&) = delete;
  virtual ~CppSQLite3DB();

  // Opens `fileName` for reading and writing, creating it when missing, and sets the busy time-out.
  void open(const char* fileName);

  // Closes the handle; a transaction still open is abandoned (rolled back). No-op when closed.
  void close();

  // Waits up to `busyTimeoutMs` for a locked file from now on.
  void setBusyTimeout(int busyTimeoutMs);

  // The full path of the open database file; "" for a temporary or in-memory database.
  std::string fileName() const;

  // Runs every statement of `sql` in order; returns the number of rows the last one changed.
  int execDML(const char* sql);

  // Runs the query `sql` and returns its first field as a signed integer (SQL NULL reads as 0);
  // throws "Invalid scalar query" when it yields no row or no column.
  int execScalar(const char* sql);

  // Runs the query `sql` and returns its whole result.
  CppSQLite3Table getTable(const char* sql);

  // Prepares the query `sql` and steps it to its first row; the rows are then read one by one,
  // without turning each value into text.
  CppSQLite3Query execQuery(const char* sql);

 private:
  struct Close {
    void operator()(sqlite3* handle) const;
  };

  void checkDB() const;
  [[noreturn]] void throwLastError(int code) const;

  std::unique_ptr<sqlite3, Close> handle_;
  int busyTimeoutMs_;
};
