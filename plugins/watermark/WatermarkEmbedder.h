// Marks the luma of 8-bit planar frames with the payload of their second (see WatermarkLayout for
// the chips, PayloadCodec for the words).
//
// Each frame of second s (s = floor(frame index / frame rate)) carries the sync chips, the CID word
// and the time word of time stamp slot start + s. The chip amplitude of a cell follows the cell's texture
// (perceptual masking): peak amplitude = GlobalDepth * (1 + kTextureGain * activity), capped at
// MaxLocalDepth luma levels, where activity is the cell's mean absolute difference between the
// means of neighbouring 4x4 blocks (texture at the chips' scale; pixel grain hardly counts). The
// embedder also subtracts kHostCancellation of the chip that the picture itself already holds in
// each cell (informed embedding), so that the detector's reading of a cell depends little on the
// picture; the sum stays within MaxLocalDepth. Masking may lift a cell above GlobalDepth only while
// the frame's planned mean squared change (of the samples rounded as they will be) stays within
// kPsnrBudget: in heavily textured pictures the largest amplitudes are trimmed to one common
// ceiling (for a given energy, equal amplitudes give the detector the largest correlation).
// Marked samples are kept inside the legal luma range 16..235 (a sample already outside it is
// never pushed further out). The keyed layout is computed once per picture size; a frame costs
// three passes over its luma: block sums, the projection on the chips, and adding the chips.
// Not thread-safe: one embedder serves one stream, one frame at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "framework/Frame.h"

namespace Lumenseal {

class WatermarkLayout;

// How strongly to mark; both in luma levels of chip peak amplitude.
struct EmbedderStrength {
  double globalDepth = 1.75;  // amplitude in flat areas, and the scale of the texture gain
  int maxLocalDepth = 4;     // cap on any cell's amplitude
};

// What to mark into one frame.
struct EmbedRequest {
  std::uint64_t frameIndex = 0;    // position of the frame in the marked stream
  double frameRate = 25.0;         // frames per second of the stream
  std::uint32_t cid = 0;           // content identifier to carry
  std::int64_t slotStart = 0;      // seconds since 2000-01-01 of the stream's frame 0
  bool bypass = false;             // true: leave the frame as it is
};

class WatermarkEmbedder {
 public:
  static constexpr double kTextureGain = 0.25;
  static constexpr double kMaxAmplitude = 16.0;
  static constexpr double kHostCancellation = 0.7;
  // PSNR-Y, in dB, of the change planned for a frame, above which texture masking is trimmed.
  static constexpr double kPsnrBudget = 45.5;

  WatermarkEmbedder(std::uint64_t seed, EmbedderStrength strength);
  ~WatermarkEmbedder();
  WatermarkEmbedder(const WatermarkEmbedder&) = delete;
  WatermarkEmbedder& operator=(const WatermarkEmbedder&) = delete;

  // Marks `frame` in place as `request` says and returns the mean absolute change of its luma
  // samples (0 for a bypassed frame).
  double Embed(Framework::Frame& frame, const EmbedRequest& request);

  // Second of the stream that frame `frameIndex` falls in at `frameRate` frames per second.
  static std::int64_t SecondOf(std::uint64_t frameIndex, double frameRate);

 private:
  void Configure(int width, int height);
  void SetWords(std::uint32_t cid, std::int64_t timestamp);
  void MeasureAmplitudes(const std::uint8_t* luma, int pitch);
  void MeasureTexture(const std::uint8_t* luma, int pitch);
  // Trims the largest amplitudes, down to GlobalDepth at most, until the frame fits kPsnrBudget.
  void KeepWithinBudget();
  // The sum of the squared changes the chips would make with every amplitude cut to `ceiling`.
  double SquaredChangeUpTo(float ceiling) const;
  void TabulateCellSquares();
  double AddChips(std::uint8_t* luma, int pitch) const;

  // Constant after construction
  const std::uint64_t seed_;
  const EmbedderStrength strength_;

  // Rebuilt when the picture size changes
  std::unique_ptr<WatermarkLayout> layout_;

  // The words being marked, and each cell's chip sign times its channel's value for them
  bool hasWord_ = false;
  std::uint32_t wordCid_ = 0;
  std::int64_t wordTimestamp_ = 0;
  std::vector<std::int8_t> cellValues_;

  // Per frame: 4x4 block sums, each cell's texture, the picture's own chip amplitudes, and the
  // signed peak amplitude added to each cell
  std::vector<std::int32_t> blockSums_;
  std::vector<double> activity_;
  std::vector<double> hostAmplitudes_;
  std::vector<float> amplitudes_;

  // Per picture size: the sum of the squared changes over a cell for a chip of peak amplitude
  // i / kSquaresSteps levels, i up to kMaxAmplitude levels
  std::vector<double> cellSquares_;
};

}  // namespace Lumenseal
