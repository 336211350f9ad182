// The channel's view of the watermark embedder: a framework algorithm, created by plug-in class
// name from its construction properties, whose embedding operations live in the embedder's own
// plug-in library. The channel finds it by instance name (ChannelBase::GetAlgorithm), sets its
// run-time properties, feeds it frames through ProcessFrameVolatile(frame, bypass) and, at the
// end of a run, has it write the encodation log record. It raises VWMEmbeddingEvents on its
// event signal, on the thread that hands it frames.
//
// Run-time properties (typed accessors below; the framework may also set them by name):
// "ChannelIndex" (int32, taken over from the construction property), "FrameRate" (double),
// "GlobalDepth" (double), "MaxLocalDepth" (int32), "FlatRegion" (bool), "FTRT" (bool),
// "SelectedCID" (uint32), "SelectedStartTime" (SYSTEMTIME, UTC), "SelectedDurationInSeconds"
// (uint64) and "EmbeddedDurationInSeconds" (uint64, kept by the embedder).
//
// Threads: the life cycle and WriteEncodationLog on the framework's control thread, frames and
// ReportPriorWatermark on its processing thread; the property store is read and written by one
// thread at a time. Getters follow the property store: an absent name reads as 0 / empty, one of
// another type throws PropertyTypeError. The three embedding operations never throw.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "events/LumensealPluginConstructionProperties.h"
#include "framework/AlgorithmBase.h"
#include "framework/Frame.h"
#include "framework/PropertyBase.h"
#include "framework/platform/Export.h"
#include "framework/platform/SystemTime.h"

namespace Framework {

class QUILLMAR_API LumensealBasebandEmbedderPlugin : public AlgorithmBase {
 public:
  // What the embedder is created with: "ChannelIndex" and "Seed".
  class QUILLMAR_API ConstructionProperties : public LumensealPluginConstructionProperties {
   public:
    using LumensealPluginConstructionProperties::LumensealPluginConstructionProperties;
    ~ConstructionProperties() override;
  };

  static constexpr char kChannelIndex[] = "ChannelIndex";
  static constexpr char kFrameRate[] = "FrameRate";
  static constexpr char kGlobalDepth[] = "GlobalDepth";
  static constexpr char kMaxLocalDepth[] = "MaxLocalDepth";
  static constexpr char kFlatRegion[] = "FlatRegion";
  static constexpr char kFTRT[] = "FTRT";
  static constexpr char kSelectedCID[] = "SelectedCID";
  static constexpr char kSelectedStartTime[] = "SelectedStartTime";
  static constexpr char kSelectedDurationInSeconds[] = "SelectedDurationInSeconds";
  static constexpr char kEmbeddedDurationInSeconds[] = "EmbeddedDurationInSeconds";

  // An embedder made from `constructionProperties` (any PropertyBase holding their names).
  explicit LumensealBasebandEmbedderPlugin(const PropertyBase& constructionProperties);
  ~LumensealBasebandEmbedderPlugin() override;

  std::int32_t GetChannelIndex() const;
  void SetChannelIndex(std::int32_t index);
  // Frames per second of the video being embedded.
  double GetFrameRate() const;
  void SetFrameRate(double framesPerSecond);
  double GetGlobalDepth() const;
  void SetGlobalDepth(double depth);
  std::int32_t GetMaxLocalDepth() const;
  void SetMaxLocalDepth(std::int32_t depth);
  bool GetFlatRegion() const;
  void SetFlatRegion(bool flatRegion);
  // Faster-than-real-time embedding.
  bool GetFTRT() const;
  void SetFTRT(bool fasterThanRealTime);
  // The CID to embed.
  std::uint32_t GetSelectedCID() const;
  void SetSelectedCID(std::uint32_t cid);
  // Start (UTC) of the time slot reserved for the CID.
  SYSTEMTIME GetSelectedStartTime() const;
  void SetSelectedStartTime(const SYSTEMTIME& start);
  // Length of the reserved time slot.
  std::uint64_t GetSelectedDurationInSeconds() const;
  void SetSelectedDurationInSeconds(std::uint64_t seconds);
  // Seconds of video embedded so far.
  std::uint64_t GetEmbeddedDurationInSeconds() const;
  void SetEmbeddedDurationInSeconds(std::uint64_t seconds);

  // The properties the embedder was created with.
  const ConstructionProperties& GetConstructionProperties() const { return construction_; }

  using ProcessorBase::ProcessFrameVolatile;

  // Processes `frame` in place: embeds the watermark, or with `bypass` passes the frame on
  // without a new one (a prior watermark is present). Required.
  virtual void ProcessFrameVolatile(Frame* frame, bool bypass) = 0;

  // Tells the embedder that the detector found an existing watermark of `cid` with time stamp
  // `timestamp` (seconds since 2000-01-01) at `mediaDetectionTimestamp` seconds into the media.
  // Required.
  virtual void ReportPriorWatermark(std::uint64_t cid, std::uint64_t timestamp,
                                    double mediaDetectionTimestamp) = 0;

  // Writes one record of the encodation log: the host's first, second and third texts, the
  // facility, the content's metadata, the configuration's checksum text and the run's average
  // embedding energy, with the reserved time slot. Required.
  virtual void WriteEncodationLog(const std::string& hostText1, const std::string& hostText2,
                                  const std::string& facility, const std::string& hostText3,
                                  const std::map<std::string, std::string>& metadata,
                                  const std::string& configurationChecksum,
                                  double averageEnergy) = 0;

  // Does nothing.
  void Deinit() override;
  // Does nothing: frames come through ProcessFrameVolatile(frame, bypass) only.
  void ProcessFrame(const Frame* frame) override;

 private:
  const ConstructionProperties construction_;  // Constant after construction
};

}  // namespace Framework
