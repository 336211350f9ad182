// A channel for tests and benchmarks that creates the two watermark plug-ins as the product's
// channel does: from their shared libraries in the plug-in path, by class and instance name, both
// with the channel's index and licence seed, the detector blocking. One channel per thread.
#pragma once

#include <cstdint>
#include <memory>

#include "events/LumensealBasebandDetectorPlugin.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/ChannelBaseLicensed.h"

namespace QuillmarTesting {

class PluginTestChannel : public Framework::ChannelBaseLicensed {
 public:
  static constexpr char kDetectorClass[] = "LumensealBasebandDetectorPlugin";

  // Points QUILLMAR_PLUGIN_PATH at the folder the plug-ins were built into; call before Create.
  static void UseBuiltPlugins();
  // A channel created with `channelIndex`, holding both plug-ins.
  static std::unique_ptr<PluginTestChannel> Create(std::uint64_t channelIndex);

  PluginTestChannel();

  // The children by instance name; null when absent.
  Framework::LumensealBasebandEmbedderPlugin* Embedder() const {
    return dynamic_cast<Framework::LumensealBasebandEmbedderPlugin*>(
        GetAlgorithm("LumensealEmbedder"));
  }
  Framework::LumensealBasebandDetectorPlugin* Detector() const {
    return dynamic_cast<Framework::LumensealBasebandDetectorPlugin*>(
        GetAlgorithm("LumensealDetector"));
  }

 protected:
  void CreateChannel(std::uint64_t channelIndex) override;
};

}  // namespace QuillmarTesting
