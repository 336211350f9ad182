// EmbedderDatabaseV2: the machine-wide reservoir of CIDs and time slots that keeps two embedders
// from stamping the same CID for overlapping periods (a TimeSlotReservoir on a SQLite file).
//
// One SQLite file, shared by every embedder on the machine, holds one row per CID: until when its
// time stamps have been handed out ("allocated till") and until when a running embedding holds it
// under a lease ("locked till"). An object opens the file once (Init), then runs one embedding
// session at a time: AllocateEmbeddingTimeslot, any number of ExtendTimeslot calls (each before the
// lease ends), FinalizeEmbedding. Every read-modify-write runs in one immediate transaction on the
// object's own connection, waiting up to kBusyTimeoutMs in all for another embedder's write lock.
// Embedders wait in the order they asked (a queue file "<database>-queue" beside the database),
// so none waits while others take the lock back to back; writers outside the queue (the sqlite3
// shell, older embedders) are still waited for by SQLite's busy handler.
//
// Thread safety: one object is used by one thread at a time; objects on separate threads or in
// separate processes exclude each other through SQLite's file lock only (the queue orders them).
//
// Failures are reported by the result and the caller's `err` text (cleared at the start of every
// public call), never by an exception.
//
// Copying is forbidden: the object owns its connection and, while allocated, the lease it holds;
// a copy would share the connection and each destructor would close it and finalise the same
// slot. A session that needs another owner keeps one object and passes it by pointer.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"
#include "database/TimeSlotReservoir.h"
#include "framework/platform/Export.h"
#include "framework/platform/SystemTime.h"

class CppSQLite3DB;
namespace Framework {
class QueuedFileLock;
}

class QUILLMAR_API EmbedderDatabaseV2 : public TimeSlotReservoir {
 public:
  // The schema version this class writes and accepts.
  static constexpr int CURRENT_DB_VERSION = 2;
  // How far in the future (seconds from now) a slot may start at most.
  static constexpr long THR_EMBED_IN_FUTURE_SECONDS = 86400;
  // How long an operation waits for another connection's write lock.
  static constexpr int kBusyTimeoutMs = 60000;

  // No connection, no CIDs, no allocation.
  EmbedderDatabaseV2();
  EmbedderDatabaseV2(const EmbedderDatabaseV2&) = delete;
  EmbedderDatabaseV2& operator=(const EmbedderDatabaseV2&) = delete;
  // Finalises an allocation still held under a lease (keeping its allocated duration), then closes.
  ~EmbedderDatabaseV2() override;

  // Opens the file at `path` (created when missing) unless already open, brings its schema to the
  // current version and adds an unlocked row, allocated till now, for each of `cids` not yet in the
  // table. Drops any allocation held by this object. The first path is kept: a later call with
  // another path fails and leaves the open connection as it is.
  bool Init(const char* path, const std::list<unsigned>& cids, std::string& err) override;

  // True when a connection is open.
  bool CheckDatabaseExists() override;

  // Grants the slot [start, start + durationSeconds) for the CID of `cids` that is not leased and
  // was allocated the least far ahead (the earlier row on ties); start is that CID's allocated-till
  // time or now, whichever is later, and at most THR_EMBED_IN_FUTURE_SECONDS ahead. Leases the CID
  // for lockSeconds from now (0 or less: no lease). On false nothing was granted.
  bool AllocateEmbeddingTimeslot(std::vector<unsigned> cids, int durationSeconds, unsigned& cid,
                                 SYSTEMTIME& start, std::string& err, int lockSeconds) override;

  // Tick-exact comparisons and arithmetic of UTC times; the arguments are not changed.
  // True when a is later than b.
  static bool IsAfter(const SYSTEMTIME* a, const SYSTEMTIME* b);
  // True when a and b are the same millisecond.
  static bool IsEqual(const SYSTEMTIME* a, const SYSTEMTIME* b);
  // Whole seconds from `from` to `to`, the fraction dropped toward zero.
  static std::int64_t DurationSeconds(const SYSTEMTIME* from, const SYSTEMTIME* to);
  // The later of a and b; b on a tie.
  static SYSTEMTIME FindNewerTimestamp(const SYSTEMTIME* a, const SYSTEMTIME* b);
  // The record allocated till the earlier time; r1 on a tie.
  static CID_Timestamp_Lock_Record FindOlderRecord(const CID_Timestamp_Lock_Record& r1,
                                                   const CID_Timestamp_Lock_Record& r2);
  // "YYYY-MM-DDTHH:MM:SSZ", for log lines.
  static std::string SystemTimeToString(const SYSTEMTIME* time);

 private:
  int ExtendHeldSlot(int extraSeconds, std::string& err, int lockSeconds) override;
  bool FinalizeHeldSlot(int keepSeconds, std::string& err) override;

  int GetDBVersion();
  bool CreateEmptyTable(std::string& reason);
  void CreateEmptyTableV2();
  bool ConvertDatabaseToV2(int fromVersion);
  void CheckAllCIDsInDatabase();

  bool DB_RetrieveCompleteTable(std::vector<CID_Timestamp_Lock_Record>& records, std::string& err);
  bool DB_UpdateRecord(CID_Timestamp_Lock_Record& record);
  bool FindOldestSuitableRecord(std::vector<CID_Timestamp_Lock_Record>& records,
                                std::vector<unsigned>& cids, CID_Timestamp_Lock_Record& best);
  void UpdateTimestampAndLock(CID_Timestamp_Lock_Record& record, int seconds, int lockSeconds,
                              bool fromRecord);

  // What BeginOnHeldRecord found of this object's allocation in the table.
  enum class HeldRow {
    Unreadable,  // the table could not be read or is empty; err tells why
    Missing,     // no row has the allocated CID
    LeaseLost,   // the row's lease is not the one this object wrote; err is leaseLostText
    Held,        // the row is this object's
  };
  // Begins an immediate transaction, reads the table and copies the first row of the allocated
  // CID into `held`. The transaction stays open only when the result is Held.
  HeldRow BeginOnHeldRecord(CID_Timestamp_Lock_Record& held, std::string& err,
                            const char* leaseLostText);

  // Waits for this object's turn among the writers of the file, in the order they asked, then
  // sends "BEGIN IMMEDIATE TRANSACTION;": kBusyTimeoutMs in all.
  void BeginWrite();
  // Sends "END TRANSACTION;" and lets the next writer go.
  void EndWrite();
  // Sends "END TRANSACTION;" after a failure inside a transaction and lets the next writer go; a
  // second failure is dropped, the first one is what the caller reports.
  void EndTransactionAfterFailure();
  // Drops the connection and the place among the writers.
  void Close();
  // "Database exists; " or "Database does not exist; ".
  std::string ExistsText();

  std::list<unsigned> configuredCids_;  // replaced by each Init
  std::string databaseName_;            // the first Init's path; empty before
  std::unique_ptr<CppSQLite3DB> connection_;  // null while closed
  // The file's writers wait for the write lock in arrival order ("<file>-queue"), rather than
  // polling SQLite's lock with growing sleeps. Null for an in-memory database.
  std::unique_ptr<Framework::QueuedFileLock> writers_;
};
