// What the GStreamer element adds to a frame: one 1080p I420 frame through quillmarembed (a
// harness pushing it and pulling it back) beside the same frame handed to an embedding session
// directly, as quillmar embed does. Both mark the frame; the difference is the element's own cost
// (mapping the buffer, viewing it as a framework frame, the harness's pads). The element
// benchmark reports its time over the direct one as "x_direct".
#include <benchmark/benchmark.h>
#include <gst/check/gstharness.h>
#include <gst/gst.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>

#include "framework/testing/TemporaryFolder.h"
#include "gst/QuillmarElements.h"
#include "tools/EmbeddingSession.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr char kCaps[] = "video/x-raw, format=I420, width=1920, height=1080, framerate=25/1";
// A run of a day: its slot outlasts any benchmark, so no frame waits for the database.
constexpr unsigned kRunSeconds = 86400;

class SilentListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  void OnEmbeddingReport(float, bool) override {}
  void OnError(const char*) override {}
  void OnWarning(const char*) override {}
  void OnInfo(const char*) override {}
  void OnDetection(bool, const char*, const char*, double) override {}
};

// A folder holding the example configuration, for one benchmark.
struct Setup {
  Setup() {
    std::filesystem::copy_file(std::filesystem::path(QUILLMAR_SOURCE_DIR) / "examples/demo.json",
                               folder.Path() / "channel.json");
  }
  std::string Configuration() const { return (folder.Path() / "channel.json").string(); }
  Framework::Testing::TemporaryFolder folder;
};

double directSeconds = 0.0;

void BM_SessionFrame1080p(benchmark::State& state) {
  const Setup setup;
  const Quillmar::Tools::ChannelLibrary library;
  SilentListener listener;
  Quillmar::Tools::SessionRequest request;
  std::string problem;
  Quillmar::Tools::ReadSessionCids(setup.Configuration(), "Demo", request, problem);
  request.configFile = setup.Configuration();
  request.program = "Demo";
  request.durationSeconds = kRunSeconds;
  request.format = Framework::VideoFormatInfo(Framework::PixelLayout::Yuv420P8, kWidth, kHeight, 25.0);
  Quillmar::Tools::EmbeddingSession session(library, listener);
  if (!session.Open(request)) {
    state.SkipWithError("the session did not open");
    return;
  }
  // Every frame starts unmarked, as each buffer the element is given does (a frame marked again
  // would show a prior watermark and pass unmarked).
  Framework::Frame clean(request.format);
  std::fill(clean.GetPlane(0), clean.GetPlane(0) + clean.GetSize(), 128);
  Framework::Frame frame(clean);
  const Clock::time_point begin = Clock::now();
  for (auto _ : state) {
    std::copy(clean.GetPlane(0), clean.GetPlane(0) + clean.GetSize(), frame.GetPlane(0));
    session.Deliver(frame);
  }
  directSeconds = std::chrono::duration<double>(Clock::now() - begin).count() /
                  static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SessionFrame1080p)->Unit(benchmark::kMillisecond);

void BM_ElementFrame1080p(benchmark::State& state) {
  const Setup setup;
  gst_init(nullptr, nullptr);
  Quillmar::Gst::RegisterElements(nullptr);
  GstHarness* harness = gst_harness_new_parse(("quillmarembed config-file=" + setup.Configuration() +
                                               " program=Demo duration=" + std::to_string(kRunSeconds))
                                                  .c_str());
  gst_harness_set_src_caps_str(harness, kCaps);
  GstBuffer* buffer = gst_harness_create_buffer(harness, kWidth * kHeight * 3 / 2);
  gst_buffer_memset(buffer, 0, 128, kWidth * kHeight * 3 / 2);
  const Clock::time_point begin = Clock::now();
  for (auto _ : state) {
    gst_harness_push(harness, gst_buffer_ref(buffer));
    gst_buffer_unref(gst_harness_pull(harness));
  }
  const double elementSeconds = std::chrono::duration<double>(Clock::now() - begin).count() /
                                static_cast<double>(state.iterations());
  gst_buffer_unref(buffer);
  gst_harness_teardown(harness);
  state.SetItemsProcessed(state.iterations());
  if (directSeconds > 0.0) state.counters["x_direct"] = elementSeconds / directSeconds;
}
BENCHMARK(BM_ElementFrame1080p)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
