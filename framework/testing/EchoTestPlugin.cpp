// A plug-in library built for the framework's tests: one algorithm class, registered by name,
// that remembers its construction properties and raises a ProgressEvent for every frame.
#include "framework/AlgorithmBase.h"
#include "framework/PluginRegistry.h"
#include "framework/ProgressEvent.h"

namespace {

class EchoTestPlugin : public Framework::AlgorithmBase {
 public:
  explicit EchoTestPlugin(const Framework::PropertyBase& construction) {
    SetProperty("Greeting", construction.GetProperty<std::string>("Greeting"));
    if (construction.GetProperty<bool>("FailConstruction")) throw std::runtime_error("refused");
  }

  void ProcessFrame(const Framework::Frame* frame) override {
    Framework::ProgressEvent event;
    event.SetSender(GetSender());
    event.SetProgress(static_cast<double>(frame->GetIndex()));
    GetEventSignal().Raise(event);
  }
};

}  // namespace

QUILLMAR_REGISTER_PROCESSOR(EchoTestPlugin)
