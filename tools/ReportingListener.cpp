#include "tools/ReportingListener.h"

#include <sstream>

namespace Quillmar::Tools {

void ReportingListener::OnEmbeddingReport(float averageEnergy, bool embedding) {
  if (!verbose_) return;
  std::ostringstream line;
  line << "embedding: energy " << averageEnergy << (embedding ? "" : " (bypassed)");
  console_.Line(line.str());
}

void ReportingListener::OnError(const char* message) {
  ++errors_;
  console_.Line(std::string("error: ") + message);
}

void ReportingListener::OnWarning(const char* message) {
  console_.Line(std::string("warning: ") + message);
}

void ReportingListener::OnInfo(const char* message) {
  console_.Line(std::string("info: ") + message);
}

void ReportingListener::OnDetection(bool detected, const char* payload, const char* timestamp,
                                    double quality) {
  std::ostringstream line;
  line << "detection: " << (detected ? "" : "none ") << "CID " << payload << ", time stamp "
       << timestamp << ", quality " << quality;
  console_.Line(line.str());
}

}  // namespace Quillmar::Tools
