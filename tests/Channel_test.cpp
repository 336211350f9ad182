// The channel's entry points, life cycle, stop totals, licence messages, the host's framework
// events and the detection path, driven through the library's exported entry points with the
// reference plug-ins; the detector is made to report results where a test needs them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"
#include "framework/CompletedEvent.h"
#include "framework/DroppedFrameEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/PluginRegistry.h"
#include "framework/ProgressEvent.h"
#include "framework/SignalLostEvent.h"
#include "framework/SignalResumedEvent.h"
#include "plugins/detector/DetectorSimulation.h"
#include "plugins/watermark/testing/SyntheticScene.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
using Framework::ProcessorState;
using Framework::QuillmarBasebandSDKChannel;
using ChannelEntryPoints = ChannelTest;
using ChannelLifecycleTest = ChannelTest;
using ChannelListenerTest = ChannelTest;
using ChannelEventsTest = ChannelTest;
using ChannelDetectionTest = ChannelTest;

// Without OnCreateChannel the base channel refuses to initialise; the channel ignores that, and
// its Stop finds no embedder.
TEST_F(ChannelEntryPoints, CreateAndDeleteAsAHostDoes) {
  Library().DeleteProcessor(nullptr);  // a no-op: nothing to check but that it returns
  Framework::ProcessorBase* processor = Library().CreateProcessor(Framework::PropertyBase());
  auto* channel = dynamic_cast<QuillmarBasebandSDKChannel*>(processor);
  ASSERT_NE(nullptr, channel);
  EXPECT_EQ("QuillmarBasebandSDKChannel", channel->GetName());
  EXPECT_NE("", Library().Version());
  EXPECT_EQ(1, LogCount(EventLevel::Info, Library().Version()));
  EXPECT_TRUE(channel->GetVwmDetectorOn());
  EXPECT_EQ(Framework::FormatInfo::kNoFormat, channel->GetFormatInfo().GetVideoFormat());
  channel->SetConfigFile(WriteConfiguration(configPath_, configuration_));
  channel->SetAllCIDsInProgram({101, 102, 103});
  channel->SetAllEmbedderCIDsInConfig({101, 102, 103});
  channel->SetEmbeddingDuration(10);
  EXPECT_TRUE(channel->InitProcessor());
  EXPECT_TRUE(InOrder(log_->Lines(),
                      {{EventLevel::Info, "Allocating timeslot from the shared database " +
                                              databasePath_ + ", requested 10 seconds"},
                       {EventLevel::Info,
                        "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot allocated EID 101 "
                        "for 74 seconds."}}));
  channel->Stop();
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::FinalizeEmbedding cannot find embedder. "
                        "Aborted!"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  channel->OnCreateChannel(3);
  EXPECT_EQ(1u, channel->GetMaxNrChannels());
  EXPECT_NE(nullptr, channel->GetAlgorithm(QuillmarBasebandSDKChannel::kDetectorInstance));
  EXPECT_NE(nullptr, channel->GetAlgorithm(QuillmarBasebandSDKChannel::kEmbedderInstance));
  Library().DeleteProcessor(processor);
}

// A plug-in library once loaded stays loaded for the process, and ctest runs each test in a
// process of its own: only there can the plug-in path leave a plug-in out.
TEST_F(ChannelLifecycleTest, WithoutTheEmbedderPluginStartFailsAndTheDetectorWasAskedForFirst) {
  const std::string detectorClass = QuillmarBasebandSDKChannel::kDetectorClass;
  if (Framework::PluginRegistry::Instance().IsRegistered(detectorClass)) {
    GTEST_SKIP() << "the plug-ins were loaded by an earlier test of this process";
  }
  const fs::path none = folder_.File("none"), detectorOnly = folder_.File("detector");
  fs::create_directories(detectorOnly);
  const std::string file = "lib" + detectorClass + ".so";
  fs::create_symlink(fs::path(Library().Path()).parent_path() / file, detectorOnly / file);
  ::setenv("QUILLMAR_PLUGIN_PATH", none.c_str(), 1);
  { TestChannel nothing; }
  const std::string unknown = "PluginRegistry: unknown processor class ";
  EXPECT_TRUE(
      InOrder(log_->Lines(), {{EventLevel::Error, unknown + detectorClass},
                              {EventLevel::Error, unknown + "LumensealBasebandEmbedderPlugin"}}));

  ::setenv("QUILLMAR_PLUGIN_PATH", detectorOnly.c_str(), 1);
  TestChannel channel;
  ::unsetenv("QUILLMAR_PLUGIN_PATH");
  Configure(channel, 10);
  ASSERT_TRUE(channel->InitProcessor());
  EXPECT_FALSE(channel->StartProcessor());
  EXPECT_EQ(1, LogCount(EventLevel::Warning,
                        "Cannot initialize Required Channel Processors (64x36 yuv420p 25 fps)"));
  EXPECT_EQ(ProcessorState::Created, channel.Detector().GetState());
}

