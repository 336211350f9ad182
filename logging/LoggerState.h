// The logger state of a process: the log file this product started, and a recursive lock.
//
// One object per process, shared by every module of the product through the logger-state cell
// (LoggerStateCell). The lock is recursive on its owning thread; hold it (LoggerState::Guard)
// around any sequence that must not interleave with another thread, such as "start the log
// unless it is started".
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "framework/LogSink.h"

namespace QuillmarBasebandSDK {

class LoggerState {
 public:
  // Holds the state's lock for its own lifetime.
  class Guard {
   public:
    explicit Guard(LoggerState& state) : state_(state) { state_.Lock(); }
    ~Guard() { state_.Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    LoggerState& state_;
  };

  LoggerState() = default;
  LoggerState(const LoggerState&) = delete;
  LoggerState& operator=(const LoggerState&) = delete;

  // Takes the lock; a thread that owns it already only deepens its recursion.
  void Lock();
  // Undoes one Lock; the last one frees the lock.
  void Unlock();

  // Depth of the owner's lock, 0 when free; and the owning thread, 0 when free.
  std::int32_t RecursionCount() const { return recursionCount_; }
  std::uint32_t OwnerThread() const { return ownerThread_; }

  // Makes `sink` (attached to the Logger) the current sink, named `targetName`.
  void SetSink(std::shared_ptr<Framework::LogSink> sink, const std::string& targetName);

  // True while a sink is current.
  bool HasSink() const { return sink_ != nullptr; }
  const std::string& TargetName() const { return targetName_; }

  // Stops the log: writes ">> Stopped logging to <target> at <local date and time>" to the
  // current sink, detaches it from the Logger and releases it; then clears the target name.
  // Without a sink it only clears the target name.
  void StopLogging();

 private:
  std::int32_t recursionCount_ = 0;             // Written by the owner only
  std::atomic<std::uint32_t> ownerThread_{0};
  std::mutex lockWord_;
  std::shared_ptr<Framework::LogSink> sink_;    // Guarded by the lock
  std::string targetName_;                      // Guarded by the lock
};

}  // namespace QuillmarBasebandSDK
