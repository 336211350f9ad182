#include "TimeTexts.h"

#include <boost/format.hpp>

namespace QuillmarBasebandSDK {
namespace {

std::string DateAnd(const SYSTEMTIME& time, const std::string& timeText) {
  return (boost::format("%04d-%02d-%02d %s") % time.wYear % time.wMonth % time.wDay % timeText)
      .str();
}

}  // namespace

std::string TimeTexts::Date(const SYSTEMTIME& time) {
  return (boost::format("%04d-%02d-%02d") % time.wYear % time.wMonth % time.wDay).str();
}

std::string TimeTexts::Time(const SYSTEMTIME& time) {
  return (boost::format("%02d:%02d:%02d") % time.wHour % time.wMinute % time.wSecond).str();
}

std::string TimeTexts::TimeWithMilliseconds(const SYSTEMTIME& time) {
  return (boost::format("%s.%03d") % Time(time) % time.wMilliseconds).str();
}

std::string TimeTexts::LogLineTime(const SYSTEMTIME& time) {
  return (boost::format("%02d:%02d:%02d:%03d") % time.wHour % time.wMinute % time.wSecond %
          time.wMilliseconds)
      .str();
}

std::string TimeTexts::DateTime(const SYSTEMTIME& time) { return DateAnd(time, Time(time)); }

std::string TimeTexts::LogLineDateTime(const SYSTEMTIME& time) {
  return DateAnd(time, LogLineTime(time));
}

}  // namespace QuillmarBasebandSDK
