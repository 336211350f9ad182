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

Framework::VideoFormatInfo SmallFormat() {
  return Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, 640, 360, 25.0);
}

std::vector<std::uint8_t> Samples(const Framework::Frame& frame) {
  const std::uint8_t* begin = frame.GetPlane(0);
  return std::vector<std::uint8_t>(begin, begin + frame.GetSize());
}

EmbedRequest Request(std::uint64_t index) {
  EmbedRequest request;
  request.frameIndex = index;
  request.cid = 101;
  request.slotStart = 848'000'000;
  return request;
}

TEST(WatermarkEmbedder, BypassLeavesTheFrameUnchanged) {
  Framework::Frame frame(SmallFormat());
  Testing::PaintScene(frame, 3);
  const auto before = Samples(frame);
  WatermarkEmbedder embedder(kSeed, {});
  EmbedRequest request = Request(3);
  request.bypass = true;
  EXPECT_EQ(0.0, embedder.Embed(frame, request));
  EXPECT_EQ(before, Samples(frame));
}

TEST(WatermarkEmbedder, ReportsTheMeanChangeItAppliedToLumaOnly) {
  Framework::Frame frame(SmallFormat());
  Testing::PaintScene(frame, 7);
  const auto before = Samples(frame);
  WatermarkEmbedder embedder(kSeed, {});
  const double energy = embedder.Embed(frame, Request(7));
  const auto after = Samples(frame);

  const auto& format = frame.GetFormat();
  double changed = 0.0;
  for (int y = 0; y < format.GetHeight(); ++y) {
    for (int x = 0; x < format.GetWidth(); ++x) {
      const auto at = static_cast<std::size_t>(y * frame.GetPitch(0) + x);
      changed += std::abs(after[at] - before[at]);
    }
  }
  changed /= static_cast<double>(format.GetWidth()) * format.GetHeight();
  EXPECT_GT(energy, 0.3);
  EXPECT_LT(energy, 3.0);
  EXPECT_DOUBLE_EQ(changed, energy);
  const auto chroma = static_cast<std::ptrdiff_t>(frame.GetPlane(1) - frame.GetPlane(0));
  EXPECT_TRUE(std::equal(before.begin() + chroma, before.end(), after.begin() + chroma));
}

TEST(WatermarkEmbedder, MasksFlatAreasMoreThanTexture) {
  Framework::Frame frame(SmallFormat());
  Testing::PaintScene(frame, 0);
  const auto before = Samples(frame);
  // Strength well inside the PSNR budget, so that masking is not trimmed.
  WatermarkEmbedder embedder(kSeed, {1.0, 4});
  embedder.Embed(frame, Request(0));
  const auto after = Samples(frame);
  // The scene is flat in its top-left quarter and finely textured in its right half.
  auto meanChange = [&](int x0, int x1, int y0, int y1) {
    double sum = 0.0;
    for (int y = y0; y < y1; ++y) {
      for (int x = x0; x < x1; ++x) {
        const auto at = static_cast<std::size_t>(y * frame.GetPitch(0) + x);
        sum += std::abs(after[at] - before[at]);
      }
    }
    return sum / ((x1 - x0) * (y1 - y0));
  };
  EXPECT_GT(meanChange(400, 600, 100, 300), 1.4 * meanChange(0, 150, 0, 80));
}

TEST(WatermarkEmbedder, ClipsToTheLegalLumaRange) {
  Framework::Frame frame(SmallFormat());
  const auto& format = frame.GetFormat();
  // Rows alternate between the range's ends, so the texture drives amplitudes to the cap.
  for (int y = 0; y < format.GetHeight(); ++y) {
    for (int x = 0; x < format.GetWidth(); ++x) {
      frame.GetPlane(0)[y * frame.GetPitch(0) + x] = ((x / 3 + y) % 2) != 0 ? 16 : 235;
    }
  }
  frame.GetPlane(0)[0] = 5;
  frame.GetPlane(0)[1] = 250;
  WatermarkEmbedder embedder(kSeed, {4.0, 16});
  for (std::uint64_t index = 0; index < 3; ++index) embedder.Embed(frame, Request(index * 25));
  EXPECT_GE(frame.GetPlane(0)[0], 5) << "a sample below the range is not pushed further down";
  EXPECT_LE(frame.GetPlane(0)[0], 16);
  EXPECT_LE(frame.GetPlane(0)[1], 250) << "a sample above the range is not pushed further up";
  EXPECT_GE(frame.GetPlane(0)[1], 235);
  int changedSamples = 0;
  for (int y = 0; y < format.GetHeight(); ++y) {
    for (int x = (y == 0 ? 2 : 0); x < format.GetWidth(); ++x) {
      const int sample = frame.GetPlane(0)[y * frame.GetPitch(0) + x];
      ASSERT_GE(sample, 16);
      ASSERT_LE(sample, 235);
      if (sample != 16 && sample != 235) ++changedSamples;
    }
  }
  EXPECT_GT(changedSamples, format.GetWidth() * format.GetHeight() / 4) << "the mark went in";
}

