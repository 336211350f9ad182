// quillmar detect: runs the detector plug-in alone, as the framework runs it inside a channel, over
// a Y4M stream or the synthetic source, and prints every detection and every change of presence.
#include <boost/json.hpp>
#include <iomanip>
#include <iostream>

#include "events/LumensealBasebandDetectorPlugin.h"
#include "events/VWMDetectionEvent.h"
#include "events/WatermarkTime.h"
#include "framework/Licenser.h"
#include "framework/PluginRegistry.h"
#include "plugins/detector/include/CBasebandWMDetection.h"
#include "plugins/detector/include/LSNDetection.h"
#include "tools/ChannelLibrary.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/FrameInput.h"

namespace Quillmar::Tools {
namespace {

constexpr char kProductName[] = "QuillmarBasebandSDK";
constexpr char kDetectorClass[] = "LumensealBasebandDetectorPlugin";
constexpr char kDetectorInstance[] = "LumensealDetector";

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
      std::cout << boost::json::serialize(boost::json::object{
                       {"cid", detection.cid},
                       {"timestamp", timestamp},
                       {"quality", detection.quality},
                       {"media_time", detection.mediaDetectionTimestamp}})
                << std::endl;
      return;
    }
    std::cout << "CID " << detection.cid << "  time " << timestamp << "  quality " << std::fixed
              << std::setprecision(2) << detection.quality << "  at " << detection.mediaDetectionTimestamp
              << " s" << std::defaultfloat << std::endl;
  }

  void Print(const CBasebandWMDetection& presence) {
    if (json_) {
      std::cout << boost::json::serialize(boost::json::object{
                       {"presence", presence.state}, {"media_time", presence.mediaDetectionTimestamp}})
                << std::endl;
      return;
    }
    std::cout << (presence.state == CBasebandWMDetection::kPresent ? "watermark present" : "watermark gone")
              << "  at " << std::fixed << std::setprecision(2) << presence.mediaDetectionTimestamp << " s"
              << std::defaultfloat << std::endl;
  }

  const bool json_;
  int detections_ = 0;
};

// A detector made the way a channel makes it: by class name, from its construction properties,
// with the licence's seed, from the plug-in path of the channel library.
std::unique_ptr<Framework::ProcessorBase> CreateDetector(const ChannelLibrary& library) {
  Framework::LumensealBasebandDetectorPlugin::ConstructionProperties properties;
  properties.SetProperty("ChannelIndex", std::int32_t{0});
  properties.SetProperty("Seed", Framework::Licenser(kProductName).GetSeed());
  properties.SetProperty("MacAddress", std::string("----"));
  properties.SetProperty("PreDetectorPeriod", std::int32_t{5});
  properties.SetProperty("IsBlockingDetector", true);
  properties.SetProperty("IsReportingNotFound", false);
  properties.SetProperty("IsOnStopReportCachedBuffers", false);
  const auto folders =
      Framework::PluginRegistry::SearchPath(library.EntryPoint("CreateProcessor"));
  std::unique_ptr<Framework::ProcessorBase> detector(
      Framework::PluginRegistry::Instance().Create(kDetectorClass, properties, folders));
  if (detector == nullptr) throw std::runtime_error("cannot create the detector plug-in");
  detector->SetName(kDetectorInstance);
  return detector;
}

int RunDetection(const DetectOptions& options) {
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
  while (input->Next(frame)) detector->DeliverFrame(&frame);
  detector->StopProcessor();
  detector->DeinitProcessor();
  return printer.Detections();
}

void AddDetectCommand(CLI::App& app) {
  auto options = std::make_shared<DetectOptions>();
  CLI::App* command = app.add_subcommand("detect", "Find watermarks in a video stream");
  AddFrameInputOptions(*command, options->input);
  command->add_flag("--json", options->json, "One JSON object per line");
  command->callback([options] {
    try {
      const int detections = RunDetection(*options);
      if (!options->json) std::cerr << detections << " seconds decoded" << std::endl;
    } catch (const std::exception& error) {
      std::cerr << "quillmar detect: " << error.what() << std::endl;
      SetExitStatus(1);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddDetectCommand)

}  // namespace Quillmar::Tools
