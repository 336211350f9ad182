// The reference detector: reads the reference watermark (plugins/watermark) keyed by the licence's
// seed, and raises a detection event for every decoded and confirmed second (CID, time stamp,
// quality, media time) and a presence event when a mark appears in the picture or goes. It
// honours its construction properties and raises its events through its signal:
// - "IsBlockingDetector": results are raised within the frame call that found them; otherwise
//   they are held back and raised with the next frame, as a detector working beside the frames;
// - "IsOnStopReportCachedBuffers": results held back at Stop are raised then, or else dropped;
// - "IsReportingNotFound" with "PreDetectorPeriod" (seconds of video, at least 1): each period in
//   which no watermark was found ends with a "Not found" detection event.
// Results can also be supplied through the properties of DetectorSimulation.h, and are then
// reported as if found in the next frame.
//
// Threads: frames, Stop and the simulation properties on one thread at a time, like the property
// store; events are raised on the thread that hands over the frame (or calls Stop).
#include <algorithm>
#include <boost/format.hpp>
#include <cmath>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <variant>

#include "events/LumensealBasebandDetectorPlugin.h"
#include "events/VWMDetectionEvent.h"
#include "framework/Logger.h"
#include "framework/PluginRegistry.h"
#include "framework/NoThrow.h"
#include "plugins/detector/DetectorSimulation.h"
#include "plugins/watermark/WatermarkDetector.h"

namespace LumensealReference {
namespace {

// The frame rate assumed when the format names none.
constexpr double kAssumedFrameRate = 25.0;

using DetectorResult =
    std::variant<LSNDetection, CBasebandWMDetection, ScaleFoundEvent, MirroredDetectionEvent>;

class LumensealBasebandDetectorPlugin final : public Framework::LumensealBasebandDetectorPlugin {
 public:
  explicit LumensealBasebandDetectorPlugin(const Framework::PropertyBase& properties)
      : Framework::LumensealBasebandDetectorPlugin(properties),
        blocking_(GetConstructionProperties().GetIsBlockingDetector()),
        reportingNotFound_(GetConstructionProperties().GetIsReportingNotFound()),
        reportingHeldBackOnStop_(GetConstructionProperties().GetIsOnStopReportCachedBuffers()),
        periodSeconds_(std::max(1, GetConstructionProperties().GetPreDetectorPeriod())) {}

  // Starts reading a stream of the format set last.
  bool Init() override {
    const double rate = GetFormat().GetFrameRate();
    watermark_ = std::make_unique<Lumenseal::WatermarkDetector>(
        GetConstructionProperties().GetSeed(), rate > 0.0 ? rate : kAssumedFrameRate);
    return true;
  }

  void ProcessFrame(const Framework::Frame* frame) override {
    Framework::NoThrow("LumensealBasebandDetectorPlugin::ProcessFrame", [&] {
      if (frame == nullptr) return;
      Read(*frame);
      if (blocking_) {
        ReportAll(found_);
      } else {
        ReportAll(heldBack_);
        heldBack_.swap(found_);
      }
      EndOfFrame(*frame);
    });
  }

  bool Stop() override {
    Framework::NoThrow("LumensealBasebandDetectorPlugin::Stop", [&] {
      if (reportingHeldBackOnStop_) {
        ReportAll(heldBack_);
        ReportAll(found_);
      } else if (!heldBack_.empty() || !found_.empty()) {
        Framework::Logger::Info(boost::format("LumensealBasebandDetectorPlugin::Stop; dropping %1% "
                                              "results not reported yet") %
                                (heldBack_.size() + found_.size()));
        heldBack_.clear();
        found_.clear();
      }
    });
    return true;
  }

  void OnPropertySet(const std::string& name) override {
    Framework::NoThrow("LumensealBasebandDetectorPlugin::OnPropertySet", [&] {
      TakeSimulated<LSNDetection>(name, DetectorSimulation::kDetection);
      TakeSimulated<CBasebandWMDetection>(name, DetectorSimulation::kPresence);
      TakeSimulated<ScaleFoundEvent>(name, DetectorSimulation::kScale);
      TakeSimulated<MirroredDetectionEvent>(name, DetectorSimulation::kMirrored);
    });
  }

