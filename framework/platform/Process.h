// Identity of the running process and thread.
#pragma once

#include <cstdint>

#include "Export.h"

namespace Framework {

// The operating system's id of this process.
FRAMEWORK_API std::uint32_t CurrentProcessId();

// The operating system's id of the calling thread (never 0).
FRAMEWORK_API std::uint32_t CurrentThreadId();

// A number that tells this process apart from any earlier process that had the same id:
// its start time in the system's own clock units. Constant for the life of the process.
FRAMEWORK_API std::uint64_t CurrentProcessStartStamp();

}  // namespace Framework
