// A file, pipe or terminal read or written through its descriptor, for hosts that stream video.
//
// Reads are buffered; each write goes out whole before it returns. A call that has to wait for
// the upstream or the downstream gives way to stop requests (StopRequests): given `giveWayAt`
// n > 0, it throws StreamInterrupted once n requests have arrived, also while it waits; given 0,
// it waits for as long as it takes. A write to a reader that went away fails with EPIPE instead
// of ending the process. Errors are std::system_error naming the stream.
//
// One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Export.h"

namespace Framework {

// A wait cut short by a stop request.
class FRAMEWORK_API StreamInterrupted : public std::runtime_error {
 public:
  StreamInterrupted();
};

class FRAMEWORK_API StreamFile {
 public:
  enum class Mode { Read, Write };

  // Opens `path`; "-" is standard input (Read) or standard output (Write). A file opened for
  // writing is created or emptied. Throws std::system_error when it cannot be opened.
  StreamFile(const std::string& path, Mode mode);
  ~StreamFile();
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  // Reads `size` bytes into `data`; fewer only at the end of the stream. Returns how many.
  std::size_t Read(void* data, std::size_t size, int giveWayAt);

  // Reads one line into `line`, without its line end (the stream's last line may lack it). False
  // at the end of the stream; throws std::length_error when the line has more than `maxBytes`
  // bytes.
  bool ReadLine(std::string& line, std::size_t maxBytes, int giveWayAt);

  // Writes all of `data`.
  void Write(const void* data, std::size_t size, int giveWayAt);

  // "standard input", "standard output" or the path.
  const std::string& Name() const { return name_; }

  // True for a regular file, whose size is known.
  bool IsRegularFile() const { return regular_; }
  // The size of a regular file when it was opened; 0 for other streams.
  std::uint64_t Size() const { return size_; }

 private:
  // Waits until the descriptor can be read (or written, `forWriting`) without blocking, or gives
  // way.
  void WaitFor(bool forWriting, int giveWayAt) const;
  // Refills the read buffer; false at the end of the stream.
  bool Fill(int giveWayAt);
  [[noreturn]] void Fail(const std::string& what) const;

  int descriptor_ = -1;
  bool owned_ = false;
  std::string name_;
  bool regular_ = false;
  std::uint64_t size_ = 0;
  std::vector<char> buffer_;
  std::size_t bufferStart_ = 0;
  std::size_t bufferEnd_ = 0;
};

}  // namespace Framework
