// What every Lumenseal plug-in is created with: the channel's index and the licence's watermark
// seed. The embedder's and the detector's ConstructionProperties build on it.
//
// Not thread-safe, like every property store. Copies copy the store.
#pragma once

#include <cstdint>

#include "framework/PropertyBase.h"
#include "framework/platform/Export.h"

namespace Framework {

class QUILLMAR_API LumensealPluginConstructionProperties : public PropertyBase {
 public:
  static constexpr char kChannelIndex[] = "ChannelIndex";
  static constexpr char kSeed[] = "Seed";

  // No properties set.
  LumensealPluginConstructionProperties() = default;
  // A copy of the values in `properties`.
  explicit LumensealPluginConstructionProperties(const PropertyBase& properties);
  ~LumensealPluginConstructionProperties() override;
  LumensealPluginConstructionProperties(const LumensealPluginConstructionProperties&) = default;
  LumensealPluginConstructionProperties& operator=(const LumensealPluginConstructionProperties&) =
      default;

  // The channel's index.
  std::int32_t GetChannelIndex() const;
  void SetChannelIndex(std::int32_t index);
  // The watermark seed of the licence.
  std::uint64_t GetSeed() const;
  void SetSeed(std::uint64_t seed);
};

}  // namespace Framework
