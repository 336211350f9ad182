#include "LoggerStateCell.h"

#include "framework/platform/Process.h"

namespace QuillmarBasebandSDK {
namespace {

// "LSCELLv1" in ASCII, mixed with the process start stamp.
constexpr std::uint64_t kIdentityConstant = 0x4C5343454C4C7631ull;

}  // namespace

std::string LoggerStateCell::BlockName(std::uint32_t processId) {
  return "LoggerStateV1." + std::to_string(processId);
}

std::uint64_t LoggerStateCell::ProcessIdentity() {
  return kIdentityConstant ^ Framework::CurrentProcessStartStamp();
}

LoggerStateCell::LoggerStateCell()
    : memory_(std::make_unique<Framework::NamedSharedMemory>(
          BlockName(Framework::CurrentProcessId()), kBlockSize)),
      cell_(static_cast<Layout*>(memory_->Address())) {
  if (!memory_->AlreadyExisted() || cell_->identity != ProcessIdentity()) {
    cell_->identity = ProcessIdentity();
    cell_->referenceCount = 0;
    cell_->padding = 0;
    cell_->state = new LoggerState;
    builtCell_ = true;
  }
  ++cell_->referenceCount;
}

LoggerStateCell::~LoggerStateCell() {
  if (--cell_->referenceCount > 0) return;
  cell_->state->StopLogging();
  delete cell_->state;
  cell_->state = nullptr;
  cell_->identity = 0;
  memory_->RemoveName();
}

}  // namespace QuillmarBasebandSDK
