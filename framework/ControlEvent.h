// An event that reports on the processing of a stream rather than carrying media.
#pragma once

#include "EventBase.h"

namespace Framework {

class FRAMEWORK_API ControlEvent : public EventBase {
 public:
  ControlEvent() = default;
  ~ControlEvent() override;
  ControlEvent(const ControlEvent&) = default;
  ControlEvent& operator=(const ControlEvent&) = default;
};

}  // namespace Framework
