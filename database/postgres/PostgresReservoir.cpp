#include "database/postgres/PostgresReservoir.h"

#include <boost/format.hpp>
#include <cmath>
#include <regex>

#include "database/EmbedderDatabaseV2.h"
#include "database/SlotSelection.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"
#include "database/postgres/PgConnection.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::Logger;

constexpr char kToleranceParameter[] = "quillmar_clock_tolerance";
// Serialises the making of the table by embedders that start together.
constexpr char kSchemaLock[] = "SELECT pg_advisory_xact_lock(7346151)";
constexpr char kCreateTable[] =
    "CREATE TABLE IF NOT EXISTS quillmar_time_slots ("
    "position bigserial NOT NULL, cid bigint PRIMARY KEY, allocated_till timestamptz NOT NULL, "
    "locked_till timestamptz)";
// Times travel as whole milliseconds since 1970, as the SYSTEMTIMEs they stand for hold them.
constexpr char kNow[] =
    "SELECT (extract(epoch from date_trunc('milliseconds', clock_timestamp())) "
    "* 1000)::bigint";
constexpr char kAddCids[] =
    "INSERT INTO quillmar_time_slots (cid, allocated_till) "
    "SELECT c, date_trunc('milliseconds', clock_timestamp()) "
    "FROM unnest($1::bigint[]) WITH ORDINALITY AS t(c, n) ORDER BY n ON CONFLICT (cid) DO NOTHING";
constexpr char kColumns[] =
    "cid, (extract(epoch from allocated_till) * 1000)::bigint, "
    "(extract(epoch from locked_till) * 1000)::bigint";
constexpr char kUpdate[] =
    "UPDATE quillmar_time_slots SET "
    "allocated_till = timestamptz 'epoch' + $2::bigint * interval '1 millisecond', "
    "locked_till = timestamptz 'epoch' + $3::bigint * interval '1 millisecond' WHERE cid = $1";
constexpr std::int64_t kUnixEpochMilliseconds = 11'644'473'600'000;  // 1601 to 1970

std::int64_t Milliseconds(const SYSTEMTIME& time) {
  return static_cast<std::int64_t>(TimeTicks::FromSystemTime(time) /
                                   TimeTicks::kTicksPerMillisecond) -
         kUnixEpochMilliseconds;
}

SYSTEMTIME TimeOf(std::int64_t milliseconds) {
  return TimeTicks::ToSystemTime(static_cast<std::uint64_t>(milliseconds + kUnixEpochMilliseconds) *
                                 TimeTicks::kTicksPerMillisecond);
}

// The end of a lease of `seconds` from `now`; the zero time (no lease) for less than a second.
SYSTEMTIME LeaseEnd(const SYSTEMTIME& now, int seconds) {
  return seconds >= 1 ? TimeTicks::AddSeconds(now, seconds) : TimeTicks::Zero();
}

// A lease end as stored: none for the zero time.
std::optional<std::string> LeaseValue(const SYSTEMTIME& lockedTill) {
  if (TimeTicks::FromSystemTime(lockedTill) == 0) return std::nullopt;
  return std::to_string(Milliseconds(lockedTill));
}

template <typename Cids>
std::string ArrayOf(const Cids& cids) {
  std::string text = "{";
  for (const unsigned cid : cids) text += (text.size() > 1 ? "," : "") + std::to_string(cid);
  return text + "}";
}

std::vector<CID_Timestamp_Lock_Record> RecordsOf(const PgRows& rows) {
  std::vector<CID_Timestamp_Lock_Record> records(static_cast<std::size_t>(rows.Count()));
  for (int row = 0; row < rows.Count(); ++row) {
    CID_Timestamp_Lock_Record& record = records[static_cast<std::size_t>(row)];
    record.CID = static_cast<std::uint32_t>(rows.Number(row, 0));
    record.Timestamp = TimeOf(rows.Number(row, 1));
    record.LockedTill = rows.Value(row, 2) ? TimeOf(rows.Number(row, 2)) : TimeTicks::Zero();
  }
  return records;
}

