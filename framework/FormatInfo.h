// The format of a stream, as far as every kind of stream has one: an identifier and a text form.
// A default-constructed FormatInfo has the identifier -1: no format has been set.
#pragma once

#include <string>

#include "platform/Export.h"

namespace Framework {

class FRAMEWORK_API FormatInfo {
 public:
  // Identifier of "no format set".
  static constexpr int kNoFormat = -1;

  FormatInfo() = default;
  virtual ~FormatInfo();
  FormatInfo(const FormatInfo&) = default;
  FormatInfo& operator=(const FormatInfo&) = default;

  // The format identifier; kNoFormat when none is set.
  int GetVideoFormat() const { return videoFormat_; }

  // A text for people, such as "1920x1080 yuv420p 25 fps", or "no format".
  virtual std::string ToString() const;

 protected:
  explicit FormatInfo(int videoFormat) : videoFormat_(videoFormat) {}

 private:
  int videoFormat_ = kNoFormat;
};

}  // namespace Framework
