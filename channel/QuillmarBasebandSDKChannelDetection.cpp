// The channel's detection path: every decoded watermark is reported to the embedder, screened
// against the client's CIDs and reported to the listener; a prior watermark in the picture
// pauses embedding until it has gone.
#include <boost/format.hpp>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "events/VWMDetectionEvent.h"
#include "events/WatermarkTime.h"
#include "framework/Logger.h"
#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"

namespace Framework {
namespace {

constexpr char kScreened[] = "SCREENED";
constexpr char kAdmitsEveryCid[] = "0";
constexpr char kPriorWatermarkFound[] = "Prior watermark found - embedding pending.";
constexpr char kPriorWatermarkGone[] = "Prior watermark no longer present - embedding resumed.";

}  // namespace

void QuillmarBasebandSDKChannel::OnVWMDetectionEvent(const VWMDetectionEvent& event) {
  if (const LSNDetection* detection = event.GetDetection()) {
    OnDetection(*detection);
  } else if (const CBasebandWMDetection* presence = event.GetPresence()) {
    OnPresence(presence->state);
  }
  GetChannelSignal(ChannelSignal::Detection).Raise(event);
}

void QuillmarBasebandSDKChannel::OnDetection(const LSNDetection& detection) {
  if (LumensealBasebandEmbedderPlugin* embedder = Embedder()) {
    embedder->ReportPriorWatermark(detection.cid, static_cast<std::uint64_t>(detection.timestamp),
                                   detection.mediaDetectionTimestamp);
  }
  if (!IsCidAllowedToDetect(static_cast<std::uint32_t>(detection.cid))) {
    Logger::Info("User notified: Payload detected, but CID does not belong to the client - screened.");
    if (listener != nullptr) listener->OnDetection(true, kScreened, kScreened, 0.0);
    return;
  }
  const std::string timestamp = WatermarkTime::Digits(detection.timestamp);
  Logger::Info(boost::format("User notified: Payload detected, CID %1%, Timestamp %2%, Q %3%") %
               detection.cidName % timestamp % detection.quality);
  if (listener != nullptr) {
    listener->OnDetection(true, detection.cidName.c_str(), timestamp.c_str(), detection.quality);
  }
}

void QuillmarBasebandSDKChannel::OnPresence(std::int32_t state) {
  const bool present = state == CBasebandWMDetection::kPresent;
  if (present && !embeddingPending) {
    embeddingPending = true;
    Logger::Warning(std::string("User notified: ") + kPriorWatermarkFound);
    if (listener != nullptr) listener->OnWarning(kPriorWatermarkFound);
  } else if (!present && embeddingPending) {
    embeddingPending = false;
    Logger::Info(std::string("User notified: ") + kPriorWatermarkGone);
    if (listener != nullptr) listener->OnInfo(kPriorWatermarkGone);
  }
}

bool QuillmarBasebandSDKChannel::IsCidAllowedToDetect(unsigned cid) const {
  if (configurationState == nullptr) return false;
  const auto& allowed = configurationState->GetClientCids();
  return allowed.count(std::to_string(cid)) != 0 || allowed.count(kAdmitsEveryCid) != 0;
}

}  // namespace Framework
