// Loading a JSON configuration: what a load keeps, and every message.
#include "config/ConfigurationReader.h"

#include <gtest/gtest.h>

#include <sstream>

#include "config/ConfigTestSupport.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::LoadText;
using Testing::Replaced;

// A valid configuration with two entries: "Good", then "P", which the failing cases break.
constexpr char kValid[] = R"({"ContentProcessor": {"Version": "0.3", "Facility": "F",
    "SharedDatabase": "db", "UniqueIdentifier": "u", "Name": "n",
    "Detector": {"VWM": {"DisplayAllWatermarks": true, "DisplayEIDS": [1, 2]}},
    "ContentProcessingParameters": [
      {"Name": "Good", "VWM": {"EIDS": [5], "GlobalDepth": 2.5, "MaxLocalDepth": 1},
       "MetadataFields": [{"DisplayName": "k", "FieldName": "f"}, {"DisplayName": "k",
                           "FieldName": "g"}]},
      {"Name": "P", "ContentType": "news",
       "VWM": {"EIDS": [7], "GlobalDepth": 3.5, "MaxLocalDepth": 2}}]}})";

// What a load kept: facility, the optional members ("-" when absent), then each entry's content
// type, first metadata field, EIDs and depths.
std::string Kept(const ContentProcessorSettings& settings) {
  std::ostringstream text;
  text << settings.facility << " " << (settings.hasSharedDatabase ? settings.sharedDatabase : "-")
       << " " << (settings.hasUniqueIdentifier ? settings.uniqueIdentifier : "-") << " "
       << (settings.hasName ? settings.name : "-");
  for (const ProgramEntry& entry : settings.programs) {
    const auto field = entry.metadataFields.begin();
    text << " | " << ContentTypeName(entry.contentType) << " "
         << (field != entry.metadataFields.end() ? field->first + "=" + field->second : "-");
    for (const std::int64_t eid : entry.vwm.eids) text << " " << eid;
    text << " " << entry.vwm.globalDepth << "/" << entry.vwm.maxLocalDepth;
  }
  return text.str();
}

