#include "DynamicLibrary.h"

#include <filesystem>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <dlfcn.h>
#endif

namespace Framework {

DynamicLibrary::DynamicLibrary(void* handle, std::string path)
    : handle_(handle), path_(std::move(path)) {}

#if defined(_WIN32)

// A library named by a full path has its own imports looked for in its own folder first (the
// product DLL beside a plug-in, the framework DLL beside the product), not only in the host
// executable's folder; Windows wants backslashes in such a path.
std::unique_ptr<DynamicLibrary> DynamicLibrary::Open(const std::string& path, std::string* error) {
  const std::filesystem::path file = std::filesystem::path(path).make_preferred();
  HMODULE handle = file.is_absolute() ? ::LoadLibraryExA(file.string().c_str(), nullptr,
                                                         LOAD_WITH_ALTERED_SEARCH_PATH)
                                      : ::LoadLibraryA(path.c_str());
  if (handle == nullptr) {
    *error = "LoadLibrary failed with code " + std::to_string(::GetLastError());
    return nullptr;
  }
  return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(handle, path));
}

DynamicLibrary::~DynamicLibrary() { ::FreeLibrary(static_cast<HMODULE>(handle_)); }

void* DynamicLibrary::Symbol(const char* name) const {
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
}

std::string DynamicLibrary::FileName(const std::string& baseName) { return baseName + ".dll"; }

std::string DynamicLibrary::BaseNameOf(const std::string& fileName) {
  const std::string suffix = ".dll";
  if (fileName.size() <= suffix.size() ||
      fileName.compare(fileName.size() - suffix.size(), suffix.size(), suffix) != 0) {
    return {};
  }
  return fileName.substr(0, fileName.size() - suffix.size());
}

std::string DynamicLibrary::FolderOf(const void* address) {
  HMODULE module = nullptr;
  if (!::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCSTR>(address), &module)) {
    return {};
  }
  char path[MAX_PATH];
  const DWORD length = ::GetModuleFileNameA(module, path, MAX_PATH);
  return std::filesystem::path(std::string(path, length)).parent_path().string();
}

char DynamicLibrary::PathListSeparator() { return ';'; }

#else

std::unique_ptr<DynamicLibrary> DynamicLibrary::Open(const std::string& path, std::string* error) {
  void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* text = ::dlerror();
    *error = text != nullptr ? text : "dlopen failed";
    return nullptr;
  }
  return std::unique_ptr<DynamicLibrary>(new DynamicLibrary(handle, path));
}

DynamicLibrary::~DynamicLibrary() { ::dlclose(handle_); }

void* DynamicLibrary::Symbol(const char* name) const { return ::dlsym(handle_, name); }

std::string DynamicLibrary::FileName(const std::string& baseName) {
  return "lib" + baseName + ".so";
}

std::string DynamicLibrary::BaseNameOf(const std::string& fileName) {
  const std::string prefix = "lib";
  const std::string suffix = ".so";
  if (fileName.size() <= prefix.size() + suffix.size() ||
      fileName.compare(0, prefix.size(), prefix) != 0 ||
      fileName.compare(fileName.size() - suffix.size(), suffix.size(), suffix) != 0) {
    return {};
  }
  return fileName.substr(prefix.size(), fileName.size() - prefix.size() - suffix.size());
}

std::string DynamicLibrary::FolderOf(const void* address) {
  Dl_info info{};
  if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr) return {};
  std::error_code ignored;
  const auto file = std::filesystem::canonical(info.dli_fname, ignored);
  return (ignored ? std::filesystem::path(info.dli_fname) : file).parent_path().string();
}

char DynamicLibrary::PathListSeparator() { return ':'; }

#endif

}  // namespace Framework
