// The line-oriented form: its CRC, both file layouts, and the messages of its section.
#include "config/LineForm.h"

#include <gtest/gtest.h>

#include "config/ConfigTestSupport.h"
#include "config/LineFormCrc.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::LoadText;

TEST(LineFormCrc, KeepsTheBitsAbove16) {
  LineFormCrc crc;
  crc.Update("123456789");
  // The low 16 bits are CRC-16/XMODEM's check value; the rest is what the unmasked register
  // accumulated.
  EXPECT_EQ(crc.Value() & 0xFFFFu, 0x31C3u);
  EXPECT_EQ(crc.Value(), 0xB5A331C3u);
  LineFormCrc empty;
  EXPECT_EQ(empty.Value(), 0u);
}

constexpr char kBody[] =
    "[OTHER]\nCIDs=1\n[COMMON]\nFontPitch=14\nCIDs=11, 12\nProgramNames=One, Two\n"
    "PayloadSize=48_1\nEmbeddingQuality=HIGH_QUALITY\nDefaultProgramName=Two\n";

TEST(LineForm, TextFormLoads) {
  const std::string text = EncodeTextForm(kBody);
  const auto result = LoadText(text, true, "legacy.cfg");
  ASSERT_TRUE(result.loaded) << result.errorText;
  EXPECT_TRUE(result.settings.checksumValid);
  EXPECT_EQ(result.settings.fontPitch, 14);
  ASSERT_EQ(result.settings.programs.size(), 2u);
  EXPECT_EQ(result.settings.programs[1].name, "Two");
  EXPECT_EQ(result.settings.programs[1].vwm.eids, (std::vector<std::int64_t>{11, 12}));
  EXPECT_EQ(result.settings.programs[1].vwm.embeddingQuality, "HIGH_QUALITY");
  EXPECT_EQ(result.settings.programs[1].payloadSize, PayloadSize::Rate48);

  // The CRC covers the characters of the lines, not their ends: CRLF text has the same CRC,
  // and lines after the crc= line are not protected.
  std::string crlf;
  for (const char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_TRUE(LoadText(crlf + "trailing junk\n", true, "legacy.cfg").loaded);
}

TEST(LineForm, CrcFailures) {
  const std::string text = EncodeTextForm(kBody);
  std::string flipped = text;
  flipped[flipped.find("One")] = 'o';
  std::string noCrc = kBody;
  std::string badNumber = std::string(kBody) + "crc=abc\n";
  static const struct {
    std::string text;
    const char* name;
  } cases[] = {
      {flipped, "legacy.cfg"}, {noCrc, "legacy.cfg"}, {badNumber, "legacy.cfg"},
      {"", "empty.cfg"},       {"{\"a\": ", "broken.json"},
      // Nested deeper than the JSON reader accepts.
      {"{\"a\":" + std::string(100, '[') + std::string(100, ']') + "}", "deep.json"},
  };
  for (const auto& c : cases) {
    const auto checked = LoadText(c.text, true, c.name);
    EXPECT_FALSE(checked.loaded);
    EXPECT_EQ(checked.errorText, "CRC error") << c.text;
  }
  const auto unchecked = LoadText(flipped, false, "legacy.cfg");
  EXPECT_TRUE(unchecked.loaded) << unchecked.errorText;
  EXPECT_FALSE(unchecked.settings.checksumValid);
}

TEST(LineForm, SectionMessages) {
  static const struct {
    std::string body;
    std::string error;
  } cases[] = {
      {"[OTHER]\nCIDs=1\n", "COMMON section not found"},
      {"[COMMON]\nProgramNames=A\nPayloadSize=48\n", "COMMON.CIDs field not found"},
      {"[COMMON]\nCIDs=1, x\nProgramNames=A\nPayloadSize=48\n", "COMMON.CIDs field not found"},
      {"[COMMON]\nCIDs=1\nPayloadSize=48\n", "COMMON.ProgramNames field not found"},
      {"[COMMON]\nCIDs=1\nProgramNames=A,,B\nPayloadSize=48\n",
       "COMMON.ProgramNames field not found"},
      {"[COMMON]\nCIDs=1\nProgramNames=A\n", "COMMON.PayloadSize not found"},
      {"[COMMON]\nCIDs=1\nProgramNames=A\nPayloadSize=47\n", "COMMON.PayloadSize not valid"},
      {"[COMMON]\nCIDs=1\nProgramNames=A\nPayloadSize=48-6\n",
       "COMMON.PayloadSize, payload size 48 bits per 6 seconds is no longer supported."},
      {"[COMMON]\nCIDs=1\nProgramNames=A\nPayloadSize=48\nEmbeddingQuality=BEST\n",
       "COMMON.EmbeddingQuality not valid"},
      {"[COMMON]\nCIDs=1\nProgramNames=A\nPayloadSize=48\nDefaultProgramName=B\n",
       "Default program name B not valid for COMMON"},
  };
  for (const auto& c : cases) {
    const auto result = LoadText(EncodeTextForm(c.body), true, "legacy.cfg");
    EXPECT_FALSE(result.loaded) << c.body;
    EXPECT_EQ(result.errorText, c.error) << c.body;
  }
}

TEST(LineForm, BinaryRecords) {
  const std::string bytes = EncodeCcf(kBody);
  ASSERT_EQ(bytes.size() % kCcfRecordSize, 0u);
  const LineFormFile decoded = DecodeLineForm(bytes, true);
  EXPECT_EQ(decoded.text, kBody);
  EXPECT_TRUE(decoded.CrcMatches());
  EXPECT_TRUE(LoadText(bytes, true, "legacy.ccf").loaded);

  // The same bytes under another name are read as text, and fail.
  EXPECT_EQ(LoadText(bytes, true, "legacy.cfg").errorText, "CRC error");
  std::string flipped = bytes;
  flipped[3] ^= 0x01;
  EXPECT_EQ(LoadText(flipped, true, "legacy.ccf").errorText, "CRC error");
  std::string wrongStored = bytes;
  wrongStored[wrongStored.size() - kCcfRecordSize] ^= 0x01;
  EXPECT_EQ(LoadText(wrongStored, true, "legacy.ccf").errorText, "CRC error");
  const std::string noEnd = bytes.substr(0, bytes.size() - kCcfRecordSize);
  EXPECT_EQ(LoadText(noEnd, true, "legacy.ccf").errorText, "CRC error");
  EXPECT_TRUE(LoadText(noEnd + "short", false, "legacy.ccf").loaded);
}

TEST(LineForm, ShippedExamplesAreSigned) {
  for (const char* name : {"legacy.cfg", "legacy.ccf"}) {
    ConfigurationReader reader((Testing::ExamplesFolder() / name).string());
    EXPECT_TRUE(reader.Load(true)) << reader.ErrorText();
    EXPECT_EQ(reader.Settings().programs.size(), 2u) << name;
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
