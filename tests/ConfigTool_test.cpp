// quillmar config: exit codes, the first line of standard output, the last line of standard
// error, and files written byte for byte.
#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationReader.h"
#include "tools/testing/ToolRun.h"

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
    std::string firstLine;  // what the tool adds before the reader's error
  } failing[] = {{"changed.json", bytes, ""},
                 {"wrong_checksum.json", "{\"Checksum\": \"x\"}", ""},
                 {"cut.json", bytes.substr(0, 40), "cut.json is not valid JSON: line 3, column "}};
  for (const auto& c : failing) {
    const std::string path = folder.Write(c.name, c.bytes);
    ConfigurationReader reader(path);
    ASSERT_FALSE(reader.Load(true));
    const ToolRun run = Quillmar(folder, "config check " + Quoted(path));
    EXPECT_EQ(run.status, 1) << c.name;
    ASSERT_FALSE(run.ErrLines().empty()) << c.name;
    EXPECT_EQ(run.ErrLines().back(), reader.ErrorText()) << c.name;
    EXPECT_NE(std::string::npos, run.ErrLines().front().find(c.firstLine)) << run.err;
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

  // What check would refuse is not signed, unless forced; text that is not JSON is signed as the
  // line-oriented form only when asked for.
  const std::string bare = "{\"ContentProcessor\": {}}\n";
  const std::string barePath = folder.Write("bare.json", bare);
  const ToolRun refused = Quillmar(folder, "config sign " + Quoted(barePath));
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(std::string::npos, refused.err.find("not signed, the configuration is not valid"))
      << refused.err;
  const std::string cutPath = folder.Write("cut.json", original.substr(0, 60));
  const ToolRun cut = Quillmar(folder, "config sign " + Quoted(cutPath));
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(std::string::npos, cut.err.find("not valid JSON: line 4, column 9: incomplete JSON"))
      << cut.err;
  EXPECT_EQ(0, Quillmar(folder, "config sign --line-form --force " + Quoted(cutPath)).status);
  ASSERT_TRUE(ConfigurationReader::ReadFile(cutPath, written));
  EXPECT_EQ(0u, written.rfind(original.substr(0, 60), 0));
  EXPECT_NE(std::string::npos, written.find("\ncrc="));

  // Forced, without -o, the file itself is signed; a missing Checksum becomes the first member.
  EXPECT_EQ(Quillmar(folder, "config sign --force " + Quoted(barePath)).status, 0);
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
  EXPECT_EQ(shown.at("shared_database"), "quillmar-spots-timeslots.db");
  const auto& programs = shown.at("programs").as_array();
  ASSERT_EQ(programs.size(), 2u);
  EXPECT_EQ(programs[0].at("name"), "Spot Break");
  EXPECT_EQ(programs[0].at("content_type"), "direct_response");
  EXPECT_EQ(programs[0].at("eids").as_array().size(), 4u);
  EXPECT_EQ(programs[0].at("payload_rate"), "48 bits per second");
  EXPECT_EQ(programs[0].at("metadata_fields").at("modulecode"), "module_code");
  EXPECT_EQ(programs[1].at("max_local_depth"), 4);
  EXPECT_NE(std::string::npos, json.out.find("\"global_depth\":3.0,")) << "plain decimals";

  const ToolRun unsignedShow = Quillmar(folder, "config show " + Quoted(folder.Write("u.json", "{}")));
  EXPECT_EQ(unsignedShow.status, 1);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
