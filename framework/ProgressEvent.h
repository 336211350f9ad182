// Raised while a processor works, to tell how far it has come.
#pragma once

#include "StatusEvent.h"

namespace Framework {

class FRAMEWORK_API ProgressEvent : public StatusEvent {
 public:
  ~ProgressEvent() override;
};

}  // namespace Framework
