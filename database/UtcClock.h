// UtcClock: the current UTC time as the time-slot database reads it.
//
// Reads the system clock to the millisecond. Tests pin it to a chosen time (ScopedPin) so that
// lease boundaries can be checked to the millisecond without sleeping. Now() is safe from any
// thread; pin and unpin only while no database operation runs in the process.
#pragma once

#include "framework/platform/SystemTime.h"

namespace QuillmarBasebandSDK {

class UtcClock {
 public:
  // The current UTC time, or the pinned time while a pin is in place.
  static SYSTEMTIME Now();

  // Pins Now() to a time for its lifetime; for tests. Pins do not nest.
  class ScopedPin {
   public:
    explicit ScopedPin(const SYSTEMTIME& time);
    ScopedPin(const ScopedPin&) = delete;
    ScopedPin& operator=(const ScopedPin&) = delete;
    ~ScopedPin();

    // Moves the pinned time to `time`.
    void Set(const SYSTEMTIME& time);
  };
};

}  // namespace QuillmarBasebandSDK
