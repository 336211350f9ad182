#include "database/EmbedderDatabaseV2.h"

#include <sqlite3.h>

#include <algorithm>
#include <boost/format.hpp>
#include <chrono>
#include <unordered_set>

#include "database/CppSQLite3DB.h"
#include "database/CppSQLite3Exception.h"
#include "database/SlotSelection.h"
#include "database/TimeSlotSchema.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"
#include "framework/Logger.h"
#include "framework/platform/QueuedFileLock.h"

using Framework::Logger;
using QuillmarBasebandSDK::TimeSlotSchema;
using QuillmarBasebandSDK::TimeTicks;
using QuillmarBasebandSDK::UtcClock;

namespace {

constexpr const char* kBeginTransaction = "BEGIN IMMEDIATE TRANSACTION;";
constexpr const char* kEndTransaction = "END TRANSACTION;";

// Code reported for a failure that did not come from SQLite (such as running out of memory).
constexpr int kNotAnSqlError = -1;

// "SQL error code <code>; SQL error message <message>" of a failure caught in a public operation.
std::string SqlErrorText(const std::exception& error) {
  const auto* sqlError = dynamic_cast<const CppSQLite3Exception*>(&error);
  return "SQL error code " + std::to_string(sqlError ? sqlError->errorCode() : kNotAnSqlError) +
         "; SQL error message " + error.what();
}

// "insert into TimeStampReservoirV2 values(<cid>, <high>, <low>, 0, 0);": an unlocked row.
std::string InsertUnlockedRow(std::int32_t cid, std::uint32_t high, std::uint32_t low) {
  return "insert into TimeStampReservoirV2 values(" + std::to_string(cid) + ", " +
         std::to_string(high) + ", " + std::to_string(low) + ", 0, 0);";
}

// "update TimeStampReservoirV2 set <column> = <value> where CID = <cid>;"
std::string UpdateColumn(const char* column, std::uint32_t value, std::uint32_t cid) {
  return std::string("update TimeStampReservoirV2 set ") + column + " = " + std::to_string(value) +
         " where CID = " + std::to_string(cid) + ";";
}

// Appends `value` in decimal, with leading zeros to at least `width` digits.
void AppendDigits(std::string& text, unsigned value, std::size_t width) {
  char digits[5];
  std::size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  text.append(width > count ? width - count : 0, '0');
  while (count > 0) text += digits[--count];
}

}  // namespace

EmbedderDatabaseV2::EmbedderDatabaseV2() = default;

EmbedderDatabaseV2::~EmbedderDatabaseV2() {
  FinalizeLeftOverLease();
  Close();
}

bool EmbedderDatabaseV2::CheckDatabaseExists() { return connection_ != nullptr; }

std::string EmbedderDatabaseV2::ExistsText() {
  return CheckDatabaseExists() ? "Database exists; " : "Database does not exist; ";
}

void EmbedderDatabaseV2::EndTransactionAfterFailure() {
  try {
    connection_->execDML(kEndTransaction);
  } catch (const std::exception&) {
    // No transaction was open (BEGIN itself failed), or it cannot end now; the first failure
    // is what the caller reports.
  }
  if (writers_) writers_->Release();
}

void EmbedderDatabaseV2::BeginWrite() {
  const auto start = std::chrono::steady_clock::now();
  if (writers_ && !writers_->Acquire(std::chrono::milliseconds(kBusyTimeoutMs))) {
    // The same failure as SQLite's own busy time-out.
    throw CppSQLite3Exception(SQLITE_BUSY, "database is locked");
  }
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::steady_clock::now() - start)
                          .count();
  try {
    connection_->setBusyTimeout(static_cast<int>(std::max<long long>(kBusyTimeoutMs - waited, 0)));
    connection_->execDML(kBeginTransaction);
  } catch (const std::exception&) {
    if (writers_) writers_->Release();
    throw;
  }
}

