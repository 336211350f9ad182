// One picture of a video stream: its planes, their pitches, and its index in the stream.
//
// A frame either owns its samples (planes stored one after the other, each row of a plane
// starting at a multiple of its pitch, the plane width rounded up to kRowAlignment bytes) or
// views samples its caller owns (a host's buffer, marked in place), laid out as the caller says.
// Copying a frame copies its samples into a frame that owns them.
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

  // A frame of `format` over the caller's samples: plane `p` starts at `planes[p]`, its rows
  // `pitches[p]` bytes apart (0: every row is the same one). The samples must outlive the frame.
  Frame(const VideoFormatInfo& format, std::uint8_t* const planes[VideoFormatInfo::kPlaneCount],
        const int pitches[VideoFormatInfo::kPlaneCount]);

  Frame(const Frame& other);
  Frame& operator=(const Frame& other);
  // Moving keeps a view a view.
  Frame(Frame&& other) = default;
  Frame& operator=(Frame&& other) = default;

  const VideoFormatInfo& GetFormat() const { return format_; }

  // Samples of plane `plane` (0 luma, 1 Cb, 2 Cr).
  std::uint8_t* GetPlane(int plane) { return planes_[plane]; }
  const std::uint8_t* GetPlane(int plane) const { return planes_[plane]; }

  // Bytes from the start of one row of `plane` to the start of the next.
  int GetPitch(int plane) const { return pitches_[plane]; }

  // Bytes of sample memory the frame owns, padding included; 0 for a view.
  std::size_t GetSize() const { return samples_.size(); }

  // Position of the frame in its stream, counted from 0.
  std::uint64_t GetIndex() const { return index_; }
  void SetIndex(std::uint64_t index) { index_ = index; }

 private:
  // Copies the visible samples of `other` into storage of its own.
  void CopyFrom(const Frame& other);

  VideoFormatInfo format_;
  std::vector<std::uint8_t> samples_;  // empty for a view
  std::uint8_t* planes_[VideoFormatInfo::kPlaneCount] = {};
  int pitches_[VideoFormatInfo::kPlaneCount] = {};
  std::uint64_t index_ = 0;
};

}  // namespace Framework