TEST(ConfigurationReader, WhatALoadKeepsAndEveryMessage) {
  const std::string kept = "F db u n | user_defined k=f 5 2.5/1 | news itemid=story_id 7 3.5/2";
  EXPECT_EQ(Kept(LoadText(kValid, false).settings), kept);
  const std::string p = " ContentProcessingParameters with name P";
  const std::string neither =
      "neither ContentType nor MetadataFields in" + p + ". One of those MUST be defined!";
  const std::string fields = R"("MetadataFields": [{"DisplayName": "a", "FieldName": "b"})";
  const struct {
    const char* from;  // null: the whole text is `to`
    std::string to;
    std::string error;               // the last error text; for a load not checked when empty
    const char* keptFrom = nullptr;  // null: the load fails; else what differs in what it kept
    const char* keptTo = "";
  } cases[] = {
      // The first member of a name counts; names are compared exactly.
      {R"("F",)", R"("F", "Facility": 5, "facility": 5,)", "", ""},
      {"[7], \"GlobalDepth\": 3.5, \"MaxLocalDepth\": 2",
       "[9, 4294967295], \"GlobalDepth\": 3, \"MaxLocalDepth\": -1", "", "7 3.5/2",
       "9 4294967295 3/-1"},
      // An optional member of another type counts as absent; the finder's message stays.
      {R"("db")", "1", "SharedDatabase in ContentProcessor should be of type string", "db", "-"},
      {R"("u")", "[]", "UniqueIdentifier in ContentProcessor should be of type string", "u", "-"},
      {R"("n")", "{}", "Name in ContentProcessor should be of type string", "n", "-"},
      {R"("news")", R"(1, "MetadataFields": [{"DisplayName": "a", "FieldName": "b"}])",
       "ContentType in ContentProcessingParameters[1] should be of type string",
       "news itemid=story_id", "user_defined a=b"},
      {R"("news")", R"("news", "MetadataFields": {})",
       "MetadataFields in" + p + " should be of type array", ""},
      {nullptr, "[1]", "JSON root object should be of type object"},
      {nullptr, "{}", "ContentProcessor not found in JSON root object"},
      {nullptr, R"({"ContentProcessor": []})",
       "ContentProcessor in JSON root object should be of type object"},
      {R"("Version": "0.3",)", "", "Version not found in ContentProcessor"},
      {R"("0.3")", "0.3", "Version in ContentProcessor should be of type string"},
      {R"("0.3", "Facility": "F",)", R"("0.2",)", "JSON format version not support!"},
      {R"("Facility": "F",)", "", "Facility not found in ContentProcessor"},
      {R"("Detector")", R"("detector")", "Detector not found in ContentProcessor"},
      {R"("VWM")", R"("Other")", "VWM not found in Detector"},
      {"true", "1", "DisplayAllWatermarks in VWM of Detector should be of type boolean"},
      {"[1, 2]", "7", "DisplayEIDS in VWM of Detector should be of type array"},
      {"[1, 2]", "[1, 2.0]",
       "values of array \"DisplayEIDS\" should be of type integer in VWM of Detector"},
      {"ContentProcessingParameters", "Other",
       "ContentProcessingParameters not found in ContentProcessor"},
      {"ContentProcessingParameters\"", R"(ContentProcessingParameters": {}, "X")",
       "ContentProcessingParameters in ContentProcessor should be of type array"},
      {R"("Name": "P", )", "", "Name not found in ContentProcessingParameters[1]"},
      {R"("P")", "5", "Name in ContentProcessingParameters[1] should be of type string"},
      {R"({"Name": "P")", R"(7, {"Name": "P")", "Name not found in ContentProcessingParameters[1]"},
      {R"("news")", R"("NEWS")", "ContentType in" + p + " is not a valid ContentType"},
      {R"("news")", "1", neither},
      {R"("VWM": {"EIDS": [7])", R"("Other": {"EIDS": [7])", "VWM not found in" + p},
      {R"({"EIDS": [7], "GlobalDepth": 3.5, "MaxLocalDepth": 2})", "[]",
       "VWM in" + p + " should be of type object"},
      {R"("EIDS": [7])", R"("Other": [7])", "EIDS not found in VWM of" + p},
      {"[7]", "[]", "List of EIDS is empty in VWM of" + p},
      {"[7]", R"([7, "8"])", "values of array \"EIDS\" should be of type integer in VWM of" + p},
      {R"("GlobalDepth": 3.5)", R"("Other": 3.5)", "GlobalDepth not found in VWM of" + p},
      {"3.5", R"("3")", "GlobalDepth in VWM of" + p + " should be of type integer"},
      {R"("MaxLocalDepth": 2)", R"("Other": 2)", "MaxLocalDepth not found in VWM of" + p},
      {R"("MaxLocalDepth": 2)", R"("MaxLocalDepth": 2.0)",
       "MaxLocalDepth in VWM of" + p + " should be of type integer"},
      {R"("ContentType": "news",)", R"("MetadataFields": [],)",
       "List of Metadata fields is empty in" + p},
      {R"("ContentType": "news",)", R"("MetadataFields": {},)", neither},
      {R"("ContentType": "news",)", fields + R"(, {"FieldName": "c"}],)",
       "DisplayName not found in element 1 of MetadataFields in" + p},
      {R"("ContentType": "news",)", fields + R"(, {"DisplayName": "c", "FieldName": 2}],)",
       "FieldName not found in element 1 of MetadataFields in" + p},
      {R"("ContentType": "news",)", R"("MetadataFields": [5],)",
       "DisplayName not found in element 0 of MetadataFields in" + p},
      {R"("ContentType": "news",)", R"("ContentType": "news", )" + fields + "],",
       "both ContentType AND MetadataFields defined in" + p + ". Only ONE of those MUST be "
       "defined!"},
      {R"("ContentType": "news",)", "", neither},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.to);
    const auto result = LoadText(c.from != nullptr ? Replaced(kValid, c.from, c.to) : c.to, false);
    EXPECT_EQ(result.loaded, c.keptFrom != nullptr) << result.errorText;
    if (c.keptFrom != nullptr) {
      EXPECT_EQ(Kept(result.settings), Replaced(kept, c.keptFrom, c.keptTo));
    }
    if (c.keptFrom == nullptr || !c.error.empty()) {
      EXPECT_EQ(result.errorText, c.error);
    }
  }
  // The entries before a failing one stay in the model.
  const auto failed = LoadText(Replaced(kValid, R"("ContentType": "news",)", ""), false);
  ASSERT_EQ(failed.settings.programs.size(), 1u);
  EXPECT_EQ(failed.settings.programs[0].name, "Good");
}

}  // namespace
}  // namespace QuillmarBasebandSDK
