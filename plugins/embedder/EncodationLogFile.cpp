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

std::string SystemError(const std::string& what, const std::filesystem::path& path) {
  return what + " " + path.string() + ": " + std::strerror(errno);
}

// The file opened for appending and locked against every other writer (flock); unlocked and
// closed with the object. Error() says what failed; it is empty when the file is ready.
class LockedAppendFile {
 public:
  explicit LockedAppendFile(const std::filesystem::path& path)
      : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode)) {
    if (fd_ < 0) {
      error_ = SystemError("cannot open", path);
      return;
    }
    int result;
    do result = ::flock(fd_, LOCK_EX);
    while (result != 0 && errno == EINTR);
    locked_ = result == 0;
    if (!locked_) error_ = SystemError("cannot lock", path);
  }
  ~LockedAppendFile() {
    if (locked_) ::flock(fd_, LOCK_UN);
    if (fd_ >= 0) ::close(fd_);
  }
  LockedAppendFile(const LockedAppendFile&) = delete;
  LockedAppendFile& operator=(const LockedAppendFile&) = delete;

  int Descriptor() const { return fd_; }
  const std::string& Error() const { return error_; }

 private:
  const int fd_;
  bool locked_ = false;
  std::string error_;
};

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
  if (path_.has_parent_path()) {
    std::filesystem::create_directories(path_.parent_path(), folderError);
  }
  if (folderError) {
    *error = "cannot create the folder of " + path_.string() + ": " + folderError.message();
    return false;
  }
  const LockedAppendFile file(path_);
  if (!file.Error().empty()) {
    *error = file.Error();
    return false;
  }
  struct stat before {};
  if (::fstat(file.Descriptor(), &before) != 0) {
    *error = SystemError("cannot read the size of", path_);
    return false;
  }
  if (!WriteAll(file.Descriptor(), line + '\n')) {
    *error = SystemError("cannot write to", path_);
    if (::ftruncate(file.Descriptor(), before.st_size) != 0) {
      *error += "; cutting off the partial line failed too: " + std::string(std::strerror(errno));
    }
    return false;
  }
  if (::fdatasync(file.Descriptor()) != 0) {
    *error = SystemError("the record was written but cannot be flushed to", path_);
    return false;
  }
  return true;
}

}  // namespace LumensealReference