TEST(WatermarkEmbedder, StrengthScalesTheChange) {
  Framework::Frame weakFrame(SmallFormat());
  Testing::PaintScene(weakFrame, 1);
  Framework::Frame strongFrame(SmallFormat());
  Testing::PaintScene(strongFrame, 1);
  // No masking (the cap is the depth), so every cell takes the depth asked for.
  WatermarkEmbedder weak(kSeed, {1.0, 1});
  WatermarkEmbedder strong(kSeed, {3.0, 3});
  const double weakEnergy = weak.Embed(weakFrame, Request(1));
  const double strongEnergy = strong.Embed(strongFrame, Request(1));
  EXPECT_GT(strongEnergy, 2.5 * weakEnergy);
}

// PSNR-Y of a marked frame against the original, over the whole luma plane.
double LumaPsnr(const std::vector<std::uint8_t>& before, const Framework::Frame& after) {
  const auto& format = after.GetFormat();
  double squares = 0.0;
  for (int y = 0; y < format.GetHeight(); ++y) {
    for (int x = 0; x < format.GetWidth(); ++x) {
      const auto at = static_cast<std::size_t>(y * after.GetPitch(0) + x);
      const double change = after.GetPlane(0)[at] - before[at];
      squares += change * change;
    }
  }
  const double meanSquare = squares / (static_cast<double>(format.GetWidth()) * format.GetHeight());
  return 10.0 * std::log10(255.0 * 255.0 / meanSquare);
}

TEST(WatermarkEmbedder, TrimsMaskingToKeepTexturedPicturesWithinThePsnrBudget) {
  // Random 4x4 blocks of dark and light grey: texture everywhere, masking at its cap everywhere.
  Framework::Frame textured(Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, 1280, 720, 25.0));
  const auto& format = textured.GetFormat();
  std::uint32_t state = 12345;
  const int blocksAcross = format.GetWidth() / 4;
  std::vector<std::uint8_t> blocks(static_cast<std::size_t>(blocksAcross * (format.GetHeight() / 4)));
  for (auto& block : blocks) {
    state = state * 1664525u + 1013904223u;
    block = (state >> 31) != 0 ? 170 : 70;
  }
  for (int y = 0; y < format.GetHeight(); ++y) {
    for (int x = 0; x < format.GetWidth(); ++x) {
      textured.GetPlane(0)[y * textured.GetPitch(0) + x] =
          blocks[static_cast<std::size_t>(y / 4 * blocksAcross + x / 4)];
    }
  }
  const auto before = Samples(textured);
  const auto psnrWith = [&](EmbedderStrength strength) {
    Framework::Frame frame(format);
    std::copy(before.begin(), before.end(), frame.GetPlane(0));
    WatermarkEmbedder(kSeed, strength).Embed(frame, Request(0));
    return LumaPsnr(before, frame);
  };
  {
    SCOPED_TRACE("the default strength would reach about 43 dB untrimmed");
    // With every cell at one ceiling, the rounded change moves in steps: at or a little above.
    const double psnr = psnrWith({});
    EXPECT_GE(psnr, WatermarkEmbedder::kPsnrBudget);
    EXPECT_LE(psnr, WatermarkEmbedder::kPsnrBudget + 1.0);
  }
  {
    SCOPED_TRACE("never trimmed below the depth asked for: 5 levels everywhere is about 41 dB");
    EXPECT_LT(psnrWith({5.0, 5}), 43.0);
  }
}

TEST(WatermarkEmbedder, SecondsFollowTheFrameRate) {
  static const struct {
    std::uint64_t index;
    double rate;
    std::int64_t second;
  } cases[] = {
      {0, 25.0, 0},        {24, 25.0, 0},       {25, 25.0, 1},       {49, 50.0, 0},
      {30, 30000.0 / 1001, 1}, {29, 30000.0 / 1001, 0}, {89910, 30000.0 / 1001, 2999},
      {89911, 30000.0 / 1001, 3000},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.second, WatermarkEmbedder::SecondOf(c.index, c.rate)) << c.index << " at " << c.rate;
  }
}

}  // namespace
}  // namespace Lumenseal
