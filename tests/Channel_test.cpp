// The channel's entry points, life cycle, stop totals, licence messages and the host's framework
// events, driven through the library's exported entry points with the reference plug-ins.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "framework/CompletedEvent.h"
#include "framework/DroppedFrameEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/PluginRegistry.h"
#include "framework/ProgressEvent.h"
#include "framework/SignalLostEvent.h"
#include "framework/SignalResumedEvent.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
using Framework::ProcessorState;
using Framework::QuillmarBasebandSDKChannel;
using ChannelLifecycleTest = ChannelTest;
using ChannelEventsTest = ChannelTest;

TEST(ChannelEntryPoints, CreateAndDeleteAsAHostDoes) {
  Library().DeleteProcessor(nullptr);  // a no-op: nothing to check but that it returns
  Framework::Testing::ScopedLogRecording log;
  Framework::ProcessorBase* processor = Library().CreateProcessor(Framework::PropertyBase());
  auto* channel = dynamic_cast<QuillmarBasebandSDKChannel*>(processor);
  ASSERT_NE(nullptr, channel);
  EXPECT_EQ("QuillmarBasebandSDKChannel", channel->GetName());
  EXPECT_NE("", Library().Version());
  EXPECT_TRUE(log->Has(EventLevel::Info, Library().Version()));
  EXPECT_TRUE(channel->GetVwmDetectorOn());
  EXPECT_EQ(Framework::FormatInfo::kNoFormat, channel->GetFormatInfo().GetVideoFormat());
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
  fs::create_directories(none);
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
  {
    SCOPED_TRACE("the configuration file is missing");
    TestChannel missing;
    Configure(missing, 10);
    missing->SetConfigFile(folder_.File("missing.json"));
    EXPECT_FALSE(missing->InitProcessor());
    EXPECT_EQ(Strings{"Config file not found or invalid."}, listener_.Texts(Kind::Error));
    EXPECT_EQ(1, LogCount(EventLevel::Error,
                          "QuillmarBasebandSDKChannel::Init; parsing configuration failed!"));
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, missing->GetLastError());
    EXPECT_FALSE(fs::exists(databasePath_));
  }
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
  ASSERT_EQ(ProcessorState::Initialized, channel.Detector().GetState());
  ASSERT_EQ(ProcessorState::Initialized, channel.Embedder().GetState());
  {
    SCOPED_TRACE("no video format");
    channel->SetFormatInfo(Framework::VideoFormatInfo());
    ASSERT_TRUE(channel->InitProcessor());
    EXPECT_FALSE(channel->StartProcessor());
    EXPECT_EQ(1, LogCount(EventLevel::Warning,
                          "Incorrect video format. Cannot initialize media (no format)"));
    EXPECT_EQ(ProcessorState::Created, channel.Detector().GetState());
    EXPECT_EQ(ProcessorState::Created, channel.Embedder().GetState());
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  }
  {
    SCOPED_TRACE("the program is not in the configuration");
    channel->SetFormatInfo(SmallFormat());
    channel->SetProgramName("Late Show");
    ASSERT_TRUE(channel->InitProcessor());
    EXPECT_FALSE(channel->StartProcessor());
    const std::string text = "Selected program Late Show not found in the config file";
    EXPECT_EQ(1, LogCount(EventLevel::Info, "Selected program Late Show; parsing configuration"));
    EXPECT_EQ(text, listener_.Texts(Kind::Error).back());
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorConfiguration, channel->GetLastError());
    EXPECT_EQ(text, channel->GetLastErrorText());
    EXPECT_EQ(ProcessorState::Created, channel.Embedder().GetState());
  }
  {
    SCOPED_TRACE("the configuration no longer parses at Start");
    channel->SetProgramName("Demo");
    ASSERT_TRUE(channel->InitProcessor());
    // Edited without signing it again: the checksum no longer matches.
    std::stringstream text;
    text << std::ifstream(configPath_).rdbuf();
    std::string edited = text.str();
    edited.replace(edited.find("Test Playout"), 4, "Best");
    std::ofstream(configPath_, std::ios::trunc) << edited;
    EXPECT_FALSE(channel->StartProcessor());
    EXPECT_EQ("Error parsing configuration file.", listener_.Texts(Kind::Error).back());
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorConfiguration, channel->GetLastError());
    EXPECT_EQ("Error parsing configuration file.", channel->GetLastErrorText());
  }
}

