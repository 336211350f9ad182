#include "MarkerWMEvent.h"

#include <cstdint>

namespace Framework {

MarkerWMEvent::MarkerWMEvent(const std::string& payload, double detectionQuality) {
  SetProperty<std::uint64_t>(kChannel, 0);
  SetProperty<std::string>(kPayload, payload);
  SetProperty<double>(kDetectionQuality, detectionQuality);
  SetProperty<std::uint64_t>(kTimecodeMSB, 0);
  SetProperty<std::uint64_t>(kTimecodeLSB, 0);
}

MarkerWMEvent::~MarkerWMEvent() = default;

}  // namespace Framework
