// Runs a body and keeps any exception inside: it is logged with the name of the operation, and
// the operation returns its failure value. For the boundaries that no exception may cross
// (exported interfaces, plug-in calls, signal handlers).
#pragma once

#include <exception>
#include <string>

#include "Logger.h"

namespace Framework {

// The body's result, or `onFailure` when it threw.
template <typename Result, typename Body>
Result NoThrow(const char* operation, Result onFailure, Body&& body) {
  try {
    return body();
  } catch (const std::exception& error) {
    Logger::Exception(error, operation);
  } catch (...) {
    Logger::Error(std::string(operation) + ": unknown exception");
  }
  return onFailure;
}

// Runs a body that returns nothing.
template <typename Body>
void NoThrow(const char* operation, Body&& body) {
  NoThrow(operation, false, [&body] {
    body();
    return true;
  });
}

}  // namespace Framework
