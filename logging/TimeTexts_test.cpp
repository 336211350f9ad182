#include "TimeTexts.h"

#include <gtest/gtest.h>

namespace QuillmarBasebandSDK {
namespace {

TEST(TimeTexts, EveryForm) {
  const SYSTEMTIME time{2026, 1, 3, 7, 8, 9, 5, 42};
  EXPECT_EQ("2026-01-07", TimeTexts::Date(time));
  EXPECT_EQ("08:09:05", TimeTexts::Time(time));
  EXPECT_EQ("08:09:05.042", TimeTexts::TimeWithMilliseconds(time));
  EXPECT_EQ("08:09:05:042", TimeTexts::LogLineTime(time));
  EXPECT_EQ("2026-01-07 08:09:05", TimeTexts::DateTime(time));
  EXPECT_EQ("2026-01-07 08:09:05:042", TimeTexts::LogLineDateTime(time));
  const SYSTEMTIME early{601, 12, 0, 31, 23, 59, 59, 999};
  EXPECT_EQ("0601-12-31 23:59:59:999", TimeTexts::LogLineDateTime(early));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
