// The reference watermark on the frame path: embedder and detector throughput per core on
// textured, moving 1080p and 2160p pictures, beside a memcpy of the same luma planes. The
// counter "Mpx/s" is luma megapixels per second of one core; 2160p50 is 415 Mpx/s in all.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "plugins/watermark/WatermarkDetector.h"
#include "plugins/watermark/WatermarkEmbedder.h"
#include "plugins/watermark/testing/SyntheticScene.h"

namespace {

constexpr std::uint64_t kSeed = 0x5EED'1234'ABCD'0001ull;
constexpr double kFrameRate = 50.0;
constexpr int kSceneFrames = 8;  // distinct pictures cycled through, so content moves

std::vector<Framework::Frame> Scene(int width, int height) {
  const Framework::VideoFormatInfo format(Framework::PixelLayout::Yuv420P8, width, height, kFrameRate);
  std::vector<Framework::Frame> frames;
  for (int index = 0; index < kSceneFrames; ++index) {
    frames.emplace_back(format);
    Lumenseal::Testing::PaintScene(frames.back(), static_cast<std::uint64_t>(index));
  }
  return frames;
}

// The scene at the size the benchmark's arguments give; counts its luma pixels as the rate.
std::vector<Framework::Frame> SceneFor(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(width) * height / 1e6,
                                               benchmark::Counter::kIsIterationInvariantRate);
  return Scene(width, height);
}

void BM_Embed(benchmark::State& state) {
  auto frames = SceneFor(state);
  Lumenseal::WatermarkEmbedder embedder(kSeed, {});
  Lumenseal::EmbedRequest request;
  request.frameRate = kFrameRate;
  request.cid = 101;
  request.slotStart = 848'000'000;
  for (auto _ : state) {
    benchmark::DoNotOptimize(embedder.Embed(frames[request.frameIndex % kSceneFrames], request));
    ++request.frameIndex;
  }
}
BENCHMARK(BM_Embed)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond);

void BM_Detect(benchmark::State& state) {
  const auto frames = SceneFor(state);
  Lumenseal::WatermarkDetector detector(kSeed, kFrameRate);
  std::uint64_t index = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(detector.ProcessFrame(frames[index++ % kSceneFrames]));
  }
}
BENCHMARK(BM_Detect)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond);

void BM_MemcpyLuma(benchmark::State& state) {
  const auto frames = SceneFor(state);
  auto target = frames;
  const std::size_t bytes =
      static_cast<std::size_t>(frames[0].GetPitch(0)) * frames[0].GetFormat().GetHeight();
  std::uint64_t index = 0;
  for (auto _ : state) {
    const auto slot = index++ % kSceneFrames;
    std::memcpy(target[slot].GetPlane(0), frames[slot].GetPlane(0), bytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_MemcpyLuma)->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
