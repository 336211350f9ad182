// Standard error as a run shows it: whole lines (reports, warnings) and, on a terminal, one
// status line below them that rewrites itself (progress). A line clears the status line, is
// written, and the status line is drawn again beneath it, so the two never run together.
//
// Thread-safe: lines come from the control and the processing thread.
#pragma once

#include <mutex>
#include <ostream>
#include <string>

namespace Quillmar::Tools {

class Console {
 public:
  // Writes to `stream`; draws the status line only when `terminal`.
  Console(std::ostream& stream, bool terminal);

  // Standard error, with a status line when it is a terminal.
  static Console& StandardError();

  // Writes `text` as a line of its own.
  void Line(const std::string& text);

  // Replaces the status line with `text` (a terminal only).
  void Status(const std::string& text);

  // Leaves the status line as it stands and moves below it.
  void EndStatus();

  bool IsTerminal() const { return terminal_; }

 private:
  void ClearStatus();  // Requires mutex_

  std::ostream& stream_;
  const bool terminal_;
  std::mutex mutex_;
  std::string status_;  // Guarded by mutex_: the status line on screen, empty when none
};

}  // namespace Quillmar::Tools
