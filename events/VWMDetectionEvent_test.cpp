#include "events/VWMDetectionEvent.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace Framework {
namespace {

using boost::posix_time::time_from_string;

TEST(VWMDetectionEvent, FromDetectionSetsEveryPropertyWithItsStoredType) {
  LSNDetection detection;
  detection.isFullDetection = true;
  detection.isFound = true;
  detection.payload = "0123456789AB";
  detection.timestamp = -1;
  detection.quality = 0.75;
  detection.cidName = "Evening News";
  detection.mediaDetectionTimestamp = 12.5;
  const VWMDetectionEvent event(detection);
  EXPECT_EQ(event.GetPropertyNames(),
            (std::vector<std::string>{"Channel", "CidName", "Detection", "DetectionQuality",
                                      "DetectionStatus", "MediaDetectionTimestamp", "Mirrored",
                                      "Payload", "Presence", "Scale", "TimecodeLSB",
                                      "TimecodeMSB", "Timestamp", "WatermarkBits",
                                      "WatermarkSeconds"}));
  EXPECT_TRUE(event.HasPropertyOfType<std::uint64_t>("TimecodeMSB"));
  EXPECT_TRUE(event.HasPropertyOfType<std::string>("Payload"));
  EXPECT_EQ(event.GetProperty<std::string>("Payload"), "0123456789AB");
  EXPECT_EQ(event.GetDetection(), &detection);
  EXPECT_EQ(event.GetDetectionStatus(), "Full");
  EXPECT_EQ(event.GetCidName(), "Evening News");
  EXPECT_EQ(event.GetWatermarkBits(), 48);
  EXPECT_EQ(event.GetWatermarkSeconds(), 1);
  EXPECT_EQ(event.GetDetectionQuality(), 0.75);
  EXPECT_EQ(event.GetTimestamp(), time_from_string("1999-12-31 23:59:59"));
  EXPECT_EQ(event.GetMediaDetectionTimestamp(), 12.5);

  const auto statusOf = [&detection](bool isFullDetection, bool isFound) {
    detection.isFullDetection = isFullDetection;
    detection.isFound = isFound;
    return VWMDetectionEvent(detection).GetDetectionStatus();
  };
  EXPECT_EQ("None", statusOf(false, true));
  EXPECT_EQ("Not found", statusOf(true, false));
  EXPECT_EQ("Not found", statusOf(false, false));
}

// The detector test in tests/ shows each kind of result pointed at; the detection's names stay
// absent and read as the property store's empty values.
TEST(VWMDetectionEvent, AResultEventLeavesTheDetectionNamesAbsent) {
  const CBasebandWMDetection presence{CBasebandWMDetection::kPresent, 3.0};
  const VWMDetectionEvent event(presence);
  EXPECT_EQ(event.GetPresence(), &presence);
  EXPECT_EQ(event.GetPropertyNames().size(), 9u);
  EXPECT_EQ(event.GetProperty<std::string>("Payload"), "");
  EXPECT_EQ(event.GetDetectionQuality(), 0.0);
  EXPECT_EQ(event.GetDetectionStatus(), "");
  EXPECT_TRUE(event.GetTimestamp().is_not_a_date_time());
}

}  // namespace
}  // namespace Framework
