// The channel's hand-off of a finished run to the encodation log: what the record holds, the
// metadata checks (warnings only), the older six-text form, and the aborts.
#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

using Framework::EventLevel;
using Line = Framework::Testing::RecordingLogSink::Line;
using Metadata = std::map<std::string, std::string>;

constexpr char kKeysUnknown[] =
    "QuillmarBasebandSDKChannel::WriteEncodationLog cannot determine selected metadata keys. "
    "Aborted!";
constexpr char kObsoleteCalled[] =
    "User called OBSOLETE QuillmarBasebandSDKChannel::WriteEncodationLog. Mapping to the new "
    "format!";

const std::vector<std::pair<std::string, std::string>> kDefaultFields = {
    {"itemid", "ItemId"}, {"slug", "Slug"}, {"note", "Note"}};

Metadata MetadataOf(const boost::json::object& record) {
  Metadata metadata;
  if (!record.contains("Metadata")) return metadata;
  for (const auto& field : record.at("Metadata").as_object()) {
    metadata[std::string(field.key())] = std::string(field.value().as_string());
  }
  return metadata;
}

std::string Text(const boost::json::object& record, const char* name) {
  return record.contains(name) ? std::string(record.at(name).as_string()) : "";
}

// Whether `lines` holds `expected` in this order (other lines may come between).
bool InOrder(const std::vector<Line>& lines, const std::vector<Line>& expected) {
  auto next = expected.begin();
  for (const Line& line : lines) {
    if (next != expected.end() && line.level == next->level && line.text == next->text) ++next;
  }
  return next == expected.end();
}

class ChannelEncodationLogTest : public ChannelTest {
 protected:
  ChannelEncodationLogTest() {
    configuration_.programs = {{"Demo", {101, 102, 103}, kDefaultFields}};
  }

  // Starts a run of `durationSeconds` whose embedder writes to encodationLog_.
  void StartLoggedRun(TestChannel& channel, std::uint32_t durationSeconds) {
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, durationSeconds));
    channel.Embedder().SetProperty("EncodationLogFile", encodationLog_);
  }

  const std::string encodationLog_ = folder_.File("encodation.jsonl");
};

TEST_F(ChannelEncodationLogTest, TheRecordFollowsTheFinalisedSlot) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 0));
  ASSERT_EQ(50, channel.Feed(50));
  ASSERT_EQ(2u, channel.Embedder().GetEmbeddedDurationInSeconds());
  const GrantedSlot slot = channel.Slot();

  channel->WriteEncodationLog("host", "input", "third", {{"itemid", "42"}});

  const boost::json::object record = LastEncodationRecord(encodationLog_);
  EXPECT_EQ("host", Text(record, "HostText1"));
  EXPECT_EQ("input", Text(record, "HostText2"));
  EXPECT_EQ("Test Playout", Text(record, "Facility"));
  EXPECT_EQ("third", Text(record, "HostText3"));
  EXPECT_EQ((Metadata{{"itemid", "42"}}), MetadataOf(record));
  std::stringstream configText;
  configText << std::ifstream(configPath_).rdbuf();
  const std::string checksum(boost::json::parse(configText.str()).at("Checksum").as_string());
  EXPECT_EQ(checksum, Text(record, "ConfigurationChecksum"));
  EXPECT_EQ(0.0, record.at("AverageEnergy").as_double());
  EXPECT_EQ(slot.cid, record.at("CID").to_number<unsigned>());

  // Finalised before the record was written: the slot keeps the 2 seconds embedded + 1.
  EXPECT_TRUE(InOrder(log_->Lines(), {{EventLevel::Info, "FinalizeEmbedding done"},
                                      {EventLevel::Info,
                                       "LumensealBasebandEmbedderPlugin::WriteEncodationLog; "
                                       "record written to " +
                                           encodationLog_}}));
  const CID_Timestamp_Lock_Record row = RowOf(databasePath_, slot.cid);
  EXPECT_DOUBLE_EQ(3.0, SecondsBetween(slot.start, row.Timestamp));
}

