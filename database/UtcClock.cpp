#include "database/UtcClock.h"

#include <atomic>
#include <cstdint>

#include "database/TimeTicks.h"

namespace QuillmarBasebandSDK {
namespace {

// The pinned time's tick count; 0 (the zero time, never a real "now") while nothing is pinned.
std::atomic<std::uint64_t> pinnedTicks{0};

}  // namespace

SYSTEMTIME UtcClock::Now() {
  const std::uint64_t pinned = pinnedTicks.load();
  if (pinned != 0) return TimeTicks::ToSystemTime(pinned);
  SYSTEMTIME now{};
  Framework::GetCurrentUtcTime(&now);
  return now;
}

UtcClock::ScopedPin::ScopedPin(const SYSTEMTIME& time) { Set(time); }

UtcClock::ScopedPin::~ScopedPin() { pinnedTicks.store(0); }

void UtcClock::ScopedPin::Set(const SYSTEMTIME& time) {
  pinnedTicks.store(TimeTicks::FromSystemTime(time));
}

}  // namespace QuillmarBasebandSDK
