#include "tests/ChannelTestSupport.h"

#include <algorithm>
#include <boost/json.hpp>
#include <fstream>

#include "database/TimeTicks.h"

namespace QuillmarTesting {

boost::json::object LastEncodationRecord(const std::string& path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) last = line;
  if (last.empty()) return {};
  return boost::json::parse(last).as_object();
}

bool IsLocked(const CID_Timestamp_Lock_Record& row) {
  return QuillmarBasebandSDK::TimeTicks::FromSystemTime(row.LockedTill) != 0;
}

CID_Timestamp_Lock_Record RowOf(const std::string& path, unsigned cid) {
  for (const CID_Timestamp_Lock_Record& row : QuillmarBasebandSDK::Testing::ReadSlots(path)) {
    if (row.CID == cid) return row;
  }
  ADD_FAILURE() << "no row for CID " << cid << " in " << path;
  return {};
}

ChannelTest::ChannelTest() { configuration_.sharedDatabase = databasePath_; }

std::string ChannelTest::WriteConfig() { return WriteConfiguration(configPath_, configuration_); }

void ChannelTest::Configure(TestChannel& channel, std::uint32_t durationSeconds,
                            double framesPerSecond) {
  channel.Configure(WriteConfig(), configuration_, "Demo", durationSeconds, &listener_,
                    framesPerSecond);
}

void ChannelTest::StartRun(TestChannel& channel, std::uint32_t durationSeconds,
                           double framesPerSecond) {
  Configure(channel, durationSeconds, framesPerSecond);
  ASSERT_TRUE(channel->InitProcessor());
  ASSERT_TRUE(channel->StartProcessor());
}

std::vector<std::string> ChannelTest::LogLines(Framework::EventLevel level) const {
  std::vector<std::string> lines;
  for (const auto& line : log_->Lines()) {
    if (line.level == level) lines.push_back(line.text);
  }
  return lines;
}

int ChannelTest::LogCount(Framework::EventLevel level, const std::string& text) const {
  const auto lines = LogLines(level);
  return static_cast<int>(std::count(lines.begin(), lines.end(), text));
}

}  // namespace QuillmarTesting
