// Raised by the host when it had to drop a frame before it reached the channel.
#pragma once

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API DroppedFrameEvent : public ControlEvent {
 public:
  ~DroppedFrameEvent() override;
};

}  // namespace Framework
