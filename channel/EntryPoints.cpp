// The library's plain entry points: the only unmangled names a host looks up.
#include <new>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "framework/Logger.h"
#include "framework/platform/Export.h"
#include "logging/BuildInfo.h"

// A new channel made from `properties`; null when it cannot be made.
QUILLMAR_C_API Framework::ProcessorBase* CreateProcessor(const Framework::PropertyBase& properties) {
  try {
    return new Framework::QuillmarBasebandSDKChannel(properties);
  } catch (const std::bad_alloc&) {
    return nullptr;
  } catch (const std::exception& error) {
    Framework::Logger::Exception(error, "CreateProcessor");
    return nullptr;
  }
}

// Destroys a channel made by CreateProcessor; null is ignored.
QUILLMAR_C_API void DeleteProcessor(Framework::ProcessorBase* processor) { delete processor; }

// The build-information text of this library; valid for the life of the library.
QUILLMAR_C_API const char* GetProcessorVersion() {
  return QuillmarBasebandSDK::BuildInfo::Text(QuillmarBasebandSDK::BuildInfo::kBuildInfoKey);
}
