// Program entries: every entry message, what a valid entry holds, and what a failing entry
// leaves behind.
#include "config/ConfigurationReader.h"

#include <gtest/gtest.h>

#include "config/ConfigTestSupport.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::DocumentWithEntries;
using Testing::LoadText;

std::string Entry(const std::string& name, const std::string& rest) {
  return R"({"Name": ")" + name + "\", " + rest + "}";
}

constexpr char kVwm[] = R"("VWM": {"EIDS": [7], "GlobalDepth": 3, "MaxLocalDepth": 2})";

TEST(ProgramEntries, EveryEntryMessage) {
  const std::string vwm = kVwm;
  const std::string type = R"("ContentType": "news", )";
  static const struct {
    std::string entry;
    std::string error;
  } cases[] = {
      {R"({"VWM": {}})", "Name not found in ContentProcessingParameters[0]"},
      {R"({"Name": 5})", "Name in ContentProcessingParameters[0] should be of type string"},
      {"7", "Name not found in ContentProcessingParameters[0]"},
      {Entry("P", R"("ContentType": "Direct_Response", )" + vwm),
       "ContentType in ContentProcessingParameters with name P is not a valid ContentType"},
      {Entry("P", R"("ContentType": "NEWS", )" + vwm),
       "ContentType in ContentProcessingParameters with name P is not a valid ContentType"},
      // An optional member of another type counts as absent.
      {Entry("P", R"("ContentType": 1, )" + vwm),
       "neither ContentType nor MetadataFields in ContentProcessingParameters with name P. One of "
       "those MUST be defined!"},
      {Entry("P", R"("ContentType": "news")"), "VWM not found in ContentProcessingParameters with name P"},
      {Entry("P", type + R"("VWM": [])"),
       "VWM in ContentProcessingParameters with name P should be of type object"},
      {Entry("P", type + R"("VWM": {"GlobalDepth": 3, "MaxLocalDepth": 2})"),
       "EIDS not found in VWM of ContentProcessingParameters with name P"},
      {Entry("P", type + R"("VWM": {"EIDS": [], "GlobalDepth": 3, "MaxLocalDepth": 2})"),
       "List of EIDS is empty in VWM of ContentProcessingParameters with name P"},
      {Entry("P", type + R"("VWM": {"EIDS": [1, "2"], "GlobalDepth": 3, "MaxLocalDepth": 2})"),
       "values of array \"EIDS\" should be of type integer in VWM of ContentProcessingParameters "
       "with name P"},
      {Entry("P", type + R"("VWM": {"EIDS": [1], "MaxLocalDepth": 2})"),
       "GlobalDepth not found in VWM of ContentProcessingParameters with name P"},
      {Entry("P", type + R"("VWM": {"EIDS": [1], "GlobalDepth": "3", "MaxLocalDepth": 2})"),
       "GlobalDepth in VWM of ContentProcessingParameters with name P should be of type integer"},
      {Entry("P", type + R"("VWM": {"EIDS": [1], "GlobalDepth": 3})"),
       "MaxLocalDepth not found in VWM of ContentProcessingParameters with name P"},
      {Entry("P", type + R"("VWM": {"EIDS": [1], "GlobalDepth": 3, "MaxLocalDepth": 2.0})"),
       "MaxLocalDepth in VWM of ContentProcessingParameters with name P should be of type integer"},
      {Entry("P", vwm + R"(, "MetadataFields": [])"),
       "List of Metadata fields is empty in ContentProcessingParameters with name P"},
      {Entry("P", vwm + R"(, "MetadataFields": {})"),
       "neither ContentType nor MetadataFields in ContentProcessingParameters with name P. One of "
       "those MUST be defined!"},
      {Entry("P", vwm + R"(, "MetadataFields": [{"DisplayName": "a", "FieldName": "b"},
                                                {"FieldName": "c"}])"),
       "DisplayName not found in element 1 of MetadataFields in ContentProcessingParameters with "
       "name P"},
      {Entry("P", vwm + R"(, "MetadataFields": [{"DisplayName": "a"}])"),
       "FieldName not found in element 0 of MetadataFields in ContentProcessingParameters with "
       "name P"},
      {Entry("P", vwm + R"(, "MetadataFields": [{"DisplayName": "a", "FieldName": 2}])"),
       "FieldName not found in element 0 of MetadataFields in ContentProcessingParameters with "
       "name P"},
      {Entry("P", vwm + R"(, "MetadataFields": [5])"),
       "DisplayName not found in element 0 of MetadataFields in ContentProcessingParameters with "
       "name P"},
      {Entry("P", type + vwm + R"(, "MetadataFields": [{"DisplayName": "a", "FieldName": "b"}])"),
       "both ContentType AND MetadataFields defined in ContentProcessingParameters with name P. "
       "Only ONE of those MUST be defined!"},
      {Entry("P", vwm),
       "neither ContentType nor MetadataFields in ContentProcessingParameters with name P. One of "
       "those MUST be defined!"},
  };
  for (const auto& c : cases) {
    const auto result = LoadText(DocumentWithEntries(c.entry), false);
    EXPECT_FALSE(result.loaded) << c.entry;
    EXPECT_EQ(result.errorText, c.error) << c.entry;
  }
}

