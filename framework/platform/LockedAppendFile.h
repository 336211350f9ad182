// A file of whole records, appended to under an exclusive lock on the file (flock / LockFileEx),
// so that writers in this and other processes take turns.
//
// The lock is taken when the object is made and given back, with the file, when it is destroyed.
// One thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "Export.h"

namespace Framework {

class FRAMEWORK_API LockedAppendFile {
 public:
  // Opens `path` for appending, creating it, and waits for the lock. Error() says what failed; it
  // is empty when the file is ready.
  explicit LockedAppendFile(const std::string& path);
  ~LockedAppendFile();
  LockedAppendFile(const LockedAppendFile&) = delete;
  LockedAppendFile& operator=(const LockedAppendFile&) = delete;

  const std::string& Error() const { return error_; }

  // Appends all of `record` and flushes it to the disk. Returns false and fills *error when the
  // record could not be written whole (the file then ends where it ended before) or not be
  // flushed (the record stays).
  bool Append(const std::string& record, std::string* error);

 private:
  std::string path_;
  std::intptr_t file_ = -1;  // a descriptor, or a HANDLE on Windows; -1 when not open
  bool locked_ = false;
  std::string error_;
};

}  // namespace Framework
