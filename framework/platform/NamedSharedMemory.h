// A named block of shared memory, mapped read-write into this process.
//
// Opening a name that exists maps the existing block; otherwise a zero-filled block is created.
// The mapping ends with the object. The name outlives the mapping on POSIX systems until
// RemoveName() is called; on Windows the block ends with its last handle.
// Not thread-safe: one thread opens and releases a given object.
#pragma once

#include <cstddef>
#include <string>

#include "Export.h"

namespace Framework {

class FRAMEWORK_API NamedSharedMemory {
 public:
  // Creates or opens the block `name` of `size` bytes and maps it.
  // Throws std::runtime_error "Could not create shared memory : <name>" when the block cannot be
  // created or opened, and "Could not view shared memory : <name>" when it cannot be mapped.
  NamedSharedMemory(const std::string& name, std::size_t size);
  ~NamedSharedMemory();

  NamedSharedMemory(const NamedSharedMemory&) = delete;
  NamedSharedMemory& operator=(const NamedSharedMemory&) = delete;

  // True when the block existed before this object opened it.
  bool AlreadyExisted() const { return alreadyExisted_; }

  // Start of the mapped block; valid for the life of this object.
  void* Address() const { return address_; }

  std::size_t Size() const { return size_; }
  const std::string& Name() const { return name_; }

  // Removes the name, so that the next opening of it creates a fresh block. The mapping stays.
  void RemoveName();

  // True when a block of this name exists now.
  static bool Exists(const std::string& name);

 private:
  std::string name_;
  std::size_t size_;
  bool alreadyExisted_ = false;
  void* address_ = nullptr;
#if defined(_WIN32)
  void* mapping_ = nullptr;
#endif
};

}  // namespace Framework
