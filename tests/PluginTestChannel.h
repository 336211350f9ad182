// A channel for tests that creates the two watermark plug-ins as the product's channel does:
// from their shared libraries in the plug-in path, by class and instance name, with the
// channel's construction properties (same channel index and licence seed for both).
//
// Not thread-safe: one channel per thread.
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
  static constexpr char kEmbedderClass[] = "LumensealBasebandEmbedderPlugin";
  static constexpr char kDetectorName[] = "LumensealDetector";
  static constexpr char kEmbedderName[] = "LumensealEmbedder";

  // Points QUILLMAR_PLUGIN_PATH at the folder the plug-ins were built into; call before creating
  // a channel.
  static void UseBuiltPlugins();

  // A channel created with `channelIndex`, holding both plug-ins.
  static std::unique_ptr<PluginTestChannel> Create(std::uint64_t channelIndex);

  PluginTestChannel();

  // Creates the detector, then the embedder, with the construction properties a channel gives.
  void OnCreateChannel(std::uint64_t channelIndex) override;

  // The children found by instance name, as their adaptor classes; null when absent.
  Framework::LumensealBasebandEmbedderPlugin* Embedder() const;
  Framework::LumensealBasebandDetectorPlugin* Detector() const;

  // The detector's construction properties as the channel fills them.
  Framework::LumensealBasebandDetectorPlugin::ConstructionProperties DetectorProperties();
};

}  // namespace QuillmarTesting