SYSTEMTIME ServerNow(PgConnection& connection) {
  return TimeOf(connection.Exec(kNow).Number(0, 0));
}

void WriteRecord(PgConnection& connection, const CID_Timestamp_Lock_Record& record) {
  LogRowUpdate(record);
  connection.Exec(kUpdate,
                  {std::to_string(record.CID), std::to_string(Milliseconds(record.Timestamp)),
                   LeaseValue(record.LockedTill)});
  Logger::Info("Updating database OK");
}

// What libpq is given, and the clock tolerance the location asks for.
std::string ConnectionText(const std::string& location, double& tolerance) {
  static const std::regex parameter(std::string("([?&])") + kToleranceParameter + "=([^&]*)&?");
  std::smatch match;
  tolerance = PostgresReservoir::kDefaultClockToleranceSeconds;
  if (!std::regex_search(location, match, parameter)) return location;
  tolerance = std::strtod(match[2].str().c_str(), nullptr);
  std::string text = match.prefix().str() + match[1].str() + match.suffix().str();
  while (!text.empty() && (text.back() == '&' || text.back() == '?')) text.pop_back();
  return text;
}

// "" when the host's clock and the server's agree within `tolerance`; else why not.
std::string ClockDisagreement(PgConnection& connection, double tolerance) {
  const double difference =
      static_cast<double>(Milliseconds(UtcClock::Now()) - Milliseconds(ServerNow(connection))) /
      1000.0;
  if (std::fabs(difference) <= tolerance) return "";
  return (boost::format("the host's clock is %.3f s %s the database server's; at most %g s is "
                        "allowed, since the host stamps its video with its own clock") %
          std::fabs(difference) % (difference > 0 ? "ahead of" : "behind") % tolerance)
      .str();
}

}  // namespace

std::string PostgresReservoir::Printable(const std::string& location) {
  static const std::regex password(R"((://[^:/@]*):[^@/]*@)");
  static const std::regex passwordParameter(R"(([?&]password=)[^&]*)");
  return std::regex_replace(std::regex_replace(location, password, "$1:***@"), passwordParameter,
                            "$1***");
}

struct PostgresReservoir::HeldRow {
  CID_Timestamp_Lock_Record record;
  bool missing = false;
};

PostgresReservoir::PostgresReservoir() = default;

PostgresReservoir::~PostgresReservoir() { FinalizeLeftOverLease(); }

void PostgresReservoir::ResetLockState() {
  inDoubt_.reset();
  TimeSlotReservoir::ResetLockState();
}

bool PostgresReservoir::CheckDatabaseExists() { return connection_ != nullptr; }

std::string PostgresReservoir::SqlErrorText(const char* operation,
                                            const std::exception& error) const {
  const auto* failure = dynamic_cast<const PgError*>(&error);
  const std::string code = failure != nullptr ? failure->Sqlstate() : "";
  return std::string("PostgresReservoir::") + operation + " failed for " + Printable(location_) +
         (code.empty() ? std::string(": ") : "; SQLSTATE " + code + ": ") + error.what();
}

bool PostgresReservoir::Init(const char* path, const std::list<unsigned>& cids, std::string& err) {
  const std::string location = path != nullptr ? path : "";
  configuredCids_ = cids;
  err.clear();
  ResetLockState();
  if (location_.empty()) {
    location_ = location;
  } else if (location_ != location) {
    err = "EmbedderDatabaseV2::Init failed: shared database name mismatch " + Printable(location) +
          " and " + Printable(location_);
    return false;
  }
  double tolerance = kDefaultClockToleranceSeconds;
  const std::string connectionText = ConnectionText(location_, tolerance);
  try {
    if (connection_ == nullptr) connection_ = std::make_unique<PgConnection>(connectionText);
    const std::string disagreement = ClockDisagreement(*connection_, tolerance);
    if (!disagreement.empty()) {
      err = "PostgresReservoir::Init refused " + Printable(location_) + ": " + disagreement;
      connection_.reset();
      return false;
    }
    connection_->InTransaction([&] {
      connection_->Exec(kSchemaLock);
      connection_->Exec(kCreateTable);
      connection_->Exec(kAddCids, {ArrayOf(configuredCids_)});
      return true;
    });
    return true;
  } catch (const std::exception& error) {
    connection_.reset();
    err = SqlErrorText("Init", error);
    return false;
  }
}

