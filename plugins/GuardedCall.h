// Runs a plug-in operation so that no exception leaves the plug-in: one that escapes the
// operation is logged at error level under the operation's name and goes no further.
#pragma once

#include <exception>
#include <string>

#include "framework/Logger.h"

namespace LumensealReference {

template <typename Operation>
void GuardedCall(const char* where, Operation&& operation) noexcept {
  try {
    operation();
  } catch (const std::exception& error) {
    Framework::Logger::Exception(error, where);
  } catch (...) {
    Framework::Logger::Error(std::string(where) + ": unknown exception");
  }
}

}  // namespace LumensealReference
