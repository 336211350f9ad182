#include "LockedAppendFile.h"

#if defined(_WIN32)
#include <windows.h>

#include <algorithm>
#include <system_error>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#endif

namespace Framework {
namespace {

#if defined(_WIN32)

HANDLE HandleOf(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }

std::string LastErrorText() { return std::system_category().message(::GetLastError()); }

// The whole file, however long it grows: every writer locks the same range.
bool LockWholeFile(HANDLE file, bool lock) {
  OVERLAPPED start{};
  return lock ? ::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, MAXDWORD, MAXDWORD, &start) != 0
              : ::UnlockFileEx(file, 0, MAXDWORD, MAXDWORD, &start) != 0;
}

bool MoveTo(HANDLE file, std::int64_t offset) {
  LARGE_INTEGER position;
  position.QuadPart = offset;
  return ::SetFilePointerEx(file, position, nullptr, FILE_BEGIN) != 0;
}

bool WriteAll(HANDLE file, const std::string& data) {
  std::size_t written = 0;
  while (written < data.size()) {
    DWORD chunk = 0;
    const DWORD size = static_cast<DWORD>(std::min<std::size_t>(data.size() - written, 1u << 30));
    if (!::WriteFile(file, data.data() + written, size, &chunk, nullptr) || chunk == 0) {
      return false;
    }
    written += chunk;
  }
  return true;
}

#else

std::string LastErrorText() { return std::strerror(errno); }

constexpr mode_t kFileMode = 0644;

// Writes all of `data`; false (errno set) when the system wrote less.
bool WriteAll(int fd, const std::string& data) {
  std::size_t written = 0;
  while (written < data.size()) {
    const ssize_t result = ::write(fd, data.data() + written, data.size() - written);
    if (result < 0 && errno == EINTR) continue;
    if (result <= 0) {
      if (result == 0) errno = EIO;
      return false;
    }
    written += static_cast<std::size_t>(result);
  }
  return true;
}

#endif

}  // namespace

#if defined(_WIN32)

LockedAppendFile::LockedAppendFile(const std::string& path) : path_(path) {
  const HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    error_ = "cannot open " + path + ": " + LastErrorText();
    return;
  }
  file_ = reinterpret_cast<std::intptr_t>(file);
  locked_ = LockWholeFile(file, true);
  if (!locked_) error_ = "cannot lock " + path + ": " + LastErrorText();
}

LockedAppendFile::~LockedAppendFile() {
  if (locked_) LockWholeFile(HandleOf(file_), false);
  if (file_ != -1) ::CloseHandle(HandleOf(file_));
}

bool LockedAppendFile::Append(const std::string& record, std::string* error) {
  const HANDLE file = HandleOf(file_);
  LARGE_INTEGER before;
  if (!::GetFileSizeEx(file, &before) || !MoveTo(file, before.QuadPart)) {
    *error = "cannot read the size of " + path_ + ": " + LastErrorText();
    return false;
  }
  if (!WriteAll(file, record)) {
    *error = "cannot write to " + path_ + ": " + LastErrorText();
    if (!MoveTo(file, before.QuadPart) || !::SetEndOfFile(file)) {
      *error += "; cutting off the partial line failed too: " + LastErrorText();
    }
    return false;
  }
  if (!::FlushFileBuffers(file)) {
    *error = "the record was written but cannot be flushed to " + path_ + ": " + LastErrorText();
    return false;
  }
  return true;
}

#else

LockedAppendFile::LockedAppendFile(const std::string& path) : path_(path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
  if (fd < 0) {
    error_ = "cannot open " + path + ": " + LastErrorText();
    return;
  }
  file_ = fd;
  int result;
  do result = ::flock(fd, LOCK_EX);
  while (result != 0 && errno == EINTR);
  locked_ = result == 0;
  if (!locked_) error_ = "cannot lock " + path + ": " + LastErrorText();
}

LockedAppendFile::~LockedAppendFile() {
  const int fd = static_cast<int>(file_);
  if (locked_) ::flock(fd, LOCK_UN);
  if (fd >= 0) ::close(fd);
}

bool LockedAppendFile::Append(const std::string& record, std::string* error) {
  const int fd = static_cast<int>(file_);
  struct stat before {};
  if (::fstat(fd, &before) != 0) {
    *error = "cannot read the size of " + path_ + ": " + LastErrorText();
    return false;
  }
  if (!WriteAll(fd, record)) {
    *error = "cannot write to " + path_ + ": " + LastErrorText();
    if (::ftruncate(fd, before.st_size) != 0) {
      *error += "; cutting off the partial line failed too: " + LastErrorText();
    }
    return false;
  }
  if (::fdatasync(fd) != 0) {
    *error = "the record was written but cannot be flushed to " + path_ + ": " + LastErrorText();
    return false;
  }
  return true;
}

#endif

}  // namespace Framework
