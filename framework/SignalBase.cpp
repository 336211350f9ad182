#include "SignalBase.h"

namespace Framework {

SignalBase::~SignalBase() = default;

}  // namespace Framework
