#include "config/QuillmarBasebandConfigurationState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "config/ConfigTestSupport.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::DocumentWithEntries;
using Testing::LogRecorder;
using Testing::TemporaryFolder;
using Testing::Signed;

constexpr std::size_t kBuffer = QuillmarBasebandConfigurationState::kBufferSize;

std::string Entry(const std::string& name, const std::string& eids, const std::string& type) {
  return R"({"Name": ")" + name + R"(", "ContentType": ")" + type + R"(", "VWM": {"EIDS": [)" +
         eids + R"(], "GlobalDepth": 2.5, "MaxLocalDepth": 4}})";
}

// A root folder holding Cfg/QLM_LumensealProp.cfg with `text`; its path with slashes, as the
// state spells the paths it gives back.
struct Root {
  explicit Root(const std::string& text) { folder.Write("Cfg/QLM_LumensealProp.cfg", text); }
  std::string Path() const { return folder.Path().generic_string(); }
  TemporaryFolder folder;
};

std::string ThreePrograms() {
  return Signed(DocumentWithEntries(Entry("One", "1", "news") + "," +
                                    Entry("Two", "21, 22, 23", "entertainment") + "," +
                                    Entry("One", "31", "news")));
}

bool Contains(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

TEST(ConfigurationState, RootPathRule) {
  static const struct {
    const char* root;
    const char* file;
  } cases[] = {
      {"C:\\x", "C:/x/Cfg/QLM_LumensealProp.cfg"},
      {"//:C:\\x\\", "C:/x/Cfg/QLM_LumensealProp.cfg"},
      {"/srv/q", "/srv/q/Cfg/QLM_LumensealProp.cfg"},
      {"/srv/q/", "/srv/q/Cfg/QLM_LumensealProp.cfg"},
      {"//srv/q", "//srv/q/Cfg/QLM_LumensealProp.cfg"},
      {"", "Cfg/QLM_LumensealProp.cfg"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(QuillmarBasebandConfigurationState::ConfigFileForRoot(c.root), c.file) << c.root;
  }
  const Root root(ThreePrograms());
  QuillmarBasebandConfigurationState state(("//:" + root.Path()).c_str());
  EXPECT_EQ(state.GetConfigFilePath(), root.Path() + "/Cfg/QLM_LumensealProp.cfg");
  EXPECT_EQ(state.CountProgramNames(), 3u);
  char buffer[kBuffer];
  ASSERT_TRUE(state.GetRootPath(buffer));
  EXPECT_EQ(std::string(buffer), "//:" + root.Path());
}

TEST(ConfigurationState, ProgramsThroughBuffers) {
  const Root root(ThreePrograms());
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  char buffer[kBuffer];
  static const struct {
    std::size_t index;
    const char* name;
    const char* cid;
    const char* cids;
  } cases[] = {{0, "One", "1", "1"}, {1, "Two", "21", "21, 22, 23"}, {2, "One", "31", "31"}};
  for (const auto& c : cases) {
    ASSERT_TRUE(state.GetProgramName(c.index, buffer));
    EXPECT_STREQ(buffer, c.name);
    ASSERT_TRUE(state.GetCIDName(c.index, buffer));
    EXPECT_STREQ(buffer, c.cid);
    ASSERT_TRUE(state.GetAllCIDNamesForProgram(c.index, buffer));
    EXPECT_STREQ(buffer, c.cids);
    EXPECT_EQ(state.GetAllCIDsFromProgramIndex(c.index), c.cids);
    std::string text;
    ASSERT_TRUE(state.GetPayloadType(c.index, buffer, text));
    EXPECT_STREQ(buffer, "48 bits per second");
    EXPECT_EQ(text, "48 bits per second");
    ASSERT_TRUE(state.GetEmbeddingStrength(c.index, buffer));
    EXPECT_STREQ(buffer, "gd2.5-mld4-flat0");
  }
  EXPECT_EQ(state.GetIndexFromProgramname("One"), 0u);
  EXPECT_EQ(state.GetIndexFromProgramname("Two"), 1u);
  EXPECT_EQ(state.GetIndexFromProgramname("two"), std::numeric_limits<std::size_t>::max());
  EXPECT_EQ(state.GetAllCIDsFromProgramName("One"), "1");
  EXPECT_EQ(state.GetAllCIDsFromProgramName("Three"), "");

  std::string name = "Two";
  std::vector<std::string> keys;
  ASSERT_TRUE(state.GetEncodationInformationFieldsKeys(name, keys));
  EXPECT_EQ(keys, (std::vector<std::string>{"itemid", "note", "slug"}));
  name = "Three";
  EXPECT_FALSE(state.GetEncodationInformationFieldsKeys(name, keys));

  std::string text;
  EXPECT_TRUE(state.GetConfigurationChecksum(text));
  EXPECT_EQ(text.size(), 8u);
  EXPECT_TRUE(state.GetSharedDatabase(text));
  EXPECT_EQ(text, root.Path() + "/Cfg/db");
}

// A relative shared database lies beside the configuration file, wherever the host runs from;
// the configuration's text and checksum stay as they are.
TEST(ConfigurationState, SharedDatabaseIsTakenFromTheConfigurationsFolder) {
  const TemporaryFolder folder;
  static const struct {
    const char* written;  // as JSON text
    std::string used;     // "@" stands for the configuration's folder
  } cases[] = {
      {"db", "@/db"},
      {"../shared/./x.db", "@/../shared/x.db"},
      {"/srv/x.db", "/srv/x.db"},
      {"C:\\\\x.db", "C:\\x.db"},
      {"\\\\\\\\server\\\\x.db", "\\\\server\\x.db"},
      {"postgresql://host/slots", "postgresql://host/slots"},
  };
  for (const auto& c : cases) {
    std::string text = Signed(DocumentWithEntries(Entry("One", "1", "news")));
    text.replace(text.find("\"db\""), 4, std::string("\"") + c.written + "\"");
    QuillmarBasebandConfigurationState state(folder.Write("cfg/c.json", Signed(text)), "COMMON");
    std::string used = c.used;
    if (used[0] == '@') {
      used = std::filesystem::path(folder.File("cfg") + used.substr(1))
                 .lexically_normal()
                 .generic_string();
    }
    std::string shared;
    EXPECT_TRUE(state.GetSharedDatabase(shared)) << c.written;
    EXPECT_EQ(used, shared) << c.written;
  }
}

TEST(ConfigurationState, IndexConvention) {
  const Root root(ThreePrograms());
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  static const struct {
    std::size_t index;
    bool valid;
  } cases[] = {
      {0, true},
      {2, true},
      {3, false},
      {static_cast<std::size_t>(-1), false},
      {static_cast<std::size_t>(std::numeric_limits<int>::max()) + 1, false},
      // Taken as a signed 32-bit integer, 2^32 + 1 is 1.
      {(std::size_t{1} << 32) + 1, true},
  };
  for (const auto& c : cases) {
    char buffer[kBuffer];
    std::memset(buffer, 'u', sizeof buffer);
    EXPECT_EQ(state.GetProgramName(c.index, buffer), c.valid) << c.index;
    EXPECT_EQ(state.GetCIDName(c.index, buffer), c.valid) << c.index;
    EXPECT_EQ(state.GetPayloadType(c.index, buffer), c.valid) << c.index;
    EXPECT_EQ(state.GetEmbeddingStrength(c.index, buffer), c.valid) << c.index;
    if (!c.valid) {
      EXPECT_EQ(buffer[0], 'u') << "buffer touched for " << c.index;
    }
    EXPECT_EQ(state.SetActiveProgramByIndex(c.index), c.valid) << c.index;
    EXPECT_EQ(state.GetActiveProgramName(buffer), c.valid) << c.index;
  }
  EXPECT_FALSE(state.verifyIndex(-1));
  EXPECT_TRUE(state.verifyIndex(0));
  EXPECT_FALSE(state.verifyIndex(3));
}

TEST(ConfigurationState, BufferTruncation) {
  const std::string longName(2000, 'n');
  const Root root(Signed(DocumentWithEntries(Entry(longName, "5", "news"))));
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  char buffer[kBuffer + 16];
  std::memset(buffer, 'x', sizeof buffer);
  ASSERT_TRUE(state.GetProgramName(0, buffer));
  EXPECT_EQ(std::string(buffer), longName.substr(0, 1023));
  EXPECT_EQ(buffer[kBuffer], 'x') << "wrote beyond the 1024 bytes";
  ASSERT_TRUE(state.SetActiveProgramByName(longName.c_str()));
  ASSERT_TRUE(state.GetActiveProgramName(buffer));
  EXPECT_EQ(std::strlen(buffer), 1023u);

  EXPECT_TRUE(QuillmarBasebandConfigurationState::copystr("", buffer));
  EXPECT_STREQ(buffer, "");
}

TEST(ConfigurationState, ActiveProgramAndPlainValues) {
  const Root root(ThreePrograms());
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  char buffer[kBuffer];
  EXPECT_FALSE(state.GetActiveProgramName(buffer));
  EXPECT_TRUE(state.SetActiveProgramByName("Two"));
  ASSERT_TRUE(state.GetActiveProgramName(buffer));
  EXPECT_STREQ(buffer, "Two");
  EXPECT_FALSE(state.SetActiveProgramByName("Three"));
  EXPECT_FALSE(state.GetActiveProgramName(buffer));
  EXPECT_FALSE(state.SetActiveProgramByName(nullptr));
  EXPECT_TRUE(state.ValidateProgramName("One"));
  EXPECT_FALSE(state.ValidateProgramName("one"));

  EXPECT_TRUE(state.SetVideoFormat(FrameFormat::Yuv422P8, 29.97, 1920, 1080));
  EXPECT_EQ(state.GetFrameFormat(), FrameFormat::Yuv422P8);
  EXPECT_DOUBLE_EQ(state.GetFrameRate(), 29.97);
  EXPECT_EQ(state.GetVideoWidth(), 1920u);
  EXPECT_EQ(state.GetVideoHeight(), 1080u);

  state.SetEmbeddingDuration(90);
  std::size_t duration = 0;
  EXPECT_EQ(state.GetEmbeddingDuration(buffer, &duration), 90u);
  EXPECT_EQ(duration, 90u);
  EXPECT_EQ(buffer, root.Path() + "/Cfg/db");
}

TEST(ConfigurationState, LogsWhatItLoaded) {
  const auto recorder = LogRecorder::Attach();
  const Root root(Signed(DocumentWithEntries(Entry("Two", "21, 22", "entertainment"))));
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  recorder->Detach();
  const auto lines = recorder->Lines();
  for (const char* line : {
           "INFO Creating QuillmarBasebandConfiguration. Parsing config file...",
           "INFO Creating QuillmarBasebandConfiguration. Parsing config file... done.",
           "INFO Config file info:",
           "INFO Shared database: db",
           "INFO Number of CPPs found: 1",
           "INFO 0 CPP: name Two, EIDs 21, 22, strength gd2.5-mld4-flat0, content type "
           "entertainment",
       }) {
    EXPECT_TRUE(Contains(lines, line)) << line;
  }
}

TEST(ConfigurationState, AFailedLoadLeavesNoPrograms) {
  const auto recorder = LogRecorder::Attach();
  const std::string text = DocumentWithEntries(Entry("One", "1", "news"));  // not signed
  const Root root(text);
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  recorder->Detach();
  EXPECT_EQ(state.CountProgramNames(), 0u);
  char buffer[kBuffer];
  EXPECT_FALSE(state.GetProgramName(0, buffer));
  EXPECT_FALSE(state.ParseConfiguration(false));
  const std::string error = state.GetConfigFilePath() + " - Checksum not found in JSON root object";
  EXPECT_EQ(state.GetErrorText(), error);
  EXPECT_TRUE(Contains(recorder->Lines(),
                       "ERROR QuillmarBasebandConfiguration config file parsing failed. " + error));

  // A corrected file is picked up by a forced parse.
  root.folder.Write("Cfg/QLM_LumensealProp.cfg", Signed(text));
  EXPECT_FALSE(state.ParseConfiguration(false));
  EXPECT_TRUE(state.ParseConfiguration(true));
  EXPECT_EQ(state.CountProgramNames(), 1u);
}

TEST(ConfigurationState, WithoutASharedDatabase) {
  std::string text = DocumentWithEntries(Entry("One", "1", "news"));
  text.replace(text.find(R"("SharedDatabase": "db",)"), 23, "");
  const auto recorder = LogRecorder::Attach();
  const Root root(Signed(text));
  QuillmarBasebandConfigurationState state(root.Path().c_str());
  recorder->Detach();
  EXPECT_EQ(state.CountProgramNames(), 1u);
  std::string path = "stale";
  EXPECT_FALSE(state.GetSharedDatabase(path));
  EXPECT_EQ(path, "");
  EXPECT_TRUE(Contains(recorder->Lines(), "WARNING Shared database name not found!"));
  EXPECT_TRUE(Contains(recorder->Lines(), "INFO Shared database: "));
}

TEST(ConfigurationState, ChannelFormReadsTheFileItself) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("demo.cfg", Testing::Signed(DocumentWithEntries(
                                                        Entry("One", "1", "news"))));
  QuillmarBasebandConfigurationState state(file, "COMMON");
  EXPECT_EQ(state.CountProgramNames(), 1u);
  EXPECT_TRUE(state.ParseConfiguration(true));
  EXPECT_EQ(state.GetSettings().facility, "F");
}

TEST(ConfigurationState, Licence) {
  EXPECT_TRUE(QuillmarBasebandConfigurationState::IsLicensed(nullptr));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
