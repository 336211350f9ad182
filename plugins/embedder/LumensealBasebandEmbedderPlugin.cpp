// The reference embedder: marks every frame with the reference watermark (plugins/watermark),
// keyed by the licence's seed, carrying "SelectedCID" and the time "SelectedStartTime" + n in
// second n of the run, as strong as "GlobalDepth" and "MaxLocalDepth" say (luma levels).
//
// It keeps "EmbeddedDurationInSeconds" from the frames it is given and the frame rate, raises a
// VWMEmbeddingEvent with the average watermark energy (the mean change it applied) once a second
// of media, records every prior watermark the channel reports, and appends encodation records to
// a JSON Lines file. Frames from second "SelectedDurationInSeconds" on lie beyond the reserved
// time slot: they pass on without a watermark, as bypassed frames do, until the channel extends
// the slot (0: no slot set, no limit).
//
// Where the encodation log goes, first match wins: the string property "EncodationLogFile" of the
// embedder, the environment variable QUILLMAR_ENCODATION_LOG, or "EncodationLog.jsonl" beside the
// process's log file ("Logs/" under the working directory when there is none). Missing folders are
// created.
//
// Threads: frames and prior-watermark reports arrive on the framework's processing thread, the
// life cycle and WriteEncodationLog on its control thread; the prior-watermark sightings, which
// both read, are locked.
#include <boost/format.hpp>
#include <boost/json.hpp>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "events/LumensealBasebandEmbedderPlugin.h"
#include "events/VWMEmbeddingEvent.h"
#include "events/WatermarkTime.h"
#include "framework/Logger.h"
#include "framework/NoThrow.h"
#include "framework/PluginRegistry.h"
#include "plugins/embedder/EmbeddingMeter.h"
#include "plugins/embedder/EncodationLogFile.h"
#include "plugins/watermark/WatermarkEmbedder.h"

namespace LumensealReference {
namespace {

constexpr char kEncodationLogProperty[] = "EncodationLogFile";
constexpr char kEncodationLogVariable[] = "QUILLMAR_ENCODATION_LOG";
constexpr char kEncodationLogName[] = "EncodationLog.jsonl";
constexpr char kLogFolder[] = "Logs";

// The prior watermarks of one CID that the detector found during a run.
struct PriorWatermarkSightings {
  std::uint64_t cid = 0;
  std::uint64_t reports = 0;
  std::uint64_t firstTimestamp = 0;
  std::uint64_t lastTimestamp = 0;
  double firstMediaDetectionTimestamp = 0.0;
  double lastMediaDetectionTimestamp = 0.0;
};

class LumensealBasebandEmbedderPlugin final : public Framework::LumensealBasebandEmbedderPlugin {
 public:
  explicit LumensealBasebandEmbedderPlugin(const Framework::PropertyBase& properties)
      : Framework::LumensealBasebandEmbedderPlugin(properties) {
    SetEmbeddedDurationInSeconds(0);
  }

  // Starts a run: nothing embedded, no prior watermarks, the strength of the selected program.
  bool Init() override {
    watermark_ = std::make_unique<Lumenseal::WatermarkEmbedder>(
        GetConstructionProperties().GetSeed(),
        Lumenseal::EmbedderStrength{GetGlobalDepth(), GetMaxLocalDepth()});
    slotStart_ = Framework::WatermarkTime::SecondsOf(GetSelectedStartTime());
    meter_.Reset();
    warnedNoFrameRate_ = false;
    beyondSlot_ = false;
    SetEmbeddedDurationInSeconds(0);
    std::lock_guard<std::mutex> lock(sightingsMutex_);
    sightings_.clear();
    return true;
  }

  using Framework::LumensealBasebandEmbedderPlugin::ProcessFrameVolatile;

  void ProcessFrameVolatile(Framework::Frame* frame, bool bypass) override {
    Framework::NoThrow("LumensealBasebandEmbedderPlugin::ProcessFrameVolatile", [&] {
      if (frame != nullptr) Meter(*frame, bypass);
    });
  }

  void ReportPriorWatermark(std::uint64_t cid, std::uint64_t timestamp,
                            double mediaDetectionTimestamp) override {
    Framework::NoThrow("LumensealBasebandEmbedderPlugin::ReportPriorWatermark", [&] {
      Framework::Logger::Info(
          boost::format("LumensealBasebandEmbedderPlugin::ReportPriorWatermark; CID %1%, "
                        "timestamp %2%, at %3% seconds") %
          cid % timestamp % mediaDetectionTimestamp);
      Record(cid, timestamp, mediaDetectionTimestamp);
    });
  }

  void WriteEncodationLog(const std::string& hostText1, const std::string& hostText2,
                          const std::string& facility, const std::string& hostText3,
                          const std::map<std::string, std::string>& metadata,
                          const std::string& configurationChecksum,
                          double averageEnergy) override {
    Framework::NoThrow("LumensealBasebandEmbedderPlugin::WriteEncodationLog", [&] {
      boost::json::object record = SlotRecord();
      record["HostText1"] = hostText1;
      record["HostText2"] = hostText2;
      record["Facility"] = facility;
      record["HostText3"] = hostText3;
      boost::json::object& fields = record["Metadata"].emplace_object();
      for (const auto& entry : metadata) fields[entry.first] = entry.second;
      record["ConfigurationChecksum"] = configurationChecksum;
      record["AverageEnergy"] = averageEnergy;
      record["PriorWatermarks"] = SightingsRecord();
      Append(record);
    });
  }

