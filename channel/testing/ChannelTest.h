// The fixture of the channel's host-driven tests: a private folder holding the configuration, its
// time-slot file and the encodation log, a recording listener and a recording of the log; and the
// small readings of files and times those tests share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/format.hpp>
#include <boost/json.hpp>
#include <fstream>
#include <string>
#include <vector>

#include "channel/testing/ChannelHost.h"
#include "database/DatabaseTestSupport.h"
#include "database/TimeTicks.h"
#include "framework/testing/RecordingLogSink.h"

namespace QuillmarTesting {

using LogLine = Framework::Testing::RecordingLogSink::Line;

// `pattern`, a boost::format, filled in with `values`.
template <typename... Values>
std::string Format(const std::string& pattern, const Values&... values) {
  return (boost::format(pattern) % ... % values).str();
}

// The last record of the encodation log at `path`.
inline boost::json::object LastEncodationRecord(const std::string& path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) last = line;
  return boost::json::parse(last).as_object();
}

// Whether `lines` holds `expected` in this order (other lines may come between).
inline bool InOrder(const std::vector<LogLine>& lines, const std::vector<LogLine>& expected) {
  auto next = expected.begin();
  for (const LogLine& line : lines) {
    if (next != expected.end() && line.level == next->level && line.text == next->text) ++next;
  }
  return next == expected.end();
}

inline SYSTEMTIME Now() {
  SYSTEMTIME now;
  Framework::GetCurrentUtcTime(&now);
  return now;
}

// Seconds from `from` to `to`, with milliseconds.
inline double SecondsBetween(const SYSTEMTIME& from, const SYSTEMTIME& to) {
  using QuillmarBasebandSDK::TimeTicks;
  const auto ticks =
      static_cast<std::int64_t>(TimeTicks::FromSystemTime(to) - TimeTicks::FromSystemTime(from));
  return static_cast<double>(ticks) / TimeTicks::kTicksPerSecond;
}

inline bool IsLocked(const CID_Timestamp_Lock_Record& row) {
  return QuillmarBasebandSDK::TimeTicks::FromSystemTime(row.LockedTill) != 0;
}

// The row of `cid` in the time-slot file at `path`; fails the test when there is none.
inline CID_Timestamp_Lock_Record RowOf(const std::string& path, unsigned cid) {
  for (const CID_Timestamp_Lock_Record& row : QuillmarBasebandSDK::Testing::ReadSlots(path)) {
    if (row.CID == cid) return row;
  }
  ADD_FAILURE() << "no row for CID " << cid << " in " << path;
  return {};
}

// A private folder holding the configuration ("channel.json", program "Demo" with EIDs 101, 102,
// 103), its time-slot file ("slots.db") and the encodation log, a recording listener and a
// recording of the log.
class ChannelTest : public ::testing::Test {
 protected:
  ChannelTest() { configuration_.sharedDatabase = databasePath_; }

  // Configures `channel` for configuration_ (written afresh) with program "Demo" and listener_.
  void Configure(TestChannel& channel, std::uint32_t seconds, double framesPerSecond = 25.0) {
    channel.Configure(WriteConfiguration(configPath_, configuration_), configuration_, "Demo",
                      seconds, &listener_, framesPerSecond);
  }
  // Configures, initialises and starts `channel`, whose embedder writes to encodationLog_; fails
  // the test when a step fails.
  void StartRun(TestChannel& channel, std::uint32_t seconds, double framesPerSecond = 25.0) {
    Configure(channel, seconds, framesPerSecond);
    channel.Embedder().SetProperty("EncodationLogFile", encodationLog_);
    ASSERT_TRUE(channel->InitProcessor());
    ASSERT_TRUE(channel->StartProcessor());
  }
  // The checksum the signed configuration carries.
  std::string Checksum() const {
    std::ifstream file(configPath_);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return std::string(boost::json::parse(text).at("Checksum").as_string());
  }
  // How often `text` was logged at `level` so far.
  int LogCount(Framework::EventLevel level, const std::string& text) const {
    const auto lines = log_->Lines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
      return line.level == level && line.text == text;
    }));
  }

  Framework::Testing::TemporaryFolder folder_;
  const std::string databasePath_ = folder_.File("slots.db");
  const std::string configPath_ = folder_.File("channel.json");
  const std::string encodationLog_ = folder_.File("encodation.jsonl");
  TestConfiguration configuration_;
  RecordingListener listener_;
  Framework::Testing::ScopedLogRecording log_;
};

}  // namespace QuillmarTesting
