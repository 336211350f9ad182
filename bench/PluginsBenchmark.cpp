// What the reference plug-ins cost the channel: per frame on the processing thread (a 1080p
// frame through the embedder and the detector), per detection event, and per encodation record
// (a whole write with its lock and flush).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "events/VWMDetectionEvent.h"
#include "framework/Frame.h"
#include "plugins/testing/PluginTestChannel.h"

namespace {

using QuillmarTesting::PluginTestChannel;

const Framework::VideoFormatInfo kFormat1080p(Framework::PixelLayout::Yuv420P8, 1920, 1080,
                                              25.0);

std::unique_ptr<PluginTestChannel> NewChannel() {
  PluginTestChannel::UseBuiltPlugins();
  return PluginTestChannel::Create(0);
}

void BM_EmbedderFrame(benchmark::State& state) {
  const auto channel = NewChannel();
  auto& embedder = *channel->Embedder();
  embedder.SetFrameRate(25.0);
  embedder.InitProcessor();
  Framework::Frame frame(kFormat1080p);
  for (auto _ : state) embedder.ProcessFrameVolatile(&frame, false);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EmbedderFrame);

void BM_DetectorFrame(benchmark::State& state) {
  const auto channel = NewChannel();
  auto& detector = *channel->Detector();
  detector.InitProcessor();
  Framework::Frame frame(kFormat1080p);
  for (auto _ : state) detector.ProcessFrameVolatile(&frame);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DetectorFrame);

// Building the event for a decoded watermark and reading what the channel reads of it.
void BM_DetectionEvent(benchmark::State& state) {
  LSNDetection detection;
  detection.isFullDetection = detection.isFound = true;
  detection.payload = "0123456789AB";
  detection.cidName = "Evening News";
  detection.timestamp = 86399;
  for (auto _ : state) {
    const Framework::VWMDetectionEvent event(detection);
    benchmark::DoNotOptimize(event.GetDetection());
    benchmark::DoNotOptimize(event.GetPresence());
    benchmark::DoNotOptimize(event.GetTimestamp());
    benchmark::DoNotOptimize(event.GetDetectionQuality());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DetectionEvent);

void BM_EncodationRecord(benchmark::State& state) {
  const std::filesystem::path log = std::filesystem::temp_directory_path() /
                                    ("PluginsBenchmark-" + std::to_string(::getpid()) + ".jsonl");
  ::setenv("QUILLMAR_ENCODATION_LOG", log.c_str(), 1);
  const auto channel = NewChannel();
  auto& embedder = *channel->Embedder();
  const std::map<std::string, std::string> metadata = {
      {"itemid", "A-1"}, {"slug", "evening-news"}, {"note", std::string(200, 'n')}};
  for (auto _ : state) {
    embedder.WriteEncodationLog("first", "second", "Studio A", "third", metadata, "CRC 1234", 0.5);
  }
  state.SetItemsProcessed(state.iterations());
  std::filesystem::remove(log);
}
BENCHMARK(BM_EncodationRecord);

}  // namespace

BENCHMARK_MAIN();
