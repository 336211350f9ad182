#include "plugins/embedder/EmbeddingMeter.h"

#include <gtest/gtest.h>

#include <optional>

namespace LumensealReference {
namespace {

constexpr float kNoEnergy = -1.0f;

TEST(EmbeddingMeter, CountsWholeSecondsAndAveragesEachSecondsEmbeddedFrames) {
  static const struct {
    const char* name;
    double framesPerSecond;
    int frames;
    int bypassedFrom;  // frames from this one on (0-based) are bypassed
    int reports;
    float lastAverage;
    std::uint64_t seconds;
  } cases[] = {
      {"one frame short of a second", 25.0, 24, 24, 0, 0.0f, 0},
      {"exactly one second", 25.0, 25, 25, 1, 1.0f, 1},
      {"NTSC rate", 30000.0 / 1001.0, 60, 60, 2, 1.0f, 2},
      {"second half bypassed", 25.0, 50, 37, 2, 1.0f, 2},
      {"a whole second bypassed", 25.0, 50, 25, 2, kNoEnergy, 2},
      {"no frame rate", 0.0, 100, 100, 0, 0.0f, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EmbeddingMeter meter;
    int reports = 0;
    std::optional<float> last;
    for (int frame = 0; frame < c.frames; ++frame) {
      // Embedded frames alternate between energies 0.5 and 1.5: each second averages 1.0.
      const std::optional<float> energy =
          frame >= c.bypassedFrom ? std::nullopt : std::optional<float>(frame % 2 ? 1.5f : 0.5f);
      const auto average = meter.AddFrame(c.framesPerSecond, energy);
      if (average) {
        ++reports;
        last = average;
      }
    }
    EXPECT_EQ(reports, c.reports);
    if (c.reports > 0) {
      EXPECT_NEAR(*last, c.lastAverage, 0.05f);
    }
    EXPECT_EQ(meter.Seconds(), c.seconds);
  }
}

TEST(EmbeddingMeter, ResetStartsOver) {
  EmbeddingMeter meter;
  for (int frame = 0; frame < 30; ++frame) meter.AddFrame(25.0, 2.0f);
  meter.Reset();
  EXPECT_EQ(meter.Seconds(), 0u);
  std::optional<float> average;
  for (int frame = 0; frame < 25; ++frame) average = meter.AddFrame(25.0, 1.0f);
  ASSERT_TRUE(average);
  EXPECT_EQ(*average, 1.0f);
}

}  // namespace
}  // namespace LumensealReference
