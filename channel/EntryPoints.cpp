// The library's plain entry points, the only unmangled names a host looks up.
#include "framework/platform/Export.h"
#include "logging/BuildInfo.h"

// The build-information text of this library; valid for the life of the library.
QUILLMAR_C_API const char* GetProcessorVersion() {
  return QuillmarBasebandSDK::BuildInfo::Text(QuillmarBasebandSDK::BuildInfo::kBuildInfoKey);
}
