// ChildProcess: a forked copy of the calling process that runs one function and exits.
// (Windows has no fork: ChildProcessWindows.cpp says how a child is made there.)
//
// For multi-process tests and load drivers, and for tests of behaviour that is process-wide
// (the logger, shared memory named after the process): RunInChild runs a part of a test in a
// fresh child and tells whether its assertions held. Fork only while the process has one thread and
// no open SQLite connection (a connection must not cross a fork). The child leaves with _exit, so
// no exit handler of the parent's copy runs twice. A child still running when its ChildProcess is
// destroyed is killed and reaped, so a failing test never leaves one behind.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>

namespace Framework::Testing {

class ChildProcess {
 public:
  // Forks; the child runs `body` and exits with its result (125 when it throws).
  explicit ChildProcess(const std::function<int()>& body);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Kills and reaps the child if it has not been waited for.
  ~ChildProcess() {
    if (reaped_) return;
    Kill();
    Wait();
  }

  pid_t Pid() const { return pid_; }

  // Waits for the child to end; its exit status, or 128 + the signal that ended it.
  int Wait();

  // Sends SIGKILL; Wait then returns 128 + SIGKILL.
  void Kill();

 private:
  pid_t pid_;
  bool reaped_ = false;
  int status_ = 0;
};

// Runs `body`, which makes GoogleTest assertions, in a child; its exit status: 0 when no
// assertion of the test failed, 1 when one did, 128 + a signal that ended it.
//   EXPECT_EQ(0, RunInChild([] { ... }));
inline int RunInChild(const std::function<void()>& body) {
  ChildProcess child([&body] {
    body();
    return ::testing::Test::HasFailure() ? 1 : 0;
  });
  return child.Wait();
}

}  // namespace Framework::Testing
