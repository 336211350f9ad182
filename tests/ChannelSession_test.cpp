// The embedding session of the channel: how it retries reserving its time slot, gives it back,
// extends and finalises it in a real time-slot file, and hands the run to the encodation log;
// and under concurrency: Stop on the control thread while the processing thread hands over
// frames, and channels in one process and in two processes on one time-slot file.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "detector-api/CBasebandWMDetection.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/CompletedEvent.h"
#include "framework/Logger.h"
#include "framework/testing/ChildProcess.h"
#include "plugins/detector/DetectorSimulation.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using QuillmarBasebandSDK::TimeTicks;
using QuillmarBasebandSDK::Testing::Plus;
using QuillmarBasebandSDK::Testing::SetRow;
using ChannelSessionTest = ChannelTest;
using ChannelConcurrencyTest = ChannelTest;
using ChannelEncodationLogTest = ChannelTest;

const std::string kRetry =
    "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: (%d) attempts left: "
    "failure reason: %s";
constexpr char kNoAttemptsLeft[] =
    "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: no attempts left: "
    "failure reason: ";
constexpr char kRecovered[] =
    "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot recovered from previous DB access "
    "problem.";
constexpr char kAccessFailure[] =
    "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error in accessing shared database. "
    "Perhaps you didn't provide the full path, or the file does not exist and cannot be created, "
    "or in a wrong format. Shared database is a file, not a folder! Error details as follows: ";
constexpr char kNoFreeCid[] =
    "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error allocating timeslot for "
    "embedding. EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed: cannot find suitable record";
constexpr char kExtending[] =
    "ExtendTimeslot - allocated embedding allocated timeslot almost completely used. Extending...";

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Turns the file `blocked` into a folder when the third failed attempt is logged.
class FolderAfterThirdAttempt : public Framework::Testing::RecordingLogSink {
 public:
  explicit FolderAfterThirdAttempt(fs::path blocked) : blocked_(std::move(blocked)) {}
  void Write(const Framework::LogRecord& record) override {
    if (!StartsWith(record.text, Format(kRetry, 7, ""))) return;
    fs::remove(blocked_);
    fs::create_directory(blocked_);
  }

 private:
  const fs::path blocked_;
};

TEST_F(ChannelSessionTest, AllocationTriesTenTimesAndRecoversWhenTheDatabaseComesBack) {
  static const struct {
    const char* cause;
    const char* reason;  // how the text of every failed attempt begins
    bool comesBack;      // the database's folder appears when the third failure is logged
  } cases[] = {
      {"the database's folder is a file for three attempts", kAccessFailure, true},
      {"the database's folder is a file", kAccessFailure, false},
      {"the program's only CID is leased by another channel", kNoFreeCid, false},
  };
  int caseNumber = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.cause);
    Framework::Testing::ScopedLogRecording log;
    RecordingListener listener;
    const fs::path blocked = folder_.File("blocked" + std::to_string(++caseNumber));
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
    EXPECT_EQ(c.comesBack, log->Has(EventLevel::Info, kRecovered));
    if (c.comesBack) {
      EXPECT_EQ(Strings{}, listener.Texts(Kind::kError));
      EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
      EXPECT_TRUE(channel->StartProcessor());
      continue;
    }
    const std::string reason = channel->GetLastErrorText();
    EXPECT_PRED2(StartsWith, reason, c.reason);
    EXPECT_EQ(kNoAttemptsLeft + reason, lastError);
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorTimeslotAllocation, channel->GetLastError());
    EXPECT_EQ(Strings{reason}, listener.Texts(Kind::kError));
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
  EXPECT_EQ(4, LogCount(EventLevel::Info, kExtending));
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

TEST_F(ChannelEncodationLogTest, TheRecordFollowsTheFinalisedSlotAndTheMeasuredEnergies) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0));
  const GrantedSlot slot = channel.Slot();
  auto& embedderSignal = channel.Embedder().GetEventSignal();
  // Energies at or below -0.5 carry no measurement.
  for (const float energy : {-0.5f, Framework::VWMEmbeddingEvent::kNoEnergy, -0.49f}) {
    embedderSignal.Raise(Framework::VWMEmbeddingEvent(energy));
  }
  // While a prior watermark is present a report says so and is not averaged.
  channel.Detector().SetProperty(DetectorSimulation::kPresence,
                                 CBasebandWMDetection{CBasebandWMDetection::kPresent, 0.0});
  ASSERT_TRUE(channel.FeedOne());
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(0.25f));
  EXPECT_EQ((Strings{"-0.49 embedding", "0.25 bypassing"}), listener_.Texts(Kind::kEnergy));

  channel->WriteEncodationLog("host", "input", "third", {{"Slug", "42"}});
  const json::object record = LastEncodationRecord(encodationLog_);
  // The texts and metadata are checked with the records of the next test.
  EXPECT_EQ("Test Playout", record.at("Facility"));
  EXPECT_EQ(ChecksumOf(configPath_), record.at("ConfigurationChecksum").as_string().c_str());
  EXPECT_EQ(slot.cid, record.at("CID").to_number<unsigned>());
  EXPECT_FLOAT_EQ(-0.49f, record.at("AverageEnergy").as_double());
  // Finalised before the record was written: the slot keeps the 0 seconds embedded + 1.
  EXPECT_TRUE(InOrder(log_->Lines(), {{EventLevel::Info, "FinalizeEmbedding done"},
                                      {EventLevel::Info,
                                       "LumensealBasebandEmbedderPlugin::WriteEncodationLog; "
                                       "record written to " +
                                           encodationLog_}}));
  EXPECT_DOUBLE_EQ(1.0, SecondsBetween(slot.start, RowOf(databasePath_, slot.cid).Timestamp));
}

