// The reference plug-ins, created from their shared libraries by a channel, driven through the
// adaptor classes the way the product's channel drives them; and the encodation records the
// embedder writes: what a record holds, where it goes, and that concurrent writers in threads and
// processes leave only whole records.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "events/VWMDetectionEvent.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/Frame.h"
#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"
#include "plugins/detector/DetectorSimulation.h"
#include "plugins/testing/PluginTestChannel.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
namespace pt = boost::posix_time;
using Framework::Frame;
using Framework::LumensealBasebandDetectorPlugin;
using Framework::VWMDetectionEvent;
using Framework::VWMEmbeddingEvent;
using Strings = std::vector<std::string>;

constexpr float kNone = VWMEmbeddingEvent::kNoEnergy;
constexpr char kLogVariable[] = "QUILLMAR_ENCODATION_LOG";
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

Strings Lines(const fs::path& path) {
  std::ifstream file(path);
  Strings lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

class LumensealPluginsTest : public ::testing::Test {
 protected:
  LumensealPluginsTest() {
    PluginTestChannel::UseBuiltPlugins();
    ::unsetenv(kLogVariable);
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

  const Framework::Testing::TemporaryFolder folder_;
  std::unique_ptr<PluginTestChannel> channel_;
  std::vector<Framework::EventConnection> connections_;
  Strings seen_;
};

using EncodationLogTest = LumensealPluginsTest;

TEST_F(LumensealPluginsTest, EmbedderCountsSecondsAndMarksNoneBypassedOrBeyondTheSlot) {
  auto& embedder = *channel_->Embedder();
  embedder.SetFrameRate(25.0);
  embedder.SetSelectedDurationInSeconds(3);
  ASSERT_TRUE(embedder.InitProcessor());
  std::vector<float> energies;
  const auto connection = embedder.GetEventSignal().ConnectFor<VWMEmbeddingEvent>(
      [&](const VWMEmbeddingEvent& event) { energies.push_back(event.GetAverageEnergy()); });
  Frame frame(kFormat);
  for (std::uint64_t index = 0; index < 125; ++index) {
    if (index == 100) embedder.SetSelectedDurationInSeconds(3600);  // the slot was extended
    // Second 2 is bypassed, as while a prior watermark is present; second 3 lies beyond the
    // slot, where the media clock runs on.
    embedder.ProcessFrameVolatile(&frame, index >= 50 && index < 75);
    ASSERT_EQ(embedder.GetEmbeddedDurationInSeconds(), (index + 1) / 25) << "frame " << index;
  }
  EXPECT_EQ(energies, (std::vector<float>{0.0f, 0.0f, kNone, kNone, 0.0f}));

  // A new run starts from nothing; without a frame rate set, it takes the frames' own.
  ASSERT_TRUE(embedder.DeinitProcessor());
  embedder.SetFrameRate(0.0);
  ASSERT_TRUE(embedder.InitProcessor());
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 0u);
  Frame frame50(Framework::VideoFormatInfo(Framework::PixelLayout::Yuv422P8, 32, 18, 50.0));
  for (int i = 0; i < 99; ++i) embedder.ProcessFrameVolatile(&frame50, false);
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 1u);
  embedder.ProcessFrameVolatile(nullptr, false);
  embedder.ProcessFrameVolatile(&frame50, false);
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

// A record holds every argument, the slot and the write time. It goes to the file the property
// names, else to the one the environment names, else (this process logs to no file) to
// Logs/EncodationLog.jsonl under the working folder.
TEST_F(EncodationLogTest, RecordHoldsEveryArgumentAndGoesWhereThePropertyOrTheEnvironmentSays) {
  auto& embedder = *channel_->Embedder();
  embedder.SetSelectedCID(4000000001u);
  embedder.SetSelectedStartTime(SYSTEMTIME{2026, 11, 6, 21, 7, 40, 3, 5});
  embedder.SetSelectedDurationInSeconds(4561);
  const fs::path byProperty = folder_.Path() / "property" / "log.jsonl";
  const fs::path byVariable = folder_.Path() / "variable" / "log.jsonl";
  embedder.SetProperty("EncodationLogFile", byProperty.string());
  ::setenv(kLogVariable, byVariable.c_str(), 1);
  embedder.ReportPriorWatermark(11, 1000, 0.5);
  embedder.ReportPriorWatermark(12, 2000, 1.0);
  embedder.ReportPriorWatermark(11, 1003, 3.5);
  const pt::ptime before = pt::microsec_clock::universal_time() - pt::milliseconds(1);
  embedder.WriteEncodationLog("first", "second", "Studio A", "third",
                              {{"itemid", "A-1"}, {"note", "line\nbreak \"quoted\""}}, "CRC 1234",
                              0.25);
  const pt::ptime after = pt::microsec_clock::universal_time();
  embedder.SetProperty("EncodationLogFile", "");
  embedder.WriteEncodationLog("2", "", "", "", {}, "", 0.0);
  ::unsetenv(kLogVariable);
  const fs::path workingFolder = fs::current_path();
  fs::current_path(folder_.Path());
  embedder.WriteEncodationLog("3", "", "", "", {}, "", 0.0);
  fs::current_path(workingFolder);

  const auto firstTexts = [](const fs::path& path) {
    Strings texts;
    for (const std::string& line : Lines(path)) {
      texts.emplace_back(json::parse(line).at("HostText1").as_string());
    }
    return texts;
  };
  EXPECT_EQ(firstTexts(byVariable), Strings{"2"});
  EXPECT_EQ(firstTexts(folder_.Path() / "Logs" / "EncodationLog.jsonl"), Strings{"3"});
  const Strings lines = Lines(byProperty);
  ASSERT_EQ(lines.size(), 1u);
  json::object record = json::parse(lines[0]).as_object();
  const std::string written(record.at("WrittenAtUtc").as_string());
  const pt::ptime time = pt::from_iso_extended_string(written.substr(0, 23));
  EXPECT_TRUE(before <= time && time <= after && written.substr(23) == "Z") << written;
  record.erase("WrittenAtUtc");
  const json::value expected = json::parse(R"({"ChannelIndex": 3, "CID": 4000000001,
      "SlotStart": "2026-11-21T07:40:03.005Z", "SlotLengthSeconds": 4561,
      "EmbeddedDurationInSeconds": 0, "HostText1": "first", "HostText2": "second",
      "Facility": "Studio A", "HostText3": "third", "ConfigurationChecksum": "CRC 1234",
      "Metadata": {"itemid": "A-1", "note": "line\nbreak \"quoted\""}, "AverageEnergy": 0.25,
      "PriorWatermarks": [{"CID": 11, "Reports": 2, "FirstTimestamp": 1000, "LastTimestamp": 1003,
        "FirstMediaDetectionTimestamp": 0.5, "LastMediaDetectionTimestamp": 3.5},
        {"CID": 12, "Reports": 1, "FirstTimestamp": 2000, "LastTimestamp": 2000,
        "FirstMediaDetectionTimestamp": 1.0, "LastMediaDetectionTimestamp": 1.0}]})");
  EXPECT_EQ(expected, record);
}

