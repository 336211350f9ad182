#include "config/MemberFinder.h"

#include <gtest/gtest.h>

#include "config/ConfigTestSupport.h"
#include "config/JsonDocument.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::LoadText;

TEST(MemberFinder, TypeNames) {
  static const struct {
    JsonType type;
    const char* name;
  } cases[] = {
      {JsonType::Object, "object"},   {JsonType::Array, "array"},
      {JsonType::String, "string"},   {JsonType::Boolean, "boolean"},
      {JsonType::Integer, "integer"}, {JsonType::Real, "real"},
      {JsonType::Null, "null"},       {static_cast<JsonType>(42), "???"},
  };
  for (const auto& c : cases) EXPECT_STREQ(JsonTypeName(c.type), c.name);
}

TEST(MemberFinder, FindsTheFirstExactMatchOrSaysWhy) {
  JsonDocument document;
  ASSERT_TRUE(ParseJsonDocument(
      R"({"s": "one", "s": "two", "i": 3, "r": 3.0, "n": null, "b": true, "o": {}, "a": []})",
      document));
  static const struct {
    const char* key;
    JsonType type;
    const char* error;  // empty: found
  } cases[] = {
      {"s", JsonType::String, ""},
      {"i", JsonType::Integer, ""},
      {"r", JsonType::Real, ""},
      {"n", JsonType::Null, ""},
      {"b", JsonType::Boolean, ""},
      {"o", JsonType::Object, ""},
      {"a", JsonType::Array, ""},
      {"S", JsonType::String, "src - S not found in ctx"},
      {"i", JsonType::Real, "src - i in ctx should be of type real"},
      {"r", JsonType::Integer, "src - r in ctx should be of type integer"},
      {"s", JsonType::Object, "src - s in ctx should be of type object"},
      {"n", JsonType::String, "src - n in ctx should be of type string"},
      {"o", JsonType::Array, "src - o in ctx should be of type array"},
      {"a", JsonType::Boolean, "src - a in ctx should be of type boolean"},
      {"b", JsonType::Null, "src - b in ctx should be of type null"},
  };
  for (const auto& c : cases) {
    std::string error = "earlier error";
    const MemberFinder finder("src", error);
    const JsonValue* found = finder.Find(document.root, c.key, c.type, "ctx");
    EXPECT_EQ(found != nullptr, *c.error == '\0') << c.key;
    EXPECT_EQ(error, *c.error == '\0' ? "earlier error" : c.error) << c.key;
  }
  std::string error;
  std::string value;
  EXPECT_TRUE(MemberFinder("src", error).FindString(document.root, "s", "ctx", value));
  EXPECT_EQ(value, "one");
}

TEST(MemberFinder, ReaderMessagesOutsideTheEntries) {
  const std::string processor = R"("Version": "0.3", "Facility": "F", "SharedDatabase": "db",
      "Detector": {"VWM": {"DisplayAllWatermarks": true, "DisplayEIDS": [1, 2]}},
      "ContentProcessingParameters": [])";
  auto document = [](const std::string& members) {
    return "{\"ContentProcessor\": {" + members + "}}";
  };
  auto without = [&](const std::string& part, const std::string& replacement = "") {
    std::string text = processor;
    text.replace(text.find(part), part.size(), replacement);
    return document(text);
  };
  static const struct {
    std::string text;
    std::string error;
  } cases[] = {
      {"[1]", "JSON root object should be of type object"},
      {"{}", "ContentProcessor not found in JSON root object"},
      {R"({"ContentProcessor": []})", "ContentProcessor in JSON root object should be of type object"},
      {without(R"("Version": "0.3",)"), "Version not found in ContentProcessor"},
      {without(R"("Version": "0.3")", R"("Version": 0.3)"),
       "Version in ContentProcessor should be of type string"},
      {without(R"("0.3")", R"("0.2")"), "JSON format version not support!"},
      {without(R"("0.3", "Facility": "F",)", R"("0.2",)"), "JSON format version not support!"},
      {without(R"("Facility": "F",)"), "Facility not found in ContentProcessor"},
      {without(R"("Detector": {"VWM": {"DisplayAllWatermarks": true, "DisplayEIDS": [1, 2]}},)"),
       "Detector not found in ContentProcessor"},
      {without(R"({"VWM": {"DisplayAllWatermarks": true, "DisplayEIDS": [1, 2]}})", "{}"),
       "VWM not found in Detector"},
      {without(R"("DisplayAllWatermarks": true)", R"("DisplayAllWatermarks": 1)"),
       "DisplayAllWatermarks in VWM of Detector should be of type boolean"},
      {without("[1, 2]", "7"), "DisplayEIDS in VWM of Detector should be of type array"},
      {without("[1, 2]", R"([1, "2"])"),
       "values of array \"DisplayEIDS\" should be of type integer in VWM of Detector"},
      {without("[1, 2]", "[1, 2.0]"),
       "values of array \"DisplayEIDS\" should be of type integer in VWM of Detector"},
      {without(R"("ContentProcessingParameters": [])", R"("Other": [])"),
       "ContentProcessingParameters not found in ContentProcessor"},
      {without(R"("ContentProcessingParameters": [])", R"("ContentProcessingParameters": {})"),
       "ContentProcessingParameters in ContentProcessor should be of type array"},
  };
  for (const auto& c : cases) {
    const auto result = LoadText(c.text, false);
    EXPECT_FALSE(result.loaded) << c.text;
    EXPECT_EQ(result.errorText, c.error) << c.text;
  }
  const auto valid = LoadText(document(processor), false);
  ASSERT_TRUE(valid.loaded) << valid.errorText;
  EXPECT_TRUE(valid.settings.detector.displayAllWatermarks);
  EXPECT_EQ(valid.settings.detector.displayEids, (std::vector<std::int64_t>{1, 2}));
  EXPECT_EQ(valid.settings.sharedDatabase, "db");
  EXPECT_TRUE(valid.settings.hasSharedDatabase);
  EXPECT_FALSE(valid.settings.hasName);
  EXPECT_FALSE(valid.settings.hasUniqueIdentifier);

  // Optional members of another type count as absent; the finder's message is the last error.
  const auto wrongTypes = LoadText(without(R"("SharedDatabase": "db")",
                                           R"("SharedDatabase": 1, "UniqueIdentifier": [], "Name": {})"),
                                   false);
  ASSERT_TRUE(wrongTypes.loaded) << wrongTypes.errorText;
  EXPECT_FALSE(wrongTypes.settings.hasSharedDatabase || wrongTypes.settings.hasUniqueIdentifier ||
               wrongTypes.settings.hasName);
  EXPECT_EQ(wrongTypes.errorText, "Name in ContentProcessor should be of type string");
}

TEST(MemberFinder, ErrorTextNamesTheFileAndTheLastErrorWins) {
  const Testing::TemporaryFolder folder;
  const std::string path = folder.Write("named.json", "{}");
  ConfigurationReader reader(path);
  EXPECT_FALSE(reader.Load(true));
  EXPECT_EQ(reader.ErrorText(), path + " - Checksum not found in JSON root object");
  EXPECT_FALSE(reader.Load(false));
  EXPECT_EQ(reader.ErrorText(), path + " - ContentProcessor not found in JSON root object");

  ConfigurationReader missing(path + ".absent");
  EXPECT_FALSE(missing.Load(true));
  EXPECT_EQ(missing.ErrorText(), path + ".absent not found");
}

}  // namespace
}  // namespace QuillmarBasebandSDK
