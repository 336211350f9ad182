#include "framework/testing/ChildProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace Framework::Testing {
namespace {

constexpr int kChildThrew = 125;
constexpr int kSignalStatusBase = 128;

}  // namespace

ChildProcess::ChildProcess(const std::function<int()>& body) : pid_(fork()) {
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ != 0) return;
  int status = kChildThrew;
  try {
    status = body();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child %d: %s\n", static_cast<int>(getpid()), error.what());
  }
  std::fflush(nullptr);
  _exit(status);
}

int ChildProcess::Wait() {
  if (!reaped_) {
    int raw = 0;
    while (waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
    }
    status_ = WIFSIGNALED(raw) ? kSignalStatusBase + WTERMSIG(raw) : WEXITSTATUS(raw);
    reaped_ = true;
  }
  return status_;
}

void ChildProcess::Kill() {
  if (!reaped_) kill(pid_, SIGKILL);
}

}  // namespace Framework::Testing
