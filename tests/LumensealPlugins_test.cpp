// The reference plug-ins, created from their shared libraries by a channel, driven through the
// adaptor classes the way the product's channel drives them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "events/VWMDetectionEvent.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/Frame.h"
#include "framework/PluginRegistry.h"
#include "plugins/detector/DetectorSimulation.h"
#include "tests/PluginTestChannel.h"

namespace QuillmarTesting {
namespace {

using Framework::Frame;
using Framework::LumensealBasebandDetectorPlugin;
using Framework::LumensealBasebandEmbedderPlugin;
using Framework::PixelLayout;
using Framework::VideoFormatInfo;
using Framework::VWMDetectionEvent;
using Framework::VWMEmbeddingEvent;

constexpr std::uint64_t kChannelIndex = 3;

const VideoFormatInfo kFormat25(PixelLayout::Yuv420P8, 64, 36, 25.0);

// What a detection handler saw: the kind of result and the values that are only valid while the
// handler runs.
struct SeenDetection {
  std::string kind;
  std::string status;
  std::string cidName;
  std::uint64_t cid = 0;
  std::int32_t presenceState = -1;
  double mediaDetectionTimestamp = 0.0;
};

SeenDetection See(const VWMDetectionEvent& event) {
  const int results = (event.GetDetection() != nullptr) + (event.GetScale() != nullptr) +
                      (event.GetMirrored() != nullptr) + (event.GetPresence() != nullptr);
  EXPECT_EQ(results, 1) << "exactly one result pointer must be set";
  SeenDetection seen;
  seen.status = event.GetDetectionStatus();
  seen.cidName = event.GetCidName();
  seen.mediaDetectionTimestamp = event.GetMediaDetectionTimestamp();
  if (const LSNDetection* detection = event.GetDetection()) {
    seen.kind = "detection";
    seen.cid = detection->cid;
  } else if (event.GetScale() != nullptr) {
    seen.kind = "scale";
  } else if (event.GetMirrored() != nullptr) {
    seen.kind = "mirrored";
  } else if (const CBasebandWMDetection* presence = event.GetPresence()) {
    seen.kind = "presence";
    seen.presenceState = presence->state;
  }
  return seen;
}

std::vector<std::string> Kinds(const std::vector<SeenDetection>& seen) {
  std::vector<std::string> kinds;
  for (const SeenDetection& detection : seen) kinds.push_back(detection.kind);
  return kinds;
}

class LumensealPluginsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PluginTestChannel::UseBuiltPlugins();
    channel_ = PluginTestChannel::Create(kChannelIndex);
    embedder_ = channel_->Embedder();
    detector_ = channel_->Detector();
    ASSERT_NE(embedder_, nullptr);
    ASSERT_NE(detector_, nullptr);
  }

  // A further detector of this channel, created with `properties`.
  LumensealBasebandDetectorPlugin* CreateDetector(
      LumensealBasebandDetectorPlugin::ConstructionProperties properties) {
    const std::string name = "Detector" + std::to_string(++extraDetectors_);
    channel_->CreateProcessor(PluginTestChannel::kDetectorClass, name, properties, false);
    return dynamic_cast<LumensealBasebandDetectorPlugin*>(channel_->GetAlgorithm(name));
  }

  // Collects what `detector` raises from now on.
  Framework::EventConnection Watch(LumensealBasebandDetectorPlugin& detector) {
    return detector.GetEventSignal().ConnectFor<VWMDetectionEvent>(
        [this](const VWMDetectionEvent& event) { seen_.push_back(See(event)); });
  }

  // Collects the average energies the embedder reports from now on.
  Framework::EventConnection WatchEnergies() {
    return embedder_->GetEventSignal().ConnectFor<VWMEmbeddingEvent>(
        [this](const VWMEmbeddingEvent& event) { energies_.push_back(event.GetAverageEnergy()); });
  }

  std::unique_ptr<PluginTestChannel> channel_;
  LumensealBasebandEmbedderPlugin* embedder_ = nullptr;
  LumensealBasebandDetectorPlugin* detector_ = nullptr;
  std::vector<SeenDetection> seen_;
  std::vector<float> energies_;
  int extraDetectors_ = 0;
};

