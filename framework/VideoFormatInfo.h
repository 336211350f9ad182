// The format of a video stream: pixel layout, picture size and frame rate.
//
// Pixel layouts are 8-bit planar Y'CbCr: one luma plane and two chroma planes, each chroma plane
// subsampled as the layout says. A default-constructed VideoFormatInfo has no format (-1).
#pragma once

#include <cstddef>
#include <string>

#include "FormatInfo.h"

namespace Framework {

// Video format identifiers; the value is what FormatInfo::GetVideoFormat returns.
enum class PixelLayout : int {
  Yuv420P8 = 0,  // chroma halved in both directions
  Yuv422P8 = 1,  // chroma halved horizontally
  Yuv444P8 = 2,  // chroma at full size
};

class FRAMEWORK_API VideoFormatInfo : public FormatInfo {
 public:
  static constexpr int kPlaneCount = 3;

  VideoFormatInfo() = default;
  VideoFormatInfo(PixelLayout layout, int width, int height, double frameRate);
  ~VideoFormatInfo() override;
  VideoFormatInfo(const VideoFormatInfo&) = default;
  VideoFormatInfo& operator=(const VideoFormatInfo&) = default;

  PixelLayout GetPixelLayout() const { return static_cast<PixelLayout>(GetVideoFormat()); }
  int GetWidth() const { return width_; }
  int GetHeight() const { return height_; }
  double GetFrameRate() const { return frameRate_; }

  // Size in samples of plane `plane` (0 luma, 1 and 2 chroma); 0 when no format is set.
  int GetPlaneWidth(int plane) const;
  int GetPlaneHeight(int plane) const;

  // "1920x1080 yuv420p 25 fps", or "no format".
  std::string ToString() const override;

  // The name of a layout as ffmpeg and Y4M know it ("yuv420p"); empty for an unknown value.
  static std::string LayoutName(PixelLayout layout);

 private:
  int width_ = 0;
  int height_ = 0;
  double frameRate_ = 0.0;
};

}  // namespace Framework
