#include "database/CppSQLite3Exception.h"

#include <sqlite3.h>

namespace {

// Indexed by result code: SQLite's primary codes 0 (SQLITE_OK) to 25 (SQLITE_RANGE).
const char* const kPrimaryCodeNames[] = {
    "SQLITE_OK",       "SQLITE_ERROR",  "SQLITE_INTERNAL", "SQLITE_PERM",      "SQLITE_ABORT",
    "SQLITE_BUSY",     "SQLITE_LOCKED", "SQLITE_NOMEM",    "SQLITE_READONLY",  "SQLITE_INTERRUPT",
    "SQLITE_IOERR",    "SQLITE_CORRUPT", "SQLITE_NOTFOUND", "SQLITE_FULL",     "SQLITE_CANTOPEN",
    "SQLITE_PROTOCOL", "SQLITE_EMPTY",  "SQLITE_SCHEMA",   "SQLITE_TOOBIG",    "SQLITE_CONSTRAINT",
    "SQLITE_MISMATCH", "SQLITE_MISUSE", "SQLITE_NOLFS",    "SQLITE_AUTH",      "SQLITE_FORMAT",
    "SQLITE_RANGE",
};
constexpr int kPrimaryCodeCount = sizeof(kPrimaryCodeNames) / sizeof(kPrimaryCodeNames[0]);

// The message of an exception whose own message could not be allocated.
constexpr const char* kNoMemoryForMessage = "(out of memory formatting the message)";

}  // namespace

void CppSQLite3Exception::FreeMessage::operator()(char* text) const { sqlite3_free(text); }

CppSQLite3Exception::CppSQLite3Exception(int errorCode, const char* message)
    : code_(errorCode),
      message_(sqlite3_mprintf("%s[%x]: %s", errorCodeAsString(errorCode), errorCode,
                               message != nullptr ? message : "")) {}

CppSQLite3Exception::CppSQLite3Exception(const CppSQLite3Exception& other)
    : std::exception(other),
      code_(other.code_),
      message_(other.message_ ? sqlite3_mprintf("%s", other.message_.get()) : nullptr) {}

CppSQLite3Exception& CppSQLite3Exception::operator=(const CppSQLite3Exception& other) {
  if (this != &other) {
    code_ = other.code_;
    message_.reset(other.message_ ? sqlite3_mprintf("%s", other.message_.get()) : nullptr);
  }
  return *this;
}

CppSQLite3Exception::~CppSQLite3Exception() = default;

const char* CppSQLite3Exception::errorMessage() const {
  return message_ ? message_.get() : kNoMemoryForMessage;
}

const char* CppSQLite3Exception::errorCodeAsString(int errorCode) {
  if (errorCode >= 0 && errorCode < kPrimaryCodeCount) return kPrimaryCodeNames[errorCode];
  switch (errorCode) {
    case SQLITE_ROW:
      return "SQLITE_ROW";
    case SQLITE_DONE:
      return "SQLITE_DONE";
    case CPPSQLITE_ERROR:
      return "CPPSQLITE_ERROR";
    default:
      return "UNKNOWN_ERROR";
  }
}