bool PostgresReservoir::AllocateEmbeddingTimeslot(std::vector<unsigned> cids, int durationSeconds,
                                                  unsigned& cid, SYSTEMTIME& start,
                                                  std::string& err, int lockSeconds) {
  err.clear();
  if (!CheckDatabaseExists() || cids.empty() || durationSeconds < 0) {
    err = std::string("EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:") +
          (CheckDatabaseExists() ? "Database exists; " : "Database does not exist; ") +
          "Number of CIDs from program: " + std::to_string(cids.size()) + " ; embDurationSeconds " +
          std::to_string(durationSeconds);
    return false;
  }
  try {
    CID_Timestamp_Lock_Record best;
    SYSTEMTIME lockEnd{};
    const bool granted = connection_->InTransaction([&] {
      const std::vector<CID_Timestamp_Lock_Record> records =
          RecordsOf(connection_->Exec(std::string("SELECT ") + kColumns +
                                          " FROM quillmar_time_slots WHERE cid = ANY($1::bigint[]) "
                                          "ORDER BY position FOR UPDATE",
                                      {ArrayOf(cids)}));
      const SYSTEMTIME now = ServerNow(*connection_);
      if (!SelectOldestSuitable(records, cids, now, best)) return false;
      CID_Timestamp_Lock_Record updated = best;
      updated.Timestamp = TimeTicks::AddSeconds(best.Timestamp, durationSeconds);
      updated.LockedTill = lockEnd = LeaseEnd(now, lockSeconds);
      WriteRecord(*connection_, updated);
      return true;
    });
    if (!granted) {
      err =
          "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed: cannot find suitable record to "
          "allocate new timeslot. EID not found, or locked by other instance, or too far in the "
          "future.";
      return false;
    }
    cid = allocatedCid_ = best.CID;
    start = allocatedStart_ = best.Timestamp;
    allocatedDuration_ = durationSeconds;
    lockDuration_ = lockSeconds;
    lockEnd_ = lockSeconds >= 1 ? lockEnd : TimeTicks::Zero();
    return true;
  } catch (const std::exception& error) {
    err = SqlErrorText("AllocateEmbeddingTimeslot", error);
    return false;
  }
}

bool PostgresReservoir::LockHeldRow(HeldRow& held, std::string& err, const char* leaseLostText) {
  const PgRows rows = connection_->Exec(
      std::string("SELECT ") + kColumns + " FROM quillmar_time_slots WHERE cid = $1 FOR UPDATE",
      {std::to_string(allocatedCid_)});
  held.missing = rows.Count() == 0;
  if (held.missing) return false;
  held.record = RecordsOf(rows).front();
  const SYSTEMTIME& lock = held.record.LockedTill;
  if (EmbedderDatabaseV2::IsEqual(&lock, &lockEnd_)) return true;
  if (inDoubt_ && EmbedderDatabaseV2::IsEqual(&lock, &inDoubt_->lockEnd)) {
    // The change whose commit broke off was made after all.
    Keep(*inDoubt_);
    return true;
  }
  err = leaseLostText;
  return false;
}

void PostgresReservoir::Keep(const Change& change) {
  lockEnd_ = change.lockEnd;
  allocatedDuration_ = change.duration;
  inDoubt_.reset();
}

void PostgresReservoir::NoteFailure(const std::exception& error,
                                    const std::optional<Change>& written) {
  const auto* failure = dynamic_cast<const PgError*>(&error);
  if (failure != nullptr && failure->GetKind() == PgError::Kind::InDoubt && written) {
    inDoubt_ = written;
  }
}

