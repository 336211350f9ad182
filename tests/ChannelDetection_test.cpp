// The channel's detection path with the reference detector made to report results: screening
// against the client's CIDs, the time-stamp texts, the report to the embedder, and the pause of
// embedding while a prior watermark is in the picture.
#include <gtest/gtest.h>

#include "detector-api/CBasebandWMDetection.h"
#include "plugins/detector/DetectorSimulation.h"
#include "detector-api/LSNDetection.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using Framework::EventLevel;
using Kind = ListenerReport::Kind;
using ChannelDetectionTest = ChannelTest;

constexpr char kScreenedLine[] =
    "User notified: Payload detected, but CID does not belong to the client - screened.";
constexpr char kFound[] = "Prior watermark found - embedding pending.";
constexpr char kResumed[] = "Prior watermark no longer present - embedding resumed.";

LSNDetection Detection(std::uint64_t cid, std::int64_t timestamp) {
  LSNDetection detection;
  detection.isFullDetection = true;
  detection.isFound = true;
  detection.payload = "payload";
  detection.cid = cid;
  detection.timestamp = timestamp;
  detection.quality = 0.75;
  detection.cidName = "Evening News";
  detection.mediaDetectionTimestamp = 1.5;
  return detection;
}

// Makes the detector report `result` in the next frame and hands that frame to the channel.
template <typename Result>
void DetectInNextFrame(TestChannel& channel, const char* kind, const Result& result) {
  channel.Detector().SetProperty(kind, result);
  ASSERT_TRUE(channel.FeedOne());
}

TEST_F(ChannelDetectionTest, DetectionsAreScreenedByTheClientsCids) {
  static const struct {
    const char* what;
    bool displayAll;
    std::uint64_t cid;
    bool passes;
  } cases[] = {
      {"a CID of the client's program", false, 101, true},
      {"a CID the detector displays", false, 555, true},
      {"a foreign CID", false, 999, false},
      {"a foreign CID when every watermark is displayed", true, 999, true},
      {"a CID whose low 32 bits are the client's", false, (std::uint64_t{1} << 32) + 101, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    configuration_.displayAllWatermarks = c.displayAll;
    configuration_.displayEids = {555};
    Framework::Testing::ScopedLogRecording log;
    RecordingListener listener;
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
    channel->SetListener(&listener);
    ASSERT_NO_FATAL_FAILURE(
        DetectInNextFrame(channel, DetectorSimulation::kDetection, Detection(c.cid, 0)));

    const std::vector<ListenerReport> detections = listener.Of(Kind::Detection);
    ASSERT_EQ(1u, detections.size());
    EXPECT_TRUE(detections[0].flag);
    EXPECT_EQ(c.passes ? "Evening News" : "SCREENED", detections[0].text);
    EXPECT_EQ(c.passes ? "20000101000000" : "SCREENED", detections[0].timestamp);
    EXPECT_EQ(c.passes ? 0.75 : 0.0, detections[0].value);
    EXPECT_EQ(!c.passes, log->Has(EventLevel::Info, kScreenedLine));
    EXPECT_EQ(c.passes, log->Has(EventLevel::Info,
                                 "User notified: Payload detected, CID Evening News, Timestamp "
                                 "20000101000000, Q 0.75"));
    // The embedder hears of every decoded watermark, screened or not, before the listener.
    const std::string reported = "LumensealBasebandEmbedderPlugin::ReportPriorWatermark; CID " +
                                 std::to_string(c.cid) + ", timestamp 0, at 1.5 seconds";
    const auto lines = log->Lines();
    const auto reportLine = std::find_if(lines.begin(), lines.end(),
                                         [&](const auto& line) { return line.text == reported; });
    const auto noticeLine = std::find_if(lines.begin(), lines.end(), [](const auto& line) {
      return line.text.rfind("User notified: Payload detected", 0) == 0;
    });
    EXPECT_TRUE(reportLine != lines.end() && reportLine < noticeLine);
  }
}

TEST_F(ChannelDetectionTest, DetectionTimeStampsAreFourteenDigits) {
  static const struct {
    std::int64_t seconds;
    const char* text;
  } cases[] = {{0, "20000101000000"},
               {86399, "20000101235959"},
               {-1, "19991231235959"},
               {0xFFFFFFFF, "19991231235959"},  // the low 32 bits are a signed count
               {86400 * 366 + 3661, "20010101010101"}};
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Framework::Testing::ScopedLogRecording log;
    ASSERT_NO_FATAL_FAILURE(
        DetectInNextFrame(channel, DetectorSimulation::kDetection, Detection(101, c.seconds)));
    const std::vector<ListenerReport> detections = listener_.Of(Kind::Detection);
    ASSERT_FALSE(detections.empty());
    EXPECT_EQ(c.text, detections.back().timestamp);
    EXPECT_TRUE(log->Has(EventLevel::Info, std::string("User notified: Payload detected, CID "
                                                       "Evening News, Timestamp ") +
                                               c.text + ", Q 0.75"));
  }
}

TEST_F(ChannelDetectionTest, WithTheDetectorOffNothingIsDetected) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  channel->SetVwmDetectorOn(false);
  ASSERT_NO_FATAL_FAILURE(
      DetectInNextFrame(channel, DetectorSimulation::kPresence,
                        CBasebandWMDetection{CBasebandWMDetection::kPresent, 0.0}));
  ASSERT_NO_FATAL_FAILURE(
      DetectInNextFrame(channel, DetectorSimulation::kDetection, Detection(101, 0)));
  EXPECT_TRUE(listener_.Reports().empty());
  ASSERT_EQ(25, channel.Feed(25));
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Embedding frame 25, app. 1 seconds done"));
}

TEST_F(ChannelDetectionTest, APriorWatermarkPausesEmbeddingUntilItHasGone) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  const auto presence = [&channel](std::int32_t state) {
    DetectInNextFrame(channel, DetectorSimulation::kPresence, CBasebandWMDetection{state, 0.0});
  };
  ASSERT_NO_FATAL_FAILURE(presence(CBasebandWMDetection::kAbsent));
  ASSERT_NO_FATAL_FAILURE(presence(CBasebandWMDetection::kPresent));
  ASSERT_NO_FATAL_FAILURE(presence(CBasebandWMDetection::kPresent));
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::Warning));
  EXPECT_TRUE(listener_.Texts(Kind::Info).empty());

  // Frames 4 to 26 pass without a watermark; the 26th one's progress line (25 counted) says so.
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, "Bypassing frame 25, app. 1 seconds done"));

  ASSERT_NO_FATAL_FAILURE(presence(CBasebandWMDetection::kAbsent));
  ASSERT_NO_FATAL_FAILURE(presence(7));
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::Warning));
  EXPECT_EQ(Strings{kResumed}, listener_.Texts(Kind::Info));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1, LogCount(EventLevel::Info, std::string("User notified: ") + kResumed));
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Embedding frame 50, app. 2 seconds done"));

  SCOPED_TRACE("without a listener the transitions are only logged");
  channel->SetListener(nullptr);
  ASSERT_NO_FATAL_FAILURE(presence(CBasebandWMDetection::kPresent));
  EXPECT_EQ(2, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1u, listener_.Texts(Kind::Warning).size());
}

}  // namespace
}  // namespace QuillmarTesting
