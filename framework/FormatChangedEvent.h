// Raised by the host when the format of its input changes. Field "NewFormat" (string): the new
// format's text form.
#pragma once

#include <string>

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API FormatChangedEvent : public ControlEvent {
 public:
  ~FormatChangedEvent() override;

  std::string GetNewFormat() const { return GetProperty<std::string>("NewFormat"); }
  void SetNewFormat(const std::string& format) { SetProperty("NewFormat", format); }
};

}  // namespace Framework
