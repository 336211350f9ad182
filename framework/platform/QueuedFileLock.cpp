#include "QueuedFileLock.h"

#include <algorithm>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#endif

namespace Framework {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

// The file: the ticket counter at offset 0 (its lock on byte 0 guards it) and a count of releases
// at offset 8, then one byte per ticket from kFirstTicketByte on, locked by the ticket's holder
// while it waits and while it holds its turn. No byte past the header is ever written.
constexpr std::int64_t kCounterByte = 0;
constexpr std::int64_t kReleasesByte = 8;
constexpr std::int64_t kHeaderBytes = 16;
constexpr std::int64_t kFirstTicketByte = kHeaderBytes;
// A waiter looks at the queue again when a turn ends, or after a pause that grows from
// kFirstPause to the platform's longest: a process that dies ends its turn without a word.
constexpr microseconds kFirstPause{20};

}  // namespace

#if defined(_WIN32)

struct QueuedFileLock::File {
  HANDLE handle;
  ~File() { ::CloseHandle(handle); }

  static std::unique_ptr<File> Open(const std::string& path) {
    const HANDLE handle = ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    return std::unique_ptr<File>(new File{handle});
  }

  static OVERLAPPED At(std::int64_t offset) {
    OVERLAPPED overlapped{};
    overlapped.Offset = static_cast<DWORD>(offset);
    overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return overlapped;
  }

  bool Lock(std::int64_t start, std::int64_t length, bool wait) {
    OVERLAPPED overlapped = At(start);
    return ::LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | (wait ? 0 : LOCKFILE_FAIL_IMMEDIATELY), 0,
                        static_cast<DWORD>(length), static_cast<DWORD>(length >> 32),
                        &overlapped) != 0;
  }

  void Unlock(std::int64_t start, std::int64_t length) {
    OVERLAPPED overlapped = At(start);
    ::UnlockFileEx(handle, 0, static_cast<DWORD>(length), static_cast<DWORD>(length >> 32),
                   &overlapped);
  }

  // True when no one else holds a lock on any byte of the range.
  bool Free(std::int64_t start, std::int64_t length) {
    if (!Lock(start, length, false)) return false;
    Unlock(start, length);
    return true;
  }

  bool ReadCounter(std::uint64_t& value) {
    OVERLAPPED overlapped = At(kCounterByte);
    DWORD read = 0;
    value = 0;
    return ::ReadFile(handle, &value, sizeof value, &read, &overlapped) != 0 ||
           ::GetLastError() == ERROR_HANDLE_EOF;
  }

  bool WriteCounter(std::uint64_t value) {
    OVERLAPPED overlapped = At(kCounterByte);
    DWORD written = 0;
    return ::WriteFile(handle, &value, sizeof value, &written, &overlapped) != 0 &&
           written == sizeof value;
  }

  // No word to wait on across processes here: waiters look again every millisecond at most.
  static constexpr microseconds kLongestPause{1000};
  std::uint32_t Releases() { return 0; }
  void AnnounceRelease() {}
  void WaitForRelease(std::uint32_t, microseconds pause) { std::this_thread::sleep_for(pause); }
};

#else

struct QueuedFileLock::File {
  int fd;
  // The count of releases, mapped from the file: a futex word every waiter sleeps on. Null when
  // the file cannot be mapped; waiters then look again every millisecond at most.
  std::uint32_t* releases = nullptr;

  ~File() {
    if (releases != nullptr) ::munmap(releases - kReleasesByte / 4, kHeaderBytes);
    ::close(fd);
  }

  // Open-file-description locks: owned by this open file, not by the process.
  static std::unique_ptr<File> Open(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    std::unique_ptr<File> file(new File{fd});
    flock probe = Range(F_WRLCK, kCounterByte, 1);
    if (::fcntl(fd, F_OFD_GETLK, &probe) != 0) return nullptr;
    file->MapReleases();
    return file;
  }

  void MapReleases() {
    struct stat status {};
    // Growing the file never changes its header; two processes may both do it.
    if (::fstat(fd, &status) != 0 ||
        (status.st_size < kHeaderBytes && ::ftruncate(fd, kHeaderBytes) != 0)) {
      return;
    }
    void* header = ::mmap(nullptr, kHeaderBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (header != MAP_FAILED) releases = static_cast<std::uint32_t*>(header) + kReleasesByte / 4;
  }

  static flock Range(short type, std::int64_t start, std::int64_t length) {
    flock range{};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(start);
    range.l_len = static_cast<off_t>(length);
    return range;
  }

  bool Lock(std::int64_t start, std::int64_t length, bool wait) {
    flock range = Range(F_WRLCK, start, length);
    return ::fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &range) == 0;
  }

