#include "tools/Y4mWriter.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace Quillmar::Tools {
namespace {

const char* ColourSpace(Framework::PixelLayout layout) {
  switch (layout) {
    case Framework::PixelLayout::Yuv420P8: return "420jpeg";
    case Framework::PixelLayout::Yuv422P8: return "422";
    case Framework::PixelLayout::Yuv444P8: return "444";
  }
  return "420jpeg";
}

void Check(bool written) {
  if (!written) throw std::runtime_error("cannot write the Y4M stream");
}

}  // namespace

std::string Y4mWriter::FrameRateParameter(double frameRate) {
  const double ntsc = frameRate * 1001.0;
  if (std::fabs(ntsc - std::round(ntsc / 1000.0) * 1000.0) < 1.0 &&
      std::fabs(frameRate - std::round(frameRate)) > 0.001) {
    return std::to_string(static_cast<long>(std::round(ntsc))) + ":1001";
  }
  return std::to_string(static_cast<long>(std::round(frameRate))) + ":1";
}

Y4mWriter::Y4mWriter(std::FILE* stream, const Framework::VideoFormatInfo& format)
    : stream_(stream), format_(format) {
  Check(std::fprintf(stream_, "YUV4MPEG2 W%d H%d F%s Ip A1:1 C%s\n", format.GetWidth(),
                     format.GetHeight(), FrameRateParameter(format.GetFrameRate()).c_str(),
                     ColourSpace(format.GetPixelLayout())) > 0);
}

void Y4mWriter::Write(const Framework::Frame& frame) {
  Check(std::fputs("FRAME\n", stream_) >= 0);
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    const auto width = static_cast<std::size_t>(format_.GetPlaneWidth(plane));
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      const std::uint8_t* row =
          frame.GetPlane(plane) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane);
      Check(std::fwrite(row, 1, width, stream_) == width);
    }
  }
}

}  // namespace Quillmar::Tools
