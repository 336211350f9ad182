#include "tools/Y4mReader.h"

#include <charconv>
#include <cstdio>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Quillmar::Tools {
namespace {

constexpr char kStreamMagic[] = "YUV4MPEG2";
constexpr char kFrameMagic[] = "FRAME";
constexpr int kBetweenFrames = 1;  // the first stop request ends the stream between frames
constexpr int kInsideAFrame = 2;   // the second also inside a frame

Framework::PixelLayout LayoutOf(const std::string& colourSpace) {
  static const std::set<std::string> k420Spellings = {"", "420", "420jpeg", "420paldv", "420mpeg2"};
  if (k420Spellings.count(colourSpace) != 0) return Framework::PixelLayout::Yuv420P8;
  if (colourSpace == "422") return Framework::PixelLayout::Yuv422P8;
  if (colourSpace == "444") return Framework::PixelLayout::Yuv444P8;
  throw std::runtime_error("Y4M colour space C" + Y4mReader::Printable(colourSpace) +
                           " is not supported: 8-bit 4:2:0, 4:2:2 and 4:4:4 only");
}

// A whole number from 1 to `max`, or 0.
int ParseBounded(const std::string& text, int max) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > max)
    return 0;
  return value;
}

int PictureSide(const std::string& word, const char* what) {
  const int side = ParseBounded(word.substr(1), Y4mReader::kMaxSide);
  if (side == 0) {
    throw std::runtime_error(std::string("Y4M picture ") + what + " " + Y4mReader::Printable(word) +
                             " is not a whole number from 1 to " +
                             std::to_string(Y4mReader::kMaxSide));
  }
  return side;
}

// False at the end of the stream.
bool ReadHeaderLine(Framework::StreamFile& stream, std::string& line, int giveWayAt) {
  try {
    return stream.ReadLine(line, Y4mReader::kMaxLineBytes, giveWayAt);
  } catch (const std::length_error&) {
    throw std::runtime_error("Y4M header line of " + stream.Name() + " is longer than " +
                             std::to_string(Y4mReader::kMaxLineBytes) + " bytes");
  }
}

std::size_t PictureBytes(const Framework::VideoFormatInfo& format) {
  std::size_t bytes = 0;
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    bytes += static_cast<std::size_t>(format.GetPlaneWidth(plane)) *
             static_cast<std::size_t>(format.GetPlaneHeight(plane));
  }
  return bytes;
}

}  // namespace

Y4mReader::Y4mReader(Framework::StreamFile& stream) : stream_(stream) {
  std::string header;
  if (!ReadHeaderLine(stream_, header, kBetweenFrames))
    throw std::runtime_error(stream_.Name() + " is empty");
  headerBytes_ = header.size() + 1;
  std::istringstream words(header);
  std::string word;
  words >> word;
  if (word != kStreamMagic) {
    throw std::runtime_error(stream_.Name() + " is not a Y4M stream: it begins with \"" +
                             Printable(header, 16) + "\"");
  }
  int width = 0;
  int height = 0;
  double frameRate = 0.0;
  std::string colourSpace;
  while (words >> word) {
    parameters_.push_back(word);
    const std::string value = word.substr(1);
    switch (word[0]) {
      case 'W':
        width = PictureSide(word, "width");
        break;
      case 'H':
        height = PictureSide(word, "height");
        break;
      case 'F': frameRate = ParseFrameRate(value); break;
      case 'C': colourSpace = value; break;
      default: break;
    }
  }
  if (width == 0 || height == 0) throw std::runtime_error("Y4M header lacks a picture size (W, H)");
  if (!(frameRate > 0.0)) {
    throw std::runtime_error("Y4M header lacks a frame rate above 0 (F<num>:<den>, as F25:1)");
  }
  format_ = Framework::VideoFormatInfo(LayoutOf(colourSpace), width, height, frameRate);
}

double Y4mReader::ParseFrameRate(const std::string& value) {
  const auto colon = value.find(':');
  if (colon == std::string::npos) return 0.0;
  const int numerator = ParseBounded(value.substr(0, colon), 1 << 30);
  const int denominator = ParseBounded(value.substr(colon + 1), 1 << 30);
  return denominator > 0 ? static_cast<double>(numerator) / denominator : 0.0;
}

std::string Y4mReader::Printable(const std::string& text, std::size_t maxBytes) {
  std::string shown;
  for (std::size_t i = 0; i < text.size() && i < maxBytes; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
      shown += static_cast<char>(byte);
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      shown += escaped;
    }
  }
  return text.size() > maxBytes ? shown + "..." : shown;
}

std::uint64_t Y4mReader::ExpectedFrames() const {
  if (!stream_.IsRegularFile() || stream_.Size() < headerBytes_) return 0;
  return (stream_.Size() - headerBytes_) / (sizeof kFrameMagic + PictureBytes(format_));
}

bool Y4mReader::Next(Framework::Frame& frame) {
  std::string header;
  if (!ReadHeaderLine(stream_, header, kBetweenFrames)) return false;
  if (header.compare(0, sizeof kFrameMagic - 1, kFrameMagic) != 0) {
    throw std::runtime_error("Y4M frame header expected, found \"" + Printable(header, 20) + "\"");
  }
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    const auto width = static_cast<std::size_t>(format_.GetPlaneWidth(plane));
    for (int y = 0; y < format_.GetPlaneHeight(plane); ++y) {
      std::uint8_t* row = frame.GetPlane(plane) + static_cast<std::ptrdiff_t>(y) * frame.GetPitch(plane);
      if (stream_.Read(row, width, kInsideAFrame) != width) {
        throw std::runtime_error("Y4M stream ends inside a frame");
      }
    }
  }
  return true;
}

}  // namespace Quillmar::Tools
