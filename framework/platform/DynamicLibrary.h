// A shared library loaded at run time (dlopen / LoadLibrary), unloaded with the object.
#pragma once

#include <memory>
#include <string>

#include "Export.h"

namespace Framework {

class FRAMEWORK_API DynamicLibrary {
 public:
  // Loads the library at `path`. Returns null and fills *error with the loader's text on failure.
  static std::unique_ptr<DynamicLibrary> Open(const std::string& path, std::string* error);

  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // Address of the exported symbol `name`, or null when the library has none.
  void* Symbol(const char* name) const;

  const std::string& Path() const { return path_; }

  // The file name a library called `baseName` has on this system ("libX.so", "X.dll").
  static std::string FileName(const std::string& baseName);

  // The base name of a library file ("libX.so" -> "X"), or empty when it is not one.
  static std::string BaseNameOf(const std::string& fileName);

  // The folder of the loaded module (library or executable) that holds `address`; empty if unknown.
  static std::string FolderOf(const void* address);

  // The separator between folders in a search path (':' or ';').
  static char PathListSeparator();

 private:
  DynamicLibrary(void* handle, std::string path);

  void* handle_;
  std::string path_;
};

}  // namespace Framework
