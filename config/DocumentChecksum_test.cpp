#include "config/DocumentChecksum.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationSigner.h"
#include "config/JsonDocument.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::LoadText;
using Testing::Signed;

TEST(DocumentChecksum, CanonicalText) {
  static const struct {
    const char* json;
    const char* canonical;
  } cases[] = {
      {R"({"a" : "\u0062", "b": true, "c": false})", R"(a"b"btruecfalse)"},
      {R"({"n": null, "a": [null, 1, "x", [2, 3], {"k": null, "m": 4}]})", R"(a1"x"23m4)"},
      {R"({"Checksum": "00000000", "a": {"Checksum": 5, "b": 1}, "c": [{"Checksum": 1}]})",
       "ab1c"},
      {R"({"SharedDatabase": "C:\\db", "Other": "C:\\t", "x": {"SharedDatabase": "a\\b"},
          "SharedDatabase": 5})",
       R"(SharedDatabase"C:\\db"Other"C:\t"xSharedDatabase"a\\b"SharedDatabase5)"},
      {R"({"r": 3.0, "s": 3.5, "t": 0.1234567, "u": 1e-7, "v": 1234567.0})",
       "r3s3.5t0.123457u1e-07v1.23457e+06"},
      {R"({"i": -12, "w": 18446744073709551615, "a": 1, "a": 2, "e": {}, "f": []})",
       "i-12w18446744073709551615a1a2ef"},
      // Text in an 8-bit code page (Windows-1252 "Soci\xe9t\xe9") is kept byte for byte.
      {"{\"F\": \"Soci\xe9t\xe9\"}", "F\"Soci\xe9t\xe9\""},
  };
  for (const auto& c : cases) {
    JsonDocument document;
    ASSERT_TRUE(ParseJsonDocument(c.json, document)) << c.json;
    EXPECT_EQ(document.canonicalText, c.canonical) << c.json;
  }
}

TEST(DocumentChecksum, CheckingTheStoredChecksum) {
  const std::string signedText = Signed(Testing::DocumentWithEntries(""));
  const std::string checksum = LoadText(signedText, true).settings.checksumText;
  std::string upper = checksum;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  ASSERT_NE(upper, checksum) << "the checksum needs a letter digit";
  const std::string upperText = Testing::Replaced(signedText, checksum, upper);
  const std::string type = "Checksum in JSON root object should be of type string";
  const struct {
    std::string text;
    bool checkCrc;
    std::string error;  // empty: loads, with a valid checksum when checked
  } cases[] = {
      {signedText, true, ""},
      {upperText, true, "CRC error"},
      {upperText, false, ""},
      {Testing::Replaced(signedText, "\"" + checksum + "\"", "12345678"), true, type},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const auto result = LoadText(c.text, c.checkCrc);
    EXPECT_EQ(result.loaded, c.error.empty());
    EXPECT_EQ(result.errorText, c.error);
    EXPECT_EQ(result.settings.checksumValid, c.checkCrc && c.error.empty());
    EXPECT_EQ(result.settings.checksumText, c.checkCrc && c.error.empty() ? checksum : "");
  }
}

TEST(ConfigurationSigner, InsertsTheChecksumOrRefuses) {
  EXPECT_EQ(Signed("{}"), "{\n  \"Checksum\": \"00000000\"}");
  for (const char* text : {R"({"Checksum": 5})", R"({"Checksum": "a\u0062"})", "[1, 2]"}) {
    std::string output;
    std::string error;
    EXPECT_FALSE(SignConfiguration(text, "c.json", "c.json", true, output, error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
