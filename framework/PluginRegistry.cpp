#include "PluginRegistry.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "Logger.h"

namespace Framework {
namespace {

constexpr char kPluginPathVariable[] = "QUILLMAR_PLUGIN_PATH";
// Where an installation keeps the plug-ins, below the folder of the libraries that use them.
constexpr char kInstalledPluginFolder[] = "quillmar/plugins";

std::vector<std::string> SplitPathList(const std::string& list) {
  std::vector<std::string> folders;
  std::istringstream stream(list);
  std::string folder;
  while (std::getline(stream, folder, DynamicLibrary::PathListSeparator())) {
    if (!folder.empty()) folders.push_back(folder);
  }
  return folders;
}

// The class name a plug-in file carries ("libXPlugin.so" -> "XPlugin"), or empty.
std::string PluginNameOf(const std::string& fileName) {
  static const std::string kSuffix = "Plugin";
  const std::string name = DynamicLibrary::BaseNameOf(fileName);
  const bool isPlugin = name.size() > kSuffix.size() &&
                        name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0;
  return isPlugin ? name : std::string();
}

}  // namespace

PluginRegistry& PluginRegistry::Instance() {
  static PluginRegistry* registry = new PluginRegistry;
  return *registry;
}

bool PluginRegistry::Register(const std::string& className, Factory factory) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!factories_.emplace(className, factory).second) {
    Logger::Error("PluginRegistry: processor class " + className + " is registered twice");
    return false;
  }
  return true;
}

bool PluginRegistry::IsRegistered(const std::string& className) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return factories_.count(className) != 0;
}

ProcessorBase* PluginRegistry::Create(const std::string& className,
                                      const PropertyBase& properties,
                                      const std::vector<std::string>& folders) {
  Factory factory = nullptr;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (factories_.count(className) == 0) LoadPlugin(className, folders);
    const auto entry = factories_.find(className);
    if (entry != factories_.end()) factory = entry->second;
  }
  if (factory == nullptr) {
    Logger::Error("PluginRegistry: unknown processor class " + className);
    return nullptr;
  }
  try {
    return factory(properties);
  } catch (const std::exception& error) {
    Logger::Exception(error, "PluginRegistry: creating " + className);
    return nullptr;
  }
}

bool PluginRegistry::LoadPlugin(const std::string& name, const std::vector<std::string>& folders) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (libraries_.count(name) != 0) return true;
  for (const std::string& folder : folders) {
    const std::filesystem::path path =
        std::filesystem::path(folder) / DynamicLibrary::FileName(name);
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) continue;
    std::string error;
    auto library = DynamicLibrary::Open(path.string(), &error);
    if (library == nullptr) {
      Logger::Error("PluginRegistry: cannot load " + path.string() + ": " + error);
      continue;
    }
    libraries_.emplace(name, std::move(library));
    return true;
  }
  return false;
}

std::vector<std::string> PluginRegistry::SearchPath(const void* addressInAskingModule) {
  const char* configured = std::getenv(kPluginPathVariable);
  if (configured != nullptr && *configured != '\0') return SplitPathList(configured);
  const std::string folder = DynamicLibrary::FolderOf(addressInAskingModule);
  if (folder.empty()) return {};
  return {folder, (std::filesystem::path(folder) / kInstalledPluginFolder).string()};
}

std::vector<std::string> PluginRegistry::FindPlugins(const std::vector<std::string>& folders) {
  std::vector<std::string> names;
  for (const std::string& folder : folders) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
      const std::string name = PluginNameOf(entry->path().filename().string());
      if (!name.empty()) names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace Framework
