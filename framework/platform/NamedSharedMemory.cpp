#include "NamedSharedMemory.h"

#include <stdexcept>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <fcntl.h>
#  include <sys/mman.h>
#  include <sys/stat.h>
#  include <unistd.h>
#endif

namespace Framework {
namespace {

[[noreturn]] void FailCreate(const std::string& name) {
  throw std::runtime_error("Could not create shared memory : " + name);
}

[[noreturn]] void FailView(const std::string& name) {
  throw std::runtime_error("Could not view shared memory : " + name);
}

#if !defined(_WIN32)
std::string PosixName(const std::string& name) { return "/" + name; }

// A descriptor that closes itself.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};
#endif

}  // namespace

#if defined(_WIN32)

NamedSharedMemory::NamedSharedMemory(const std::string& name, std::size_t size)
    : name_(name), size_(size) {
  mapping_ = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                  static_cast<DWORD>(size), name.c_str());
  if (mapping_ == nullptr) FailCreate(name);
  alreadyExisted_ = ::GetLastError() == ERROR_ALREADY_EXISTS;
  address_ = ::MapViewOfFile(mapping_, FILE_MAP_ALL_ACCESS, 0, 0, size);
  if (address_ == nullptr) {
    ::CloseHandle(mapping_);
    FailView(name);
  }
}

NamedSharedMemory::~NamedSharedMemory() {
  ::UnmapViewOfFile(address_);
  ::CloseHandle(mapping_);
}

void NamedSharedMemory::RemoveName() {}

bool NamedSharedMemory::Exists(const std::string& name) {
  HANDLE mapping = ::OpenFileMappingA(FILE_MAP_READ, FALSE, name.c_str());
  if (mapping == nullptr) return false;
  ::CloseHandle(mapping);
  return true;
}

#else

NamedSharedMemory::NamedSharedMemory(const std::string& name, std::size_t size)
    : name_(name), size_(size) {
  const std::string posixName = PosixName(name);
  FileDescriptor fd(::shm_open(posixName.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  int descriptor = fd.Get();
  FileDescriptor existing(descriptor < 0 ? ::shm_open(posixName.c_str(), O_RDWR, 0600) : -1);
  if (descriptor < 0) {
    descriptor = existing.Get();
    alreadyExisted_ = true;
  }
  if (descriptor < 0) FailCreate(name);

  struct stat status {};
  if (::fstat(descriptor, &status) != 0) FailCreate(name);
  if (static_cast<std::size_t>(status.st_size) < size &&
      ::ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
    FailCreate(name);
  }
  address_ = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (address_ == MAP_FAILED) {
    address_ = nullptr;
    FailView(name);
  }
}

NamedSharedMemory::~NamedSharedMemory() { ::munmap(address_, size_); }

void NamedSharedMemory::RemoveName() { ::shm_unlink(PosixName(name_).c_str()); }

bool NamedSharedMemory::Exists(const std::string& name) {
  FileDescriptor fd(::shm_open(PosixName(name).c_str(), O_RDONLY, 0600));
  return fd.Get() >= 0;
}

#endif

}  // namespace Framework
