#include "database/TimeTicks.h"

#include <gtest/gtest.h>

#include "database/EmbedderDatabaseV2.h"

namespace QuillmarBasebandSDK {
namespace {

std::string Text(const SYSTEMTIME& time) { return EmbedderDatabaseV2::SystemTimeToString(&time); }

// Both ways, with the day of the week; the text drops the milliseconds.
TEST(TimeTicks, MatchesTheWindowsFileTimeScale) {
  static const struct {
    SYSTEMTIME time;  // year, month, day of the week (Sunday 0), day, hour, minute, second, ms
    std::uint64_t ticks;
    const char* text;
  } cases[] = {
      {{1601, 1, 1, 1, 0, 0, 0, 0}, 0, "1601-01-01T00:00:00Z"},
      {{1970, 1, 4, 1, 0, 0, 0, 0}, 116'444'736'000'000'000ULL, "1970-01-01T00:00:00Z"},
      // Around the leap days the century rule leaves out, and the one it keeps.
      {{1700, 3, 1, 1, 0, 0, 0, 0}, 31'292'352'000'000'000ULL, "1700-03-01T00:00:00Z"},
      {{1900, 3, 4, 1, 0, 0, 0, 0}, 94'405'824'000'000'000ULL, "1900-03-01T00:00:00Z"},
      {{2000, 2, 2, 29, 12, 0, 0, 1}, 125'962'992'000'010'000ULL, "2000-02-29T12:00:00Z"},
      {{2026, 11, 6, 21, 7, 8, 9, 999}, 134'397'184'899'990'000ULL, "2026-11-21T07:08:09Z"},
      {{2100, 3, 1, 1, 0, 0, 0, 0}, 157'520'160'000'000'000ULL, "2100-03-01T00:00:00Z"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(TimeTicks::FromSystemTime(c.time), c.ticks);
    const SYSTEMTIME back = TimeTicks::ToSystemTime(c.ticks);
    EXPECT_EQ(Text(back), c.text);
    EXPECT_EQ(back.wMilliseconds, c.time.wMilliseconds);
    EXPECT_EQ(back.wDayOfWeek, c.time.wDayOfWeek);
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