TEST(ProgramEntries, ValidEntriesHoldWhatTheFileSays) {
  const std::string entries =
      Entry("A", R"("ContentType": "news", "VWM": {"EIDS": [7], "GlobalDepth": 3, "MaxLocalDepth": 2})") +
      "," +
      Entry("B", R"("VWM": {"EIDS": [9, 8, 4294967295], "GlobalDepth": 2.5, "MaxLocalDepth": -1},
                   "MetadataFields": [{"DisplayName": "z", "FieldName": "first"},
                                      {"DisplayName": "a", "FieldName": "x"},
                                      {"DisplayName": "z", "FieldName": "second"}])") +
      "," + Entry("C", R"("ContentType": "DirectResponse", "VWM": {"EIDS": [1], "GlobalDepth": 3.0, "MaxLocalDepth": 0})");
  const auto result = LoadText(DocumentWithEntries(entries), false);
  ASSERT_TRUE(result.loaded) << result.errorText;
  const auto& programs = result.settings.programs;
  ASSERT_EQ(programs.size(), 3u);

  EXPECT_EQ(programs[0].name, "A");
  EXPECT_EQ(programs[0].vwm.name, "A");
  EXPECT_EQ(programs[0].contentType, ContentType::News);
  EXPECT_EQ(programs[0].vwm.eids, (std::vector<std::int64_t>{7}));
  EXPECT_FLOAT_EQ(programs[0].vwm.globalDepth, 3.0f);
  EXPECT_EQ(programs[0].vwm.maxLocalDepth, 2);
  EXPECT_TRUE(programs[0].vwm.parametersSet);
  EXPECT_EQ(programs[0].metadataFields, (MetadataFieldMap{{"itemid", "story_id"}, {"slug", "slug"},
                                                           {"note", "notes"}}));

  EXPECT_EQ(programs[1].contentType, ContentType::UserDefined);
  EXPECT_EQ(programs[1].vwm.eids, (std::vector<std::int64_t>{9, 8, 4294967295}));
  EXPECT_FLOAT_EQ(programs[1].vwm.globalDepth, 2.5f);
  EXPECT_EQ(programs[1].vwm.maxLocalDepth, -1);
  // The same DisplayName twice keeps one key.
  EXPECT_EQ(programs[1].metadataFields, (MetadataFieldMap{{"a", "x"}, {"z", "first"}}));

  EXPECT_EQ(programs[2].contentType, ContentType::DirectResponse);
  EXPECT_FLOAT_EQ(programs[2].vwm.globalDepth, 3.0f);
  EXPECT_EQ(programs[2].metadataFields.size(), 9u);
}

TEST(ProgramEntries, EntriesBeforeAFailingOneStay) {
  const std::string good = Entry("Good", R"("ContentType": "news", )" + std::string(kVwm));
  const std::string bad = Entry("Bad", kVwm);
  const auto result = LoadText(DocumentWithEntries(good + "," + bad + "," + good), false);
  EXPECT_FALSE(result.loaded);
  EXPECT_EQ(result.errorText,
            "neither ContentType nor MetadataFields in ContentProcessingParameters with name Bad. "
            "One of those MUST be defined!");
  ASSERT_EQ(result.settings.programs.size(), 1u);
  EXPECT_EQ(result.settings.programs[0].name, "Good");

  const auto second = LoadText(DocumentWithEntries(good + "," + good + ", 1"), false);
  EXPECT_EQ(second.errorText, "Name not found in ContentProcessingParameters[2]");
  EXPECT_EQ(second.settings.programs.size(), 2u);
}

TEST(ProgramEntries, ALoadStartsFromAnEmptyModel) {
  const Testing::TemporaryFolder folder;
  const std::string good = Entry("Good", R"("ContentType": "news", )" + std::string(kVwm));
  const std::string path = folder.Write("c.json", Testing::Signed(DocumentWithEntries(good)));
  ConfigurationReader reader(path);
  ASSERT_TRUE(reader.Load(true));
  ASSERT_TRUE(reader.Settings().checksumValid);
  folder.Write("c.json", "{}");
  EXPECT_FALSE(reader.Load(false));
  EXPECT_TRUE(reader.Settings().programs.empty());
  EXPECT_FALSE(reader.Settings().checksumValid);
  EXPECT_TRUE(reader.Settings().checksumText.empty());
  EXPECT_FALSE(reader.Settings().hasSharedDatabase);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
