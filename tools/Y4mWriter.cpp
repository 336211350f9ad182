#include "tools/Y4mWriter.h"

#include <cmath>
#include <cstring>
#include <string>

namespace Quillmar::Tools {
namespace {

constexpr char kFrameLine[] = "FRAME\n";
constexpr int kGiveWayAt = 2;  // a stop request lets the frame in progress out; the second not

const char* ColourSpace(Framework::PixelLayout layout) {
  switch (layout) {
    case Framework::PixelLayout::Yuv420P8: return "420jpeg";
    case Framework::PixelLayout::Yuv422P8: return "422";
    case Framework::PixelLayout::Yuv444P8: return "444";
  }
  return "420jpeg";
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

std::vector<std::string> Y4mWriter::DefaultParameters(const Framework::VideoFormatInfo& format) {
  return {"W" + std::to_string(format.GetWidth()),
          "H" + std::to_string(format.GetHeight()),
          "F" + FrameRateParameter(format.GetFrameRate()),
          "Ip",
          "A1:1",
          std::string("C") + ColourSpace(format.GetPixelLayout())};
}

Y4mWriter::Y4mWriter(Framework::StreamFile& stream, const Framework::VideoFormatInfo& format,
                     const std::vector<std::string>& parameters)
    : stream_(stream), format_(format) {
  std::string header = "YUV4MPEG2";
  for (const std::string& parameter : parameters.empty() ? DefaultParameters(format) : parameters) {
    header += ' ' + parameter;
  }
  header += '\n';
  stream_.Write(header.data(), header.size(), kGiveWayAt);
}

void Y4mWriter::Write(const Framework::Frame& frame) {
  frameBytes_.assign(kFrameLine, kFrameLine + std::strlen(kFrameLine));
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    const auto width = static_cast<std::size_t>(format_.GetPlaneWidth(plane));
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      const std::uint8_t* row =
          frame.GetPlane(plane) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane);
      frameBytes_.insert(frameBytes_.end(), row, row + width);
    }
  }
  stream_.Write(frameBytes_.data(), frameBytes_.size(), kGiveWayAt);
}

}  // namespace Quillmar::Tools
