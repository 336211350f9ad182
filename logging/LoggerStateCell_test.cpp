#include "LoggerStateCell.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <regex>
#include <thread>

#include "framework/platform/Process.h"
#include "framework/testing/ChildProcess.h"
#include "framework/testing/RecordingLogSink.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::Testing::RunInChild;

std::string OwnBlock() { return LoggerStateCell::BlockName(Framework::CurrentProcessId()); }

TEST(LoggerStateCell, OpeningsShareOneStateAndTheLastRemovesTheBlock) {
  EXPECT_EQ(0, RunInChild([] {
    EXPECT_EQ("LoggerStateV1." + std::to_string(::getpid()), OwnBlock());
    EXPECT_FALSE(Framework::NamedSharedMemory::Exists(OwnBlock()));
    auto first = std::make_unique<LoggerStateCell>();
    EXPECT_TRUE(first->BuiltCell());
    EXPECT_EQ(1, first->ReferenceCount());
    {
      LoggerStateCell second;
      EXPECT_FALSE(second.BuiltCell());
      EXPECT_EQ(2, second.ReferenceCount());
      EXPECT_EQ(&first->State(), &second.State());
    }
    EXPECT_EQ(1, first->ReferenceCount());
    EXPECT_TRUE(Framework::NamedSharedMemory::Exists(OwnBlock()));
    first.reset();
    EXPECT_FALSE(Framework::NamedSharedMemory::Exists(OwnBlock()));
  }));
}

// A crashed process left its block behind, and this process got the same id: the block's
// identity is not this process's, so nothing in it is trusted.
TEST(LoggerStateCell, ABlockLeftByAnEarlierProcessIsRebuilt) {
  EXPECT_EQ(0, RunInChild([] {
    {
      Framework::NamedSharedMemory leftBehind(OwnBlock(), LoggerStateCell::kBlockSize);
      const std::uint64_t foreignIdentity = LoggerStateCell::ProcessIdentity() ^ 1;
      const std::int32_t staleCount = 7;
      const std::uint64_t danglingState = 0xdeadbeef;
      auto* bytes = static_cast<unsigned char*>(leftBehind.Address());
      std::memcpy(bytes, &foreignIdentity, 8);
      std::memcpy(bytes + 8, &staleCount, 4);
      std::memcpy(bytes + 16, &danglingState, 8);
    }
    LoggerStateCell cell;
    EXPECT_TRUE(cell.BuiltCell());
    EXPECT_EQ(1, cell.ReferenceCount());
    EXPECT_EQ("", cell.State().TargetName());
    cell.State().StopLogging();
  }));
}

TEST(LoggerState, LockIsRecursiveOnItsOwner) {
  LoggerState state;
  EXPECT_EQ(0, state.RecursionCount());
  EXPECT_EQ(0u, state.OwnerThread());
  state.Lock();
  state.Lock();
  EXPECT_EQ(2, state.RecursionCount());
  EXPECT_EQ(Framework::CurrentThreadId(), state.OwnerThread());

  std::atomic<int> clock{0};
  int releasedAt = 0;
  auto other = std::async(std::launch::async, [&] {
    LoggerState::Guard guard(state);
    return ++clock;
  });
  state.Unlock();
  EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(20)));
  releasedAt = ++clock;
  state.Unlock();
  EXPECT_GT(other.get(), releasedAt);
  EXPECT_EQ(0, state.RecursionCount());
  EXPECT_EQ(0u, state.OwnerThread());
}

TEST(LoggerState, StopLoggingWritesTheLastLineAndDetaches) {
  LoggerState state;
  state.SetSink(nullptr, "nothing");
  state.StopLogging();  // without a sink: only the name is cleared
  EXPECT_EQ("", state.TargetName());

  auto sink = std::make_shared<Framework::Testing::RecordingLogSink>();
  Framework::Logger::AddSink(sink);
  state.SetSink(sink, "/logs/run.html");
  EXPECT_TRUE(state.HasSink());
  state.StopLogging();
  EXPECT_FALSE(state.HasSink());
  EXPECT_EQ("", state.TargetName());
  Framework::Logger::Info("after stop");
  const auto lines = sink->Lines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_TRUE(std::regex_match(
      lines[0].text,
      std::regex(R"(>> Stopped logging to /logs/run\.html at \d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
