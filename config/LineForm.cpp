#include "config/LineForm.h"

#include <algorithm>
#include <charconv>

#include "config/LineFormCrc.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr char kCcfExtension[] = ".ccf";
constexpr char kCfgExtension[] = ".cfg";

constexpr std::string_view kCrcPrefix = "crc=";
constexpr std::size_t kRecordTextCapacity = kCcfRecordSize - 1;
constexpr std::size_t kEndMarkFirst = 5;
constexpr std::size_t kEndMarkSecond = 6;
constexpr unsigned char kEndMark = 0xFF;
constexpr int kBitsPerByte = 8;
constexpr std::size_t kStoredCrcBytes = 4;
constexpr char kBlanks[] = " \t";

bool EndsWith(const std::string& path, std::string_view ending) {
  return path.size() >= ending.size() &&
         path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  const std::size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

bool ParseUnsigned(std::string_view text, std::uint32_t& value) {
  text = Trimmed(text);
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

// Calls `line` for each line of `text` without its line end; stops when `line` returns false.
template <typename LineFunction>
void ForEachLine(std::string_view text, LineFunction line) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view current = text.substr(0, end);
    if (!current.empty() && current.back() == '\r') current.remove_suffix(1);
    if (!line(current)) return;
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
  }
}

LineFormFile DecodeText(std::string_view bytes) {
  LineFormFile file;
  LineFormCrc crc;
  ForEachLine(bytes, [&](std::string_view line) {
    if (line.substr(0, kCrcPrefix.size()) == kCrcPrefix) {
      file.hasStoredCrc = ParseUnsigned(line.substr(kCrcPrefix.size()), file.storedCrc);
      return false;
    }
    crc.Update(line);
    file.text.append(line.data(), line.size());
    file.text += '\n';
    return true;
  });
  file.computedCrc = crc.Value();
  return file;
}

bool IsEndRecord(std::string_view record) {
  return static_cast<unsigned char>(record[kEndMarkFirst]) == kEndMark &&
         static_cast<unsigned char>(record[kEndMarkSecond]) == kEndMark;
}

std::uint32_t StoredValue(std::string_view record) {
  std::uint32_t value = 0;
  for (std::size_t i = kStoredCrcBytes; i-- > 0;) {
    value = (value << kBitsPerByte) | static_cast<unsigned char>(record[i]);
  }
  return value;
}

LineFormFile DecodeBinary(std::string_view bytes) {
  LineFormFile file;
  LineFormCrc crc;
  for (std::size_t offset = 0; offset + kCcfRecordSize <= bytes.size(); offset += kCcfRecordSize) {
    const std::string_view record = bytes.substr(offset, kCcfRecordSize);
    if (IsEndRecord(record)) {
      file.hasStoredCrc = true;
      file.storedCrc = StoredValue(record);
      break;
    }
    crc.Update(record);
    const std::size_t count =
        std::min<std::size_t>(static_cast<unsigned char>(record[0]), kRecordTextCapacity);
    file.text.append(record.substr(1, count));
  }
  file.computedCrc = crc.Value();
  return file;
}

bool IsSectionLine(std::string_view line) {
  return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}

bool IsComment(std::string_view line) {
  return !line.empty() && (line.front() == ';' || line.front() == '#');
}

}  // namespace

const std::string* LineFormSection::Find(const std::string& key) const {
  for (const auto& entry : entries) {
    if (entry.first == key) return &entry.second;
  }
  return nullptr;
}

bool IsCcfName(const std::string& path) { return EndsWith(path, kCcfExtension); }

bool IsLineFormName(const std::string& path) {
  return EndsWith(path, kCfgExtension) || EndsWith(path, kCcfExtension);
}

LineFormFile DecodeLineForm(std::string_view bytes, bool binary) {
  return binary ? DecodeBinary(bytes) : DecodeText(bytes);
}

bool FindLineFormSection(const std::string& text, const std::string& name,
                         LineFormSection& section) {
  bool found = false;
  bool inSection = false;
  ForEachLine(text, [&](std::string_view rawLine) {
    const std::string_view line = Trimmed(rawLine);
    if (IsSectionLine(line)) {
      if (found) return false;
      inSection = line.substr(1, line.size() - 2) == name;
      found = inSection;
      return true;
    }
    const std::size_t equals = line.find('=');
    if (inSection && !IsComment(line) && equals != std::string_view::npos) {
      section.entries.emplace_back(std::string(Trimmed(line.substr(0, equals))),
                                   std::string(Trimmed(line.substr(equals + 1))));
    }
    return true;
  });
  return found;
}

std::string EncodeTextForm(const std::string& text) {
  const LineFormFile file = DecodeText(text);
  return file.text + std::string(kCrcPrefix) + std::to_string(file.computedCrc) + "\n";
}

std::string EncodeCcf(const std::string& text) {
  std::string bytes;
  LineFormCrc crc;
  for (std::size_t offset = 0; offset < text.size(); offset += kRecordTextCapacity) {
    std::string record(kCcfRecordSize, '\0');
    const std::string_view part = std::string_view(text).substr(offset, kRecordTextCapacity);
    record[0] = static_cast<char>(part.size());
    record.replace(1, part.size(), part);
    crc.Update(record);
    bytes += record;
  }
  std::string end(kCcfRecordSize, '\0');
  std::uint32_t value = crc.Value();
  for (std::size_t i = 0; i < kStoredCrcBytes; ++i, value >>= kBitsPerByte) {
    end[i] = static_cast<char>(value & 0xFF);
  }
  end[kEndMarkFirst] = static_cast<char>(kEndMark);
  end[kEndMarkSecond] = static_cast<char>(kEndMark);
  return bytes + end;
}

}  // namespace QuillmarBasebandSDK