TEST_F(LumensealPluginsTest, ChannelCreatesBothFromTheirLibrariesWithItsProperties) {
  const std::vector<std::string> plugins =
      Framework::PluginRegistry::FindPlugins({QUILLMAR_TEST_PLUGIN_FOLDER});
  EXPECT_NE(std::find(plugins.begin(), plugins.end(), "LumensealBasebandEmbedderPlugin"),
            plugins.end());
  EXPECT_NE(std::find(plugins.begin(), plugins.end(), "LumensealBasebandDetectorPlugin"),
            plugins.end());

  const std::uint64_t seed = channel_->GetLicenser().GetProperty<std::uint64_t>("Seed");
  const auto& detector = detector_->GetConstructionProperties();
  EXPECT_EQ(detector.GetChannelIndex(), 3);
  EXPECT_EQ(detector.GetSeed(), seed);
  EXPECT_EQ(detector.GetMacAddress(), "----");
  EXPECT_EQ(detector.GetPreDetectorPeriod(), 5);
  EXPECT_TRUE(detector.GetIsBlockingDetector());
  EXPECT_FALSE(detector.GetIsReportingNotFound());
  EXPECT_FALSE(detector.GetIsOnStopReportCachedBuffers());
  EXPECT_EQ(detector_->GetChannelIndex(), 3);
  EXPECT_EQ(detector_->GetMacAddress(), "----");
  EXPECT_EQ(detector_->GetName(), "LumensealDetector");

  EXPECT_EQ(embedder_->GetConstructionProperties().GetSeed(), seed);
  EXPECT_EQ(embedder_->GetChannelIndex(), 3);
  EXPECT_EQ(embedder_->GetName(), "LumensealEmbedder");
  EXPECT_EQ(embedder_->GetEmbeddedDurationInSeconds(), 0u);
}

// A run as the channel drives it: every run-time property set, both initialised, and each frame
// to the detector first, then to the embedder.
TEST_F(LumensealPluginsTest, EmbedderKeepsEmbeddedDurationAndReportsEnergyOnceASecond) {
  const SYSTEMTIME start{2026, 11, 6, 21, 7, 40, 3, 0};
  detector_->SetFormat(kFormat25);
  detector_->SetChannelIndex(3);
  detector_->SetMacAddress("----");
  ASSERT_TRUE(detector_->InitProcessor());
  embedder_->SetFormat(kFormat25);
  embedder_->SetFrameRate(25.0);
  embedder_->SetMaxLocalDepth(4);
  embedder_->SetGlobalDepth(0.5);
  embedder_->SetFlatRegion(true);
  embedder_->SetSelectedCID(77);
  embedder_->SetSelectedStartTime(start);
  embedder_->SetSelectedDurationInSeconds(63);
  embedder_->SetFTRT(true);
  ASSERT_TRUE(embedder_->InitProcessor());

  const Framework::EventConnection connection = WatchEnergies();

  Frame frame(kFormat25);
  for (std::uint64_t index = 0; index < 100; ++index) {
    frame.SetIndex(index);
    detector_->ProcessFrameVolatile(&frame);
    // The third second is bypassed, as while a prior watermark is present.
    embedder_->ProcessFrameVolatile(&frame, index >= 50 && index < 75);
    ASSERT_EQ(embedder_->GetEmbeddedDurationInSeconds(), (index + 1) / 25) << "frame " << index;
  }
  EXPECT_EQ(energies_, (std::vector<float>{0.0f, 0.0f, VWMEmbeddingEvent::kNoEnergy, 0.0f}));

  // A new run starts from nothing.
  ASSERT_TRUE(embedder_->DeinitProcessor());
  ASSERT_TRUE(embedder_->InitProcessor());
  EXPECT_EQ(embedder_->GetEmbeddedDurationInSeconds(), 0u);
}

TEST_F(LumensealPluginsTest, EmbedderTakesTheFrameRateFromTheFramesWhenNoneIsSet) {
  const VideoFormatInfo format50(PixelLayout::Yuv422P8, 32, 18, 50.0);
  ASSERT_TRUE(embedder_->InitProcessor());
  Frame frame(format50);
  for (int i = 0; i < 99; ++i) embedder_->ProcessFrameVolatile(&frame, false);
  EXPECT_EQ(embedder_->GetEmbeddedDurationInSeconds(), 1u);
  embedder_->ProcessFrameVolatile(nullptr, false);
  embedder_->ProcessFrameVolatile(&frame, false);
  EXPECT_EQ(embedder_->GetEmbeddedDurationInSeconds(), 2u);
}

// Second n of a run carries the slot's start + n, so frames beyond the reserved slot must not be
// marked: they pass on as bypassed ones until the channel extends the slot.
TEST_F(LumensealPluginsTest, EmbedderMarksNoFrameBeyondTheReservedSlot) {
  embedder_->SetFrameRate(25.0);
  embedder_->SetSelectedDurationInSeconds(2);
  ASSERT_TRUE(embedder_->InitProcessor());
  const Framework::EventConnection connection = WatchEnergies();
  Frame frame(kFormat25);
  const auto feed = [&](int frames) {
    for (int i = 0; i < frames; ++i) embedder_->ProcessFrameVolatile(&frame, false);
  };
  feed(100);
  EXPECT_EQ(embedder_->GetEmbeddedDurationInSeconds(), 4u) << "the media clock runs on";
  embedder_->SetSelectedDurationInSeconds(3600);
  feed(25);
  constexpr float kNone = VWMEmbeddingEvent::kNoEnergy;
  EXPECT_EQ(energies_, (std::vector<float>{0.0f, 0.0f, kNone, kNone, 0.0f}));
}

