#include "WatermarkTime.h"

#include <boost/date_time/posix_time/posix_time.hpp>

namespace Framework {

boost::posix_time::ptime WatermarkTime::Epoch() {
  static const boost::posix_time::ptime epoch = boost::posix_time::time_from_string(kEpochText);
  return epoch;
}

boost::posix_time::ptime WatermarkTime::FromOffset(const boost::posix_time::time_duration& offset) {
  return Epoch() + offset;
}

boost::posix_time::ptime WatermarkTime::FromSeconds(std::int64_t timestamp) {
  return FromOffset(boost::posix_time::seconds(static_cast<std::int32_t>(timestamp)));
}

std::int64_t WatermarkTime::SecondsOf(const SYSTEMTIME& time) {
  boost::gregorian::date day;
  try {
    day = boost::gregorian::date(time.wYear, time.wMonth, time.wDay);
  } catch (const std::out_of_range&) {
    return 0;
  }
  const boost::posix_time::ptime moment(
      day, boost::posix_time::hours(time.wHour) + boost::posix_time::minutes(time.wMinute) +
               boost::posix_time::seconds(time.wSecond) +
               boost::posix_time::milliseconds(time.wMilliseconds));
  const boost::posix_time::time_duration since = moment - Epoch();
  const std::int64_t seconds = since.total_seconds();
  return since.is_negative() && since.fractional_seconds() != 0 ? seconds - 1 : seconds;
}

std::string WatermarkTime::Digits(std::int64_t timestamp) {
  constexpr std::size_t kSeparatorPosition = 8;
  std::string text = boost::posix_time::to_iso_string(FromSeconds(timestamp));
  if (text.size() > kSeparatorPosition) text.erase(kSeparatorPosition, 1);
  return text;
}

std::string WatermarkTime::IsoText(std::int64_t timestamp) {
  return boost::posix_time::to_iso_extended_string(FromSeconds(timestamp)) + "Z";
}

}  // namespace Framework
