// The channel library, loaded the way a host loads it: by path, with dlopen, and looked up by
// its plain entry points. A host links the library for the exported classes' own operations; the
// file it opens is the one it is linked with.
#pragma once

#include <memory>
#include <string>

#include "framework/ProcessorBase.h"
#include "framework/platform/DynamicLibrary.h"

namespace Quillmar::Tools {

class ChannelLibrary {
 public:
  // Loads the library this program is linked with (the same file, opened by its path), or
  // QUILLMAR_CHANNEL_LIBRARY when set. Throws std::runtime_error with the loader's text.
  ChannelLibrary();

  // The library's GetProcessorVersion().
  std::string Version() const;

  // The library's CreateProcessor(properties): a new channel, or null.
  Framework::ProcessorBase* CreateProcessor(const Framework::PropertyBase& properties) const;

  // The library's DeleteProcessor(processor).
  void DeleteProcessor(Framework::ProcessorBase* processor) const;

  // Where the library was loaded from.
  const std::string& Path() const { return library_->Path(); }

  // The entry point `name`; throws std::runtime_error when the library lacks it.
  void* EntryPoint(const char* name) const;

 private:
  std::unique_ptr<Framework::DynamicLibrary> library_;
};

}  // namespace Quillmar::Tools
