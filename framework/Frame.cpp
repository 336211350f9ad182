#include "Frame.h"

#include <algorithm>

namespace Framework {
namespace {

constexpr std::uint8_t kBlackLuma = 16;
constexpr std::uint8_t kNeutralChroma = 128;

int AlignedPitch(int width) {
  return (width + Frame::kRowAlignment - 1) / Frame::kRowAlignment * Frame::kRowAlignment;
}

}  // namespace

Frame::Frame(const VideoFormatInfo& format) : format_(format) {
  std::size_t size = 0;
  for (int plane = 0; plane < VideoFormatInfo::kPlaneCount; ++plane) {
    offsets_[plane] = size;
    pitches_[plane] = AlignedPitch(format.GetPlaneWidth(plane));
    size += static_cast<std::size_t>(pitches_[plane]) * format.GetPlaneHeight(plane);
  }
  samples_.assign(size, kNeutralChroma);
  std::fill(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(offsets_[1]),
            kBlackLuma);
}

}  // namespace Framework
