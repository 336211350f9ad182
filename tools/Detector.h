// The reference detector plug-in made the way a channel makes it, for hosts that only watch:
// by class name, from its construction properties, with the licence's seed, from the plug-in
// path of the channel library. It raises VWMDetectionEvents on its event signal.
#pragma once

#include <memory>

#include "framework/ProcessorBase.h"
#include "tools/ChannelLibrary.h"

namespace Quillmar::Tools {

// A new detector named "LumensealDetector". Throws std::runtime_error when it cannot be made.
std::unique_ptr<Framework::ProcessorBase> CreateDetector(const ChannelLibrary& library);

}  // namespace Quillmar::Tools
