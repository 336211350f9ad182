// The exit statuses of quillmar, and the status the chosen subcommand decided.
#pragma once

namespace Quillmar::Tools {

// quillmar embed, and every subcommand for success, failure and usage errors.
constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;        // the input or output cannot be used; any other failure
constexpr int kExitUsage = 2;          // the command line is wrong
constexpr int kExitConfiguration = 3;  // the configuration or the program cannot be used
constexpr int kExitTimeslot = 4;       // no time slot could be reserved
constexpr int kExitLicense = 5;        // the licence is not valid
constexpr int kExitNothingMarked = 6;  // the session closed without marking a frame
constexpr int kExitInputFailed = 7;    // the input broke off or failed during the session
constexpr int kExitOutputFailed =
    8;  // the output failed during the session (closed pipe, full disk)
constexpr int kExitSignalBase = 128;  // + the signal's number: a stop request ended the run

// quillmar detect, as grep: a watermark was decoded, none was, or the command failed.
constexpr int kDetectFound = 0;
constexpr int kDetectNothing = 1;
constexpr int kDetectError = 2;

// Records the status the program ends with.
void SetExitStatus(int status);

// The recorded status; 0 when none was recorded.
int ExitStatus();

}  // namespace Quillmar::Tools
