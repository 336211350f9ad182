#include "tools/EmbeddingSession.h"

#include <stdexcept>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "events/VWMDetectionEvent.h"
#include "events/VWMEmbeddingEvent.h"
#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"

namespace Quillmar::Tools {

// The channel, created through the library's entry points and deleted through them.
class EmbeddingSession::Channel {
 public:
  explicit Channel(const ChannelLibrary& library)
      : library_(library),
        processor_(library.CreateProcessor(Framework::PropertyBase())),
        channel_(dynamic_cast<Framework::QuillmarBasebandSDKChannel*>(processor_)) {
    if (channel_ == nullptr) {
      library_.DeleteProcessor(processor_);
      throw std::runtime_error("the library made no channel");
    }
  }
  ~Channel() { library_.DeleteProcessor(processor_); }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  Framework::QuillmarBasebandSDKChannel* operator->() const { return channel_; }

 private:
  const ChannelLibrary& library_;
  Framework::ProcessorBase* processor_;
  Framework::QuillmarBasebandSDKChannel* channel_;
};

bool ReadSessionCids(const std::string& configFile, const std::string& program,
                     SessionRequest& request, std::string& problem) {
  QuillmarBasebandSDK::QuillmarBasebandConfigurationState state(configFile, "COMMON");
  if (!state.ParseConfiguration(true)) {
    problem = "configuration " + configFile + ": " + state.GetErrorText();
    return false;
  }
  bool found = false;
  for (const auto& entry : state.GetPrograms()) {
    for (const auto eid : entry.vwm.eids) {
      request.configurationCids.push_back(static_cast<unsigned>(eid));
      if (entry.name == program) request.programCids.push_back(static_cast<unsigned>(eid));
    }
    found = found || entry.name == program;
  }
  if (!found) {
    problem = "program " + program + " is not in " + configFile;
    return false;
  }
  request.configurationCids.sort();
  request.configurationCids.unique();
  return true;
}

EmbeddingSession::EmbeddingSession(const ChannelLibrary& library,
                                   Framework::QuillmarBasebandEmbedderListener& listener)
    : library_(library), listener_(listener) {}

EmbeddingSession::~EmbeddingSession() { Close(); }

bool EmbeddingSession::Open(const SessionRequest& request) {
  request_ = request;
  channel_ = std::make_unique<Channel>(library_);
  Channel& channel = *channel_;
  channel->OnCreateChannel(request.channelIndex);
  channel->SetListener(&listener_);
  channel->SetConfigFile(request.configFile);
  channel->SetProgramName(request.program);
  channel->SetEmbeddingDuration(request.durationSeconds);
  channel->SetAllCIDsInProgram(request.programCids);
  channel->SetAllEmbedderCIDsInConfig(request.configurationCids);
  channel->SetFrameRate(request.format.GetFrameRate());
  channel->SetFormatInfo(request.format);
  channel->SetVwmDetectorOn(request.detector);
  detectionConnection_ =
      channel->GetChannelSignal(Framework::ChannelSignal::Detection)
          .ConnectFor<Framework::VWMDetectionEvent>(
              [this](const Framework::VWMDetectionEvent& event) { OnDetection(event); });
  embeddingConnection_ =
      channel->GetChannelSignal(Framework::ChannelSignal::Embedding)
          .ConnectFor<Framework::VWMEmbeddingEvent>(
              [this](const Framework::VWMEmbeddingEvent& event) { OnEmbedding(event); });

  // A channel that is not licensed reports it as soon as it has a listener: a run that cannot be
  // licensed takes no slot.
  initialised_ = channel->GetLastError() != QuillmarBasebandEmbedder::ErrorLicenseInvalidated &&
                 channel->InitProcessor();
  if (!initialised_) {
    KeepLastError();
    Close();
    return false;
  }
  if (!channel->StartProcessor()) {
    KeepLastError();
    return false;
  }
  return true;
}

void EmbeddingSession::KeepLastError() {
  lastError_ = (*channel_)->GetLastError();
  lastErrorText_ = (*channel_)->GetLastErrorText();
}

bool EmbeddingSession::Deliver(Framework::Frame& frame) {
  if (channel_ == nullptr || !(*channel_)->DeliverFrame(&frame)) return false;
  ++summary_.frames;
  ++(pending_ ? summary_.bypassedFrames : summary_.embeddedFrames);
  return true;
}

// Runs on the processing thread, inside Deliver: the channel's detector looks at a frame before
// the embedder marks it, so `pending_` after a frame says whether that frame was bypassed.
void EmbeddingSession::OnDetection(const Framework::VWMDetectionEvent& event) {
  if (const CBasebandWMDetection* presence = event.GetPresence()) {
    pending_ = presence->state == CBasebandWMDetection::kPresent;
    if (pending_ && !summary_.priorWatermark) summary_.priorWatermark.emplace();
    return;
  }
  const LSNDetection* detection = event.GetDetection();
  if (detection == nullptr || !detection->isFound) return;
  PriorWatermark& prior =
      summary_.priorWatermark ? *summary_.priorWatermark : summary_.priorWatermark.emplace();
  if (prior.seconds == 0) prior.firstTimestamp = detection->timestamp;
  prior.cid = detection->cid;
  prior.lastTimestamp = detection->timestamp;
  ++prior.seconds;
}

void EmbeddingSession::OnEmbedding(const Framework::VWMEmbeddingEvent& event) {
  if (pending_) return;
  energySum_ += event.GetAverageEnergy();
  ++energyCount_;
}

const SessionSummary& EmbeddingSession::Close() {
  if (channel_ == nullptr) return summary_;
  Channel& channel = *channel_;
  if (initialised_) {
    // The record before Stop, which releases the configuration and the database: writing it
    // finalises the slot to the seconds embedded.
    channel->WriteEncodationLog(request_.recordTexts[0], request_.recordTexts[1],
                                request_.recordTexts[2], request_.metadata);
    channel->StopProcessor();
    Framework::AlgorithmBase* embedder = channel->GetAlgorithm(Framework::kEmbedderInstance);
    if (embedder != nullptr) {
      summary_.cid = embedder->GetProperty<std::uint32_t>("SelectedCID");
      summary_.start = embedder->GetProperty<SYSTEMTIME>("SelectedStartTime");
      summary_.reservedSeconds = embedder->GetProperty<std::uint64_t>("SelectedDurationInSeconds");
      summary_.embeddedSeconds = embedder->GetProperty<std::uint64_t>("EmbeddedDurationInSeconds");
    }
    summary_.averageEnergy =
        energyCount_ > 0 ? energySum_ / static_cast<double>(energyCount_) : 0.0;
  }
  channel->DeinitProcessor();
  KeepLastError();
  detectionConnection_.disconnect();
  embeddingConnection_.disconnect();
  channel_.reset();
  return summary_;
}

}  // namespace Quillmar::Tools
