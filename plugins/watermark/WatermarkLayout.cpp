#include "WatermarkLayout.h"

#include <cmath>
#include <utility>

namespace Lumenseal {
namespace {

constexpr int kTimeSlots = WatermarkLayout::kTimeShare * PayloadCodec::kWordBits;
constexpr int kRoundSlots = WatermarkLayout::kSyncShare + kTimeSlots + PayloadCodec::kWordBits;
constexpr int kCellsPerPictureHeight = 34;
constexpr int kCellGranule = 8;
constexpr double kPi = 3.14159265358979323846;

// SplitMix64: a small keyed generator whose output is the same on every platform, unlike the
// standard library's distributions and shuffles.
class KeyedSequence {
 public:
  explicit KeyedSequence(std::uint64_t seed) : state_(seed) {}

  std::uint64_t Next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }

  // A number in [0, bound).
  std::size_t Below(std::size_t bound) { return static_cast<std::size_t>(Next() % bound); }

 private:
  std::uint64_t state_;
};

int ChannelOfSlot(int slot) {
  if (slot < WatermarkLayout::kSyncShare) return WatermarkLayout::kSyncChannel;
  slot -= WatermarkLayout::kSyncShare;
  if (slot < kTimeSlots) return WatermarkLayout::kFirstTimeChannel + slot / WatermarkLayout::kTimeShare;
  return WatermarkLayout::kFirstCidChannel + slot - kTimeSlots;
}

}  // namespace

int WatermarkLayout::CellSizeFor(int height) {
  const int granules = static_cast<int>(
      std::lround(static_cast<double>(height) / kCellsPerPictureHeight / kCellGranule));
  return kCellGranule * (granules < 1 ? 1 : granules);
}

WatermarkLayout::WatermarkLayout(std::uint64_t seed, int width, int height)
    : width_(width),
      height_(height),
      cellSize_(CellSizeFor(height)),
      columns_(width / cellSize_),
      rows_(height / cellSize_),
      channels_(static_cast<std::size_t>(columns_ * rows_)),
      signs_(channels_.size()),
      cellsPerChannel_(kChannelCount, 0),
      profile_(static_cast<std::size_t>(cellSize_)) {
  std::vector<int> order(channels_.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
  KeyedSequence keyed(seed);
  for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[keyed.Below(i)]);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const int channel = ChannelOfSlot(static_cast<int>(i % kRoundSlots));
    channels_[static_cast<std::size_t>(order[i])] = channel;
    ++cellsPerChannel_[static_cast<std::size_t>(channel)];
  }
  for (int& sign : signs_) sign = (keyed.Next() >> 63) != 0 ? 1 : -1;

  double profileEnergy = 0.0;
  for (int i = 0; i < cellSize_; ++i) {
    const double sample = std::sin(2.0 * kPi * (i + 0.5) / cellSize_);
    profile_[static_cast<std::size_t>(i)] =
        static_cast<std::int16_t>(std::lround(sample * (1 << kShapeScaleBits)));
    profileEnergy += sample * sample;
  }
  chipEnergy_ = profileEnergy * profileEnergy;
}

void WatermarkLayout::ProjectCells(const std::uint8_t* luma, int pitch,
                                   std::vector<double>& amplitudes) const {
  amplitudes.assign(static_cast<std::size_t>(CellCount()), 0.0);
  const std::int16_t* profile = profile_.data();
  for (int y = 0; y < rows_ * cellSize_; ++y) {
    const std::uint8_t* row = luma + static_cast<std::ptrdiff_t>(y) * pitch;
    double* cells = amplitudes.data() + static_cast<std::ptrdiff_t>(y / cellSize_) * columns_;
    const double rowProfile = profile[y % cellSize_];
    for (int column = 0; column < columns_; ++column) {
      const std::uint8_t* samples = row + column * cellSize_;
      std::int32_t dot = 0;
      for (int x = 0; x < cellSize_; ++x) dot += profile[x] * static_cast<std::int16_t>(samples[x]);
      cells[column] += rowProfile * dot;
    }
  }
  const double toAmplitude = 1.0 / (std::ldexp(1.0, 2 * kShapeScaleBits) * chipEnergy_);
  for (double& amplitude : amplitudes) amplitude *= toAmplitude;
}

}  // namespace Lumenseal
