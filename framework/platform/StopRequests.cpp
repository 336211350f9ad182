#include "StopRequests.h"

#include <csignal>
#include <mutex>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace Framework {
namespace {

volatile std::sig_atomic_t requestCount = 0;
volatile std::sig_atomic_t firstSignal = 0;

// Called from the handler: only async-signal-safe work.
void Record(int signalNumber);

#if defined(_WIN32)

BOOL WINAPI OnConsoleEvent(DWORD event) {
  Record(event == CTRL_C_EVENT ? SIGINT : SIGTERM);
  return TRUE;
}

#else

int wakePipe[2] = {-1, -1};

extern "C" void OnStopSignal(int signalNumber) {
  const int savedErrno = errno;
  Record(signalNumber);
  if (wakePipe[1] >= 0) {
    const ssize_t ignored = ::write(wakePipe[1], "x", 1);  // a full pipe already wakes
    static_cast<void>(ignored);
  }
  errno = savedErrno;
}

void OpenWakePipe() {
  if (::pipe(wakePipe) != 0) return;
  for (const int end : wakePipe) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
  }
}

void Handle(int signalNumber, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigfillset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a blocked call returns EINTR
  ::sigaction(signalNumber, &action, nullptr);
}

#endif

void Record(int signalNumber) {
  if (firstSignal == 0) firstSignal = signalNumber;
  requestCount = requestCount + 1;
#if defined(_WIN32)
  if (requestCount >= StopRequests::kRequestsBeforeExit) ::ExitProcess(128 + signalNumber);
#else
  if (requestCount >= StopRequests::kRequestsBeforeExit) ::_exit(128 + signalNumber);
#endif
}

}  // namespace

void StopRequests::Install() {
  static std::once_flag installed;
  std::call_once(installed, [] {
#if defined(_WIN32)
    ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
#else
    OpenWakePipe();
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP}) Handle(signalNumber, OnStopSignal);
    Handle(SIGPIPE, SIG_IGN);
#endif
  });
}

int StopRequests::Count() { return requestCount; }

int StopRequests::FirstSignal() { return firstSignal; }

int StopRequests::WakeDescriptor() {
#if defined(_WIN32)
  return -1;
#else
  return wakePipe[0];
#endif
}

void StopRequests::DrainWakeDescriptor() {
#if !defined(_WIN32)
  char bytes[64];
  while (wakePipe[0] >= 0 && ::read(wakePipe[0], bytes, sizeof bytes) > 0) {
  }
#endif
}

void StopRequests::EnsureStandardDescriptors() {
#if !defined(_WIN32)
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    const int opened = ::open("/dev/null", descriptor == 0 ? O_RDONLY : O_WRONLY);
    if (opened >= 0 && opened != descriptor) {
      ::dup2(opened, descriptor);
      ::close(opened);
    }
  }
#endif
}

}  // namespace Framework
