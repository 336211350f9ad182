#include "config/QuillmarBasebandConfigurationState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "config/ConfigTestSupport.h"

namespace QuillmarBasebandSDK {
namespace {

using State = QuillmarBasebandConfigurationState;
using Testing::DocumentWithEntries;
using Testing::Signed;

constexpr std::size_t kBuffer = State::kBufferSize;
using Getter = bool (State::*)(std::size_t, char*) const;

std::string Entry(const std::string& name, const std::string& eids, const std::string& type) {
  return R"({"Name": ")" + name + R"(", "ContentType": ")" + type + R"(", "VWM": {"EIDS": [)" +
         eids + R"(], "GlobalDepth": 2.5, "MaxLocalDepth": 4}})";
}

void ExpectLogged(const std::vector<std::string>& lines, const std::vector<std::string>& wanted) {
  for (const std::string& line : wanted) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
  }
}

// A root folder holding Cfg/QLM_LumensealProp.cfg with `text`; its path with slashes, as the
// state spells the paths it gives back.
struct Root {
  explicit Root(const std::string& text) { Write(text); }
  void Write(const std::string& text) const { folder.Write("Cfg/QLM_LumensealProp.cfg", text); }
  std::string Path() const { return folder.Path().generic_string(); }
  Testing::TemporaryFolder folder;
};

TEST(ConfigurationState, RootPathRule) {
  EXPECT_EQ(State::ConfigFileForRoot("//:C:\\x\\"), "C:/x/Cfg/QLM_LumensealProp.cfg");
  EXPECT_EQ(State::ConfigFileForRoot("/q"), "/q/Cfg/QLM_LumensealProp.cfg");
  EXPECT_EQ(State::ConfigFileForRoot(""), "Cfg/QLM_LumensealProp.cfg");
}

// The second program is named in Windows-1252 ("T\xe9l\xe9" is "Télé"), as configurations written
// on Windows often are: it is signed over its bytes and given back as they are.
TEST(ConfigurationState, ProgramsThroughBuffersTheIndexConventionAndTheStartUpLog) {
  const std::string longName(2000, 'n');  // longer than a buffer
  const Root root(Signed(DocumentWithEntries(
      Entry("One", "1", "news") + "," + Entry("T\xe9l\xe9", "21, 22, 23", "entertainment") + "," +
      Entry("One", "31", "news") + "," + Entry(longName, "5", "news"))));
  const auto recorder = Testing::LogRecorder::Attach();
  State state(("//:" + root.Path()).c_str());
  recorder->Detach();
  ExpectLogged(recorder->Lines(),
               {"INFO Creating QuillmarBasebandConfiguration. Parsing config file... done.",
                "INFO Shared database db is taken from the configuration file's folder: " +
                    root.Path() + "/Cfg/db",
                "INFO Number of CPPs found: 4",
                "INFO 1 CPP: name T\xe9l\xe9, EIDs 21, 22, 23, strength gd2.5-mld4-flat0, content "
                "type entertainment"});
  EXPECT_TRUE(state.verifyIndex(3) && !state.verifyIndex(4) && !state.verifyIndex(-1));
  char buffer[kBuffer + 1];
  ASSERT_TRUE(state.GetRootPath(buffer));
  EXPECT_EQ(std::string(buffer), "//:" + root.Path());
  buffer[kBuffer] = 'x';
  const struct {
    std::size_t index;
    std::string name;  // empty: not a valid index
    const char* eids;
  } cases[] = {
      {0, "One", "1"}, {1, "T\xe9l\xe9", "21, 22, 23"}, {2, "One", "31"},
      {3, longName.substr(0, kBuffer - 1), "5"},
      // Taken as a signed 32-bit integer, 2^32 + 1 is 1.
      {(std::size_t{1} << 32) + 1, "T\xe9l\xe9", "21, 22, 23"},
      {4, "", ""}, {static_cast<std::size_t>(-1), "", ""},
      {static_cast<std::size_t>(std::numeric_limits<int>::max()) + 1, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.index);
    const bool valid = !c.name.empty();
    std::memset(buffer, 'u', kBuffer);
    std::string texts;
    for (const Getter get : {&State::GetProgramName, &State::GetAllCIDNamesForProgram,
                             &State::GetCIDName, &State::GetEmbeddingStrength,
                             &State::GetPayloadType}) {
      if ((state.*get)(c.index, buffer)) texts += std::string(buffer) + "|";
    }
    EXPECT_TRUE(valid || buffer[0] == 'u') << "a bad index left the buffer alone";
    const std::string eids = c.eids;
    EXPECT_EQ(texts, valid ? c.name + "|" + eids + "|" + eids.substr(0, eids.find(',')) +
                                 "|gd2.5-mld4-flat0|48 bits per second|"
                           : "");
    EXPECT_EQ(state.GetAllCIDsFromProgramIndex(c.index), eids);
    EXPECT_EQ(state.SetActiveProgramByIndex(c.index), valid);
    EXPECT_EQ(state.GetActiveProgramName(buffer) ? std::string(buffer) : "", c.name);
  }
  EXPECT_EQ(buffer[kBuffer], 'x') << "wrote beyond the 1024 bytes";
  EXPECT_EQ(state.GetIndexFromProgramname("One"), 0u);
  EXPECT_EQ(state.GetIndexFromProgramname("one"), std::numeric_limits<std::size_t>::max());
  EXPECT_EQ(state.GetAllCIDsFromProgramName("One"), "1");
  EXPECT_TRUE(state.SetActiveProgramByName("One"));
  EXPECT_FALSE(state.SetActiveProgramByName("one"));
  EXPECT_FALSE(state.GetActiveProgramName(buffer));
  EXPECT_FALSE(state.SetActiveProgramByName(nullptr));
}

// A relative shared database lies beside the configuration file, wherever the host runs from.
TEST(ConfigurationState, SharedDatabaseIsTakenFromTheConfigurationsFolder) {
  const Testing::TemporaryFolder folder;
  static const struct {
    const char* written;  // as JSON text; null: no SharedDatabase member
    const char* used;     // "@" stands for the configuration's folder
  } cases[] = {
      {"db", "@/db"},  {"../shared/./x.db", "@/../shared/x.db"},  {"/srv/x.db", "/srv/x.db"},
      {"C:\\\\x.db", "C:\\x.db"},  {"\\\\\\\\server\\\\x.db", "\\\\server\\x.db"},
      {"postgresql://host/slots", "postgresql://host/slots"},  {nullptr, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.used);
    const std::string text = Testing::Replaced(
        DocumentWithEntries(Entry("One", "1", "news")), R"("SharedDatabase": "db",)",
        c.written != nullptr ? "\"SharedDatabase\": \"" + std::string(c.written) + "\"," : "");
    State state(folder.Write("cfg/c.json", Signed(text)), "COMMON");
    const std::string used = *c.used != '@'
                                 ? c.used
                                 : std::filesystem::path(folder.File("cfg") + (c.used + 1))
                                       .lexically_normal()
                                       .generic_string();
    std::string shared = "stale";
    EXPECT_EQ(state.GetSharedDatabase(shared), c.written != nullptr);
    EXPECT_EQ(shared, used);
    char buffer[kBuffer];
    state.GetEmbeddingDuration(buffer, nullptr);
    EXPECT_EQ(buffer, used);
  }
}

TEST(ConfigurationState, AFailedParseLeavesNoProgramsAndSaysWhy) {
  const auto recorder = Testing::LogRecorder::Attach();
  const std::string text = Testing::Replaced(DocumentWithEntries(Entry("One", "1", "news")),
                                             R"("SharedDatabase": "db",)", "");
  const Root root(Signed(text));
  State state(root.Path().c_str());
  // Only a forced parse reads the file again.
  root.Write(text);
  EXPECT_TRUE(state.ParseConfiguration(false));
  EXPECT_FALSE(state.ParseConfiguration(true));
  recorder->Detach();
  EXPECT_EQ(state.CountProgramNames(), 0u);
  std::string checksum;
  EXPECT_FALSE(state.GetConfigurationChecksum(checksum));
  const std::string error = state.GetConfigFilePath() + " - Checksum not found in JSON root object";
  EXPECT_EQ(state.GetErrorText(), error);
  ExpectLogged(recorder->Lines(),
               {"WARNING Shared database name not found!",
                "ERROR QuillmarBasebandConfiguration config file parsing failed. " + error});
}

}  // namespace
}  // namespace QuillmarBasebandSDK
