// The library's plain entry points: the only unmangled names a host looks up (dlsym) or, linking
// the library, calls directly.
#pragma once

#include "framework/ProcessorBase.h"
#include "framework/platform/Export.h"

// A new channel made from `properties`; null when it cannot be made.
QUILLMAR_C_API Framework::ProcessorBase* CreateProcessor(const Framework::PropertyBase& properties);

// Destroys a channel made by CreateProcessor; null is ignored.
QUILLMAR_C_API void DeleteProcessor(Framework::ProcessorBase* processor);

// The build-information text of this library; valid for the life of the library.
QUILLMAR_C_API const char* GetProcessorVersion();
