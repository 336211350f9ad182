// This process's logger-state cell: a 24-byte named shared-memory block, "LoggerStateV1.<pid>",
// through which every module of the process finds the one LoggerState.
//
// Layout: identity word (8 bytes), reference count (int32, then 4 bytes of padding), address of
// the LoggerState (8 bytes). The identity word names the process instance that built the cell
// (a constant mixed with the process's start stamp), so a block left behind by a crashed process
// whose id was reused is recognised and built afresh instead of trusted.
//
// Each opening adds 1 to the reference count and each closing takes 1 away; the closing that
// brings it to 0 stops the log, deletes the state and removes the block's name, so no block
// outlives a process that ends normally. Open and close on one thread at a time (module loading
// and unloading).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "LoggerState.h"
#include "framework/platform/NamedSharedMemory.h"

namespace QuillmarBasebandSDK {

class LoggerStateCell {
 public:
  static constexpr std::size_t kBlockSize = 24;

  // "LoggerStateV1." followed by the decimal process id.
  static std::string BlockName(std::uint32_t processId);

  // Opens this process's cell, building it when it is new or stale, and adds 1 to its count.
  // Throws std::runtime_error "Could not create shared memory : <name>" or
  // "Could not view shared memory : <name>".
  LoggerStateCell();

  // Takes 1 from the count; at 0 stops the log, deletes the state and removes the block's name.
  ~LoggerStateCell();

  LoggerStateCell(const LoggerStateCell&) = delete;
  LoggerStateCell& operator=(const LoggerStateCell&) = delete;

  // The process's logger state.
  LoggerState& State() const { return *cell_->state; }

  // Openings of the cell that are open now, in every module of the process.
  std::int32_t ReferenceCount() const { return cell_->referenceCount; }

  // True when this opening built the cell (it was new, or stale).
  bool BuiltCell() const { return builtCell_; }

  // The identity word of a cell built by this process.
  static std::uint64_t ProcessIdentity();

 private:
  struct Layout {
    std::uint64_t identity;
    std::int32_t referenceCount;
    std::int32_t padding;
    LoggerState* state;
  };
  static_assert(sizeof(Layout) == kBlockSize, "the cell is 24 bytes");

  std::unique_ptr<Framework::NamedSharedMemory> memory_;
  Layout* cell_ = nullptr;
  bool builtCell_ = false;
};

}  // namespace QuillmarBasebandSDK
