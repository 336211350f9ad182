#include "database/postgres/PgConnection.h"

#include <libpq-fe.h>

#include <cstdlib>

namespace QuillmarBasebandSDK {
namespace {

constexpr char kConnectionFailure[] = "08";  // SQLSTATE class of connection exceptions

std::string Trimmed(const char* message) {
  std::string text = message != nullptr ? message : "";
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

}  // namespace

PgError::Kind PgError::Classify(const std::string& sqlstate) {
  if (sqlstate == "40001" || sqlstate == "40P01") return Kind::Retry;
  // No code, a connection exception, or the server shutting down: the connection is gone.
  if (sqlstate.empty() || sqlstate.rfind(kConnectionFailure, 0) == 0 ||
      sqlstate.rfind("57P", 0) == 0) {
    return Kind::Reconnect;
  }
  return Kind::Stop;
}

PgRows::PgRows(PGresult* result) : result_(result, PQclear) {}

int PgRows::Count() const { return PQntuples(result_.get()); }

std::optional<std::string> PgRows::Value(int row, int column) const {
  if (PQgetisnull(result_.get(), row, column)) return std::nullopt;
  return std::string(PQgetvalue(result_.get(), row, column));
}

long long PgRows::Number(int row, int column, long long fallback) const {
  const auto value = Value(row, column);
  return value ? std::strtoll(value->c_str(), nullptr, 10) : fallback;
}

PgConnection::PgConnection(const std::string& conninfo)
    : connection_(PQconnectdb(conninfo.c_str())) {
  if (PQstatus(connection_) != CONNECTION_OK) {
    const std::string message = Trimmed(PQerrorMessage(connection_));
    PQfinish(connection_);
    connection_ = nullptr;
    throw PgError(PgError::Kind::Reconnect, "", message);
  }
  // Notices ("relation ... already exists, skipping") are not failures; libpq would print them.
  PQsetNoticeProcessor(
      connection_, [](void*, const char*) {}, nullptr);
}

PgConnection::PgConnection(PgConnection&& other) noexcept : connection_(other.connection_) {
  other.connection_ = nullptr;
}

PgConnection& PgConnection::operator=(PgConnection&& other) noexcept {
  if (this != &other) {
    if (connection_ != nullptr) PQfinish(connection_);
    connection_ = other.connection_;
    other.connection_ = nullptr;
  }
  return *this;
}

PgConnection::~PgConnection() {
  if (connection_ != nullptr) PQfinish(connection_);
}

PgRows PgConnection::Exec(const std::string& sql,
                          const std::vector<std::optional<std::string>>& parameters) {
  std::vector<const char*> values;
  for (const auto& parameter : parameters)
    values.push_back(parameter ? parameter->c_str() : nullptr);
  PGresult* result = PQexecParams(connection_, sql.c_str(), static_cast<int>(values.size()),
                                  nullptr, values.data(), nullptr, nullptr, 0);
  const ExecStatusType status = result != nullptr ? PQresultStatus(result) : PGRES_FATAL_ERROR;
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return PgRows(result);
  const char* code = result != nullptr ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
  const std::string sqlstate = code != nullptr ? code : "";
  const std::string message =
      Trimmed(result != nullptr ? PQresultErrorMessage(result) : PQerrorMessage(connection_));
  PQclear(result);
  const PgError::Kind kind = PQstatus(connection_) == CONNECTION_BAD ? PgError::Kind::Reconnect
                                                                     : PgError::Classify(sqlstate);
  throw PgError(kind, sqlstate, message.empty() ? "the server gave no reason" : message);
}

void PgConnection::Begin() { Exec("BEGIN"); }

void PgConnection::Commit() {
  try {
    Exec("COMMIT");
  } catch (const PgError& error) {
    if (error.GetKind() != PgError::Kind::Reconnect) throw;
    throw PgError(PgError::Kind::InDoubt, error.Sqlstate(),
                  "the connection broke while committing, so whether the change was made is "
                  "unknown: " +
                      std::string(error.what()));
  }
}

void PgConnection::RollbackQuietly() {
  if (connection_ == nullptr || PQstatus(connection_) != CONNECTION_OK) return;
  const PGTransactionStatusType state = PQtransactionStatus(connection_);
  if (state != PQTRANS_INTRANS && state != PQTRANS_INERROR) return;
  PQclear(PQexec(connection_, "ROLLBACK"));
}

bool PgConnection::PrepareAnotherAttempt(const PgError& error, int attempt) {
  if (attempt == kAttempts) return false;
  switch (error.GetKind()) {
    case PgError::Kind::Retry:
      return true;
    case PgError::Kind::Reconnect:
      Reconnect();
      return true;
    default:
      return false;
  }
}

void PgConnection::Reconnect() {
  const auto now = std::chrono::steady_clock::now();
  if (now < nextReconnect_) {
    throw PgError(PgError::Kind::Reconnect, "",
                  "the connection to the server is lost; it could not be made again moments ago");
  }
  PQreset(connection_);
  if (PQstatus(connection_) != CONNECTION_OK) {
    nextReconnect_ = now + kReconnectPause;
    throw PgError(PgError::Kind::Reconnect, "",
                  "the connection to the server is lost and cannot be made again: " +
                      Trimmed(PQerrorMessage(connection_)));
  }
}

}  // namespace QuillmarBasebandSDK
