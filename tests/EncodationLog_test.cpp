// Encodation records written by the reference embedder, created from its shared library: what a
// record holds, where it goes, and that concurrent writers in threads and processes leave only
// whole records.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "framework/platform/SystemTime.h"
#include "tests/PluginTestChannel.h"

namespace QuillmarTesting {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

constexpr char kLogProperty[] = "EncodationLogFile";
constexpr char kLogVariable[] = "QUILLMAR_ENCODATION_LOG";

boost::posix_time::ptime UtcNow() { return boost::posix_time::microsec_clock::universal_time(); }

std::vector<std::string> Lines(const fs::path& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

class EncodationLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PluginTestChannel::UseBuiltPlugins();
    ::unsetenv(kLogVariable);
    folder_ = fs::temp_directory_path() /
              ("EncodationLogTest-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  // An embedder of a new channel, prepared for a run as a channel prepares it.
  static Framework::LumensealBasebandEmbedderPlugin& PreparedEmbedder(PluginTestChannel& channel) {
    Framework::LumensealBasebandEmbedderPlugin& embedder = *channel.Embedder();
    embedder.SetFrameRate(25.0);
    embedder.SetSelectedCID(4000000001u);
    embedder.SetSelectedStartTime(SYSTEMTIME{2026, 11, 6, 21, 7, 40, 3, 5});
    embedder.SetSelectedDurationInSeconds(4561);
    embedder.InitProcessor();
    return embedder;
  }

  fs::path folder_;
};

TEST_F(EncodationLogTest, RecordHoldsEveryArgumentTheSlotAndTheWriteTime) {
  const auto channel = PluginTestChannel::Create(2);
  auto& embedder = PreparedEmbedder(*channel);
  const fs::path log = folder_ / "log.jsonl";
  embedder.SetProperty(kLogProperty, log.string());
  embedder.ReportPriorWatermark(11, 1000, 0.5);
  embedder.ReportPriorWatermark(12, 2000, 1.0);
  embedder.ReportPriorWatermark(11, 1003, 3.5);

  const boost::posix_time::ptime before = UtcNow();
  embedder.WriteEncodationLog("first", "second", "Studio A", "third",
                              {{"itemid", "A-1"}, {"note", "line\nbreak \"quoted\""}}, "CRC 1234",
                              0.25);
  const boost::posix_time::ptime after = UtcNow();

  const std::vector<std::string> lines = Lines(log);
  ASSERT_EQ(lines.size(), 1u);
  const json::object record = json::parse(lines[0]).as_object();
  const std::string written(record.at("WrittenAtUtc").as_string());
  ASSERT_EQ(written.back(), 'Z');
  const boost::posix_time::ptime writtenTime =
      boost::posix_time::from_iso_extended_string(written.substr(0, written.size() - 1));
  EXPECT_LE(before - boost::posix_time::milliseconds(1), writtenTime) << written;
  EXPECT_LE(writtenTime, after) << written;
  EXPECT_EQ(record.at("ChannelIndex").to_number<int>(), 2);
  EXPECT_EQ(record.at("HostText1"), "first");
  EXPECT_EQ(record.at("HostText2"), "second");
  EXPECT_EQ(record.at("Facility"), "Studio A");
  EXPECT_EQ(record.at("HostText3"), "third");
  EXPECT_EQ(record.at("Metadata"),
            (json::object{{"itemid", "A-1"}, {"note", "line\nbreak \"quoted\""}}));
  EXPECT_EQ(record.at("ConfigurationChecksum"), "CRC 1234");
  EXPECT_EQ(record.at("AverageEnergy").to_number<double>(), 0.25);
  EXPECT_EQ(record.at("CID").to_number<std::uint64_t>(), 4000000001u);
  EXPECT_EQ(record.at("SlotStart"), "2026-11-21T07:40:03.005Z");
  EXPECT_EQ(record.at("SlotLengthSeconds").to_number<std::uint64_t>(), 4561u);
  EXPECT_EQ(record.at("EmbeddedDurationInSeconds").to_number<std::uint64_t>(), 0u);
  const json::array& prior = record.at("PriorWatermarks").as_array();
  ASSERT_EQ(prior.size(), 2u);
  EXPECT_EQ(prior[0].at("CID").to_number<int>(), 11);
  EXPECT_EQ(prior[0].at("Reports").to_number<int>(), 2);
  EXPECT_EQ(prior[0].at("FirstTimestamp").to_number<int>(), 1000);
  EXPECT_EQ(prior[0].at("LastTimestamp").to_number<int>(), 1003);
  EXPECT_EQ(prior[0].at("LastMediaDetectionTimestamp").to_number<double>(), 3.5);
  EXPECT_EQ(prior[1].at("CID").to_number<int>(), 12);
  EXPECT_EQ(prior[1].at("Reports").to_number<int>(), 1);

  // A later record is appended; the earlier one stays byte for byte.
  const std::string first = Contents(log);
  embedder.WriteEncodationLog("", "", "", "", {}, "", 0.0);
  const std::string both = Contents(log);
  EXPECT_EQ(both.substr(0, first.size()), first);
  EXPECT_EQ(Lines(log).size(), 2u);
}

TEST_F(EncodationLogTest, LocationComesFromThePropertyThenTheEnvironmentThenTheDefault) {
  const auto channel = PluginTestChannel::Create(0);
  auto& embedder = PreparedEmbedder(*channel);
  const fs::path byProperty = folder_ / "property" / "log.jsonl";
  const fs::path byVariable = folder_ / "variable" / "log.jsonl";
  ::setenv(kLogVariable, byVariable.c_str(), 1);

  embedder.SetProperty(kLogProperty, byProperty.string());
  embedder.WriteEncodationLog("1", "", "", "", {}, "", 0.0);
  embedder.SetProperty(kLogProperty, "");
  embedder.WriteEncodationLog("2", "", "", "", {}, "", 0.0);
  ::unsetenv(kLogVariable);
  const fs::path workingFolder = fs::current_path();
  fs::current_path(folder_);
  embedder.WriteEncodationLog("3", "", "", "", {}, "", 0.0);
  fs::current_path(workingFolder);

  const auto onlyRecord = [](const fs::path& path) {
    const std::vector<std::string> lines = Lines(path);
    return lines.size() == 1 ? std::string(json::parse(lines[0]).at("HostText1").as_string())
                             : "(" + std::to_string(lines.size()) + " records)";
  };
  EXPECT_EQ(onlyRecord(byProperty), "1");
  EXPECT_EQ(onlyRecord(byVariable), "2");
  EXPECT_EQ(onlyRecord(folder_ / "Logs" / "EncodationLog.jsonl"), "3");
}

// Two processes with two threads each, every thread with a channel of its own, write large
// records into one file at once; every record comes back whole, exactly once.
TEST_F(EncodationLogTest, RecordsFromTwoThreadsAndTwoProcessesAreWhole) {
  constexpr int kProcesses = 2;
  constexpr int kThreads = 2;
  constexpr int kRecords = 100;
  constexpr std::size_t kValueSize = 20000;  // Far beyond what one pipe write keeps together
  const fs::path log = folder_ / "shared.jsonl";
  ::setenv(kLogVariable, log.c_str(), 1);

  const auto writer = [&](int process, int thread) {
    const auto channel = PluginTestChannel::Create(static_cast<std::uint64_t>(thread));
    auto& embedder = PreparedEmbedder(*channel);
    const std::string filler(kValueSize, static_cast<char>('a' + process * kThreads + thread));
    for (int record = 0; record < kRecords; ++record) {
      embedder.WriteEncodationLog(std::to_string(process), std::to_string(thread), "",
                                  std::to_string(record), {{"filler", filler}}, "", 0.0);
    }
  };
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      std::vector<std::thread> threads;
      for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back(writer, process, thread);
      }
      for (std::thread& thread : threads) thread.join();
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  std::set<std::string> seen;
  for (const std::string& line : Lines(log)) {
    boost::system::error_code error;
    const json::value record = json::parse(line, error);
    ASSERT_FALSE(error) << "a record is not whole: " << line.substr(0, 80) << "...";
    const int process = std::stoi(std::string(record.at("HostText1").as_string()));
    const int thread = std::stoi(std::string(record.at("HostText2").as_string()));
    const std::string filler(kValueSize, static_cast<char>('a' + process * kThreads + thread));
    EXPECT_EQ(record.at("Metadata").at("filler"), filler.c_str());
    const std::string key = std::to_string(process) + "/" + std::to_string(thread) + "/" +
                            std::string(record.at("HostText3").as_string());
    EXPECT_TRUE(seen.insert(key).second) << "written twice: " << key;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kProcesses * kThreads * kRecords));
}

}  // namespace
}  // namespace QuillmarTesting