 private:
  // Queues what the watermark in `frame` completed: decoded seconds, then a change of presence.
  void Read(const Framework::Frame& frame) {
    if (watermark_ == nullptr) return;
    const Lumenseal::DetectorReport report = watermark_->ProcessFrame(frame);
    for (const Lumenseal::Detection& second : report.detections) {
      LSNDetection detection;
      detection.isFullDetection = true;
      detection.cid = second.cid;
      detection.timestamp = second.timestamp;
      detection.payload = std::to_string(second.cid) + "@" + std::to_string(second.timestamp);
      detection.quality = second.quality;
      detection.cidName = std::to_string(second.cid);
      detection.mediaDetectionTimestamp = second.mediaTime;
      detection.isFound = true;
      found_.emplace_back(std::move(detection));
    }
    if (report.presence) {
      CBasebandWMDetection presence;
      presence.state = *report.presence ? CBasebandWMDetection::kPresent : CBasebandWMDetection::kAbsent;
      presence.mediaDetectionTimestamp = report.presenceMediaTime;
      found_.emplace_back(presence);
    }
  }

  template <typename Result>
  void TakeSimulated(const std::string& name, const char* simulatedName) {
    if (name == simulatedName) found_.emplace_back(GetProperty<Result>(name));
  }

  void ReportAll(std::deque<DetectorResult>& results) {
    while (!results.empty()) {
      DetectorResult result = std::move(results.front());
      results.pop_front();
      Report(std::move(result));
    }
  }

  // Raises the event for `result`, which stays alive until the next one replaces it.
  void Report(DetectorResult result) {
    const auto* detection = std::get_if<LSNDetection>(&result);
    if (detection != nullptr && detection->isFound) foundInPeriod_ = true;
    current_ = std::move(result);
    std::visit(
        [this](const auto& value) { GetEventSignal().Raise(Framework::VWMDetectionEvent(value)); },
        current_);
  }

  // Counts the frame toward the detection period and reports "Not found" at the end of an
  // empty period.
  void EndOfFrame(const Framework::Frame& frame) {
    if (!reportingNotFound_) return;
    const double framesPerSecond = frame.GetFormat().GetFrameRate() > 0.0
                                       ? frame.GetFormat().GetFrameRate()
                                       : GetFormat().GetFrameRate();
    const auto periodFrames = std::max<std::uint64_t>(
        1, static_cast<std::uint64_t>(std::llround(periodSeconds_ * framesPerSecond)));
    if (++framesInPeriod_ < periodFrames) return;
    framesInPeriod_ = 0;
    if (!foundInPeriod_) {
      LSNDetection notFound;
      notFound.isFound = false;
      notFound.mediaDetectionTimestamp =
          framesPerSecond > 0.0 ? static_cast<double>(frame.GetIndex()) / framesPerSecond : 0.0;
      Report(notFound);
    }
    foundInPeriod_ = false;
  }

  // Constant after construction
  const bool blocking_;
  const bool reportingNotFound_;
  const bool reportingHeldBackOnStop_;
  const std::int32_t periodSeconds_;

  // Made by Init, used by the processing thread
  std::unique_ptr<Lumenseal::WatermarkDetector> watermark_;

  // Processing thread only
  std::deque<DetectorResult> found_;  // Found and not reported yet
  // Not blocking: found by the last frame, reported with the next
  std::deque<DetectorResult> heldBack_;
  DetectorResult current_;  // What the latest event points at
  std::uint64_t framesInPeriod_ = 0;
  bool foundInPeriod_ = false;
};

QUILLMAR_REGISTER_PROCESSOR(LumensealBasebandDetectorPlugin)

}  // namespace
}  // namespace LumensealReference