void EmbedderDatabaseV2::EndWrite() {
  connection_->execDML(kEndTransaction);
  if (writers_) writers_->Release();
}

void EmbedderDatabaseV2::Close() {
  writers_.reset();
  connection_.reset();
}

// ---------------------------------------------------------------------------------------------
// Opening, schema versions and CIDs

bool EmbedderDatabaseV2::Init(const char* path, const std::list<unsigned>& cids,
                              std::string& err) {
  const std::string name = path != nullptr ? path : "";
  configuredCids_ = cids;
  err.clear();
  ResetLockState();

  if (databaseName_.empty()) {
    databaseName_ = name;
  } else if (databaseName_ != name) {
    err = "EmbedderDatabaseV2::Init failed: shared database name mismatch " + name + " and " +
          databaseName_;
    return false;
  }

  try {
    if (!connection_) {
      connection_ = std::make_unique<CppSQLite3DB>(kBusyTimeoutMs);
      connection_->open(name.c_str());
      const std::string file = connection_->fileName();
      if (!file.empty()) writers_ = std::make_unique<Framework::QueuedFileLock>(file + "-queue");
      BeginWrite();
      std::string reason;
      if (!CreateEmptyTable(reason)) {
        EndWrite();
        err = "EmbedderDatabaseV2::CreateEmptyTable failed for database name " + name +
              ", reason: " + reason;
        Close();
        return false;
      }
      EndWrite();
    }
  } catch (const std::exception& error) {
    Close();
    err = "EmbedderDatabaseV2::Init failed for DB " + name + "; " + SqlErrorText(error);
    return false;
  }

  try {
    CheckAllCIDsInDatabase();
  } catch (const std::exception& error) {
    Close();
    err = "EmbedderDatabaseV2::CheckAllCIDsInDatabase failed for DB " + name + "; " +
          SqlErrorText(error);
    return false;
  }
  return true;
}

int EmbedderDatabaseV2::GetDBVersion() { return TimeSlotSchema::ReadVersion(*connection_); }

bool EmbedderDatabaseV2::CreateEmptyTable(std::string& reason) {
  reason.clear();
  if (!connection_) {
    reason = "SQLite init failed";
    return false;
  }
  const int version = GetDBVersion();
  Logger::Info(boost::format("Shared database version %1% detected.") % version);

  if (version == 0) {
    Logger::Warning("Shared database is empty, or does not contain BBSDK tables. Creating tables...");
    CreateEmptyTableV2();
    return true;
  }
  if (version < 2) {
    reason = "Shared database version " + std::to_string(version) +
             " is outdated. It needs to be converted.";
    Logger::Warning(reason);
    if (!ConvertDatabaseToV2(version)) {
      reason = "Conversion is not possible!";
      Logger::Error(reason);
      return false;
    }
    return true;
  }
  if (version == 2) {
    Logger::Info("Shared database is valid and up to date. Proceeding");
    return true;
  }
  reason = "Shared database version " + std::to_string(version) +
           " is too new and not supported. Please update Quillmar BBSDK!";
  Logger::Error(reason);
  return false;
}

void EmbedderDatabaseV2::CreateEmptyTableV2() {
  connection_->execDML("create table VersionInfo(DBVersion int);");
  connection_->execDML("insert into VersionInfo values(2);");
  connection_->execDML(
      "create table TimeStampReservoirV2(CID int, TimestampHi int, TimestampLo int, "
      "LockedTillHi int, LockedTillLo int);");
  Logger::Info("Empty tables created");
}

