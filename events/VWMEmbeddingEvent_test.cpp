#include "events/VWMEmbeddingEvent.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <string>
#include <vector>

namespace Framework {
namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;

// Reaches the protected setters and records every OnPropertySet.
class RecordingEmbeddingEvent : public VWMEmbeddingEvent {
 public:
  using VWMEmbeddingEvent::SetAverageEnergy;
  using VWMEmbeddingEvent::SetLatestWatermarkTime;
  using VWMEmbeddingEvent::SetPayload;
  using VWMEmbeddingEvent::VWMEmbeddingEvent;

  void OnPropertySet(const std::string& name) override { notified.push_back(name); }

  std::vector<std::string> notified;
};

TEST(VWMEmbeddingEvent, FromEnergyHasAnEmptyPayloadAndNoWatermarkTime) {
  const VWMEmbeddingEvent event(0.125f);
  EXPECT_EQ(event.GetPropertyNames(), (std::vector<std::string>{"AverageEnergy", "Payload"}));
  EXPECT_TRUE(event.HasPropertyOfType<float>("AverageEnergy"));
  EXPECT_TRUE(event.HasPropertyOfType<std::string>("Payload"));
  EXPECT_EQ(event.GetAverageEnergy(), 0.125f);
  EXPECT_EQ(event.GetPayload(), "");
  EXPECT_TRUE(event.GetLatestWatermarkTime().is_not_a_date_time());
}

TEST(VWMEmbeddingEvent, FromPayloadAndTimeMarksThatNoEnergyWasMeasured) {
  const ptime latest = time_from_string("2026-11-21 07:40:03");
  const VWMEmbeddingEvent event("0123456789AB", latest);
  EXPECT_EQ(event.GetPropertyNames(),
            (std::vector<std::string>{"AverageEnergy", "LatestWatermarkTime", "Payload"}));
  EXPECT_TRUE(event.HasPropertyOfType<ptime>("LatestWatermarkTime"));
  EXPECT_TRUE(event.HasPropertyOfType<float>("AverageEnergy"));
  EXPECT_EQ(event.GetPayload(), "0123456789AB");
  EXPECT_EQ(event.GetLatestWatermarkTime(), latest);
  EXPECT_EQ(event.GetAverageEnergy(), -1.0f);
  EXPECT_EQ(VWMEmbeddingEvent::kNoEnergy, -1.0f);
}

TEST(VWMEmbeddingEvent, LatestWatermarkTimeKeepsSpecialValues) {
  static const boost::date_time::special_values specials[] = {
      boost::date_time::pos_infin, boost::date_time::neg_infin,
      boost::date_time::not_a_date_time};
  for (const auto special : specials) {
    EXPECT_EQ(VWMEmbeddingEvent("", ptime(special)).GetLatestWatermarkTime(), ptime(special))
        << special;
  }
}

TEST(VWMEmbeddingEvent, SettersReplaceTheValueThenNotifyWithTheName) {
  RecordingEmbeddingEvent event(0.0f);
  event.notified.clear();
  event.SetPayload("AB");
  event.SetLatestWatermarkTime(time_from_string("2000-01-01 00:00:01"));
  event.SetAverageEnergy(2.5f);
  EXPECT_EQ(event.notified,
            (std::vector<std::string>{"Payload", "LatestWatermarkTime", "AverageEnergy"}));
  EXPECT_EQ(event.GetPayload(), "AB");
  EXPECT_EQ(event.GetLatestWatermarkTime(), time_from_string("2000-01-01 00:00:01"));
  EXPECT_EQ(event.GetAverageEnergy(), 2.5f);
}

TEST(VWMEmbeddingEvent, CopiesCopyTheStore) {
  RecordingEmbeddingEvent original(1.0f);
  const VWMEmbeddingEvent copy(original);
  original.SetAverageEnergy(2.0f);
  EXPECT_EQ(copy.GetAverageEnergy(), 1.0f);
  VWMEmbeddingEvent assigned(3.0f);
  assigned = original;
  EXPECT_EQ(assigned.GetAverageEnergy(), 2.0f);
}

}  // namespace
}  // namespace Framework
