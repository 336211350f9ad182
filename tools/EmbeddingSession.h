// One embedding session of a channel made through the library's entry points, run the way a host
// runs it. Open reserves the time slot and starts the channel; Deliver marks frames; Close writes
// the encodation record (which finalises the slot to the seconds embedded), stops the channel and
// releases it. Close runs on every way out: the destructor closes a session still open.
//
// Threads: Open and Close on the host's control thread, Deliver on its processing thread, never
// at the same time as Close (join the processing thread first).
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channel/ErrorCode.h"
#include "channel/QuillmarBasebandEmbedderListener.h"
#include "framework/EventSignal.h"
#include "framework/Frame.h"
#include "framework/platform/SystemTime.h"
#include "tools/ChannelLibrary.h"

namespace Framework {
class QuillmarBasebandSDKChannel;
class VWMDetectionEvent;
class VWMEmbeddingEvent;
}  // namespace Framework

namespace Quillmar::Tools {

// What a session embeds, and the record it leaves.
struct SessionRequest {
  std::string configFile;
  std::string program;
  std::uint32_t durationSeconds = 0;  // 0: open-ended, extended as the run goes on
  bool detector = true;               // look for prior watermarks, and pause while one is there
  std::uint64_t channelIndex = 0;
  std::vector<unsigned> programCids;
  std::list<unsigned> configurationCids;
  Framework::VideoFormatInfo format;
  // The encodation record's three host texts and its metadata.
  std::string recordTexts[3];
  std::map<std::string, std::string> metadata;
};

// Fills the CIDs of `request` from the configuration file: the EIDs of `program`, and every EID
// the configuration names. False, with `problem` saying why, when the configuration does not load
// or has no such program: nothing would succeed, so nothing should be reserved.
bool ReadSessionCids(const std::string& configFile, const std::string& program,
                     SessionRequest& request, std::string& problem);

// A watermark that was in the picture before this session marked it.
struct PriorWatermark {
  std::optional<std::uint64_t> cid;  // none while it was only present, never decoded
  std::uint64_t seconds = 0;         // seconds decoded
  std::int64_t firstTimestamp = 0;   // watermark times (seconds since 2000) of the first and
  std::int64_t lastTimestamp = 0;    // the last second decoded
};

// What a closed session did.
struct SessionSummary {
  unsigned cid = 0;
  SYSTEMTIME start{};
  std::uint64_t reservedSeconds = 0;
  std::uint64_t embeddedSeconds = 0;
  double averageEnergy = 0.0;  // mean energy of the reports made while embedding
  std::uint64_t frames = 0;
  std::uint64_t embeddedFrames = 0;
  std::uint64_t bypassedFrames = 0;  // passed unmarked while a prior watermark was present
  std::optional<PriorWatermark> priorWatermark;
};

class EmbeddingSession {
 public:
  // The channel reports to `listener`, which must outlive the session.
  EmbeddingSession(const ChannelLibrary& library,
                   Framework::QuillmarBasebandEmbedderListener& listener);
  ~EmbeddingSession();
  EmbeddingSession(const EmbeddingSession&) = delete;
  EmbeddingSession& operator=(const EmbeddingSession&) = delete;

  // Creates and configures the channel, reserves the slot (Init) and starts it. False when the
  // licence is not valid or either step fails (LastError says why); the session is then closed
  // already when nothing was reserved, and gives its slot back at Close when Start failed.
  bool Open(const SessionRequest& request);

  // Marks `frame` in place (or passes it while a prior watermark is present). False once the
  // channel takes no more frames.
  bool Deliver(Framework::Frame& frame);

  // Writes the record, finalises the slot, stops and releases the channel. Later calls only
  // return the summary.
  const SessionSummary& Close();

  // The channel's last error when Open failed or the session closed.
  QuillmarBasebandEmbedder::ErrorCode LastError() const { return lastError_; }
  const std::string& LastErrorText() const { return lastErrorText_; }

 private:
  class Channel;

  void OnDetection(const Framework::VWMDetectionEvent& event);
  void OnEmbedding(const Framework::VWMEmbeddingEvent& event);
  void KeepLastError();

  const ChannelLibrary& library_;
  Framework::QuillmarBasebandEmbedderListener& listener_;
  std::unique_ptr<Channel> channel_;  // null once closed
  SessionRequest request_;
  bool initialised_ = false;
  QuillmarBasebandEmbedder::ErrorCode lastError_ = QuillmarBasebandEmbedder::ErrorNone;
  std::string lastErrorText_;
  Framework::EventConnection detectionConnection_;
  Framework::EventConnection embeddingConnection_;

  // Processing thread until Close
  SessionSummary summary_;
  bool pending_ = false;  // a prior watermark is present: the channel bypasses frames
  double energySum_ = 0.0;
  std::uint64_t energyCount_ = 0;
};

}  // namespace Quillmar::Tools