// Start reads the program's quality from the configuration, from the later of two entries of
// one name; a failed Init or Start leaves the last error alone or sets it, and a failed Start
// de-initialises both processors.
TEST_F(ChannelLifecycleTest, InitAndStartFailuresAndTheProgramsQuality) {
  configuration_.programs = {{"Demo", {101}, {}, 2.5}, {"Demo", {102}, {}, 6.0}};
  // The configuration file is missing: no database is touched, and no error code is set.
  TestChannel missing;
  Configure(missing, 10);
  missing->SetConfigFile(folder_.File("missing.json"));
  EXPECT_FALSE(missing->InitProcessor());
  EXPECT_EQ(Strings{"Config file not found or invalid."}, listener_.Texts(Kind::kError));
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::Init; parsing configuration failed!"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, missing->GetLastError());
  EXPECT_FALSE(fs::exists(databasePath_));

  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  EXPECT_EQ(6.0, channel.Embedder().GetGlobalDepth());
  EXPECT_EQ(4, channel.Embedder().GetMaxLocalDepth());
  EXPECT_TRUE(InOrder(
      log_->Lines(),
      {{EventLevel::Info, "Selected program Demo; parsing configuration"},
       {EventLevel::Info, "Successfully parsed configuration file, CRC " + ChecksumOf(configPath_)},
       {EventLevel::Info, "Selected GD 6, MLD 4, FlatRegion 0"}}));
  ASSERT_TRUE(channel->StopProcessor());

  // No video format.
  channel->SetFormatInfo(Framework::VideoFormatInfo());
  ASSERT_TRUE(channel->InitProcessor());
  EXPECT_FALSE(channel->StartProcessor());
  EXPECT_EQ(1, LogCount(EventLevel::Warning,
                        "Incorrect video format. Cannot initialize media (no format)"));
  EXPECT_EQ(ProcessorState::Created, channel.Detector().GetState());
  EXPECT_EQ(ProcessorState::Created, channel.Embedder().GetState());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());

  // The program is not in the configuration.
  channel->SetFormatInfo(SmallFormat());
  channel->SetProgramName("Late Show");
  ASSERT_TRUE(channel->InitProcessor());
  EXPECT_FALSE(channel->StartProcessor());
  const std::string lateShow = "Selected program Late Show not found in the config file";
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Selected program Late Show; parsing configuration"));
  EXPECT_EQ(lateShow, listener_.Texts(Kind::kError).back());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorConfiguration, channel->GetLastError());
  EXPECT_EQ(lateShow, channel->GetLastErrorText());
  EXPECT_EQ(ProcessorState::Created, channel.Embedder().GetState());

  // The configuration no longer parses at Start.
  channel->SetProgramName("Demo");
  ASSERT_TRUE(channel->InitProcessor());
  std::ofstream(configPath_, std::ios::trunc) << "{}";
  EXPECT_FALSE(channel->StartProcessor());
  EXPECT_EQ("Error parsing configuration file.", listener_.Texts(Kind::kError).back());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorConfiguration, channel->GetLastError());
  EXPECT_EQ("Error parsing configuration file.", channel->GetLastErrorText());
}

