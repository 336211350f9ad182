#include "WatermarkEmbedder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "PayloadCodec.h"
#include "WatermarkLayout.h"

namespace Lumenseal {
namespace {

constexpr int kLegalLumaLow = 16;
constexpr int kLegalLumaHigh = 235;
// Row coefficients are amplitude * profile in Q12; times the Q14 profile they make Q26.
constexpr int kCoefficientBits = 12;
constexpr int kProductShift = kCoefficientBits + WatermarkLayout::kShapeScaleBits;
constexpr std::int32_t kProductRounding = std::int32_t{1} << (kProductShift - 1);
// Texture is measured on the means of blocks this many samples square, at the chips' scale
// rather than the pixels', so that grain and noise do not count as masking texture.
constexpr int kTextureBlock = 4;
constexpr double kFrameRateTolerance = 1e-9;
// The change a chip makes to one sample, in whole levels: its row's coefficient (amplitude times
// the row's profile value, in Q12) times the column's profile value, rounded.
std::int32_t RowCoefficient(double amplitude, std::int16_t rowProfile) {
  constexpr double kScale = static_cast<double>(1 << kCoefficientBits) / (1 << WatermarkLayout::kShapeScaleBits);
  return static_cast<std::int32_t>(std::lround(amplitude * rowProfile * kScale));
}

std::int32_t SampleChange(std::int32_t coefficient, std::int16_t columnProfile) {
  return (coefficient * columnProfile + kProductRounding) >> kProductShift;
}

// Peak luma value in PSNR; steps per luma level of the table of a cell's squared change; halvings
// in the search for the ceiling that keeps a frame within its PSNR budget.
constexpr double kLumaPeak = 255.0;
constexpr int kSquaresSteps = 16;
constexpr int kCeilingSearchSteps = 16;

}  // namespace

WatermarkEmbedder::WatermarkEmbedder(std::uint64_t seed, EmbedderStrength strength)
    : seed_(seed), strength_(strength) {}

WatermarkEmbedder::~WatermarkEmbedder() = default;

std::int64_t WatermarkEmbedder::SecondOf(std::uint64_t frameIndex, double frameRate) {
  return static_cast<std::int64_t>(
      std::floor(static_cast<double>(frameIndex) / frameRate + kFrameRateTolerance));
}

double WatermarkEmbedder::Embed(Framework::Frame& frame, const EmbedRequest& request) {
  if (request.bypass || request.frameRate <= 0.0) return 0.0;
  const auto& format = frame.GetFormat();
  Configure(format.GetPlaneWidth(0), format.GetPlaneHeight(0));
  if (layout_->CellCount() == 0) return 0.0;
  SetWords(request.cid, request.slotStart + SecondOf(request.frameIndex, request.frameRate));
  MeasureAmplitudes(frame.GetPlane(0), frame.GetPitch(0));
  return AddChips(frame.GetPlane(0), frame.GetPitch(0));
}

void WatermarkEmbedder::Configure(int width, int height) {
  if (layout_ && layout_->Width() == width && layout_->Height() == height) return;
  layout_ = std::make_unique<WatermarkLayout>(seed_, width, height);
  const auto cells = static_cast<std::size_t>(layout_->CellCount());
  cellValues_.assign(cells, 0);
  activity_.assign(cells, 0.0);
  amplitudes_.assign(cells, 0.0f);
  TabulateCellSquares();
  hasWord_ = false;
}

void WatermarkEmbedder::SetWords(std::uint32_t cid, std::int64_t timestamp) {
  if (hasWord_ && wordCid_ == cid && wordTimestamp_ == timestamp) return;
  const std::uint64_t timeBits = PayloadCodec::Encode(PayloadCodec::TimeWord(timestamp));
  const std::uint64_t cidBits = PayloadCodec::Encode(PayloadCodec::CidWord(cid));
  const auto bitValue = [](std::uint64_t bits, int index) {
    return (bits >> (PayloadCodec::kWordBits - 1 - index)) & 1 ? 1 : -1;
  };
  for (int cell = 0; cell < layout_->CellCount(); ++cell) {
    const int channel = layout_->Channel(cell);
    int value = 1;
    if (channel >= WatermarkLayout::kFirstCidChannel) {
      value = bitValue(cidBits, channel - WatermarkLayout::kFirstCidChannel);
    } else if (channel >= WatermarkLayout::kFirstTimeChannel) {
      value = bitValue(timeBits, channel - WatermarkLayout::kFirstTimeChannel);
    }
    cellValues_[static_cast<std::size_t>(cell)] =
        static_cast<std::int8_t>(value * layout_->Sign(cell));
  }
  hasWord_ = true;
  wordCid_ = cid;
  wordTimestamp_ = timestamp;
}

void WatermarkEmbedder::MeasureAmplitudes(const std::uint8_t* luma, int pitch) {
  MeasureTexture(luma, pitch);
  layout_->ProjectCells(luma, pitch, hostAmplitudes_);
  const double cap = std::min<double>(strength_.maxLocalDepth, kMaxAmplitude);
  for (std::size_t cell = 0; cell < activity_.size(); ++cell) {
    const double masked = std::min(strength_.globalDepth * (1.0 + kTextureGain * activity_[cell]), cap);
    const double added = masked * cellValues_[cell] - kHostCancellation * hostAmplitudes_[cell];
    amplitudes_[cell] = static_cast<float>(std::clamp(added, -cap, cap));
  }
  KeepWithinBudget();
}

void WatermarkEmbedder::KeepWithinBudget() {
  const double frameArea = static_cast<double>(layout_->Width()) * layout_->Height();
  const double budget = kLumaPeak * kLumaPeak / std::pow(10.0, kPsnrBudget / 10.0) * frameArea;
  float largest = 0.0f;
  for (float amplitude : amplitudes_) largest = std::max(largest, std::abs(amplitude));
  if (SquaredChangeUpTo(largest) <= budget) return;
  // The largest amplitudes are trimmed to one ceiling, never below GlobalDepth, found by halving.
  float low = static_cast<float>(std::min<double>(strength_.globalDepth, kMaxAmplitude));
  float high = largest;
  if (SquaredChangeUpTo(low) < budget) {
    for (int step = 0; step < kCeilingSearchSteps; ++step) {
      const float middle = (low + high) / 2.0f;
      (SquaredChangeUpTo(middle) <= budget ? low : high) = middle;
    }
  }
  for (float& amplitude : amplitudes_) amplitude = std::clamp(amplitude, -low, low);
}

double WatermarkEmbedder::SquaredChangeUpTo(float ceiling) const {
  double squares = 0.0;
  for (float amplitude : amplitudes_) {
    const float size = std::min(std::abs(amplitude), ceiling);
    squares += cellSquares_[static_cast<std::size_t>(std::lround(size * kSquaresSteps))];
  }
  return squares;
}

void WatermarkEmbedder::TabulateCellSquares() {
  // The change a chip makes is rounded to whole levels, which matters at the small amplitudes of
  // flat pictures: the squares are summed as the samples will change.
  const auto& profile = layout_->Profile();
  cellSquares_.assign(static_cast<std::size_t>(kMaxAmplitude * kSquaresSteps) + 1, 0.0);
  for (std::size_t step = 0; step < cellSquares_.size(); ++step) {
    const double amplitude = static_cast<double>(step) / kSquaresSteps;
    double squares = 0.0;
    for (std::int16_t rowProfile : profile) {
      const std::int32_t coefficient = RowCoefficient(amplitude, rowProfile);
      for (std::int16_t columnProfile : profile) {
        const double change = SampleChange(coefficient, columnProfile);
        squares += change * change;
      }
    }
    cellSquares_[step] = squares;
  }
}

void WatermarkEmbedder::MeasureTexture(const std::uint8_t* luma, int pitch) {
  const int size = layout_->CellSize();
  const int blocksAcross = layout_->Columns() * size / kTextureBlock;
  const int blocksDown = layout_->Rows() * size / kTextureBlock;
  blockSums_.assign(static_cast<std::size_t>(blocksAcross) * blocksDown, 0);
  for (int y = 0; y < blocksDown * kTextureBlock; ++y) {
    const std::uint8_t* row = luma + static_cast<std::ptrdiff_t>(y) * pitch;
    std::int32_t* sums = blockSums_.data() + static_cast<std::ptrdiff_t>(y / kTextureBlock) * blocksAcross;
    for (int block = 0; block < blocksAcross; ++block) {
      const std::uint8_t* samples = row + block * kTextureBlock;
      sums[block] += samples[0] + samples[1] + samples[2] + samples[3];
    }
  }
  // Mean absolute difference between neighbouring block means inside each cell.
  const int blocksPerCell = size / kTextureBlock;
  const double pairs = 2.0 * blocksPerCell * (blocksPerCell - 1) * kTextureBlock * kTextureBlock;
  for (int cell = 0; cell < layout_->CellCount(); ++cell) {
    const int top = cell / layout_->Columns() * blocksPerCell;
    const int left = cell % layout_->Columns() * blocksPerCell;
    std::int32_t sum = 0;
    for (int by = top; by < top + blocksPerCell; ++by) {
      const std::int32_t* sums = blockSums_.data() + static_cast<std::ptrdiff_t>(by) * blocksAcross;
      for (int bx = left; bx < left + blocksPerCell; ++bx) {
        if (bx + 1 < left + blocksPerCell) sum += std::abs(sums[bx + 1] - sums[bx]);
        if (by + 1 < top + blocksPerCell) sum += std::abs(sums[bx + blocksAcross] - sums[bx]);
      }
    }
    activity_[static_cast<std::size_t>(cell)] = pairs > 0.0 ? sum / pairs : 0.0;
  }
}

double WatermarkEmbedder::AddChips(std::uint8_t* luma, int pitch) const {
  const int size = layout_->CellSize();
  const std::int16_t* profile = layout_->Profile().data();
  std::uint64_t changed = 0;
  for (int y = 0; y < layout_->Rows() * size; ++y) {
    std::uint8_t* row = luma + static_cast<std::ptrdiff_t>(y) * pitch;
    const float* amplitudes = amplitudes_.data() + static_cast<std::ptrdiff_t>(y / size) * layout_->Columns();
    const std::int16_t rowProfile = profile[y % size];
    for (int column = 0; column < layout_->Columns(); ++column) {
      const std::int32_t coefficient = RowCoefficient(amplitudes[column], rowProfile);
      std::uint8_t* samples = row + column * size;
      std::int32_t rowChanged = 0;
      for (int x = 0; x < size; ++x) {
        const std::int32_t original = samples[x];
        const std::int32_t delta = SampleChange(coefficient, profile[x]);
        const std::int32_t low = std::min(original, kLegalLumaLow);
        const std::int32_t high = std::max(original, kLegalLumaHigh);
        const std::int32_t marked = std::clamp(original + delta, low, high);
        rowChanged += std::abs(marked - original);
        samples[x] = static_cast<std::uint8_t>(marked);
      }
      changed += static_cast<std::uint64_t>(rowChanged);
    }
  }
  return static_cast<double>(changed) / (static_cast<double>(layout_->Width()) * layout_->Height());
}

}  // namespace Lumenseal
