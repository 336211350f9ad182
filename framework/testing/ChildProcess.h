// Runs part of a test in a fresh child process, for behaviour that is process-wide (the logger,
// shared memory named after the process) or that must survive a crash.
//
//   EXPECT_EQ(0, Framework::Testing::RunInChild([] { ...gtest assertions... }));
//
// The child runs `body` and ends with status 0 when no assertion of the test has failed, else 1;
// an assertion failure inside the child is printed by the child.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace Framework::Testing {

// The child's exit status, or 128 + the signal number that ended it.
inline int RunInChild(const std::function<void()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace Framework::Testing
