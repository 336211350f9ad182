// What the channel costs a host per frame: one 1080p frame handed over with DeliverFrame to a
// started channel (detector on, the reference plug-ins doing nothing to pixels), beside one
// memcpy of a 1080p luma plane, the least a host does with a frame. The frame benchmark reports
// the ratio of the two as "x_memcpy".
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "channel/testing/ChannelHost.h"
#include "database/DatabaseTestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr double kFramesPerSecond = 25.0;
constexpr std::size_t kLumaBytes = static_cast<std::size_t>(kWidth) * kHeight;
// A requested run of a day: its slot outlasts any benchmark, so no frame waits for the database.
constexpr std::uint32_t kRunSeconds = 86400;
constexpr int kCalibrationCopies = 200;

// Seconds one memcpy of a luma plane takes, measured apart from the benchmark loop.
double LumaCopySeconds() {
  std::vector<unsigned char> from(kLumaBytes, 16);
  std::vector<unsigned char> to(kLumaBytes);
  const Clock::time_point begin = Clock::now();
  for (int i = 0; i < kCalibrationCopies; ++i) {
    std::memcpy(to.data(), from.data(), kLumaBytes);
    benchmark::ClobberMemory();
  }
  return std::chrono::duration<double>(Clock::now() - begin).count() / kCalibrationCopies;
}

void BM_LumaPlaneCopy(benchmark::State& state) {
  std::vector<unsigned char> from(kLumaBytes, 16);
  std::vector<unsigned char> to(kLumaBytes);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kLumaBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLumaBytes));
}
BENCHMARK(BM_LumaPlaneCopy);

void BM_ChannelFrame1080p(benchmark::State& state) {
  const Framework::Testing::TemporaryFolder folder;
  QuillmarTesting::TestConfiguration configuration;
  configuration.sharedDatabase = folder.File("slots.db");
  const std::string config =
      QuillmarTesting::WriteConfiguration(folder.File("channel.json"), configuration);
  QuillmarTesting::RecordingListener listener;
  QuillmarTesting::TestChannel channel;
  channel.Configure(config, configuration, "Demo", kRunSeconds, &listener, kFramesPerSecond);
  channel.SetFormat(Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, kWidth, kHeight,
                                               kFramesPerSecond));
  if (!channel->InitProcessor() || !channel->StartProcessor()) {
    state.SkipWithError("the channel did not start");
    return;
  }
  const double copySeconds = LumaCopySeconds();

  const Clock::time_point begin = Clock::now();
  for (auto _ : state) {
    if (!channel.FeedOne()) {
      state.SkipWithError("the channel refused a frame");
      break;
    }
  }
  const double frameSeconds = std::chrono::duration<double>(Clock::now() - begin).count() /
                              static_cast<double>(state.iterations());
  channel->StopProcessor();
  state.SetItemsProcessed(state.iterations());
  state.counters["x_memcpy"] = frameSeconds / copySeconds;
}
BENCHMARK(BM_ChannelFrame1080p);

}  // namespace

BENCHMARK_MAIN();
