// quillmar embed and quillmar detect, run as a user runs them: separate processes, in a folder
// holding a copy of the example configuration, its time-slot file and its logs.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/json.hpp>
#include <fstream>
#include <regex>

#include "framework/testing/TemporaryFolder.h"
#include "tools/testing/ToolRun.h"

namespace Quillmar::Testing {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

constexpr int kWidth = 64;
constexpr int kHeight = 36;
constexpr std::size_t kPictureBytes = kWidth * kHeight * 3 / 2;
constexpr char kHeader[] = "YUV4MPEG2 W64 H36 F25:1 Ip A1:1 C420jpeg\n";

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// `count` unmarked frames of a moving texture, each with its FRAME line.
std::string Frames(int count) {
  std::string frames;
  for (int frame = 0; frame < count; ++frame) {
    frames += "FRAME\n";
    for (std::size_t i = 0; i < kPictureBytes; ++i) {
      frames += static_cast<char>(i < kWidth * kHeight ? 60 + (i * 7 + frame * 3) % 120 : 128);
    }
  }
  return frames;
}

boost::posix_time::ptime TimeOf(const json::value& text) {
  std::string iso(text.as_string());
  iso.erase(std::remove(iso.begin(), iso.end(), 'Z'), iso.end());
  return boost::posix_time::from_iso_extended_string(iso);
}

class EmbedCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::copy_file(fs::path(QUILLMAR_SOURCE_DIR) / "examples/demo.json",
                  folder_.Path() / "channel.json");
  }

  ToolRun Embed(const std::string& arguments) {
    return RunQuillmar("embed --config channel.json --program Demo " + arguments, folder_.Path());
  }

  std::vector<json::object> Records() const {
    std::vector<json::object> records;
    std::ifstream file(folder_.Path() / "Logs/EncodationLog.jsonl");
    for (std::string line; std::getline(file, line);)
      records.push_back(json::parse(line).as_object());
    return records;
  }

  // What quillmar db show says of `cid`.
  json::object Row(unsigned cid) const {
    const ToolRun show = RunQuillmar("db show quillmar-demo-timeslots.db --json", folder_.Path());
    const json::value shown = json::parse(show.out);
    for (const auto& row : shown.at("cids").as_array()) {
      if (row.at("cid").to_number<unsigned>() == cid) return row.as_object();
    }
    return {};
  }

  // A session that closed: its slot finalised to the seconds it embedded and no lease left,
  // exactly one record of those seconds, its log stopped, its logger block gone.
  void ExpectClosed(const ToolRun& run, pid_t pid) {
    ASSERT_FALSE(run.OutLines().empty()) << run.err;
    const json::object summary = json::parse(run.OutLines().back()).as_object();
    EXPECT_EQ(run.status, summary.at("exit_status").to_number<int>());
    const auto embedded = summary.at("embedded_seconds").to_number<long>();
    const json::object row = Row(summary.at("cid").to_number<unsigned>());
    EXPECT_TRUE(row.at("locked_till").is_null()) << json::serialize(row);
    const auto kept = TimeOf(row.at("allocated_till")) - TimeOf(summary.at("start"));
    EXPECT_NEAR(embedded + 1, kept.total_milliseconds() / 1000.0, 1.0) << json::serialize(row);
    const auto records = Records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(embedded, records[0].at("EmbeddedDurationInSeconds").to_number<long>());
    ExpectLogClosed(pid);
  }

  void ExpectLogClosed(pid_t pid) {
    std::vector<fs::path> logs;
    for (const auto& entry : fs::directory_iterator(folder_.Path() / "Logs")) {
      if (entry.path().extension() == ".html") logs.push_back(entry.path());
    }
    ASSERT_EQ(1u, logs.size());
    EXPECT_NE(std::string::npos, ReadFile(logs[0]).find("&gt;&gt; Stopped logging to"));
    EXPECT_FALSE(fs::exists("/dev/shm/LoggerStateV1." + std::to_string(pid)));
  }

  Framework::Testing::TemporaryFolder folder_;
};