// Two processes with two threads each, every thread with a channel of its own, write large
// records into one file at once; every record comes back whole, exactly once.
TEST_F(EncodationLogTest, RecordsFromTwoThreadsAndTwoProcessesAreWhole) {
  constexpr int kProcesses = 2, kThreads = 2, kRecords = 100;
  const auto filler = [](int process, int thread) {
    // Far beyond what one pipe write keeps together.
    return std::string(20000, static_cast<char>('a' + process * kThreads + thread));
  };
  ::setenv(kLogVariable, folder_.File("shared.jsonl").c_str(), 1);
  const auto writer = [&](int process, int thread) {
    const auto channel = PluginTestChannel::Create(static_cast<std::uint64_t>(thread));
    auto& embedder = *channel->Embedder();
    for (int record = 0; record < kRecords; ++record) {
      embedder.WriteEncodationLog(std::to_string(process), std::to_string(thread), "",
                                  std::to_string(record), {{"filler", filler(process, thread)}}, "",
                                  0.0);
    }
  };
  std::vector<std::unique_ptr<Framework::Testing::ChildProcess>> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(std::make_unique<Framework::Testing::ChildProcess>([&, process] {
      std::thread other(writer, process, 1);
      writer(process, 0);
      other.join();
      return 0;
    }));
  }
  for (const auto& child : children) ASSERT_EQ(0, child->Wait());

  std::set<std::string> seen;
  for (const std::string& line : Lines(folder_.File("shared.jsonl"))) {
    boost::system::error_code error;
    const json::value record = json::parse(line, error);
    ASSERT_FALSE(error) << "a record is not whole: " << line.substr(0, 80) << "...";
    const std::string process(record.at("HostText1").as_string());
    const std::string thread(record.at("HostText2").as_string());
    EXPECT_EQ(record.at("Metadata").at("filler"),
              filler(std::stoi(process), std::stoi(thread)).c_str());
    const std::string key =
        process + "/" + thread + "/" + record.at("HostText3").as_string().c_str();
    EXPECT_TRUE(seen.insert(key).second) << "written twice: " << key;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kProcesses * kThreads * kRecords));
}

}  // namespace
}  // namespace QuillmarTesting
