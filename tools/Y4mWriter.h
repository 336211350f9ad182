// Writes frames as a YUV4MPEG2 (Y4M) stream.
#pragma once

#include <cstdio>

#include "framework/Frame.h"

namespace Quillmar::Tools {

class Y4mWriter {
 public:
  // Writes the stream header for `format` to `stream` (not owned). Throws std::runtime_error
  // when the stream fails.
  Y4mWriter(std::FILE* stream, const Framework::VideoFormatInfo& format);

  // Appends one frame. Throws std::runtime_error when the stream fails.
  void Write(const Framework::Frame& frame);

  // The Y4M "F" parameter of `frameRate`: "25:1", or "30000:1001" for the NTSC rates.
  static std::string FrameRateParameter(double frameRate);

 private:
  std::FILE* stream_;
  Framework::VideoFormatInfo format_;
};

}  // namespace Quillmar::Tools
