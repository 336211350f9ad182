// The reference plug-ins, created from their shared libraries by a channel, driven through the
// adaptor classes the way the product's channel drives them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "events/VWMDetectionEvent.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/Frame.h"
#include "plugins/detector/DetectorSimulation.h"
#include "tests/PluginTestChannel.h"

namespace QuillmarTesting {
namespace {

using Framework::Frame;
using Framework::LumensealBasebandDetectorPlugin;
using Framework::VWMDetectionEvent;
using Framework::VWMEmbeddingEvent;
using Strings = std::vector<std::string>;

constexpr float kNone = VWMEmbeddingEvent::kNoEnergy;
const Framework::VideoFormatInfo kFormat(Framework::PixelLayout::Yuv420P8, 64, 36, 25.0);

// What a detection handler saw while it ran (the result it points at does not outlive it).
std::string Seen(const VWMDetectionEvent& event) {
  if (const LSNDetection* detection = event.GetDetection()) {
    return event.GetDetectionStatus() + " CID " + std::to_string(detection->cid) + " '" +
           event.GetCidName() + "' at " + std::to_string(event.GetMediaDetectionTimestamp());
  }
  if (const CBasebandWMDetection* presence = event.GetPresence()) {
    return "presence " + std::to_string(presence->state);
  }
  return event.GetScale() != nullptr ? "scale" : event.GetMirrored() != nullptr ? "mirrored" : "";
}

class LumensealPluginsTest : public ::testing::Test {
 protected:
  LumensealPluginsTest() {
    PluginTestChannel::UseBuiltPlugins();
    channel_ = PluginTestChannel::Create(3);
  }

  // A further detector of this channel whose construction properties `change` adjusts; what it
  // raises is collected in seen_.
  template <typename Change>
  LumensealBasebandDetectorPlugin& CreateDetector(Change change) {
    auto properties = channel_->Detector()->GetConstructionProperties();
    change(properties);
    const std::string name = "Detector" + std::to_string(connections_.size());
    channel_->CreateProcessor(PluginTestChannel::kDetectorClass, name, properties, false);
    auto& detector = dynamic_cast<LumensealBasebandDetectorPlugin&>(*channel_->GetAlgorithm(name));
    connections_.push_back(detector.GetEventSignal().ConnectFor<VWMDetectionEvent>(
        [this](const VWMDetectionEvent& event) { seen_.push_back(Seen(event)); }));
    return detector;
  }

  std::unique_ptr<PluginTestChannel> channel_;
  std::vector<Framework::EventConnection> connections_;
  Strings seen_;
};

// Every frame to the detector first, then to the embedder, as the channel hands them over.
TEST_F(LumensealPluginsTest, EmbedderCountsSecondsAndMarksNoneBypassedOrBeyondTheSlot) {
  auto& embedder = *channel_->Embedder();
  auto& detector = *channel_->Detector();
  detector.SetFormat(kFormat);
  ASSERT_TRUE(detector.InitProcessor());
  embedder.SetFormat(kFormat);
  embedder.SetFrameRate(25.0);
  embedder.SetGlobalDepth(0.5);
  embedder.SetSelectedCID(77);
  embedder.SetSelectedDurationInSeconds(3);
  ASSERT_TRUE(embedder.InitProcessor());
  std::vector<float> energies;
  const auto connection = embedder.GetEventSignal().ConnectFor<VWMEmbeddingEvent>(
      [&](const VWMEmbeddingEvent& event) { energies.push_back(event.GetAverageEnergy()); });
  Frame frame(kFormat);
  for (std::uint64_t index = 0; index < 125; ++index) {
    if (index == 100) embedder.SetSelectedDurationInSeconds(3600);  // the slot was extended
    frame.SetIndex(index);
    detector.ProcessFrameVolatile(&frame);
    // Second 2 is bypassed, as while a prior watermark is present; second 3 lies beyond the
    // slot, where the media clock runs on.
    embedder.ProcessFrameVolatile(&frame, index >= 50 && index < 75);
    ASSERT_EQ(embedder.GetEmbeddedDurationInSeconds(), (index + 1) / 25) << "frame " << index;
  }
  EXPECT_EQ(energies, (std::vector<float>{0.0f, 0.0f, kNone, kNone, 0.0f}));

  // A new run starts from nothing.
  ASSERT_TRUE(embedder.DeinitProcessor());
  ASSERT_TRUE(embedder.InitProcessor());
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 0u);
}

TEST_F(LumensealPluginsTest, EmbedderTakesTheFrameRateFromTheFramesWhenNoneIsSet) {
  auto& embedder = *channel_->Embedder();
  ASSERT_TRUE(embedder.InitProcessor());
  Frame frame(Framework::VideoFormatInfo(Framework::PixelLayout::Yuv422P8, 32, 18, 50.0));
  for (int i = 0; i < 99; ++i) embedder.ProcessFrameVolatile(&frame, false);
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 1u);
  embedder.ProcessFrameVolatile(nullptr, false);
  embedder.ProcessFrameVolatile(&frame, false);
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 2u);
}

