// Runs the quillmar tool of this build as a user runs it: a separate process, in a folder of the
// test's choosing, with its standard output and standard error kept apart.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "framework/testing/TemporaryFolder.h"

namespace Quillmar::Testing {

struct ToolRun {
  int status = -1;  // the exit status; 128 + the signal when a signal ended the tool
  std::string out;
  std::string err;

  std::vector<std::string> OutLines() const;
  std::vector<std::string> ErrLines() const;
};

// Runs `quillmar <arguments>` (a shell command line: quote what needs it, see Quoted) in `folder`;
// its output is captured in a private folder, so runs may go on side by side.
ToolRun RunQuillmar(const std::string& arguments, const std::filesystem::path& folder);

// Runs the shell command line `command` in `folder`, as RunQuillmar does.
ToolRun RunCommand(const std::string& command, const std::filesystem::path& folder);

// `text` quoted for the shell.
std::string Quoted(const std::string& text);

// A quillmar run that a test drives while it goes on: its standard input and output may be pipes
// that the test writes and reads, and it can be sent signals. Standard error, and standard output
// when it is no pipe, go to files the test can read at any time.
class ToolProcess {
 public:
  struct Pipes {
    bool input = false;
    bool output = false;
  };

  ToolProcess(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
              Pipes pipes);
  // Kills a process still running.
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  pid_t Pid() const { return pid_; }
  void WriteInput(const std::string& bytes);
  void CloseInput();
  // Reads up to `bytes` of its standard output; fewer at its end.
  std::string ReadOutput(std::size_t bytes);
  void CloseOutput();
  void Signal(int signalNumber);
  // What it wrote to standard error so far.
  std::string Err() const;

  // Waits until `condition` holds, checking every few milliseconds; false after 30 s.
  static bool WaitUntil(const std::function<bool()>& condition);

  // Waits for the end (close the input first when the tool should see its end) and returns what
  // it wrote.
  ToolRun Finish();

 private:
  Framework::Testing::TemporaryFolder capture_;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
};

}  // namespace Quillmar::Testing
