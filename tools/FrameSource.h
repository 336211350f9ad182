// Where a host's frames come from: a Y4M stream or a generator.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/Frame.h"
#include "framework/VideoFormatInfo.h"

namespace Quillmar::Tools {

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  // The format of every frame this source gives.
  virtual const Framework::VideoFormatInfo& Format() const = 0;

  // Fills `frame` (of Format()) with the next picture; false at the end of the stream.
  // Throws std::runtime_error on a damaged stream.
  virtual bool Next(Framework::Frame& frame) = 0;

  // How many frames the source will give; 0 when it cannot tell.
  virtual std::uint64_t ExpectedFrames() const { return 0; }

  // The parameters of the Y4M stream the frames come from, to be passed on as they stand; none
  // for a source that is not a Y4M stream.
  virtual std::vector<std::string> Y4mParameters() const { return {}; }
};

}  // namespace Quillmar::Tools
