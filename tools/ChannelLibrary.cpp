#include "tools/ChannelLibrary.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace Quillmar::Tools {
namespace {

constexpr char kLibraryName[] = "QuillmarBasebandSDK";

std::string DefaultLibraryPath() {
  const char* configured = std::getenv("QUILLMAR_CHANNEL_LIBRARY");
  if (configured != nullptr && *configured != '\0') return configured;
  static const int anchor = 0;
  const std::filesystem::path binFolder = Framework::DynamicLibrary::FolderOf(&anchor);
  return (binFolder.parent_path() / "lib" / Framework::DynamicLibrary::FileName(kLibraryName))
      .string();
}

}  // namespace

ChannelLibrary::ChannelLibrary() {
  const std::string path = DefaultLibraryPath();
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
