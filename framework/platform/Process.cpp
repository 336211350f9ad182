#include "Process.h"

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <sys/syscall.h>
#  include <unistd.h>

#  include <fstream>
#  include <sstream>
#  include <string>
#endif

namespace Framework {

#if defined(_WIN32)

std::uint32_t CurrentProcessId() { return ::GetCurrentProcessId(); }

std::uint32_t CurrentThreadId() { return ::GetCurrentThreadId(); }

std::uint64_t CurrentProcessStartStamp() {
  FILETIME creation, exit, kernel, user;
  ::GetProcessTimes(::GetCurrentProcess(), &creation, &exit, &kernel, &user);
  return (static_cast<std::uint64_t>(creation.dwHighDateTime) << 32) | creation.dwLowDateTime;
}

#else

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(::getpid()); }

std::uint32_t CurrentThreadId() { return static_cast<std::uint32_t>(::syscall(SYS_gettid)); }

// Field 22 of /proc/self/stat: the start time in clock ticks after boot. The process name
// (field 2) may hold blanks, so the fields are counted from its closing parenthesis.
std::uint64_t CurrentProcessStartStamp() {
  static const std::uint64_t stamp = [] {
    std::ifstream stat("/proc/self/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto nameEnd = text.rfind(')');
    if (nameEnd == std::string::npos) return std::uint64_t{0};
    std::istringstream fields(text.substr(nameEnd + 2));
    std::string field;
    for (int index = 3; index < 22 && fields >> field; ++index) {
    }
    std::uint64_t startTime = 0;
    fields >> startTime;
    return startTime;
  }();
  return stamp;
}

#endif

}  // namespace Framework
