#include "PluginTestChannel.h"

#include <cstdlib>

namespace QuillmarTesting {

using Framework::LumensealBasebandDetectorPlugin;
using Framework::LumensealBasebandEmbedderPlugin;

void PluginTestChannel::UseBuiltPlugins() {
  ::setenv("QUILLMAR_PLUGIN_PATH", QUILLMAR_TEST_PLUGIN_FOLDER, 1);
}

std::unique_ptr<PluginTestChannel> PluginTestChannel::Create(std::uint64_t channelIndex) {
  auto channel = std::make_unique<PluginTestChannel>();
  channel->OnCreateChannel(channelIndex);
  return channel;
}

PluginTestChannel::PluginTestChannel()
    : ChannelBaseLicensed("QuillmarBasebandSDK", GetDefaultPlugins(), "1.0", 60, "") {}

LumensealBasebandDetectorPlugin::ConstructionProperties PluginTestChannel::DetectorProperties() {
  LumensealBasebandDetectorPlugin::ConstructionProperties properties;
  properties.SetChannelIndex(static_cast<std::int32_t>(GetChannelIndex()));
  properties.SetSeed(GetLicenser().GetProperty<std::uint64_t>("Seed"));
  properties.SetMacAddress("----");
  properties.SetPreDetectorPeriod(5);
  properties.SetIsBlockingDetector(true);
  properties.SetIsReportingNotFound(false);
  properties.SetIsOnStopReportCachedBuffers(false);
  return properties;
}

void PluginTestChannel::OnCreateChannel(std::uint64_t channelIndex) {
  CreateChannel(channelIndex);
  LumensealBasebandDetectorPlugin::ConstructionProperties detector = DetectorProperties();
  CreateProcessor(kDetectorClass, kDetectorName, detector, false);
  LumensealBasebandEmbedderPlugin::ConstructionProperties embedder;
  embedder.SetChannelIndex(static_cast<std::int32_t>(GetChannelIndex()));
  embedder.SetSeed(GetLicenser().GetProperty<std::uint64_t>("Seed"));
  CreateProcessor(kEmbedderClass, kEmbedderName, embedder, false);
}

LumensealBasebandEmbedderPlugin* PluginTestChannel::Embedder() const {
  return dynamic_cast<LumensealBasebandEmbedderPlugin*>(GetAlgorithm(kEmbedderName));
}

LumensealBasebandDetectorPlugin* PluginTestChannel::Detector() const {
  return dynamic_cast<LumensealBasebandDetectorPlugin*>(GetAlgorithm(kDetectorName));
}

}  // namespace QuillmarTesting
