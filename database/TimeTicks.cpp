#include "database/TimeTicks.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr std::uint64_t kTicksPerDay = 86'400 * TimeTicks::kTicksPerSecond;
// Days from 1970-01-01 (the civil-date algorithms' origin) back to 1601-01-01.
constexpr std::int64_t kDaysFrom1601To1970 = 134'774;
// 1970-01-01 was a Thursday (Sunday = 0).
constexpr std::int64_t kWeekdayOf1970 = 4;

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's days_from_civil).
std::int64_t DaysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146'097 + dayOfEra - 719'468;
}

// The date of a day count since 1970-01-01 (H. Hinnant's civil_from_days).
void CivilFromDays(std::int64_t days, SYSTEMTIME* time) {
  days += 719'468;
  const std::int64_t era = (days >= 0 ? days : days - 146'096) / 146'097;
  const std::int64_t dayOfEra = days - era * 146'097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const std::int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  time->wYear = static_cast<std::uint16_t>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
  time->wMonth = static_cast<std::uint16_t>(month);
  time->wDay = static_cast<std::uint16_t>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  time->wDayOfWeek = static_cast<std::uint16_t>(((days - 719'468) % 7 + 7 + kWeekdayOf1970) % 7);
}

}  // namespace

std::uint64_t TimeTicks::FromSystemTime(const SYSTEMTIME& time) {
  const std::int64_t days = DaysFromCivil(time.wYear, time.wMonth, time.wDay) + kDaysFrom1601To1970;
  const std::uint64_t milliseconds =
      ((static_cast<std::uint64_t>(time.wHour) * 60 + time.wMinute) * 60 + time.wSecond) * 1'000 +
      time.wMilliseconds;
  // Unsigned arithmetic: a date before 1601 wraps around instead of overflowing.
  return static_cast<std::uint64_t>(days) * kTicksPerDay + milliseconds * kTicksPerMillisecond;
}

SYSTEMTIME TimeTicks::ToSystemTime(std::uint64_t ticks) {
  // The dates of the two days converted last: a table's rows mostly share a day or two (and the
  // zero time of rows not leased), so the calendar is worked out once, not for every row.
  struct RecentDays {
    std::uint64_t day[2] = {~std::uint64_t{0}, ~std::uint64_t{0}};
    SYSTEMTIME date[2] = {};
    int older = 0;
  };
  thread_local RecentDays recent;
  const std::uint64_t day = ticks / kTicksPerDay;
  int slot = recent.day[0] == day ? 0 : recent.day[1] == day ? 1 : -1;
  if (slot < 0) {
    slot = recent.older;
    recent.older ^= 1;
    recent.day[slot] = day;
    recent.date[slot] = SYSTEMTIME{};
    CivilFromDays(static_cast<std::int64_t>(day) - kDaysFrom1601To1970, &recent.date[slot]);
  }
  SYSTEMTIME time = recent.date[slot];
  const std::uint64_t milliseconds = ticks % kTicksPerDay / kTicksPerMillisecond;
  time.wHour = static_cast<std::uint16_t>(milliseconds / 3'600'000);
  time.wMinute = static_cast<std::uint16_t>(milliseconds / 60'000 % 60);
  time.wSecond = static_cast<std::uint16_t>(milliseconds / 1'000 % 60);
  time.wMilliseconds = static_cast<std::uint16_t>(milliseconds % 1'000);
  return time;
}

SYSTEMTIME TimeTicks::FromHalves(std::uint32_t high, std::uint32_t low) {
  return ToSystemTime(static_cast<std::uint64_t>(high) << 32 | low);
}

std::uint32_t TimeTicks::High(const SYSTEMTIME& time) {
  return static_cast<std::uint32_t>(FromSystemTime(time) >> 32);
}

std::uint32_t TimeTicks::Low(const SYSTEMTIME& time) {
  return static_cast<std::uint32_t>(FromSystemTime(time));
}

SYSTEMTIME TimeTicks::AddSeconds(const SYSTEMTIME& time, std::int32_t seconds) {
  const std::uint64_t offset = static_cast<std::uint64_t>(static_cast<std::int64_t>(seconds)) *
                               kTicksPerSecond;
  return ToSystemTime(FromSystemTime(time) + offset);
}

SYSTEMTIME TimeTicks::Zero() { return ToSystemTime(0); }

}  // namespace QuillmarBasebandSDK
