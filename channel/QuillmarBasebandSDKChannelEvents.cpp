// The channel's reactions to events: the host's framework events, the licence events, and the
// embedder's energy reports.
#include <iostream>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/CompletedEvent.h"
#include "framework/DroppedFrameEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/LicenseInvalidatedEvent.h"
#include "framework/LicenseWarningEvent.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/NoThrow.h"
#include "framework/ProgressEvent.h"
#include "framework/SignalLostEvent.h"
#include "framework/SignalResumedEvent.h"

namespace Framework {
namespace {

// Energy reports at or below this mark carry no measurement.
constexpr float kNoEnergy = -0.5f;

}  // namespace

void QuillmarBasebandSDKChannel::ConnectFrameworkEvents() {
  using Channel = QuillmarBasebandSDKChannel;
  const auto connection = [this](FrameworkEvent kind) -> EventConnection& {
    return frameworkConnections.at(static_cast<std::size_t>(kind));
  };
  const auto signal = [this](FrameworkEvent kind) -> EventSignal<EventBase>& {
    return GetFrameworkSignal(kind);
  };
  using Kind = FrameworkEvent;
  connection(Kind::Progress) = signal(Kind::Progress).ConnectFor(this, &Channel::OnProgress);
  connection(Kind::Completed) = signal(Kind::Completed).ConnectFor(this, &Channel::OnCompleted);
  connection(Kind::DroppedFrame) =
      signal(Kind::DroppedFrame).ConnectFor(this, &Channel::OnDroppedFrame);
  connection(Kind::SignalLost) = signal(Kind::SignalLost).ConnectFor(this, &Channel::OnSignalLost);
  connection(Kind::SignalResumed) =
      signal(Kind::SignalResumed).ConnectFor(this, &Channel::OnSignalResumed);
  connection(Kind::FormatChanged) =
      signal(Kind::FormatChanged).ConnectFor(this, &Channel::OnFormatChanged);
  connection(Kind::MemoryAllocationError) =
      signal(Kind::MemoryAllocationError).ConnectFor(this, &Channel::OnMemoryAllocationError);
}

void QuillmarBasebandSDKChannel::DisconnectFrameworkEvents() {
  for (EventConnection& connection : frameworkConnections) connection.disconnect();
}

void QuillmarBasebandSDKChannel::OnProgress(const ProgressEvent& event) {
  ProgressEvent relayed(event);
  relayed.SetSender(GetSender());
  GetChannelSignal(ChannelSignal::Progress).Raise(relayed);
}

void QuillmarBasebandSDKChannel::OnCompleted(const CompletedEvent& event) {
  GetChannelSignal(ChannelSignal::Completed).Raise(event);
}

void QuillmarBasebandSDKChannel::OnDroppedFrame(const DroppedFrameEvent&) {
  std::cout << "Frame is dropped" << std::endl;
}

void QuillmarBasebandSDKChannel::OnSignalLost(const SignalLostEvent&) {
  std::cout << "Signal lost" << std::endl;
}

void QuillmarBasebandSDKChannel::OnSignalResumed(const SignalResumedEvent&) {
  std::cout << "Signal resumed" << std::endl;
}

void QuillmarBasebandSDKChannel::OnFormatChanged(const FormatChangedEvent& event) {
  std::cout << "Format changed to: " << event.GetNewFormat() << std::endl;
  RequestStop();
}

void QuillmarBasebandSDKChannel::OnMemoryAllocationError(const MemoryAllocationErrorEvent& event) {
  std::cout << event.GetText() << std::endl;
  RequestStop();
}

// The next frame stops the channel.
void QuillmarBasebandSDKChannel::RequestStop() {
  std::lock_guard<std::mutex> lock(stateMutex);
  stopRequested = true;
}

void QuillmarBasebandSDKChannel::OnLicenseWarningEvent(const LicenseWarningEvent&) {
  if (listener != nullptr) listener->OnWarning("License will expire within 30 days.");
}

void QuillmarBasebandSDKChannel::OnLicenseInvalidatedEvent(const LicenseInvalidatedEvent& event) {
  lastError = QuillmarBasebandEmbedder::ErrorLicenseInvalidated;
  const std::string message = event.GetMessage();
  if (listener != nullptr) {
    listener->OnError(message.c_str());
  } else {
    pendingListenerMessages.push_back(message);
  }
  lastErrorText = message;
}

void QuillmarBasebandSDKChannel::OnVWMEmbeddingEvent(const VWMEmbeddingEvent& event) {
  const float energy = event.GetAverageEnergy();
  if (energy <= kNoEnergy) return;
  if (GetListener() != nullptr) GetListener()->OnEmbeddingReport(energy, !embeddingPending);
  if (!embeddingPending) {
    energySum += static_cast<double>(energy);
    ++energyCount;
  }
  GetChannelSignal(ChannelSignal::Embedding).Raise(event);
}

}  // namespace Framework
