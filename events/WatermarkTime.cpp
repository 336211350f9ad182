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

std::string WatermarkTime::Digits(std::int64_t timestamp) {
  constexpr std::size_t kSeparatorPosition = 8;
  std::string text = boost::posix_time::to_iso_string(FromSeconds(timestamp));
  if (text.size() > kSeparatorPosition) text.erase(kSeparatorPosition, 1);
  return text;
}

}  // namespace Framework