// Every way a session can end once it has reserved its slot closes it, with its own status.
TEST_F(EmbedCommand, EveryWayOutClosesTheSession) {
  enum class Feed { File, PipeHeldOpen };
  static const struct {
    const char* name;
    int frames;
    int extraBytes;  // a frame cut short after these bytes
    Feed feed;
    std::vector<int> signals;  // sent once the frames went through
    bool readerLeaves;         // the reader of standard output goes after 64 kB
    int status;
  } cases[] = {
      {"end of input", 75, 0, Feed::File, {}, false, 0},
      {"input cut inside a frame", 50, 1000, Feed::File, {}, false, 7},
      {"reader gone", 75, 0, Feed::File, {}, true, 8},
      {"empty input", 0, 0, Feed::File, {}, false, 6},
      {"Ctrl-C while the input stalls", 30, 0, Feed::PipeHeldOpen, {SIGINT}, false, 130},
      {"SIGTERM", 30, 0, Feed::PipeHeldOpen, {SIGTERM}, false, 143},
      {"SIGHUP", 30, 0, Feed::PipeHeldOpen, {SIGHUP}, false, 129},
      {"Ctrl-C twice inside a frame", 30, 500, Feed::PipeHeldOpen, {SIGINT, SIGINT}, false, 130},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string stream = kHeader + Frames(c.frames) + Frames(1).substr(0, c.extraBytes);
    std::vector<std::string> arguments{
        "embed",
        "--config",
        "channel.json",
        "--program",
        "Demo",
        "-i",
        c.feed == Feed::File ? folder_.Write("in.y4m", stream) : "-"};
    arguments.insert(arguments.end(), {"-o", c.readerLeaves ? "-" : "out.y4m"});
    if (!c.readerLeaves) arguments.push_back("--json");
    ToolProcess tool(arguments, folder_.Path(), {c.feed == Feed::PipeHeldOpen, c.readerLeaves});
    if (c.feed == Feed::PipeHeldOpen) {
      tool.WriteInput(stream);
      const auto written = std::strlen(kHeader) + c.frames * (6 + kPictureBytes);
      ASSERT_TRUE(ToolProcess::WaitUntil([&] {
        return fs::exists(folder_.Path() / "out.y4m") &&
               fs::file_size(folder_.Path() / "out.y4m") == written;
      }));
      for (std::size_t i = 0; i < c.signals.size(); ++i) {
        tool.Signal(c.signals[i]);
        if (i + 1 < c.signals.size()) {
          ASSERT_TRUE(ToolProcess::WaitUntil(
              [&] { return tool.Err().find("again to stop") != std::string::npos; }));
        }
      }
    }
    if (c.readerLeaves) {
      tool.ReadOutput(65536);
      tool.CloseOutput();
    }
    const pid_t pid = tool.Pid();
    const ToolRun run = tool.Finish();
    EXPECT_EQ(c.status, run.status) << run.err;
    if (c.readerLeaves) {
      EXPECT_NE(std::string::npos, run.err.find("cannot write to standard output: Broken pipe"))
          << run.err;
      const auto records = Records();
      ASSERT_EQ(1u, records.size());
      EXPECT_TRUE(Row(101).at("locked_till").is_null());
      ExpectLogClosed(pid);
    } else {
      ExpectClosed(run, pid);
    }
    if (c.feed == Feed::PipeHeldOpen) {
      EXPECT_EQ(c.frames, json::parse(run.OutLines().back()).at("frames").to_number<int>());
      EXPECT_TRUE(json::parse(run.OutLines().back()).at("interrupted").as_bool());
    }
    for (const char* made : {"Logs", "quillmar-demo-timeslots.db", "out.y4m"})
      fs::remove_all(folder_.Path() / made);
  }
}

