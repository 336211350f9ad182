#include "events/WatermarkTime.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

namespace Framework {
namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_duration;

TEST(WatermarkTime, EpochIsTheFirstSecondOf2000) {
  EXPECT_EQ(WatermarkTime::Epoch(), ptime(boost::gregorian::date(2000, 1, 1)));
}

TEST(WatermarkTime, SpecialOffsetsGiveSpecialTimes) {
  static const struct {
    boost::date_time::special_values offset;
    boost::date_time::special_values time;
  } cases[] = {
      {boost::date_time::pos_infin, boost::date_time::pos_infin},
      {boost::date_time::neg_infin, boost::date_time::neg_infin},
      {boost::date_time::not_a_date_time, boost::date_time::not_a_date_time},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WatermarkTime::FromOffset(time_duration(c.offset)), ptime(c.time)) << c.offset;
  }
  EXPECT_EQ(WatermarkTime::FromOffset(boost::posix_time::hours(-24)),
            ptime(boost::gregorian::date(1999, 12, 31)));
}

TEST(WatermarkTime, DigitsAreFourteenWithoutTheSeparator) {
  static const struct {
    std::int64_t timestamp;
    const char* digits;
  } cases[] = {
      {0, "20000101000000"},
      {86399, "20000101235959"},
      {-1, "19991231235959"},
      {849219300, "20261128221500"},
      {(std::int64_t{1} << 32) + 1, "20000101000001"},  // only the low 32 bits count
  };
  for (const auto& c : cases) EXPECT_EQ(c.digits, WatermarkTime::Digits(c.timestamp)) << c.timestamp;
}

TEST(WatermarkTime, SecondsOfASystemTimeRoundDown) {
  static const struct {
    SYSTEMTIME time;
    std::int64_t seconds;
  } cases[] = {
      {{2000, 1, 6, 1, 0, 0, 0, 0}, 0},
      {{2000, 1, 6, 1, 0, 0, 1, 999}, 1},
      {{1999, 12, 5, 31, 23, 59, 59, 0}, -1},
      {{1999, 12, 5, 31, 23, 59, 59, 500}, -1},
      {{2026, 11, 6, 28, 22, 15, 0, 250}, 849219300},
      {{0, 0, 0, 0, 0, 0, 0, 0}, 0},      // never set
      {{2026, 2, 0, 30, 0, 0, 0, 0}, 0},  // no such day
  };
  for (const auto& c : cases) EXPECT_EQ(c.seconds, WatermarkTime::SecondsOf(c.time)) << c.seconds;
}

}  // namespace
}  // namespace Framework
