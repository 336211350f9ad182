// CppSQLite3Table: the whole result of one query, as sqlite3_get_table returns it.
//
// Owns the result array and frees it with sqlite3_free_table when destroyed (also during stack
// unwinding). Movable, not copyable: one owner per array. A moved-from table has no array and
// throws "Null Results pointer" on use. One thread at a time.
#pragma once

#include <memory>

class CppSQLite3Table {
 public:
  // Takes ownership of `results` (column names first, then rows x fields values).
  CppSQLite3Table(char** results, int rows, int fields);
  CppSQLite3Table(CppSQLite3Table&& other) noexcept = default;
  CppSQLite3Table& operator=(CppSQLite3Table&& other) noexcept = default;
  CppSQLite3Table(const CppSQLite3Table&) = delete;
  CppSQLite3Table& operator=(const CppSQLite3Table&) = delete;
  virtual ~CppSQLite3Table();

  // Number of rows and columns of the result.
  int numRows() const;
  int numFields() const;

  // Makes `row` (0-based) the current row; throws when it is not one of the rows.
  void setRow(int row);

  // The current row's value of column `field` (0-based), null for SQL NULL; throws when out of range.
  const char* fieldValue(int field) const;

  // The current row's value of the column named exactly `name`, null for SQL NULL; throws when
  // no column has that name.
  const char* fieldValue(const char* name) const;

 private:
  struct FreeTable {
    void operator()(char** results) const;
  };

  void checkResults() const;

  std::unique_ptr<char*, FreeTable> results_;
  int rows_;
  int fields_;
  int currentRow_ = 0;
};
