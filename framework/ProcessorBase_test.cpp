#include "ProcessorBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>

namespace Framework {
namespace {

// Records the hooks it runs; each hook's result can be set.
class ScriptedProcessor : public ProcessorBase {
 public:
  bool Init() override { return Record("init", initSucceeds); }
  bool Start() override { return Record("start", true); }
  bool Stop() override { return Record("stop", true); }
  void Deinit() override { Record("deinit", true); }
  void ProcessFrame(const Frame*) override { Record("frame", true); }

  bool initSucceeds = true;
  std::string trace;

 private:
  bool Record(const char* hook, bool result) {
    trace += trace.empty() ? hook : std::string(" ") + hook;
    return result;
  }
};

TEST(ProcessorBase, LifeCycleFollowsItsStates) {
  struct Step {
    const char* operation;
    bool expectedResult;
    ProcessorState expectedState;
  };
  const Step steps[] = {
      {"start", false, ProcessorState::Created},     // not initialised yet
      {"stop", false, ProcessorState::Created},
      {"init", true, ProcessorState::Initialized},
      {"init", true, ProcessorState::Initialized},   // again: de-initialised, then initialised
      {"start", true, ProcessorState::Started},
      {"init", false, ProcessorState::Started},      // not while started
      {"start", false, ProcessorState::Started},
      {"stop", true, ProcessorState::Stopped},
      {"stop", false, ProcessorState::Stopped},
      {"start", true, ProcessorState::Started},      // a stopped processor starts again
      {"deinit", true, ProcessorState::Created},     // stops first
      {"deinit", false, ProcessorState::Created},
  };
  ScriptedProcessor processor;
  for (const Step& step : steps) {
    const std::string operation = step.operation;
    bool result = false;
    if (operation == "init") result = processor.InitProcessor();
    if (operation == "start") result = processor.StartProcessor();
    if (operation == "stop") result = processor.StopProcessor();
    if (operation == "deinit") result = processor.DeinitProcessor();
    EXPECT_EQ(step.expectedResult, result) << operation;
    EXPECT_EQ(step.expectedState, processor.GetState()) << operation;
  }
  EXPECT_EQ("init deinit init start stop start stop deinit", processor.trace);
  EXPECT_EQ(3, static_cast<int>(ProcessorState::Stopped));
}

TEST(ProcessorBase, FailedInitLeavesTheProcessorCreated) {
  ScriptedProcessor processor;
  processor.initSucceeds = false;
  EXPECT_FALSE(processor.InitProcessor());
  EXPECT_EQ(ProcessorState::Created, processor.GetState());
  processor.initSucceeds = true;
  EXPECT_TRUE(processor.InitProcessor());
}

TEST(ProcessorBase, FramesReachOnlyAStartedProcessor) {
  ScriptedProcessor processor;
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 64, 32, 25.0));
  EXPECT_FALSE(processor.DeliverFrame(&frame));
  processor.InitProcessor();
  EXPECT_FALSE(processor.DeliverFrame(&frame));
  processor.StartProcessor();
  EXPECT_TRUE(processor.DeliverFrame(&frame));
  processor.StopProcessor();
  EXPECT_FALSE(processor.DeliverFrame(&frame));
  EXPECT_EQ("init start frame stop", processor.trace);
}

TEST(ProcessorBase, SendersAreUnique) {
  ScriptedProcessor first;
  ScriptedProcessor second;
  EXPECT_NE(0u, first.GetSender());
  EXPECT_NE(first.GetSender(), second.GetSender());
}

// Stop requested on the control thread while the processing thread is inside a frame: Stop
// begins only after the frame has ended.
TEST(ProcessorBase, StopWaitsForTheFrameInProgress) {
  class SlowProcessor : public ProcessorBase {
   public:
    void ProcessFrame(const Frame*) override {
      entered.set_value();
      release.get_future().wait();
      frameEnd = ++clock;
    }
    bool Stop() override {
      stopBegin = ++clock;
      return true;
    }
    std::promise<void> entered, release;
    std::atomic<int> clock{0}, frameEnd{0}, stopBegin{0};
  } processor;
  processor.InitProcessor();
  processor.StartProcessor();
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 16, 16, 25.0));
  std::thread processing([&] { processor.DeliverFrame(&frame); });
  processor.entered.get_future().wait();
  auto stopping = std::async(std::launch::async, [&] { return processor.StopProcessor(); });
  EXPECT_EQ(std::future_status::timeout, stopping.wait_for(std::chrono::milliseconds(50)));
  processor.release.set_value();
  EXPECT_TRUE(stopping.get());
  processing.join();
  EXPECT_LT(processor.frameEnd, processor.stopBegin);
}

// A processor that stops itself from within a frame does so at once, without deadlock.
TEST(ProcessorBase, StopFromWithinAFrame) {
  class SelfStopping : public ScriptedProcessor {
   public:
    void ProcessFrameVolatile(Frame* frame) override {
      ScriptedProcessor::ProcessFrameVolatile(frame);
      StopProcessor();
    }
  } processor;
  processor.InitProcessor();
  processor.StartProcessor();
  Frame frame(VideoFormatInfo(PixelLayout::Yuv420P8, 16, 16, 25.0));
  EXPECT_TRUE(processor.DeliverFrame(&frame));
  EXPECT_EQ(ProcessorState::Stopped, processor.GetState());
  EXPECT_EQ("init start frame stop", processor.trace);
}

TEST(VideoFormatInfo, PlanesAndTextForm) {
  const VideoFormatInfo none;
  EXPECT_EQ(-1, none.GetVideoFormat());
  EXPECT_EQ("no format", none.ToString());
  EXPECT_EQ(0, none.GetPlaneWidth(0));

  const VideoFormatInfo hd(PixelLayout::Yuv420P8, 1921, 1081, 25.0);
  EXPECT_EQ(0, hd.GetVideoFormat());
  EXPECT_EQ("1921x1081 yuv420p 25 fps", hd.ToString());
  EXPECT_EQ(1921, hd.GetPlaneWidth(0));
  EXPECT_EQ(961, hd.GetPlaneWidth(1));
  EXPECT_EQ(541, hd.GetPlaneHeight(2));
  EXPECT_EQ(1081, VideoFormatInfo(PixelLayout::Yuv422P8, 8, 1081, 50).GetPlaneHeight(1));
  EXPECT_EQ(8, VideoFormatInfo(PixelLayout::Yuv444P8, 8, 8, 50).GetPlaneWidth(2));

  Frame frame(hd);
  EXPECT_EQ(0, frame.GetPitch(0) % Frame::kRowAlignment);
  EXPECT_GE(frame.GetPitch(1), 961);
  EXPECT_EQ(16, frame.GetPlane(0)[0]);
  EXPECT_EQ(128, frame.GetPlane(2)[frame.GetPitch(2) * 540 + 960]);
  EXPECT_EQ(frame.GetPlane(0) + frame.GetSize(),
            frame.GetPlane(2) + static_cast<std::size_t>(frame.GetPitch(2)) * 541);
}

}  // namespace
}  // namespace Framework
