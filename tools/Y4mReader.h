// Reads a YUV4MPEG2 (Y4M) stream of 8-bit planar frames: 4:2:0, 4:2:2 or 4:4:4.
//
// Header: "YUV4MPEG2" then parameters W<width> H<height> F<num>:<den> C<colour space>, others
// ignored; each frame: "FRAME" (parameters ignored), a line end, then the Y, Cb and Cr planes.
#pragma once

#include <cstdio>
#include <string>

#include "tools/FrameSource.h"

namespace Quillmar::Tools {

class Y4mReader : public FrameSource {
 public:
  // Reads the header from `stream` (not owned). Throws std::runtime_error when it is not Y4M or
  // uses a layout other than 8-bit 4:2:0, 4:2:2 or 4:4:4.
  explicit Y4mReader(std::FILE* stream);

  const Framework::VideoFormatInfo& Format() const override { return format_; }
  bool Next(Framework::Frame& frame) override;

  // The frame rate of a Y4M "F" parameter ("25:1", "30000:1001").
  static double ParseFrameRate(const std::string& parameter);

 private:
  std::string ReadLine();

  std::FILE* stream_;
  Framework::VideoFormatInfo format_;
};

}  // namespace Quillmar::Tools
