#include "config/JsonValue.h"

namespace QuillmarBasebandSDK {

const char* JsonTypeName(JsonType type) {
  switch (type) {
    case JsonType::Object: return "object";
    case JsonType::Array: return "array";
    case JsonType::String: return "string";
    case JsonType::Boolean: return "boolean";
    case JsonType::Integer: return "integer";
    case JsonType::Real: return "real";
    case JsonType::Null: return "null";
  }
  return "???";
}

std::string JsonValue::IntegerText() const {
  return isWideUnsigned ? std::to_string(wideUnsigned) : std::to_string(integer);
}

std::int64_t JsonValue::AsInteger() const {
  return isWideUnsigned ? static_cast<std::int64_t>(wideUnsigned) : integer;
}

}  // namespace QuillmarBasebandSDK
