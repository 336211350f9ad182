// Raised by the host when its input signal is back.
#pragma once

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API SignalResumedEvent : public ControlEvent {
 public:
  ~SignalResumedEvent() override;
};

}  // namespace Framework