  void Unlock(std::int64_t start, std::int64_t length) {
    flock range = Range(F_UNLCK, start, length);
    ::fcntl(fd, F_OFD_SETLK, &range);
  }

  bool Free(std::int64_t start, std::int64_t length) {
    flock range = Range(F_WRLCK, start, length);
    return ::fcntl(fd, F_OFD_GETLK, &range) != 0 || range.l_type == F_UNLCK;
  }

  bool ReadCounter(std::uint64_t& value) {
    value = 0;
    return ::pread(fd, &value, sizeof value, kCounterByte) >= 0;
  }

  bool WriteCounter(std::uint64_t value) {
    return ::pwrite(fd, &value, sizeof value, kCounterByte) == sizeof value;
  }

  // With the futex a waiter wakes when a turn ends; the pause only bounds how long a death goes
  // unnoticed.
  static constexpr microseconds kLongestPause{10'000};

  std::uint32_t Releases() {
    return releases != nullptr ? __atomic_load_n(releases, __ATOMIC_ACQUIRE) : 0;
  }

  void AnnounceRelease() {
    if (releases == nullptr) return;
    __atomic_add_fetch(releases, 1, __ATOMIC_RELEASE);
    ::syscall(SYS_futex, releases, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  }

  // Sleeps until a release after `seen`, or `pause`.
  void WaitForRelease(std::uint32_t seen, microseconds pause) {
    if (releases == nullptr) {
      std::this_thread::sleep_for(std::min(pause, microseconds(1000)));
      return;
    }
    const timespec timeout{static_cast<time_t>(pause.count() / 1'000'000),
                           static_cast<long>(pause.count() % 1'000'000) * 1000};
    ::syscall(SYS_futex, releases, FUTEX_WAIT, seen, &timeout, nullptr, 0);
  }
};

#endif

namespace {

// The next ticket, its byte locked by `file`; 0 when the file failed (the caller goes ahead).
template <typename File>
std::uint64_t TakeTicket(File& file) {
  if (!file.Lock(kCounterByte, 1, true)) return 0;
  std::uint64_t ticket = 0;
  const bool taken = file.ReadCounter(ticket) && file.WriteCounter(++ticket) &&
                     file.Lock(kFirstTicketByte + static_cast<std::int64_t>(ticket), 1, false);
  file.Unlock(kCounterByte, 1);
  return taken ? ticket : 0;
}

}  // namespace

QueuedFileLock::QueuedFileLock(const std::string& path) : file_(File::Open(path)) {}

QueuedFileLock::~QueuedFileLock() { Release(); }

bool QueuedFileLock::Usable() const { return file_ != nullptr; }

bool QueuedFileLock::Acquire(std::chrono::milliseconds timeout) {
  Release();
  if (file_ == nullptr) return true;
  const steady_clock::time_point deadline = steady_clock::now() + timeout;
  const std::uint64_t ticket = TakeTicket(*file_);
  if (ticket == 0) return true;
  ticket_ = ticket;
  const auto earlier = static_cast<std::int64_t>(ticket - 1);
  for (microseconds pause = kFirstPause;; pause = std::min(pause * 2, File::kLongestPause)) {
    const std::uint32_t seen = file_->Releases();
    if (earlier == 0 || file_->Free(kFirstTicketByte + 1, earlier)) return true;
    const steady_clock::time_point now = steady_clock::now();
    if (now >= deadline) {
      Release();
      return false;
    }
    file_->WaitForRelease(
        seen, std::min(pause,
                       std::chrono::duration_cast<microseconds>(deadline - now) + microseconds(1)));
  }
}

void QueuedFileLock::Release() {
  if (ticket_ == 0) return;
  file_->Unlock(kFirstTicketByte + static_cast<std::int64_t>(ticket_), 1);
  ticket_ = 0;
  file_->AnnounceRelease();
}

std::uint64_t QueuedFileLock::TicketsIssued(const std::string& path) {
  const std::unique_ptr<File> file = File::Open(path);
  std::uint64_t count = 0;
  if (file != nullptr) file->ReadCounter(count);
  return count;
}

}  // namespace Framework
