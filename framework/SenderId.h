// The value that names the processor an event comes from.
#pragma once

#include <cstdint>

namespace Framework {

// Unique per processor within a process; 0 names no processor.
using SenderId = std::uint64_t;

}  // namespace Framework
