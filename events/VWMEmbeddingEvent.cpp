#include "VWMEmbeddingEvent.h"

namespace Framework {

VWMEmbeddingEvent::VWMEmbeddingEvent(float averageEnergy) {
  SetPayload("");
  SetAverageEnergy(averageEnergy);
}

VWMEmbeddingEvent::VWMEmbeddingEvent(const std::string& payload,
                                     const boost::posix_time::ptime& latestWatermarkTime) {
  SetPayload(payload);
  SetLatestWatermarkTime(latestWatermarkTime);
  SetAverageEnergy(kNoEnergy);
}

VWMEmbeddingEvent::~VWMEmbeddingEvent() = default;

std::string VWMEmbeddingEvent::GetPayload() const { return GetProperty<std::string>(kPayload); }

boost::posix_time::ptime VWMEmbeddingEvent::GetLatestWatermarkTime() const {
  return GetProperty<boost::posix_time::ptime>(kLatestWatermarkTime);
}

float VWMEmbeddingEvent::GetAverageEnergy() const { return GetProperty<float>(kAverageEnergy); }

void VWMEmbeddingEvent::SetPayload(const std::string& payload) {
  SetProperty<std::string>(kPayload, payload);
}

void VWMEmbeddingEvent::SetLatestWatermarkTime(const boost::posix_time::ptime& time) {
  SetProperty<boost::posix_time::ptime>(kLatestWatermarkTime, time);
}

void VWMEmbeddingEvent::SetAverageEnergy(float energy) {
  SetProperty<float>(kAverageEnergy, energy);
}

}  // namespace Framework
