// Encodation records written by the reference embedder, created from its shared library: what a
// record holds, where it goes, and that concurrent writers in threads and processes leave only
// whole records.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <thread>

#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"
#include "tests/PluginTestChannel.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
namespace pt = boost::posix_time;

constexpr char kLogVariable[] = "QUILLMAR_ENCODATION_LOG";

std::vector<std::string> Lines(const fs::path& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

class EncodationLogTest : public ::testing::Test {
 protected:
  EncodationLogTest() {
    PluginTestChannel::UseBuiltPlugins();
    ::unsetenv(kLogVariable);
  }

  // The embedder of a new channel, prepared for a run as a channel prepares it.
  static Framework::LumensealBasebandEmbedderPlugin& PreparedEmbedder(PluginTestChannel& channel) {
    Framework::LumensealBasebandEmbedderPlugin& embedder = *channel.Embedder();
    embedder.SetFrameRate(25.0);
    embedder.SetSelectedCID(4000000001u);
    embedder.SetSelectedStartTime(SYSTEMTIME{2026, 11, 6, 21, 7, 40, 3, 5});
    embedder.SetSelectedDurationInSeconds(4561);
    embedder.InitProcessor();
    return embedder;
  }

  const Framework::Testing::TemporaryFolder folder_;
};

TEST_F(EncodationLogTest, RecordHoldsEveryArgumentTheSlotAndTheWriteTime) {
  const auto channel = PluginTestChannel::Create(2);
  auto& embedder = PreparedEmbedder(*channel);
  const std::string log = folder_.File("log.jsonl");
  embedder.SetProperty("EncodationLogFile", log);
  embedder.ReportPriorWatermark(11, 1000, 0.5);
  embedder.ReportPriorWatermark(12, 2000, 1.0);
  embedder.ReportPriorWatermark(11, 1003, 3.5);
  const pt::ptime before = pt::microsec_clock::universal_time() - pt::milliseconds(1);
  embedder.WriteEncodationLog("first", "second", "Studio A", "third",
                              {{"itemid", "A-1"}, {"note", "line\nbreak \"quoted\""}}, "CRC 1234",
                              0.25);
  const pt::ptime after = pt::microsec_clock::universal_time();

  const std::vector<std::string> lines = Lines(log);
  ASSERT_EQ(lines.size(), 1u);
  json::object record = json::parse(lines[0]).as_object();
  std::string written(record.at("WrittenAtUtc").as_string());
  ASSERT_EQ(written.back(), 'Z');
  written.pop_back();
  EXPECT_LE(before, pt::from_iso_extended_string(written)) << written;
  EXPECT_LE(pt::from_iso_extended_string(written), after) << written;
  record.erase("WrittenAtUtc");
  EXPECT_EQ(record, json::parse(R"({"ChannelIndex": 2, "CID": 4000000001,
      "SlotStart": "2026-11-21T07:40:03.005Z", "SlotLengthSeconds": 4561,
      "EmbeddedDurationInSeconds": 0, "HostText1": "first", "HostText2": "second",
      "Facility": "Studio A", "HostText3": "third",
      "Metadata": {"itemid": "A-1", "note": "line\nbreak \"quoted\""},
      "ConfigurationChecksum": "CRC 1234", "AverageEnergy": 0.25, "PriorWatermarks": [
        {"CID": 11, "Reports": 2, "FirstTimestamp": 1000, "LastTimestamp": 1003,
         "FirstMediaDetectionTimestamp": 0.5, "LastMediaDetectionTimestamp": 3.5},
        {"CID": 12, "Reports": 1, "FirstTimestamp": 2000, "LastTimestamp": 2000,
         "FirstMediaDetectionTimestamp": 1.0, "LastMediaDetectionTimestamp": 1.0}]})")
                        .as_object());

  // A later record is appended; the earlier one stays as it was.
  embedder.WriteEncodationLog("", "", "", "", {}, "", 0.0);
  const std::vector<std::string> both = Lines(log);
  ASSERT_EQ(both.size(), 2u);
  EXPECT_EQ(both[0], lines[0]);
}

