#include "database/ReservoirTable.h"

#include <stdexcept>

#include "database/CppSQLite3DB.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/ServerLocation.h"
#include "database/TimeSlotSchema.h"
#ifdef QUILLMAR_WITH_POSTGRESQL
#include "database/postgres/PostgresReservoir.h"
#endif

namespace QuillmarBasebandSDK {
namespace {

#ifndef QUILLMAR_WITH_POSTGRESQL
[[noreturn]] void NoServerSupport() {
  throw std::runtime_error("this build has no PostgreSQL support");
}
#endif

ReservoirTable::Snapshot ReadFile(const std::string& path) {
  CppSQLite3DB db(EmbedderDatabaseV2::kBusyTimeoutMs);
  db.open(path.c_str());
  db.execDML("BEGIN TRANSACTION;");
  ReservoirTable::Snapshot snapshot;
  snapshot.version = TimeSlotSchema::ReadVersion(db);
  snapshot.usable = snapshot.version == TimeSlotSchema::kCurrentVersion;
  if (snapshot.usable) snapshot.rows = TimeSlotSchema::ReadSlots(db);
  db.execDML("END TRANSACTION;");
  return snapshot;
}

std::size_t MergeIntoFile(const std::string& path,
                          const std::vector<CID_Timestamp_Lock_Record>& rows) {
  {
    // Makes the file, or brings it to the current schema, as an embedder would.
    EmbedderDatabaseV2 reservoir;
    std::string error;
    if (!reservoir.Init(path.c_str(), {}, error)) throw std::runtime_error(error);
  }
  CppSQLite3DB db(EmbedderDatabaseV2::kBusyTimeoutMs);
  db.open(path.c_str());
  db.execDML("BEGIN IMMEDIATE TRANSACTION;");
  try {
    const std::size_t changed = TimeSlotSchema::MergeSlots(db, rows);
    db.execDML("END TRANSACTION;");
    return changed;
  } catch (...) {
    db.execDML("ROLLBACK;");
    throw;
  }
}

}  // namespace

ReservoirTable::Snapshot ReservoirTable::Read(const std::string& location) {
  if (!IsServerLocation(location)) return ReadFile(location);
#ifdef QUILLMAR_WITH_POSTGRESQL
  Snapshot snapshot;
  snapshot.rows = PostgresReservoir::ReadTable(location, snapshot.usable);
  return snapshot;
#else
  NoServerSupport();
#endif
}

std::size_t ReservoirTable::Merge(const std::string& location,
                                  const std::vector<CID_Timestamp_Lock_Record>& rows) {
  if (!IsServerLocation(location)) return MergeIntoFile(location, rows);
#ifdef QUILLMAR_WITH_POSTGRESQL
  return PostgresReservoir::MergeTable(location, rows);
#else
  NoServerSupport();
#endif
}

std::string ReservoirTable::Printable(const std::string& location) {
#ifdef QUILLMAR_WITH_POSTGRESQL
  return PostgresReservoir::Printable(location);
#else
  return location;
#endif
}

}  // namespace QuillmarBasebandSDK