// A run that cannot succeed is refused before it reserves anything: no database, no record.
TEST_F(EmbedCommand, RunsThatCannotSucceedReserveNothing) {
  static const struct {
    const char* arguments;
    const char* input;  // a Y4M header written to in.y4m
    int status;
    const char* says;
  } cases[] = {
      {"--program Demo --meta itemid", kHeader, 2, "--meta takes KEY=VALUE, not itemid"},
      {"--program Demo --json -o -", kHeader, 2, "both want standard output"},
      {"--program Demo", "YUV4MPEG2 W64 H36 F0:0\n", 1, "lacks a frame rate above 0"},
      {"--program Demo", "YUV4MPEG2 W64 H36\n", 1, "lacks a frame rate above 0"},
      {"--program Demo", "YUV4MPEG2 W99999999999999999999 H36 F25:1\n", 1,
       "W99999999999999999999 is not a whole number"},
      {"--program Demo", "YUV4MPEG2 W100000 H100000 F25:1\n", 1, "from 1 to 16384"},
      {"--program Demo", "\x01\x02GIF89a\n", 1, "it begins with \"\\x01\\x02GIF89a\""},
      {"--program Demo", "YUV4MPEG2 W64 H36 F25:1 Cmono\n", 1, "Cmono is not supported"},
      {"--program Demo -o /dev/full", kHeader, 1,
       "cannot write to /dev/full: No space left on device"},
      {"--program Nope", kHeader, 3, "program Nope is not in channel.json"},
  };
  ::setenv("QUILLMAR_LICENSE_INVALID", "1", 1);
  const ToolRun unlicensed = Embed("--synthetic 64x36@25 --seconds 1");
  ::unsetenv("QUILLMAR_LICENSE_INVALID");
  EXPECT_EQ(5, unlicensed.status);
  EXPECT_NE(std::string::npos,
            unlicensed.err.find("error: The licence of QuillmarBasebandSDK 1.0 is not valid."));
  EXPECT_FALSE(fs::exists(folder_.Path() / "quillmar-demo-timeslots.db"));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments + std::string(" ") + c.input);
    folder_.Write("in.y4m", c.input + Frames(25));
    const ToolRun run = RunQuillmar(
        std::string("embed --config channel.json -i in.y4m ") + c.arguments, folder_.Path());
    EXPECT_EQ(c.status, run.status);
    EXPECT_NE(std::string::npos, run.err.find(c.says)) << run.err;
    EXPECT_FALSE(fs::exists(folder_.Path() / "quillmar-demo-timeslots.db"));
    EXPECT_FALSE(fs::exists(folder_.Path() / "Logs/EncodationLog.jsonl"));
  }
}

// A shared database path that names a folder: every allocation attempt fails.
TEST_F(EmbedCommand, NoTimeSlotIsItsOwnFailure) {
  std::string text = ReadFile(folder_.Path() / "channel.json");
  text.replace(text.find("quillmar-demo-timeslots.db"), std::strlen("quillmar-demo-timeslots.db"),
               "blocked");
  folder_.Write("channel.json", text);
  fs::create_directory(folder_.Path() / "blocked");
  ASSERT_EQ(0, RunQuillmar("config sign channel.json", folder_.Path()).status);
  const ToolRun noSlot = Embed("--synthetic 64x36@25 --seconds 1 --json");
  EXPECT_EQ(4, noSlot.status);
  EXPECT_EQ(4, json::parse(noSlot.out).at("exit_status").to_number<int>());
  EXPECT_NE(std::string::npos,
            noSlot.err.find("error: QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - "
                            "error in accessing shared database."));
}

// A relative shared database lies beside the configuration, wherever the tool runs from, and the
// records go beside the log.
TEST_F(EmbedCommand, ARelativeDatabaseIsOneDatabaseFromEveryFolder) {
  fs::create_directory(folder_.Path() / "elsewhere");
  const ToolRun here = Embed("--synthetic 64x36@25 --seconds 2 --json");
  const ToolRun there = RunQuillmar(
      "embed --config ../channel.json --program Demo --synthetic "
      "64x36@25 --seconds 2 --json",
      folder_.Path() / "elsewhere");
  ASSERT_EQ(0, here.status) << here.err;
  ASSERT_EQ(0, there.status) << there.err;
  EXPECT_FALSE(fs::exists(folder_.Path() / "elsewhere/quillmar-demo-timeslots.db"));
  EXPECT_FALSE(fs::exists(folder_.Path() / "elsewhere/Logs"));
  EXPECT_EQ(2u, Records().size());
  EXPECT_EQ(101, json::parse(here.out).at("cid").to_number<int>());
  EXPECT_EQ(102, json::parse(there.out).at("cid").to_number<int>());
}

