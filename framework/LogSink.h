// Where the Logger's lines go: a file, a test's recorder, or anything a host supplies.
//
// Sinks are called by the Logger under its lock, and by the owner of a sink directly for lines
// outside the record format (WriteLine); a sink that can be reached both ways locks itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/SystemTime.h"

namespace Framework {

// Severity of a log line; a line is written when its level is at least the Logger's minimum.
enum class EventLevel : int {
  Debug = 0,
  Verbose = 1,
  Info = 2,
  Warning = 3,
  Error = 4,
};

// One line of the log as the Logger hands it to its sinks.
struct LogRecord {
  EventLevel level;
  SYSTEMTIME localTime;
  std::uint32_t threadId;
  std::string text;
};

class FRAMEWORK_API LogSink {
 public:
  virtual ~LogSink();

  // Writes one record.
  virtual void Write(const LogRecord& record) = 0;

  // Writes `records` in order. Each is written as by Write unless the sink can do better (a file
  // writes them at once).
  virtual void WriteAll(const std::vector<LogRecord>& records);

  // Writes `text` as a line of its own, outside the record format.
  virtual void WriteLine(const std::string& text) = 0;

  // The name of what this sink writes to (a file's path), for people.
  virtual std::string Target() const = 0;
};

// "DEBUG", "VERBOSE", "INFO", "WARNING" or "ERROR".
FRAMEWORK_API const char* LevelName(EventLevel level);

}  // namespace Framework
