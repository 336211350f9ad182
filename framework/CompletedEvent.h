// Raised when a processor has finished, normally or by an abort.
// Adds the field "ErrorAbort" (bool): true when processing ended because of an error.
#pragma once

#include "StatusEvent.h"

namespace Framework {

class FRAMEWORK_API CompletedEvent : public StatusEvent {
 public:
  ~CompletedEvent() override;

  bool GetErrorAbort() const { return GetProperty<bool>("ErrorAbort"); }
  void SetErrorAbort(bool aborted) { SetProperty("ErrorAbort", aborted); }
};

}  // namespace Framework
