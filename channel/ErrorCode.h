// The last error of a channel, as QuillmarBasebandSDKChannel::GetLastError reports it.
// Once set, a channel's error code is never reset to ErrorNone.
#pragma once

#include <cstdint>

namespace QuillmarBasebandEmbedder {

enum ErrorCode : std::int32_t {
  ErrorNone = 0,
  // The configuration could not be parsed, or the selected program is not in it: fix the
  // configuration or the program name, then start again.
  ErrorConfiguration = 1,
  // The licence is no longer valid: nothing will work until it is renewed.
  ErrorLicenseInvalidated = 7,
  // No time slot could be reserved in the shared database after every attempt: check the
  // database path and that the program's CIDs are not all in use, then initialise again.
  ErrorTimeslotAllocation = 10,
};

}  // namespace QuillmarBasebandEmbedder