// Every run is made on one channel: Init may run again after Stop. A run of requested length
// R reserves R x 1.25 rounded up + 61 seconds, unleased; an open-ended run 1800 s under a lease.
TEST_F(ChannelLifecycleTest, EachRunReservesItsSlotAndLogsItsTotalsAgainstTheRequestedDuration) {
  enum Verdict { kNone, kInLine, kLonger };
  static const struct {
    std::uint32_t duration;
    double framesPerSecond;
    int frames, seconds, reserved;
    Verdict verdict;
  } cases[] = {
      {10, 25.0, 250, 10, 74, kInLine},
      {10, 25.0, 300, 12, 74, kLonger},
      {10, 25.0, 251, 11, 74, kInLine},
      {0, 25.0, 250, 10, 1800, kNone},
      {1, 25.0, 25, 1, 63, kInLine},
      {24, 25.0, 0, 0, 91, kInLine},
      {3600, 25.0, 25, 1, 4561, kInLine},
      // Below 1 frame a second: a partial second still counts, and no rate counts none.
      {10, 0.5, 3, 5, 74, kInLine},
      {10, 0.0, 3, 0, 74, kInLine},
  };
  GrantedSlot slot;
  {
    TestChannel channel;
    for (const auto& c : cases) {
      const std::string totals =
          Format("Processed %d frames at %f fps, total %d seconds (out of %d seconds reserved)",
                 c.frames, c.framesPerSecond, c.seconds, c.reserved);
      SCOPED_TRACE(totals);
      Framework::Testing::ScopedLogRecording log;
      ASSERT_NO_FATAL_FAILURE(StartRun(channel, c.duration, c.framesPerSecond));
      slot = channel.Slot();
      const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
      EXPECT_DOUBLE_EQ(c.reserved, SecondsBetween(slot.start, row.Timestamp));
      EXPECT_EQ(c.duration == 0, IsLocked(row));
      if (c.duration == 0) {
        EXPECT_NEAR(7200.0, SecondsBetween(Now(), row.LockedTill), 5.0);
      }

      EXPECT_TRUE(channel->DeliverFrame(nullptr));  // taken, and not counted
      ASSERT_EQ(c.frames, channel.Feed(c.frames));
      ASSERT_TRUE(channel->StopProcessor());
      EXPECT_TRUE(log->Has(EventLevel::Info, totals));
      int verdicts = 0;
      for (const auto& line : log->Lines()) verdicts += line.text.rfind("Aforementioned", 0) == 0;
      EXPECT_EQ(c.verdict != kNone ? 1 : 0, verdicts);
      if (c.verdict != kNone) {
        EXPECT_TRUE(log->Has(
            c.verdict == kLonger ? EventLevel::Warning : EventLevel::Info,
            Format("Aforementioned actual duration %1% requested %2% seconds",
                   c.verdict == kLonger ? "was longer than" : "is in line with", c.duration)));
      }
    }
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0));
    slot = channel.Slot();
  }
  // Deleting a started channel gives its slot's lease back and keeps the whole slot.
  const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
  EXPECT_FALSE(IsLocked(row));
  EXPECT_DOUBLE_EQ(1800.0, SecondsBetween(slot.start, row.Timestamp));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::kError));
}

