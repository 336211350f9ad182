// The channel's hand-off of a finished run to the encodation log: what the record holds, the
// metadata checks (warnings only), the older six-text form, and the aborts.
#include <gtest/gtest.h>

#include "detector-api/CBasebandWMDetection.h"
#include "events/VWMEmbeddingEvent.h"
#include "plugins/detector/DetectorSimulation.h"
#include "tests/ChannelTestSupport.h"

namespace QuillmarTesting {
namespace {

namespace json = boost::json;

class ChannelEncodationLogTest : public ChannelTest {
 protected:
  ChannelEncodationLogTest() {
    configuration_.programs = {
        {"Demo", {101, 102, 103}, {{"itemid", "ItemId"}, {"slug", "Slug"}, {"note", "Note"}}},
        {"Short", {104}, {{"itemid", "ItemId"}, {"slug", "Slug"}}}};
  }

  // Starts a run of `seconds` whose embedder writes to encodationLog_.
  void StartLoggedRun(TestChannel& channel, std::uint32_t seconds) {
    ASSERT_NO_FATAL_FAILURE(StartRun(channel, seconds));
    channel.Embedder().SetProperty("EncodationLogFile", encodationLog_);
  }

  const std::string encodationLog_ = folder_.File("encodation.jsonl");
};

TEST_F(ChannelEncodationLogTest, TheRecordFollowsTheFinalisedSlotAndTheMeasuredEnergies) {
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 0));
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
  EXPECT_EQ((Strings{"-0.49 embedding", "0.25 bypassing"}), listener_.Texts(Kind::EmbeddingReport));

  channel->WriteEncodationLog("host", "input", "third", {{"itemid", "42"}});
  const json::object record = LastEncodationRecord(encodationLog_);
  const json::object expected = {{"HostText1", "host"},
                                 {"HostText2", "input"},
                                 {"Facility", "Test Playout"},
                                 {"HostText3", "third"},
                                 {"Metadata", {{"itemid", "42"}}},
                                 {"ConfigurationChecksum", ChecksumOf(configPath_)},
                                 {"CID", slot.cid}};
  for (const auto& field : expected)
    EXPECT_EQ(field.value(), record.at(field.key())) << field.key();
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
  const std::string kObsolete =
      "warning: User called OBSOLETE QuillmarBasebandSDKChannel::WriteEncodationLog. Mapping to "
      "the new format!";
  const std::string kKeysUnknown =
      "QuillmarBasebandSDKChannel::WriteEncodationLog cannot determine selected metadata keys. "
      "Aborted!";
  const struct {
    const char* program;
    const char* key;        // null: the six-text form
    Strings problems;       // the warnings and errors logged, in order
    json::object metadata;  // of the record; empty: no record
  } cases[] = {
      {"Demo", "itemid", {}, {{"itemid", "value"}}},
      {"Demo",
       "Slug",
       {"warning: QuillmarBasebandSDKChannel::WriteEncodationLog: Slug is not allowed metadata "
        "DisplayName",
        "warning: ...but it matches a valid FieldName. Can proceed."},
       {{"Slug", "value"}}},
      {"Demo",
       "rating",
       {"warning: QuillmarBasebandSDKChannel::WriteEncodationLog: rating is not allowed metadata "
        "DisplayName",
        "error: ...and no matching FieldName. Will proceed with user-defined name, but "
        "encodation import may fail!"},
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
        "warning: QuillmarBasebandSDKChannel::WriteEncodationLog: active program has too little "
        "metadata fields defined. Will append default keys!",
        "warning: QuillmarBasebandSDKChannel::WriteEncodationLog: note is not allowed metadata "
        "DisplayName",
        "error: ...and no matching FieldName. Will proceed with user-defined name, but "
        "encodation import may fail!"},
       {{"itemid", "4"}, {"slug", "5"}, {"note", "6"}}},
      {"Late Show",
       "itemid",
       {"error: Selected program Late Show not found in the config file", "error: " + kKeysUnknown},
       {}},
      {"Late Show",
       nullptr,
       {kObsolete, "error: Selected program Late Show not found in the config file",
        "error: " + kKeysUnknown},
       {}},
  };
  TestChannel channel;
  ASSERT_NO_FATAL_FAILURE(StartLoggedRun(channel, 10));
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

}  // namespace
}  // namespace QuillmarTesting
