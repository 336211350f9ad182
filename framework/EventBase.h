// The base of every event record: a property store that travels through an EventSignal.
#pragma once

#include "PropertyBase.h"

namespace Framework {

class FRAMEWORK_API EventBase : public PropertyBase {
 public:
  EventBase() = default;
  ~EventBase() override;
  EventBase(const EventBase&) = default;
  EventBase& operator=(const EventBase&) = default;
};

}  // namespace Framework
