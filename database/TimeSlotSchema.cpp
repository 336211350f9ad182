#include "database/TimeSlotSchema.h"

#include <boost/format.hpp>
#include <cstdlib>
#include <string>
#include <unordered_map>

#include "database/CppSQLite3DB.h"
#include "database/TimeTicks.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK {
namespace {

int CountTablesNamed(CppSQLite3DB& db, const char* name) {
  const std::string query =
      (boost::format("select count(*) from sqlite_master where type='table' and name='%s'") % name)
          .str();
  return db.execScalar(query.c_str());
}

// Both halves of a time as the SQL values of two columns.
std::string Halves(const SYSTEMTIME& time) {
  return std::to_string(TimeTicks::High(time)) + ", " + std::to_string(TimeTicks::Low(time));
}

}  // namespace

int TimeSlotSchema::ReadVersion(CppSQLite3DB& db) {
  if (CountTablesNamed(db, kVersionTable) < 1) {
    return CountTablesNamed(db, kVersion1Table) > 0 ? 1 : 0;
  }
  CppSQLite3Table table = db.getTable("select * from VersionInfo;");
  if (table.numRows() == 0) {
    Framework::Logger::Error("EmbedderDatabaseV2::GetDBVersion failed: VersionInfo table empty");
  }
  table.setRow(0);
  return ParseSigned(table.fieldValue("DBVersion"));
}

std::vector<CID_Timestamp_Lock_Record> TimeSlotSchema::ReadSlots(CppSQLite3DB& db) {
  // Row by row, as numbers: a search reads every row, twice per session.
  CppSQLite3Query query = db.execQuery(kSelectSlots);
  std::vector<CID_Timestamp_Lock_Record> records;
  if (query.eof()) return records;
  const int cid = query.fieldIndex("CID");
  const int timestamp[2] = {query.fieldIndex("TimestampHi"), query.fieldIndex("TimestampLo")};
  const int lockedTill[2] = {query.fieldIndex("LockedTillHi"), query.fieldIndex("LockedTillLo")};
  const auto half = [&query](int field) {
    return static_cast<std::uint32_t>(query.getInt64Field(field));
  };
  for (; !query.eof(); query.nextRow()) {
    CID_Timestamp_Lock_Record& record = records.emplace_back();
    record.CID = static_cast<std::uint32_t>(static_cast<std::int32_t>(query.getInt64Field(cid)));
    record.Timestamp = TimeTicks::FromHalves(half(timestamp[0]), half(timestamp[1]));
    record.LockedTill = TimeTicks::FromHalves(half(lockedTill[0]), half(lockedTill[1]));
  }
  return records;
}

std::size_t TimeSlotSchema::MergeSlots(CppSQLite3DB& db,
                                       const std::vector<CID_Timestamp_Lock_Record>& rows) {
  std::unordered_map<std::uint32_t, std::uint64_t> allocatedTill;
  for (const CID_Timestamp_Lock_Record& row : ReadSlots(db)) {
    allocatedTill[row.CID] = TimeTicks::FromSystemTime(row.Timestamp);
  }
  std::size_t changed = 0;
  for (const CID_Timestamp_Lock_Record& row : rows) {
    const std::string cid = std::to_string(static_cast<std::int32_t>(row.CID));
    const auto present = allocatedTill.find(row.CID);
    if (present == allocatedTill.end()) {
      db.execDML(("insert into TimeStampReservoirV2 values(" + cid + ", " + Halves(row.Timestamp) +
                  ", " + Halves(row.LockedTill) + ");")
                     .c_str());
    } else if (present->second < TimeTicks::FromSystemTime(row.Timestamp)) {
      db.execDML((boost::format("update TimeStampReservoirV2 set TimestampHi = %1%, TimestampLo = "
                                "%2%, LockedTillHi = %3%, LockedTillLo = %4% where CID = %5%;") %
                  TimeTicks::High(row.Timestamp) % TimeTicks::Low(row.Timestamp) %
                  TimeTicks::High(row.LockedTill) % TimeTicks::Low(row.LockedTill) % cid)
                     .str()
                     .c_str());
    } else {
      continue;
    }
    allocatedTill[row.CID] = TimeTicks::FromSystemTime(row.Timestamp);
    ++changed;
  }
  return changed;
}

std::int32_t TimeSlotSchema::ParseSigned(const char* text) {
  return text != nullptr ? static_cast<std::int32_t>(std::strtoll(text, nullptr, 10)) : 0;
}

std::uint32_t TimeSlotSchema::ParseUnsigned(const char* text) {
  return text != nullptr ? static_cast<std::uint32_t>(std::strtoull(text, nullptr, 10)) : 0;
}

}  // namespace QuillmarBasebandSDK
