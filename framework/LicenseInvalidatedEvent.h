// Raised by the licence check when the licence is no longer valid. Field "Message" (string).
#pragma once

#include <string>

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API LicenseInvalidatedEvent : public ControlEvent {
 public:
  ~LicenseInvalidatedEvent() override;

  std::string GetMessage() const { return GetProperty<std::string>("Message"); }
  void SetMessage(const std::string& message) { SetProperty("Message", message); }
};

}  // namespace Framework
