#include "BuildInfo.h"

#include "logging/BuildStamp.h"

namespace QuillmarBasebandSDK {
namespace {

std::string VersionWithKind() {
  const std::string version = kBuildVersion;
  return kBuildIsRelease ? version + " RELEASE" : version + ".BETA";
}

std::map<std::string, std::string> MakeEntries() {
  return {
      {BuildInfo::kBuildInfoKey, std::string("QuillmarBasebandSDK ") + VersionWithKind() +
                                     ", revision " + kBuildRevision + ", built " + kBuildTime},
      {BuildInfo::kBuildUrlKey, kBuildUrl},
      {BuildInfo::kBuildRevisionKey, kBuildRevision},
      {"WM_VERSION_QuillmarBasebandSDK", kBuildVersion},
      {"WM_VERSION_Framework", kBuildVersion},
      {"WM_VERSION_SQLite", kSqliteVersion},
      {"WM_VERSION_Boost", kBoostVersion},
  };
}

}  // namespace

const std::map<std::string, std::string>& BuildInfo::Entries() {
  static const std::map<std::string, std::string> entries = MakeEntries();
  return entries;
}

const char* BuildInfo::Text(const std::string& key) {
  const auto& entries = Entries();
  const auto entry = entries.find(key);
  return entry == entries.end() ? "" : entry->second.c_str();
}

}  // namespace QuillmarBasebandSDK
