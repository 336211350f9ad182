#include "config/DocumentChecksum.h"

#include <gtest/gtest.h>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationSigner.h"
#include "config/JsonDocument.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::DocumentWithEntries;
using Testing::LoadText;
using Testing::Signed;

JsonDocument Parsed(const std::string& text) {
  JsonDocument document;
  EXPECT_TRUE(ParseJsonDocument(text, document)) << text;
  return document;
}

constexpr char kEntry[] = R"({"Name": "P", "ContentType": "news",
    "VWM": {"EIDS": [7], "GlobalDepth": 3, "MaxLocalDepth": 2}})";

TEST(DocumentChecksum, CanonicalText) {
  static const struct {
    const char* json;
    const char* canonical;
  } cases[] = {
      {R"({"a": "b"})", R"(a"b")"},
      {R"({"a": 1, "b": true, "c": false})", "a1btruecfalse"},
      {R"({"n": null, "a": 1})", "a1"},
      {R"({"a": [null, 1, "x", true, [2, 3], {"k": null, "m": 4}]})", R"(a1"x"true23m4)"},
      {R"({"Checksum": "00000000", "a": {"Checksum": 5, "b": 1}})", "ab1"},
      {R"({"a": [{"Checksum": "x"}]})", "a"},
      {R"({"SharedDatabase": "C:\\db\\t.db"})", R"(SharedDatabase"C:\\db\\t.db")"},
      {R"({"Other": "C:\\db\\t.db"})", R"(Other"C:\db\t.db")"},
      {R"({"x": {"SharedDatabase": "a\\b"}})", R"(xSharedDatabase"a\\b")"},
      {R"({"SharedDatabase": 5})", "SharedDatabase5"},
      {R"({"r": 3.0, "s": 3.5, "t": 0.1234567, "u": 1e-7, "v": 1234567.0})",
       "r3s3.5t0.123457u1e-07v1.23457e+06"},
      {R"({"i": -12, "w": 18446744073709551615})", "i-12w18446744073709551615"},
      {R"({"a": 1, "a": 2})", "a1a2"},
      {R"({"e": {}, "f": []})", "ef"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Parsed(c.json).canonicalText, c.canonical) << c.json;
  }
}

TEST(DocumentChecksum, IsCrc32OfTheCanonicalTextInEightLowerCaseDigits) {
  // "123456789" is CRC-32's check string.
  EXPECT_EQ(DocumentChecksum(Parsed(R"({"12345678": 9})")), "cbf43926");
  // The empty text has CRC 0, still written with all eight digits.
  EXPECT_EQ(DocumentChecksum(Parsed("{}")), "00000000");
}

TEST(DocumentChecksum, WhatChangesTheChecksum) {
  const std::string base = Signed(DocumentWithEntries(kEntry));
  const std::string checksum = LoadText(base, true).settings.checksumText;
  ASSERT_EQ(checksum.size(), 8u);
  static const struct {
    const char* from;
    const char* to;
    bool changes;
  } cases[] = {
      {R"("Facility": "F", "SharedDatabase": "db",)", R"("SharedDatabase": "db", "Facility": "F",)",
       true},
      {R"("Facility": "F",)", R"("Facility": "F", "Extra": null,)", false},
      {R"("Version": "0.3",)", R"("Version": "0.3", "Checksum": "12345678",)", false},
      {R"("Detector": {)", R"("Detector": {"Checksum": {"x": 1},)", false},
      {R"("Facility": "F",)", R"("Facility": "F" ,)", false},
      {R"("Facility": "F",)", R"("Facility": "G",)", true},
      {R"("GlobalDepth": 3,)", R"("GlobalDepth": 3.0,)", false},
      {R"("GlobalDepth": 3,)", R"("GlobalDepth": 3.5,)", true},
      {R"("SharedDatabase": "db",)", R"("SharedDatabase": "d\\b",)", true},
  };
  for (const auto& c : cases) {
    std::string changed = base;
    const std::size_t at = changed.find(c.from);
    ASSERT_NE(at, std::string::npos) << c.from;
    changed.replace(at, std::string(c.from).size(), c.to);
    const auto result = LoadText(changed, true);
    EXPECT_EQ(result.loaded, !c.changes) << c.to << ": " << result.errorText;
    if (c.changes) {
      EXPECT_EQ(result.errorText, "CRC error") << c.to;
    }
  }
}

TEST(DocumentChecksum, CheckingTheStoredChecksum) {
  const std::string unsignedText = DocumentWithEntries(kEntry);
  const std::string signedText = Signed(unsignedText);
  const std::string checksum = LoadText(signedText, true).settings.checksumText;
  std::string upper = checksum;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ASSERT_NE(upper, checksum) << "the example checksum needs a letter digit";
  std::string upperText = signedText;
  upperText.replace(upperText.find(checksum), checksum.size(), upper);

  static const struct {
    std::string text;
    bool checkCrc;
    bool loaded;
    bool valid;
    std::string error;
  } cases[] = {
      {signedText, true, true, true, ""},
      {upperText, true, false, false, "CRC error"},
      {upperText, false, true, false, ""},
      {unsignedText, true, false, false, "Checksum not found in JSON root object"},
      {unsignedText, false, true, false, ""},
      {R"({"Checksum": 12345678,)" + unsignedText.substr(1), true, false, false,
       "Checksum in JSON root object should be of type string"},
      {R"({"Checksum": null,)" + unsignedText.substr(1), true, false, false,
       "Checksum in JSON root object should be of type string"},
  };
  for (const auto& c : cases) {
    const auto result = LoadText(c.text, c.checkCrc);
    EXPECT_EQ(result.loaded, c.loaded) << c.text;
    EXPECT_EQ(result.settings.checksumValid, c.valid) << c.text;
    if (!c.error.empty()) {
      EXPECT_EQ(result.errorText, c.error) << c.text;
    }
    if (c.valid) {
      EXPECT_EQ(result.settings.checksumText, checksum);
    }
  }
}

TEST(DocumentChecksum, SigningTouchesOnlyTheChecksumBytes) {
  const std::string unsignedText = "  {\n  \"a\": 1}";
  const std::string inserted = Signed(unsignedText);
  const std::string checksum = DocumentChecksum(Parsed(unsignedText));
  EXPECT_EQ(inserted, "  {\n  \"Checksum\": \"" + checksum + "\",\n  \"a\": 1}");

  const std::string stale = "{\"b\":2, \"Checksum\" :  \"WRONG\" , \"a\":1}";
  const std::string replaced = Signed(stale);
  EXPECT_EQ(replaced,
            "{\"b\":2, \"Checksum\" :  \"" + DocumentChecksum(Parsed(stale)) + "\" , \"a\":1}");
  EXPECT_EQ(Signed("{}"), "{\n  \"Checksum\": \"00000000\"}");

  static const char* const unsignable[] = {
      R"({"Checksum": 5, "a": 1})",
      R"({"Checksum": "a\u0062", "a": 1})",
      R"([1, 2])",
  };
  for (const char* text : unsignable) {
    std::string output;
    std::string error;
    EXPECT_FALSE(SignConfiguration(text, "c.json", "c.json", true, output, error)) << text;
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
