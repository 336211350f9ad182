#include "WatermarkEmbedder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "testing/SyntheticScene.h"

namespace Lumenseal {
namespace {

constexpr std::uint64_t kSeed = 0x5EED'1234'ABCD'0001ull;
const Framework::VideoFormatInfo kFormat(Framework::PixelLayout::Yuv420P8, 640, 360, 25.0);

std::vector<std::uint8_t> Samples(const Framework::Frame& frame) {
  return std::vector<std::uint8_t>(frame.GetPlane(0), frame.GetPlane(0) + frame.GetSize());
}

EmbedRequest Request(std::uint64_t index) { return {index, 25.0, 101, 848'000'000, false}; }

// The mean of |change|^power over the luma of `after` in columns [x0, x1), rows [y0, y1).
double MeanChange(const std::vector<std::uint8_t>& before, const Framework::Frame& after,
                  int power, int x0, int x1, int y0, int y1) {
  double sum = 0.0;
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) {
      const auto at = static_cast<std::size_t>(y * after.GetPitch(0) + x);
      sum += std::pow(std::abs(after.GetPlane(0)[at] - before[at]), power);
    }
  }
  return sum / ((x1 - x0) * (y1 - y0));
}

// The scene is flat in its top-left quarter and finely textured in its right half.
TEST(WatermarkEmbedder, ChangesTextureMoreThanFlatAreasAndReportsTheMeanChangeOfLumaOnly) {
  Framework::Frame frame(kFormat);
  Testing::PaintScene(frame, 7);
  const auto before = Samples(frame);
  // Strength well inside the PSNR budget, so that masking is not trimmed.
  const double energy = WatermarkEmbedder(kSeed, {1.0, 4}).Embed(frame, Request(7));
  EXPECT_GT(energy, 0.3);
  EXPECT_DOUBLE_EQ(MeanChange(before, frame, 1, 0, 640, 0, 360), energy);
  const auto chroma = frame.GetPlane(1) - frame.GetPlane(0);
  EXPECT_TRUE(std::equal(before.begin() + chroma, before.end(), frame.GetPlane(1)));
  EXPECT_GT(MeanChange(before, frame, 1, 400, 600, 100, 300),
            1.4 * MeanChange(before, frame, 1, 0, 150, 0, 80));
}

TEST(WatermarkEmbedder, ClipsToTheLegalLumaRange) {
  Framework::Frame frame(kFormat);
  std::uint8_t* luma = frame.GetPlane(0);
  const int pitch = frame.GetPitch(0);
  // Rows alternate between the range's ends, so the texture drives amplitudes to the cap.
  for (int y = 0; y < 360; ++y) {
    for (int x = 0; x < 640; ++x) luma[y * pitch + x] = ((x / 3 + y) % 2) != 0 ? 16 : 235;
  }
  luma[0] = 5;
  luma[1] = 250;
  WatermarkEmbedder embedder(kSeed, {4.0, 16});
  for (std::uint64_t index = 0; index < 3; ++index) embedder.Embed(frame, Request(index * 25));
  EXPECT_GE(luma[0], 5) << "a sample below the range is not pushed further down";
  EXPECT_LE(luma[0], 16);
  EXPECT_LE(luma[1], 250) << "a sample above the range is not pushed further up";
  EXPECT_GE(luma[1], 235);
  int changedSamples = 0;
  for (int y = 0; y < 360; ++y) {
    for (int x = (y == 0 ? 2 : 0); x < 640; ++x) {
      ASSERT_TRUE(luma[y * pitch + x] >= 16 && luma[y * pitch + x] <= 235) << x << ", " << y;
      changedSamples += luma[y * pitch + x] != 16 && luma[y * pitch + x] != 235;
    }
  }
  EXPECT_GT(changedSamples, 640 * 360 / 4) << "the mark went in";
}

// Random 4x4 blocks of dark and light grey: texture everywhere, masking at its cap everywhere.
TEST(WatermarkEmbedder, TrimsMaskingToKeepTexturedPicturesWithinThePsnrBudget) {
  Framework::Frame textured({Framework::PixelLayout::Yuv420P8, 1280, 720, 25.0});
  std::uint32_t state = 12345;
  for (int y = 0; y < 720; y += 4) {
    for (int x = 0; x < 1280; x += 4) {
      state = state * 1664525u + 1013904223u;
      for (int row = y; row < y + 4; ++row) {
        std::fill_n(textured.GetPlane(0) + row * textured.GetPitch(0) + x, 4,
                    (state >> 31) != 0 ? 170 : 70);
      }
    }
  }
  const auto before = Samples(textured);
  const auto psnrWith = [&](EmbedderStrength strength) {
    Framework::Frame frame = textured;
    WatermarkEmbedder(kSeed, strength).Embed(frame, Request(0));
    return 10.0 * std::log10(255.0 * 255.0 / MeanChange(before, frame, 2, 0, 1280, 0, 720));
  };
  // The default strength would reach about 43 dB untrimmed. With every cell at one ceiling, the
  // rounded change moves in steps: at or a little above the budget.
  const double psnr = psnrWith({});
  EXPECT_GE(psnr, WatermarkEmbedder::kPsnrBudget);
  EXPECT_LE(psnr, WatermarkEmbedder::kPsnrBudget + 1.0);
  // Never trimmed below the depth asked for: 5 levels everywhere is about 41 dB.
  EXPECT_LT(psnrWith({5.0, 5}), 43.0);
}

TEST(WatermarkEmbedder, SecondsFollowTheFrameRate) {
  constexpr double kNtsc = 30000.0 / 1001;
  EXPECT_EQ(0, WatermarkEmbedder::SecondOf(24, 25.0));
  EXPECT_EQ(1, WatermarkEmbedder::SecondOf(25, 25.0));
  EXPECT_EQ(0, WatermarkEmbedder::SecondOf(29, kNtsc));
  EXPECT_EQ(2999, WatermarkEmbedder::SecondOf(89910, kNtsc));
  EXPECT_EQ(3000, WatermarkEmbedder::SecondOf(89911, kNtsc));
}

}  // namespace
}  // namespace Lumenseal
