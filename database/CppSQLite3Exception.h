// CppSQLite3Exception: the one way a failure leaves the SQLite object layer.
//
// Carries SQLite's result code (or the layer's own code 1000) and a message formatted as
// "<code name>[<code in hex>]: <text>", e.g. "SQLITE_BUSY[5]: database is locked". The text is
// allocated with sqlite3_mprintf and freed with the exception. Immutable once built; safe to read
// from any thread.
#pragma once

#include <exception>
#include <memory>

// The layer's own result code, for misuse of the layer itself ("Database not open", ...).
constexpr int CPPSQLITE_ERROR = 1000;

class CppSQLite3Exception : public std::exception {
 public:
  // Formats the message from the code's name, the code and `message` (null: empty text).
  CppSQLite3Exception(int errorCode, const char* message);
  CppSQLite3Exception(const CppSQLite3Exception& other);
  CppSQLite3Exception& operator=(const CppSQLite3Exception& other);
  ~CppSQLite3Exception() override;

  // The SQLite result code, or CPPSQLITE_ERROR.
  int errorCode() const { return code_; }

  // The formatted message; never null.
  const char* errorMessage() const;

  const char* what() const noexcept override { return errorMessage(); }

  // "SQLITE_OK" ... "SQLITE_DONE" for SQLite's primary result codes, "CPPSQLITE_ERROR" for 1000,
  // "UNKNOWN_ERROR" for everything else.
  static const char* errorCodeAsString(int errorCode);

 private:
  struct FreeMessage {
    void operator()(char* text) const;
  };

  int code_;
  std::unique_ptr<char, FreeMessage> message_;
};
