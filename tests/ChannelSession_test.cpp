// The embedding session of the channel: the time slot it reserves, how it retries, extends and
// finalises it in a real time-slot file, and the embedder's energy reports.
#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <filesystem>
#include <fstream>

#include "events/VWMEmbeddingEvent.h"
#include "detector-api/CBasebandWMDetection.h"
#include "plugins/detector/DetectorSimulation.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using Framework::EventLevel;
using QuillmarBasebandSDK::Testing::Plus;
using QuillmarBasebandSDK::Testing::SetRow;
using Kind = ListenerReport::Kind;
using ChannelSessionTest = ChannelTest;

constexpr char kRetryPrefix[] =
    "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: (";
constexpr char kRetryMiddle[] = ") attempts left: failure reason: ";
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
constexpr char kLeaseLostExtension[] =
    "QuillmarBasebandSDKChannel::ExtendTimeslot failed. Failure reason: "
    "EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot failed: active lock does not match "
    "database. Processing took too long?. Will retry next frame.";

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

struct RetryWarning {
  int attemptsLeft;
  std::string reason;
};

// The allocation's retry warnings among `warnings`, in order.
std::vector<RetryWarning> RetryWarnings(const Strings& warnings) {
  std::vector<RetryWarning> retries;
  for (const std::string& line : warnings) {
    if (!StartsWith(line, kRetryPrefix)) continue;
    const std::size_t number = std::string(kRetryPrefix).size();
    const std::size_t middle = line.find(kRetryMiddle, number);
    if (middle == std::string::npos) continue;
    retries.push_back({std::stoi(line.substr(number, middle - number)),
                       line.substr(middle + std::string(kRetryMiddle).size())});
  }
  return retries;
}

SYSTEMTIME Now() {
  SYSTEMTIME now;
  Framework::GetCurrentUtcTime(&now);
  return now;
}

// --- Reserving the slot ---

TEST_F(ChannelSessionTest, TheSlotLengthFollowsTheRequestedDuration) {
  static const struct {
    std::uint32_t requested;
    std::uint64_t slotSeconds;
    int leaseSeconds;  // 0: no lease
  } cases[] = {{0, 1800, 7200}, {1, 63, 0}, {24, 91, 0}, {3600, 4561, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.requested);
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, c.requested));
    const SYSTEMTIME now = Now();
    const GrantedSlot slot = channel.Slot();
    EXPECT_EQ(c.slotSeconds, slot.seconds);
    EXPECT_EQ(1, LogCount(EventLevel::Info,
                          (boost::format("Allocating timeslot from the shared database %1%, "
                                         "requested %2% seconds") %
                           databasePath_ % c.requested)
                              .str()));
    EXPECT_EQ(1, LogCount(EventLevel::Info,
                          (boost::format("QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot "
                                         "allocated EID %d for %d seconds.") %
                           slot.cid % c.slotSeconds)
                              .str()));
    const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
    EXPECT_DOUBLE_EQ(static_cast<double>(c.slotSeconds), SecondsBetween(slot.start, row.Timestamp));
    if (c.leaseSeconds == 0) {
      EXPECT_FALSE(IsLocked(row));
    } else {
      EXPECT_NEAR(c.leaseSeconds, SecondsBetween(now, row.LockedTill), 5.0);
    }
    ASSERT_TRUE(channel->StopProcessor());
  }
}

TEST_F(ChannelSessionTest, AllocationRecoversWhenTheDatabaseBecomesReachable) {
  // The database's folder is a file until the third failure has been logged.
  const std::filesystem::path blocked = folder_.File("blocked");
  std::ofstream(blocked) << "not a folder";
  configuration_.sharedDatabase = (blocked / "slots.db").string();
  const std::string thirdFailure = std::string(kRetryPrefix) + "7" + kRetryMiddle;
  ScopedLogHook unblock([&](EventLevel, const std::string& text) {
    if (!StartsWith(text, thirdFailure)) return;
    std::filesystem::remove(blocked);
    std::filesystem::create_directory(blocked);
  });

  TestChannel channel;
  Configure(channel, 10);
  EXPECT_TRUE(channel->InitProcessor());

  const std::vector<RetryWarning> retries = RetryWarnings(LogLines(EventLevel::Warning));
  ASSERT_EQ(3u, retries.size());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(9 - i, retries[i].attemptsLeft);
    EXPECT_PRED2(StartsWith, retries[i].reason, kAccessFailure);
  }
  EXPECT_EQ(1, LogCount(EventLevel::Info, kRecovered));
  EXPECT_TRUE(listener_.Texts(Kind::Error).empty());
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  EXPECT_TRUE(std::filesystem::is_regular_file(configuration_.sharedDatabase));
  EXPECT_TRUE(channel->StartProcessor());
}

