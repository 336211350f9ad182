#include "database/CppSQLite3Query.h"

#include <sqlite3.h>

#include "database/CppSQLite3Exception.h"

void CppSQLite3Query::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

CppSQLite3Query::CppSQLite3Query(sqlite3_stmt* statement, bool eof)
    : statement_(statement), eof_(eof), fields_(sqlite3_column_count(statement)) {}

CppSQLite3Query::~CppSQLite3Query() = default;

void CppSQLite3Query::checkVM() const {
  if (!statement_) throw CppSQLite3Exception(CPPSQLITE_ERROR, "Null Virtual Machine pointer");
}

bool CppSQLite3Query::eof() const {
  checkVM();
  return eof_;
}

int CppSQLite3Query::numFields() const {
  checkVM();
  return fields_;
}

const char* CppSQLite3Query::fieldValue(int field) const {
  checkVM();
  if (field < 0 || field > fields_ - 1) {
    throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid field index requested");
  }
  return reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), field));
}
