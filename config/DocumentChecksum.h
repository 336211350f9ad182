// The checksum that protects a JSON configuration: CRC-32 (reflected 0xEDB88320, start
// 0xFFFFFFFF, complemented) over a canonical text of the root object.
//
// The canonical text runs member by member in document order at every depth: names and values
// without separators; `Checksum` members and null members contribute nothing; strings go
// between double quotes; `SharedDatabase` strings have each backslash doubled (the path is
// protected in its escaped spelling); reals are written as a default stream writes them (six
// significant digits). The parser writes it as it reads the document (JsonDocument's
// canonicalText), so that a load passes over the bytes once. Pure function; thread-safe.
#pragma once

#include <string>

#include "config/JsonDocument.h"

namespace QuillmarBasebandSDK {

// The checksum of `document` as eight lower-case hexadecimal digits.
std::string DocumentChecksum(const JsonDocument& document);

}  // namespace QuillmarBasebandSDK
