// The host's listener: how a channel tells the host application what happens.
//
// The host implements this interface and hands the channel a pointer to it through the channel's
// "Listener" property; the channel does not own it. Every operation is called on the thread on
// which the reported event arose: Init and Start on the control thread, embedding reports and
// detections on the processing thread. Texts are zero-terminated and valid only during the call.
#pragma once

namespace Framework {

class QuillmarBasebandEmbedderListener {
 public:
  virtual ~QuillmarBasebandEmbedderListener() = default;

  // About once a second while embedding: the mean change applied to the picture, and whether the
  // frames were embedded (false while they bypass embedding because of a prior watermark).
  virtual void OnEmbeddingReport(float averageEnergy, bool embedding) = 0;

  // Something failed; the text says what, and whether to retry or fix the set-up.
  virtual void OnError(const char* message) = 0;

  // Something needs attention but the channel goes on.
  virtual void OnWarning(const char* message) = 0;

  // For information only.
  virtual void OnInfo(const char* message) = 0;

  // A watermark was found in the picture: its CID name (or "SCREENED"), its time stamp as
  // YYYYMMDDHHMMSS (or "SCREENED"), and the detection quality.
  virtual void OnDetection(bool detected, const char* payload, const char* timestamp,
                           double quality) = 0;
};

}  // namespace Framework
