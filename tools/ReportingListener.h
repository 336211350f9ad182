// A host listener that prints every report of the channel as one line, and keeps what a summary
// needs: the number of errors and the mean of the energies reported while embedding.
// Reports arrive on the control and the processing thread; the counters are atomic and each line
// is written whole.
#pragma once

#include <atomic>
#include <mutex>
#include <ostream>

#include "channel/QuillmarBasebandEmbedderListener.h"

namespace Quillmar::Tools {

class ReportingListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  explicit ReportingListener(std::ostream& stream) : stream_(stream) {}

  void OnEmbeddingReport(float averageEnergy, bool embedding) override;
  void OnError(const char* message) override;
  void OnWarning(const char* message) override;
  void OnInfo(const char* message) override;
  void OnDetection(bool detected, const char* payload, const char* timestamp,
                   double quality) override;

  int ErrorCount() const { return errors_; }
  // The mean of the energies reported while embedding; 0 when there were none.
  double AverageEnergy() const;

 private:
  void Print(const std::string& line);

  std::ostream& stream_;
  mutable std::mutex mutex_;
  std::atomic<int> errors_{0};
  double energySum_ = 0.0;  // Guarded by mutex_
  int energyCount_ = 0;     // Guarded by mutex_
};

}  // namespace Quillmar::Tools
