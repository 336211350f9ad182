// A generated test picture: a textured scene that drifts slowly, for a given number of seconds.
// Deterministic: the same format and length give the same frames.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/FrameSource.h"

namespace Quillmar::Tools {

class SyntheticSource : public FrameSource {
 public:
  // `spec` is WIDTHxHEIGHT@RATE, as "1920x1080@25" or "1280x720@29.97". Throws
  // std::invalid_argument for anything else.
  SyntheticSource(const std::string& spec, double seconds);

  const Framework::VideoFormatInfo& Format() const override { return format_; }
  bool Next(Framework::Frame& frame) override;
  std::uint64_t ExpectedFrames() const override { return frameCount_; }

  // The format that `spec` names (4:2:0).
  static Framework::VideoFormatInfo ParseSpec(const std::string& spec);

 private:
  Framework::VideoFormatInfo format_;
  std::uint64_t frameCount_;
  std::uint64_t next_ = 0;
  int textureWidth_;
  std::vector<std::uint8_t> texture_;  // luma, larger than a picture so that it can drift
};

}  // namespace Quillmar::Tools
