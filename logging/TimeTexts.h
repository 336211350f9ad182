// The time texts of log lines, from a broken-down (local) time.
#pragma once

#include <string>

#include "framework/platform/SystemTime.h"

namespace QuillmarBasebandSDK {

class TimeTexts {
 public:
  // "YYYY-MM-DD"
  static std::string Date(const SYSTEMTIME& time);
  // "HH:MM:SS"
  static std::string Time(const SYSTEMTIME& time);
  // "HH:MM:SS.mmm"
  static std::string TimeWithMilliseconds(const SYSTEMTIME& time);
  // "HH:MM:SS:mmm", the log-line form
  static std::string LogLineTime(const SYSTEMTIME& time);
  // "YYYY-MM-DD HH:MM:SS"
  static std::string DateTime(const SYSTEMTIME& time);
  // "YYYY-MM-DD HH:MM:SS:mmm"
  static std::string LogLineDateTime(const SYSTEMTIME& time);
};

}  // namespace QuillmarBasebandSDK
