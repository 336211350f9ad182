#include "tools/Y4mReader.h"

#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Quillmar::Tools {
namespace {

constexpr char kStreamMagic[] = "YUV4MPEG2";
constexpr char kFrameMagic[] = "FRAME";

Framework::PixelLayout LayoutOf(const std::string& colourSpace) {
  static const std::set<std::string> k420Spellings = {"", "420", "420jpeg", "420paldv", "420mpeg2"};
  if (k420Spellings.count(colourSpace) != 0) return Framework::PixelLayout::Yuv420P8;
  if (colourSpace == "422") return Framework::PixelLayout::Yuv422P8;
  if (colourSpace == "444") return Framework::PixelLayout::Yuv444P8;
  throw std::runtime_error("Y4M colour space C" + colourSpace + " is not supported");
}

}  // namespace

Y4mReader::Y4mReader(std::FILE* stream) : stream_(stream) {
  std::istringstream header(ReadLine());
  std::string word;
  header >> word;
  if (word != kStreamMagic) throw std::runtime_error("input is not a Y4M stream");
  int width = 0;
  int height = 0;
  double frameRate = 0.0;
  std::string colourSpace;
  while (header >> word) {
    const std::string value = word.substr(1);
    switch (word[0]) {
      case 'W': width = std::stoi(value); break;
      case 'H': height = std::stoi(value); break;
      case 'F': frameRate = ParseFrameRate(value); break;
      case 'C': colourSpace = value; break;
      default: break;
    }
  }
  if (width <= 0 || height <= 0) throw std::runtime_error("Y4M header lacks a picture size");
  format_ = Framework::VideoFormatInfo(LayoutOf(colourSpace), width, height, frameRate);
}

double Y4mReader::ParseFrameRate(const std::string& parameter) {
  const auto colon = parameter.find(':');
  const double numerator = std::stod(parameter.substr(0, colon));
  const double denominator = colon == std::string::npos ? 1.0 : std::stod(parameter.substr(colon + 1));
  return denominator > 0.0 ? numerator / denominator : 0.0;
}

std::string Y4mReader::ReadLine() {
  std::string line;
  for (int c = std::fgetc(stream_); c != '\n'; c = std::fgetc(stream_)) {
    if (c == EOF) {
      if (line.empty()) return line;
      throw std::runtime_error("Y4M stream ends inside a header line");
    }
    line += static_cast<char>(c);
  }
  return line;
}

bool Y4mReader::Next(Framework::Frame& frame) {
  const std::string header = ReadLine();
  if (header.empty()) return false;
  if (header.compare(0, std::strlen(kFrameMagic), kFrameMagic) != 0) {
    throw std::runtime_error("Y4M frame header expected, found: " + header.substr(0, 20));
  }
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    const auto width = static_cast<std::size_t>(format_.GetPlaneWidth(plane));
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      std::uint8_t* row = frame.GetPlane(plane) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane);
      if (std::fread(row, 1, width, stream_) != width) {
        throw std::runtime_error("Y4M stream ends inside a frame");
      }
    }
  }
  return true;
}

}  // namespace Quillmar::Tools
