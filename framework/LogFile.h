// A log file, plain text or HTML for a browser, written line by line and flushed at every line
// so that a crash loses nothing already logged. Thread-safe.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include "LogSink.h"
#include "Logger.h"

namespace Framework {

class FRAMEWORK_API LogFile : public LogSink {
 public:
  // Opens the file named by `pattern` with its time fields filled from `now`;
  // null when it cannot be opened.
  static std::shared_ptr<LogFile> Open(const std::filesystem::path& pattern, LogFileType type,
                                       TextDateFormat dateFormat, const SYSTEMTIME& now,
                                       int microseconds);

  // Ends the HTML document and closes the file.
  ~LogFile() override;

  void Write(const LogRecord& record) override;
  // Writes the records with one write and one flush.
  void WriteAll(const std::vector<LogRecord>& records) override;
  void WriteLine(const std::string& text) override;
  std::string Target() const override { return path_.string(); }

  // `pattern` with %Y %m %d %H %M %S %f replaced by the fields of `time` (and `microseconds`).
  static std::string FillTimeFields(const std::string& pattern, const SYSTEMTIME& time,
                                    int microseconds);

  // `text` with & < > " ' replaced by their HTML character references.
  static std::string EscapeHtml(const std::string& text);

 private:
  LogFile(std::filesystem::path path, LogFileType type, TextDateFormat dateFormat);

  std::string TimeText(const SYSTEMTIME& time) const;
  // Appends `record` as a line, with its time already as text.
  void Append(std::string& lines, const LogRecord& record, const std::string& time) const;
  static void AppendEscapedHtml(std::string& out, const std::string& text);

  const std::filesystem::path path_;
  const LogFileType type_;
  const TextDateFormat dateFormat_;
  std::mutex mutex_;
  std::ofstream stream_;  // Guarded by mutex_
};

}  // namespace Framework