// A licence found invalid before there is a listener is told to the next listener set; it stays
// the last error through an Init that fails, which has the configuration read but no database.
TEST_F(ChannelListenerTest, LicenceMessagesWaitForAListenerOnlyWhenInvalidated) {
  const std::string invalid = "The licence of QuillmarBasebandSDK 1.0 is not valid.";
  TestChannel channel;
  configuration_.sharedDatabase.clear();
  Configure(channel, 10);
  channel->SetListener(nullptr);
  auto& licenser = channel->GetLicenser();
  licenser.SetProperty("Valid", false);
  channel->CheckLicense();
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
  EXPECT_EQ(invalid, channel->GetLastErrorText());
  channel->SetProgramName("Demo");  // another property leaves the queue alone
  channel->SetListener(&listener_);
  channel->SetListener(&listener_);
  EXPECT_EQ(Strings{invalid}, listener_.Texts(Kind::kError));

  SCOPED_TRACE("a null listener makes messages wait again");
  channel->SetListener(nullptr);
  channel->CheckLicense();
  RecordingListener later;
  channel->SetListener(&later);
  EXPECT_EQ(Strings{invalid}, later.Texts(Kind::kError));
  EXPECT_EQ(1u, listener_.Texts(Kind::kError).size());

  SCOPED_TRACE("a warning goes only to a listener that is set");
  licenser.SetProperty("Valid", true);
  licenser.SetProperty("DaysLeft", 10);
  channel->SetListener(nullptr);
  channel->CheckLicense();
  channel->SetListener(&later);
  EXPECT_EQ(Strings{}, later.Texts(Kind::kWarning));
  channel->CheckLicense();
  EXPECT_EQ(Strings{"License will expire within 30 days."}, later.Texts(Kind::kWarning));

  SCOPED_TRACE("the configuration names no shared database");
  EXPECT_FALSE(channel->InitProcessor());
  EXPECT_EQ((Strings{invalid,
                     "Shared database not found in the Config file. Contact Veltrane "
                     "support for an updated CFG file."}),
            later.Texts(Kind::kError));
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::Init: Shared database not found in the "
                        "Config file!"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
  EXPECT_EQ(invalid, channel->GetLastErrorText());
  EXPECT_FALSE(fs::exists(databasePath_));
  // The configuration was read, so a record can be asked for, but there is no slot to finalise.
  channel.Embedder().SetProperty("EncodationLogFile", encodationLog_);
  channel->WriteEncodationLog("host", "input", "third", {});
  EXPECT_EQ(1, LogCount(EventLevel::Error, "m_SharedDatabaseHandler is NULL"));
}

// The host raises its events on the channel's framework signals; the channel hears them while
// it runs, and tells of them on its own signals or on standard output.
TEST_F(ChannelEventsTest, HostEventsAreRelayedOrPrintedAndAFormatChangeOrNoMemoryStopsIt) {
  using Framework::FrameworkEvent;
  Framework::ProgressEvent progress;
  progress.SetText("halfway");
  progress.SetProgress(50);
  Framework::CompletedEvent completed;
  completed.SetText("end of input");
  completed.SetProgress(50);
  Framework::FormatChangedEvent formatChanged;
  formatChanged.SetNewFormat(
      Framework::VideoFormatInfo(Framework::PixelLayout::Yuv422P8, 1280, 720, 50.0).ToString());
  Framework::MemoryAllocationErrorEvent noMemory;
  noMemory.SetText("no memory for 8 frames");
  Framework::DroppedFrameEvent dropped;
  Framework::SignalLostEvent lost;
  Framework::SignalResumedEvent resumed;
  const struct {
    FrameworkEvent kind;
    Framework::EventBase& event;
    const char* printed;
    const char* relayed;  // the text the channel's own signals carry; null: none
    bool stops;
  } cases[] = {
      {FrameworkEvent::Progress, progress, "", "halfway", false},
      {FrameworkEvent::Completed, completed, "", "end of input", false},
      {FrameworkEvent::DroppedFrame, dropped, "Frame is dropped\n", nullptr, false},
      {FrameworkEvent::SignalLost, lost, "Signal lost\n", nullptr, false},
      {FrameworkEvent::SignalResumed, resumed, "Signal resumed\n", nullptr, false},
      {FrameworkEvent::FormatChanged, formatChanged, "Format changed to: 1280x720 yuv422p 50 fps\n",
       "Stopped by Media", true},
      {FrameworkEvent::MemoryAllocationError, noMemory, "no memory for 8 frames\n",
       "Stopped by Media", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    TestChannel channel;
    // One frame a second: every embedded frame adds a second to what the embedder reports.
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0, 1.0));
    progress.SetSender(channel->GetSender() + 1000);
    std::vector<Framework::StatusEvent> heard;
    std::vector<Framework::EventConnection> listening;
    for (const auto kind :
         {Framework::ChannelSignal::Progress, Framework::ChannelSignal::Completed}) {
      listening.push_back(channel->GetChannelSignal(kind).ConnectFor<Framework::StatusEvent>(
          [&heard](const Framework::StatusEvent& event) { heard.push_back(event); }));
    }
    ASSERT_EQ(3, channel.Feed(3));
    ::testing::internal::CaptureStdout();
    channel->GetFrameworkSignal(c.kind).Raise(c.event);
    EXPECT_EQ(c.printed, ::testing::internal::GetCapturedStdout());
    EXPECT_TRUE(channel.FeedOne());  // taken by the host's delivery; embedded only when running
    EXPECT_EQ(!c.stops, channel.FeedOne());
    EXPECT_EQ(c.stops ? 3u : 5u, channel.Embedder().GetEmbeddedDurationInSeconds());
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
    ASSERT_EQ(c.relayed != nullptr ? 1u : 0u, heard.size());
    if (c.relayed != nullptr) {
      EXPECT_EQ(c.relayed, heard[0].GetText());
      EXPECT_EQ(c.stops ? 100.0 : 50.0, heard[0].GetProgress());
      EXPECT_EQ(c.stops, heard[0].GetProperty<bool>("ErrorAbort"));
      if (c.kind != FrameworkEvent::Completed) {
        EXPECT_EQ(channel->GetSender(), heard[0].GetSender());
      }
    }
    // After Stop the host's events no longer reach the channel.
    ASSERT_TRUE(c.stops || channel->StopProcessor());
    ::testing::internal::CaptureStdout();
    channel->GetFrameworkSignal(c.kind).Raise(c.event);
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
    EXPECT_EQ(c.relayed != nullptr ? 1u : 0u, heard.size());
  }
}

