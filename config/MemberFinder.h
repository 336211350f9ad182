// Looks up members of a configuration object by name and reports failures as the
// configuration's messages: "{source} - {key} not found in {context}" and
// "{source} - {key} in {context} should be of type {type}".
//
// Every failure replaces the error text it was given (the last error wins). Not thread-safe:
// one finder per load.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "config/JsonValue.h"
#include "config/MemberContext.h"

namespace QuillmarBasebandSDK {

class MemberFinder {
 public:
  // Reports failures of files named `source` into `errorText`.
  MemberFinder(std::string source, std::string& errorText)
      : source_(std::move(source)), errorText_(errorText) {}

  // The first member of `object` named exactly `key`, when it has type `type`; otherwise null,
  // with the not-found or wrong-type message as the error text.
  const JsonValue* Find(const JsonValue& object, std::string_view key, JsonType type,
                        const MemberContext& context) const;

  // The first member named `key` whatever its type; null (and no message) when there is none.
  static const JsonValue* FindAny(const JsonValue& object, std::string_view key);

  // Copies a string member into `value`; false, with the finder's message, when it cannot.
  bool FindString(const JsonValue& object, std::string_view key, const MemberContext& context,
                  std::string& value) const;

  // Sets the error text to "{source} - {message}"; returns false.
  bool Fail(const std::string& message) const;

  const std::string& Source() const { return source_; }

 private:
  std::string source_;
  std::string& errorText_;
};

}  // namespace QuillmarBasebandSDK
