#include "tools/ReportingListener.h"

#include <sstream>

namespace Quillmar::Tools {

void ReportingListener::Print(const std::string& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  stream_ << line << std::endl;
}

void ReportingListener::OnEmbeddingReport(float averageEnergy, bool embedding) {
  std::ostringstream line;
  line << "embedding: energy " << averageEnergy << (embedding ? "" : " (bypassed)");
  if (embedding) {
    std::lock_guard<std::mutex> lock(mutex_);
    energySum_ += averageEnergy;
    ++energyCount_;
  }
  Print(line.str());
}

void ReportingListener::OnError(const char* message) {
  ++errors_;
  Print(std::string("error: ") + message);
}

void ReportingListener::OnWarning(const char* message) { Print(std::string("warning: ") + message); }

void ReportingListener::OnInfo(const char* message) { Print(std::string("info: ") + message); }

void ReportingListener::OnDetection(bool detected, const char* payload, const char* timestamp,
                                    double quality) {
  std::ostringstream line;
  line << "detection: " << (detected ? "" : "none ") << "CID " << payload << ", time stamp "
       << timestamp << ", quality " << quality;
  Print(line.str());
}

double ReportingListener::AverageEnergy() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return energyCount_ > 0 ? energySum_ / energyCount_ : 0.0;
}

}  // namespace Quillmar::Tools
