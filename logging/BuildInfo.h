// The process-wide build-information table: key -> text, filled once from the build.
//
// Keys: "WM_BUILD_INFO" (one line naming product, version, RELEASE or .BETA, revision and build
// time), "WM_BUILD_URL", "WM_BUILD_REVISION", and "WM_VERSION_<component>" for the product, the
// framework, SQLite and Boost. Thread-safe; the texts live as long as the library.
#pragma once

#include <map>
#include <string>

namespace QuillmarBasebandSDK {

class BuildInfo {
 public:
  static constexpr char kBuildInfoKey[] = "WM_BUILD_INFO";
  static constexpr char kBuildUrlKey[] = "WM_BUILD_URL";
  static constexpr char kBuildRevisionKey[] = "WM_BUILD_REVISION";

  // The whole table.
  static const std::map<std::string, std::string>& Entries();

  // The stored text of `key`, or "" when the table has no such key. Never null.
  static const char* Text(const std::string& key);
};

}  // namespace QuillmarBasebandSDK
