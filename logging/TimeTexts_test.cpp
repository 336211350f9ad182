#include "TimeTexts.h"

#include <gtest/gtest.h>

namespace QuillmarBasebandSDK {
namespace {

TEST(TimeTexts, EveryForm) {
  const SYSTEMTIME time{601, 1, 3, 7, 8, 9, 5, 42};
  EXPECT_EQ("0601-01-07", TimeTexts::Date(time));
  EXPECT_EQ("08:09:05", TimeTexts::Time(time));
  EXPECT_EQ("08:09:05.042", TimeTexts::TimeWithMilliseconds(time));
  EXPECT_EQ("08:09:05:042", TimeTexts::LogLineTime(time));
  EXPECT_EQ("0601-01-07 08:09:05", TimeTexts::DateTime(time));
  EXPECT_EQ("0601-01-07 08:09:05:042", TimeTexts::LogLineDateTime(time));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
