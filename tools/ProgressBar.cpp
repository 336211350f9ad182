#include "tools/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <string>

namespace Quillmar::Tools {

ProgressBar::ProgressBar(std::ostream& stream, bool isTerminal, std::uint64_t total)
    : stream_(stream), enabled_(isTerminal), total_(total) {}

ProgressBar::ProgressBar(std::ostream& stream, std::uint64_t total)
    : ProgressBar(stream, ::isatty(STDERR_FILENO) == 1, total) {}

void ProgressBar::Update(std::uint64_t done) {
  lastDone_ = done;
  if (enabled_ && done % kRedrawFrames == 0) Draw(done);
}

void ProgressBar::Finish() {
  if (!enabled_) return;
  Draw(lastDone_);
  stream_ << '\n' << std::flush;
}

void ProgressBar::Draw(std::uint64_t done) {
  stream_ << '\r';
  if (total_ > 0) {
    const auto filled = static_cast<int>(std::min(done, total_) * kWidth / total_);
    stream_ << '[' << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] ";
    stream_ << done << '/' << total_ << " frames";
  } else {
    stream_ << done << " frames";
  }
  stream_ << std::flush;
}

}  // namespace Quillmar::Tools
