// The base of the watermark marker events: a control event that carries a watermark's payload
// text and the quality with which it was read.
//
// Properties, all set by the constructor: "Channel" (uint64, 0), "Payload" (string),
// "DetectionQuality" (double), "TimecodeMSB" and "TimecodeLSB" (uint64, 0).
//
// Not thread-safe, like every property store. Copies copy the store.
#pragma once

#include <string>

#include "framework/ControlEvent.h"
#include "framework/platform/Export.h"

namespace Framework {

class QUILLMAR_API MarkerWMEvent : public ControlEvent {
 public:
  static constexpr char kChannel[] = "Channel";
  static constexpr char kPayload[] = "Payload";
  static constexpr char kDetectionQuality[] = "DetectionQuality";
  static constexpr char kTimecodeMSB[] = "TimecodeMSB";
  static constexpr char kTimecodeLSB[] = "TimecodeLSB";

  // A marker for `payload` read with `detectionQuality`, on channel 0 with no time code.
  MarkerWMEvent(const std::string& payload, double detectionQuality);
  ~MarkerWMEvent() override;
  MarkerWMEvent(const MarkerWMEvent&) = default;
  MarkerWMEvent& operator=(const MarkerWMEvent&) = default;
};

}  // namespace Framework
