// A failure of the PostgreSQL server or of the connection to it, classified by what the caller
// should do about it (by SQLSTATE, never by message text).
#pragma once

#include <stdexcept>
#include <string>

namespace QuillmarBasebandSDK {

class PgError : public std::runtime_error {
 public:
  enum class Kind {
    Retry,      // a serialization failure or deadlock: run the whole transaction again
    Reconnect,  // the connection broke before the change was committed: connect and run it again
    InDoubt,    // the connection broke while committing: the change may or may not have happened
    Stop,       // anything else: the state must be fixed by a person
  };

  PgError(Kind kind, std::string sqlstate, const std::string& message)
      : std::runtime_error(message), kind_(kind), sqlstate_(std::move(sqlstate)) {}

  // The kind of an error the server reported with `sqlstate` ("" when there was none).
  static Kind Classify(const std::string& sqlstate);

  Kind GetKind() const { return kind_; }
  const std::string& Sqlstate() const { return sqlstate_; }

 private:
  Kind kind_;
  std::string sqlstate_;
};

}  // namespace QuillmarBasebandSDK