 private:
  void Meter(Framework::Frame& frame, bool bypass) {
    const double framesPerSecond =
        GetFrameRate() > 0.0 ? GetFrameRate() : frame.GetFormat().GetFrameRate();
    if (!(framesPerSecond > 0.0) && !warnedNoFrameRate_) {
      warnedNoFrameRate_ = true;
      Framework::Logger::Error(
          "LumensealBasebandEmbedderPlugin::ProcessFrameVolatile; no frame rate is set: the "
          "embedded duration cannot be kept");
    }
    const bool embedding = !bypass && !IsBeyondSlot();
    const auto average = meter_.AddFrame(
        framesPerSecond, embedding ? std::optional<float>(Embed(frame, framesPerSecond)) : std::nullopt);
    if (!average) return;
    SetEmbeddedDurationInSeconds(meter_.Seconds());
    GetEventSignal().Raise(Framework::VWMEmbeddingEvent(*average));
  }

  // Marks `frame`, the next of the run; the mean change applied to its luma.
  float Embed(Framework::Frame& frame, double framesPerSecond) {
    if (watermark_ == nullptr) return 0.0f;
    Lumenseal::EmbedRequest request;
    request.frameIndex = meter_.Frames();
    request.frameRate = framesPerSecond;
    request.cid = GetSelectedCID();
    request.slotStart = slotStart_;
    return static_cast<float>(watermark_->Embed(frame, request));
  }

  // True when the running second lies beyond the reserved slot; warns when a frame first does.
  bool IsBeyondSlot() {
    const std::uint64_t slotSeconds = GetSelectedDurationInSeconds();
    const bool beyond = slotSeconds != 0 && meter_.Seconds() >= slotSeconds;
    if (beyond && !beyondSlot_) {
      Framework::Logger::Warning(
          boost::format("LumensealBasebandEmbedderPlugin::ProcessFrameVolatile; the reserved time "
                        "slot of %1% seconds is used up: frames pass without a watermark until it "
                        "is extended") %
          slotSeconds);
    }
    beyondSlot_ = beyond;
    return beyond;
  }

  void Record(std::uint64_t cid, std::uint64_t timestamp, double mediaDetectionTimestamp) {
    std::lock_guard<std::mutex> lock(sightingsMutex_);
    auto sighting = sightings_.begin();
    while (sighting != sightings_.end() && sighting->cid != cid) ++sighting;
    if (sighting == sightings_.end()) {
      sighting = sightings_.insert(sighting, PriorWatermarkSightings{});
      sighting->cid = cid;
      sighting->firstTimestamp = timestamp;
      sighting->firstMediaDetectionTimestamp = mediaDetectionTimestamp;
    }
    ++sighting->reports;
    sighting->lastTimestamp = timestamp;
    sighting->lastMediaDetectionTimestamp = mediaDetectionTimestamp;
  }

  // The record's head: when, which channel, and the reserved time slot.
  boost::json::object SlotRecord() const {
    SYSTEMTIME now;
    Framework::GetCurrentUtcTime(&now);
    boost::json::object record;
    record["WrittenAtUtc"] = Framework::IsoUtcText(now);
    record["ChannelIndex"] = GetChannelIndex();
    record["CID"] = GetSelectedCID();
    record["SlotStart"] = Framework::IsoUtcText(GetSelectedStartTime());
    record["SlotLengthSeconds"] = GetSelectedDurationInSeconds();
    record["EmbeddedDurationInSeconds"] = GetEmbeddedDurationInSeconds();
    return record;
  }

  boost::json::array SightingsRecord() const {
    std::lock_guard<std::mutex> lock(sightingsMutex_);
    boost::json::array sightings;
    for (const PriorWatermarkSightings& sighting : sightings_) {
      sightings.push_back({{"CID", sighting.cid},
                           {"Reports", sighting.reports},
                           {"FirstTimestamp", sighting.firstTimestamp},
                           {"LastTimestamp", sighting.lastTimestamp},
                           {"FirstMediaDetectionTimestamp", sighting.firstMediaDetectionTimestamp},
                           {"LastMediaDetectionTimestamp", sighting.lastMediaDetectionTimestamp}});
    }
    return sightings;
  }

  std::filesystem::path EncodationLogPath() const {
    const std::string configured = GetProperty<std::string>(kEncodationLogProperty);
    if (!configured.empty()) return configured;
    const char* variable = std::getenv(kEncodationLogVariable);
    if (variable != nullptr && *variable != '\0') return variable;
    const std::filesystem::path log = Framework::Logger::FileLogPath();
    return (log.empty() ? std::filesystem::path(kLogFolder) : log.parent_path()) /
           kEncodationLogName;
  }

  void Append(const boost::json::object& record) const {
    const EncodationLogFile file(EncodationLogPath());
    std::string error;
    if (file.Append(boost::json::serialize(record), &error)) {
      Framework::Logger::Info("LumensealBasebandEmbedderPlugin::WriteEncodationLog; record "
                              "written to " + file.Path().string());
    } else {
      Framework::Logger::Error("LumensealBasebandEmbedderPlugin::WriteEncodationLog; " + error);
    }
  }

  // Made by Init, used by the processing thread
  std::unique_ptr<Lumenseal::WatermarkEmbedder> watermark_;
  std::int64_t slotStart_ = 0;  // "SelectedStartTime" in watermark seconds

  // Processing thread only
  EmbeddingMeter meter_;
  bool warnedNoFrameRate_ = false;
  bool beyondSlot_ = false;

  mutable std::mutex sightingsMutex_;
  // Guarded by sightingsMutex_; in the order the CIDs were first reported
  std::vector<PriorWatermarkSightings> sightings_;
};

QUILLMAR_REGISTER_PROCESSOR(LumensealBasebandEmbedderPlugin)

}  // namespace
}  // namespace LumensealReference
