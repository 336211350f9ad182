// One picture of a video stream: its planes, their pitches, and its index in the stream.
//
// A frame owns its samples. Planes are stored one after the other; each row of a plane starts at
// a multiple of its pitch, which is the plane width rounded up to kRowAlignment bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "VideoFormatInfo.h"

namespace Framework {

class FRAMEWORK_API Frame {
 public:
  static constexpr int kRowAlignment = 64;

  // A black frame of `format` (luma 16, chroma 128), index 0.
  explicit Frame(const VideoFormatInfo& format);

  const VideoFormatInfo& GetFormat() const { return format_; }

  // Samples of plane `plane` (0 luma, 1 Cb, 2 Cr).
  std::uint8_t* GetPlane(int plane) { return samples_.data() + offsets_[plane]; }
  const std::uint8_t* GetPlane(int plane) const { return samples_.data() + offsets_[plane]; }

  // Bytes from the start of one row of `plane` to the start of the next.
  int GetPitch(int plane) const { return pitches_[plane]; }

  // Bytes of sample memory the frame holds, padding included.
  std::size_t GetSize() const { return samples_.size(); }

  // Position of the frame in its stream, counted from 0.
  std::uint64_t GetIndex() const { return index_; }
  void SetIndex(std::uint64_t index) { index_ = index; }

 private:
  VideoFormatInfo format_;
  std::vector<std::uint8_t> samples_;
  std::size_t offsets_[VideoFormatInfo::kPlaneCount] = {};
  int pitches_[VideoFormatInfo::kPlaneCount] = {};
  std::uint64_t index_ = 0;
};

}  // namespace Framework
