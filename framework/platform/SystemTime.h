// The Windows broken-down time record, with its Windows layout on every system.
//
// The product keeps every time as a UTC SYSTEMTIME. On Windows this is the system's own type;
// elsewhere it is declared here with the same field order and widths (16 bytes).
#pragma once

#include <string>

#include "Export.h"

#if defined(_WIN32)
// The type alone, without <windows.h> and the macros it defines for every includer.
// windef.h first: minwinbase.h uses its types without including it.
// clang-format off
#include <windef.h>
#include <minwinbase.h>
// clang-format on
#else
#  include <cstdint>

struct SYSTEMTIME {
  std::uint16_t wYear;
  std::uint16_t wMonth;
  std::uint16_t wDayOfWeek;
  std::uint16_t wDay;
  std::uint16_t wHour;
  std::uint16_t wMinute;
  std::uint16_t wSecond;
  std::uint16_t wMilliseconds;
};

static_assert(sizeof(SYSTEMTIME) == 16, "SYSTEMTIME must keep the Windows layout");
#endif

namespace Framework {

// Fills *time with the current UTC time, to the millisecond.
FRAMEWORK_API void GetCurrentUtcTime(SYSTEMTIME* time);

// Fills *time with the current local time, to the millisecond.
FRAMEWORK_API void GetCurrentLocalTime(SYSTEMTIME* time);

// `time` (UTC) as ISO 8601 text to the millisecond: "2026-11-21T07:40:03.123Z".
FRAMEWORK_API std::string IsoUtcText(const SYSTEMTIME& time);

}  // namespace Framework
