// TimeSlotSchema: the tables of the shared time-slot database file and how their rows are read.
//
// Used by EmbedderDatabaseV2 and by tools that inspect a file; reading never writes. Stateless;
// each call uses the caller's connection, so the connection's rules apply (one thread at a time).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"

class CppSQLite3DB;

namespace QuillmarBasebandSDK {

class TimeSlotSchema {
 public:
  // The schema version this program writes.
  static constexpr int kCurrentVersion = 2;

  static constexpr const char* kSlotTable = "TimeStampReservoirV2";
  static constexpr const char* kVersionTable = "VersionInfo";
  static constexpr const char* kVersion1Table = "TimeStampReservoir";

  static constexpr const char* kSelectSlots = "select * from TimeStampReservoirV2;";

  // The version of the schema in the file: 0 when it has none of our tables, 1 when it has only
  // the first schema's table, else the value in "VersionInfo" (0 when NULL). Logs and throws
  // CppSQLite3Exception ("Invalid row index requested") when "VersionInfo" is empty.
  static int ReadVersion(CppSQLite3DB& db);

  // Every row of "TimeStampReservoirV2" in table order. Throws CppSQLite3Exception.
  static std::vector<CID_Timestamp_Lock_Record> ReadSlots(CppSQLite3DB& db);

  // Merges `rows` into "TimeStampReservoirV2" inside the caller's transaction: a CID missing from
  // the table is added; one present takes the row's times when the row is allocated further
  // ahead. The number of rows added or changed. Throws CppSQLite3Exception.
  static std::size_t MergeSlots(CppSQLite3DB& db,
                                const std::vector<CID_Timestamp_Lock_Record>& rows);

  // A stored integer read with a signed conversion; null (SQL NULL) reads as 0.
  static std::int32_t ParseSigned(const char* text);

  // A stored tick half read with an unsigned base-10 conversion; null (SQL NULL) reads as 0.
  static std::uint32_t ParseUnsigned(const char* text);
};

}  // namespace QuillmarBasebandSDK
