// The channel's entry points, life cycle, properties, listener and framework events, driven
// through the library's exported entry points with the reference plug-ins.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "framework/CompletedEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/LicenseInvalidatedEvent.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/ProgressEvent.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using Framework::EventLevel;
using Framework::ProcessorState;
using Kind = ListenerReport::Kind;

constexpr char kLicenceWarning[] = "License will expire within 30 days.";
constexpr char kInLine[] = "Aforementioned actual duration is in line with requested 10 seconds";
constexpr char kLonger[] = "Aforementioned actual duration was longer than requested 10 seconds";

using ChannelLifecycleTest = ChannelTest;
using ChannelListenerTest = ChannelTest;
using ChannelEventsTest = ChannelTest;

// --- Entry points and life cycle ---

TEST(ChannelEntryPoints, CreateAndDeleteAsAHostDoes) {
  DeleteProcessorFunction()(nullptr);  // a no-op: nothing to check but that it returns

  Framework::Testing::ScopedLogRecording log;
  Framework::ProcessorBase* processor = CreateProcessorFunction()(Framework::PropertyBase());
  auto* channel = dynamic_cast<Framework::QuillmarBasebandSDKChannel*>(processor);
  ASSERT_NE(nullptr, channel);
  EXPECT_EQ("QuillmarBasebandSDKChannel", channel->GetName());
  const std::string version = ProcessorVersion();
  EXPECT_FALSE(version.empty());
  EXPECT_TRUE(log->Has(EventLevel::Info, version));
  EXPECT_EQ(1u, channel->GetMaxNrChannels());
  channel->OnCreateChannel(3);
  EXPECT_EQ(1u, channel->GetMaxNrChannels());
  EXPECT_NE(nullptr, channel->GetAlgorithm(Framework::kDetectorInstance));
  EXPECT_NE(nullptr, channel->GetAlgorithm(Framework::kEmbedderInstance));
  DeleteProcessorFunction()(processor);
}

TEST_F(ChannelLifecycleTest, PropertiesStartWithTheirDefaults) {
  TestChannel channel;
  EXPECT_TRUE(channel->GetVwmDetectorOn());
  EXPECT_EQ(Framework::FormatInfo::kNoFormat, channel->GetFormatInfo().GetVideoFormat());
  EXPECT_EQ(nullptr, channel->GetListener());
  EXPECT_EQ("", channel->GetConfigFile());
  EXPECT_EQ("", channel->GetProgramName());
  EXPECT_EQ(0.0, channel->GetFrameRate());
  EXPECT_EQ(0u, channel->GetEmbeddingDuration());
  EXPECT_TRUE(channel->GetAllCIDsInProgram().empty());
  EXPECT_TRUE(channel->GetAllEmbedderCIDsInConfig().empty());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
}

TEST_F(ChannelLifecycleTest, InitFailsWithoutAUsableConfigurationAndTouchesNoDatabase) {
  {
    SCOPED_TRACE("the configuration file is missing");
    TestChannel channel;
    Configure(channel, 10);
    channel->SetConfigFile(folder_.File("missing.json"));
    EXPECT_FALSE(channel->InitProcessor());
    EXPECT_EQ(Strings{"Config file not found or invalid."}, listener_.Texts(Kind::Error));
    EXPECT_EQ(1, LogCount(EventLevel::Error,
                          "QuillmarBasebandSDKChannel::Init; parsing configuration failed!"));
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  }
  {
    SCOPED_TRACE("the configuration names no shared database; an earlier error stays");
    TestChannel channel;
    configuration_.sharedDatabase.clear();
    Configure(channel, 10);
    channel->SetListener(nullptr);
    channel->GetLicenser().SetProperty("Valid", false);
    channel->CheckLicense();
    const std::string licenceText = channel->GetLastErrorText();
    RecordingListener listener;
    channel->SetListener(&listener);

    EXPECT_FALSE(channel->InitProcessor());
    EXPECT_EQ((Strings{licenceText,
                       "Shared database not found in the Config file. Contact Veltrane support "
                       "for an updated CFG file."}),
              listener.Texts(Kind::Error));
    EXPECT_EQ(1, LogCount(EventLevel::Error,
                          "QuillmarBasebandSDKChannel::Init: Shared database not found in the "
                          "Config file!"));
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
    EXPECT_EQ(licenceText, channel->GetLastErrorText());
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
    EXPECT_NE(".db", entry.path().extension()) << entry.path();
  }
}