bool EmbedderDatabaseV2::ConvertDatabaseToV2(int fromVersion) {
  if (fromVersion != 1) {
    Logger::Error(
        boost::format("EmbedderDatabaseV2::ConvertDatabaseToV2: Cannot convert DB version %1% to "
                      "version 2") %
        fromVersion);
    return false;
  }
  Logger::Info("Creating new empty tables version 2");
  CreateEmptyTableV2();

  CppSQLite3Table old = connection_->getTable("select * from TimeStampReservoir;");
  if (old.numRows() > 0) {
    Logger::Info(
        boost::format("Old database contained %1% records. Converting them to new format") %
        old.numRows());
  } else {
    Logger::Warning(
        "EmbedderDatabaseV2::ConvertDatabaseToV2: old database was empty. Will continue with "
        "empty tables");
  }
  for (int row = 0; row < old.numRows(); ++row) {
    old.setRow(row);
    const std::int32_t cid = TimeSlotSchema::ParseSigned(old.fieldValue("CID"));
    const std::uint32_t high = TimeSlotSchema::ParseUnsigned(old.fieldValue("TimestampHi"));
    const std::uint32_t low = TimeSlotSchema::ParseUnsigned(old.fieldValue("TimestampLo"));
    const SYSTEMTIME allocatedTill = TimeTicks::FromHalves(high, low);
    Logger::Info(boost::format("Found EID %1%, embedded till %2%. Converting to new format") % cid %
                 SystemTimeToString(&allocatedTill));
    connection_->execDML(InsertUnlockedRow(cid, high, low).c_str());
  }

  Logger::Warning(
      "Conversion successful. Now invalidating old database tables. Old BBSDK will not be able to "
      "access it anymore!!!");
  // The old table keeps its name with unusable columns, so that embedders of the first schema
  // fail on this file instead of handing out overlapping slots.
  connection_->execDML("drop table TimeStampReservoir;");
  connection_->execDML(
      "create table TimeStampReservoir(invalid_CID int, invalid_TimestampHi int, "
      "invalid_TimestampLo int);");
  connection_->execDML("insert into TimeStampReservoir values( 0, 0, 0 );");
  Logger::Info("Old database table invalidated. Conversion completed!");
  return true;
}

void EmbedderDatabaseV2::CheckAllCIDsInDatabase() {
  BeginWrite();
  const SYSTEMTIME now = UtcClock::Now();
  const std::uint32_t nowHigh = TimeTicks::High(now);
  const std::uint32_t nowLow = TimeTicks::Low(now);

  // The rows as they were before this call: a CID listed twice and missing gets two rows.
  CppSQLite3Table table = connection_->getTable(TimeSlotSchema::kSelectSlots);
  std::unordered_set<std::int32_t> cidsInTable;
  for (int row = 0; row < table.numRows(); ++row) {
    table.setRow(row);
    cidsInTable.insert(TimeSlotSchema::ParseSigned(table.fieldValue("CID")));
  }
  for (const unsigned cid : configuredCids_) {
    const auto signedCid = static_cast<std::int32_t>(cid);
    if (cidsInTable.count(signedCid) == 0) {
      connection_->execDML(InsertUnlockedRow(signedCid, nowHigh, nowLow).c_str());
    }
  }
  EndWrite();
}

// ---------------------------------------------------------------------------------------------
// Allocation, extension and finalisation

bool EmbedderDatabaseV2::DB_RetrieveCompleteTable(std::vector<CID_Timestamp_Lock_Record>& records,
                                                  std::string& err) {
  records = TimeSlotSchema::ReadSlots(*connection_);
  if (records.empty()) {
    err = "EmbedderDatabaseV2::DB_RetrieveCompleteTable failed: database empty";
    Logger::Error(
        "EmbedderDatabaseV2::DB_RetrieveCompleteTable failed: database empty. t.numRows() == 0");
    return false;
  }
  return true;
}

bool EmbedderDatabaseV2::DB_UpdateRecord(CID_Timestamp_Lock_Record& record) {
  QuillmarBasebandSDK::LogRowUpdate(record);
  const std::string statements =
      UpdateColumn("TimestampHi", TimeTicks::High(record.Timestamp), record.CID) +
      UpdateColumn("TimestampLo", TimeTicks::Low(record.Timestamp), record.CID) +
      UpdateColumn("LockedTillHi", TimeTicks::High(record.LockedTill), record.CID) +
      UpdateColumn("LockedTillLo", TimeTicks::Low(record.LockedTill), record.CID);
  connection_->execDML(statements.c_str());
  lockEnd_ = record.LockedTill;
  Logger::Info("Updating database OK");
  return true;
}

