// The embedding session of the channel: how it retries reserving its time slot, gives it back,
// extends and finalises it in a real time-slot file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "framework/Logger.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
using QuillmarBasebandSDK::Testing::Plus;
using QuillmarBasebandSDK::Testing::SetRow;
using ChannelSessionTest = ChannelTest;

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
constexpr char kLeaseLost[] = "active lock does not match database. Processing took too long?";

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Turns the file `blocked` into a folder when the third failed attempt is logged.
class FolderAfterThirdAttempt : public Framework::LogSink {
 public:
  explicit FolderAfterThirdAttempt(fs::path blocked) : blocked_(std::move(blocked)) {}
  void Write(const Framework::LogRecord& record) override {
    if (!StartsWith(record.text, Format(kRetry, 7, ""))) return;
    fs::remove(blocked_);
    fs::create_directory(blocked_);
  }
  void WriteLine(const std::string&) override {}
  std::string Target() const override { return "test"; }

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
    if (c.comesBack) Framework::Logger::AddSink(comeBack);
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
      const std::string left = Format(kRetry, 9 - i, c.reason);
      EXPECT_PRED2(StartsWith, retries[i], left);
    }
    EXPECT_EQ(c.comesBack, log->Has(EventLevel::Info, kRecovered));
    if (c.comesBack) {
      EXPECT_EQ(Strings{}, listener.Texts(Kind::Error));
      EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
      EXPECT_TRUE(channel->StartProcessor());
      continue;
    }
    const std::string reason = channel->GetLastErrorText();
    EXPECT_PRED2(StartsWith, reason, c.reason);
    EXPECT_EQ(kNoAttemptsLeft + reason, lastError);
    EXPECT_EQ(QuillmarBasebandEmbedder::ErrorTimeslotAllocation, channel->GetLastError());
    EXPECT_EQ(Strings{reason}, listener.Texts(Kind::Error));
  }
}

TEST_F(ChannelSessionTest,
       InitAgainReleasesTheSlotOfAFailedStartAndDeletingAStartedChannelItsLease) {
  // One CID: a lease still held from the run that never started would leave nothing to reserve.
  configuration_.programs = {{"Demo", {201}, {}}};
  GrantedSlot slot;
  {
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
    slot = channel.Slot();
    // The unused slot went back whole: the new one starts no later than the old one would have.
    EXPECT_NEAR(1800.0, SecondsBetween(slot.start, first.Timestamp), 1.0);
  }
  const CID_Timestamp_Lock_Record row = RowOf(databasePath_, 201);
  EXPECT_FALSE(IsLocked(row));
  EXPECT_DOUBLE_EQ(1800.0, SecondsBetween(slot.start, row.Timestamp));
  EXPECT_EQ(Strings{}, listener_.Texts(Kind::Error));
}

// Another embedder's lease in the file (as when this one took too long) makes every extension
// and finalisation fail.
TEST_F(ChannelSessionTest, AnOpenEndedSlotIsExtendedFromItsLastSecondWhileTheLeaseHolds) {
  TestChannel channel;
  // One frame a second: the slot's last second begins after 1799 frames.
  ASSERT_NO_FATAL_FAILURE(StartRun(channel, 0, 1.0));
  const GrantedSlot slot = channel.Slot();
  ASSERT_EQ(1800u, slot.seconds);
  const CID_Timestamp_Lock_Record held = RowOf(databasePath_, slot.cid);
  SetRow(databasePath_, slot.cid, held.Timestamp, Plus(held.LockedTill, 1000));
  ASSERT_EQ(1799, channel.Feed(1799));
  EXPECT_EQ(0, LogCount(EventLevel::Info, kExtending));
  ASSERT_EQ(3, channel.Feed(3));
  const std::string failed =
      std::string(
          "QuillmarBasebandSDKChannel::ExtendTimeslot failed. Failure reason: "
          "EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot failed: ") +
      kLeaseLost + ". Will retry next frame.";
  EXPECT_EQ(Strings(3, failed), listener_.Texts(Kind::Error));
  EXPECT_EQ(3, LogCount(EventLevel::Error, failed));
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
  EXPECT_EQ(10,
            LogCount(EventLevel::Warning,
                     std::string("FinalizeEmbedding failed: EmbedderDatabaseV2::FinalizeEmbedding "
                                 "failed: ") +
                         kLeaseLost + ". Will retry."));
  EXPECT_EQ(1, LogCount(EventLevel::Error, "FinalizeEmbedding definitely failed"));
  EXPECT_EQ(QuillmarBasebandEmbedder::ErrorNone, channel->GetLastError());
  EXPECT_EQ(3u, listener_.Texts(Kind::Error).size());
}

}  // namespace
}  // namespace QuillmarTesting