TEST_F(ChannelLifecycleTest, StartFailuresDeinitialiseBothProcessors) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
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
    EXPECT_EQ(Strings{text}, listener_.Texts(Kind::Error));
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

TEST_F(ChannelLifecycleTest, InitIgnoresTheBaseChannelsResult) {
  // Without OnCreateChannel the base channel refuses to initialise.
  Framework::ProcessorBase* processor = CreateProcessorFunction()(Framework::PropertyBase());
  auto& channel = dynamic_cast<Framework::QuillmarBasebandSDKChannel&>(*processor);
  channel.SetConfigFile(WriteConfig());
  channel.SetAllCIDsInProgram(configuration_.ProgramCids("Demo"));
  channel.SetAllEmbedderCIDsInConfig(configuration_.AllCids());
  channel.SetEmbeddingDuration(10);
  EXPECT_TRUE(channel.InitProcessor());
  EXPECT_EQ(1, LogCount(EventLevel::Info,
                        "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot allocated EID 101 "
                        "for 74 seconds."));
  DeleteProcessorFunction()(processor);
}

TEST_F(ChannelLifecycleTest, DestroyingAStartedChannelReleasesItsLease) {
  GrantedSlot slot;
  {
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0));
    slot = channel.Slot();
    ASSERT_TRUE(IsLocked(RowOf(databasePath_, slot.cid)));
  }
  const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
  EXPECT_FALSE(IsLocked(row));
  EXPECT_DOUBLE_EQ(1800.0, SecondsBetween(slot.start, row.Timestamp));
}

TEST_F(ChannelLifecycleTest, TheLaterOfTwoProgramsOfOneNameGivesTheQuality) {
  configuration_.programs = {{"Demo", {101}, {}, 2.5}, {"Demo", {102}, {}, 6.0}};
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  EXPECT_EQ(6.0, channel.Embedder().GetGlobalDepth());
  EXPECT_EQ(4, channel.Embedder().GetMaxLocalDepth());
  EXPECT_EQ(1, LogCount(EventLevel::Info, "Selected GD 6, MLD 4, FlatRegion 0"));
}

TEST_F(ChannelLifecycleTest, StopLogsTheProcessedTotalsAgainstTheRequestedDuration) {
  static const struct {
    std::uint32_t duration;
    double framesPerSecond;
    int frames;
    const char* totals;
    EventLevel verdictLevel;
    const char* verdict;  // null: none
  } cases[] = {
      {10, 25.0, 250,
       "Processed 250 frames at 25.000000 fps, total 10 seconds (out of 74 seconds reserved)",
       EventLevel::Info, kInLine},
      {10, 25.0, 300,
       "Processed 300 frames at 25.000000 fps, total 12 seconds (out of 74 seconds reserved)",
       EventLevel::Warning, kLonger},
      {10, 25.0, 251,
       "Processed 251 frames at 25.000000 fps, total 11 seconds (out of 74 seconds reserved)",
       EventLevel::Info, kInLine},
      {0, 25.0, 250,
       "Processed 250 frames at 25.000000 fps, total 10 seconds (out of 1800 seconds reserved)",
       EventLevel::Info, nullptr},
      // Frame rates below 1 frame a second: a partial second still counts, no rate counts none.
      {10, 0.5, 3,
       "Processed 3 frames at 0.500000 fps, total 5 seconds (out of 74 seconds reserved)",
       EventLevel::Info, kInLine},
      {10, 0.0, 3,
       "Processed 3 frames at 0.000000 fps, total 0 seconds (out of 74 seconds reserved)",
       EventLevel::Info, kInLine},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.totals);
    Framework::Testing::ScopedLogRecording log;
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, c.duration, c.framesPerSecond));
    ASSERT_EQ(c.frames, channel.Feed(c.frames));
    ASSERT_TRUE(channel->StopProcessor());
    EXPECT_TRUE(log->Has(EventLevel::Info, c.totals));
    int verdicts = 0;
    for (const auto& line : log->Lines()) {
      if (line.text.rfind("Aforementioned actual duration", 0) == 0) ++verdicts;
    }
    EXPECT_EQ(c.verdict != nullptr ? 1 : 0, verdicts);
    if (c.verdict != nullptr) {
      EXPECT_TRUE(log->Has(c.verdictLevel, c.verdict));
    }
  }
}

