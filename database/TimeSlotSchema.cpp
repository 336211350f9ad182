#include "database/TimeSlotSchema.h"

#include <boost/format.hpp>
#include <cstdlib>
#include <string>

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

SYSTEMTIME TimeOfHalves(const CppSQLite3Table& table, const char* high, const char* low) {
  return TimeTicks::FromHalves(TimeSlotSchema::ParseUnsigned(table.fieldValue(high)),
                               TimeSlotSchema::ParseUnsigned(table.fieldValue(low)));
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
  CppSQLite3Table table = db.getTable(kSelectSlots);
  std::vector<CID_Timestamp_Lock_Record> records(static_cast<std::size_t>(table.numRows()));
  for (int row = 0; row < table.numRows(); ++row) {
    table.setRow(row);
    CID_Timestamp_Lock_Record& record = records[static_cast<std::size_t>(row)];
    record.CID = static_cast<std::uint32_t>(ParseSigned(table.fieldValue("CID")));
    record.Timestamp = TimeOfHalves(table, "TimestampHi", "TimestampLo");
    record.LockedTill = TimeOfHalves(table, "LockedTillHi", "LockedTillLo");
  }
  return records;
}

std::int32_t TimeSlotSchema::ParseSigned(const char* text) {
  return text != nullptr ? static_cast<std::int32_t>(std::strtoll(text, nullptr, 10)) : 0;
}

std::uint32_t TimeSlotSchema::ParseUnsigned(const char* text) {
  return text != nullptr ? static_cast<std::uint32_t>(std::strtoull(text, nullptr, 10)) : 0;
}

}  // namespace QuillmarBasebandSDK
