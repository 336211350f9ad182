#include "config/DocumentChecksum.h"

#include <boost/crc.hpp>
#include <charconv>
#include <cstdio>

namespace QuillmarBasebandSDK {
namespace {

constexpr char kChecksumName[] = "Checksum";
constexpr char kSharedDatabaseName[] = "SharedDatabase";
// As a default C++ stream writes a real: "%g", six significant digits, in the C locale.
constexpr int kRealDigits = 6;

void AppendValue(const JsonValue& value, std::string& text);

void AppendQuoted(const std::string& value, bool doubleBackslashes, std::string& text) {
  text += '"';
  if (!doubleBackslashes) {
    text += value;
  } else {
    for (const char c : value) {
      text += c;
      if (c == '\\') text += '\\';
    }
  }
  text += '"';
}

void AppendReal(double value, std::string& text) {
  char digits[32];
  const auto written =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, kRealDigits);
  text.append(digits, written.ptr);
}

void AppendMember(const JsonMember& member, std::string& text) {
  if (member.name == kChecksumName || member.value.type == JsonType::Null) return;
  text += member.name;
  if (member.value.type == JsonType::String) {
    AppendQuoted(member.value.string, member.name == kSharedDatabaseName, text);
    return;
  }
  AppendValue(member.value, text);
}

// An array element or a member's value, without a name.
void AppendValue(const JsonValue& value, std::string& text) {
  switch (value.type) {
    case JsonType::Object:
      for (const JsonMember& member : value.members) AppendMember(member, text);
      break;
    case JsonType::Array:
      for (const JsonValue& element : value.elements) AppendValue(element, text);
      break;
    case JsonType::String:
      AppendQuoted(value.string, false, text);
      break;
    case JsonType::Boolean:
      text += value.boolean ? "true" : "false";
      break;
    case JsonType::Integer:
      text += value.IntegerText();
      break;
    case JsonType::Real:
      AppendReal(value.real, text);
      break;
    case JsonType::Null: break;
  }
}

}  // namespace

std::string CanonicalText(const JsonValue& root) {
  std::string text;
  AppendValue(root, text);
  return text;
}

std::string DocumentChecksum(const JsonValue& root) {
  const std::string text = CanonicalText(root);
  boost::crc_32_type crc;
  crc.process_bytes(text.data(), text.size());
  char hex[9];
  std::snprintf(hex, sizeof hex, "%08x", static_cast<unsigned>(crc.checksum()));
  return hex;
}

}  // namespace QuillmarBasebandSDK