int PostgresReservoir::ExtendHeldSlot(int extraSeconds, std::string& err, int lockSeconds) {
  std::optional<Change> written;
  try {
    const int result = connection_->InTransaction([&] {
      written.reset();
      HeldRow held;
      if (!LockHeldRow(held, err, kLeaseLostOnExtension))
        return held.missing ? allocatedDuration_ : 0;
      const std::int32_t total = allocatedDuration_ + extraSeconds;
      held.record.Timestamp = TimeTicks::AddSeconds(allocatedStart_, total);
      held.record.LockedTill = LeaseEnd(ServerNow(*connection_), lockSeconds);
      written = Change{held.record.LockedTill, total};
      WriteRecord(*connection_, held.record);
      return total;
    });
    if (written) Keep(*written);
    return result;
  } catch (const std::exception& error) {
    NoteFailure(error, written);
    err = SqlErrorText("ExtendTimeslot", error);
    return 0;
  }
}

bool PostgresReservoir::FinalizeHeldSlot(int keepSeconds, std::string& err) {
  std::optional<Change> written;
  try {
    const bool finalised = connection_->InTransaction([&] {
      written.reset();
      HeldRow held;
      if (!LockHeldRow(held, err, kLeaseLostOnFinalisation)) return held.missing;
      held.record.Timestamp = TimeTicks::AddSeconds(allocatedStart_, keepSeconds);
      held.record.LockedTill = TimeTicks::Zero();
      written = Change{held.record.LockedTill, keepSeconds};
      WriteRecord(*connection_, held.record);
      return true;
    });
    if (finalised && err.empty()) ResetLockState();
    return finalised;
  } catch (const std::exception& error) {
    NoteFailure(error, written);
    err = SqlErrorText("FinalizeEmbedding", error);
    return false;
  }
}

std::vector<CID_Timestamp_Lock_Record> PostgresReservoir::ReadTable(const std::string& location,
                                                                    bool& exists) {
  double tolerance = 0.0;
  PgConnection connection(ConnectionText(location, tolerance));
  return connection.InTransaction([&] {
    exists = connection.Exec("SELECT to_regclass('quillmar_time_slots') IS NOT NULL").Value(0, 0) ==
             std::optional<std::string>("t");
    if (!exists) return std::vector<CID_Timestamp_Lock_Record>{};
    return RecordsOf(connection.Exec(std::string("SELECT ") + kColumns +
                                     " FROM quillmar_time_slots ORDER BY position"));
  });
}

std::size_t PostgresReservoir::MergeTable(const std::string& location,
                                          const std::vector<CID_Timestamp_Lock_Record>& rows) {
  double tolerance = 0.0;
  PgConnection connection(ConnectionText(location, tolerance));
  return connection.InTransaction([&] {
    std::size_t changed = 0;
    connection.Exec(kSchemaLock);
    connection.Exec(kCreateTable);
    connection.Exec("LOCK TABLE quillmar_time_slots IN EXCLUSIVE MODE");
    for (const CID_Timestamp_Lock_Record& row : rows) {
      const PgRows written = connection.Exec(
          "INSERT INTO quillmar_time_slots (cid, allocated_till, locked_till) VALUES ($1, "
          "timestamptz 'epoch' + $2::bigint * interval '1 millisecond', "
          "timestamptz 'epoch' + $3::bigint * interval '1 millisecond') "
          "ON CONFLICT (cid) DO UPDATE SET allocated_till = excluded.allocated_till, "
          "locked_till = excluded.locked_till "
          "WHERE quillmar_time_slots.allocated_till < excluded.allocated_till RETURNING cid",
          {std::to_string(row.CID), std::to_string(Milliseconds(row.Timestamp)),
           LeaseValue(row.LockedTill)});
      changed += static_cast<std::size_t>(written.Count());
    }
    return changed;
  });
}

}  // namespace QuillmarBasebandSDK
