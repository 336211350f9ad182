// Reads a YUV4MPEG2 (Y4M) stream of 8-bit planar frames: 4:2:0, 4:2:2 or 4:4:4.
//
// Header: "YUV4MPEG2" then parameters W<width> H<height> F<num>:<den> C<colour space>, and any
// others (I, A, X...), which are kept as they stand; each frame: "FRAME" (parameters ignored), a
// line end, then the Y, Cb and Cr planes. Lines are at most kMaxLineBytes long and pictures at
// most kMaxSide samples a side, so a hostile stream cannot make the reader allocate more than
// the picture it declares. Messages quote the stream's text with unprintable bytes escaped.
//
// Between frames the reader gives way to the first stop request, inside a frame to the second
// (StreamInterrupted).
#pragma once

#include <string>
#include <vector>

#include "framework/platform/StreamFile.h"
#include "tools/FrameSource.h"

namespace Quillmar::Tools {

class Y4mReader : public FrameSource {
 public:
  static constexpr std::size_t kMaxLineBytes = 4096;
  static constexpr int kMaxSide = 16384;

  // Reads the header from `stream` (not owned). Throws std::runtime_error when it is not Y4M, is
  // malformed or out of bounds, or uses a layout other than 8-bit 4:2:0, 4:2:2 or 4:4:4.
  explicit Y4mReader(Framework::StreamFile& stream);

  const Framework::VideoFormatInfo& Format() const override { return format_; }
  bool Next(Framework::Frame& frame) override;
  // Counted from the file's size when the stream is a regular file; 0 otherwise.
  std::uint64_t ExpectedFrames() const override;
  // The header's parameters, in their order, exactly as they stand.
  std::vector<std::string> Y4mParameters() const override { return parameters_; }

  // The frame rate of a Y4M "F" parameter's value ("25:1", "30000:1001"); 0 when it is not two
  // positive whole numbers.
  static double ParseFrameRate(const std::string& value);

  // `text` cut to `maxBytes`, with bytes outside printable ASCII written as \xNN.
  static std::string Printable(const std::string& text, std::size_t maxBytes = 40);

 private:
  Framework::StreamFile& stream_;
  Framework::VideoFormatInfo format_;
  std::vector<std::string> parameters_;
  std::uint64_t headerBytes_ = 0;
};

}  // namespace Quillmar::Tools
