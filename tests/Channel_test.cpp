// The channel as a host drives it, through the library's exported entry points with the
// reference plug-ins: entry points, life cycle, stop totals, licence messages, the host's framework
// events and the detection path (the detector is made to report results where a test needs them);
// the embedding session, which reserves, extends and finalises its time slot in a real time-slot
// file and hands the run to the encodation log; and concurrency: Stop on the control thread while
// the processing thread hands over frames, and channels in threads of two processes on one file.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/json.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "channel/testing/ChannelHost.h"
#include "channel/testing/ChannelTest.h"
#include "database/DatabaseTestSupport.h"
#include "database/TimeTicks.h"
#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/CompletedEvent.h"
#include "framework/DroppedFrameEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/Logger.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/PluginRegistry.h"
#include "framework/ProgressEvent.h"
#include "framework/SignalLostEvent.h"
#include "framework/SignalResumedEvent.h"
#include "framework/testing/ChildProcess.h"
#include "framework/testing/RecordingLogSink.h"
#include "plugins/detector/DetectorSimulation.h"
#include "plugins/watermark/testing/SyntheticScene.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using Framework::ProcessorState;
using Framework::QuillmarBasebandSDKChannel;
using QuillmarBasebandSDK::TimeTicks;
using QuillmarBasebandSDK::Testing::Plus;
using QuillmarBasebandSDK::Testing::SetRow;
using Strings = std::vector<std::string>;
using Kind = RecordingListener::Kind;
using Framework::EventLevel;

using ChannelEntryPoints = ChannelTest;
using ChannelLifecycleTest = ChannelTest;
using ChannelListenerTest = ChannelTest;
using ChannelEventsTest = ChannelTest;
using ChannelDetectionTest = ChannelTest;
using ChannelSessionTest = ChannelTest;
using ChannelConcurrencyTest = ChannelTest;
using ChannelEncodationLogTest = ChannelTest;

// Without OnCreateChannel the base channel refuses to initialise; the channel ignores that, and
// its Stop finds no embedder.
TEST_F(ChannelEntryPoints, CreateAndDeleteAsAHostDoes) {
  Library().DeleteProcessor(nullptr);  // a no-op: nothing to check but that it returns
  Framework::ProcessorBase* processor = Library().CreateProcessor(Framework::PropertyBase());
  auto* channel = dynamic_cast<QuillmarBasebandSDKChannel*>(processor);
  ASSERT_NE(nullptr, channel);
  EXPECT_EQ(1, LogCount(EventLevel::Info, Library().Version()));
  channel->SetConfigFile(WriteConfiguration(configPath_, configuration_));
  channel->SetAllCIDsInProgram({101, 102, 103});
  channel->SetAllEmbedderCIDsInConfig({101, 102, 103});
  channel->SetEmbeddingDuration(10);
  EXPECT_TRUE(channel->InitProcessor());
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Allocating timeslot from the shared database " +
                                              databasePath_ + ", requested 10 seconds"));
  channel->Stop();
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::FinalizeEmbedding cannot find embedder. "
                        "Aborted!"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  channel->OnCreateChannel(3);
  EXPECT_EQ(1u, channel->GetMaxNrChannels());
  EXPECT_NE(nullptr, channel->GetAlgorithm(Framework::kDetectorInstance));
  EXPECT_NE(nullptr, channel->GetAlgorithm(Framework::kEmbedderInstance));
  Library().DeleteProcessor(processor);
}