TEST_F(ChannelSessionTest, TenFailedAttemptsEndInTheTimeslotError) {
  static const struct {
    const char* cause;
    const char* reasonPrefix;
  } cases[] = {{"the database's folder is a file", kAccessFailure},
               {"the program's only CID is leased by another channel", kNoFreeCid}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.cause);
    Framework::Testing::ScopedLogRecording log;
    RecordingListener listener;
    TestChannel holder;
    if (c.reasonPrefix == kAccessFailure) {
      std::ofstream(folder_.File("blocked")) << "not a folder";
      configuration_.sharedDatabase = folder_.File("blocked/slots.db");
    } else {
      configuration_.sharedDatabase = databasePath_;
      configuration_.programs = {{"Demo", {201}, {}}};
      ASSERT_NO_FATAL_FAILURE(StartRun(holder, 0));
    }
    TestChannel channel;
    Configure(channel, 10);
    channel->SetListener(&listener);
    EXPECT_FALSE(channel->InitProcessor());

    Strings warnings;
    std::string lastError;
    for (const auto& line : log->Lines()) {
      if (line.level == EventLevel::Warning) warnings.push_back(line.text);
      if (line.level == EventLevel::Error && StartsWith(line.text, kNoAttemptsLeft)) {
        lastError = line.text;
      }
    }
    const std::vector<RetryWarning> retries = RetryWarnings(warnings);
    ASSERT_EQ(9u, retries.size());
    for (int i = 0; i < 9; ++i) {
      EXPECT_EQ(9 - i, retries[i].attemptsLeft);
      EXPECT_PRED2(StartsWith, retries[i].reason, c.reasonPrefix);
    }
    const std::string reason = channel->GetLastErrorText();
    EXPECT_PRED2(StartsWith, reason, c.reasonPrefix);
    EXPECT_EQ(kNoAttemptsLeft + reason, lastError);
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorTimeslotAllocation, channel->GetLastError());
    EXPECT_EQ(Strings{reason}, listener.Texts(Kind::Error));
    EXPECT_FALSE(log->Has(EventLevel::Info, kRecovered));
  }
}

TEST_F(ChannelSessionTest, InitAgainAfterAFailedStartReleasesTheUnusedSlot) {
  // One CID: a lease still held from the run that never started would leave nothing to reserve.
  configuration_.programs = {{"Demo", {201}, {}}};
  TestChannel channel;
  Configure(channel, 0);
  channel->SetFormatInfo(Framework::VideoFormatInfo());
  ASSERT_TRUE(channel->InitProcessor());
  const CID_Timestamp_Lock_Record first = RowOf(databasePath_, 201);
  ASSERT_TRUE(IsLocked(first));
  ASSERT_FALSE(channel->StartProcessor());

  channel->SetFormatInfo(SmallFormat());
  ASSERT_TRUE(channel->InitProcessor());
  ASSERT_TRUE(channel->StartProcessor());
  // The unused slot went back whole: the new one starts no later than the old one would have.
  EXPECT_LT(SecondsBetween(channel.Slot().start, first.Timestamp), 1800.5);
  EXPECT_GT(SecondsBetween(channel.Slot().start, first.Timestamp), 1799.0);
  EXPECT_TRUE(listener_.Texts(Kind::Error).empty());
}

// --- Extending and finalising an open-ended slot ---

