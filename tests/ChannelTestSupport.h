// The fixture of the channel's tests: a private folder with a configuration and a time-slot
// file, a recording listener and a recording of the log; and readers of what a run left behind.
#pragma once

#include <gtest/gtest.h>

#include <boost/json/object.hpp>
#include <string>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"
#include "database/DatabaseTestSupport.h"
#include "framework/testing/RecordingLogSink.h"
#include "tests/ChannelHost.h"

namespace QuillmarTesting {

using Strings = std::vector<std::string>;

// The last record of the encodation log at `path`; an empty object when there is none.
boost::json::object LastEncodationRecord(const std::string& path);

// True when the row is held under a lease.
bool IsLocked(const CID_Timestamp_Lock_Record& row);

// The row of `cid` in the time-slot file at `path`; fails the test when there is none.
CID_Timestamp_Lock_Record RowOf(const std::string& path, unsigned cid);

// A test with a private folder holding the configuration ("channel.json", program "Demo" with
// EIDs 101, 102, 103) and its time-slot file ("slots.db"), a recording listener and a
// recording of the log lines.
class ChannelTest : public ::testing::Test {
 protected:
  ChannelTest();

  // Writes configuration_ and returns its path.
  std::string WriteConfig();
  // Configures `channel` for configuration_ (written afresh) with program "Demo" and listener_.
  void Configure(TestChannel& channel, std::uint32_t durationSeconds,
                 double framesPerSecond = 25.0);
  // Configures, initialises and starts `channel`; fails the test when a step fails.
  void StartRun(TestChannel& channel, std::uint32_t durationSeconds, double framesPerSecond = 25.0);

  // The log lines recorded so far at `level`, and how often `text` was logged at `level`.
  std::vector<std::string> LogLines(Framework::EventLevel level) const;
  int LogCount(Framework::EventLevel level, const std::string& text) const;

  Framework::Testing::TemporaryFolder folder_;
  const std::string databasePath_ = folder_.File("slots.db");
  const std::string configPath_ = folder_.File("channel.json");
  TestConfiguration configuration_;
  RecordingListener listener_;
  Framework::Testing::ScopedLogRecording log_;
};

}  // namespace QuillmarTesting
