// Raised by the host when its input signal is lost.
#pragma once

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API SignalLostEvent : public ControlEvent {
 public:
  ~SignalLostEvent() override;
};

}  // namespace Framework
