// A lock shared by processes through a file, granted in the order it was asked for.
//
// Each Acquire takes the next ticket from a counter at the head of the file and holds a lock on
// the ticket's own byte; its turn comes when no byte of an earlier ticket is still locked. A
// process that ends, however it ends, loses its byte locks at once, so a holder or a waiter that
// is killed never stalls the others. The locks belong to this object's open file (never to the
// whole process), so two objects in one process queue like two processes.
//
// It orders waiters; it does not replace the lock it puts them in front of. When the file cannot
// be used (a folder that cannot be written, a file system without such locks), the object is not
// Usable() and Acquire grants at once, leaving exclusion to what it guards.
//
// One thread at a time per object.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "Export.h"

namespace Framework {

class FRAMEWORK_API QueuedFileLock {
 public:
  // Opens the file at `path`, created when missing.
  explicit QueuedFileLock(const std::string& path);
  // Releases a turn still held.
  ~QueuedFileLock();
  QueuedFileLock(const QueuedFileLock&) = delete;
  QueuedFileLock& operator=(const QueuedFileLock&) = delete;

  // True when the file takes part in the queue.
  bool Usable() const;

  // Takes a place in the queue and waits until everyone before has released or ended. False when
  // `timeout` passed first; the place is then given up.
  bool Acquire(std::chrono::milliseconds timeout);

  // Ends the turn, letting the next in line go; nothing when no turn is held.
  void Release();

  // How many places the queue at `path` has handed out so far; for tests.
  static std::uint64_t TicketsIssued(const std::string& path);

 private:
  struct File;
  std::unique_ptr<File> file_;  // null when not usable
  std::uint64_t ticket_ = 0;    // the place held; 0 when none
};

}  // namespace Framework
