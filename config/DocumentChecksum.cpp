#include "config/DocumentChecksum.h"

#include <zlib.h>

#include <cstdio>

namespace QuillmarBasebandSDK {

std::string DocumentChecksum(const JsonDocument& document) {
  const std::string& text = document.canonicalText;
  // zlib's CRC-32 is this one (reflected 0xEDB88320, start and end complemented), and reads
  // several bytes a step.
  const uLong crc = crc32(crc32(0L, Z_NULL, 0), reinterpret_cast<const Bytef*>(text.data()),
                          static_cast<uInt>(text.size()));
  char hex[9];
  std::snprintf(hex, sizeof hex, "%08lx", static_cast<unsigned long>(crc));
  return hex;
}

}  // namespace QuillmarBasebandSDK
