// Raised by the host when it could not allocate memory for the stream. Field "Text" (string).
#pragma once

#include <string>

#include "ControlEvent.h"

namespace Framework {

class FRAMEWORK_API MemoryAllocationErrorEvent : public ControlEvent {
 public:
  ~MemoryAllocationErrorEvent() override;

  std::string GetText() const { return GetProperty<std::string>("Text"); }
  void SetText(const std::string& text) { SetProperty("Text", text); }
};

}  // namespace Framework
