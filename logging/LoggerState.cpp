#include "LoggerState.h"

#include "TimeTexts.h"
#include "framework/Logger.h"
#include "framework/platform/Process.h"

namespace QuillmarBasebandSDK {

void LoggerState::Lock() {
  const std::uint32_t self = Framework::CurrentThreadId();
  if (ownerThread_ == self) {
    ++recursionCount_;
    return;
  }
  lockWord_.lock();
  ownerThread_ = self;
  recursionCount_ = 1;
}

void LoggerState::Unlock() {
  if (--recursionCount_ > 0) return;
  ownerThread_ = 0;
  lockWord_.unlock();
}

void LoggerState::SetSink(std::shared_ptr<Framework::LogSink> sink, const std::string& targetName) {
  Guard guard(*this);
  sink_ = std::move(sink);
  targetName_ = targetName;
}

void LoggerState::StopLogging() {
  Guard guard(*this);
  if (sink_ != nullptr) {
    SYSTEMTIME now{};
    Framework::GetCurrentLocalTime(&now);
    sink_->WriteLine(">> Stopped logging to " + targetName_ + " at " + TimeTexts::DateTime(now));
    Framework::Logger::RemoveSink(sink_);
    sink_.reset();
  }
  targetName_.clear();
}

}  // namespace QuillmarBasebandSDK