// Each result set is reported once, in the order set: within the frame by a blocking detector,
// with the next frame by another; what is still held back at Stop is reported then or dropped.
TEST_F(LumensealPluginsTest, DetectorReportsEachResultOnceAsItsConstructionPropertiesAsk) {
  static const struct {
    bool blocking, reportOnStop;
    std::size_t afterFirstFrame, afterSecondFrame, afterStop;  // one more result set before Stop
  } cases[] = {
      {true, false, 3, 3, 3},
      {true, true, 3, 3, 4},
      {false, false, 0, 3, 3},
      {false, true, 0, 3, 4},
  };
  const Strings all = {"presence 1", "Full CID 4294967303 'Seven' at 4.000000", "scale",
                       "mirrored"};
  LSNDetection detection;
  detection.isFullDetection = detection.isFound = true;
  detection.cid = 0x1'0000'0007ull;
  detection.cidName = "Seven";
  detection.mediaDetectionTimestamp = 4.0;
  Frame frame(kFormat);
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << "blocking " << c.blocking << ", at Stop " << c.reportOnStop);
    auto& detector =
        CreateDetector([&](LumensealBasebandDetectorPlugin::ConstructionProperties& p) {
          p.SetIsBlockingDetector(c.blocking);
          p.SetIsOnStopReportCachedBuffers(c.reportOnStop);
        });
    ASSERT_TRUE(detector.InitProcessor());
    ASSERT_TRUE(detector.StartProcessor());
    seen_.clear();
    detector.SetProperty(DetectorSimulation::kPresence,
                         CBasebandWMDetection{CBasebandWMDetection::kPresent, 1.0});
    detector.SetProperty(DetectorSimulation::kDetection, detection);
    detector.SetProperty(DetectorSimulation::kScale, ScaleFoundEvent{});
    EXPECT_EQ(seen_, Strings{}) << "results wait for a frame";
    detector.DeliverFrame(&frame);
    EXPECT_EQ(seen_.size(), c.afterFirstFrame);
    detector.DeliverFrame(&frame);
    EXPECT_EQ(seen_.size(), c.afterSecondFrame);
    detector.SetProperty(DetectorSimulation::kMirrored, MirroredDetectionEvent{});
    ASSERT_TRUE(detector.StopProcessor());
    // A detector that does not report "not found" stays quiet afterwards.
    for (int i = 0; i < 300; ++i) detector.ProcessFrame(&frame);
    EXPECT_EQ(seen_, Strings(all.begin(), all.begin() + c.afterStop));
  }
}

TEST_F(LumensealPluginsTest, DetectorReportsNotFoundAtTheEndOfEachEmptyPeriod) {
  auto& detector = CreateDetector([](LumensealBasebandDetectorPlugin::ConstructionProperties& p) {
    p.SetIsReportingNotFound(true);
    p.SetPreDetectorPeriod(2);
  });
  Frame frame(kFormat);
  const auto feed = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      detector.ProcessFrame(&frame);
      frame.SetIndex(frame.GetIndex() + 1);
    }
  };
  feed(49);
  EXPECT_EQ(seen_, Strings{});
  feed(1);
  EXPECT_EQ(seen_, Strings{"Not found CID 0 '' at 1.960000"});
  // A period in which a watermark was found ends without a "Not found".
  LSNDetection found;
  found.isFound = true;
  detector.SetProperty(DetectorSimulation::kDetection, found);
  feed(50);
  EXPECT_EQ(seen_.size(), 2u);
  EXPECT_EQ(seen_.back().rfind("None ", 0), 0u) << seen_.back();
  feed(50);
  ASSERT_EQ(seen_.size(), 3u);
  EXPECT_EQ(seen_.back().rfind("Not found ", 0), 0u) << seen_.back();
}

}  // namespace
}  // namespace QuillmarTesting
