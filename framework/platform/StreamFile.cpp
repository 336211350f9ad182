#include "StreamFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "StopRequests.h"

#if defined(_WIN32)
#include <io.h>
#else
#include <limits.h>
#include <poll.h>
#include <unistd.h>
#endif

namespace Framework {
namespace {

constexpr std::size_t kReadBufferBytes = 64 * 1024;

#if defined(_WIN32)
constexpr int kStandardInput = 0;
constexpr int kStandardOutput = 1;
// Windows has no poll() for pipes: every write is one call and waits are not cut short.
constexpr std::size_t kWriteChunkBytes = 1 << 20;
int OpenDescriptor(const char* path, int flags) { return ::_open(path, flags | _O_BINARY, 0644); }
long ReadSome(int descriptor, void* data, std::size_t size) {
  return ::_read(descriptor, data, static_cast<unsigned>(std::min<std::size_t>(size, 1 << 30)));
}
long WriteSome(int descriptor, const void* data, std::size_t size) {
  return ::_write(descriptor, data, static_cast<unsigned>(size));
}
void CloseDescriptor(int descriptor) { ::_close(descriptor); }
#else
constexpr int kStandardInput = STDIN_FILENO;
constexpr int kStandardOutput = STDOUT_FILENO;
// A pipe that polls writable takes PIPE_BUF bytes without blocking, so a write of that size
// never waits beyond the reach of a stop request.
constexpr std::size_t kWriteChunkBytes = PIPE_BUF;
int OpenDescriptor(const char* path, int flags) { return ::open(path, flags | O_CLOEXEC, 0644); }
long ReadSome(int descriptor, void* data, std::size_t size) {
  return ::read(descriptor, data, size);
}
long WriteSome(int descriptor, const void* data, std::size_t size) {
  return ::write(descriptor, data, size);
}
void CloseDescriptor(int descriptor) { ::close(descriptor); }
#endif

bool GivesWay(int giveWayAt) { return giveWayAt > 0 && StopRequests::Count() >= giveWayAt; }

}  // namespace

StreamInterrupted::StreamInterrupted() : std::runtime_error("interrupted by a stop request") {}

StreamFile::StreamFile(const std::string& path, Mode mode) {
  const bool standard = path == "-";
  if (standard) {
    descriptor_ = mode == Mode::Read ? kStandardInput : kStandardOutput;
    name_ = mode == Mode::Read ? "standard input" : "standard output";
  } else {
    const int flags = mode == Mode::Read ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    descriptor_ = OpenDescriptor(path.c_str(), flags);
    owned_ = true;
    name_ = path;
    if (descriptor_ < 0) Fail("cannot open");
  }
  struct stat status {};
  if (::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) {
    regular_ = true;
    size_ = static_cast<std::uint64_t>(status.st_size);
  }
  if (mode == Mode::Read) buffer_.resize(kReadBufferBytes);
}

StreamFile::~StreamFile() {
  if (owned_ && descriptor_ >= 0) CloseDescriptor(descriptor_);
}

void StreamFile::Fail(const std::string& what) const {
  throw std::system_error(errno, std::generic_category(), what + " " + name_);
}

void StreamFile::WaitFor(bool forWriting, int giveWayAt) const {
  for (;;) {
    if (GivesWay(giveWayAt)) throw StreamInterrupted();
#if defined(_WIN32)
    static_cast<void>(forWriting);
    return;
#else
    if (regular_) return;
    const short events = forWriting ? POLLOUT : POLLIN;
    pollfd waits[2] = {{descriptor_, events, 0}, {StopRequests::WakeDescriptor(), POLLIN, 0}};
    const nfds_t count = waits[1].fd >= 0 && giveWayAt > 0 ? 2 : 1;
    const int ready = ::poll(waits, count, -1);
    if (ready < 0 && errno != EINTR) Fail("cannot wait for");
    if (count == 2 && (waits[1].revents & POLLIN) != 0) StopRequests::DrainWakeDescriptor();
    if (ready > 0 && waits[0].revents != 0) {
      if (GivesWay(giveWayAt)) throw StreamInterrupted();
      return;
    }
#endif
  }
}

bool StreamFile::Fill(int giveWayAt) {
  bufferStart_ = 0;
  bufferEnd_ = 0;
  for (;;) {
    WaitFor(false, giveWayAt);
    const long got = ReadSome(descriptor_, buffer_.data(), buffer_.size());
    if (got > 0) {
      bufferEnd_ = static_cast<std::size_t>(got);
      return true;
    }
    if (got == 0) return false;
    if (errno != EINTR && errno != EAGAIN) Fail("cannot read");
  }
}

std::size_t StreamFile::Read(void* data, std::size_t size, int giveWayAt) {
  auto* out = static_cast<char*>(data);
  std::size_t done = 0;
  while (done < size) {
    if (bufferStart_ < bufferEnd_) {
      const std::size_t take = std::min(size - done, bufferEnd_ - bufferStart_);
      std::memcpy(out + done, buffer_.data() + bufferStart_, take);
      bufferStart_ += take;
      done += take;
      continue;
    }
    if (size - done < buffer_.size()) {
      if (!Fill(giveWayAt)) break;
      continue;
    }
    WaitFor(false, giveWayAt);
    const long got = ReadSome(descriptor_, out + done, size - done);
    if (got == 0) break;
    if (got < 0) {
      if (errno != EINTR && errno != EAGAIN) Fail("cannot read");
      continue;
    }
    done += static_cast<std::size_t>(got);
  }
  return done;
}

bool StreamFile::ReadLine(std::string& line, std::size_t maxBytes, int giveWayAt) {
  line.clear();
  for (;;) {
    if (bufferStart_ == bufferEnd_ && !Fill(giveWayAt)) return !line.empty();
    const char* begin = buffer_.data() + bufferStart_;
    const char* end = buffer_.data() + bufferEnd_;
    const char* lineEnd = std::find(begin, end, '\n');
    const std::size_t length = static_cast<std::size_t>(lineEnd - begin);
    if (line.size() + length > maxBytes) {
      throw std::length_error("a line of " + name_ + " is longer than " + std::to_string(maxBytes) +
                              " bytes");
    }
    line.append(begin, length);
    bufferStart_ += length;
    if (lineEnd != end) {
      ++bufferStart_;
      return true;
    }
  }
}

void StreamFile::Write(const void* data, std::size_t size, int giveWayAt) {
  const auto* in = static_cast<const char*>(data);
  std::size_t done = 0;
  while (done < size) {
    WaitFor(true, giveWayAt);
    const std::size_t chunk = regular_ ? size - done : std::min(size - done, kWriteChunkBytes);
    const long written = WriteSome(descriptor_, in + done, chunk);
    if (written < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      Fail("cannot write to");
    }
    if (written == 0) {
      errno = EIO;
      Fail("cannot write to");
    }
    done += static_cast<std::size_t>(written);
  }
}

}  // namespace Framework
