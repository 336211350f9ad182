// The progress of a run on the console's status line: frames done (of how many, when known), the
// rate, the time elapsed and, when the total is known, the time left. Redrawn a few times a
// second at most; silent when the console is not a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/Console.h"

namespace Quillmar::Tools {

class Progress {
 public:
  // `totalFrames` is 0 when unknown.
  Progress(Console& console, std::uint64_t totalFrames);

  // Shows that `frames` frames are done.
  void Update(std::uint64_t frames);

  // Draws the last figures and leaves them on the screen.
  void Finish();

  // "120/250 frames  48%  24.8 fps  0:04 elapsed  0:05 left", or without the total, share and
  // time left when `totalFrames` is 0.
  static std::string Text(std::uint64_t frames, std::uint64_t totalFrames, double elapsedSeconds);

 private:
  using Clock = std::chrono::steady_clock;

  void Draw(std::uint64_t frames);

  Console& console_;
  const std::uint64_t totalFrames_;
  const Clock::time_point begin_ = Clock::now();
  Clock::time_point lastDrawn_{};
  std::uint64_t frames_ = 0;
};

}  // namespace Quillmar::Tools
