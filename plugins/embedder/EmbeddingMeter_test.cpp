#include "plugins/embedder/EmbeddingMeter.h"

#include <gtest/gtest.h>

#include <optional>

namespace LumensealReference {
namespace {

// What the embedder plug-in's test in tests/ cannot see: other rates, and averages of some frames.
TEST(EmbeddingMeter, CountsWholeSecondsAndAveragesEachSecondsEmbeddedFrames) {
  static const struct {
    const char* name;
    double framesPerSecond;
    int frames;
    int bypassedFrom;  // frames from this one on (0-based) are bypassed
    std::uint64_t seconds;
    float lastAverage;
  } cases[] = {
      {"NTSC rate", 30000.0 / 1001.0, 60, 60, 2, 1.0f},
      {"second half bypassed", 25.0, 50, 37, 2, 1.0f},
      {"no frame rate", 0.0, 100, 100, 0, 0.0f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EmbeddingMeter meter;
    std::uint64_t reports = 0;
    float last = 0.0f;
    for (int frame = 0; frame < c.frames; ++frame) {
      // Embedded frames alternate between energies 0.5 and 1.5: each second averages 1.0.
      const auto energy = frame < c.bypassedFrom ? std::optional(frame % 2 ? 1.5f : 0.5f)
                                                 : std::nullopt;
      const auto average = meter.AddFrame(c.framesPerSecond, energy);
      reports += average.has_value();
      last = average.value_or(last);
    }
    EXPECT_EQ(c.seconds, reports);
    EXPECT_EQ(c.seconds, meter.Seconds());
    EXPECT_NEAR(c.lastAverage, last, 0.05f);
  }
  // A reset drops the part of a second counted so far.
  EmbeddingMeter meter;
  for (int frame = 0; frame < 30; ++frame) meter.AddFrame(25.0, 2.0f);
  meter.Reset();
  for (int frame = 0; frame < 24; ++frame) meter.AddFrame(25.0, 1.0f);
  EXPECT_EQ(1.0f, meter.AddFrame(25.0, 1.0f).value_or(0.0f));
}

}  // namespace
}  // namespace LumensealReference
