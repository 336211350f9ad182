#include "LogStartup.h"

#include <iostream>
#include <memory>

#include "LoggerStateCell.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr char kLogFilePattern[] = "Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html";
constexpr Framework::LogFileType kLogFileType = Framework::LogFileType::Html;        // type 1
constexpr Framework::TextDateFormat kDateFormat =
    Framework::TextDateFormat::DateTimeMilliseconds;                                 // format 0
constexpr Framework::EventLevel kMinimumLevel = Framework::EventLevel::Info;          // level 2

// This module's opening of the cell. Opened on first use; released by the module's exit
// routine (the destructor of this object, run when the module is unloaded or the process ends).
class ModuleCell {
 public:
  LoggerState* State() {
    std::call_once(opened_, [this] {
      try {
        cell_ = std::make_unique<LoggerStateCell>();
      } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
      }
    });
    return cell_ != nullptr ? &cell_->State() : nullptr;
  }

 private:
  std::once_flag opened_;
  std::unique_ptr<LoggerStateCell> cell_;
};

ModuleCell moduleCell;

}  // namespace

std::string LogStartup::LogFileName(const std::string& baseDirectory) {
  const bool endsInSeparator =
      !baseDirectory.empty() && (baseDirectory.back() == '/' || baseDirectory.back() == '\\');
  return baseDirectory + (endsInSeparator ? "" : "/") + kLogFilePattern;
}

LoggerState* LogStartup::ProcessLoggerState() { return moduleCell.State(); }

void LogStartup::StartLogging(const std::string& baseDirectory) {
  const std::string fileName = LogFileName(baseDirectory);
  LoggerState* state = ProcessLoggerState();
  if (state != nullptr) {
    LoggerState::Guard guard(*state);
    if (!Framework::Logger::IsInitialized()) {
      Framework::Logger::Init();
      auto sink = Framework::Logger::AddFileLogging(fileName, kLogFileType, kDateFormat);
      Framework::Logger::SetMinimumLevel(kMinimumLevel);
      if (sink != nullptr) state->SetSink(sink, sink->Target());
    }
  }
  Framework::Logger::Info("Creating QuillmarBasebandConfiguration. Parsing config file...");
}

}  // namespace QuillmarBasebandSDK
