#include "events/WatermarkTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace Framework {
namespace {

// Digits reads the time stamp as FromSeconds does: its low 32 bits, signed.
TEST(WatermarkTime, TimeStampsAreSignedSecondsFrom2000) {
  static const struct {
    std::int64_t timestamp;
    const char* digits;
  } cases[] = {
      {0, "20000101000000"},
      {86399, "20000101235959"},
      {-1, "19991231235959"},
      {849219300, "20261128221500"},
      {std::numeric_limits<std::int32_t>::max(), "20680119031407"},
      {std::numeric_limits<std::int32_t>::min(), "19311213204552"},
      {(std::int64_t{1} << 32) + 1, "20000101000001"},  // only the low 32 bits count
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.digits, WatermarkTime::Digits(c.timestamp)) << c.timestamp;
  }
}

TEST(WatermarkTime, SecondsOfASystemTimeRoundDown) {
  static const struct {
    SYSTEMTIME time;
    std::int64_t seconds;
  } cases[] = {
      {{2000, 1, 6, 1, 0, 0, 1, 999}, 1},
      {{1999, 12, 5, 31, 23, 59, 59, 500}, -1},
      {{2026, 11, 6, 28, 22, 15, 0, 250}, 849219300},
      {{0, 0, 0, 0, 0, 0, 0, 0}, 0},      // never set
      {{2026, 2, 0, 30, 0, 0, 0, 0}, 0},  // no such day
  };
  for (const auto& c : cases) EXPECT_EQ(c.seconds, WatermarkTime::SecondsOf(c.time)) << c.seconds;
}

}  // namespace
}  // namespace Framework
