// A log sink for tests: keeps every line it is given, and attaches itself to the Logger for
// its own lifetime.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/Logger.h"

namespace Framework::Testing {

class RecordingLogSink : public LogSink {
 public:
  struct Line {
    EventLevel level;
    std::string text;
  };

  void Write(const LogRecord& record) override {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({record.level, record.text});
  }
  void WriteLine(const std::string& text) override {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({EventLevel::Info, text});
  }
  std::string Target() const override { return "recording"; }

  std::vector<Line> Lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }

  // True when some line at `level` reads exactly `text`.
  bool Has(EventLevel level, const std::string& text) const {
    const auto lines = Lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const Line& line) { return line.level == level && line.text == text; });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

// Attaches a RecordingLogSink to the Logger while it lives.
class ScopedLogRecording {
 public:
  ScopedLogRecording() : sink_(std::make_shared<RecordingLogSink>()) { Logger::AddSink(sink_); }
  ~ScopedLogRecording() { Logger::RemoveSink(sink_); }
  ScopedLogRecording(const ScopedLogRecording&) = delete;
  ScopedLogRecording& operator=(const ScopedLogRecording&) = delete;

  const RecordingLogSink& operator*() const { return *sink_; }
  const RecordingLogSink* operator->() const { return sink_.get(); }

 private:
  std::shared_ptr<RecordingLogSink> sink_;
};

}  // namespace Framework::Testing
