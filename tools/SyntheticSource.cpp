#include "tools/SyntheticSource.h"

#include <cmath>
#include <cstring>
#include <regex>
#include <stdexcept>

namespace Quillmar::Tools {
namespace {

constexpr int kDriftMargin = 256;  // pixels the scene may drift before it wraps
constexpr int kDriftX = 3;         // pixels per frame
constexpr int kDriftY = 1;

// Smooth shapes, fine texture and a little noise, in legal luma 16..235.
std::uint8_t TextureValue(int x, int y) {
  const double shapes = 45.0 * std::sin(x * 0.011) * std::cos(y * 0.017) +
                        25.0 * std::sin((x + 2 * y) * 0.004);
  const double texture = 12.0 * std::sin(x * 0.31 + std::sin(y * 0.05) * 3.0);
  const std::uint32_t hash = (static_cast<std::uint32_t>(x) * 73856093u) ^
                             (static_cast<std::uint32_t>(y) * 19349663u);
  const double noise = static_cast<double>(hash % 9) - 4.0;
  const double value = 126.0 + shapes + texture + noise;
  return static_cast<std::uint8_t>(std::fmin(235.0, std::fmax(16.0, value)));
}

}  // namespace

Framework::VideoFormatInfo SyntheticSource::ParseSpec(const std::string& spec) {
  static const std::regex pattern(R"((\d+)x(\d+)@(\d+(\.\d+)?))");
  std::smatch match;
  if (!std::regex_match(spec, match, pattern)) {
    throw std::invalid_argument("a synthetic source is WIDTHxHEIGHT@RATE, as 1920x1080@25");
  }
  const int width = std::stoi(match[1]);
  const int height = std::stoi(match[2]);
  const double rate = std::stod(match[3]);
  if (width < 16 || height < 16 || width % 2 != 0 || height % 2 != 0 || rate < 1.0) {
    throw std::invalid_argument("a synthetic picture is even-sized, at least 16x16, at 1 fps or more");
  }
  return Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, width, height, rate);
}

SyntheticSource::SyntheticSource(const std::string& spec, double seconds)
    : format_(ParseSpec(spec)),
      frameCount_(static_cast<std::uint64_t>(std::llround(seconds * format_.GetFrameRate()))),
      textureWidth_(format_.GetWidth() + kDriftMargin) {
  const int textureHeight = format_.GetHeight() + kDriftMargin;
  texture_.resize(static_cast<std::size_t>(textureWidth_) * textureHeight);
  for (int y = 0; y < textureHeight; ++y) {
    for (int x = 0; x < textureWidth_; ++x) {
      texture_[static_cast<std::size_t>(y) * textureWidth_ + x] = TextureValue(x, y);
    }
  }
}

bool SyntheticSource::Next(Framework::Frame& frame) {
  if (next_ == frameCount_) return false;
  const int offsetX = static_cast<int>((next_ * kDriftX) % kDriftMargin);
  const int offsetY = static_cast<int>((next_ * kDriftY) % kDriftMargin);
  for (int y = 0; y < format_.GetHeight(); ++y) {
    std::memcpy(frame.GetPlane(0) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(0),
                &texture_[static_cast<std::size_t>(y + offsetY) * textureWidth_ + offsetX],
                static_cast<std::size_t>(format_.GetWidth()));
  }
  for (int plane = 1; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      std::uint8_t* row = frame.GetPlane(plane) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane);
      const int tint = plane == 1 ? 118 + y * 20 / format_.GetPlaneHeight(plane)
                                  : 136 - y * 16 / format_.GetPlaneHeight(plane);
      std::memset(row, tint, static_cast<std::size_t>(format_.GetPlaneWidth(plane)));
    }
  }
  frame.SetIndex(next_++);
  return true;
}

}  // namespace Quillmar::Tools
