// Whether a SharedDatabase value names a reservoir on a database server rather than a SQLite file.
#pragma once

#include <string>

namespace QuillmarBasebandSDK {

// True for a PostgreSQL connection URI: postgresql://... or postgres://...
inline bool IsServerLocation(const std::string& location) {
  return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0;
}

}  // namespace QuillmarBasebandSDK
