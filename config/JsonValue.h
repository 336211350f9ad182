// One JSON value as the configuration reader keeps it: an ordered tree of our own.
//
// Objects keep every member in document order, duplicate names included, because the document
// checksum covers members in order and the member finder takes the first of a name. Integers and
// reals are told apart, as the file's authors wrote them. A plain value type: not thread-safe for
// concurrent writes, safe to read from many threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace QuillmarBasebandSDK {

enum class JsonType { Object, Array, String, Boolean, Integer, Real, Null };

// The name messages print for `type`: "object", "array", "string", "boolean", "integer", "real",
// "null", or "???" for a value outside the enumeration.
const char* JsonTypeName(JsonType type);

struct JsonMember;

struct JsonValue {
  JsonType type = JsonType::Null;
  bool boolean = false;
  bool isWideUnsigned = false;
  std::int64_t integer = 0;        // Integer: the value, unless wideUnsigned
  std::uint64_t wideUnsigned = 0;  // Integer above the signed 64-bit range: the value
  double real = 0.0;
  std::string string;
  std::vector<JsonMember> members;  // Object: in document order
  std::vector<JsonValue> elements;  // Array: in document order

  // The integer's decimal digits, as the file wrote the number's value.
  std::string IntegerText() const;
  // The integer as a signed 64-bit value (one above that range wraps, as a cast does).
  std::int64_t AsInteger() const;
};

struct JsonMember {
  std::string name;
  JsonValue value;
};

}  // namespace QuillmarBasebandSDK
