#include "config/MemberFinder.h"

namespace QuillmarBasebandSDK {

const JsonValue* MemberFinder::FindAny(const JsonValue& object, std::string_view key) {
  for (const JsonMember& member : object.members) {
    if (member.name == key) return &member.value;
  }
  return nullptr;
}

const JsonValue* MemberFinder::Find(const JsonValue& object, std::string_view key, JsonType type,
                                    const MemberContext& context) const {
  const JsonValue* value = FindAny(object, key);
  if (value == nullptr) {
    Fail(std::string(key) + " not found in " + context.Text());
    return nullptr;
  }
  if (value->type != type) {
    Fail(std::string(key) + " in " + context.Text() + " should be of type " + JsonTypeName(type));
    return nullptr;
  }
  return value;
}

bool MemberFinder::FindString(const JsonValue& object, std::string_view key,
                              const MemberContext& context, std::string& value) const {
  const JsonValue* found = Find(object, key, JsonType::String, context);
  if (found == nullptr) return false;
  value = found->string;
  return true;
}

bool MemberFinder::Fail(const std::string& message) const {
  errorText_ = source_ + " - " + message;
  return false;
}

}  // namespace QuillmarBasebandSDK
