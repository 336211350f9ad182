#include "Frame.h"

#include <algorithm>
#include <cstring>

namespace Framework {
namespace {

constexpr std::uint8_t kBlackLuma = 16;
constexpr std::uint8_t kNeutralChroma = 128;

int AlignedPitch(int width) {
  return (width + Frame::kRowAlignment - 1) / Frame::kRowAlignment * Frame::kRowAlignment;
}

}  // namespace

Frame::Frame(const VideoFormatInfo& format) : format_(format) {
  std::size_t offsets[VideoFormatInfo::kPlaneCount] = {};
  std::size_t size = 0;
  for (int plane = 0; plane < VideoFormatInfo::kPlaneCount; ++plane) {
    offsets[plane] = size;
    pitches_[plane] = AlignedPitch(format.GetPlaneWidth(plane));
    size += static_cast<std::size_t>(pitches_[plane]) * format.GetPlaneHeight(plane);
  }
  samples_.assign(size, kNeutralChroma);
  std::fill(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(offsets[1]),
            kBlackLuma);
  for (int plane = 0; plane < VideoFormatInfo::kPlaneCount; ++plane) {
    planes_[plane] = samples_.data() + offsets[plane];
  }
}

Frame::Frame(const VideoFormatInfo& format,
             std::uint8_t* const planes[VideoFormatInfo::kPlaneCount],
             const int pitches[VideoFormatInfo::kPlaneCount])
    : format_(format) {
  std::copy(planes, planes + VideoFormatInfo::kPlaneCount, planes_);
  std::copy(pitches, pitches + VideoFormatInfo::kPlaneCount, pitches_);
}

Frame::Frame(const Frame& other) : Frame(other.format_) { CopyFrom(other); }

Frame& Frame::operator=(const Frame& other) {
  if (this != &other) {
    Frame copy(other);
    format_ = copy.format_;
    samples_.swap(copy.samples_);
    std::copy(copy.planes_, copy.planes_ + VideoFormatInfo::kPlaneCount, planes_);
    std::copy(copy.pitches_, copy.pitches_ + VideoFormatInfo::kPlaneCount, pitches_);
    index_ = copy.index_;
  }
  return *this;
}

void Frame::CopyFrom(const Frame& other) {
  for (int plane = 0; plane < VideoFormatInfo::kPlaneCount; ++plane) {
    const auto width = static_cast<std::size_t>(format_.GetPlaneWidth(plane));
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      std::memcpy(planes_[plane] + static_cast<std::ptrdiff_t>(y) * pitches_[plane],
                  other.planes_[plane] + static_cast<std::ptrdiff_t>(y) * other.pitches_[plane],
                  width);
    }
  }
  index_ = other.index_;
}

}  // namespace Framework
