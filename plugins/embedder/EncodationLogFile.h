// An append-only file of whole lines (the encodation log, one JSON record per line), shared by
// every thread and process that writes it.
//
// Append writes a line under an exclusive lock on the file (Framework::LockedAppendFile), so
// writers in this and other processes take turns. A line that cannot be written completely is cut
// off again, so the file only ever holds whole lines, and the bytes before the new line are never
// rewritten.
// Thread-safe: each call opens, locks and closes the file on its own.
#pragma once

#include <filesystem>
#include <string>

namespace LumensealReference {

class EncodationLogFile {
 public:
  explicit EncodationLogFile(std::filesystem::path path) : path_(std::move(path)) {}

  const std::filesystem::path& Path() const { return path_; }

  // Appends `line` and a line feed, creating the file and its missing folders, and flushes it to
  // the disk. `line` must not hold a line feed. Returns false and fills *error when the line could
  // not be written whole (the file then ends where it ended before) or not be flushed (the line
  // stays).
  bool Append(const std::string& line, std::string* error) const;

 private:
  std::filesystem::path path_;
};

}  // namespace LumensealReference
