#include "database/TimeTicks.h"

#include <gtest/gtest.h>

#include "database/EmbedderDatabaseV2.h"

namespace QuillmarBasebandSDK {
namespace {

SYSTEMTIME Utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
               int milliseconds = 0) {
  SYSTEMTIME time{};
  time.wYear = static_cast<std::uint16_t>(year);
  time.wMonth = static_cast<std::uint16_t>(month);
  time.wDay = static_cast<std::uint16_t>(day);
  time.wHour = static_cast<std::uint16_t>(hour);
  time.wMinute = static_cast<std::uint16_t>(minute);
  time.wSecond = static_cast<std::uint16_t>(second);
  time.wMilliseconds = static_cast<std::uint16_t>(milliseconds);
  return time;
}

SYSTEMTIME PlusMs(const SYSTEMTIME& time, std::uint64_t milliseconds) {
  return TimeTicks::ToSystemTime(TimeTicks::FromSystemTime(time) +
                                 milliseconds * TimeTicks::kTicksPerMillisecond);
}

void ExpectSameFields(const SYSTEMTIME& expected, const SYSTEMTIME& actual) {
  EXPECT_EQ(EmbedderDatabaseV2::SystemTimeToString(&expected),
            EmbedderDatabaseV2::SystemTimeToString(&actual));
  EXPECT_EQ(expected.wMilliseconds, actual.wMilliseconds);
}

TEST(TimeTicks, MatchesTheWindowsFileTimeScale) {
  static const struct {
    SYSTEMTIME time;
    std::uint64_t ticks;
    int dayOfWeek;  // Sunday = 0
  } cases[] = {
      {Utc(1601, 1, 1), 0, 1},
      {Utc(1970, 1, 1), 116'444'736'000'000'000ULL, 4},
      {Utc(2000, 2, 29, 12, 0, 0, 1), 125'962'992'000'010'000ULL, 2},
      {Utc(2026, 11, 21, 7, 40, 3, 123), 134'397'204'031'230'000ULL, 6},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(EmbedderDatabaseV2::SystemTimeToString(&c.time));
    EXPECT_EQ(c.ticks, TimeTicks::FromSystemTime(c.time));
    const SYSTEMTIME back = TimeTicks::ToSystemTime(c.ticks);
    ExpectSameFields(c.time, back);
    EXPECT_EQ(c.dayOfWeek, back.wDayOfWeek);
  }
}

TEST(TimeTicks, EveryDayFrom1601To2400FollowsThePreviousOne) {
  std::uint64_t ticks = 0;
  constexpr std::uint64_t kDay = 86'400 * TimeTicks::kTicksPerSecond;
  SYSTEMTIME previous = TimeTicks::ToSystemTime(ticks);
  int leapDays = 0;
  while (previous.wYear < 2400) {
    ticks += kDay;
    const SYSTEMTIME day = TimeTicks::ToSystemTime(ticks);
    ASSERT_EQ(ticks, TimeTicks::FromSystemTime(day));
    ASSERT_EQ((previous.wDayOfWeek + 1) % 7, day.wDayOfWeek);
    const bool nextDayOfMonth = day.wDay == previous.wDay + 1 && day.wMonth == previous.wMonth;
    const bool firstOfNextMonth =
        day.wDay == 1 && (day.wMonth == previous.wMonth % 12 + 1) &&
        (day.wYear == previous.wYear + (previous.wMonth == 12 ? 1 : 0));
    ASSERT_TRUE(nextDayOfMonth || firstOfNextMonth)
        << EmbedderDatabaseV2::SystemTimeToString(&day);
    if (day.wMonth == 2 && day.wDay == 29) ++leapDays;
    previous = day;
  }
  // 1604 to 2396 every fourth year, without 1700, 1800, 1900, 2100, 2200, 2300.
  EXPECT_EQ(199 - 6, leapDays);
}

TEST(TimeTicks, HalvesAndSecondsAddUpOnTheTickScale) {
  const SYSTEMTIME time = Utc(2026, 11, 21, 7, 40, 3, 123);
  EXPECT_EQ(TimeTicks::FromSystemTime(time),
            static_cast<std::uint64_t>(TimeTicks::High(time)) << 32 | TimeTicks::Low(time));
  ExpectSameFields(time, TimeTicks::FromHalves(TimeTicks::High(time), TimeTicks::Low(time)));
  ExpectSameFields(Utc(2026, 11, 22, 7, 40, 3, 123), TimeTicks::AddSeconds(time, 86'400));
  ExpectSameFields(Utc(2026, 11, 21, 7, 39, 2, 123), TimeTicks::AddSeconds(time, -61));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(TimeTicks::Zero()));
  EXPECT_EQ(1601, TimeTicks::Zero().wYear);
}

TEST(TimeTicks, ComparisonsAreExactToTheMillisecond) {
  const SYSTEMTIME t = Utc(2026, 11, 21, 7, 40, 3, 123);
  const SYSTEMTIME oneMsLater = PlusMs(t, 1);
  SYSTEMTIME sameWithOtherWeekday = t;
  sameWithOtherWeekday.wDayOfWeek = 3;

  EXPECT_FALSE(EmbedderDatabaseV2::IsEqual(&t, &oneMsLater));
  EXPECT_FALSE(EmbedderDatabaseV2::IsEqual(&oneMsLater, &t));
  EXPECT_TRUE(EmbedderDatabaseV2::IsEqual(&t, &sameWithOtherWeekday));
  EXPECT_FALSE(EmbedderDatabaseV2::IsAfter(&t, &sameWithOtherWeekday));
  EXPECT_TRUE(EmbedderDatabaseV2::IsAfter(&oneMsLater, &t));
  EXPECT_FALSE(EmbedderDatabaseV2::IsAfter(&t, &oneMsLater));

  // Ties: FindNewerTimestamp returns its second argument, FindOlderRecord its first.
  SYSTEMTIME tieA = t;
  SYSTEMTIME tieB = t;
  tieA.wDayOfWeek = 1;
  tieB.wDayOfWeek = 2;
  EXPECT_EQ(2, EmbedderDatabaseV2::FindNewerTimestamp(&tieA, &tieB).wDayOfWeek);
  EXPECT_EQ(oneMsLater.wMilliseconds, EmbedderDatabaseV2::FindNewerTimestamp(&t, &oneMsLater).wMilliseconds);
  EXPECT_EQ(oneMsLater.wMilliseconds, EmbedderDatabaseV2::FindNewerTimestamp(&oneMsLater, &t).wMilliseconds);
  const CID_Timestamp_Lock_Record first{1, t, {}};
  const CID_Timestamp_Lock_Record second{2, t, {}};
  const CID_Timestamp_Lock_Record older{3, PlusMs(t, static_cast<std::uint64_t>(-1)), {}};
  EXPECT_EQ(1u, EmbedderDatabaseV2::FindOlderRecord(first, second).CID);
  EXPECT_EQ(3u, EmbedderDatabaseV2::FindOlderRecord(first, older).CID);
  EXPECT_EQ(3u, EmbedderDatabaseV2::FindOlderRecord(older, first).CID);
}

TEST(TimeTicks, DurationSecondsDropsTheFractionTowardZero) {
  const SYSTEMTIME t = Utc(2026, 11, 21, 7, 40, 3, 123);
  static const struct {
    std::int64_t laterMs;
    std::int64_t seconds;
  } cases[] = {
      {0, 0}, {999, 0}, {-999, 0}, {1'000, 1}, {1'900, 1}, {-1'900, -1}, {-2'000, -2},
      {86'400'999, 86'400}, {-86'401'000, -86'401},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.laterMs);
    const SYSTEMTIME to = PlusMs(t, static_cast<std::uint64_t>(c.laterMs));
    EXPECT_EQ(c.seconds, EmbedderDatabaseV2::DurationSeconds(&t, &to));
  }
}

TEST(TimeTicks, TextFormPadsEveryFieldAndDropsMilliseconds) {
  static const struct {
    SYSTEMTIME time;
    const char* text;
  } cases[] = {
      {Utc(2011, 3, 5, 7, 8, 9, 456), "2011-03-05T07:08:09Z"},
      {Utc(1601, 1, 1), "1601-01-01T00:00:00Z"},
      {Utc(999, 12, 31, 23, 59, 59, 999), "0999-12-31T23:59:59Z"},
      {Utc(2026, 11, 21, 17, 40, 33), "2026-11-21T17:40:33Z"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.text, EmbedderDatabaseV2::SystemTimeToString(&c.time));
  }
  const SYSTEMTIME zero = TimeTicks::Zero();
  EXPECT_EQ("1601-01-01T00:00:00Z", EmbedderDatabaseV2::SystemTimeToString(&zero));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