TEST_F(ChannelEncodationLogTest, MetadataIsCheckedAgainstTheProgramsFieldsAndAlwaysKept) {
  static const struct {
    const char* key;
    std::vector<Line> lines;
  } cases[] = {
      {"itemid", {}},
      {"Slug",
       {{EventLevel::Warning,
         "QuillmarBasebandSDKChannel::WriteEncodationLog: Slug is not allowed metadata "
         "DisplayName"},
        {EventLevel::Warning, "...but it matches a valid FieldName. Can proceed."}}},
      {"rating",
       {{EventLevel::Warning,
         "QuillmarBasebandSDKChannel::WriteEncodationLog: rating is not allowed metadata "
         "DisplayName"},
        {EventLevel::Error,
         "...and no matching FieldName. Will proceed with user-defined name, but encodation "
         "import may fail!"}}},
  };
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 10));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    Framework::Testing::ScopedLogRecording log;
    channel->WriteEncodationLog("host", "input", "third", {{c.key, "value"}});
    std::vector<Line> checks;
    for (const Line& line : log->Lines()) {
      if (line.text.find("DisplayName") != std::string::npos || line.text.rfind("...", 0) == 0) {
        checks.push_back(line);
      }
    }
    ASSERT_EQ(c.lines.size(), checks.size());
    for (std::size_t i = 0; i < checks.size(); ++i) {
      EXPECT_EQ(c.lines[i].level, checks[i].level);
      EXPECT_EQ(c.lines[i].text, checks[i].text);
    }
    EXPECT_EQ((Metadata{{c.key, "value"}}), MetadataOf(LastEncodationRecord(encodationLog_)));
  }
}

TEST_F(ChannelEncodationLogTest, AnUnknownProgramAbortsBothFormsBeforeFinalising) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 0));
  channel->SetProgramName("Late Show");
  for (const bool obsolete : {false, true}) {
    SCOPED_TRACE(obsolete ? "six texts" : "metadata map");
    Framework::Testing::ScopedLogRecording log;
    if (obsolete) {
      channel->WriteEncodationLog("1", "2", "3", "4", "5", "6");
    } else {
      channel->WriteEncodationLog("host", "input", "third", {{"itemid", "42"}});
    }
    EXPECT_TRUE(InOrder(log->Lines(), {{EventLevel::Error,
                                        "Selected program Late Show not found in the config file"},
                                       {EventLevel::Error, kKeysUnknown}}));
    EXPECT_FALSE(log->Has(EventLevel::Info, "FinalizeEmbedding..."));
  }
  EXPECT_FALSE(std::filesystem::exists(encodationLog_));
  EXPECT_TRUE(IsLocked(RowOf(databasePath_, channel.Slot().cid)));
}

// Stop releases the configuration: the record belongs before Stop, and after it is refused.
TEST_F(ChannelEncodationLogTest, AfterStopNoRecordIsWritten) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 10));
  ASSERT_TRUE(channel->StopProcessor());
  channel->WriteEncodationLog("host", "input", "third", {{"itemid", "42"}});
  EXPECT_TRUE(InOrder(log_->Lines(),
                      {{EventLevel::Error, "Selected program Demo not found in the config file"},
                       {EventLevel::Error, kKeysUnknown}}));
  EXPECT_FALSE(std::filesystem::exists(encodationLog_));
}

TEST_F(ChannelEncodationLogTest, TheSixTextFormWritesUnderTheDefaultKeys) {
  static const struct {
    std::vector<std::pair<std::string, std::string>> fields;
    Line line;
  } cases[] = {
      {{{"itemid", "ItemId"}, {"slug", "Slug"}},
       {EventLevel::Warning,
        "QuillmarBasebandSDKChannel::WriteEncodationLog: active program has too little metadata "
        "fields defined. Will append default keys!"}},
      // Kept in the order of their display names, the fields begin "itemid", "note", "slug".
      {kDefaultFields,
       {EventLevel::Error,
        "First three metadata fields in active program: \"%1%\", \"%2%\", \"%3%\" differ from "
        "default names: \"itemid\", \"slug\", \"note\". Will use default keys!"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line.text);
    configuration_.programs = {{"Demo", {101, 102, 103}, c.fields}};
    Framework::Testing::ScopedLogRecording log;
    TestChannel channel;
    ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 10));
    channel->WriteEncodationLog("s1", "s2", "s3", "s4", "s5", "s6");

    EXPECT_TRUE(
        InOrder(log->Lines(),
                {{EventLevel::Warning, kObsoleteCalled},
                 c.line,
                 {EventLevel::Info, "Calling QuillmarBasebandSDKChannel::WriteEncodationLog"}}));
    const boost::json::object record = LastEncodationRecord(encodationLog_);
    EXPECT_EQ("s1", Text(record, "HostText1"));
    EXPECT_EQ("s2", Text(record, "HostText2"));
    EXPECT_EQ("s3", Text(record, "HostText3"));
    EXPECT_EQ((Metadata{{"itemid", "s4"}, {"slug", "s5"}, {"note", "s6"}}), MetadataOf(record));
  }
}

}  // namespace
}  // namespace QuillmarTesting
