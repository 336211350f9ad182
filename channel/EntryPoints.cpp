#include "channel/EntryPoints.h"

#include <new>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "framework/Logger.h"
#include "logging/BuildInfo.h"

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

QUILLMAR_C_API void DeleteProcessor(Framework::ProcessorBase* processor) { delete processor; }

QUILLMAR_C_API const char* GetProcessorVersion() {
  return QuillmarBasebandSDK::BuildInfo::Text(QuillmarBasebandSDK::BuildInfo::kBuildInfoKey);
}
