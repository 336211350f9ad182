#include "database/CppSQLite3Table.h"

#include <sqlite3.h>

#include <cstring>

#include "database/CppSQLite3Exception.h"

void CppSQLite3Table::FreeTable::operator()(char** results) const { sqlite3_free_table(results); }

CppSQLite3Table::CppSQLite3Table(char** results, int rows, int fields)
    : results_(results), rows_(rows), fields_(fields) {}

CppSQLite3Table::~CppSQLite3Table() = default;

void CppSQLite3Table::checkResults() const {
  if (!results_) throw CppSQLite3Exception(CPPSQLITE_ERROR, "Null Results pointer");
}

int CppSQLite3Table::numRows() const {
  checkResults();
  return rows_;
}

int CppSQLite3Table::numFields() const {
  checkResults();
  return fields_;
}

void CppSQLite3Table::setRow(int row) {
  checkResults();
  if (row < 0 || row > rows_ - 1) {
    throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid row index requested");
  }
  currentRow_ = row;
}

const char* CppSQLite3Table::fieldValue(int field) const {
  checkResults();
  if (field < 0 || field > fields_ - 1) {
    throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid field index requested");
  }
  // The first fields_ entries are the column names; row r starts at (r + 1) * fields_.
  return results_.get()[(currentRow_ + 1) * fields_ + field];
}

const char* CppSQLite3Table::fieldValue(const char* name) const {
  checkResults();
  if (name != nullptr) {
    for (int field = 0; field < fields_; ++field) {
      if (std::strcmp(name, results_.get()[field]) == 0) return fieldValue(field);
    }
  }
  throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid field name requested");
}
