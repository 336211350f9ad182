// Raised by the licence check when the licence is about to expire.
#pragma once

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API LicenseWarningEvent : public ControlEvent {
 public:
  ~LicenseWarningEvent() override;
};

}  // namespace Framework
