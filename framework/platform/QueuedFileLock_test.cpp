// The queued file lock with real processes: turns in arrival order, a killed holder or waiter
// stalls no one, a wait that times out gives up its place, objects of one process queue apart.
#include "framework/platform/QueuedFileLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"

namespace Framework {
namespace {

using std::chrono::milliseconds;
using Testing::ChildProcess;

constexpr milliseconds kLong{60'000};

class QueuedFileLockTest : public ::testing::Test {
 protected:
  // A process that takes its turn, says so on the pipe and holds it until it is killed.
  std::unique_ptr<ChildProcess> StartHolder() {
    auto holder = std::make_unique<ChildProcess>([this] {
      QueuedFileLock lock(path_);
      if (!lock.Acquire(kLong) || write(ready_[1], "H", 1) != 1) return 1;
      for (;;) pause();
    });
    char said = 0;
    EXPECT_EQ(1, read(ready_[0], &said, 1));
    return holder;
  }

  // A process that queues as number `id`, writes its id to the order file when its turn comes
  // and ends; returns once it holds its place in the queue.
  std::unique_ptr<ChildProcess> StartWaiter(char id) {
    const std::uint64_t before = QueuedFileLock::TicketsIssued(path_);
    auto waiter = std::make_unique<ChildProcess>([this, id] {
      QueuedFileLock lock(path_);
      if (!lock.Acquire(kLong)) return 1;
      std::ofstream(folder_.File("order"), std::ios::app) << id;
      return 0;
    });
    while (QueuedFileLock::TicketsIssued(path_) == before) std::this_thread::yield();
    return waiter;
  }

  void SetUp() override { ASSERT_EQ(0, pipe(ready_)); }
  void TearDown() override {
    close(ready_[0]);
    close(ready_[1]);
  }

  Testing::TemporaryFolder folder_;
  const std::string path_ = folder_.File("slots.db-queue");
  int ready_[2] = {-1, -1};
};

TEST_F(QueuedFileLockTest, TurnsComeInArrivalOrderAndTheDeadStallNoOne) {
  auto holder = StartHolder();
  std::vector<std::unique_ptr<ChildProcess>> waiters;
  for (const char id : {'1', '2', '3', '4'}) waiters.push_back(StartWaiter(id));

  waiters[1]->Kill();  // dies while waiting
  EXPECT_EQ(128 + SIGKILL, waiters[1]->Wait());
  const auto killed = std::chrono::steady_clock::now();
  holder->Kill();  // dies while holding
  for (const int i : {0, 2, 3}) EXPECT_EQ(0, waiters[static_cast<std::size_t>(i)]->Wait());
  EXPECT_LT(std::chrono::steady_clock::now() - killed, std::chrono::seconds(5))
      << "the queue moved on long after its holder died";

  std::ifstream order(folder_.File("order"));
  EXPECT_EQ("134", std::string(std::istreambuf_iterator<char>(order), {}));
}

TEST_F(QueuedFileLockTest, AWaitThatTimesOutGivesUpItsPlace) {
  QueuedFileLock first(path_);
  QueuedFileLock second(path_);
  ASSERT_TRUE(first.Usable());
  ASSERT_TRUE(first.Acquire(kLong));
  EXPECT_FALSE(second.Acquire(milliseconds(20))) << "objects of one process queue apart";

  auto waiter = StartWaiter('W');  // queued behind the place given up
  first.Release();
  EXPECT_EQ(0, waiter->Wait());
  EXPECT_TRUE(second.Acquire(milliseconds(20)));

  QueuedFileLock nowhere(folder_.File("missing/slots.db-queue"));
  EXPECT_FALSE(nowhere.Usable());
  EXPECT_TRUE(nowhere.Acquire(milliseconds(0))) << "an unusable queue holds no one up";
}

}  // namespace
}  // namespace Framework
