#include "tools/Console.h"

#include <unistd.h>

#include <iostream>

namespace Quillmar::Tools {
namespace {

constexpr char kClearLine[] = "\r\033[K";

}  // namespace

Console::Console(std::ostream& stream, bool terminal) : stream_(stream), terminal_(terminal) {}

Console& Console::StandardError() {
  static Console console(std::cerr, ::isatty(STDERR_FILENO) == 1);
  return console;
}

void Console::ClearStatus() {
  if (!status_.empty()) stream_ << kClearLine;
}

void Console::Line(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  ClearStatus();
  stream_ << text << '\n' << status_ << std::flush;
}

void Console::Status(const std::string& text) {
  if (!terminal_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  stream_ << kClearLine << text << std::flush;
  status_ = text;
}

void Console::EndStatus() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (status_.empty()) return;
  stream_ << '\n' << std::flush;
  status_.clear();
}

}  // namespace Quillmar::Tools
