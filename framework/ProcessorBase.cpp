#include "ProcessorBase.h"

namespace Framework {
namespace {

SenderId NextSender() {
  static std::atomic<SenderId> last{0};
  return ++last;
}

}  // namespace

ProcessorBase::ProcessorBase() : sender_(NextSender()) {}

ProcessorBase::~ProcessorBase() = default;

bool ProcessorBase::Transition(ProcessorState from, ProcessorState to) {
  return state_.compare_exchange_strong(from, to);
}

bool ProcessorBase::InitProcessor() {
  if (state_ == ProcessorState::Started) return false;
  if (state_ != ProcessorState::Created) DeinitProcessor();
  if (!Init()) return false;
  return Transition(ProcessorState::Created, ProcessorState::Initialized);
}

bool ProcessorBase::StartProcessor() {
  const ProcessorState from = state_;
  if (from != ProcessorState::Initialized && from != ProcessorState::Stopped) return false;
  if (!Start()) return false;
  return Transition(from, ProcessorState::Started);
}

bool ProcessorBase::StopProcessor() {
  std::lock_guard<std::recursive_mutex> lock(frameMutex_);
  if (!Transition(ProcessorState::Started, ProcessorState::Stopped)) return false;
  return Stop();
}

bool ProcessorBase::DeinitProcessor() {
  if (state_ == ProcessorState::Started) StopProcessor();
  if (!Transition(ProcessorState::Initialized, ProcessorState::Created) &&
      !Transition(ProcessorState::Stopped, ProcessorState::Created)) {
    return false;
  }
  Deinit();
  return true;
}

bool ProcessorBase::DeliverFrame(Frame* frame) {
  std::lock_guard<std::recursive_mutex> lock(frameMutex_);
  if (state_ != ProcessorState::Started) return false;
  ProcessFrameVolatile(frame);
  return true;
}

void ProcessorBase::SetFormat(const VideoFormatInfo& format) { format_ = format; }

void ProcessorBase::ProcessFrameVolatile(Frame* frame) { ProcessFrame(frame); }

void ProcessorBase::ProcessFrame(const Frame*) {}

bool ProcessorBase::Init() { return true; }
bool ProcessorBase::Start() { return true; }
bool ProcessorBase::Stop() { return true; }
void ProcessorBase::Deinit() {}

}  // namespace Framework
