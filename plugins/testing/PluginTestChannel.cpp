#include "plugins/testing/PluginTestChannel.h"

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

void PluginTestChannel::CreateChannel(std::uint64_t channelIndex) {
  ChannelBaseLicensed::CreateChannel(channelIndex);
  const auto index = static_cast<std::int32_t>(channelIndex);
  const auto seed = GetLicenser().GetProperty<std::uint64_t>("Seed");
  LumensealBasebandDetectorPlugin::ConstructionProperties detector;
  detector.SetChannelIndex(index);
  detector.SetSeed(seed);
  detector.SetIsBlockingDetector(true);
  CreateProcessor(kDetectorClass, "LumensealDetector", detector, false);
  LumensealBasebandEmbedderPlugin::ConstructionProperties embedder;
  embedder.SetChannelIndex(index);
  embedder.SetSeed(seed);
  CreateProcessor("LumensealBasebandEmbedderPlugin", "LumensealEmbedder", embedder, false);
}

}  // namespace QuillmarTesting
