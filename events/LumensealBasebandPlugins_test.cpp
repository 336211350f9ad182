// The embedder adaptor's property interface: every accessor reads and writes its own name with
// its own stored type, so that the framework and the plug-in libraries can use the names alike.
// The detector's accessors carry the values tests/LumensealPlugins_test.cpp checks.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "events/LumensealBasebandEmbedderPlugin.h"

namespace Framework {
namespace {

bool operator==(const SYSTEMTIME& a, const SYSTEMTIME& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

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

// Sets `value` through `set`, then expects the store to hold it under `name` as the getter's type.
template <typename Store, typename Class, typename Value, typename SetArgument, typename Given>
void ExpectAccessor(Store& store, const char* name, void (Class::*set)(SetArgument),
                    Value (Class::*get)() const, const Given& value) {
  const Value expected(value);
  (store.*set)(expected);
  EXPECT_TRUE(store.template HasPropertyOfType<Value>(name)) << name;
  EXPECT_TRUE((store.*get)() == expected) << name;
}

TEST(LumensealBasebandEmbedderPlugin, AccessorsUseTheirNamesAndStoredTypes) {
  using E = LumensealBasebandEmbedderPlugin;
  TestEmbedder e{PropertyBase()};
  const SYSTEMTIME start{2026, 11, 6, 21, 7, 40, 3, 123};
  ExpectAccessor(e, "ChannelIndex", &E::SetChannelIndex, &E::GetChannelIndex, -2);
  ExpectAccessor(e, "FrameRate", &E::SetFrameRate, &E::GetFrameRate, 29.97);
  ExpectAccessor(e, "GlobalDepth", &E::SetGlobalDepth, &E::GetGlobalDepth, 0.8);
  ExpectAccessor(e, "MaxLocalDepth", &E::SetMaxLocalDepth, &E::GetMaxLocalDepth, 7);
  ExpectAccessor(e, "FlatRegion", &E::SetFlatRegion, &E::GetFlatRegion, true);
  ExpectAccessor(e, "FTRT", &E::SetFTRT, &E::GetFTRT, true);
  ExpectAccessor(e, "SelectedCID", &E::SetSelectedCID, &E::GetSelectedCID, 4000000000u);
  ExpectAccessor(e, "SelectedStartTime", &E::SetSelectedStartTime, &E::GetSelectedStartTime,
                 start);
  ExpectAccessor(e, "SelectedDurationInSeconds", &E::SetSelectedDurationInSeconds,
                 &E::GetSelectedDurationInSeconds, 1ull << 40);
  ExpectAccessor(e, "EmbeddedDurationInSeconds", &E::SetEmbeddedDurationInSeconds,
                 &E::GetEmbeddedDurationInSeconds, 1799);
}

}  // namespace
}  // namespace Framework