bool EmbedderDatabaseV2::FindOldestSuitableRecord(std::vector<CID_Timestamp_Lock_Record>& records,
                                                  std::vector<unsigned>& cids,
                                                  CID_Timestamp_Lock_Record& best) {
  return QuillmarBasebandSDK::SelectOldestSuitable(records, cids, UtcClock::Now(), best);
}

void EmbedderDatabaseV2::UpdateTimestampAndLock(CID_Timestamp_Lock_Record& record, int seconds,
                                                int lockSeconds, bool fromRecord) {
  const SYSTEMTIME base = fromRecord ? record.Timestamp : allocatedStart_;
  record.Timestamp = TimeTicks::AddSeconds(base, seconds);
  record.LockedTill =
      lockSeconds >= 1 ? TimeTicks::AddSeconds(UtcClock::Now(), lockSeconds) : TimeTicks::Zero();
}

EmbedderDatabaseV2::HeldRow EmbedderDatabaseV2::BeginOnHeldRecord(
    CID_Timestamp_Lock_Record& held, std::string& err, const char* leaseLostText) {
  BeginWrite();
  std::vector<CID_Timestamp_Lock_Record> records;
  HeldRow row = HeldRow::Unreadable;
  if (DB_RetrieveCompleteTable(records, err)) {
    const auto found = std::find_if(records.begin(), records.end(), [this](const auto& record) {
      return record.CID == allocatedCid_;
    });
    row = HeldRow::Missing;
    if (found != records.end()) {
      held = *found;
      row = IsEqual(&held.LockedTill, &lockEnd_) ? HeldRow::Held : HeldRow::LeaseLost;
    }
  }
  if (row == HeldRow::LeaseLost) err = leaseLostText;
  if (row != HeldRow::Held) EndWrite();
  return row;
}

bool EmbedderDatabaseV2::AllocateEmbeddingTimeslot(std::vector<unsigned> cids, int durationSeconds,
                                                   unsigned& cid, SYSTEMTIME& start,
                                                   std::string& err, int lockSeconds) {
  err.clear();
  const std::string failed = "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:" +
                             ExistsText() + "Number of CIDs from program: " +
                             std::to_string(cids.size()) + " ; embDurationSeconds " +
                             std::to_string(durationSeconds);
  if (!CheckDatabaseExists() || cids.empty() || durationSeconds < 0) {
    err = failed;
    return false;
  }
  try {
    BeginWrite();
    std::vector<CID_Timestamp_Lock_Record> records;
    if (!DB_RetrieveCompleteTable(records, err)) {
      EndWrite();
      return false;
    }
    CID_Timestamp_Lock_Record best;
    if (!FindOldestSuitableRecord(records, cids, best)) {
      err =
          "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed: cannot find suitable record to "
          "allocate new timeslot. EID not found, or locked by other instance, or too far in the "
          "future.";
      EndWrite();
      return false;
    }
    cid = best.CID;
    start = best.Timestamp;
    allocatedCid_ = best.CID;
    allocatedStart_ = best.Timestamp;
    allocatedDuration_ = durationSeconds;
    // Stored as given: only 0 makes extension and finalisation do nothing; a negative lease writes
    // no lease to the row, yet the allocation is still extended and finalised.
    lockDuration_ = lockSeconds;
    UpdateTimestampAndLock(best, durationSeconds, lockSeconds, true);
    DB_UpdateRecord(best);
    EndWrite();
    return true;
  } catch (const std::exception& error) {
    EndTransactionAfterFailure();
    err = failed + "; " + SqlErrorText(error);
    return false;
  }
}

