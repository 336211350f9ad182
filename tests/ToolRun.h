// Runs the quillmar tool of this build as a user runs it: a separate process, in a folder of the
// test's choosing, with its standard output and standard error kept apart.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Quillmar::Testing {

struct ToolRun {
  int status = -1;  // the exit status; -1 when the tool did not exit normally
  std::string out;
  std::string err;

  std::vector<std::string> OutLines() const;
  std::vector<std::string> ErrLines() const;
};

// Runs `quillmar <arguments>` (a shell command line: quote what needs it, see Quoted) in `folder`;
// its output is captured in a private folder, so runs may go on side by side.
ToolRun RunQuillmar(const std::string& arguments, const std::filesystem::path& folder);

// `text` quoted for the shell.
std::string Quoted(const std::string& text);

}  // namespace Quillmar::Testing
