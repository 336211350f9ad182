// A one-line progress bar on a terminal; silent when the stream is not a terminal.
#pragma once

#include <cstdint>
#include <ostream>

namespace Quillmar::Tools {

class ProgressBar {
 public:
  // Draws on `stream` when `isTerminal`; `total` frames expected, 0 when unknown.
  ProgressBar(std::ostream& stream, bool isTerminal, std::uint64_t total);

  // Standard error, drawn when it is a terminal.
  ProgressBar(std::ostream& stream, std::uint64_t total);

  // Shows that `done` frames are done; redraws at most every kRedrawFrames frames.
  void Update(std::uint64_t done);

  // Ends the line.
  void Finish();

 private:
  static constexpr std::uint64_t kRedrawFrames = 5;
  static constexpr int kWidth = 40;

  void Draw(std::uint64_t done);

  std::ostream& stream_;
  const bool enabled_;
  const std::uint64_t total_;
  std::uint64_t lastDone_ = 0;
};

}  // namespace Quillmar::Tools