TEST_F(ChannelLifecycleTest, RunsAgainAfterStop) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  const GrantedSlot first = channel.Slot();
  ASSERT_EQ(50, channel.Feed(50));
  EXPECT_TRUE(channel->DeliverFrame(nullptr));  // taken, and ignored
  ASSERT_TRUE(channel->StopProcessor());
  EXPECT_FALSE(channel->DeliverFrame(nullptr));

  ASSERT_TRUE(channel->InitProcessor());
  ASSERT_TRUE(channel->StartProcessor());
  const GrantedSlot second = channel.Slot();
  ASSERT_EQ(30, channel.Feed(30));
  ASSERT_TRUE(channel->StopProcessor());
  channel->DeinitProcessor();

  EXPECT_EQ(1, LogCount(EventLevel::Info,
                        "Processed 50 frames at 25.000000 fps, total 2 seconds (out of 74 "
                        "seconds reserved)"));
  EXPECT_EQ(1, LogCount(EventLevel::Info,
                        "Processed 30 frames at 25.000000 fps, total 2 seconds (out of 74 "
                        "seconds reserved)"));
  EXPECT_EQ(74u, second.seconds);
  // A second reservation: another CID, or the same one after the first slot.
  EXPECT_TRUE(second.cid != first.cid || SecondsBetween(first.start, second.start) >= 74.0);
  EXPECT_TRUE(listener_.Texts(Kind::Error).empty());
}

// --- Listener and licence messages ---

TEST_F(ChannelListenerTest, LicenceMessagesWaitForAListenerOnlyWhenInvalidated) {
  TestChannel channel;
  std::vector<std::string> raised;
  const auto connection =
      channel->GetLicenseInvalidatedSignal().ConnectFor<Framework::LicenseInvalidatedEvent>(
          [&raised](const Framework::LicenseInvalidatedEvent& event) {
            raised.push_back(event.GetMessage());
          });
  auto& licenser = channel->GetLicenser();

  licenser.SetProperty("Valid", false);
  channel->CheckLicense();
  ASSERT_EQ(1u, raised.size());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
  EXPECT_EQ(raised[0], channel->GetLastErrorText());

  channel->SetProgramName("Demo");  // another property leaves the queue alone
  channel->SetListener(&listener_);
  channel->SetListener(&listener_);
  EXPECT_EQ(Strings{raised[0]}, listener_.Texts(Kind::Error));

  SCOPED_TRACE("a null listener makes messages wait again");
  channel->SetListener(nullptr);
  channel->CheckLicense();
  RecordingListener later;
  channel->SetListener(&later);
  EXPECT_EQ(Strings{raised[1]}, later.Texts(Kind::Error));
  EXPECT_EQ(1u, listener_.Texts(Kind::Error).size());

  SCOPED_TRACE("a warning goes only to a listener that is set");
  licenser.SetProperty("Valid", true);
  licenser.SetProperty("DaysLeft", 10);
  channel->SetListener(nullptr);
  channel->CheckLicense();
  channel->SetListener(&later);
  EXPECT_TRUE(later.Texts(Kind::Warning).empty());
  channel->CheckLicense();
  EXPECT_EQ(Strings{kLicenceWarning}, later.Texts(Kind::Warning));
  EXPECT_EQ(1u, later.Texts(Kind::Error).size());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorLicenseInvalidated, channel->GetLastError());
}

// --- Framework events ---

