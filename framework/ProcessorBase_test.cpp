#include "ProcessorBase.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>

namespace Framework {
namespace {

// Records the hooks it runs; Init fails when told to, and a frame runs `inFrame` first.
class ScriptedProcessor : public ProcessorBase {
 public:
  bool Init() override { return Record("init") && initSucceeds; }
  bool Start() override { return Record("start"); }
  bool Stop() override { return Record("stop"); }
  void Deinit() override { Record("deinit"); }
  void ProcessFrame(const Frame*) override {
    if (inFrame) inFrame();
    Record("frame");
  }
  bool Record(const char* hook) {
    trace += trace.empty() ? hook : std::string(" ") + hook;
    return true;
  }
  bool initSucceeds = true;
  std::function<void()> inFrame;
  std::string trace;
};

TEST(ProcessorBase, LifeCycleAndFramesFollowItsStates) {
  using S = ProcessorState;
  static const struct {
    const char* operation;
    bool result;
    ProcessorState state;
  } steps[] = {
      {"start", false, S::Created},  // not initialised yet
      {"failing init", false, S::Created},
      {"init", true, S::Initialized},
      {"frame", false, S::Initialized},
      {"init", true, S::Initialized},  // again: de-initialised, then initialised
      {"start", true, S::Started},
      {"frame", true, S::Started},
      {"init", false, S::Started},  // not while started
      {"stop", true, S::Stopped},
      {"frame", false, S::Stopped},
      {"start", true, S::Started},  // a stopped processor starts again
      {"stopping frame", true, S::Stopped},  // stops at once, without deadlock
      {"start", true, S::Started},
      {"deinit", true, S::Created},  // stops first
      {"deinit", false, S::Created},
  };
  ScriptedProcessor processor;
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 16, 16, 25.0));
  for (const auto& step : steps) {
    const std::string operation = step.operation;
    processor.initSucceeds = operation != "failing init";
    if (operation == "stopping frame") processor.inFrame = [&] { processor.StopProcessor(); };
    bool result = false;
    if (operation == "init" || operation == "failing init") result = processor.InitProcessor();
    if (operation == "start") result = processor.StartProcessor();
    if (operation == "stop") result = processor.StopProcessor();
    if (operation == "deinit") result = processor.DeinitProcessor();
    if (operation.find("frame") != std::string::npos) result = processor.DeliverFrame(&frame);
    EXPECT_EQ(step.result, result) << operation;
    EXPECT_EQ(step.state, processor.GetState()) << operation;
  }
  EXPECT_EQ("init init deinit init start frame stop start stop frame start stop deinit",
            processor.trace);
}

// Stop requested on the control thread while the processing thread is inside a frame: Stop
// begins only after the frame has ended.
TEST(ProcessorBase, StopWaitsForTheFrameInProgress) {
  ScriptedProcessor processor;
  std::promise<void> entered;
  std::promise<void> release;
  processor.inFrame = [&] {
    entered.set_value();
    release.get_future().wait();
  };
  processor.InitProcessor();
  processor.StartProcessor();
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 16, 16, 25.0));
  std::thread processing([&] { processor.DeliverFrame(&frame); });
  entered.get_future().wait();
  auto stopping = std::async(std::launch::async, [&] { return processor.StopProcessor(); });
  // Gives Stop the chance to run early; the trace tells whether it did.
  EXPECT_EQ(std::future_status::timeout, stopping.wait_for(std::chrono::milliseconds(20)));
  release.set_value();
  EXPECT_TRUE(stopping.get());
  processing.join();
  EXPECT_EQ("init start frame stop", processor.trace);
}

TEST(VideoFormatInfo, ChromaPlanesRoundOddSizesUp) {
  const VideoFormatInfo hd(PixelLayout::Yuv420P8, 1921, 1081, 25.0);
  EXPECT_EQ(961, hd.GetPlaneWidth(1));
  EXPECT_EQ(541, hd.GetPlaneHeight(2));
  EXPECT_EQ(1081, VideoFormatInfo(PixelLayout::Yuv422P8, 8, 1081, 50).GetPlaneHeight(1));
}

}  // namespace
}  // namespace Framework
