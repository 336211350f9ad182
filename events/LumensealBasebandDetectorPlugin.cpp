#include "LumensealBasebandDetectorPlugin.h"

namespace Framework {

using DetectorProperties = LumensealBasebandDetectorPlugin::ConstructionProperties;

DetectorProperties::~ConstructionProperties() = default;

std::string DetectorProperties::GetMacAddress() const {
  return GetProperty<std::string>(kMacAddress);
}

void DetectorProperties::SetMacAddress(const std::string& address) {
  SetProperty<std::string>(kMacAddress, address);
}

std::int32_t DetectorProperties::GetPreDetectorPeriod() const {
  return GetProperty<std::int32_t>(kPreDetectorPeriod);
}

void DetectorProperties::SetPreDetectorPeriod(std::int32_t seconds) {
  SetProperty<std::int32_t>(kPreDetectorPeriod, seconds);
}

bool DetectorProperties::GetIsBlockingDetector() const {
  return GetProperty<bool>(kIsBlockingDetector);
}

void DetectorProperties::SetIsBlockingDetector(bool blocking) {
  SetProperty<bool>(kIsBlockingDetector, blocking);
}

bool DetectorProperties::GetIsReportingNotFound() const {
  return GetProperty<bool>(kIsReportingNotFound);
}

void DetectorProperties::SetIsReportingNotFound(bool reporting) {
  SetProperty<bool>(kIsReportingNotFound, reporting);
}

bool DetectorProperties::GetIsOnStopReportCachedBuffers() const {
  return GetProperty<bool>(kIsOnStopReportCachedBuffers);
}

void DetectorProperties::SetIsOnStopReportCachedBuffers(bool reporting) {
  SetProperty<bool>(kIsOnStopReportCachedBuffers, reporting);
}

LumensealBasebandDetectorPlugin::LumensealBasebandDetectorPlugin(
    const PropertyBase& constructionProperties)
    : construction_(constructionProperties) {
  SetChannelIndex(construction_.GetChannelIndex());
  SetMacAddress(construction_.GetMacAddress());
}

LumensealBasebandDetectorPlugin::~LumensealBasebandDetectorPlugin() = default;

std::int32_t LumensealBasebandDetectorPlugin::GetChannelIndex() const {
  return GetProperty<std::int32_t>(kChannelIndex);
}

void LumensealBasebandDetectorPlugin::SetChannelIndex(std::int32_t index) {
  SetProperty<std::int32_t>(kChannelIndex, index);
}

std::string LumensealBasebandDetectorPlugin::GetMacAddress() const {
  return GetProperty<std::string>(kMacAddress);
}

void LumensealBasebandDetectorPlugin::SetMacAddress(const std::string& address) {
  SetProperty<std::string>(kMacAddress, address);
}

bool LumensealBasebandDetectorPlugin::Init() { return true; }

void LumensealBasebandDetectorPlugin::Deinit() {}

void LumensealBasebandDetectorPlugin::OnPropertySet(const std::string&) {}

}  // namespace Framework
