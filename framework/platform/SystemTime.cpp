#include "SystemTime.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace Framework {
namespace {

SYSTEMTIME FromBrokenDown(const std::tm& parts, int milliseconds) {
  SYSTEMTIME time{};
  time.wYear = static_cast<std::uint16_t>(parts.tm_year + 1900);
  time.wMonth = static_cast<std::uint16_t>(parts.tm_mon + 1);
  time.wDayOfWeek = static_cast<std::uint16_t>(parts.tm_wday);
  time.wDay = static_cast<std::uint16_t>(parts.tm_mday);
  time.wHour = static_cast<std::uint16_t>(parts.tm_hour);
  time.wMinute = static_cast<std::uint16_t>(parts.tm_min);
  time.wSecond = static_cast<std::uint16_t>(parts.tm_sec);
  time.wMilliseconds = static_cast<std::uint16_t>(milliseconds);
  return time;
}

template <typename Convert>
SYSTEMTIME Now(Convert convert) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto sinceEpoch = now.time_since_epoch();
  const int milliseconds = static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000);
  std::tm parts{};
  convert(&seconds, &parts);
  return FromBrokenDown(parts, milliseconds);
}

}  // namespace

#if defined(_WIN32)
void GetCurrentUtcTime(SYSTEMTIME* time) { ::GetSystemTime(time); }
void GetCurrentLocalTime(SYSTEMTIME* time) { ::GetLocalTime(time); }
#else
void GetCurrentUtcTime(SYSTEMTIME* time) { *time = Now(gmtime_r); }
void GetCurrentLocalTime(SYSTEMTIME* time) { *time = Now(localtime_r); }
#endif

std::string IsoUtcText(const SYSTEMTIME& time) {
  char text[48];  // room for any 16-bit field values
  std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", time.wYear, time.wMonth,
                time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
  return text;
}

}  // namespace Framework
