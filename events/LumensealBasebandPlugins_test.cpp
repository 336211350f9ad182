// The adaptors' property interface: every accessor reads and writes its own name with its own
// stored type, so that the framework and the plug-in libraries can use the names alike.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "events/LumensealBasebandDetectorPlugin.h"
#include "events/LumensealBasebandEmbedderPlugin.h"

namespace Framework {
namespace {

bool operator==(const SYSTEMTIME& a, const SYSTEMTIME& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Records every OnPropertySet of a store.
template <typename Base>
class Recording : public Base {
 public:
  using Base::Base;
  void OnPropertySet(const std::string& name) override { notified.push_back(name); }
  std::vector<std::string> notified;
};

class TestEmbedder : public LumensealBasebandEmbedderPlugin {
 public:
  using LumensealBasebandEmbedderPlugin::LumensealBasebandEmbedderPlugin;
  using LumensealBasebandEmbedderPlugin::ProcessFrameVolatile;
  void ProcessFrameVolatile(Frame*, bool) override {}
  void ReportPriorWatermark(std::uint64_t, std::uint64_t, double) override {}
  void WriteEncodationLog(const std::string&, const std::string&, const std::string&,
                          const std::string&, const std::map<std::string, std::string>&,
                          const std::string&, double) override {}
};

template <typename T>
struct NotDeduced {
  using Type = T;
};

// Sets `value` through `set`, then expects the store to hold it under `name` as the getter's
// type, the getter to read it back, and OnPropertySet to have been called with `name`.
template <typename Store, typename Class, typename Value, typename SetArgument>
void ExpectAccessor(Store& store, const char* name, void (Class::*set)(SetArgument),
                    Value (Class::*get)() const, const typename NotDeduced<Value>::Type& value) {
  SCOPED_TRACE(name);
  store.notified.clear();
  (store.*set)(value);
  EXPECT_EQ(store.notified, std::vector<std::string>{name});
  EXPECT_TRUE(store.template HasPropertyOfType<Value>(name));
  EXPECT_TRUE((store.*get)() == value);
}

TEST(LumensealBasebandEmbedderPlugin, AccessorsUseTheirNamesAndStoredTypes) {
  using E = LumensealBasebandEmbedderPlugin;
  Recording<TestEmbedder> embedder{PropertyBase()};
  const SYSTEMTIME start{2026, 11, 6, 21, 7, 40, 3, 123};
  ExpectAccessor(embedder, "ChannelIndex", &E::SetChannelIndex,
                                             &E::GetChannelIndex, -2);
  ExpectAccessor(embedder, "FrameRate", &E::SetFrameRate, &E::GetFrameRate,
                                       29.97);
  ExpectAccessor(embedder, "GlobalDepth", &E::SetGlobalDepth,
                                       &E::GetGlobalDepth, 0.8);
  ExpectAccessor(embedder, "MaxLocalDepth", &E::SetMaxLocalDepth,
                                             &E::GetMaxLocalDepth, 7);
  ExpectAccessor(embedder, "FlatRegion", &E::SetFlatRegion, &E::GetFlatRegion,
                                     true);
  ExpectAccessor(embedder, "FTRT", &E::SetFTRT, &E::GetFTRT, true);
  ExpectAccessor(embedder, "SelectedCID", &E::SetSelectedCID,
                                              &E::GetSelectedCID, 4000000000u);
  ExpectAccessor(embedder, "SelectedStartTime", &E::SetSelectedStartTime,
                                           &E::GetSelectedStartTime, start);
  ExpectAccessor(embedder, "SelectedDurationInSeconds",
                                              &E::SetSelectedDurationInSeconds,
                                              &E::GetSelectedDurationInSeconds, 1ull << 40);
  ExpectAccessor(embedder, "EmbeddedDurationInSeconds",
                                              &E::SetEmbeddedDurationInSeconds,
                                              &E::GetEmbeddedDurationInSeconds, 1799);
}

TEST(LumensealBasebandEmbedderPlugin, TakesOverChannelIndexAndKeepsTheSeed) {
  LumensealBasebandEmbedderPlugin::ConstructionProperties properties;
  properties.SetChannelIndex(3);
  properties.SetSeed(0xFEEDFACECAFEBEEFull);
  EXPECT_EQ(properties.GetPropertyNames(), (std::vector<std::string>{"ChannelIndex", "Seed"}));
  EXPECT_TRUE(properties.HasPropertyOfType<std::int32_t>("ChannelIndex"));
  EXPECT_TRUE(properties.HasPropertyOfType<std::uint64_t>("Seed"));

  // The framework hands the factory a plain property store.
  const TestEmbedder embedder(static_cast<const PropertyBase&>(properties));
  EXPECT_EQ(embedder.GetChannelIndex(), 3);
  EXPECT_EQ(embedder.GetConstructionProperties().GetSeed(), 0xFEEDFACECAFEBEEFull);
  EXPECT_EQ(embedder.GetEmbeddedDurationInSeconds(), 0u);
}

TEST(LumensealBasebandDetectorPlugin, ConstructionAccessorsUseTheirNamesAndStoredTypes) {
  using P = LumensealBasebandDetectorPlugin::ConstructionProperties;
  Recording<P> properties;
  ExpectAccessor(properties, "ChannelIndex", &P::SetChannelIndex,
                                  &P::GetChannelIndex, 5);
  ExpectAccessor(properties, "Seed", &P::SetSeed, &P::GetSeed, 42);
  ExpectAccessor(properties, "MacAddress", &P::SetMacAddress, &P::GetMacAddress,
                                 "----");
  ExpectAccessor(properties, "PreDetectorPeriod", &P::SetPreDetectorPeriod,
                                  &P::GetPreDetectorPeriod, 5);
  ExpectAccessor(properties, "IsBlockingDetector", &P::SetIsBlockingDetector,
                          &P::GetIsBlockingDetector, true);
  ExpectAccessor(properties, "IsReportingNotFound", &P::SetIsReportingNotFound,
                          &P::GetIsReportingNotFound, true);
  ExpectAccessor(properties, "IsOnStopReportCachedBuffers",
                          &P::SetIsOnStopReportCachedBuffers, &P::GetIsOnStopReportCachedBuffers,
                          true);
}

TEST(LumensealBasebandDetectorPlugin, TakesOverChannelIndexAndMacAddress) {
  LumensealBasebandDetectorPlugin::ConstructionProperties properties;
  properties.SetChannelIndex(2);
  properties.SetMacAddress("----");
  properties.SetPreDetectorPeriod(5);
  Recording<LumensealBasebandDetectorPlugin> detector(properties);
  EXPECT_EQ(detector.GetChannelIndex(), 2);
  EXPECT_EQ(detector.GetMacAddress(), "----");
  EXPECT_EQ(detector.GetConstructionProperties().GetPreDetectorPeriod(), 5);
  EXPECT_TRUE(detector.InitProcessor());

  using D = LumensealBasebandDetectorPlugin;
  ExpectAccessor(detector, "ChannelIndex", &D::SetChannelIndex,
                                  &D::GetChannelIndex, 9);
  ExpectAccessor(detector, "MacAddress", &D::SetMacAddress, &D::GetMacAddress,
                                 "00:11:22:33:44:55");
}

}  // namespace
}  // namespace Framework
