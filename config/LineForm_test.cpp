// The line-oriented form: its CRC, both file layouts, its sections and channel settings.
#include "config/LineForm.h"

#include <gtest/gtest.h>

#include "config/ConfigTestSupport.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::LoadText;
using Testing::Replaced;

// This embedder's channel (ChannelName) is the second, so that the first's strength cannot pass.
constexpr char kBody[] =
    "; comment\n[OTHER]\nCIDs=1\n[COMMON]\nFontPitch=14\nCIDs=11, 12\nProgramNames=One, Two\n"
    "PayloadSize=48_1\nEmbeddingQuality=HIGH_QUALITY\nDefaultProgramName=Two\nClient=C\n"
    "ConnectionMode=Standalone\nOperationMode=Embedding\nEmbeddingMode=Baseband\n"
    "ChannelName=Second\nEmbeddingStartDelay=2\nEmbedderMacAddresses=e1, e2\n"
    "DetectorMacAddresses=d1\nChannels=CH1, CH2\n[CH1]\nName=First\nGlobalDepth=2.5\n"
    "MaxLocalDepth=4\n[CH2]\nName=Second\nGlobalDepth = 3\nMaxLocalDepth=5\n";

TEST(LineForm, TextFormLoadsWithItsChannelSettings) {
  const std::string text = EncodeTextForm(kBody);
  const auto result = LoadText(text, true, "legacy.cfg");
  ASSERT_TRUE(result.loaded) << result.errorText;
  const ContentProcessorSettings& settings = result.settings;
  EXPECT_EQ(settings.fontPitch, 14);
  EXPECT_EQ(settings.defaultProgramName, "Two");
  ASSERT_EQ(settings.programs.size(), 2u);
  for (const ProgramEntry& program : settings.programs) {
    EXPECT_EQ(JoinEids(program.vwm.eids), "11, 12");
    EXPECT_EQ(program.vwm.embeddingQuality, "HIGH_QUALITY");
    EXPECT_EQ(program.payloadSize, PayloadSize::Rate48);
    EXPECT_FLOAT_EQ(program.vwm.globalDepth, 3.0f);
    EXPECT_EQ(program.vwm.maxLocalDepth, 5);
  }
  const ChannelSettings& channels = settings.channelSettings;
  EXPECT_EQ(channels.client + "|" + channels.connectionMode + "|" + channels.operationMode + "|" +
                channels.embeddingMode + "|" + channels.channelName,
            "C|Standalone|Embedding|Baseband|Second");
  EXPECT_EQ(channels.embeddingStartDelay, 2);
  EXPECT_EQ(channels.embedderMacAddresses, (std::vector<std::string>{"e1", "e2"}));
  EXPECT_EQ(channels.detectorMacAddresses, (std::vector<std::string>{"d1"}));
  EXPECT_EQ(channels.channels.back().section + " " + channels.channels.back().name, "CH2 Second");
  // An older file, without Channels, has no channel settings and its programs no depths.
  const std::string older = Replaced(Replaced(kBody, "Channels=CH1, CH2\n", ""), "48_1", "48-1");
  const auto olderResult = LoadText(EncodeTextForm(older), true, "legacy.cfg");
  ASSERT_TRUE(olderResult.loaded) << olderResult.errorText;
  EXPECT_FALSE(olderResult.settings.channelSettings.present);
  EXPECT_FALSE(olderResult.settings.programs[0].vwm.parametersSet);
  // The CRC covers the characters of the lines, not their ends: CRLF text has the same CRC,
  // and lines after the crc= line are not protected.
  std::string crlf;
  for (const char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_TRUE(LoadText(crlf + "trailing junk\n", true, "legacy.cfg").loaded);
}

TEST(LineForm, EveryMessage) {
  const std::string gone = "COMMON.PayloadSize, payload size 48 bits per 6 seconds is no longer "
                           "supported.";
  const struct {
    const char* from;
    const char* to;
    std::string error;
  } cases[] = {
      {"[COMMON]", "[COMMONS]", "COMMON section not found"},
      {"CIDs=11, 12", "CID=11", "COMMON.CIDs field not found"},
      {"11, 12", "11, x", "COMMON.CIDs field not found"},
      {"11, 12", "11, 4294967296", "COMMON.CIDs field not found"},
      {"ProgramNames=", "Programs=", "COMMON.ProgramNames field not found"},
      {"One, Two", "One,,Two", "COMMON.ProgramNames field not found"},
      {"PayloadSize=48_1", "Payload=48", "COMMON.PayloadSize not found"},
      {"48_1", "72", "COMMON.PayloadSize not valid"},
      {"48_1", "48_6", gone},
      {"48_1", "48-6", gone},
      {"HIGH_QUALITY", "BEST", "COMMON.EmbeddingQuality not valid"},
      {"DefaultProgramName=Two", "DefaultProgramName=Three",
       "Default program name Three not valid for COMMON"},
      {"Client=C", "Client=", "COMMON.Client not found"},
      {"ConnectionMode=Standalone\n", "", "COMMON.ConnectionMode not found"},
      {"OperationMode=Embedding\n", "", "COMMON.OperationMode not found"},
      {"EmbeddingMode=Baseband", "EmbeddingMode= ", "COMMON.EmbeddingMode not found"},
      {"ChannelName=Second\n", "", "COMMON.ChannelName not found"},
      {"Delay=2", "Delay=-1", "COMMON.EmbeddingStartDelay not valid"},
      {"Delay=2", "Delay=1.5", "COMMON.EmbeddingStartDelay not valid"},
      {"Channels=CH1, CH2", "Channels=", "COMMON: No channels found"},
      {"CH1, CH2", "CH1, CH3", "CH3 section not found"},
      {"\nName=Second", "\nName=", "CH2.Name not found"},
      {"GlobalDepth=2.5\n", "", "CH1.GlobalDepth not found"},
      {"GlobalDepth = 3", "GlobalDepth=deep", "CH2.GlobalDepth not found"},
      {"MaxLocalDepth=5", "MaxLocalDepth=5.5", "CH2.MaxLocalDepth not found"},
      {"ChannelName=Second", "ChannelName=Third", "COMMON.ChannelName not found"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.to);
    const auto result = LoadText(EncodeTextForm(Replaced(kBody, c.from, c.to)), true, "a.cfg");
    EXPECT_FALSE(result.loaded);
    EXPECT_EQ(result.errorText, c.error);
  }
}

TEST(LineForm, CrcFailures) {
  const std::string text = EncodeTextForm(kBody);
  const std::string bytes = EncodeCcf(kBody);
  std::string flippedRecord = bytes;
  flippedRecord[3] ^= 0x01;
  std::string wrongStored = bytes;
  wrongStored[bytes.size() - kCcfRecordSize] ^= 0x01;
  // A trailing partial record is ignored.
  EXPECT_EQ(LoadText(bytes + "short", true, "legacy.ccf").settings.programs.size(), 2u);
  const struct {
    std::string bytes;
    const char* name;
  } cases[] = {
      {Replaced(text, "One", "one"), "legacy.cfg"},
      {kBody, "legacy.cfg"},
      {std::string(kBody) + "crc=abc\n", "legacy.cfg"},
      {"", "empty.cfg"},
      // Nested deeper than the JSON reader accepts.
      {"{\"a\":" + std::string(100, '[') + std::string(100, ']') + "}", "deep.json"},
      {bytes, "legacy.cfg"},
      {flippedRecord, "legacy.ccf"},
      {wrongStored, "legacy.ccf"},
      {bytes.substr(0, bytes.size() - kCcfRecordSize), "legacy.ccf"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(LoadText(c.bytes, true, c.name).errorText, "CRC error");
    EXPECT_FALSE(LoadText(c.bytes, false, c.name).settings.checksumValid);
  }
  EXPECT_TRUE(LoadText(Replaced(text, "One", "one"), false, "legacy.cfg").loaded);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
