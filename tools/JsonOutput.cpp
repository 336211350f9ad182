#include "tools/JsonOutput.h"

#include <boost/json.hpp>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace Quillmar::Tools {
namespace {

void AppendValue(const boost::json::value& value, std::string& out);

// Bytes in a well-formed UTF-8 sequence that starts with `lead`, or 0 when `lead` starts none.
std::size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

bool IsWellFormed(const unsigned char* bytes, std::size_t length, std::size_t available) {
  if (length == 0 || length > available) return false;
  for (std::size_t i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return false;
  }
  // No overlong three- and four-byte forms, no surrogates, nothing beyond U+10FFFF.
  if (length == 3 && bytes[0] == 0xE0 && bytes[1] < 0xA0) return false;
  if (length == 3 && bytes[0] == 0xED && bytes[1] >= 0xA0) return false;
  if (length == 4 && bytes[0] == 0xF0 && bytes[1] < 0x90) return false;
  if (length == 4 && bytes[0] == 0xF4 && bytes[1] >= 0x90) return false;
  return true;
}

void AppendCodePoint(unsigned code, std::string& out) {
  char escaped[8];
  std::snprintf(escaped, sizeof escaped, "\\u%04x", code);
  out += escaped;
}

void AppendString(boost::json::string_view text, std::string& out) {
  out += '"';
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t i = 0; i < text.size();) {
    const unsigned char byte = bytes[i];
    const std::size_t length = SequenceLength(byte);
    if (length > 1 && IsWellFormed(bytes + i, length, text.size() - i)) {
      out.append(text.data() + i, length);
      i += length;
      continue;
    }
    switch (byte) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (byte < 0x20 || byte >= 0x7F) {
          AppendCodePoint(byte, out);
        } else {
          out += static_cast<char>(byte);
        }
    }
    ++i;
  }
  out += '"';
}

void AppendDouble(double number, std::string& out) {
  if (!std::isfinite(number)) {
    out += "null";
    return;
  }
  char digits[400];
  const auto result =
      std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed);
  std::string text(digits, result.ptr);
  if (text.find('.') == std::string::npos) text += ".0";
  out += text;
}

void AppendValue(const boost::json::value& value, std::string& out) {
  switch (value.kind()) {
    case boost::json::kind::null:
      out += "null";
      break;
    case boost::json::kind::bool_:
      out += value.get_bool() ? "true" : "false";
      break;
    case boost::json::kind::int64:
      out += std::to_string(value.get_int64());
      break;
    case boost::json::kind::uint64:
      out += std::to_string(value.get_uint64());
      break;
    case boost::json::kind::double_:
      AppendDouble(value.get_double(), out);
      break;
    case boost::json::kind::string:
      AppendString(value.get_string(), out);
      break;
    case boost::json::kind::array: {
      out += '[';
      const char* separator = "";
      for (const auto& element : value.get_array()) {
        out += separator;
        AppendValue(element, out);
        separator = ",";
      }
      out += ']';
      break;
    }
    case boost::json::kind::object: {
      out += '{';
      const char* separator = "";
      for (const auto& member : value.get_object()) {
        out += separator;
        AppendString(member.key(), out);
        out += ':';
        AppendValue(member.value(), out);
        separator = ",";
      }
      out += '}';
      break;
    }
  }
}

}  // namespace

bool IsUtf8(std::string_view text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(bytes[i]);
    if (length == 0 || (length > 1 && !IsWellFormed(bytes + i, length, text.size() - i))) {
      return false;
    }
    i += length;
  }
  return true;
}

std::string JsonText(const boost::json::value& value) {
  std::string out;
  AppendValue(value, out);
  return out;
}

void PrintJson(std::ostream& stream, const boost::json::value& value) {
  stream << JsonText(value) << std::endl;
}

}  // namespace Quillmar::Tools
