#include "tools/testing/ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace Quillmar::Testing {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string Read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

std::string ToolPath() {
  const char* buildDir = std::getenv("QUILLMAR_BUILD_DIR");
  return std::string(buildDir != nullptr ? buildDir : ".") + "/bin/quillmar";
}

int StatusOf(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : -1;
}

void CloseOnce(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

}  // namespace

std::vector<std::string> ToolRun::OutLines() const { return Lines(out); }
std::vector<std::string> ToolRun::ErrLines() const { return Lines(err); }

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

ToolRun RunQuillmar(const std::string& arguments, const std::filesystem::path& folder) {
  return RunCommand(Quoted(ToolPath()) + " " + arguments, folder);
}

ToolRun RunCommand(const std::string& command, const std::filesystem::path& folder) {
  const Framework::Testing::TemporaryFolder capture;
  const std::filesystem::path out = capture.Path() / "stdout";
  const std::filesystem::path err = capture.Path() / "stderr";
  const std::string line = "cd " + Quoted(folder.string()) + " && { " + command + "; } >" +
                           Quoted(out.string()) + " 2>" + Quoted(err.string());
  ToolRun run;
  run.status = StatusOf(std::system(line.c_str()));
  run.out = Read(out);
  run.err = Read(err);
  return run;
}

ToolProcess::ToolProcess(const std::vector<std::string>& arguments,
                         const std::filesystem::path& folder, Pipes pipes) {
  int inputPipe[2] = {-1, -1};
  int outputPipe[2] = {-1, -1};
  if ((pipes.input && ::pipe(inputPipe) != 0) || (pipes.output && ::pipe(outputPipe) != 0)) {
    throw std::runtime_error("cannot make the pipes");
  }
  const std::string out = (capture_.Path() / "stdout").string();
  const std::string err = (capture_.Path() / "stderr").string();
  const std::string tool = ToolPath();
  std::vector<char*> argv{const_cast<char*>(tool.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    if (pipes.input) ::dup2(inputPipe[0], STDIN_FILENO);
    ::dup2(pipes.output ? outputPipe[1] : ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644),
           STDOUT_FILENO);
    ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    for (int descriptor = 3; descriptor < 256; ++descriptor) ::close(descriptor);
    if (::chdir(folder.c_str()) == 0) ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  CloseOnce(inputPipe[0]);
  CloseOnce(outputPipe[1]);
  input_ = inputPipe[1];
  output_ = outputPipe[0];
}

ToolProcess::~ToolProcess() {
  CloseOnce(input_);
  CloseOnce(output_);
  if (pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) == 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
}

void ToolProcess::WriteInput(const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::write(input_, bytes.data() + done, bytes.size() - done);
    if (written <= 0) throw std::runtime_error("cannot write to the tool's standard input");
    done += static_cast<std::size_t>(written);
  }
}

void ToolProcess::CloseInput() { CloseOnce(input_); }

std::string ToolProcess::ReadOutput(std::size_t bytes) {
  std::string read(bytes, '\0');
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t got = ::read(output_, read.data() + done, bytes - done);
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  read.resize(done);
  return read;
}

void ToolProcess::CloseOutput() { CloseOnce(output_); }

void ToolProcess::Signal(int signalNumber) { ::kill(pid_, signalNumber); }

std::string ToolProcess::Err() const { return Read(capture_.Path() / "stderr"); }

bool ToolProcess::WaitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

ToolRun ToolProcess::Finish() {
  ToolRun run;
  if (output_ >= 0) {
    for (std::string chunk; !(chunk = ReadOutput(65536)).empty();) run.out += chunk;
    CloseOnce(output_);
  }
  int raw = 0;
  ::waitpid(pid_, &raw, 0);
  pid_ = -1;
  CloseOnce(input_);
  run.status = StatusOf(raw);
  if (run.out.empty()) run.out = Read(capture_.Path() / "stdout");
  run.err = Err();
  return run;
}

}  // namespace Quillmar::Testing
