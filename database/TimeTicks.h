// TimeTicks: the one tick scale on which the time-slot database compares and adds times.
//
// A UTC SYSTEMTIME maps to an unsigned 64-bit count of 100-ns ticks since 1601-01-01 00:00:00.000
// UTC (the Windows FILETIME scale) and back; the zero count is "no time at all". The conversion is
// plain proleptic Gregorian arithmetic: it never throws and is defined for every tick count and
// every field value (Boost's calendar throws outside the years 1400 to 9999, and a database row may
// hold any 64-bit value). Stateless; safe from any thread.
#pragma once

#include <cstdint>

#include "framework/platform/SystemTime.h"

namespace QuillmarBasebandSDK {

class TimeTicks {
 public:
  static constexpr std::uint64_t kTicksPerMillisecond = 10'000;
  static constexpr std::uint64_t kTicksPerSecond = 10'000'000;

  // The tick count of `time`; wDayOfWeek is not read.
  static std::uint64_t FromSystemTime(const SYSTEMTIME& time);

  // The time of `ticks`, to the millisecond (sub-millisecond ticks are dropped), with wDayOfWeek.
  static SYSTEMTIME ToSystemTime(std::uint64_t ticks);

  // The time of the stored halves of a tick count.
  static SYSTEMTIME FromHalves(std::uint32_t high, std::uint32_t low);

  // High and low 32-bit halves of `time`'s tick count, as stored in the database.
  static std::uint32_t High(const SYSTEMTIME& time);
  static std::uint32_t Low(const SYSTEMTIME& time);

  // `time` plus `seconds` (may be negative).
  static SYSTEMTIME AddSeconds(const SYSTEMTIME& time, std::int32_t seconds);

  // 1601-01-01 00:00:00.000, tick count 0: no time; as a lock end, "not locked".
  static SYSTEMTIME Zero();
};

}  // namespace QuillmarBasebandSDK
