#include "LumensealPluginConstructionProperties.h"

namespace Framework {

LumensealPluginConstructionProperties::LumensealPluginConstructionProperties(
    const PropertyBase& properties)
    : PropertyBase(properties) {}

LumensealPluginConstructionProperties::~LumensealPluginConstructionProperties() = default;

std::int32_t LumensealPluginConstructionProperties::GetChannelIndex() const {
  return GetProperty<std::int32_t>(kChannelIndex);
}

void LumensealPluginConstructionProperties::SetChannelIndex(std::int32_t index) {
  SetProperty<std::int32_t>(kChannelIndex, index);
}

std::uint64_t LumensealPluginConstructionProperties::GetSeed() const {
  return GetProperty<std::uint64_t>(kSeed);
}

void LumensealPluginConstructionProperties::SetSeed(std::uint64_t seed) {
  SetProperty<std::uint64_t>(kSeed, seed);
}

}  // namespace Framework
