#include "events/VWMDetectionEvent.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Framework {
namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;

// Reaches the protected setters and records every OnPropertySet.
class RecordingDetectionEvent : public VWMDetectionEvent {
 public:
  using VWMDetectionEvent::VWMDetectionEvent;
  using VWMDetectionEvent::SetCidName;
  using VWMDetectionEvent::SetDetection;
  using VWMDetectionEvent::SetDetectionQuality;
  using VWMDetectionEvent::SetDetectionStatus;
  using VWMDetectionEvent::SetMediaDetectionTimestamp;
  using VWMDetectionEvent::SetMirrored;
  using VWMDetectionEvent::SetPresence;
  using VWMDetectionEvent::SetScale;
  using VWMDetectionEvent::SetTimestamp;
  using VWMDetectionEvent::SetWatermarkBits;
  using VWMDetectionEvent::SetWatermarkSeconds;

  void OnPropertySet(const std::string& name) override { notified.push_back(name); }

  std::vector<std::string> notified;
};

LSNDetection FullDetection() {
  LSNDetection detection;
  detection.isFullDetection = true;
  detection.payload = "0123456789AB";
  detection.cid = 0x1234567890ull;
  detection.timestamp = 86399;
  detection.quality = 0.75;
  detection.cidName = "Evening News";
  detection.mediaDetectionTimestamp = 12.5;
  detection.isFound = true;
  return detection;
}

// The names of an event made from a scale, mirror or presence result.
const std::vector<std::string> kResultEventNames = {
    "Channel", "Detection", "DetectionQuality", "Mirrored", "Payload", "Presence", "Scale",
    "TimecodeLSB", "TimecodeMSB"};

std::vector<std::string> WithDetectionNames() {
  return {"Channel",  "CidName", "Detection",   "DetectionQuality", "DetectionStatus",
          "MediaDetectionTimestamp", "Mirrored", "Payload", "Presence", "Scale",
          "TimecodeLSB", "TimecodeMSB", "Timestamp", "WatermarkBits", "WatermarkSeconds"};
}

TEST(VWMDetectionEvent, FromDetectionSetsEveryPropertyWithItsStoredType) {
  const LSNDetection detection = FullDetection();
  const VWMDetectionEvent event(detection);

  EXPECT_EQ(event.GetPropertyNames(), WithDetectionNames());
  EXPECT_TRUE(event.HasPropertyOfType<std::uint64_t>("Channel"));
  EXPECT_TRUE(event.HasPropertyOfType<std::uint64_t>("TimecodeMSB"));
  EXPECT_TRUE(event.HasPropertyOfType<std::uint64_t>("TimecodeLSB"));
  EXPECT_TRUE(event.HasPropertyOfType<std::string>("Payload"));
  EXPECT_TRUE(event.HasPropertyOfType<double>("DetectionQuality"));
  EXPECT_TRUE(event.HasPropertyOfType<std::int32_t>("WatermarkBits"));
  EXPECT_TRUE(event.HasPropertyOfType<std::int32_t>("WatermarkSeconds"));
  EXPECT_TRUE(event.HasPropertyOfType<ptime>("Timestamp"));
  EXPECT_TRUE(event.HasPropertyOfType<double>("MediaDetectionTimestamp"));

  EXPECT_EQ(event.GetProperty<std::uint64_t>("Channel"), 0u);
  EXPECT_EQ(event.GetProperty<std::uint64_t>("TimecodeMSB"), 0u);
  EXPECT_EQ(event.GetProperty<std::uint64_t>("TimecodeLSB"), 0u);
  EXPECT_EQ(event.GetProperty<std::string>("Payload"), "0123456789AB");
  EXPECT_EQ(event.GetDetection(), &detection);
  EXPECT_EQ(event.GetScale(), nullptr);
  EXPECT_EQ(event.GetMirrored(), nullptr);
  EXPECT_EQ(event.GetPresence(), nullptr);
  EXPECT_EQ(event.GetDetectionStatus(), "Full");
  EXPECT_EQ(event.GetCidName(), "Evening News");
  EXPECT_EQ(event.GetWatermarkBits(), 48);
  EXPECT_EQ(event.GetWatermarkSeconds(), 1);
  EXPECT_DOUBLE_EQ(event.GetDetectionQuality(), 0.75);
  EXPECT_EQ(event.GetTimestamp(), time_from_string("2000-01-01 23:59:59"));
  EXPECT_DOUBLE_EQ(event.GetMediaDetectionTimestamp(), 12.5);
}

