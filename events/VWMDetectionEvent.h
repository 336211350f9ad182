// What the detector raises when it has found (or lost) a watermark: a marker event that points at
// one of the detector's own result objects and describes a decoded watermark.
//
// Exactly one of "Detection", "Scale", "Mirrored" and "Presence" is non-null; it tells which kind
// of result the event carries. The event does not own the result: the detector keeps it alive
// while the event is delivered, and a receiver must not keep the pointer beyond its handler.
//
// Properties besides those of MarkerWMEvent: the four result pointers, "DetectionStatus"
// (string: "Full", "None" or "Not found"), "WatermarkBits" and "WatermarkSeconds" (int32),
// "CidName" (string), "Timestamp" (ptime) and "MediaDetectionTimestamp" (double). Only the
// constructor from a decoded watermark sets the last six; the others leave those names absent,
// and their getters then give what the property store gives for an absent name.
//
// Not thread-safe, like every property store. Copies copy the store (not the results).
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>
#include <string>

#include "events/MarkerWMEvent.h"
#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/FrameScaling.h"
#include "detector-api/LSNDetection.h"
#include "detector-api/MirroredDetectionEvent.h"
#include "detector-api/ScaleFoundEvent.h"

namespace Framework {

class QUILLMAR_API VWMDetectionEvent : public MarkerWMEvent {
 public:
  static constexpr char kDetection[] = "Detection";
  static constexpr char kScale[] = "Scale";
  static constexpr char kMirrored[] = "Mirrored";
  static constexpr char kPresence[] = "Presence";
  static constexpr char kDetectionStatus[] = "DetectionStatus";
  static constexpr char kWatermarkBits[] = "WatermarkBits";
  static constexpr char kWatermarkSeconds[] = "WatermarkSeconds";
  static constexpr char kCidName[] = "CidName";
  static constexpr char kTimestamp[] = "Timestamp";
  static constexpr char kMediaDetectionTimestamp[] = "MediaDetectionTimestamp";

  // Values of "DetectionStatus".
  static constexpr char kStatusFull[] = "Full";
  static constexpr char kStatusNone[] = "None";
  static constexpr char kStatusNotFound[] = "Not found";

  // The watermark carries 48 bits and resolves time to one second.
  static constexpr std::int32_t kBitsPerWatermark = 48;
  static constexpr std::int32_t kSecondsPerWatermarkTick = 1;

  // A decoded watermark: payload, quality, status ("Not found" whenever the detection's found
  // flag is clear), CID name, the fixed bits and seconds, time and media time of `detection`.
  explicit VWMDetectionEvent(const LSNDetection& detection);
  // A scaled picture: "Scale" points at `scale`; empty payload, quality 0.
  explicit VWMDetectionEvent(const ScaleFoundEvent& scale);
  // A mirrored picture: "Mirrored" points at `mirrored`; empty payload, quality 0.
  explicit VWMDetectionEvent(const MirroredDetectionEvent& mirrored);
  // Presence of a watermark: "Presence" points at `presence`; empty payload, quality 0.
  explicit VWMDetectionEvent(const CBasebandWMDetection& presence);
  ~VWMDetectionEvent() override;
  VWMDetectionEvent(const VWMDetectionEvent&) = default;
  VWMDetectionEvent& operator=(const VWMDetectionEvent&) = default;

  const LSNDetection* GetDetection() const;
  const FrameScaling::Scale* GetScale() const;
  const MirroredDetectionEvent* GetMirrored() const;
  const CBasebandWMDetection* GetPresence() const;
  const std::string GetDetectionStatus() const;
  std::int32_t GetWatermarkBits() const;
  std::int32_t GetWatermarkSeconds() const;
  std::string GetCidName() const;
  double GetDetectionQuality() const;
  const boost::posix_time::ptime GetTimestamp() const;
  double GetMediaDetectionTimestamp() const;

 protected:
  // Each setter replaces the value under its name, then calls OnPropertySet with the name.
  void SetDetection(const LSNDetection* detection);
  void SetScale(const FrameScaling::Scale* scale);
  void SetMirrored(const MirroredDetectionEvent* mirrored);
  void SetPresence(const CBasebandWMDetection* presence);
  void SetDetectionStatus(const std::string& status);
  void SetWatermarkBits(std::int32_t bits);
  void SetWatermarkSeconds(std::int32_t seconds);
  void SetCidName(const std::string& cidName);
  void SetDetectionQuality(double quality);
  void SetTimestamp(const boost::posix_time::ptime& timestamp);
  void SetMediaDetectionTimestamp(double seconds);

 private:
  // Sets the four result pointers, in the order detection, scale, mirrored, presence.
  void SetResults(const LSNDetection* detection, const FrameScaling::Scale* scale,
                  const MirroredDetectionEvent* mirrored, const CBasebandWMDetection* presence);
};

}  // namespace Framework
