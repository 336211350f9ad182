#include "config/DocumentChecksum.h"

#include <boost/crc.hpp>
#include <iomanip>
#include <locale>
#include <sstream>

namespace QuillmarBasebandSDK {
namespace {

constexpr char kChecksumName[] = "Checksum";
constexpr char kSharedDatabaseName[] = "SharedDatabase";
constexpr int kChecksumDigits = 8;

void AppendValue(const JsonValue& value, std::ostream& text);

void AppendQuoted(const std::string& value, std::ostream& text) {
  text << '"' << value << '"';
}

std::string DoubledBackslashes(const std::string& value) {
  std::string doubled;
  doubled.reserve(value.size());
  for (const char c : value) {
    doubled += c;
    if (c == '\\') doubled += '\\';
  }
  return doubled;
}

void AppendMember(const JsonMember& member, std::ostream& text) {
  if (member.name == kChecksumName || member.value.type == JsonType::Null) return;
  text << member.name;
  if (member.name == kSharedDatabaseName && member.value.type == JsonType::String) {
    AppendQuoted(DoubledBackslashes(member.value.string), text);
    return;
  }
  AppendValue(member.value, text);
}

// An array element or a member's value, without a name.
void AppendValue(const JsonValue& value, std::ostream& text) {
  switch (value.type) {
    case JsonType::Object:
      for (const JsonMember& member : value.members) AppendMember(member, text);
      break;
    case JsonType::Array:
      for (const JsonValue& element : value.elements) AppendValue(element, text);
      break;
    case JsonType::String: AppendQuoted(value.string, text); break;
    case JsonType::Boolean: text << (value.boolean ? "true" : "false"); break;
    case JsonType::Integer: text << value.IntegerText(); break;
    case JsonType::Real: text << value.real; break;
    case JsonType::Null: break;
  }
}

}  // namespace

std::string CanonicalText(const JsonValue& root) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  AppendValue(root, text);
  return text.str();
}

std::string DocumentChecksum(const JsonValue& root) {
  const std::string text = CanonicalText(root);
  boost::crc_32_type crc;
  crc.process_bytes(text.data(), text.size());
  std::ostringstream stream;
  stream << std::hex << std::nouppercase << std::setw(kChecksumDigits) << std::setfill('0')
         << crc.checksum();
  return stream.str();
}

}  // namespace QuillmarBasebandSDK
