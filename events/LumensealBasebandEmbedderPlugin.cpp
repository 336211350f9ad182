#include "LumensealBasebandEmbedderPlugin.h"

namespace Framework {

LumensealBasebandEmbedderPlugin::ConstructionProperties::~ConstructionProperties() = default;

LumensealBasebandEmbedderPlugin::LumensealBasebandEmbedderPlugin(
    const PropertyBase& constructionProperties)
    : construction_(constructionProperties) {
  SetChannelIndex(construction_.GetChannelIndex());
}

LumensealBasebandEmbedderPlugin::~LumensealBasebandEmbedderPlugin() = default;

std::int32_t LumensealBasebandEmbedderPlugin::GetChannelIndex() const {
  return GetProperty<std::int32_t>(kChannelIndex);
}

void LumensealBasebandEmbedderPlugin::SetChannelIndex(std::int32_t index) {
  SetProperty<std::int32_t>(kChannelIndex, index);
}

double LumensealBasebandEmbedderPlugin::GetFrameRate() const {
  return GetProperty<double>(kFrameRate);
}

void LumensealBasebandEmbedderPlugin::SetFrameRate(double framesPerSecond) {
  SetProperty<double>(kFrameRate, framesPerSecond);
}

double LumensealBasebandEmbedderPlugin::GetGlobalDepth() const {
  return GetProperty<double>(kGlobalDepth);
}

void LumensealBasebandEmbedderPlugin::SetGlobalDepth(double depth) {
  SetProperty<double>(kGlobalDepth, depth);
}

std::int32_t LumensealBasebandEmbedderPlugin::GetMaxLocalDepth() const {
  return GetProperty<std::int32_t>(kMaxLocalDepth);
}

void LumensealBasebandEmbedderPlugin::SetMaxLocalDepth(std::int32_t depth) {
  SetProperty<std::int32_t>(kMaxLocalDepth, depth);
}

bool LumensealBasebandEmbedderPlugin::GetFlatRegion() const {
  return GetProperty<bool>(kFlatRegion);
}

void LumensealBasebandEmbedderPlugin::SetFlatRegion(bool flatRegion) {
  SetProperty<bool>(kFlatRegion, flatRegion);
}

bool LumensealBasebandEmbedderPlugin::GetFTRT() const { return GetProperty<bool>(kFTRT); }

void LumensealBasebandEmbedderPlugin::SetFTRT(bool fasterThanRealTime) {
  SetProperty<bool>(kFTRT, fasterThanRealTime);
}

std::uint32_t LumensealBasebandEmbedderPlugin::GetSelectedCID() const {
  return GetProperty<std::uint32_t>(kSelectedCID);
}

void LumensealBasebandEmbedderPlugin::SetSelectedCID(std::uint32_t cid) {
  SetProperty<std::uint32_t>(kSelectedCID, cid);
}

SYSTEMTIME LumensealBasebandEmbedderPlugin::GetSelectedStartTime() const {
  return GetProperty<SYSTEMTIME>(kSelectedStartTime);
}

void LumensealBasebandEmbedderPlugin::SetSelectedStartTime(const SYSTEMTIME& start) {
  SetProperty<SYSTEMTIME>(kSelectedStartTime, start);
}

std::uint64_t LumensealBasebandEmbedderPlugin::GetSelectedDurationInSeconds() const {
  return GetProperty<std::uint64_t>(kSelectedDurationInSeconds);
}

void LumensealBasebandEmbedderPlugin::SetSelectedDurationInSeconds(std::uint64_t seconds) {
  SetProperty<std::uint64_t>(kSelectedDurationInSeconds, seconds);
}

std::uint64_t LumensealBasebandEmbedderPlugin::GetEmbeddedDurationInSeconds() const {
  return GetProperty<std::uint64_t>(kEmbeddedDurationInSeconds);
}

void LumensealBasebandEmbedderPlugin::SetEmbeddedDurationInSeconds(std::uint64_t seconds) {
  SetProperty<std::uint64_t>(kEmbeddedDurationInSeconds, seconds);
}

void LumensealBasebandEmbedderPlugin::Deinit() {}

void LumensealBasebandEmbedderPlugin::ProcessFrame(const Frame*) {}

}  // namespace Framework
