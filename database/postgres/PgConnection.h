// One connection to a PostgreSQL server, through libpq, and the transactions run on it.
//
// Move-only; closes itself. Statements send their values as parameters, never inside the text.
// Every failure is a PgError. One thread at a time.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "database/postgres/PgError.h"

typedef struct pg_conn PGconn;
typedef struct pg_result PGresult;

namespace QuillmarBasebandSDK {

// The rows a statement returned; values as text, null as std::nullopt.
class PgRows {
 public:
  explicit PgRows(PGresult* result);
  int Count() const;
  std::optional<std::string> Value(int row, int column) const;
  // The value as a signed 64-bit number; `fallback` when null.
  long long Number(int row, int column, long long fallback = 0) const;

 private:
  std::unique_ptr<PGresult, void (*)(PGresult*)> result_;
};

class PgConnection {
 public:
  // Connects to `conninfo` (a URI or key=value text). Throws PgError (Reconnect) with libpq's
  // words when the server cannot be reached or refuses the login.
  explicit PgConnection(const std::string& conninfo);
  PgConnection(PgConnection&&) noexcept;
  PgConnection& operator=(PgConnection&&) noexcept;
  ~PgConnection();

  // Runs one statement with `parameters` ($1, $2, ...; std::nullopt is NULL).
  PgRows Exec(const std::string& sql,
              const std::vector<std::optional<std::string>>& parameters = {});

  // Runs `work` inside BEGIN ... COMMIT, and again from BEGIN (up to kAttempts times in all) when
  // it fails with a retryable error or the connection breaks before COMMIT (after reconnecting).
  // A break during COMMIT throws PgError (InDoubt). `work` must read everything it decides on.
  // Never sleeps: a server that cannot be reached fails the call at once.
  template <typename Work>
  auto InTransaction(Work work) -> decltype(work());

  static constexpr int kAttempts = 3;
  // After a failed attempt to reconnect, calls fail at once for this long instead of trying
  // again, so that a caller retrying every frame is not held up by an unreachable server.
  static constexpr std::chrono::milliseconds kReconnectPause{1000};

 private:
  void Begin();
  void Commit();
  // Rolls back an open transaction; a failure to do so is dropped (the first error counts).
  void RollbackQuietly();
  // Whether `error` on attempt number `attempt` allows another; reconnects when it must.
  bool PrepareAnotherAttempt(const PgError& error, int attempt);
  // Connects again; throws PgError (Reconnect) when that fails or failed moments ago.
  void Reconnect();

  PGconn* connection_ = nullptr;
  std::chrono::steady_clock::time_point nextReconnect_{};
};

template <typename Work>
auto PgConnection::InTransaction(Work work) -> decltype(work()) {
  for (int attempt = 1;; ++attempt) {
    try {
      Begin();
      auto result = work();
      Commit();
      return result;
    } catch (const PgError& error) {
      RollbackQuietly();
      if (!PrepareAnotherAttempt(error, attempt)) throw;
    }
  }
}

}  // namespace QuillmarBasebandSDK
