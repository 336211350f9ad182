// The embedder's media clock and energy reports: counts the frames handed to the embedder, turns
// them into whole seconds at the frame rate, and averages the watermark energy of the embedded
// frames over each second.
//
// Every frame counts toward the clock, bypassed or not: the watermark's time runs with the media,
// so a bypassed second still uses up a second of the reserved time slot.
//
// Not thread-safe: used by the one thread that processes frames.
#pragma once

#include <cstdint>
#include <optional>

namespace LumensealReference {

class EmbeddingMeter {
 public:
  // Starts over: no frames, no energy.
  void Reset();

  // Counts one frame at `framesPerSecond`; `energy` is the energy the frame received from the
  // watermark, or nothing when it was bypassed. Returns the average energy of the second this
  // frame completes (VWMEmbeddingEvent::kNoEnergy when none of its frames was embedded), or
  // nothing while the second runs. A rate of 0 or less counts the frame but no time.
  std::optional<float> AddFrame(double framesPerSecond, std::optional<float> energy);

  // Frames counted so far: the index in the run of the next frame.
  std::uint64_t Frames() const { return frames_; }

  // Whole seconds of media counted so far.
  std::uint64_t Seconds() const { return seconds_; }

 private:
  std::uint64_t frames_ = 0;
  std::uint64_t seconds_ = 0;
  double energySum_ = 0.0;       // Over the embedded frames of the running second
  std::uint32_t energyFrames_ = 0;
};

}  // namespace LumensealReference
