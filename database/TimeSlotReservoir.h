// TimeSlotReservoir: a reservoir of CIDs and time slots shared by embedders, so that no two of them
// stamp one CID for overlapping periods. EmbedderDatabaseV2 keeps it in a SQLite file for the
// embedders of one machine; PostgresReservoir (database/postgres/) on a database server for a
// fleet of machines. The operations, their arguments, results and rules are EmbedderDatabaseV2's:
// Init once, then per embedding session AllocateEmbeddingTimeslot, any number of ExtendTimeslot
// calls, FinalizeEmbedding. Failures are reported by the result and `err`, never by an exception.
//
// The allocation an object holds, and the checks an extension or finalisation makes before it
// touches the store (open, allocated, leased), are kept here; a backend adds only the work on its
// own store, in the hooks below.
//
// One object per channel, used by one thread at a time.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "framework/platform/Export.h"
#include "framework/platform/SystemTime.h"

class QUILLMAR_API TimeSlotReservoir {
 public:
  // The reservoir that serves `location`: PostgresReservoir for a postgresql:// or postgres://
  // URI, EmbedderDatabaseV2 (a SQLite file) for anything else. Opens nothing.
  static std::unique_ptr<TimeSlotReservoir> ForLocation(const std::string& location);

  virtual ~TimeSlotReservoir();

  // Opens the reservoir at `path` and adds a row, allocated till now, for each of `cids` it lacks.
  virtual bool Init(const char* path, const std::list<unsigned>& cids, std::string& err) = 0;
  // True when the reservoir is open.
  virtual bool CheckDatabaseExists() = 0;
  // Grants a slot of durationSeconds for one of `cids`; leases the CID for lockSeconds (0: none).
  virtual bool AllocateEmbeddingTimeslot(std::vector<unsigned> cids, int durationSeconds,
                                         unsigned& cid, SYSTEMTIME& start, std::string& err,
                                         int lockSeconds) = 0;
  // Lengthens the held slot and renews its lease; the new total, or 0 (see ExtendHeldSlot).
  int ExtendTimeslot(int extraSeconds, std::string& err, int lockSeconds);
  // Ends the held slot at its start + keepSeconds and releases the lease; true also when none.
  bool FinalizeEmbedding(int keepSeconds, std::string& err);

 protected:
  // What a lease lost to another embedder leaves in `err` of an extension and a finalisation.
  static constexpr const char* kLeaseLostOnExtension =
      "EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot failed: active lock does not match "
      "database. Processing took too long?";
  static constexpr const char* kLeaseLostOnFinalisation =
      "EmbedderDatabaseV2::FinalizeEmbedding failed: active lock does not match database. "
      "Processing took too long?";

  // No allocation.
  TimeSlotReservoir();

  // ExtendTimeslot while the reservoir is closed: 0, and `err` says so.
  virtual int ExtendWhileClosed(std::string& err);
  // FinalizeEmbedding while the reservoir is closed: false, and `err` says so.
  virtual bool FinalizeWhileClosed(std::string& err);
  // ExtendTimeslot of a slot held under a lease, in the store: the new total duration; the held
  // duration when the CID's row is gone; 0 when the lease was lost (the caller must stop stamping
  // the CID) or the store failed.
  virtual int ExtendHeldSlot(int extraSeconds, std::string& err, int lockSeconds) = 0;
  // FinalizeEmbedding of a slot held under a lease, in the store: true when it is finalised or
  // the CID's row is gone; false when the lease was lost or the store failed.
  virtual bool FinalizeHeldSlot(int keepSeconds, std::string& err) = 0;
  // Drops the allocation.
  virtual void ResetLockState();
  // For a backend's destructor: finalises an allocation still leased, keeping its duration.
  void FinalizeLeftOverLease();

  // The active allocation; allocatedCid_ 0 when none.
  std::uint32_t allocatedCid_ = 0;
  SYSTEMTIME allocatedStart_{};
  std::int32_t allocatedDuration_ = 0;  // seconds from allocatedStart_
  SYSTEMTIME lockEnd_;                  // the LockedTill this object last wrote: proof of ownership
  std::int32_t lockDuration_ = 0;       // seconds as given: 0 uses no lease, below 0 writes none
};
