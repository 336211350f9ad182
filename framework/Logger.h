// The process-wide logger: every line the system logs goes through here to the attached sinks.
//
// Thread-safe; lines from different threads never interleave. The Logger lives for the whole
// process, beyond the unloading of any module. No writer throws: a malformed boost::format is
// logged as such instead.
#pragma once

#include <boost/format/format_fwd.hpp>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include "LogSink.h"

namespace Framework {

// Layout of a log file's lines.
enum class LogFileType : int {
  PlainText = 0,  // one line of text per record
  Html = 1,       // a table for a browser, one row per record, levels in colour
};

// How the time of a record is written.
enum class TextDateFormat : int {
  DateTimeMilliseconds = 0,  // "2026-11-21 07:40:03:123"
  TimeMilliseconds = 1,      // "07:40:03:123"
};

class FRAMEWORK_API Logger {
 public:
  // Marks the logger as started. Idempotent.
  static void Init();

  // True once Init has run in this process.
  static bool IsInitialized();

  // Opens a new log file and attaches it. The file name's %Y %m %d %H %M %S %f fields are
  // filled with the local time of opening (%f: microseconds); missing folders are created.
  // Returns the attached sink, or null (and a line on standard error) when the file cannot be opened.
  static std::shared_ptr<LogSink> AddFileLogging(const std::filesystem::path& pattern,
                                                 LogFileType type, TextDateFormat dateFormat);

  // The path of the earliest file opened by AddFileLogging that is still attached; empty when
  // there is none. Files a host keeps beside its log go to this file's folder.
  static std::filesystem::path FileLogPath();

  // Attaches `sink`; every later line at or above the minimum level goes to it as well.
  static void AddSink(std::shared_ptr<LogSink> sink);

  // Detaches `sink`; no line is written to it after this returns.
  static void RemoveSink(const std::shared_ptr<LogSink>& sink);

  // Lines below `level` are dropped. The default is Debug: everything is written.
  static void SetMinimumLevel(EventLevel level);
  static EventLevel GetMinimumLevel();

  // True when a line at `level` would reach a sink: it is not below the minimum level and a sink
  // is attached. Lets a caller skip building lines that no one would read.
  static bool Writes(EventLevel level);

  static void Info(const std::string& text);
  static void Info(const boost::format& text);
  static void Warning(const std::string& text);
  static void Warning(const boost::format& text);
  static void Error(const std::string& text);
  static void Error(const boost::format& text);

  // Logs a caught exception at error level: "<where>: exception: <what>".
  static void Exception(const std::exception& error, const std::string& where = {});

  // Logs `text` at `level`.
  static void Write(EventLevel level, const std::string& text);

  // Logs each of `texts` at `level`, in order, as one batch: one time stamp and one call to each
  // sink's WriteAll. For many lines at once (a table of thousands of rows).
  static void WriteAll(EventLevel level, std::vector<std::string> texts);
};

}  // namespace Framework