TEST(VWMDetectionEvent, StatusIsNotFoundWheneverTheFoundFlagIsClear) {
  static const struct {
    bool isFullDetection;
    bool isFound;
    const char* status;
  } cases[] = {
      {true, true, "Full"},
      {false, true, "None"},
      {true, false, "Not found"},
      {false, false, "Not found"},
  };
  for (const auto& c : cases) {
    LSNDetection detection = FullDetection();
    detection.isFullDetection = c.isFullDetection;
    detection.isFound = c.isFound;
    EXPECT_EQ(VWMDetectionEvent(detection).GetDetectionStatus(), c.status)
        << "full " << c.isFullDetection << ", found " << c.isFound;
  }
}

TEST(VWMDetectionEvent, TimestampCountsSignedSecondsFrom2000) {
  static const struct {
    std::int64_t timestamp;
    const char* time;
  } cases[] = {
      {0, "2000-01-01 00:00:00"},
      {-1, "1999-12-31 23:59:59"},
      {86399, "2000-01-01 23:59:59"},
      {86400, "2000-01-02 00:00:00"},
      {std::numeric_limits<std::int32_t>::max(), "2068-01-19 03:14:07"},
      {std::numeric_limits<std::int32_t>::min(), "1931-12-13 20:45:52"},
      // Only the low 32 bits count.
      {0xFFFFFFFFll, "1999-12-31 23:59:59"},
      {0x100000000ll, "2000-01-01 00:00:00"},
  };
  for (const auto& c : cases) {
    LSNDetection detection = FullDetection();
    detection.timestamp = c.timestamp;
    EXPECT_EQ(VWMDetectionEvent(detection).GetTimestamp(), time_from_string(c.time))
        << "time stamp " << c.timestamp;
  }
}

TEST(VWMDetectionEvent, ResultEventsPointAtTheirResultAndLeaveDetectionNamesAbsent) {
  const ScaleFoundEvent scale;
  const MirroredDetectionEvent mirrored;
  const CBasebandWMDetection presence{CBasebandWMDetection::kPresent, 3.0};
  const struct {
    const char* kind;
    VWMDetectionEvent event;
    const void* scale;
    const void* mirrored;
    const void* presence;
  } cases[] = {
      {"scale", VWMDetectionEvent(scale), &scale, nullptr, nullptr},
      {"mirrored", VWMDetectionEvent(mirrored), nullptr, &mirrored, nullptr},
      {"presence", VWMDetectionEvent(presence), nullptr, nullptr, &presence},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    EXPECT_EQ(c.event.GetPropertyNames(), kResultEventNames);
    EXPECT_EQ(c.event.GetDetection(), nullptr);
    EXPECT_EQ(static_cast<const void*>(c.event.GetScale()), c.scale);
    EXPECT_EQ(static_cast<const void*>(c.event.GetMirrored()), c.mirrored);
    EXPECT_EQ(static_cast<const void*>(c.event.GetPresence()), c.presence);
    EXPECT_EQ(c.event.GetProperty<std::string>("Payload"), "");
    EXPECT_EQ(c.event.GetDetectionQuality(), 0.0);
    EXPECT_EQ(c.event.GetProperty<std::uint64_t>("Channel"), 0u);
    // Absent names read as the property store's empty values.
    EXPECT_EQ(c.event.GetDetectionStatus(), "");
    EXPECT_EQ(c.event.GetCidName(), "");
    EXPECT_EQ(c.event.GetWatermarkBits(), 0);
    EXPECT_EQ(c.event.GetWatermarkSeconds(), 0);
    EXPECT_TRUE(c.event.GetTimestamp().is_not_a_date_time());
    EXPECT_EQ(c.event.GetMediaDetectionTimestamp(), 0.0);
  }
  EXPECT_EQ(VWMDetectionEvent(presence).GetPresence()->state, 1);
}

