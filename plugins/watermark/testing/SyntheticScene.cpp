#include "SyntheticScene.h"

#include <algorithm>
#include <cmath>

namespace Lumenseal {
namespace Testing {
namespace {

constexpr int kFlatLuma = 90;
constexpr int kDarkLuma = 17;
constexpr int kBrightLuma = 233;
constexpr int kTextureRange = 48;
constexpr std::uint32_t kGrain = 6;  // texture blobs, in samples

std::uint32_t Hash(std::uint32_t x, std::uint32_t y) {
  std::uint32_t h = x * 0x9E3779B1u ^ y * 0x85EBCA77u;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  return h;
}

int SceneLuma(int x, int y, int width, int height, std::uint64_t index) {
  const auto t = static_cast<int>(index % 100000);
  if (y < height / 4 && x < width / 4) return kFlatLuma;
  if (y < height / 8 && x >= width - width / 8) return kBrightLuma;
  if (y >= height - height / 8 && x < width / 8) return kDarkLuma;
  const double wave = 50.0 * std::sin((x + 3.0 * t) / 41.0) * std::cos((y - 2.0 * t) / 29.0);
  int texture = 0;
  if (x > width / 2) {
    texture = static_cast<int>(Hash(static_cast<std::uint32_t>(x + 2 * t) / kGrain,
                                    static_cast<std::uint32_t>(y) / kGrain) % kTextureRange) -
              kTextureRange / 2;
  }
  return std::clamp(static_cast<int>(128.0 + wave) + texture, 16, 235);
}

}  // namespace

void PaintScene(Framework::Frame& frame, std::uint64_t index) {
  const auto& format = frame.GetFormat();
  const int width = format.GetPlaneWidth(0);
  const int height = format.GetPlaneHeight(0);
  std::uint8_t* luma = frame.GetPlane(0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      luma[static_cast<std::ptrdiff_t>(y) * frame.GetPitch(0) + x] =
          static_cast<std::uint8_t>(SceneLuma(x, y, width, height, index));
    }
  }
  frame.SetIndex(index);
}

}  // namespace Testing
}  // namespace Lumenseal
