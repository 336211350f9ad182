// The older, line-oriented configuration form: a text file ending in a "crc=" line, or the same
// text in 24-byte binary records in a file whose name ends in ".ccf" (layout in README.md).
//
// Text form: lines until the first one that begins with "crc="; every character of those lines
// (line ends excluded, a carriage return before a line feed counts as line end) is fed to the
// LineFormCrc, and the decimal number after "crc=" is the stored value.
//
// Binary form: data records carry up to 23 bytes of the text each (byte 0: count, bytes 1..23:
// text); all 24 bytes of every data record are fed to the CRC. The first record whose bytes at
// offsets 5 and 6 are both 0xFF ends the data; it is not fed, and its bytes 0..3 hold the stored
// value, little-endian.
//
// The text holds sections: a line "[NAME]" opens section NAME; "Key=Value" lines are its entries;
// lines that begin with ';' or '#' are comments. Stateless functions; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace QuillmarBasebandSDK {

constexpr std::size_t kCcfRecordSize = 24;

struct LineFormFile {
  std::string text;  // the protected text, lines ending in "\n"
  bool hasStoredCrc = false;
  std::uint32_t storedCrc = 0;
  std::uint32_t computedCrc = 0;

  bool CrcMatches() const { return hasStoredCrc && storedCrc == computedCrc; }
};

// One section's "Key=Value" entries, in file order, keys and values trimmed of blanks.
struct LineFormSection {
  std::vector<std::pair<std::string, std::string>> entries;

  // The first entry's value for `key`; null when there is none.
  const std::string* Find(const std::string& key) const;
};

// True when `path` ends in ".ccf".
bool IsCcfName(const std::string& path);

// True when `path` ends in ".cfg" or ".ccf", the names line-oriented files are given.
bool IsLineFormName(const std::string& path);

// Reads the text and the CRCs of `bytes`, binary records when `binary`, text lines otherwise.
LineFormFile DecodeLineForm(std::string_view bytes, bool binary);

// Finds the section `name` in `text`; false when there is none.
bool FindLineFormSection(const std::string& text, const std::string& name,
                         LineFormSection& section);

// `text` with a "crc=" line appended that makes it valid (text form).
std::string EncodeTextForm(const std::string& text);

// `text` in binary records with its end record (binary form).
std::string EncodeCcf(const std::string& text);

}  // namespace QuillmarBasebandSDK
