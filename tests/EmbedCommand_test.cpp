// quillmar embed and quillmar detect, run as a user runs them: separate processes, in a folder
// holding a copy of the example configuration, its time-slot file and its logs.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <fstream>
#include <regex>

#include "framework/testing/TemporaryFolder.h"
#include "tests/ToolRun.h"

namespace Quillmar::Testing {
namespace {

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class EmbedCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::copy_file(std::filesystem::path(QUILLMAR_SOURCE_DIR) / "examples/demo.json",
                               folder_.Path() / "channel.json");
  }

  ToolRun Embed(const std::string& arguments) {
    return RunQuillmar("embed --config channel.json --program Demo " + arguments, folder_.Path());
  }

  bool ErrorLineContains(const ToolRun& run, const std::string& text) const {
    for (const auto& line : run.ErrLines()) {
      if (line.rfind("error: ", 0) == 0 && line.find(text) != std::string::npos) return true;
    }
    return false;
  }

  Framework::Testing::TemporaryFolder folder_;
};

TEST_F(EmbedCommand, ASessionPrintsItsSummaryAndWritesItsRecord) {
  const ToolRun run = Embed("--duration 2 --synthetic 64x36@25 --seconds 2 --json --meta itemid=X-1");
  ASSERT_EQ(0, run.status) << run.err;
  ASSERT_EQ(1u, run.OutLines().size()) << run.out;
  const auto summary = boost::json::parse(run.OutLines().front()).as_object();
  EXPECT_EQ(101, summary.at("cid").to_number<int>());
  EXPECT_EQ(50, summary.at("frames").to_number<int>());
  EXPECT_EQ(2, summary.at("embedded_seconds").to_number<int>());
  EXPECT_EQ((2 * 30 + 23) / 24 + 61, summary.at("reserved_seconds").to_number<int>());
  EXPECT_TRUE(std::regex_match(std::string(summary.at("start").as_string()),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
  EXPECT_TRUE(summary.contains("average_energy"));

  const auto records = ReadFile(folder_.Path() / "Logs/EncodationLog.jsonl");
  const auto record = boost::json::parse(records.substr(0, records.find('\n'))).as_object();
  EXPECT_EQ(101, record.at("CID").to_number<int>());
  EXPECT_EQ("X-1", record.at("Metadata").at("itemid").as_string());

  // The slot is taken: the next session gets the next CID.
  const ToolRun next = Embed("--synthetic 64x36@25 --seconds 1 --json");
  ASSERT_EQ(0, next.status) << next.err;
  EXPECT_EQ(102, boost::json::parse(next.OutLines().front()).at("cid").to_number<int>());
}

TEST_F(EmbedCommand, FramesGoThroughFilesAndPipes) {
  ASSERT_EQ(0, Embed("--synthetic 64x36@25 --seconds 1 -o first.y4m").status);
  const std::string first = ReadFile(folder_.Path() / "first.y4m");
  const std::size_t frameBytes = std::string("FRAME\n").size() + 64 * 36 * 3 / 2;
  const std::size_t header = first.find('\n') + 1;
  EXPECT_EQ(0u, first.rfind("YUV4MPEG2 W64 H36 F25:1", 0));
  EXPECT_EQ(header + 25 * frameBytes, first.size());

  const ToolRun piped = Embed("-i - -o - < first.y4m");
  ASSERT_EQ(0, piped.status) << piped.err;
  EXPECT_EQ(first.size(), piped.out.size());
  EXPECT_EQ(0u, piped.out.rfind("YUV4MPEG2 W64 H36 F25:1", 0));
}

TEST_F(EmbedCommand, FailuresExitWithTheirStatusAndTheListenersText) {
  const ToolRun unknownProgram =
      RunQuillmar("embed --config channel.json --program Nope --synthetic 64x36@25", folder_.Path());
  EXPECT_EQ(3, unknownProgram.status);
  EXPECT_NE(std::string::npos, unknownProgram.err.find("program Nope is not in channel.json"));

  const ToolRun missingConfig =
      RunQuillmar("embed --config absent.json --program Demo --synthetic 64x36@25", folder_.Path());
  EXPECT_EQ(3, missingConfig.status);

  // A shared database path that names a folder: every allocation attempt fails.
  std::string text = ReadFile(folder_.Path() / "channel.json");
  text.replace(text.find("quillmar-demo-timeslots.db"), std::strlen("quillmar-demo-timeslots.db"),
               "blocked");
  std::ofstream(folder_.Path() / "channel.json", std::ios::binary | std::ios::trunc) << text;
  std::filesystem::create_directory(folder_.Path() / "blocked");
  ASSERT_EQ(0, RunQuillmar("config sign channel.json", folder_.Path()).status);
  const ToolRun noSlot = Embed("--synthetic 64x36@25 --seconds 1");
  EXPECT_EQ(4, noSlot.status);
  EXPECT_TRUE(ErrorLineContains(
      noSlot, "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error in accessing shared database."))
      << noSlot.err;

  EXPECT_EQ(1, Embed("--synthetic 64x36@25 --json -o -").status);
}

TEST_F(EmbedCommand, AnInvalidLicenceIsReportedWithItsOwnStatus) {
  ::setenv("QUILLMAR_LICENSE_INVALID", "1", 1);
  const ToolRun run = Embed("--synthetic 64x36@25 --seconds 1");
  ::unsetenv("QUILLMAR_LICENSE_INVALID");
  EXPECT_EQ(5, run.status);
  EXPECT_TRUE(ErrorLineContains(run, "The licence of QuillmarBasebandSDK 1.0 is not valid.")) << run.err;
}

// What quillmar embed marked, quillmar detect reads back: the CID and the times of the slot the
// database reserved, one second after another.
TEST_F(EmbedCommand, DetectReadsBackTheReservedSlot) {
  const ToolRun embed = Embed("--duration 4 --synthetic 320x180@25 --seconds 4 -o marked.y4m --json");
  ASSERT_EQ(0, embed.status) << embed.err;
  const auto summary = boost::json::parse(embed.OutLines().front()).as_object();
  std::string start(summary.at("start").as_string());  // 2026-11-21T09:01:20.733Z
  start = start.substr(0, 19);
  start.erase(std::remove_if(start.begin(), start.end(), [](char c) { return c == '-' || c == ':' || c == 'T'; }),
              start.end());

  const ToolRun detect = RunQuillmar("detect -i marked.y4m --json", folder_.Path());
  ASSERT_EQ(0, detect.status) << detect.err;
  std::vector<std::string> timestamps;
  for (const auto& line : detect.OutLines()) {
    const auto event = boost::json::parse(line).as_object();
    if (!event.contains("cid")) continue;
    EXPECT_EQ(summary.at("cid").to_number<int>(), event.at("cid").to_number<int>());
    timestamps.emplace_back(event.at("timestamp").as_string());
  }
  ASSERT_GE(timestamps.size(), 3u) << detect.out;
  EXPECT_EQ(start, timestamps.front());
  for (std::size_t i = 1; i < timestamps.size(); ++i) {
    EXPECT_LT(timestamps[i - 1], timestamps[i]) << "time stamps advance";
  }
}

// Frames of a Y4M file of 4:2:0 pictures `width` x `height`, each without its FRAME line.
std::vector<std::string> Y4mFrames(const std::string& file, std::size_t width, std::size_t height) {
  const std::size_t pictureBytes = width * height * 3 / 2;
  const std::string marker = "FRAME\n";
  std::vector<std::string> frames;
  for (std::size_t at = file.find('\n') + 1; at + marker.size() + pictureBytes <= file.size();
       at += marker.size() + pictureBytes) {
    EXPECT_EQ(marker, file.substr(at, marker.size()));
    frames.push_back(file.substr(at + marker.size(), pictureBytes));
  }
  return frames;
}

// A marked file embedded again: the detector sees the mark within the first frames, and from then
// on the embedder passes the frames through as they are.
TEST_F(EmbedCommand, AMarkedFileEmbeddedAgainPassesThroughUnchanged) {
  const ToolRun embed = Embed("--duration 4 --synthetic 320x180@25 --seconds 3 -o marked.y4m --json");
  ASSERT_EQ(0, embed.status) << embed.err;
  const ToolRun again = Embed("--duration 4 -i marked.y4m -o remarked.y4m --json");
  ASSERT_EQ(0, again.status) << again.err;
  EXPECT_NE(std::string::npos, again.err.find("Prior watermark found - embedding pending.")) << again.err;

  const auto marked = Y4mFrames(ReadFile(folder_.Path() / "marked.y4m"), 320, 180);
  const auto remarked = Y4mFrames(ReadFile(folder_.Path() / "remarked.y4m"), 320, 180);
  ASSERT_EQ(75u, marked.size());
  ASSERT_EQ(marked.size(), remarked.size());
  std::size_t changed = 0;
  for (std::size_t frame = 0; frame < marked.size(); ++frame) {
    if (marked[frame] != remarked[frame]) ++changed;
  }
  EXPECT_LE(changed, 2u) << "frames marked over before embedding paused";
}

TEST(DetectCommand, FindsNoWatermarkInUnmarkedVideo) {
  const Framework::Testing::TemporaryFolder folder;
  const ToolRun run = RunQuillmar("detect --synthetic 160x90@25 --seconds 2 --json", folder.Path());
  EXPECT_EQ(0, run.status) << run.err;
  EXPECT_EQ("", run.out);
}

}  // namespace
}  // namespace Quillmar::Testing