TEST(VWMDetectionEvent, SettersReplaceTheValueThenNotifyWithTheName) {
  const LSNDetection detection = FullDetection();
  const ScaleFoundEvent scale;
  const MirroredDetectionEvent mirrored;
  const CBasebandWMDetection presence;
  RecordingDetectionEvent event(presence);
  event.notified.clear();

  event.SetDetection(&detection);
  event.SetScale(&scale);
  event.SetMirrored(&mirrored);
  event.SetPresence(nullptr);
  event.SetDetectionStatus("None");
  event.SetWatermarkBits(32);
  event.SetWatermarkSeconds(2);
  event.SetCidName("Sports");
  event.SetDetectionQuality(0.5);
  event.SetTimestamp(time_from_string("2026-11-21 07:40:03"));
  event.SetMediaDetectionTimestamp(99.0);

  EXPECT_EQ(event.notified,
            (std::vector<std::string>{"Detection", "Scale", "Mirrored", "Presence",
                                      "DetectionStatus", "WatermarkBits", "WatermarkSeconds",
                                      "CidName", "DetectionQuality", "Timestamp",
                                      "MediaDetectionTimestamp"}));
  EXPECT_EQ(event.GetDetection(), &detection);
  EXPECT_EQ(event.GetScale(), &scale);
  EXPECT_EQ(event.GetMirrored(), &mirrored);
  EXPECT_EQ(event.GetPresence(), nullptr);
  EXPECT_EQ(event.GetDetectionStatus(), "None");
  EXPECT_EQ(event.GetWatermarkBits(), 32);
  EXPECT_EQ(event.GetWatermarkSeconds(), 2);
  EXPECT_EQ(event.GetCidName(), "Sports");
  EXPECT_EQ(event.GetDetectionQuality(), 0.5);
  EXPECT_EQ(event.GetTimestamp(), time_from_string("2026-11-21 07:40:03"));
  EXPECT_EQ(event.GetMediaDetectionTimestamp(), 99.0);
}

TEST(VWMDetectionEvent, TimestampKeepsSpecialValues) {
  static const boost::date_time::special_values specials[] = {
      boost::date_time::pos_infin, boost::date_time::neg_infin,
      boost::date_time::not_a_date_time};
  const CBasebandWMDetection presence;
  for (const auto special : specials) {
    RecordingDetectionEvent event(presence);
    event.SetTimestamp(ptime(special));
    EXPECT_EQ(event.GetTimestamp(), ptime(special)) << special;
    EXPECT_TRUE(event.GetTimestamp().is_special());
  }
}

TEST(VWMDetectionEvent, CopiesCopyTheStoreButNotTheResult) {
  const LSNDetection detection = FullDetection();
  const LSNDetection other;
  RecordingDetectionEvent original(detection);
  VWMDetectionEvent copy(original);
  EXPECT_EQ(copy.GetDetection(), &detection);
  EXPECT_EQ(copy.GetPropertyNames(), WithDetectionNames());

  original.SetCidName("Changed");
  original.SetDetection(&other);
  EXPECT_EQ(copy.GetCidName(), "Evening News");
  EXPECT_EQ(copy.GetDetection(), &detection);

  copy = original;
  EXPECT_EQ(copy.GetCidName(), "Changed");
  EXPECT_EQ(copy.GetDetection(), &other);
}

}  // namespace
}  // namespace Framework