TEST_F(LumensealPluginsTest, BlockingDetectorReportsEachKindOfResultWithinTheNextFrame) {
  ASSERT_TRUE(detector_->InitProcessor());
  const Framework::EventConnection connection = Watch(*detector_);
  LSNDetection detection;
  detection.isFullDetection = true;
  detection.isFound = true;
  detection.cid = 0x1'0000'0007ull;
  detection.cidName = "Seven";
  detection.mediaDetectionTimestamp = 4.0;
  detector_->SetProperty(DetectorSimulation::kPresence,
                         CBasebandWMDetection{CBasebandWMDetection::kPresent, 1.0});
  detector_->SetProperty(DetectorSimulation::kDetection, detection);
  detector_->SetProperty(DetectorSimulation::kScale, ScaleFoundEvent{});
  detector_->SetProperty(DetectorSimulation::kMirrored, MirroredDetectionEvent{});
  EXPECT_TRUE(seen_.empty()) << "results wait for a frame";

  Frame frame(kFormat25);
  detector_->ProcessFrameVolatile(&frame);
  EXPECT_EQ(Kinds(seen_),
            (std::vector<std::string>{"presence", "detection", "scale", "mirrored"}));
  ASSERT_EQ(seen_.size(), 4u);
  EXPECT_EQ(seen_[0].presenceState, 1);
  EXPECT_EQ(seen_[1].cid, 0x1'0000'0007ull);
  EXPECT_EQ(seen_[1].cidName, "Seven");
  EXPECT_EQ(seen_[1].status, "Full");
  EXPECT_EQ(seen_[1].mediaDetectionTimestamp, 4.0);

  // Each result is reported once, and a detector that does not report "not found" stays quiet.
  for (int i = 0; i < 300; ++i) detector_->ProcessFrame(&frame);
  EXPECT_EQ(seen_.size(), 4u);
}

TEST_F(LumensealPluginsTest, DetectorDeliversAsItsConstructionPropertiesAsk) {
  static const struct {
    const char* name;
    bool blocking;
    bool reportOnStop;
    std::size_t afterFirstFrame;
    std::size_t afterSecondFrame;
    std::size_t afterStop;  // A second result was set after the second frame
  } cases[] = {
      {"blocking", true, false, 1, 1, 1},
      {"blocking, reporting at stop", true, true, 1, 1, 2},
      {"not blocking", false, false, 0, 1, 1},
      {"not blocking, reporting at stop", false, true, 0, 1, 2},
  };
  Frame frame(kFormat25);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto properties = channel_->DetectorProperties();
    properties.SetIsBlockingDetector(c.blocking);
    properties.SetIsOnStopReportCachedBuffers(c.reportOnStop);
    LumensealBasebandDetectorPlugin* detector = CreateDetector(properties);
    ASSERT_NE(detector, nullptr);
    ASSERT_TRUE(detector->InitProcessor());
    ASSERT_TRUE(detector->StartProcessor());
    seen_.clear();
    const Framework::EventConnection connection = Watch(*detector);

    detector->SetProperty(DetectorSimulation::kPresence, CBasebandWMDetection{});
    detector->DeliverFrame(&frame);
    EXPECT_EQ(seen_.size(), c.afterFirstFrame);
    detector->DeliverFrame(&frame);
    EXPECT_EQ(seen_.size(), c.afterSecondFrame);
    detector->SetProperty(DetectorSimulation::kMirrored, MirroredDetectionEvent{});
    ASSERT_TRUE(detector->StopProcessor());
    EXPECT_EQ(seen_.size(), c.afterStop);
  }
}

TEST_F(LumensealPluginsTest, DetectorReportsNotFoundAtTheEndOfEachEmptyPeriod) {
  auto properties = channel_->DetectorProperties();
  properties.SetIsReportingNotFound(true);
  properties.SetPreDetectorPeriod(2);
  LumensealBasebandDetectorPlugin* detector = CreateDetector(properties);
  ASSERT_NE(detector, nullptr);
  const Framework::EventConnection connection = Watch(*detector);

  Frame frame(kFormat25);
  std::uint64_t index = 0;
  const auto feed = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      frame.SetIndex(index++);
      detector->ProcessFrame(&frame);
    }
  };
  feed(49);
  EXPECT_TRUE(seen_.empty());
  feed(1);
  ASSERT_EQ(seen_.size(), 1u);
  EXPECT_EQ(seen_[0].kind, "detection");
  EXPECT_EQ(seen_[0].status, "Not found");
  EXPECT_DOUBLE_EQ(seen_[0].mediaDetectionTimestamp, 49.0 / 25.0);

  // A period in which a watermark was found ends without a "Not found".
  LSNDetection found;
  found.isFound = true;
  detector->SetProperty(DetectorSimulation::kDetection, found);
  feed(50);
  EXPECT_EQ(seen_.size(), 2u);
  EXPECT_EQ(seen_.back().status, "None");
  feed(50);
  ASSERT_EQ(seen_.size(), 3u);
  EXPECT_EQ(seen_.back().status, "Not found");
}

}  // namespace
}  // namespace QuillmarTesting
