// Where the configuration reader looks for a member, as its messages name the place: a fixed text
// ("ContentProcessor"), or one put together from parts ("VWM of ContentProcessingParameters with
// name " + a program's name) only when a message needs it, since a load looks up thousands of
// members and almost never fails. Holds views: the parts must outlive it.
#pragma once

#include <string>
#include <string_view>

namespace QuillmarBasebandSDK {

class MemberContext {
 public:
  MemberContext(const char* text) : first_(text) {}         // NOLINT: a context is a text
  MemberContext(const std::string& text) : first_(text) {}  // NOLINT
  MemberContext(std::string_view first, std::string_view second, std::string_view third = {})
      : first_(first), second_(second), third_(third) {}

  // The place as the message names it.
  std::string Text() const { return std::string(first_).append(second_).append(third_); }

 private:
  std::string_view first_;
  std::string_view second_;
  std::string_view third_;
};

}  // namespace QuillmarBasebandSDK