TEST_F(ChannelLifecycleTest, WithoutOnCreateChannelInitStillReservesAndStopFindsNoEmbedder) {
  Framework::ProcessorBase* processor = Library().CreateProcessor(Framework::PropertyBase());
  auto& channel = dynamic_cast<QuillmarBasebandSDKChannel&>(*processor);
  channel.SetConfigFile(WriteConfiguration(configPath_, configuration_));
  channel.SetAllCIDsInProgram({101, 102, 103});
  channel.SetAllEmbedderCIDsInConfig({101, 102, 103});
  channel.SetEmbeddingDuration(10);
  // The base channel refuses to initialise without OnCreateChannel; the channel ignores that.
  EXPECT_TRUE(channel.InitProcessor());
  EXPECT_EQ(1, LogCount(EventLevel::Info,
                        "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot allocated EID 101 "
                        "for 74 seconds."));
  channel.Stop();
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::FinalizeEmbedding cannot find embedder. "
                        "Aborted!"));
  Library().DeleteProcessor(processor);
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
  TestChannel channel;
  for (const auto& c : cases) {
    const std::string totals =
        Format("Processed %d frames at %f fps, total %d seconds (out of %d seconds reserved)",
               c.frames, c.framesPerSecond, c.seconds, c.reserved);
    SCOPED_TRACE(totals);
    Framework::Testing::ScopedLogRecording log;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, c.duration, c.framesPerSecond));
    const GrantedSlot slot = channel.Slot();
    EXPECT_EQ(c.reserved, slot.seconds);
    EXPECT_TRUE(log->Has(EventLevel::Info, Format("Allocating timeslot from the shared database "
                                                  "%1%, requested %2% seconds",
                                                  databasePath_, c.duration)));
    EXPECT_TRUE(log->Has(EventLevel::Info, Format("QuillmarBasebandSDKChannel::AllocateEmbedding"
                                                  "Timeslot allocated EID %d for %d seconds.",
                                                  slot.cid, c.reserved)));
    const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
    EXPECT_DOUBLE_EQ(c.reserved, SecondsBetween(slot.start, row.Timestamp));
    EXPECT_EQ(c.duration == 0, IsLocked(row));
    if (c.duration == 0) {
      EXPECT_NEAR(7200.0, SecondsBetween(Now(), row.LockedTill), 5.0);
    }

    EXPECT_TRUE(channel->DeliverFrame(nullptr));  // taken, and not counted
    ASSERT_EQ(c.frames, channel.Feed(c.frames));
    ASSERT_TRUE(channel->StopProcessor());
    EXPECT_FALSE(channel.FeedOne());
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
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::Error));
}

// A licence found invalid before there is a listener is told to the next listener set; it stays
// the last error through an Init that fails, which has the configuration read but no database.
TEST_F(ChannelLifecycleTest, LicenceMessagesWaitForAListenerOnlyWhenInvalidated) {
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
  EXPECT_EQ(Strings{invalid}, listener_.Texts(Kind::Error));

  SCOPED_TRACE("a null listener makes messages wait again");
  channel->SetListener(nullptr);
  channel->CheckLicense();
  RecordingListener later;
  channel->SetListener(&later);
  EXPECT_EQ(Strings{invalid}, later.Texts(Kind::Error));
  EXPECT_EQ(1u, listener_.Texts(Kind::Error).size());

  SCOPED_TRACE("a warning goes only to a listener that is set");
  licenser.SetProperty("Valid", true);
  licenser.SetProperty("DaysLeft", 10);
  channel->SetListener(nullptr);
  channel->CheckLicense();
  channel->SetListener(&later);
  EXPECT_EQ(Strings{}, later.Texts(Kind::Warning));
  channel->CheckLicense();
  EXPECT_EQ(Strings{"License will expire within 30 days."}, later.Texts(Kind::Warning));

  SCOPED_TRACE("the configuration names no shared database");
  EXPECT_FALSE(channel->InitProcessor());
  EXPECT_EQ((Strings{invalid,
                     "Shared database not found in the Config file. Contact Veltrane "
                     "support for an updated CFG file."}),
            later.Texts(Kind::Error));
  EXPECT_EQ(1, LogCount(EventLevel::Error,
                        "QuillmarBasebandSDKChannel::Init: Shared database not found in the "
                        "Config file!"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
  EXPECT_EQ(invalid, channel->GetLastErrorText());
  EXPECT_FALSE(fs::exists(databasePath_));
  // The configuration was read, so a record can be asked for, but there is no slot to finalise.
  channel.Embedder().SetProperty("EncodationLogFile", folder_.File("encodation.jsonl"));
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
    EXPECT_EQ(c.stops ? ProcessorState::Stopped : ProcessorState::Started, channel->GetState());
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

}  // namespace
}  // namespace QuillmarTesting
