// The channel's view of the watermark detector: a framework algorithm, created by plug-in class
// name from its construction properties, whose detection engine lives in the detector's own
// plug-in library. It raises VWMDetectionEvents on its event signal, on the thread that hands it
// frames (ProcessFrameVolatile / ProcessFrame).
//
// Run-time properties: "ChannelIndex" (int32) and "MacAddress" (string), taken over from the
// construction properties of the same names and settable afterwards.
//
// Threads: the life cycle on the framework's control thread, frames on its processing thread; the
// property store is read and written by one thread at a time. Getters follow the property store:
// an absent name reads as 0 / empty, one of another type throws PropertyTypeError.
//
// Ownership: the adaptor holds no shared handle of its own. The one resource a detector shares
// with others, its detection engine (and the results the events point at), belongs to the plug-in
// library's class derived from this one, which releases it in its own destructor, before this
// part goes; nothing a host or the channel can observe depends on the adaptor holding it.
#pragma once

#include <cstdint>
#include <string>

#include "events/LumensealPluginConstructionProperties.h"
#include "framework/AlgorithmBase.h"
#include "framework/PropertyBase.h"
#include "framework/platform/Export.h"

namespace Framework {

class QUILLMAR_API LumensealBasebandDetectorPlugin : public AlgorithmBase {
 public:
  // What the detector is created with: "ChannelIndex" and "Seed", and the detector's own.
  class QUILLMAR_API ConstructionProperties : public LumensealPluginConstructionProperties {
   public:
    static constexpr char kMacAddress[] = "MacAddress";
    static constexpr char kPreDetectorPeriod[] = "PreDetectorPeriod";
    static constexpr char kIsBlockingDetector[] = "IsBlockingDetector";
    static constexpr char kIsReportingNotFound[] = "IsReportingNotFound";
    static constexpr char kIsOnStopReportCachedBuffers[] = "IsOnStopReportCachedBuffers";

    using LumensealPluginConstructionProperties::LumensealPluginConstructionProperties;
    ~ConstructionProperties() override;

    // The address the detector reports as its machine's.
    std::string GetMacAddress() const;
    void SetMacAddress(const std::string& address);
    // Seconds of video between two presence checks (and "not found" reports).
    std::int32_t GetPreDetectorPeriod() const;
    void SetPreDetectorPeriod(std::int32_t seconds);
    // True: results are raised within the frame call that found them.
    bool GetIsBlockingDetector() const;
    void SetIsBlockingDetector(bool blocking);
    // True: a period without a watermark is reported as "Not found".
    bool GetIsReportingNotFound() const;
    void SetIsReportingNotFound(bool reporting);
    // True: results still held back at Stop are raised then; false: they are dropped.
    bool GetIsOnStopReportCachedBuffers() const;
    void SetIsOnStopReportCachedBuffers(bool reporting);
  };

  static constexpr char kChannelIndex[] = "ChannelIndex";
  static constexpr char kMacAddress[] = "MacAddress";

  // A detector made from `constructionProperties` (any PropertyBase holding their names).
  explicit LumensealBasebandDetectorPlugin(const PropertyBase& constructionProperties);
  ~LumensealBasebandDetectorPlugin() override;

  std::int32_t GetChannelIndex() const;
  void SetChannelIndex(std::int32_t index);
  std::string GetMacAddress() const;
  void SetMacAddress(const std::string& address);

  // The properties the detector was created with.
  const ConstructionProperties& GetConstructionProperties() const { return construction_; }

  // Returns true and does nothing else.
  bool Init() override;
  // Does nothing.
  void Deinit() override;
  // Does nothing.
  void OnPropertySet(const std::string& name) override;

 private:
  const ConstructionProperties construction_;  // Constant after construction
};

}  // namespace Framework