TEST_F(EncodationLogTest, LocationComesFromThePropertyThenTheEnvironmentThenTheDefault) {
  const auto channel = PluginTestChannel::Create(0);
  auto& embedder = PreparedEmbedder(*channel);
  const fs::path byProperty = folder_.Path() / "property" / "log.jsonl";
  const fs::path byVariable = folder_.Path() / "variable" / "log.jsonl";
  ::setenv(kLogVariable, byVariable.c_str(), 1);
  embedder.SetProperty("EncodationLogFile", byProperty.string());
  embedder.WriteEncodationLog("1", "", "", "", {}, "", 0.0);
  embedder.SetProperty("EncodationLogFile", "");
  embedder.WriteEncodationLog("2", "", "", "", {}, "", 0.0);
  ::unsetenv(kLogVariable);
  // This process logs to no file: the default is Logs/ under the working folder.
  const fs::path workingFolder = fs::current_path();
  fs::current_path(folder_.Path());
  embedder.WriteEncodationLog("3", "", "", "", {}, "", 0.0);
  fs::current_path(workingFolder);

  const auto onlyRecord = [](const fs::path& path) {
    const std::vector<std::string> lines = Lines(path);
    return lines.size() == 1 ? std::string(json::parse(lines[0]).at("HostText1").as_string())
                             : std::to_string(lines.size()) + " records";
  };
  EXPECT_EQ(onlyRecord(byProperty), "1");
  EXPECT_EQ(onlyRecord(byVariable), "2");
  EXPECT_EQ(onlyRecord(folder_.Path() / "Logs" / "EncodationLog.jsonl"), "3");
}

// Two processes with two threads each, every thread with a channel of its own, write large
// records into one file at once; every record comes back whole, exactly once.
TEST_F(EncodationLogTest, RecordsFromTwoThreadsAndTwoProcessesAreWhole) {
  constexpr int kProcesses = 2, kThreads = 2, kRecords = 100;
  const auto filler = [](int process, int thread) {
    // Far beyond what one pipe write keeps together.
    return std::string(20000, static_cast<char>('a' + process * kThreads + thread));
  };
  ::setenv(kLogVariable, folder_.File("shared.jsonl").c_str(), 1);
  const auto writer = [&](int process, int thread) {
    const auto channel = PluginTestChannel::Create(static_cast<std::uint64_t>(thread));
    auto& embedder = PreparedEmbedder(*channel);
    for (int record = 0; record < kRecords; ++record) {
      embedder.WriteEncodationLog(std::to_string(process), std::to_string(thread), "",
                                  std::to_string(record), {{"filler", filler(process, thread)}}, "",
                                  0.0);
    }
  };
  std::vector<std::unique_ptr<Framework::Testing::ChildProcess>> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(std::make_unique<Framework::Testing::ChildProcess>([&, process] {
      std::thread other(writer, process, 1);
      writer(process, 0);
      other.join();
      return 0;
    }));
  }
  for (const auto& child : children) ASSERT_EQ(0, child->Wait());

  std::set<std::string> seen;
  for (const std::string& line : Lines(folder_.File("shared.jsonl"))) {
    boost::system::error_code error;
    const json::value record = json::parse(line, error);
    ASSERT_FALSE(error) << "a record is not whole: " << line.substr(0, 80) << "...";
    const std::string process(record.at("HostText1").as_string());
    const std::string thread(record.at("HostText2").as_string());
    EXPECT_EQ(record.at("Metadata").at("filler"),
              filler(std::stoi(process), std::stoi(thread)).c_str());
    const std::string key =
        process + "/" + thread + "/" + record.at("HostText3").as_string().c_str();
    EXPECT_TRUE(seen.insert(key).second) << "written twice: " << key;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kProcesses * kThreads * kRecords));
}

}  // namespace
}  // namespace QuillmarTesting
