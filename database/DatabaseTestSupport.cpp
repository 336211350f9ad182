#include "database/DatabaseTestSupport.h"


#include <filesystem>
#include <stdexcept>

#include "database/CppSQLite3DB.h"
#include "database/TimeSlotSchema.h"
#include "database/TimeTicks.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK::Testing {
namespace {

// Long enough for a test's own connection never to fail on a lock held for a moment.
constexpr int kTestBusyTimeoutMs = 10000;

}  // namespace

void ExecSql(const std::string& path, const std::string& sql) {
  CppSQLite3DB db(kTestBusyTimeoutMs);
  db.open(path.c_str());
  db.execDML(sql.c_str());
}

std::string QuerySql(const std::string& path, const std::string& sql) {
  CppSQLite3DB db(kTestBusyTimeoutMs);
  db.open(path.c_str());
  CppSQLite3Table table = db.getTable(sql.c_str());
  table.setRow(0);
  const char* value = table.fieldValue(0);
  return value != nullptr ? value : "";
}

std::vector<CID_Timestamp_Lock_Record> ReadSlots(const std::string& path) {
  CppSQLite3DB db(kTestBusyTimeoutMs);
  db.open(path.c_str());
  return TimeSlotSchema::ReadSlots(db);
}

void SetRow(const std::string& path, unsigned cid, const SYSTEMTIME& allocatedTill,
            const SYSTEMTIME& lockedTill) {
  const std::string where = " where CID = " + std::to_string(static_cast<int>(cid)) + ";";
  ExecSql(path, "update TimeStampReservoirV2 set TimestampHi = " +
                    std::to_string(TimeTicks::High(allocatedTill)) +
                    ", TimestampLo = " + std::to_string(TimeTicks::Low(allocatedTill)) +
                    ", LockedTillHi = " + std::to_string(TimeTicks::High(lockedTill)) +
                    ", LockedTillLo = " + std::to_string(TimeTicks::Low(lockedTill)) + where);
}

SYSTEMTIME Plus(const SYSTEMTIME& time, long long milliseconds) {
  return TimeTicks::ToSystemTime(TimeTicks::FromSystemTime(time) +
                                 static_cast<std::uint64_t>(milliseconds) *
                                     TimeTicks::kTicksPerMillisecond);
}

std::shared_ptr<LogRecorder> LogRecorder::Attach() {
  std::shared_ptr<LogRecorder> recorder(new LogRecorder);
  Framework::Logger::AddSink(recorder);
  // The Logger holds the recorder too; the caller's handle detaches it when released.
  return std::shared_ptr<LogRecorder>(recorder.get(), [recorder](LogRecorder*) {
    Framework::Logger::RemoveSink(recorder);
  });
}

LogRecorder::~LogRecorder() = default;

void LogRecorder::Write(const Framework::LogRecord& record) {
  std::lock_guard<std::mutex> lock(mutex_);
  records_.push_back(record);
}

void LogRecorder::WriteLine(const std::string& text) {
  Write(Framework::LogRecord{Framework::EventLevel::Info, {}, 0, text});
}

std::string LogRecorder::Target() const { return "test recorder"; }

bool LogRecorder::Has(Framework::EventLevel level, const std::string& text) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& record : records_) {
    if (record.level == level && record.text == text) return true;
  }
  return false;
}

bool LogRecorder::HasPart(const std::string& text) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& record : records_) {
    if (record.text.find(text) != std::string::npos) return true;
  }
  return false;
}

void LogRecorder::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  records_.clear();
}

}  // namespace QuillmarBasebandSDK::Testing
