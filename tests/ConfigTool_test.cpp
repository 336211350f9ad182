// quillmar config: exit codes, the first line of standard output, the last line of standard
// error, and files written byte for byte.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <boost/json/parse.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationReader.h"
#include "tests/ToolRun.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::ExamplesFolder;
using Testing::TemporaryFolder;
using Quillmar::Testing::Quoted;
using Quillmar::Testing::RunQuillmar;
using Quillmar::Testing::ToolRun;

// Runs quillmar with `arguments` (already quoted where needed) in `folder`.
ToolRun Quillmar(const TemporaryFolder& folder, const std::string& arguments) {
  return RunQuillmar(arguments, folder.Path());
}

std::string Example(const std::string& name) { return (ExamplesFolder() / name).string(); }

std::string Checksum(const std::string& path) {
  ConfigurationReader reader(path);
  return reader.Load(true) ? reader.Settings().checksumText : "";
}

TEST(ConfigTool, CheckPrintsTheChecksumOrTheReadersError) {
  const TemporaryFolder folder;
  for (const char* name : {"demo.json", "news.json", "windows_path.json", "legacy.cfg",
                           "legacy.ccf"}) {
    const ToolRun run = Quillmar(folder, "config check " + Quoted(Example(name)));
    EXPECT_EQ(run.status, 0) << name;
    ASSERT_FALSE(run.OutLines().empty()) << name;
    EXPECT_EQ(run.OutLines().front(), Checksum(Example(name))) << name;
  }
  std::string bytes;
  ASSERT_TRUE(ConfigurationReader::ReadFile(Example("demo.json"), bytes));
  bytes.replace(bytes.find("\"Demo\""), 6, "\"Demo2\"");
  static const struct {
    std::string name;
    std::string bytes;
  } failing[] = {{"changed.json", bytes}, {"wrong_checksum.json", "{\"Checksum\": \"x\"}"}};
  for (const auto& c : failing) {
    const std::string path = folder.Write(c.name, c.bytes);
    ConfigurationReader reader(path);
    ASSERT_FALSE(reader.Load(true));
    const ToolRun run = Quillmar(folder, "config check " + Quoted(path));
    EXPECT_EQ(run.status, 1) << c.name;
    ASSERT_FALSE(run.ErrLines().empty()) << c.name;
    EXPECT_EQ(run.ErrLines().back(), reader.ErrorText()) << c.name;
  }
  EXPECT_EQ(Quillmar(folder, "config check " + Quoted(folder.Path().string() + "/absent.json"))
                .ErrLines()
                .back(),
            folder.Path().string() + "/absent.json not found");
}

TEST(ConfigTool, SignChangesOnlyTheChecksum) {
  const TemporaryFolder folder;
  std::string original;
  ASSERT_TRUE(ConfigurationReader::ReadFile(Example("metadata_fields.json"), original));
  std::string stale = original;
  const std::string checksum = Checksum(Example("metadata_fields.json"));
  stale.replace(stale.find(checksum), checksum.size(), "ffffffff");
  const std::string path = folder.Write("stale.json", stale);
  const std::string signedPath = (folder.Path() / "signed.json").string();

  EXPECT_EQ(Quillmar(folder, "config sign " + Quoted(path) + " -o " + Quoted(signedPath)).status,
            0);
  std::string written;
  ASSERT_TRUE(ConfigurationReader::ReadFile(signedPath, written));
  EXPECT_EQ(written, original);
  std::string untouched;
  ASSERT_TRUE(ConfigurationReader::ReadFile(path, untouched));
  EXPECT_EQ(untouched, stale);

  // Without -o the file itself is signed; a missing Checksum becomes the first member.
  const std::string bare = "{\"ContentProcessor\": {}}\n";
  const std::string barePath = folder.Write("bare.json", bare);
  EXPECT_EQ(Quillmar(folder, "config sign " + Quoted(barePath)).status, 0);
  ASSERT_TRUE(ConfigurationReader::ReadFile(barePath, written));
  EXPECT_EQ(written.substr(0, 16), "{\n  \"Checksum\": ");
  EXPECT_EQ(written.substr(written.size() - bare.size() + 1), bare.substr(1));

  EXPECT_EQ(Quillmar(folder, "config sign " + Quoted(folder.Path().string() + "/none")).status,
            1);
}

TEST(ConfigTool, ShowListsThePrograms) {
  const TemporaryFolder folder;
  const ToolRun table = Quillmar(folder, "config show " + Quoted(Example("demo.json")));
  ASSERT_EQ(table.status, 0);
  const auto has = [&](const std::string& start) {
    for (const auto& line : table.OutLines()) {
      if (line.rfind(start, 0) == 0) return true;
    }
    return false;
  };
  EXPECT_TRUE(has("Shared database: quillmar-demo-timeslots.db"));
  EXPECT_TRUE(has("0     Demo                    entertainment    101, 102, 103"));

  std::string bytes;
  ASSERT_TRUE(ConfigurationReader::ReadFile(Example("direct_response.json"), bytes));
  folder.Write("root/Cfg/QLM_LumensealProp.cfg", bytes);
  const ToolRun json =
      Quillmar(folder, "config show --json " + Quoted((folder.Path() / "root").string()));
  ASSERT_EQ(json.status, 0);
  ASSERT_EQ(json.OutLines().size(), 1u);
  const auto shown = boost::json::parse(json.OutLines().front());
  EXPECT_EQ(shown.at("sharedDatabase"), "quillmar-spots-timeslots.db");
  const auto& programs = shown.at("programs").as_array();
  ASSERT_EQ(programs.size(), 2u);
  EXPECT_EQ(programs[0].at("name"), "Spot Break");
  EXPECT_EQ(programs[0].at("contentType"), "direct_response");
  EXPECT_EQ(programs[0].at("eids").as_array().size(), 4u);
  EXPECT_EQ(programs[0].at("payloadRate"), "48 bits per second");
  EXPECT_EQ(programs[0].at("metadataFields").at("modulecode"), "module_code");
  EXPECT_EQ(programs[1].at("maxLocalDepth"), 4);

  const ToolRun unsignedShow = Quillmar(folder, "config show " + Quoted(folder.Write("u.json", "{}")));
  EXPECT_EQ(unsignedShow.status, 1);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