// A plug-in library once loaded stays loaded for the process, and ctest runs each test in a
// process of its own: only there can the plug-in path leave a plug-in out.
TEST_F(ChannelLifecycleTest, WithoutTheEmbedderPluginStartFails) {
  const std::string detectorClass = Framework::kDetectorClass;
  if (Framework::PluginRegistry::Instance().IsRegistered(detectorClass)) {
    GTEST_SKIP() << "the plug-ins were loaded by an earlier test of this process";
  }
  const fs::path detectorOnly = folder_.File("detector");
  fs::create_directories(detectorOnly);
  const std::string file = "lib" + detectorClass + ".so";
  fs::create_symlink(fs::path(Library().Path()).parent_path() / file, detectorOnly / file);
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
// one name. Init fails without a configuration file, setting no error code; Start fails without a
// video format, for a program the configuration lacks and for a configuration broken after Init,
// de-initialising both processors.
TEST_F(ChannelLifecycleTest, InitAndStartFailuresAndTheProgramsQuality) {
  configuration_.programs = {{"Demo", {101}, {}, 2.5}, {"Demo", {102}, {}, 6.0}};
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
  EXPECT_TRUE(
      InOrder(log_->Lines(),
              {{EventLevel::Info, "Selected program Demo; parsing configuration"},
               {EventLevel::Info, "Successfully parsed configuration file, CRC " + Checksum()},
               {EventLevel::Info, "Selected GD 6, MLD 4, FlatRegion 0"}}));
  ASSERT_TRUE(channel->StopProcessor());

  const struct {
    Framework::VideoFormatInfo format;
    const char* program;
    bool broken;        // the configuration no longer parses at Start
    const char* error;  // told to the listener and kept as the last error; null: none
  } cases[] = {
      {Framework::VideoFormatInfo(), "Demo", false, nullptr},
      {SmallFormat(), "Late Show", false,
       "Selected program Late Show not found in the config file"},
      {SmallFormat(), "Demo", true, "Error parsing configuration file."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error != nullptr ? c.error : "no format");
    channel->SetFormatInfo(c.format);
    channel->SetProgramName(c.program);
    ASSERT_TRUE(channel->InitProcessor());
    if (c.broken) std::ofstream(configPath_, std::ios::trunc) << "{}";
    EXPECT_FALSE(channel->StartProcessor());
    EXPECT_EQ(ProcessorState::Created, channel.Detector().GetState());
    EXPECT_EQ(ProcessorState::Created, channel.Embedder().GetState());
    EXPECT_EQ(c.error != nullptr ? QuillmarBasebandEmbedder::ErrorConfiguration
                                 : QuillmarBasebandEmbedder::ErrorNone,
              channel->GetLastError());
    if (c.error == nullptr) continue;
    EXPECT_EQ(c.error, listener_.Texts(Kind::kError).back());
    EXPECT_EQ(c.error, channel->GetLastErrorText());
  }
  EXPECT_EQ(1, LogCount(EventLevel::Warning,
                        "Incorrect video format. Cannot initialize media (no format)"));
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
      EXPECT_TRUE(log->Has(EventLevel::Info, Format("QuillmarBasebandSDKChannel::AllocateEmbedding"
                                                    "Timeslot allocated EID %d for %d seconds.",
                                                    slot.cid, c.reserved)));
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

const std::string kAllocate = "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot";
const std::string kRetryFailed =
    "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: ";
const std::string kRetry = kRetryFailed + "(%d) attempts left: failure reason: %s";
const std::string kNoAttemptsLeft = kRetryFailed + "no attempts left: failure reason: ";
const std::string kAccessFailure =
    kAllocate +
    " - error in accessing shared database. Perhaps you didn't provide the full path, or the file "
    "does not exist and cannot be created, or in a wrong format. Shared database is a file, not a "
    "folder! Error details as follows: ";
const std::string kNoFreeCid = kAllocate +
                               " - error allocating timeslot for embedding. EmbedderDatabaseV2::"
                               "AllocateEmbeddingTimeslot failed: cannot find suitable record";

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Turns the file `blocked` into a folder when the third failed attempt is logged.
class FolderAfterThirdAttempt : public Framework::Testing::RecordingLogSink {
 public:
  explicit FolderAfterThirdAttempt(fs::path blocked) : blocked_(std::move(blocked)) {}
  void Write(const Framework::LogRecord& record) override {
    if (StartsWith(record.text, Format(kRetry, 7, ""))) {
      fs::remove(blocked_);
      fs::create_directory(blocked_);
    }
  }

 private:
  const fs::path blocked_;
};

TEST_F(ChannelSessionTest, AllocationTriesTenTimesAndRecoversWhenTheDatabaseComesBack) {
  const struct {
    const char* cause;
    std::string reason;  // how the text of every failed attempt begins
    bool comesBack;      // the database's folder appears when the third failure is logged
  } cases[] = {
      {"the database's folder is a file for three attempts", kAccessFailure, true},
      {"the program's only CID is leased by another channel", kNoFreeCid, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.cause);
    Framework::Testing::ScopedLogRecording log;
    RecordingListener listener;
    const fs::path blocked = folder_.File(std::to_string(&c - cases));
    std::ofstream(blocked) << "not a folder";
    configuration_.sharedDatabase = (blocked / "slots.db").string();
    TestChannel holder;
    if (c.reason == kNoFreeCid) {
      configuration_.sharedDatabase = databasePath_;
      configuration_.programs = {{"Demo", {201}, {}}};
      ASSERT_NO_FATAL_FAILURE(StartRun(holder, 0));
    }
    const auto comeBack = std::make_shared<FolderAfterThirdAttempt>(blocked);
    if (c.comesBack) Framework::Logger::AddSink(comeBack);  // removed before any assertion
    TestChannel channel;
    Configure(channel, 10);
    channel->SetListener(&listener);
    EXPECT_EQ(c.comesBack, channel->InitProcessor());
    Framework::Logger::RemoveSink(comeBack);

    Strings retries;
    std::string lastError;
    for (const auto& line : log->Lines()) {
      if (StartsWith(line.text, kRetry.substr(0, kRetry.find('%')))) retries.push_back(line.text);
      if (StartsWith(line.text, kNoAttemptsLeft)) lastError = line.text;
    }
    ASSERT_EQ(c.comesBack ? 3u : 9u, retries.size());
    for (std::size_t i = 0; i < retries.size(); ++i) {
      EXPECT_PRED2(StartsWith, retries[i], Format(kRetry, 9 - i, c.reason));
    }
    EXPECT_EQ(c.comesBack, log->Has(EventLevel::Info,
                                    kAllocate + " recovered from previous DB access problem."));
    const std::string reason = c.comesBack ? "" : channel->GetLastErrorText();
    EXPECT_EQ(c.comesBack ? Strings{} : Strings{reason}, listener.Texts(Kind::kError));
    if (c.comesBack) {
      EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
      EXPECT_TRUE(channel->StartProcessor());
    } else {
      EXPECT_PRED2(StartsWith, reason, c.reason);
      EXPECT_EQ(kNoAttemptsLeft + reason, lastError);
      EXPECT_EQ(QuillmarBasebandEmbedder::ErrorTimeslotAllocation, channel->GetLastError());
    }
  }
}

// A slot still held at Init, from an Init whose Start failed, goes back whole first. Another
// embedder's lease in the file (as when this one took too long) makes every extension and
// finalisation fail.
TEST_F(ChannelSessionTest, AnOpenEndedSlotIsExtendedFromItsLastSecondWhileTheLeaseHolds) {
  // One CID: a lease still held from the run that never started would leave nothing to reserve.
  configuration_.programs = {{"Demo", {201}, {}}};
  TestChannel channel;
  Configure(channel, 0, 1.0);  // one frame a second: the slot's last second begins at frame 1800
  channel->SetFormatInfo(Framework::VideoFormatInfo());
  ASSERT_TRUE(channel->InitProcessor());
  const CID_Timestamp_Lock_Record unused = RowOf(databasePath_, 201);
  ASSERT_FALSE(channel->StartProcessor());
  channel.SetFormat(SmallFormat(1.0));
  ASSERT_TRUE(channel->InitProcessor());
  ASSERT_TRUE(channel->StartProcessor());
  const GrantedSlot slot = channel.Slot();
  EXPECT_NEAR(1800.0, SecondsBetween(slot.start, unused.Timestamp), 1.0);

  const CID_Timestamp_Lock_Record held = RowOf(databasePath_, slot.cid);
  SetRow(databasePath_, slot.cid, held.Timestamp, Plus(held.LockedTill, 1000));
  ASSERT_EQ(1799, channel.Feed(1799));
  ASSERT_EQ(3, channel.Feed(3));
  const std::string failed =
      "QuillmarBasebandSDKChannel::ExtendTimeslot failed. Failure reason: EmbedderDatabaseV2::"
      "ExtendTimeslotExtendTimeslot failed: active lock does not match database. Processing took "
      "too long?. Will retry next frame.";
  EXPECT_EQ(Strings(3, failed), listener_.Texts(Kind::kError));
  EXPECT_EQ(1800u, channel.Slot().seconds);

  SetRow(databasePath_, slot.cid, held.Timestamp, held.LockedTill);
  ASSERT_EQ(5, channel.Feed(5));
  EXPECT_EQ(4, LogCount(EventLevel::Info,
                        "ExtendTimeslot - allocated embedding allocated timeslot almost "
                        "completely used. Extending..."));
  EXPECT_EQ(1, LogCount(EventLevel::Info, "ExtendTimeslot - done"));
  EXPECT_EQ(3600u, channel.Slot().seconds);
  const CID_Timestamp_Lock_Record extended = RowOf(databasePath_, slot.cid);
  EXPECT_DOUBLE_EQ(3600.0, SecondsBetween(slot.start, extended.Timestamp));
  EXPECT_NEAR(7200.0, SecondsBetween(Now(), extended.LockedTill), 5.0);

  const std::uint64_t embedded = channel.Embedder().GetEmbeddedDurationInSeconds();
  ASSERT_TRUE(channel->StopProcessor());
  const CID_Timestamp_Lock_Record finalised = RowOf(databasePath_, slot.cid);
  EXPECT_DOUBLE_EQ(embedded + 1.0, SecondsBetween(slot.start, finalised.Timestamp));
  EXPECT_FALSE(IsLocked(finalised));

  SCOPED_TRACE("a run whose lease is lost by Stop");
  ASSERT_TRUE(channel->InitProcessor());
  ASSERT_TRUE(channel->StartProcessor());
  const CID_Timestamp_Lock_Record second = RowOf(databasePath_, channel.Slot().cid);
  SetRow(databasePath_, second.CID, second.Timestamp, Plus(second.LockedTill, 1000));
  ASSERT_TRUE(channel->StopProcessor());
  EXPECT_EQ(10, LogCount(EventLevel::Warning,
                         "FinalizeEmbedding failed: EmbedderDatabaseV2::FinalizeEmbedding failed: "
                         "active lock does not match database. Processing took too long?. Will "
                         "retry."));
  EXPECT_EQ(1, LogCount(EventLevel::Error, "FinalizeEmbedding definitely failed"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  EXPECT_EQ(3u, listener_.Texts(Kind::kError).size());
}

// One run: energies at or below -0.5 carry no measurement, and a report while a prior watermark
// is present says so and is not averaged. Records are asked for under the run's program, another
// program and an unknown one; each is written after the slot was finalised.
TEST_F(ChannelEncodationLogTest, RecordsFollowTheEnergiesAndTheNamedProgramsFields) {
  const std::string kWrite = "QuillmarBasebandSDKChannel::WriteEncodationLog";
  const std::string kObsolete =
      "warning: User called OBSOLETE " + kWrite + ". Mapping to the new format!";
  const std::string kKeysUnknown = kWrite + " cannot determine selected metadata keys. Aborted!";
  const std::string kNoFieldName =
      "error: ...and no matching FieldName. Will proceed with user-defined name, but encodation "
      "import may fail!";
  const std::string kLateShow = "error: Selected program Late Show not found in the config file";
  const struct {
    const char* program;
    const char* key;        // null: the six-text form
    Strings problems;       // the warnings and errors logged, in order
    json::object metadata;  // of the record; empty: no record
  } cases[] = {
      {"Demo", "itemid", {}, {{"itemid", "value"}}},
      {"Demo",
       "Slug",
       {"warning: " + kWrite + ": Slug is not allowed metadata DisplayName",
        "warning: ...but it matches a valid FieldName. Can proceed."},
       {{"Slug", "value"}}},
      {"Demo",
       "rating",
       {"warning: " + kWrite + ": rating is not allowed metadata DisplayName", kNoFieldName},
       {{"rating", "value"}}},
      // Kept in the order of their display names, the fields begin "itemid", "note", "slug".
      {"Demo",
       nullptr,
       {kObsolete,
        "error: First three metadata fields in active program: \"%1%\", \"%2%\", \"%3%\" differ "
        "from default names: \"itemid\", \"slug\", \"note\". Will use default keys!"},
       {{"itemid", "4"}, {"slug", "5"}, {"note", "6"}}},
      {"Short",
       nullptr,
       {kObsolete,
        "warning: " + kWrite +
            ": active program has too little metadata fields defined. Will append default keys!",
        "warning: " + kWrite + ": note is not allowed metadata DisplayName", kNoFieldName},
       {{"itemid", "4"}, {"slug", "5"}, {"note", "6"}}},
      {"Late Show", "itemid", {kLateShow, "error: " + kKeysUnknown}, {}},
      {"Late Show", nullptr, {kObsolete, kLateShow, "error: " + kKeysUnknown}, {}},
  };
  configuration_.programs = {
      {"Demo", {101, 102, 103}, {{"itemid", "ItemId"}, {"slug", "Slug"}, {"note", "Note"}}},
      {"Short", {104}, {{"itemid", "ItemId"}, {"slug", "Slug"}}}};
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  auto& embedderSignal = channel.Embedder().GetEventSignal();
  for (const float energy : {-0.5f, Framework::VWMEmbeddingEvent::kNoEnergy, -0.49f}) {
    embedderSignal.Raise(Framework::VWMEmbeddingEvent(energy));
  }
  channel.Detector().SetProperty(DetectorSimulation::kPresence,
                                 CBasebandWMDetection{CBasebandWMDetection::kPresent, 0.0});
  ASSERT_TRUE(channel.FeedOne());
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(0.25f));
  EXPECT_EQ((Strings{"-0.49 embedding", "0.25 bypassing"}), listener_.Texts(Kind::kEnergy));

  for (const auto& c : cases) {
    const std::string first = std::string(c.program) + (c.key != nullptr ? c.key : " six");
    SCOPED_TRACE(first);
    Framework::Testing::ScopedLogRecording log;
    channel->SetProgramName(c.program);
    if (c.key != nullptr) {
      channel->WriteEncodationLog(first, "2", "3", {{c.key, "value"}});
    } else {
      channel->WriteEncodationLog(first, "2", "3", "4", "5", "6");
    }
    Strings problems;
    for (const LogLine& line : log->Lines()) {
      if (line.level != EventLevel::Info) {
        problems.push_back((line.level == EventLevel::Error ? "error: " : "warning: ") + line.text);
      }
    }
    EXPECT_EQ(c.problems, problems);
    const json::object record = LastEncodationRecord(encodationLog_);
    EXPECT_EQ(!c.metadata.empty(), record.at("HostText1") == first.c_str());
    EXPECT_EQ(!c.metadata.empty(),
              InOrder(log->Lines(), {{EventLevel::Info, "FinalizeEmbedding done"},
                                     {EventLevel::Info,
                                      "LumensealBasebandEmbedderPlugin::WriteEncodationLog; "
                                      "record written to " +
                                          encodationLog_}}));
    if (c.metadata.empty()) continue;
    EXPECT_EQ(c.metadata, record.at("Metadata"));
    EXPECT_EQ("2", record.at("HostText2"));
    EXPECT_EQ("3", record.at("HostText3"));
    EXPECT_EQ("Test Playout", record.at("Facility"));
    EXPECT_EQ(Checksum(), record.at("ConfigurationChecksum").as_string().c_str());
    EXPECT_EQ(channel.Slot().cid, record.at("CID").to_number<unsigned>());
    EXPECT_FLOAT_EQ(-0.49f, record.at("AverageEnergy").as_double());
  }

  SCOPED_TRACE("after Stop, which releases the configuration");
  channel->SetProgramName("Demo");
  ASSERT_TRUE(channel->StopProcessor());
  channel->WriteEncodationLog("after Stop", "2", "3", {{"itemid", "42"}});
  EXPECT_TRUE(InOrder(log_->Lines(),
                      {{EventLevel::Error, "Selected program Demo not found in the config file"},
                       {EventLevel::Error, kKeysUnknown}}));
  EXPECT_NE("after Stop", LastEncodationRecord(encodationLog_).at("HostText1"));
}

// The slot a run was granted and the part of it the run kept, in ticks.
struct RunSlot {
  unsigned cid = 0;
  std::uint64_t start = 0, grantedEnd = 0, keptEnd = 0;
};

// Starts the initialised `channel`, hands it 30 frames (over a second at 25 fps) and stops it.
// An open-ended run keeps the seconds embedded + 1; a run of requested length its whole slot.
bool EmbedAndStop(TestChannel& channel, RunSlot& run) {
  if (!channel->StartProcessor()) return false;
  const GrantedSlot slot = channel.Slot();
  const bool fed = channel.Feed(30) == 30;
  const std::uint64_t kept = channel->GetEmbeddingDuration() == 0
                                 ? channel.Embedder().GetEmbeddedDurationInSeconds() + 1
                                 : slot.seconds;
  const std::uint64_t start = TimeTicks::FromSystemTime(slot.start);
  const std::uint64_t second = TimeTicks::kTicksPerSecond;
  run = {slot.cid, start, start + slot.seconds * second, start + kept * second};
  return channel->StopProcessor() && fed;
}

// Every pair of runs whose slots of one CID share time, ending each slot at `end`.
Strings Overlaps(std::vector<RunSlot> runs, std::uint64_t RunSlot::*end) {
  std::sort(runs.begin(), runs.end(), [](const RunSlot& a, const RunSlot& b) {
    return a.cid != b.cid ? a.cid < b.cid : a.start < b.start;
  });
  Strings overlaps;
  for (std::size_t i = 1; i < runs.size(); ++i) {
    if (runs[i].cid == runs[i - 1].cid && runs[i].start < runs[i - 1].*end) {
      overlaps.push_back(Format("CID %1% from tick %2% before tick %3%", runs[i].cid, runs[i].start,
                                runs[i - 1].*end));
    }
  }
  return overlaps;
}

TEST_F(ChannelConcurrencyTest, StopOnTheControlThreadWhileFramesArrive) {
  TestChannel channel;
  Configure(channel, 10);
  std::atomic<int> stoppedByMedia{0};
  const auto connection = channel->GetChannelSignal(Framework::ChannelSignal::Completed)
                              .ConnectFor<Framework::CompletedEvent>(
                                  [&](const Framework::CompletedEvent&) { ++stoppedByMedia; });
  for (int run = 0; run < 40; ++run) {
    SCOPED_TRACE(run);
    Framework::Testing::ScopedLogRecording log;
    ASSERT_TRUE(channel->InitProcessor());
    ASSERT_TRUE(channel->StartProcessor());
    std::atomic<int> taken{0};
    std::thread processing([&] {
      while (channel.FeedOne()) ++taken;
    });
    const int framesBeforeStop = run % 4 * 3;  // 0: Stop may come before the first frame
    while (taken < framesBeforeStop) std::this_thread::yield();
    EXPECT_TRUE(channel->StopProcessor());
    processing.join();
    // Every frame the host's delivery took was counted, and none after Stop.
    EXPECT_TRUE(log->Has(EventLevel::Info, Format("Processed %d frames at 25.000000 fps, total %d "
                                                  "seconds (out of 74 seconds reserved)",
                                                  taken.load(), (taken + 24) / 25)));
  }
  EXPECT_EQ(0, stoppedByMedia.load());
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::kError));
}

// Two processes on one time-slot file, each with two channels in two threads. In each round both
// runs of a process reserve their slots before either ends, open-ended and requested runs in
// turn; four CIDs leave one free for every channel. No two slots granted in a round of a process
// share a CID's time, nor do the parts of any two runs kept. Forked while this process has one
// thread and no database connection.
TEST_F(ChannelConcurrencyTest,
       ChannelsInTwoThreadsOfTwoProcessesNeverHoldOneCidForOverlappingTime) {
  constexpr int kProcesses = 2, kRounds = 8;
  configuration_.programs = {{"Demo", {101, 102, 103, 104}, {}}};
  const std::string config = WriteConfiguration(configPath_, configuration_);
  const auto runsFile = [this](int process) { return folder_.File(std::to_string(process)); };
  std::vector<std::unique_ptr<Framework::Testing::ChildProcess>> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(std::make_unique<Framework::Testing::ChildProcess>([&, process] {
      std::ofstream out(runsFile(process));
      std::array<TestChannel, 2> channels;
      std::array<RunSlot, 2> runs;
      const auto inParallel = [](const std::function<bool(std::size_t)>& step) {
        bool other = false;
        std::thread thread([&] { other = step(1); });
        const bool first = step(0);
        thread.join();
        return first && other;
      };
      for (TestChannel& channel : channels) {
        channel.Configure(config, configuration_, "Demo", 0, nullptr);
      }
      for (int round = 0; round < kRounds; ++round) {
        channels[0]->SetEmbeddingDuration(round % 2 == 0 ? 0 : 5);
        channels[1]->SetEmbeddingDuration((round + process) % 4 < 2 ? 0 : 5);
        if (!inParallel([&](std::size_t i) { return channels[i]->InitProcessor(); }) ||
            !inParallel([&](std::size_t i) { return EmbedAndStop(channels[i], runs[i]); })) {
          return 1;
        }
        if (!Overlaps({runs[0], runs[1]}, &RunSlot::grantedEnd).empty()) return 2;
        for (const RunSlot& run : runs) {
          out << run.cid << ' ' << run.start << ' ' << run.grantedEnd << ' ' << run.keptEnd << '\n';
        }
      }
      return 0;
    }));
  }
  for (const auto& child : children) EXPECT_EQ(0, child->Wait());
  std::vector<RunSlot> runs;
  for (int process = 0; process < kProcesses; ++process) {
    std::ifstream in(runsFile(process));
    RunSlot run;
    while (in >> run.cid >> run.start >> run.grantedEnd >> run.keptEnd) runs.push_back(run);
  }
  ASSERT_EQ(static_cast<std::size_t>(kProcesses * kRounds * 2), runs.size());
  EXPECT_EQ(Strings{}, Overlaps(runs, &RunSlot::keptEnd));
}

}  // namespace
}  // namespace QuillmarTesting