constexpr char kFound[] = "Prior watermark found - embedding pending.";
constexpr char kResumed[] = "Prior watermark no longer present - embedding resumed.";

LSNDetection Detection(std::uint64_t cid, std::int64_t timestamp) {
  LSNDetection detection;
  detection.cid = cid;
  detection.timestamp = timestamp;
  detection.quality = 0.75;
  detection.cidName = "Evening News";
  detection.mediaDetectionTimestamp = 1.5;
  return detection;
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
    channel.Detector().SetProperty(DetectorSimulation::kDetection, Detection(c.cid, c.seconds));
    ASSERT_TRUE(channel.FeedOne());

    const std::string detection =
        c.timestamp != nullptr ? "found Evening News at " + std::string(c.timestamp) + " Q 0.75"
                               : "found SCREENED at SCREENED Q 0";
    EXPECT_EQ(c.listening ? Strings{detection} : Strings{}, listener.Texts(Kind::kDetection));
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
    channel.Detector().SetProperty(DetectorSimulation::kPresence,
                                   CBasebandWMDetection{presence, 0.0});
    EXPECT_TRUE(channel.FeedOne());
    const int lumaBytes = frame.GetPitch(0) * frame.GetFormat().GetHeight();
    return std::memcmp(painted.GetPlane(0), frame.GetPlane(0), lumaBytes) != 0;
  };
  EXPECT_TRUE(marksNextFrame(CBasebandWMDetection::kAbsent));
  // The detector sees each frame before the embedder: the frame it appears on is not marked.
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::kWarning));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::kInfo));

  // Frames 4 to 26 pass without a watermark; the 26th one's progress line (25 counted) says so.
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, "Bypassing frame 25, app. 1 seconds done"));

  EXPECT_TRUE(marksNextFrame(CBasebandWMDetection::kAbsent));
  EXPECT_TRUE(marksNextFrame(7));  // any state but present
  EXPECT_EQ(Strings{kFound}, listener_.Texts(Kind::kWarning));
  EXPECT_EQ(Strings{kResumed}, listener_.Texts(Kind::kInfo));
  EXPECT_EQ(1, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1, LogCount(EventLevel::Info, std::string("User notified: ") + kResumed));
  ASSERT_EQ(23, channel.Feed(23));
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Embedding frame 50, app. 2 seconds done"));

  SCOPED_TRACE("without a listener the transitions are only logged");
  channel->SetListener(nullptr);
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kPresent));
  EXPECT_EQ(2, LogCount(EventLevel::Warning, std::string("User notified: ") + kFound));
  EXPECT_EQ(1u, listener_.Texts(Kind::kWarning).size());

  SCOPED_TRACE("with the detector off, a prior watermark can no longer go");
  channel->SetVwmDetectorOn(false);
  EXPECT_FALSE(marksNextFrame(CBasebandWMDetection::kAbsent));
  EXPECT_EQ(Strings{kResumed}, listener_.Texts(Kind::kInfo));
}

}  // namespace
}  // namespace QuillmarTesting
