// A host listener that writes every report of the channel as one line on the console: errors,
// warnings, notices and detections always, energy reports only when verbose. Keeps the number of
// errors. Reports arrive on the control and the processing thread.
#pragma once

#include <atomic>
#include <string>

#include "channel/QuillmarBasebandEmbedderListener.h"
#include "tools/Console.h"

namespace Quillmar::Tools {

class ReportingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  ReportingListener(Console& console, bool verbose) : console_(console), verbose_(verbose) {}

  void OnEmbeddingReport(float averageEnergy, bool embedding) override;
  void OnError(const char* message) override;
  void OnWarning(const char* message) override;
  void OnInfo(const char* message) override;
  void OnDetection(bool detected, const char* payload, const char* timestamp,
                   double quality) override;

  int ErrorCount() const { return errors_; }

 private:
  Console& console_;
  const bool verbose_;
  std::atomic<int> errors_{0};
};

}  // namespace Quillmar::Tools
