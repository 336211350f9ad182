// Out-of-line destructors, so that each record's type information lives in the framework library.
#include "CompletedEvent.h"
#include "DroppedFrameEvent.h"
#include "FormatChangedEvent.h"
#include "LicenseInvalidatedEvent.h"
#include "LicenseWarningEvent.h"
#include "MemoryAllocationErrorEvent.h"
#include "ProgressEvent.h"
#include "SignalLostEvent.h"
#include "SignalResumedEvent.h"

namespace Framework {

EventBase::~EventBase() = default;
ControlEvent::~ControlEvent() = default;
StatusEvent::~StatusEvent() = default;
ProgressEvent::~ProgressEvent() = default;
CompletedEvent::~CompletedEvent() = default;
DroppedFrameEvent::~DroppedFrameEvent() = default;
SignalLostEvent::~SignalLostEvent() = default;
SignalResumedEvent::~SignalResumedEvent() = default;
FormatChangedEvent::~FormatChangedEvent() = default;
MemoryAllocationErrorEvent::~MemoryAllocationErrorEvent() = default;
LicenseWarningEvent::~LicenseWarningEvent() = default;
LicenseInvalidatedEvent::~LicenseInvalidatedEvent() = default;

}  // namespace Framework
