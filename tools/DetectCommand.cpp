// quillmar detect: runs the detector plug-in alone, as the framework runs it inside a channel, over
// a Y4M stream or the synthetic source, and prints every detection and every change of presence.
// Exits as grep does: 0 when a watermark was decoded, 1 when none was, 2 on an error.
#include <boost/json.hpp>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "events/VWMDetectionEvent.h"
#include "framework/AlgorithmBase.h"
#include "events/WatermarkTime.h"
#include "framework/platform/StopRequests.h"
#include "framework/platform/StreamFile.h"
#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"
#include "tools/ChannelLibrary.h"
#include "tools/Detector.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/FrameInput.h"
#include "tools/JsonOutput.h"

namespace Quillmar::Tools {
namespace {

// The detector needs a few whole seconds of marked video to lock on.
constexpr double kSecondsToDecode = 3.0;

struct DetectOptions {
  FrameInputOptions input;
  bool json = false;
};

// Prints detections and presence changes, as text or as one JSON object per line.
class DetectionPrinter {
 public:
  explicit DetectionPrinter(bool json) : json_(json) {}

  void operator()(const Framework::VWMDetectionEvent& event) {
    if (const LSNDetection* detection = event.GetDetection()) {
      Print(*detection);
    } else if (const CBasebandWMDetection* presence = event.GetPresence()) {
      Print(*presence);
    }
  }

  int Detections() const { return detections_; }

 private:
  void Print(const LSNDetection& detection) {
    if (!detection.isFound) return;
    ++detections_;
    const std::string timestamp = Framework::WatermarkTime::Digits(detection.timestamp);
    if (json_) {
      PrintJson(std::cout, boost::json::object{{"cid", detection.cid},
                                               {"time", Framework::WatermarkTime::IsoText(detection.timestamp)},
                                               {"timestamp", timestamp},
                                               {"quality", detection.quality},
                                               {"media_time", detection.mediaDetectionTimestamp}});
      return;
    }
    std::cout << "CID " << detection.cid << "  time " << timestamp << "  quality " << std::fixed
              << std::setprecision(2) << detection.quality << "  at " << detection.mediaDetectionTimestamp
              << " s" << std::defaultfloat << std::endl;
  }

  void Print(const CBasebandWMDetection& presence) {
    if (json_) {
      PrintJson(std::cout, boost::json::object{{"presence", presence.state},
                                               {"media_time", presence.mediaDetectionTimestamp}});
      return;
    }
    std::cout << (presence.state == CBasebandWMDetection::kPresent ? "watermark present" : "watermark gone")
              << "  at " << std::fixed << std::setprecision(2) << presence.mediaDetectionTimestamp << " s"
              << std::defaultfloat << std::endl;
  }

  const bool json_;
  int detections_ = 0;
};

// What a detection run read, and how it ended.
struct DetectionRun {
  std::uint64_t frames = 0;
  double seconds = 0.0;
  int detections = 0;
  bool interrupted = false;
};

// "12 seconds decoded in 250 frames (10.0 s of video)", with a hint when the video was too short
// to decode anything.
std::string SummaryLine(const DetectionRun& run) {
  std::ostringstream line;
  line << run.detections << " seconds decoded in " << run.frames << " frames (" << std::fixed
       << std::setprecision(1) << run.seconds << " s of video)";
  if (run.interrupted) line << "; interrupted";
  if (run.detections == 0 && run.seconds < kSecondsToDecode) {
    line << "; fewer than about " << std::defaultfloat << kSecondsToDecode
         << " s of video cannot be decoded";
  }
  return line.str();
}

DetectionRun RunDetection(const DetectOptions& options) {
  auto input = OpenFrameInput(options.input);
  ChannelLibrary library;
  auto detector = CreateDetector(library);
  auto* algorithm = dynamic_cast<Framework::AlgorithmBase*>(detector.get());
  DetectionPrinter printer(options.json);
  auto connection = algorithm->GetEventSignal().ConnectFor<Framework::VWMDetectionEvent>(
      [&printer](const Framework::VWMDetectionEvent& event) { printer(event); });
  detector->SetFormat(input->Format());
  if (!detector->InitProcessor() || !detector->StartProcessor()) {
    throw std::runtime_error("the detector plug-in did not start");
  }
  Framework::Frame frame(input->Format());
  DetectionRun run;
  try {
    while (Framework::StopRequests::Count() == 0 && input->Next(frame)) {
      detector->DeliverFrame(&frame);
      ++run.frames;
    }
  } catch (const Framework::StreamInterrupted&) {
  }
  run.interrupted = Framework::StopRequests::Count() > 0;
  detector->StopProcessor();
  detector->DeinitProcessor();
  run.seconds = static_cast<double>(run.frames) / input->Format().GetFrameRate();
  run.detections = printer.Detections();
  return run;
}

void AddDetectCommand(CLI::App& app) {
  auto options = std::make_shared<DetectOptions>();
  CLI::App* command = app.add_subcommand("detect", "Find watermarks in a video stream");
  AddFrameInputOptions(*command, options->input);
  command->add_flag("--json", options->json, "One JSON object per line");
  command->callback([options] {
    Framework::StopRequests::Install();
    try {
      const DetectionRun run = RunDetection(*options);
      std::cerr << SummaryLine(run) << std::endl;
      if (run.interrupted) {
        SetExitStatus(kExitSignalBase + Framework::StopRequests::FirstSignal());
      } else {
        SetExitStatus(run.detections > 0 ? kDetectFound : kDetectNothing);
      }
    } catch (const std::exception& error) {
      std::cerr << "quillmar detect: " << error.what() << std::endl;
      SetExitStatus(kDetectError);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddDetectCommand)

}  // namespace Quillmar::Tools
