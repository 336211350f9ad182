// What the embedder raises while it embeds: the average energy of the watermark it added, or the
// payload and time of the latest watermark.
//
// Properties: "Payload" (string), "LatestWatermarkTime" (ptime), "AverageEnergy" (float). An
// energy of kNoEnergy (-1.0) marks that none was measured; receivers ignore energies at or below
// -0.5. The energy constructor leaves "LatestWatermarkTime" absent (not-a-date-time when read).
//
// Not thread-safe, like every property store. Copies copy the store.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <string>

#include "framework/ControlEvent.h"
#include "framework/platform/Export.h"

namespace Framework {

class QUILLMAR_API VWMEmbeddingEvent : public ControlEvent {
 public:
  static constexpr char kPayload[] = "Payload";
  static constexpr char kLatestWatermarkTime[] = "LatestWatermarkTime";
  static constexpr char kAverageEnergy[] = "AverageEnergy";

  // The energy that says "no energy was measured".
  static constexpr float kNoEnergy = -1.0f;

  // An energy report: empty payload, `averageEnergy`.
  explicit VWMEmbeddingEvent(float averageEnergy);
  // A watermark report: `payload`, `latestWatermarkTime`, and kNoEnergy.
  VWMEmbeddingEvent(const std::string& payload,
                    const boost::posix_time::ptime& latestWatermarkTime);
  ~VWMEmbeddingEvent() override;
  VWMEmbeddingEvent(const VWMEmbeddingEvent&) = default;
  VWMEmbeddingEvent& operator=(const VWMEmbeddingEvent&) = default;

  std::string GetPayload() const;
  boost::posix_time::ptime GetLatestWatermarkTime() const;
  float GetAverageEnergy() const;

 protected:
  // Each setter replaces the value under its name, then calls OnPropertySet with the name.
  void SetPayload(const std::string& payload);
  void SetLatestWatermarkTime(const boost::posix_time::ptime& time);
  void SetAverageEnergy(float energy);
};

}  // namespace Framework
