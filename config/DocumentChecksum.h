// The checksum that protects a JSON configuration: CRC-32 (reflected 0xEDB88320, start
// 0xFFFFFFFF, complemented) over a canonical text of the root object.
//
// The canonical text runs member by member in document order at every depth: names and values
// without separators; `Checksum` members and null members contribute nothing; strings go
// between double quotes; `SharedDatabase` strings have each backslash doubled (the path is
// protected in its escaped spelling); reals are written as a default stream writes them (six
// significant digits). Pure functions; thread-safe.
#pragma once

#include <string>

#include "config/JsonValue.h"

namespace QuillmarBasebandSDK {

// The canonical text of `root` (an object) that the checksum is computed over.
std::string CanonicalText(const JsonValue& root);

// The checksum of `root` as eight lower-case hexadecimal digits.
std::string DocumentChecksum(const JsonValue& root);

}  // namespace QuillmarBasebandSDK
