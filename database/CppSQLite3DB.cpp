#include "database/CppSQLite3DB.h"

#include <sqlite3.h>

#include <cstdlib>
#include <stdexcept>

#include "database/CppSQLite3Exception.h"
#include "framework/platform/DynamicLibrary.h"

namespace {

// Frees an error text that sqlite3_exec or sqlite3_get_table allocated.
struct FreeErrorText {
  void operator()(char* text) const { sqlite3_free(text); }
};
using ErrorText = std::unique_ptr<char, FreeErrorText>;

// Makes sure the SQLite library can be loaded. On Windows sqlite3.dll is delay-loaded, and the
// first call into a missing one would end the process: it is loaded here first, once per process,
// and kept, so that its absence is an error like any other (a std::runtime_error, since a
// CppSQLite3Exception formats its text with the library). Elsewhere it is linked as usual.
void RequireSqliteLibrary() {
#ifdef _WIN32
  struct Loaded {
    std::unique_ptr<Framework::DynamicLibrary> library;
    std::string error;
  };
  static const Loaded loaded = [] {
    Loaded attempt;
    attempt.library = Framework::DynamicLibrary::Open("sqlite3.dll", &attempt.error);
    return attempt;
  }();
  if (!loaded.library) {
    throw std::runtime_error("sqlite3.dll could not be loaded: " + loaded.error);
  }
#endif
}

}  // namespace

void CppSQLite3DB::Close::operator()(sqlite3* handle) const { sqlite3_close(handle); }

CppSQLite3DB::CppSQLite3DB(int busyTimeoutMs) : busyTimeoutMs_(busyTimeoutMs) {}

CppSQLite3DB::~CppSQLite3DB() = default;

void CppSQLite3DB::open(const char* fileName) {
  RequireSqliteLibrary();
  sqlite3* handle = nullptr;
  const int code =
      sqlite3_open_v2(fileName, &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  // SQLite hands out a handle even when opening fails; it must be closed all the same.
  std::unique_ptr<sqlite3, Close> opened(handle);
  if (code != SQLITE_OK) throw CppSQLite3Exception(code, sqlite3_errmsg(handle));
  sqlite3_busy_timeout(opened.get(), busyTimeoutMs_);
  handle_ = std::move(opened);
}

void CppSQLite3DB::close() { handle_.reset(); }

void CppSQLite3DB::setBusyTimeout(int busyTimeoutMs) {
  checkDB();
  busyTimeoutMs_ = busyTimeoutMs;
  sqlite3_busy_timeout(handle_.get(), busyTimeoutMs_);
}

std::string CppSQLite3DB::fileName() const {
  checkDB();
  const char* name = sqlite3_db_filename(handle_.get(), "main");
  return name != nullptr ? name : "";
}

void CppSQLite3DB::checkDB() const {
  if (!handle_) throw CppSQLite3Exception(CPPSQLITE_ERROR, "Database not open");
}

void CppSQLite3DB::throwLastError(int code) const {
  throw CppSQLite3Exception(code, sqlite3_errmsg(handle_.get()));
}

int CppSQLite3DB::execDML(const char* sql) {
  checkDB();
  char* rawError = nullptr;
  const int code = sqlite3_exec(handle_.get(), sql, nullptr, nullptr, &rawError);
  const ErrorText error(rawError);
  if (code != SQLITE_OK) throw CppSQLite3Exception(code, error.get());
  return sqlite3_changes(handle_.get());
}

CppSQLite3Query CppSQLite3DB::execQuery(const char* sql) {
  checkDB();
  sqlite3_stmt* rawStatement = nullptr;
  const int prepared = sqlite3_prepare_v2(handle_.get(), sql, -1, &rawStatement, nullptr);
  if (prepared != SQLITE_OK) throwLastError(prepared);
  // A text without a statement (blank, only a comment) prepares to no statement at all.
  if (rawStatement == nullptr) return CppSQLite3Query(nullptr, true);
  const int stepped = sqlite3_step(rawStatement);
  CppSQLite3Query query(rawStatement, stepped == SQLITE_DONE);
  if (stepped != SQLITE_ROW && stepped != SQLITE_DONE) throwLastError(stepped);
  return query;
}

int CppSQLite3DB::execScalar(const char* sql) {
  CppSQLite3Query query = execQuery(sql);
  if (query.eof() || query.numFields() < 1) {
    throw CppSQLite3Exception(CPPSQLITE_ERROR, "Invalid scalar query");
  }
  const char* value = query.fieldValue(0);
  return value != nullptr ? std::atoi(value) : 0;
}

CppSQLite3Table CppSQLite3DB::getTable(const char* sql) {
  checkDB();
  char** results = nullptr;
  int rows = 0;
  int fields = 0;
  char* rawError = nullptr;
  const int code = sqlite3_get_table(handle_.get(), sql, &results, &rows, &fields, &rawError);
  const ErrorText error(rawError);
  CppSQLite3Table table(results, rows, fields);
  if (code != SQLITE_OK) throw CppSQLite3Exception(code, error.get());
  return table;
}
