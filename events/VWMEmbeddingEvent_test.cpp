#include "events/VWMEmbeddingEvent.h"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <string>
#include <vector>

namespace Framework {
namespace {

TEST(VWMEmbeddingEvent, AnEnergyReportHasNoPayloadAndAWatermarkReportNoEnergy) {
  const VWMEmbeddingEvent energy(0.125f);
  EXPECT_EQ(energy.GetPropertyNames(), (std::vector<std::string>{"AverageEnergy", "Payload"}));
  EXPECT_TRUE(energy.HasPropertyOfType<float>("AverageEnergy"));
  EXPECT_EQ(energy.GetAverageEnergy(), 0.125f);
  EXPECT_EQ(energy.GetPayload(), "");
  EXPECT_TRUE(energy.GetLatestWatermarkTime().is_not_a_date_time());

  const auto latest = boost::posix_time::time_from_string("2026-11-21 07:40:03");
  const VWMEmbeddingEvent mark("0123456789AB", latest);
  EXPECT_EQ(mark.GetPropertyNames(),
            (std::vector<std::string>{"AverageEnergy", "LatestWatermarkTime", "Payload"}));
  EXPECT_EQ(mark.GetPayload(), "0123456789AB");
  EXPECT_EQ(mark.GetLatestWatermarkTime(), latest);
  EXPECT_EQ(mark.GetAverageEnergy(), -1.0f) << "no energy was measured";
}

}  // namespace
}  // namespace Framework
