// A control event that reports how far a processor has come: sender, sender type, text, progress.
// Fields: "Sender" (SenderId), "SenderType" (string), "Text" (string), "Progress" (double, percent).
#pragma once

#include <string>

#include "ControlEvent.h"
#include "SenderId.h"

namespace Framework {

class FRAMEWORK_API StatusEvent : public ControlEvent {
 public:
  StatusEvent() = default;
  ~StatusEvent() override;

  SenderId GetSender() const { return GetProperty<SenderId>("Sender"); }
  void SetSender(SenderId sender) { SetProperty("Sender", sender); }
  std::string GetSenderType() const { return GetProperty<std::string>("SenderType"); }
  void SetSenderType(const std::string& type) { SetProperty("SenderType", type); }
  std::string GetText() const { return GetProperty<std::string>("Text"); }
  void SetText(const std::string& text) { SetProperty("Text", text); }
  double GetProgress() const { return GetProperty<double>("Progress"); }
  void SetProgress(double percent) { SetProperty("Progress", percent); }
};

}  // namespace Framework
