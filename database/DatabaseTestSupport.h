// Test support for the time-slot database: real files in a private folder, direct SQL on them,
// and a recorder of log lines. For tests only; one thread at a time.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"
#include "framework/LogSink.h"
#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK::Testing {

using Framework::Testing::TemporaryFolder;

// Runs `sql` (any number of statements) on the file at `path`, on a connection of its own.
void ExecSql(const std::string& path, const std::string& sql);

// The first field of the first row of `sql` on the file at `path`, as text ("" for NULL).
std::string QuerySql(const std::string& path, const std::string& sql);

// Every row of the time-slot table of the file at `path`, in table order.
std::vector<CID_Timestamp_Lock_Record> ReadSlots(const std::string& path);

// Sets the allocated-till and locked-till times of the row of `cid` directly in the file.
void SetRow(const std::string& path, unsigned cid, const SYSTEMTIME& allocatedTill,
            const SYSTEMTIME& lockedTill);

// `time` plus `milliseconds` (may be negative).
SYSTEMTIME Plus(const SYSTEMTIME& time, long long milliseconds);

// Keeps every log line written while it is attached to the Logger.
class LogRecorder : public Framework::LogSink {
 public:
  // Attaches a new recorder; it detaches itself when the returned handle is destroyed.
  static std::shared_ptr<LogRecorder> Attach();
  ~LogRecorder() override;

  void Write(const Framework::LogRecord& record) override;
  void WriteLine(const std::string& text) override;
  std::string Target() const override;

  // True when a line at `level` was exactly `text`.
  bool Has(Framework::EventLevel level, const std::string& text) const;
  // True when any line contains `text`.
  bool HasPart(const std::string& text) const;
  // Forgets the lines so far.
  void Clear();

 private:
  LogRecorder() = default;

  mutable std::mutex mutex_;
  std::vector<Framework::LogRecord> records_;  // Guarded by mutex_
};

}  // namespace QuillmarBasebandSDK::Testing
