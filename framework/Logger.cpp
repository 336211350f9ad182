#include "Logger.h"

#include <algorithm>
#include <atomic>
#include <boost/format.hpp>
#include <chrono>
#include <iostream>
#include <mutex>
#include <vector>

#include "LogFile.h"
#include "platform/Process.h"

namespace Framework {
namespace {

// The logger's process-wide state; never destroyed, so logging works during exit.
struct LoggerCore {
  std::atomic<bool> initialized{false};
  std::atomic<int> minimumLevel{static_cast<int>(EventLevel::Debug)};
  std::atomic<bool> hasSinks{false};  // !sinks.empty(), readable without the mutex
  std::mutex mutex;
  std::vector<std::shared_ptr<LogSink>> sinks;  // Guarded by mutex
  // Guarded by mutex: the files among the sinks, in the order they were opened
  std::vector<std::pair<std::shared_ptr<LogSink>, std::filesystem::path>> files;
};

LoggerCore& Core() {
  static LoggerCore* core = new LoggerCore;
  return *core;
}

std::string FormatText(const boost::format& text) {
  try {
    return text.str();
  } catch (const std::exception& error) {
    return std::string("(malformed log line: ") + error.what() + ")";
  }
}

int CurrentMicroseconds() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count() % 1000000);
}

}  // namespace

void Logger::Init() { Core().initialized = true; }

bool Logger::IsInitialized() { return Core().initialized; }

std::shared_ptr<LogSink> Logger::AddFileLogging(const std::filesystem::path& pattern,
                                                LogFileType type, TextDateFormat dateFormat) {
  try {
    SYSTEMTIME now{};
    GetCurrentLocalTime(&now);
    std::shared_ptr<LogSink> file = LogFile::Open(pattern, type, dateFormat, now,
                                                  CurrentMicroseconds());
    if (file == nullptr) {
      std::cerr << "Logger: cannot open log file " << pattern.string() << std::endl;
      return nullptr;
    }
    AddSink(file);
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().files.emplace_back(file, file->Target());
    return file;
  } catch (const std::exception& error) {
    std::cerr << "Logger: cannot open log file " << pattern.string() << ": " << error.what()
              << std::endl;
    return nullptr;
  }
}

void Logger::AddSink(std::shared_ptr<LogSink> sink) {
  if (sink == nullptr) return;
  std::lock_guard<std::mutex> lock(Core().mutex);
  Core().sinks.push_back(std::move(sink));
  Core().hasSinks = true;
}

void Logger::RemoveSink(const std::shared_ptr<LogSink>& sink) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  auto& sinks = Core().sinks;
  sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
  Core().hasSinks = !sinks.empty();
  auto& files = Core().files;
  files.erase(std::remove_if(files.begin(), files.end(),
                             [&sink](const auto& file) { return file.first == sink; }),
              files.end());
}

std::filesystem::path Logger::FileLogPath() {
  std::lock_guard<std::mutex> lock(Core().mutex);
  return Core().files.empty() ? std::filesystem::path() : Core().files.front().second;
}

void Logger::SetMinimumLevel(EventLevel level) { Core().minimumLevel = static_cast<int>(level); }

EventLevel Logger::GetMinimumLevel() { return static_cast<EventLevel>(Core().minimumLevel.load()); }

bool Logger::Writes(EventLevel level) {
  const LoggerCore& core = Core();
  return static_cast<int>(level) >= core.minimumLevel && core.hasSinks;
}

void Logger::Info(const std::string& text) { Write(EventLevel::Info, text); }
void Logger::Info(const boost::format& text) { Write(EventLevel::Info, FormatText(text)); }
void Logger::Warning(const std::string& text) { Write(EventLevel::Warning, text); }
void Logger::Warning(const boost::format& text) { Write(EventLevel::Warning, FormatText(text)); }
void Logger::Error(const std::string& text) { Write(EventLevel::Error, text); }
void Logger::Error(const boost::format& text) { Write(EventLevel::Error, FormatText(text)); }

void Logger::Exception(const std::exception& error, const std::string& where) {
  Write(EventLevel::Error, (where.empty() ? "" : where + ": ") + "exception: " + error.what());
}

void Logger::WriteAll(EventLevel level, std::vector<std::string> texts) {
  if (!Writes(level) || texts.empty()) return;
  LoggerCore& core = Core();
  try {
    std::vector<LogRecord> records(texts.size());
    records[0] = {level, {}, CurrentThreadId(), {}};
    GetCurrentLocalTime(&records[0].localTime);
    for (std::size_t i = 0; i < texts.size(); ++i) {
      records[i] = {level, records[0].localTime, records[0].threadId, std::move(texts[i])};
    }
    std::lock_guard<std::mutex> lock(core.mutex);
    for (const auto& sink : core.sinks) sink->WriteAll(records);
  } catch (const std::exception& error) {
    std::cerr << "Logger: cannot write lines: " << error.what() << std::endl;
  }
}

void Logger::Write(EventLevel level, const std::string& text) {
  if (!Writes(level)) return;
  LoggerCore& core = Core();
  try {
    LogRecord record{level, {}, CurrentThreadId(), text};
    GetCurrentLocalTime(&record.localTime);
    std::lock_guard<std::mutex> lock(core.mutex);
    for (const auto& sink : core.sinks) sink->Write(record);
  } catch (const std::exception& error) {
    std::cerr << "Logger: cannot write a line: " << error.what() << std::endl;
  }
}

}  // namespace Framework
