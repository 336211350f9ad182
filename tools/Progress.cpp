#include "tools/Progress.h"

#include <cstdio>

namespace Quillmar::Tools {
namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(250);

std::string ClockText(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  }
  return text;
}

}  // namespace

Progress::Progress(Console& console, std::uint64_t totalFrames)
    : console_(console), totalFrames_(totalFrames) {}

std::string Progress::Text(std::uint64_t frames, std::uint64_t totalFrames, double elapsedSeconds) {
  const double rate = elapsedSeconds > 0.0 ? static_cast<double>(frames) / elapsedSeconds : 0.0;
  char text[160];
  if (totalFrames > 0) {
    const double left =
        rate > 0.0 && totalFrames > frames ? static_cast<double>(totalFrames - frames) / rate : 0.0;
    std::snprintf(text, sizeof text, "%llu/%llu frames  %3.0f%%  %.1f fps  %s elapsed  %s left",
                  static_cast<unsigned long long>(frames),
                  static_cast<unsigned long long>(totalFrames),
                  100.0 * static_cast<double>(frames) / static_cast<double>(totalFrames), rate,
                  ClockText(elapsedSeconds).c_str(), ClockText(left).c_str());
  } else {
    std::snprintf(text, sizeof text, "%llu frames  %.1f fps  %s elapsed",
                  static_cast<unsigned long long>(frames), rate, ClockText(elapsedSeconds).c_str());
  }
  return text;
}

void Progress::Update(std::uint64_t frames) {
  frames_ = frames;
  if (!console_.IsTerminal()) return;
  const auto now = Clock::now();
  if (now - lastDrawn_ < kRedrawInterval) return;
  lastDrawn_ = now;
  Draw(frames);
}

void Progress::Finish() {
  if (!console_.IsTerminal()) return;
  Draw(frames_);
  console_.EndStatus();
}

void Progress::Draw(std::uint64_t frames) {
  const double elapsed = std::chrono::duration<double>(Clock::now() - begin_).count();
  console_.Status(Text(frames, totalFrames_, elapsed));
}

}  // namespace Quillmar::Tools