TEST_F(ChannelSessionTest, AnOpenEndedSlotIsExtendedFromItsLastSecond) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0));
  const GrantedSlot slot = channel.Slot();
  ASSERT_EQ(1800u, slot.seconds);
  std::vector<std::uint64_t> embeddedAtAttempts;
  ScopedLogHook attempts([&](EventLevel, const std::string& text) {
    if (text == kExtending)
      embeddedAtAttempts.push_back(channel.Embedder().GetEmbeddedDurationInSeconds());
  });

  constexpr int kFramesPerSecond = 25;
  int frames = 0;
  while (embeddedAtAttempts.empty() && frames < 1801 * kFramesPerSecond && channel.FeedOne())
    ++frames;
  ASSERT_EQ(1u, embeddedAtAttempts.size());
  EXPECT_EQ(1799u, embeddedAtAttempts[0]);
  EXPECT_EQ(1799 * kFramesPerSecond + 1, frames);
  EXPECT_EQ(3600u, channel.Slot().seconds);
  EXPECT_EQ(1, LogCount(EventLevel::Info, "ExtendTimeslot - done"));
  const CID_Timestamp_Lock_Record extended = RowOf(databasePath_, slot.cid);
  EXPECT_DOUBLE_EQ(3600.0, SecondsBetween(slot.start, extended.Timestamp));
  EXPECT_NEAR(7200.0, SecondsBetween(Now(), extended.LockedTill), 5.0);

  ASSERT_EQ(10 * kFramesPerSecond, channel.Feed(10 * kFramesPerSecond));
  EXPECT_EQ(1u, embeddedAtAttempts.size());
  const std::uint64_t embedded = channel.Embedder().GetEmbeddedDurationInSeconds();
  ASSERT_TRUE(channel->StopProcessor());
  const CID_Timestamp_Lock_Record finalised = RowOf(databasePath_, slot.cid);
  EXPECT_DOUBLE_EQ(static_cast<double>(embedded + 1),
                   SecondsBetween(slot.start, finalised.Timestamp));
  EXPECT_FALSE(IsLocked(finalised));
  EXPECT_TRUE(listener_.Texts(Kind::Error).empty());
}

TEST_F(ChannelSessionTest, AFailedExtensionIsReportedAndRetriedOnEveryFrame) {
  TestChannel channel;
  // One frame a second, so that the slot's last second comes soon.
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0, 1.0));
  const GrantedSlot slot = channel.Slot();
  const CID_Timestamp_Lock_Record held = RowOf(databasePath_, slot.cid);
  // The lease in the file is no longer the one the channel wrote.
  SetRow(databasePath_, slot.cid, held.Timestamp, Plus(held.LockedTill, 1000));

  ASSERT_EQ(1799, channel.Feed(1799));
  EXPECT_TRUE(listener_.Texts(Kind::Error).empty());
  ASSERT_EQ(3, channel.Feed(3));
  EXPECT_EQ(Strings(3, kLeaseLostExtension), listener_.Texts(Kind::Error));
  EXPECT_EQ(3, LogCount(EventLevel::Error, kLeaseLostExtension));
  EXPECT_EQ(1800u, channel.Slot().seconds);

  SetRow(databasePath_, slot.cid, held.Timestamp, held.LockedTill);
  ASSERT_EQ(1, channel.Feed(1));
  EXPECT_EQ(3600u, channel.Slot().seconds);
  EXPECT_EQ(1, LogCount(EventLevel::Info, "ExtendTimeslot - done"));
  ASSERT_EQ(5, channel.Feed(5));
  EXPECT_EQ(4, LogCount(EventLevel::Info, kExtending));
  EXPECT_EQ(3u, listener_.Texts(Kind::Error).size());
  EXPECT_DOUBLE_EQ(3600.0, SecondsBetween(slot.start, RowOf(databasePath_, slot.cid).Timestamp));
}

// --- Energy reports ---

TEST_F(ChannelSessionTest, EnergyReportsAtOrBelowMinusHalfCarryNoMeasurement) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 10));
  const std::string encodationLog = folder_.File("encodation.jsonl");
  channel.Embedder().SetProperty("EncodationLogFile", encodationLog);
  auto& embedderSignal = channel.Embedder().GetEventSignal();
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(-0.5f));
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(Framework::VWMEmbeddingEvent::kNoEnergy));
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(-0.49f));

  std::vector<ListenerReport> reports = listener_.Of(Kind::EmbeddingReport);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ(-0.49f, static_cast<float>(reports[0].value));
  EXPECT_TRUE(reports[0].flag);

  SCOPED_TRACE("while a prior watermark is present a report says so and is not averaged");
  channel.Detector().SetProperty(DetectorSimulation::kPresence,
                                 CBasebandWMDetection{CBasebandWMDetection::kPresent, 0.0});
  ASSERT_TRUE(channel.FeedOne());
  embedderSignal.Raise(Framework::VWMEmbeddingEvent(0.25f));
  reports = listener_.Of(Kind::EmbeddingReport);
  ASSERT_EQ(2u, reports.size());
  EXPECT_EQ(0.25f, static_cast<float>(reports[1].value));
  EXPECT_FALSE(reports[1].flag);

  channel->WriteEncodationLog("host", "input", "Demo", {});
  const boost::json::object record = LastEncodationRecord(encodationLog);
  ASSERT_TRUE(record.contains("AverageEnergy"));
  EXPECT_FLOAT_EQ(-0.49f, static_cast<float>(record.at("AverageEnergy").as_double()));
}

}  // namespace
}  // namespace QuillmarTesting
