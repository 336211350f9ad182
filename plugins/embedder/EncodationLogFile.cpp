#include "EncodationLogFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace LumensealReference {
namespace {

constexpr mode_t kFileMode = 0644;

// An open file descriptor, closed with the object.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }

 private:
  const int fd_;
};

// An exclusive flock on an open file, released with the object.
class ExclusiveLock {
 public:
  explicit ExclusiveLock(int fd) : fd_(fd) {
    int result;
    do result = ::flock(fd_, LOCK_EX);
    while (result != 0 && errno == EINTR);
    locked_ = result == 0;
  }
  ~ExclusiveLock() {
    if (locked_) ::flock(fd_, LOCK_UN);
  }
  ExclusiveLock(const ExclusiveLock&) = delete;
  ExclusiveLock& operator=(const ExclusiveLock&) = delete;

  bool IsLocked() const { return locked_; }

 private:
  const int fd_;
  bool locked_ = false;
};

std::string SystemError(const std::string& what, const std::filesystem::path& path) {
  return what + " " + path.string() + ": " + std::strerror(errno);
}

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

}  // namespace

bool EncodationLogFile::Append(const std::string& line, std::string* error) const {
  std::error_code folderError;
  if (path_.has_parent_path()) std::filesystem::create_directories(path_.parent_path(), folderError);
  if (folderError) {
    *error = "cannot create the folder of " + path_.string() + ": " + folderError.message();
    return false;
  }
  const FileDescriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                                   kFileMode));
  if (!file.IsOpen()) {
    *error = SystemError("cannot open", path_);
    return false;
  }
  const ExclusiveLock lock(file.Get());
  if (!lock.IsLocked()) {
    *error = SystemError("cannot lock", path_);
    return false;
  }
  struct stat before {};
  if (::fstat(file.Get(), &before) != 0) {
    *error = SystemError("cannot read the size of", path_);
    return false;
  }
  if (!WriteAll(file.Get(), line + '\n')) {
    *error = SystemError("cannot write to", path_);
    if (::ftruncate(file.Get(), before.st_size) != 0) {
      *error += "; cutting off the partial line failed too: " + std::string(std::strerror(errno));
    }
    return false;
  }
  if (::fdatasync(file.Get()) != 0) {
    *error = SystemError("the record was written but cannot be flushed to", path_);
    return false;
  }
  return true;
}

}  // namespace LumensealReference
