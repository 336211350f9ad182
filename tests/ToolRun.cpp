#include "tests/ToolRun.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "framework/testing/TemporaryFolder.h"

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

}  // namespace

std::vector<std::string> ToolRun::OutLines() const { return Lines(out); }
std::vector<std::string> ToolRun::ErrLines() const { return Lines(err); }

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

ToolRun RunQuillmar(const std::string& arguments, const std::filesystem::path& folder) {
  const Framework::Testing::TemporaryFolder capture;
  const std::filesystem::path out = capture.Path() / "stdout";
  const std::filesystem::path err = capture.Path() / "stderr";
  const std::string command = "cd " + Quoted(folder.string()) + " && " + Quoted(ToolPath()) +
                              " " + arguments + " >" + Quoted(out.string()) + " 2>" +
                              Quoted(err.string());
  const int raw = std::system(command.c_str());
  ToolRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = Read(out);
  run.err = Read(err);
  return run;
}

}  // namespace Quillmar::Testing
