// The process-wide registry of plug-in processor classes: class name -> factory.
//
// A plug-in library registers its classes while it loads (QUILLMAR_REGISTER_PROCESSOR next to the
// class). Libraries are found in the plug-in path: the folders listed in QUILLMAR_PLUGIN_PATH
// (separated as the system separates search paths), or else the folder of the library that asks
// and its "quillmar/plugins" folder (where an installation puts them).
// The library holding class X is lib X .so (X.dll on Windows). Loaded libraries stay loaded for
// the life of the process, so processors they made may be deleted at any time. Thread-safe.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ProcessorBase.h"
#include "platform/DynamicLibrary.h"

namespace Framework {

class FRAMEWORK_API PluginRegistry {
 public:
  // Makes a new processor from its construction properties; may throw.
  using Factory = ProcessorBase* (*)(const PropertyBase& constructionProperties);

  // The registry of this process.
  static PluginRegistry& Instance();

  // Registers `factory` under `className`. False (logged) when the name is taken.
  bool Register(const std::string& className, Factory factory);

  // True when `className` is registered.
  bool IsRegistered(const std::string& className) const;

  // Makes an instance of `className`, loading its library from `folders` first when the class is
  // not registered yet. Null (logged) when the class is unknown or its factory fails.
  ProcessorBase* Create(const std::string& className, const PropertyBase& properties,
                        const std::vector<std::string>& folders);

  // Loads the plug-in library `name` from the first of `folders` that holds it. True when it is
  // loaded now or was before.
  bool LoadPlugin(const std::string& name, const std::vector<std::string>& folders);

  // The plug-in path for the module that holds `addressInAskingModule`.
  static std::vector<std::string> SearchPath(const void* addressInAskingModule);

  // The plug-in libraries in `folders`: names of the files lib*Plugin.so, without "lib" and
  // ".so", sorted and without repeats.
  static std::vector<std::string> FindPlugins(const std::vector<std::string>& folders);

 private:
  PluginRegistry() = default;

  mutable std::recursive_mutex mutex_;  // Recursive: a library registers while LoadPlugin loads it
  std::map<std::string, Factory> factories_;                          // Guarded by mutex_
  std::map<std::string, std::unique_ptr<DynamicLibrary>> libraries_;  // Guarded by mutex_
};

}  // namespace Framework

// Registers `ClassName`, constructible from `const Framework::PropertyBase&`, under its own name.
#define QUILLMAR_REGISTER_PROCESSOR(ClassName)                                            \
  namespace {                                                                             \
  const bool kRegistered##ClassName = ::Framework::PluginRegistry::Instance().Register(   \
      #ClassName, [](const ::Framework::PropertyBase& properties) -> ::Framework::ProcessorBase* { \
        return new ClassName(properties);                                                 \
      });                                                                                 \
  }