TEST_F(ChannelEventsTest, AFormatChangeOrAnAllocationFailureStopsTheChannelOnce) {
  static const struct {
    Framework::FrameworkEvent kind;
    const char* printed;
  } cases[] = {
      {Framework::FrameworkEvent::FormatChanged, "Format changed to: 1280x720 yuv422p 50 fps\n"},
      {Framework::FrameworkEvent::MemoryAllocationError, "no memory for 8 frames\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    Framework::Testing::ScopedLogRecording log;
    TestChannel channel;
    // One frame a second: every embedded frame adds a second to what the embedder reports.
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0, 1.0));
    std::vector<Framework::CompletedEvent> completed;
    const auto connection = channel->GetChannelSignal(Framework::ChannelSignal::Completed)
                                .ConnectFor<Framework::CompletedEvent>(
                                    [&completed](const Framework::CompletedEvent& event) {
                                      completed.push_back(event);
                                    });
    ASSERT_EQ(3, channel.Feed(3));
    ASSERT_EQ(3u, channel.Embedder().GetEmbeddedDurationInSeconds());

    ::testing::internal::CaptureStdout();
    if (c.kind == Framework::FrameworkEvent::FormatChanged) {
      Framework::FormatChangedEvent event;
      event.SetNewFormat(
          Framework::VideoFormatInfo(Framework::PixelLayout::Yuv422P8, 1280, 720, 50.0).ToString());
      channel->GetFrameworkSignal(c.kind).Raise(event);
    } else {
      Framework::MemoryAllocationErrorEvent event;
      event.SetText("no memory for 8 frames");
      channel->GetFrameworkSignal(c.kind).Raise(event);
    }
    EXPECT_EQ(c.printed, ::testing::internal::GetCapturedStdout());

    EXPECT_TRUE(channel.FeedOne());  // taken by the host's delivery, not embedded
    EXPECT_FALSE(channel.FeedOne());
    EXPECT_EQ(ProcessorState::Stopped, channel->GetState());
    EXPECT_EQ(3u, channel.Embedder().GetEmbeddedDurationInSeconds());
    ASSERT_EQ(1u, completed.size());
    EXPECT_EQ("Stopped by Media", completed[0].GetText());
    EXPECT_TRUE(completed[0].GetErrorAbort());
    EXPECT_EQ(100.0, completed[0].GetProgress());
    EXPECT_EQ("", completed[0].GetSenderType());
    EXPECT_EQ(channel->GetSender(), completed[0].GetSender());
    EXPECT_TRUE(log->Has(EventLevel::Info,
                         "Processed 3 frames at 1.000000 fps, total 3 seconds (out of 1800 "
                         "seconds reserved)"));
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  }
}

TEST_F(ChannelEventsTest, RelaysTheHostsProgressAndCompletionWhileStarted) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  std::vector<Framework::ProgressEvent> progress;
  std::vector<std::string> completed;
  const auto progressConnection =
      channel->GetChannelSignal(Framework::ChannelSignal::Progress)
          .ConnectFor<Framework::ProgressEvent>(
              [&progress](const Framework::ProgressEvent& event) { progress.push_back(event); });
  const auto completedConnection = channel->GetChannelSignal(Framework::ChannelSignal::Completed)
                                       .ConnectFor<Framework::CompletedEvent>(
                                           [&completed](const Framework::CompletedEvent& event) {
                                             completed.push_back(event.GetText());
                                           });

  Framework::ProgressEvent step;
  step.SetSender(channel->GetSender() + 1000);
  step.SetText("halfway");
  step.SetProgress(50);
  channel->GetFrameworkSignal(Framework::FrameworkEvent::Progress).Raise(step);
  Framework::CompletedEvent done;
  done.SetText("end of input");
  channel->GetFrameworkSignal(Framework::FrameworkEvent::Completed).Raise(done);

  ASSERT_EQ(1u, progress.size());
  EXPECT_EQ(channel->GetSender(), progress[0].GetSender());
  EXPECT_EQ("halfway", progress[0].GetText());
  EXPECT_EQ(50.0, progress[0].GetProgress());
  EXPECT_EQ(Strings{"end of input"}, completed);

  SCOPED_TRACE("after Stop the host's events no longer reach the channel");
  ASSERT_TRUE(channel->StopProcessor());
  channel->GetFrameworkSignal(Framework::FrameworkEvent::Progress).Raise(step);
  channel->GetFrameworkSignal(Framework::FrameworkEvent::Completed).Raise(done);
  EXPECT_EQ(1u, progress.size());
  EXPECT_EQ(1u, completed.size());
}

}  // namespace
}  // namespace QuillmarTesting
