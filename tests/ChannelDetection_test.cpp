// The channel's detection path with the reference detector made to report results: screening
// against the client's CIDs, the time-stamp texts, the report to the embedder, and the pause of
// embedding while a prior watermark is in the picture.
#include <gtest/gtest.h>

#include <cstring>

#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"
#include "plugins/detector/DetectorSimulation.h"
#include "plugins/watermark/testing/SyntheticScene.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using ChannelDetectionTest = ChannelTest;

constexpr char kFound[] = "Prior watermark found - embedding pending.";
constexpr char kResumed[] = "Prior watermark no longer present - embedding resumed.";

LSNDetection Detection(std::uint64_t cid, std::int64_t timestamp) {
  LSNDetection detection;
  detection.isFullDetection = true;
  detection.isFound = true;
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
  EXPECT_TRUE(channel.FeedOne());
}

// Time stamps are the low 32 bits of the detector's count, signed seconds since 2000.
TEST_F(ChannelDetectionTest, DetectionsAreScreenedByTheClientsCidsAndStampedWithFourteenDigits) {
  static const struct {
    const char* what;
    std::uint64_t cid;
    std::int64_t seconds;
    const char* timestamp;  // null: screened
    bool displayAll, listening;
  } cases[] = {
      {"a CID of the client's program", 101, 86400 * 366 + 3661, "20010101010101", false, true},
      {"a CID the detector displays", 555, 86399, "20000101235959", false, true},
      {"a foreign CID", 999, 0, nullptr, false, true},
      {"a foreign CID when every watermark is displayed", 999, -1, "19991231235959", true, true},
      {"a CID whose low 32 bits are the client's", (std::uint64_t{1} << 32) + 101, 0xFFFFFFFF,
       "19991231235959", false, true},
      {"a CID of the client's, with no listener", 101, 0, "20000101000000", false, false},
      {"a foreign CID, with no listener", 999, 0, nullptr, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    configuration_.displayAllWatermarks = c.displayAll;
    configuration_.displayEids = {555};
    Framework::Testing::ScopedLogRecording log;
    RecordingListener listener;
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
    channel->SetListener(c.listening ? &listener : nullptr);
    DetectInNextFrame(channel, DetectorSimulation::kDetection, Detection(c.cid, c.seconds));

    const std::string detection =
        c.timestamp != nullptr ? "found Evening News at " + std::string(c.timestamp) + " Q 0.75"
                               : "found SCREENED at SCREENED Q 0";
    EXPECT_EQ(c.listening ? Strings{detection} : Strings{}, listener.Texts(Kind::Detection));
    // The embedder hears of every decoded watermark, screened or not, before the listener.
    const std::string reported =
        "LumensealBasebandEmbedderPlugin::ReportPriorWatermark; CID " + std::to_string(c.cid) +
        ", timestamp " + std::to_string(static_cast<std::uint64_t>(c.seconds)) + ", at 1.5 seconds";
    const std::string notice =
        c.timestamp ? "User notified: Payload detected, CID Evening News, Timestamp " +
                          std::string(c.timestamp) + ", Q 0.75"
                    : "User notified: Payload detected, but CID does not belong to the client "
                      "- screened.";
    EXPECT_TRUE(InOrder(log->Lines(), {{EventLevel::Info, reported}, {EventLevel::Info, notice}}));
  }
}

TEST_F(ChannelDetectionTest, APriorWatermarkPausesEmbeddingFromTheFrameItAppearsOn) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  Framework::Frame& frame = channel.CurrentFrame();
  // Whether the next frame, a textured picture, leaves the channel marked.
  const auto marksNextFrame = [&](std::int32_t presence) {
    Lumenseal::Testing::PaintScene(frame, 0);
    const Framework::Frame painted = frame;
    DetectInNextFrame(channel, DetectorSimulation::kPresence, CBasebandWMDetection{presence, 0.0});
    bool marked = false;
    for (int y = 0; y < frame.GetFormat().GetHeight(); ++y) {
      marked |=
          std::memcmp(painted.GetPlane(0) + y * painted.GetPitch(0),
                      frame.GetPlane(0) + y * frame.GetPitch(0), frame.GetFormat().GetWidth()) != 0;
    }
    return marked;
  };
  EXPECT_TRUE(marksNextFrame(CBasebandWMDetection::kAbsent));
  // The detector sees each frame before the embedder: the frame it appears on is not marked.
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::Warning));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::Info));

  // Frames 4 to 26 pass without a watermark; the 26th one's progress line (25 counted) says so.
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, "Bypassing frame 25, app. 1 seconds done"));

  EXPECT_TRUE(marksNextFrame(CBasebandWMDetection::kAbsent));
  EXPECT_TRUE(marksNextFrame(7));  // any state but present
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::Warning));
  EXPECT_EQ(Strings{kResumed}, listener_.Texts(Kind::Info));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1, LogCount(EventLevel::Info, std::string("User notified: ") + kResumed));
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Embedding frame 50, app. 2 seconds done"));

  SCOPED_TRACE("without a listener the transitions are only logged");
  channel->SetListener(nullptr);
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_EQ(2, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1u, listener_.Texts(Kind::Warning).size());

  SCOPED_TRACE("with the detector off, a prior watermark can no longer go");
  channel->SetVwmDetectorOn(false);
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kAbsent));
  EXPECT_EQ(Strings{kResumed}, listener_.Texts(Kind::Info));
}

}  // namespace
}  // namespace QuillmarTesting
