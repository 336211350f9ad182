#include "VWMDetectionEvent.h"

#include "events/WatermarkTime.h"

namespace Framework {

VWMDetectionEvent::VWMDetectionEvent(const LSNDetection& detection)
    : MarkerWMEvent(detection.payload, detection.quality) {
  SetResults(&detection, nullptr, nullptr, nullptr);
  SetDetectionStatus(detection.isFullDetection ? kStatusFull : kStatusNone);
  if (!detection.isFound) SetDetectionStatus(kStatusNotFound);
  SetCidName(detection.cidName);
  SetWatermarkBits(kBitsPerWatermark);
  SetWatermarkSeconds(kSecondsPerWatermarkTick);
  SetDetectionQuality(detection.quality);
  SetTimestamp(WatermarkTime::FromSeconds(detection.timestamp));
  SetMediaDetectionTimestamp(detection.mediaDetectionTimestamp);
}

VWMDetectionEvent::VWMDetectionEvent(const ScaleFoundEvent& scale) : MarkerWMEvent("", 0.0) {
  SetResults(nullptr, &scale, nullptr, nullptr);
}

VWMDetectionEvent::VWMDetectionEvent(const MirroredDetectionEvent& mirrored)
    : MarkerWMEvent("", 0.0) {
  SetResults(nullptr, nullptr, &mirrored, nullptr);
}

VWMDetectionEvent::VWMDetectionEvent(const CBasebandWMDetection& presence)
    : MarkerWMEvent("", 0.0) {
  SetResults(nullptr, nullptr, nullptr, &presence);
}

VWMDetectionEvent::~VWMDetectionEvent() = default;

void VWMDetectionEvent::SetResults(const LSNDetection* detection, const FrameScaling::Scale* scale,
                                   const MirroredDetectionEvent* mirrored,
                                   const CBasebandWMDetection* presence) {
  SetDetection(detection);
  SetScale(scale);
  SetMirrored(mirrored);
  SetPresence(presence);
}

const LSNDetection* VWMDetectionEvent::GetDetection() const {
  return GetProperty<const LSNDetection*>(kDetection);
}

const FrameScaling::Scale* VWMDetectionEvent::GetScale() const {
  return GetProperty<const FrameScaling::Scale*>(kScale);
}

const MirroredDetectionEvent* VWMDetectionEvent::GetMirrored() const {
  return GetProperty<const MirroredDetectionEvent*>(kMirrored);
}

const CBasebandWMDetection* VWMDetectionEvent::GetPresence() const {
  return GetProperty<const CBasebandWMDetection*>(kPresence);
}

const std::string VWMDetectionEvent::GetDetectionStatus() const {
  return GetProperty<std::string>(kDetectionStatus);
}

std::int32_t VWMDetectionEvent::GetWatermarkBits() const {
  return GetProperty<std::int32_t>(kWatermarkBits);
}

std::int32_t VWMDetectionEvent::GetWatermarkSeconds() const {
  return GetProperty<std::int32_t>(kWatermarkSeconds);
}

std::string VWMDetectionEvent::GetCidName() const { return GetProperty<std::string>(kCidName); }

double VWMDetectionEvent::GetDetectionQuality() const {
  return GetProperty<double>(kDetectionQuality);
}

const boost::posix_time::ptime VWMDetectionEvent::GetTimestamp() const {
  return GetProperty<boost::posix_time::ptime>(kTimestamp);
}

double VWMDetectionEvent::GetMediaDetectionTimestamp() const {
  return GetProperty<double>(kMediaDetectionTimestamp);
}

void VWMDetectionEvent::SetDetection(const LSNDetection* detection) {
  SetProperty<const LSNDetection*>(kDetection, detection);
}

void VWMDetectionEvent::SetScale(const FrameScaling::Scale* scale) {
  SetProperty<const FrameScaling::Scale*>(kScale, scale);
}

void VWMDetectionEvent::SetMirrored(const MirroredDetectionEvent* mirrored) {
  SetProperty<const MirroredDetectionEvent*>(kMirrored, mirrored);
}

void VWMDetectionEvent::SetPresence(const CBasebandWMDetection* presence) {
  SetProperty<const CBasebandWMDetection*>(kPresence, presence);
}

void VWMDetectionEvent::SetDetectionStatus(const std::string& status) {
  SetProperty<std::string>(kDetectionStatus, status);
}

void VWMDetectionEvent::SetWatermarkBits(std::int32_t bits) {
  SetProperty<std::int32_t>(kWatermarkBits, bits);
}

void VWMDetectionEvent::SetWatermarkSeconds(std::int32_t seconds) {
  SetProperty<std::int32_t>(kWatermarkSeconds, seconds);
}

void VWMDetectionEvent::SetCidName(const std::string& cidName) {
  SetProperty<std::string>(kCidName, cidName);
}

void VWMDetectionEvent::SetDetectionQuality(double quality) {
  SetProperty<double>(kDetectionQuality, quality);
}

void VWMDetectionEvent::SetTimestamp(const boost::posix_time::ptime& timestamp) {
  SetProperty<boost::posix_time::ptime>(kTimestamp, timestamp);
}

void VWMDetectionEvent::SetMediaDetectionTimestamp(double seconds) {
  SetProperty<double>(kMediaDetectionTimestamp, seconds);
}

}  // namespace Framework