// What quillmar embed marked, quillmar detect reads back: the CID and the times of the slot the
// database reserved, one second after another. Embedding the marked file again pauses at once.
TEST_F(EmbedCommand, DetectReadsBackTheReservedSlotAndAPriorMarkPausesEmbedding) {
  const ToolRun embed = Embed("--duration 4 --synthetic 320x180@25 --seconds 4 -o marked.y4m --json");
  ASSERT_EQ(0, embed.status) << embed.err;
  const auto summary = json::parse(embed.out).as_object();

  const ToolRun detect = RunQuillmar("detect -i marked.y4m --json", folder_.Path());
  ASSERT_EQ(0, detect.status) << detect.err;
  std::vector<std::string> times;
  for (const auto& line : detect.OutLines()) {
    const auto event = json::parse(line).as_object();
    if (!event.contains("cid")) continue;
    EXPECT_EQ(summary.at("cid"), event.at("cid"));
    times.emplace_back(event.at("time").as_string());
  }
  ASSERT_GE(times.size(), 3u) << detect.out;
  EXPECT_EQ(std::string(summary.at("start").as_string()).substr(0, 19) + "Z", times.front());
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  EXPECT_NE(std::string::npos, detect.err.find("seconds decoded in 100 frames (4.0 s of video)"));

  const ToolRun again = Embed("--duration 4 -i marked.y4m -o remarked.y4m --json");
  ASSERT_EQ(6, again.status) << again.err;
  EXPECT_NE(std::string::npos, again.err.find("Prior watermark found - embedding pending."));
  const auto remarked = json::parse(again.out).as_object();
  EXPECT_LE(remarked.at("embedded_frames").to_number<int>(), 2)
      << "frames marked over before the pause";
  EXPECT_EQ(summary.at("cid"), remarked.at("prior_watermark").at("cid"));
  EXPECT_GE(remarked.at("prior_watermark").at("seconds").to_number<int>(), 1);
  const std::string marked = ReadFile(folder_.Path() / "marked.y4m");
  const std::string passed = ReadFile(folder_.Path() / "remarked.y4m");
  const std::size_t frameBytes = 6 + 320 * 180 * 3 / 2;
  ASSERT_EQ(marked.size(), passed.size());
  EXPECT_EQ(marked.substr(marked.size() - 70 * frameBytes),
            passed.substr(passed.size() - 70 * frameBytes));
}

// The stream's own header passes through: interlace, chroma siting, aspect ratio and X tags.
TEST_F(EmbedCommand, TheStreamHeaderPassesThroughUnchanged) {
  const std::string make =
      "ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x180:rate=25 -t 2 "
      "-vf setfield=tff -color_range pc -chroma_sample_location left "
      "-pix_fmt yuv420p -f yuv4mpegpipe -y in.y4m";
  ASSERT_EQ(0, std::system(("cd " + Quoted(folder_.Path().string()) + " && " + make).c_str()));
  const std::string header = ReadFile(folder_.Path() / "in.y4m").substr(0, 200);
  ASSERT_NE(std::string::npos, header.find("C420mpeg2")) << header;
  ASSERT_NE(std::string::npos, header.find("XCOLORRANGE=FULL")) << header;
  ASSERT_EQ(0, Embed("-i in.y4m -o out.y4m").status);
  const std::string passed = ReadFile(folder_.Path() / "out.y4m").substr(0, 200);
  EXPECT_EQ(header.substr(0, header.find('\n')), passed.substr(0, passed.find('\n')));
  const auto probed = [&](const char* file) {
    return RunCommand("ffprobe -v error -show_entries stream=field_order,color_range -of csv=p=0 " +
                          std::string(file),
                      folder_.Path())
        .out;
  };
  EXPECT_EQ(probed("in.y4m"), probed("out.y4m"));
  EXPECT_NE(std::string::npos, probed("out.y4m").find("pc")) << probed("out.y4m");
}

// Usage errors exit 2, detect exits as grep does (1: nothing found), and the tool says who it is.
TEST(QuillmarCommandLine, ExitStatusesAndWhatTheySay) {
  const Framework::Testing::TemporaryFolder folder;
  static const struct {
    const char* command;
    int status;
    const char* says;  // a pattern searched for in standard output and standard error
  } cases[] = {
      {"bogus", 2, ""},
      {"", 2, ""},
      {"embed --duration x", 2, ""},
      {"detect", 2, ""},
      {"detect -i absent.y4m", 2, ""},
      {"detect --synthetic 160x90@25 --seconds 2 --json", 1,
       "fewer than about 3 s of video cannot be decoded"},
      {"--version", 0, "^QuillmarBasebandSDK \\d+\\.\\d+\\.\\d+"},
      {"embed --help", 0, "--duration UINT=0"},
      {"embed --help", 0, "128\\+N stopped by signal N"},
  };
  for (const auto& c : cases) {
    const ToolRun run = RunQuillmar(c.command, folder.Path());
    EXPECT_EQ(c.status, run.status) << c.command;
    EXPECT_TRUE(std::regex_search(run.out + run.err, std::regex(c.says))) << c.command << run.err;
  }
}

}  // namespace
}  // namespace Quillmar::Testing
