// Writes frames as a YUV4MPEG2 (Y4M) stream.
//
// The header carries the parameters it is given, in their order and exactly as they stand, so
// that a stream passed through keeps its interlace, chroma siting, aspect ratio and X tags; a
// stream made here gets DefaultParameters. Writes give way to the second stop request.
#pragma once

#include <string>
#include <vector>

#include "framework/Frame.h"
#include "framework/platform/StreamFile.h"

namespace Quillmar::Tools {

class Y4mWriter {
 public:
  // Writes the stream header for `format` to `stream` (not owned): "YUV4MPEG2" and `parameters`,
  // or DefaultParameters(format) when there are none. Throws what the stream throws.
  Y4mWriter(Framework::StreamFile& stream, const Framework::VideoFormatInfo& format,
            const std::vector<std::string>& parameters = {});

  // Appends one frame. Throws what the stream throws.
  void Write(const Framework::Frame& frame);

  // W, H, F, progressive, square pixels and the colour space of `format`.
  static std::vector<std::string> DefaultParameters(const Framework::VideoFormatInfo& format);

  // The Y4M "F" parameter's value for `frameRate`: "25:1", or "30000:1001" for the NTSC rates.
  static std::string FrameRateParameter(double frameRate);

 private:
  Framework::StreamFile& stream_;
  Framework::VideoFormatInfo format_;
  std::vector<std::uint8_t> frameBytes_;  // "FRAME\n" and the planes, written in one go
};

}  // namespace Quillmar::Tools