int EmbedderDatabaseV2::ExtendHeldSlot(int extraSeconds, std::string& err, int lockSeconds) {
  try {
    CID_Timestamp_Lock_Record held;
    const HeldRow row = BeginOnHeldRecord(held, err, kLeaseLostOnExtension);
    if (row != HeldRow::Held) return row == HeldRow::Missing ? allocatedDuration_ : 0;
    const auto total = static_cast<std::int32_t>(static_cast<std::int64_t>(allocatedDuration_) +
                                                 extraSeconds);
    UpdateTimestampAndLock(held, total, lockSeconds, false);
    DB_UpdateRecord(held);
    allocatedDuration_ = total;
    EndWrite();
    return allocatedDuration_;
  } catch (const std::exception& error) {
    EndTransactionAfterFailure();
    err = "EmbedderDatabaseV2::ExtendTimeslot failed:" + ExistsText() + SqlErrorText(error);
    return 0;
  }
}

bool EmbedderDatabaseV2::FinalizeHeldSlot(int keepSeconds, std::string& err) {
  try {
    CID_Timestamp_Lock_Record held;
    const HeldRow row = BeginOnHeldRecord(held, err, kLeaseLostOnFinalisation);
    if (row != HeldRow::Held) return row == HeldRow::Missing;
    held.Timestamp = TimeTicks::AddSeconds(allocatedStart_, keepSeconds);
    held.LockedTill = TimeTicks::Zero();
    DB_UpdateRecord(held);
    ResetLockState();
    EndWrite();
    return true;
  } catch (const std::exception& error) {
    EndTransactionAfterFailure();
    err = "EmbedderDatabaseV2::FinalizeEmbedding failed:" + ExistsText() + "; " +
          SqlErrorText(error);
    return false;
  }
}

// ---------------------------------------------------------------------------------------------
// Time stamps

bool EmbedderDatabaseV2::IsAfter(const SYSTEMTIME* a, const SYSTEMTIME* b) {
  return TimeTicks::FromSystemTime(*a) > TimeTicks::FromSystemTime(*b);
}

bool EmbedderDatabaseV2::IsEqual(const SYSTEMTIME* a, const SYSTEMTIME* b) {
  return TimeTicks::FromSystemTime(*a) == TimeTicks::FromSystemTime(*b);
}

std::int64_t EmbedderDatabaseV2::DurationSeconds(const SYSTEMTIME* from, const SYSTEMTIME* to) {
  const std::uint64_t fromTicks = TimeTicks::FromSystemTime(*from);
  const std::uint64_t toTicks = TimeTicks::FromSystemTime(*to);
  if (toTicks > fromTicks) {
    return static_cast<std::int64_t>((toTicks - fromTicks) / TimeTicks::kTicksPerSecond);
  }
  return -static_cast<std::int64_t>((fromTicks - toTicks) / TimeTicks::kTicksPerSecond);
}

SYSTEMTIME EmbedderDatabaseV2::FindNewerTimestamp(const SYSTEMTIME* a, const SYSTEMTIME* b) {
  return IsAfter(a, b) ? *a : *b;
}

CID_Timestamp_Lock_Record EmbedderDatabaseV2::FindOlderRecord(const CID_Timestamp_Lock_Record& r1,
                                                              const CID_Timestamp_Lock_Record& r2) {
  return IsAfter(&r1.Timestamp, &r2.Timestamp) ? r2 : r1;
}

std::string EmbedderDatabaseV2::SystemTimeToString(const SYSTEMTIME* time) {
  // By hand rather than through a stream: a search writes two of these for every row.
  std::string text;
  text.reserve(20);
  AppendDigits(text, time->wYear, 4);
  text += '-';
  AppendDigits(text, time->wMonth, 2);
  text += '-';
  AppendDigits(text, time->wDay, 2);
  text += 'T';
  AppendDigits(text, time->wHour, 2);
  text += ':';
  AppendDigits(text, time->wMinute, 2);
  text += ':';
  AppendDigits(text, time->wSecond, 2);
  text += 'Z';
  return text;
}
