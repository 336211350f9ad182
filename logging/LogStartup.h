// Starting the process's file log, once per process, from the configuration's base directory.
//
// The first module of a process to start the log decides its file; later starts, from any
// module, only log their start line. Each module that uses this opens the logger-state cell
// once, on first use, and releases it when the module is unloaded; the last module to go stops
// the log with ">> Stopped logging to ...". Thread-safe.
#pragma once

#include <string>

#include "LoggerState.h"

namespace QuillmarBasebandSDK {

class LogStartup {
 public:
  // The log file name for `baseDirectory`: the directory, "/" unless it already ends in a slash
  // or a backslash, then "Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html".
  static std::string LogFileName(const std::string& baseDirectory);

  // Starts the file log under `baseDirectory` unless this process has started logging, then logs
  // "Creating QuillmarBasebandConfiguration. Parsing config file...". Never throws.
  static void StartLogging(const std::string& baseDirectory);

  // The process's logger state, opening this module's cell on first use; null (and a line on
  // standard error) when the cell cannot be opened.
  static LoggerState* ProcessLoggerState();
};

}  // namespace QuillmarBasebandSDK
