#include "FormatInfo.h"

#include <sstream>

#include "VideoFormatInfo.h"

namespace Framework {

FormatInfo::~FormatInfo() = default;

std::string FormatInfo::ToString() const {
  return videoFormat_ == kNoFormat ? "no format" : "format " + std::to_string(videoFormat_);
}

VideoFormatInfo::VideoFormatInfo(PixelLayout layout, int width, int height, double frameRate)
    : FormatInfo(static_cast<int>(layout)), width_(width), height_(height), frameRate_(frameRate) {}

VideoFormatInfo::~VideoFormatInfo() = default;

int VideoFormatInfo::GetPlaneWidth(int plane) const {
  if (GetVideoFormat() == kNoFormat) return 0;
  const bool halved = plane != 0 && GetPixelLayout() != PixelLayout::Yuv444P8;
  return halved ? (width_ + 1) / 2 : width_;
}

int VideoFormatInfo::GetPlaneHeight(int plane) const {
  if (GetVideoFormat() == kNoFormat) return 0;
  const bool halved = plane != 0 && GetPixelLayout() == PixelLayout::Yuv420P8;
  return halved ? (height_ + 1) / 2 : height_;
}

std::string VideoFormatInfo::ToString() const {
  if (GetVideoFormat() == kNoFormat) return FormatInfo::ToString();
  std::ostringstream text;
  text << width_ << 'x' << height_ << ' ' << LayoutName(GetPixelLayout()) << ' ' << frameRate_
       << " fps";
  return text.str();
}

std::string VideoFormatInfo::LayoutName(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::Yuv420P8: return "yuv420p";
    case PixelLayout::Yuv422P8: return "yuv422p";
    case PixelLayout::Yuv444P8: return "yuv444p";
  }
  return {};
}

}  // namespace Framework