// Records asked for, in one run, under the run's program, another program and an unknown one.
TEST_F(ChannelEncodationLogTest, RecordsFollowTheNamedProgramsFieldsOrAbortBeforeFinalising) {
  const std::string kWrite = "QuillmarBasebandSDKChannel::WriteEncodationLog";
  const std::string kObsolete = "warning: User called OBSOLETE " + kWrite +
                                ". Mapping to the new "
                                "format!";
  const std::string kKeysUnknown = kWrite + " cannot determine selected metadata keys. Aborted!";
  const std::string kNoFieldName =
      "error: ...and no matching FieldName. Will proceed with "
      "user-defined name, but encodation import may fail!";
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
            ": active program has too little metadata fields defined. Will "
            "append default keys!",
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
    for (const Line& line : log->Lines()) {
      if (line.level != EventLevel::Info) {
        problems.push_back((line.level == EventLevel::Error ? "error: " : "warning: ") + line.text);
      }
    }
    EXPECT_EQ(c.problems, problems);
    const json::object record = LastEncodationRecord(encodationLog_);
    EXPECT_EQ(!c.metadata.empty(), record.at("HostText1") == first.c_str());
    EXPECT_EQ(!c.metadata.empty(), log->Has(EventLevel::Info, "FinalizeEmbedding..."));
    if (!c.metadata.empty()) {
      EXPECT_EQ(c.metadata, record.at("Metadata"));
      EXPECT_EQ("2", record.at("HostText2"));
      EXPECT_EQ("3", record.at("HostText3"));
    }
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

TEST_F(ChannelConcurrencyTest, TwoChannelsInOneProcessNeverHoldOneCidForOverlappingTime) {
  configuration_.programs = {{"Demo", {101, 102}, {}}};
  std::array<TestChannel, 2> channels;
  for (TestChannel& channel : channels) Configure(channel, 0);
  const auto inParallel = [](const std::function<void(std::size_t)>& step) {
    std::thread other([&] { step(1); });
    step(0);
    other.join();
  };
  std::vector<RunSlot> runs;
  for (int round = 0; round < 8; ++round) {
    SCOPED_TRACE(round);
    // Open-ended and requested runs in turn; both slots are reserved before either run ends.
    channels[0]->SetEmbeddingDuration(round % 2 == 0 ? 0 : 5);
    channels[1]->SetEmbeddingDuration(round % 4 < 2 ? 0 : 5);
    std::array<bool, 2> done{};
    std::array<RunSlot, 2> roundRuns;
    inParallel([&](std::size_t i) { done[i] = channels[i]->InitProcessor(); });
    ASSERT_TRUE(done[0] && done[1]);
    inParallel([&](std::size_t i) { done[i] = EmbedAndStop(channels[i], roundRuns[i]); });
    ASSERT_TRUE(done[0] && done[1]);
    EXPECT_EQ(Strings{}, Overlaps({roundRuns[0], roundRuns[1]}, &RunSlot::grantedEnd));
    runs.insert(runs.end(), roundRuns.begin(), roundRuns.end());
  }
  EXPECT_EQ(Strings{}, Overlaps(runs, &RunSlot::keptEnd));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::kError));
}

TEST_F(ChannelConcurrencyTest, ChannelsInTwoProcessesNeverKeepOneCidForOverlappingTime) {
  constexpr int kProcesses = 2, kRounds = 8;
  configuration_.programs = {{"Demo", {101, 102}, {}}};
  const std::string config = WriteConfiguration(configPath_, configuration_);
  const auto runsFile = [this](int process) { return folder_.File(std::to_string(process)); };
  // Forked while this process has one thread and no database connection.
  std::vector<std::unique_ptr<Framework::Testing::ChildProcess>> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(std::make_unique<Framework::Testing::ChildProcess>([&, process] {
      std::ofstream out(runsFile(process));
      TestChannel channel;
      channel.Configure(config, configuration_, "Demo", 0, nullptr);
      for (int round = 0; round < kRounds; ++round) {
        channel->SetEmbeddingDuration((round + process) % 2 == 0 ? 0 : 5);
        RunSlot run;
        if (!channel->InitProcessor() || !EmbedAndStop(channel, run)) return 1;
        out << run.cid << ' ' << run.start << ' ' << run.grantedEnd << ' ' << run.keptEnd << '\n';
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
  ASSERT_EQ(static_cast<std::size_t>(kProcesses * kRounds), runs.size());
  EXPECT_EQ(Strings{}, Overlaps(runs, &RunSlot::keptEnd));
}

}  // namespace
}  // namespace QuillmarTesting
