// A processor that runs inside a channel (an embedder, a detector) and reports through its
// event signal, on the thread that processes the frame.
#pragma once

#include "EventBase.h"
#include "EventSignal.h"
#include "ProcessorBase.h"

namespace Framework {

class FRAMEWORK_API AlgorithmBase : public ProcessorBase {
 public:
  AlgorithmBase() = default;
  ~AlgorithmBase() override;

  // The signal on which the algorithm raises its events.
  EventSignal<EventBase>& GetEventSignal() { return eventSignal_; }

 private:
  EventSignal<EventBase> eventSignal_;
};

}  // namespace Framework
