#include "tools/Detector.h"

#include <stdexcept>

#include "events/LumensealBasebandDetectorPlugin.h"
#include "framework/Licenser.h"
#include "framework/PluginRegistry.h"

namespace Quillmar::Tools {
namespace {

constexpr char kProductName[] = "QuillmarBasebandSDK";
constexpr char kDetectorClass[] = "LumensealBasebandDetectorPlugin";
constexpr char kDetectorInstance[] = "LumensealDetector";

}  // namespace

std::unique_ptr<Framework::ProcessorBase> CreateDetector(const ChannelLibrary& library) {
  Framework::LumensealBasebandDetectorPlugin::ConstructionProperties properties;
  properties.SetProperty("ChannelIndex", std::int32_t{0});
  properties.SetProperty("Seed", Framework::Licenser(kProductName).GetSeed());
  properties.SetProperty("MacAddress", std::string("----"));
  properties.SetProperty("PreDetectorPeriod", std::int32_t{5});
  properties.SetProperty("IsBlockingDetector", true);
  properties.SetProperty("IsReportingNotFound", false);
  properties.SetProperty("IsOnStopReportCachedBuffers", false);
  const auto folders = Framework::PluginRegistry::SearchPath(library.EntryPoint("CreateProcessor"));
  std::unique_ptr<Framework::ProcessorBase> detector(
      Framework::PluginRegistry::Instance().Create(kDetectorClass, properties, folders));
  if (detector == nullptr) throw std::runtime_error("cannot create the detector plug-in");
  detector->SetName(kDetectorInstance);
  return detector;
}

}  // namespace Quillmar::Tools
