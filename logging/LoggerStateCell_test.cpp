#include "LoggerStateCell.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>

#include "framework/platform/Process.h"
#include "framework/testing/ChildProcess.h"

namespace QuillmarBasebandSDK {
namespace {

// A crashed process left its block behind, and this process got the same id: the block's
// identity is not this process's, so nothing in it is trusted.
TEST(LoggerStateCell, ABlockLeftByAnEarlierProcessIsRebuilt) {
  EXPECT_EQ(0, Framework::Testing::RunInChild([] {
    {
      Framework::NamedSharedMemory leftBehind(
          LoggerStateCell::BlockName(Framework::CurrentProcessId()), LoggerStateCell::kBlockSize);
      // Another identity, a count of 7 (little-endian, as every supported host is), a dangling
      // state pointer.
      const std::uint64_t stale[] = {LoggerStateCell::ProcessIdentity() ^ 1, 7, 0xdeadbeef};
      std::memcpy(leftBehind.Address(), stale, sizeof stale);
    }
    LoggerStateCell cell;
    EXPECT_TRUE(cell.BuiltCell());
    EXPECT_EQ(1, cell.ReferenceCount());
  }));
}

TEST(LoggerState, LockIsRecursiveOnItsOwner) {
  LoggerState state;
  state.Lock();
  state.Lock();
  EXPECT_EQ(2, state.RecursionCount());
  EXPECT_EQ(Framework::CurrentThreadId(), state.OwnerThread());
  std::atomic<int> clock{0};
  auto other = std::async(std::launch::async, [&] {
    LoggerState::Guard guard(state);
    return ++clock;
  });
  state.Unlock();
  // Gives the other thread the chance to take the lock early; the clock tells whether it did.
  EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(20)));
  const int releasedAt = ++clock;
  state.Unlock();
  EXPECT_GT(other.get(), releasedAt);
  EXPECT_EQ(0u, state.OwnerThread());
}

}  // namespace
}  // namespace QuillmarBasebandSDK
