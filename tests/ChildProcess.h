// ChildProcess: a forked copy of the calling process that runs one function and exits.
//
// For multi-process tests and load drivers. Fork only while the process has one thread and no open
// SQLite connection (a connection must not cross a fork). The child leaves with _exit, so no
// exit handler of the parent's copy runs twice. A child still running when its ChildProcess is
// destroyed is killed and reaped, so a failing test never leaves one behind.
#pragma once

#include <sys/types.h>

#include <functional>

namespace QuillmarBasebandSDK::Testing {

class ChildProcess {
 public:
  // Forks; the child runs `body` and exits with its result (125 when it throws).
  explicit ChildProcess(const std::function<int()>& body);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

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

}  // namespace QuillmarBasebandSDK::Testing
