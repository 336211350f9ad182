#include "tools/ChannelLibrary.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "channel/EntryPoints.h"

namespace Quillmar::Tools {
namespace {

constexpr char kLibraryName[] = "QuillmarBasebandSDK";

// QUILLMAR_CHANNEL_LIBRARY when set, else `path`.
std::string LibraryPath(const std::string& path) {
  const char* configured = std::getenv("QUILLMAR_CHANNEL_LIBRARY");
  return configured != nullptr && *configured != '\0' ? configured : path;
}

// The library this program is linked with: a host links it for the exported classes' own
// operations, and makes its channels through the entry points of the same file.
std::string LinkedLibrary() {
  const auto* entryPoint = reinterpret_cast<const void*>(&CreateProcessor);
  return (std::filesystem::path(Framework::DynamicLibrary::FolderOf(entryPoint)) /
          Framework::DynamicLibrary::FileName(kLibraryName))
      .string();
}

}  // namespace

ChannelLibrary::ChannelLibrary() {
  const std::string path = LibraryPath(LinkedLibrary());
  std::string error;
  library_ = Framework::DynamicLibrary::Open(path, &error);
  if (library_ == nullptr) throw std::runtime_error("cannot load " + path + ": " + error);
}

void* ChannelLibrary::EntryPoint(const char* name) const {
  void* entry = library_->Symbol(name);
  if (entry == nullptr) {
    throw std::runtime_error(library_->Path() + " has no entry point " + name);
  }
  return entry;
}

std::string ChannelLibrary::Version() const {
  using GetProcessorVersion = const char* (*)();
  return reinterpret_cast<GetProcessorVersion>(EntryPoint("GetProcessorVersion"))();
}

Framework::ProcessorBase* ChannelLibrary::CreateProcessor(
    const Framework::PropertyBase& properties) const {
  using Create = Framework::ProcessorBase* (*)(const Framework::PropertyBase&);
  return reinterpret_cast<Create>(EntryPoint("CreateProcessor"))(properties);
}

void ChannelLibrary::DeleteProcessor(Framework::ProcessorBase* processor) const {
  using Delete = void (*)(Framework::ProcessorBase*);
  reinterpret_cast<Delete>(EntryPoint("DeleteProcessor"))(processor);
}

}  // namespace Quillmar::Tools
