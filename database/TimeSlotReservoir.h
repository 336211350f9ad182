// TimeSlotReservoir: a reservoir of CIDs and time slots shared by embedders, so that no two of them
// stamp one CID for overlapping periods. EmbedderDatabaseV2 keeps it in a SQLite file for the
// embedders of one machine; PostgresReservoir (database/postgres/) on a database server for a
// fleet of machines. The operations, their arguments, results and rules are EmbedderDatabaseV2's:
// Init once, then per embedding session AllocateEmbeddingTimeslot, any number of ExtendTimeslot
// calls, FinalizeEmbedding. Failures are reported by the result and `err`, never by an exception.
//
// One object per channel, used by one thread at a time.
#pragma once

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
  // Lengthens the held slot and renews its lease; the new total, or 0.
  virtual int ExtendTimeslot(int extraSeconds, std::string& err, int lockSeconds) = 0;
  // Ends the held slot at its start + keepSeconds and releases the lease.
  virtual bool FinalizeEmbedding(int keepSeconds, std::string& err) = 0;
};
