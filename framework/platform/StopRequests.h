// Requests to stop that a command-line host receives from the user or the system: SIGINT
// (Ctrl-C), SIGTERM and SIGHUP on POSIX systems; Ctrl-C, Ctrl-Break and closing the console on
// Windows. The handler only counts them and wakes the waits of StreamFile; the host decides at
// its next safe point what a request means. The first request ends the run after the frame in
// progress, the second stops waiting for the upstream or the downstream, and the fourth ends the
// process at once with status 128 + the signal's number.
//
// Process-wide. Install once, from the main thread, before other threads start.
#pragma once

#include "Export.h"

namespace Framework {

class FRAMEWORK_API StopRequests {
 public:
  // The request after which the handler ends the process at once, without closing anything.
  static constexpr int kRequestsBeforeExit = 4;

  // Installs the handlers (without restarting interrupted calls) and ignores SIGPIPE, so that a
  // reader that went away shows up as a write error. Later calls do nothing.
  static void Install();

  // How many requests arrived since Install.
  static int Count();

  // The number of the signal that made the first request (SIGINT for Ctrl-C on Windows, SIGTERM
  // for Ctrl-Break and closing the console); 0 while there has been none.
  static int FirstSignal();

  // A descriptor that becomes readable when a request arrives, for poll(); -1 before Install.
  static int WakeDescriptor();

  // Empties the wake descriptor after a wait saw it readable.
  static void DrainWakeDescriptor();

  // Makes sure descriptors 0, 1 and 2 are open (on /dev/null when not), so that no file the
  // process opens later takes the place of standard input, output or error.
  static void EnsureStandardDescriptors();
};

}  // namespace Framework
