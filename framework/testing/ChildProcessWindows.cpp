// ChildProcess where there is no fork: the child is this test executable started again with only
// the current test, told through the environment which of the test's ChildProcess objects it
// stands for. It runs the test from its start; there the ChildProcess objects made before its own
// are inert (they start nothing and end with status 0), and its own runs `body` and exits. So a
// body sees what the test did before it, as a forked child does, but not what earlier children
// did: tests whose children work with each other need fork.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

#include "framework/testing/ChildProcess.h"

namespace Framework::Testing {
namespace {

constexpr int kChildThrew = 125;
constexpr int kKilledStatus = 128 + 9;  // as a child ended by SIGKILL reports elsewhere
constexpr char kChildVariable[] = "QUILLMAR_TEST_CHILD";

std::string CurrentTest() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  return info == nullptr ? "" : std::string(info->test_suite_name()) + "." + info->name();
}

// "Suite.Test#n" for the n-th ChildProcess (from 0) that the current test makes.
std::string NextChildName() {
  static std::string test;
  static int made = 0;
  if (CurrentTest() != test) {
    test = CurrentTest();
    made = 0;
  }
  return test + "#" + std::to_string(made++);
}

// The process handles of the children not yet waited for, by process id.
std::map<pid_t, HANDLE>& Handles() {
  static auto* handles = new std::map<pid_t, HANDLE>;
  return *handles;
}

}  // namespace

ChildProcess::ChildProcess(const std::function<int()>& body) : pid_(0) {
  const std::string name = NextChildName();
  if (const char* wanted = std::getenv(kChildVariable)) {
    reaped_ = true;
    if (name != wanted) return;
    int status = kChildThrew;
    try {
      status = body();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "child %lu: %s\n", ::GetCurrentProcessId(), error.what());
    }
    std::fflush(nullptr);
    std::_Exit(status);
  }

  char program[MAX_PATH];
  const DWORD length = ::GetModuleFileNameA(nullptr, program, MAX_PATH);
  std::string command =
      "\"" + std::string(program, length) + "\" --gtest_brief=1 --gtest_filter=" + CurrentTest();
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ::SetEnvironmentVariableA(kChildVariable, name.c_str());
  const BOOL started = ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &startup, &process);
  ::SetEnvironmentVariableA(kChildVariable, nullptr);
  if (!started) {
    throw std::runtime_error("CreateProcess failed with code " + std::to_string(::GetLastError()));
  }
  ::CloseHandle(process.hThread);
  pid_ = static_cast<pid_t>(process.dwProcessId);
  Handles()[pid_] = process.hProcess;
}

int ChildProcess::Wait() {
  if (!reaped_) {
    const HANDLE handle = Handles()[pid_];
    ::WaitForSingleObject(handle, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(handle, &code);
    ::CloseHandle(handle);
    Handles().erase(pid_);
    status_ = static_cast<int>(code);
    reaped_ = true;
  }
  return status_;
}

void ChildProcess::Kill() {
  if (!reaped_) ::TerminateProcess(Handles()[pid_], kKilledStatus);
}

}  // namespace Framework::Testing
