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

void CppSQLite3Query::checkField(int field) const {
  checkVM();
  if (field < 0 || field > fields_ - 1) {
    throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid field index requested");
  }
}

const char* CppSQLite3Query::fieldValue(int field) const {
  checkField(field);
  return reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), field));
}

std::int64_t CppSQLite3Query::getInt64Field(int field) const {
  checkField(field);
  return sqlite3_column_int64(statement_.get(), field);
}

int CppSQLite3Query::fieldIndex(const char* name) const {
  checkVM();
  for (int field = 0; field < fields_; ++field) {
    const char* column = sqlite3_column_name(statement_.get(), field);
    if (column != nullptr && sqlite3_stricmp(column, name) == 0) return field;
  }
  throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid field name requested");
}

void CppSQLite3Query::nextRow() {
  checkVM();
  const int stepped = sqlite3_step(statement_.get());
  eof_ = stepped != SQLITE_ROW;
  if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) {
    throw CppSQLite3Exception(stepped, sqlite3_errmsg(sqlite3_db_handle(statement_.get())));
  }
}
