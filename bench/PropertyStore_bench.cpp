// The property store on the frame path: a channel reads a few typed properties of its own and of
// its embedder for every frame, and sets one or two. Store sizes are those of a channel and its
// children (about ten properties).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "framework/PropertyBase.h"
#include "framework/platform/SystemTime.h"

namespace {

Framework::PropertyBase ChannelLikeStore() {
  Framework::PropertyBase store;
  store.SetProperty("ChannelIndex", 0);
  store.SetProperty("FrameRate", 25.0);
  store.SetProperty("GlobalDepth", 1.5);
  store.SetProperty("MaxLocalDepth", 4);
  store.SetProperty("FlatRegion", true);
  store.SetProperty("FTRT", true);
  store.SetProperty("SelectedCID", std::uint32_t{101});
  store.SetProperty("SelectedStartTime", SYSTEMTIME{});
  store.SetProperty("SelectedDurationInSeconds", std::uint64_t{1800});
  store.SetProperty("EmbeddedDurationInSeconds", std::uint64_t{0});
  store.SetProperty("ConfigFile", std::string("/etc/quillmar/channel.json"));
  return store;
}

void BM_GetUint64(benchmark::State& state) {
  const auto store = ChannelLikeStore();
  for (auto _ : state) {
    benchmark::DoNotOptimize(store.GetProperty<std::uint64_t>("EmbeddedDurationInSeconds"));
  }
}
BENCHMARK(BM_GetUint64);

void BM_GetDouble(benchmark::State& state) {
  const auto store = ChannelLikeStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.GetProperty<double>("FrameRate"));
}
BENCHMARK(BM_GetDouble);

void BM_GetString(benchmark::State& state) {
  const auto store = ChannelLikeStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.GetProperty<std::string>("ConfigFile"));
}
BENCHMARK(BM_GetString);

void BM_SetUint64(benchmark::State& state) {
  auto store = ChannelLikeStore();
  std::uint64_t seconds = 0;
  for (auto _ : state) store.SetProperty("EmbeddedDurationInSeconds", ++seconds);
}
BENCHMARK(BM_SetUint64);

void BM_GetMissing(benchmark::State& state) {
  const auto store = ChannelLikeStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.GetProperty<int>("NotThere"));
}
BENCHMARK(BM_GetMissing);

}  // namespace

BENCHMARK_MAIN();
