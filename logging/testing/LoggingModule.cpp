// A module built for the logging tests: a shared library with its own copy of the logging code,
// as every product module of a process has. Two libraries are built from this file.
#include "framework/platform/Export.h"
#include "logging/LogStartup.h"
#include "logging/LoggerStateCell.h"

// Starts logging under `baseDirectory` from this module.
extern "C" QUILLMAR_DLL_EXPORT void StartModuleLogging(const char* baseDirectory) {
  QuillmarBasebandSDK::LogStartup::StartLogging(baseDirectory);
}

// The logger state this module found through the cell.
extern "C" QUILLMAR_DLL_EXPORT const void* ModuleLoggerState() {
  return QuillmarBasebandSDK::LogStartup::ProcessLoggerState();
}
