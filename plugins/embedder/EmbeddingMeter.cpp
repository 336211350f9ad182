#include "EmbeddingMeter.h"

#include <cmath>

#include "events/VWMEmbeddingEvent.h"

namespace LumensealReference {

void EmbeddingMeter::Reset() { *this = EmbeddingMeter(); }

std::optional<float> EmbeddingMeter::AddFrame(double framesPerSecond,
                                              std::optional<float> energy) {
  ++frames_;
  if (energy) {
    energySum_ += *energy;
    ++energyFrames_;
  }
  if (!(framesPerSecond > 0.0)) return std::nullopt;
  const auto seconds = static_cast<std::uint64_t>(std::floor(frames_ / framesPerSecond));
  if (seconds == seconds_) return std::nullopt;
  seconds_ = seconds;
  const float average = energyFrames_ == 0
                            ? Framework::VWMEmbeddingEvent::kNoEnergy
                            : static_cast<float>(energySum_ / energyFrames_);
  energySum_ = 0.0;
  energyFrames_ = 0;
  return average;
}

}  // namespace LumensealReference
