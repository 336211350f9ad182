// Construction, life cycle, properties and error reporting of the channel.
#include "channel/QuillmarBasebandSDKChannel.h"

#include <boost/format.hpp>

#include "config/QuillmarBasebandConfigurationState.h"
#include "database/TimeSlotReservoir.h"
#include "events/LumensealBasebandDetectorPlugin.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "events/VWMDetectionEvent.h"
#include "events/VWMEmbeddingEvent.h"
#include "framework/CompletedEvent.h"
#include "framework/DroppedFrameEvent.h"
#include "framework/FormatChangedEvent.h"
#include "framework/LicenseInvalidatedEvent.h"
#include "framework/LicenseWarningEvent.h"
#include "framework/Logger.h"
#include "framework/MemoryAllocationErrorEvent.h"
#include "framework/NoThrow.h"
#include "framework/ProgressEvent.h"
#include "framework/SignalLostEvent.h"
#include "framework/SignalResumedEvent.h"
#include "logging/BuildInfo.h"

namespace Framework {
namespace {

constexpr char kProductName[] = "QuillmarBasebandSDK";
constexpr char kProductVersion[] = "1.0";
constexpr int kLicenseCheckIntervalMinutes = 60;
constexpr char kConfigurationSection[] = "COMMON";

// Detector construction values.
constexpr char kDetectorMacAddress[] = "----";
constexpr std::int32_t kPreDetectorPeriod = 5;

// Seconds processed: a partial second counts as a whole one. 0 without a usable frame rate.
double ProcessedSeconds(std::uint32_t frames, double framesPerSecond) {
  if (framesPerSecond <= 0.0) return 0.0;
  return ((framesPerSecond - 1.0) + frames) / framesPerSecond;
}

}  // namespace

QuillmarBasebandSDKChannel::QuillmarBasebandSDKChannel(const PropertyBase&)
    : ChannelBaseLicensed(kProductName, GetDefaultPlugins(), kProductVersion,
                          kLicenseCheckIntervalMinutes, "") {
  SetName("QuillmarBasebandSDKChannel");
  Logger::Info(QuillmarBasebandSDK::BuildInfo::Text(QuillmarBasebandSDK::BuildInfo::kBuildInfoKey));
  SetVwmDetectorOn(true);
  SetFormatInfo(VideoFormatInfo());
  SetListener(nullptr);
  SetConfigFile("");
  SetProgramName("");
  SetFrameRate(0.0);
  licenseInvalidatedConnection = GetLicenseInvalidatedSignal().ConnectFor(
      this, &QuillmarBasebandSDKChannel::OnLicenseInvalidatedEvent);
  licenseWarningConnection = GetLicenseWarningSignal().ConnectFor(
      this, &QuillmarBasebandSDKChannel::OnLicenseWarningEvent);
}

QuillmarBasebandSDKChannel::~QuillmarBasebandSDKChannel() {
  NoThrow("QuillmarBasebandSDKChannel::~QuillmarBasebandSDKChannel", [this] {
    databaseHandler.reset();
    configurationState.reset();
  });
}

void QuillmarBasebandSDKChannel::OnCreateChannel(std::uint64_t channelIndex) {
  NoThrow("QuillmarBasebandSDKChannel::OnCreateChannel", [&] {
    ChannelBaseLicensed::CreateChannel(channelIndex);
    maxNrChannels = 1;
    const auto seed = GetLicenser().GetProperty<std::uint64_t>("Seed");
    const auto index = static_cast<std::int32_t>(GetChannelIndex());

    LumensealBasebandDetectorPlugin::ConstructionProperties detector;
    detector.SetProperty("ChannelIndex", index);
    detector.SetProperty("Seed", seed);
    detector.SetProperty("MacAddress", std::string(kDetectorMacAddress));
    detector.SetProperty("PreDetectorPeriod", kPreDetectorPeriod);
    detector.SetProperty("IsBlockingDetector", true);
    detector.SetProperty("IsReportingNotFound", false);
    detector.SetProperty("IsOnStopReportCachedBuffers", false);
    CreateProcessor(kDetectorClass, kDetectorInstance, detector, false);

    LumensealBasebandEmbedderPlugin::ConstructionProperties embedder;
    embedder.SetProperty("ChannelIndex", index);
    embedder.SetProperty("Seed", seed);
    CreateProcessor(kEmbedderClass, kEmbedderInstance, embedder, false);
  });
}

bool QuillmarBasebandSDKChannel::Init() {
  return NoThrow("QuillmarBasebandSDKChannel::Init", false, [this] {
    Logger::Info("QuillmarBasebandSDKChannel::Init; parsing configuration...");
    if (configurationState == nullptr) {
      configurationState = std::make_unique<QuillmarBasebandSDK::QuillmarBasebandConfigurationState>(
          GetConfigFile(), kConfigurationSection);
    }
    if (!configurationState->ParseConfiguration(true)) {
      Logger::Error("QuillmarBasebandSDKChannel::Init; parsing configuration failed!");
      if (GetListener() != nullptr) GetListener()->OnError("Config file not found or invalid.");
      return false;
    }
    Logger::Info("QuillmarBasebandSDKChannel::Init; parsing configuration...OK");
    energySum = 0.0;
    energyCount = 0;
    if (!configurationState->GetSharedDatabase(sharedDatabasePath)) {
      Logger::Error("QuillmarBasebandSDKChannel::Init: Shared database not found in the Config file!");
      if (GetListener() != nullptr) {
        GetListener()->OnError(
            "Shared database not found in the Config file. Contact Veltrane support for an "
            "updated CFG file.");
      }
      return false;
    }
    if (!InitDatabase()) return false;
    ChannelBaseLicensed::Init();  // its result is deliberately not the channel's
    return true;
  });
}

bool QuillmarBasebandSDKChannel::Start() {
  return NoThrow("QuillmarBasebandSDKChannel::Start", false, [this] {
    const VideoFormatInfo format = GetFormatInfo();
    if (format.GetVideoFormat() == FormatInfo::kNoFormat) {
      Logger::Warning(boost::format("Incorrect video format. Cannot initialize media (%1%)") %
                      format.ToString());
      RollbackInit();
      return false;
    }
    float globalDepth = 0.0f;
    unsigned maxLocalDepth = 0;
    bool flatRegion = false;
    if (!GetEmbeddingQuality(globalDepth, maxLocalDepth, flatRegion)) {
      RollbackInit();
      return false;
    }
    AlgorithmBase* detector = GetAlgorithm(kDetectorInstance);
    bool detectorReady = false;
    if (detector != nullptr) {
      detector->SetFormat(format);
      detectorReady = detector->InitProcessor();
    }
    LumensealBasebandEmbedderPlugin* embedder = Embedder();
    const bool embedderReady =
        embedder != nullptr && ConfigureEmbedder(*embedder, globalDepth, maxLocalDepth, flatRegion);
    if (!detectorReady || !embedderReady) {
      Logger::Warning(boost::format("Cannot initialize Required Channel Processors (%1%)") %
                      format.ToString());
      RollbackInit();
      return false;
    }
    detectorConnection = detector->GetEventSignal().ConnectFor(
        this, &QuillmarBasebandSDKChannel::OnVWMDetectionEvent);
    embedderConnection = embedder->GetEventSignal().ConnectFor(
        this, &QuillmarBasebandSDKChannel::OnVWMEmbeddingEvent);
    ConnectFrameworkEvents();
    embeddingPending = false;
    if (!ChannelBaseLicensed::Start()) {
      RollbackInit();
      return false;
    }
    std::lock_guard<std::mutex> lock(stateMutex);
    stopRequested = false;
    frameCount = 0;
    return true;
  });
}

bool QuillmarBasebandSDKChannel::ConfigureEmbedder(LumensealBasebandEmbedderPlugin& embedder,
                                                   float globalDepth, unsigned maxLocalDepth,
                                                   bool flatRegion) {
  embedder.SetFormat(GetFormatInfo());
  embedder.SetFrameRate(GetFrameRate());
  embedder.SetMaxLocalDepth(static_cast<std::int32_t>(maxLocalDepth));
  embedder.SetGlobalDepth(static_cast<double>(globalDepth));
  embedder.SetFlatRegion(flatRegion);
  embedder.SetSelectedCID(selectedCID);
  embedder.SetSelectedStartTime(selectedStartTime);
  embedder.SetSelectedDurationInSeconds(allocatedDurationSeconds);
  embedder.SetFTRT(true);
  return embedder.InitProcessor();
}

void QuillmarBasebandSDKChannel::RollbackInit() {
  if (AlgorithmBase* detector = GetAlgorithm(kDetectorInstance)) detector->DeinitProcessor();
  if (AlgorithmBase* embedder = GetAlgorithm(kEmbedderInstance)) embedder->DeinitProcessor();
}

bool QuillmarBasebandSDKChannel::Stop() {
  return NoThrow("QuillmarBasebandSDKChannel::Stop", false, [this] {
    {
      std::lock_guard<std::mutex> lock(stateMutex);
      stopRequested = true;
    }
    FinalizeEmbedding();
    configurationState.reset();
    databaseHandler.reset();
    detectorConnection.disconnect();
    DisconnectFrameworkEvents();

    const double framesPerSecond = GetFrameRate();
    const double seconds = ProcessedSeconds(frameCount, framesPerSecond);
    Logger::Info(boost::format(
                     "Processed %d frames at %f fps, total %d seconds (out of %d seconds reserved)") %
                 frameCount % framesPerSecond % static_cast<int>(seconds) %
                 static_cast<std::uint32_t>(allocatedDurationSeconds));
    const std::uint32_t requested = GetEmbeddingDuration();
    if (requested != 0 && static_cast<float>(requested) + 1 < static_cast<float>(seconds)) {
      Logger::Warning(boost::format("Aforementioned actual duration was longer than requested %d seconds") %
                      requested);
    } else if (requested != 0) {
      Logger::Info(boost::format("Aforementioned actual duration is in line with requested %d seconds") %
                   requested);
    }
    return ChannelBaseLicensed::Stop();
  });
}

void QuillmarBasebandSDKChannel::Deinit() {
  NoThrow("QuillmarBasebandSDKChannel::Deinit", [this] { ChannelBaseLicensed::Deinit(); });
}

LumensealBasebandEmbedderPlugin* QuillmarBasebandSDKChannel::Embedder() const {
  return dynamic_cast<LumensealBasebandEmbedderPlugin*>(GetAlgorithm(kEmbedderInstance));
}

EventSignal<EventBase>& QuillmarBasebandSDKChannel::GetChannelSignal(ChannelSignal kind) {
  return channelSignals.at(static_cast<std::size_t>(kind));
}

// --- Properties ---

std::uint32_t QuillmarBasebandSDKChannel::GetEmbeddingDuration() const {
  return GetProperty<std::uint32_t>("EmbeddingDuration");
}
void QuillmarBasebandSDKChannel::SetEmbeddingDuration(std::uint32_t seconds) {
  SetProperty("EmbeddingDuration", seconds);
}
std::list<unsigned> QuillmarBasebandSDKChannel::GetAllEmbedderCIDsInConfig() const {
  return GetProperty<std::list<unsigned>>("AllEmbedderCIDsInConfig");
}
void QuillmarBasebandSDKChannel::SetAllEmbedderCIDsInConfig(std::list<unsigned> cids) {
  SetProperty("AllEmbedderCIDsInConfig", std::move(cids));
}
std::vector<unsigned> QuillmarBasebandSDKChannel::GetAllCIDsInProgram() const {
  return GetProperty<std::vector<unsigned>>("AllCIDsInProgram");
}
void QuillmarBasebandSDKChannel::SetAllCIDsInProgram(std::vector<unsigned> cids) {
  SetProperty("AllCIDsInProgram", std::move(cids));
}
VideoFormatInfo QuillmarBasebandSDKChannel::GetFormatInfo() const {
  return GetProperty<VideoFormatInfo>("FormatInfo");
}
void QuillmarBasebandSDKChannel::SetFormatInfo(VideoFormatInfo format) {
  SetProperty("FormatInfo", std::move(format));
}
double QuillmarBasebandSDKChannel::GetFrameRate() const { return GetProperty<double>("FrameRate"); }
void QuillmarBasebandSDKChannel::SetFrameRate(double framesPerSecond) {
  SetProperty("FrameRate", framesPerSecond);
}
bool QuillmarBasebandSDKChannel::GetVwmDetectorOn() const { return GetProperty<bool>("VwmDetectorOn"); }
void QuillmarBasebandSDKChannel::SetVwmDetectorOn(bool on) { SetProperty("VwmDetectorOn", on); }
std::string QuillmarBasebandSDKChannel::GetConfigFile() const {
  return GetProperty<std::string>("ConfigFile");
}
void QuillmarBasebandSDKChannel::SetConfigFile(const std::string& path) {
  SetProperty("ConfigFile", path);
}
std::string QuillmarBasebandSDKChannel::GetProgramName() const {
  return GetProperty<std::string>("ProgramName");
}
void QuillmarBasebandSDKChannel::SetProgramName(const std::string& name) {
  SetProperty("ProgramName", name);
}
QuillmarBasebandEmbedderListener* QuillmarBasebandSDKChannel::GetListener() const {
  return GetProperty<QuillmarBasebandEmbedderListener*>("Listener");
}
void QuillmarBasebandSDKChannel::SetListener(const QuillmarBasebandEmbedderListener* newListener) {
  SetProperty("Listener", const_cast<QuillmarBasebandEmbedderListener*>(newListener));
}

void QuillmarBasebandSDKChannel::OnPropertySet(const std::string& name) {
  if (name != "Listener") return;
  NoThrow("QuillmarBasebandSDKChannel::OnPropertySet", [this] {
    listener = GetListener();
    if (listener == nullptr) return;
    for (const std::string& message : pendingListenerMessages) listener->OnError(message.c_str());
    pendingListenerMessages.clear();
  });
}

// --- Errors ---

void QuillmarBasebandSDKChannel::ReportError(const std::string& text) {
  Logger::Error(text);
  if (GetListener() != nullptr) GetListener()->OnError(text.c_str());
}

void QuillmarBasebandSDKChannel::SetLastError(QuillmarBasebandEmbedder::ErrorCode code,
                                              const std::string& text) {
  lastError = code;
  lastErrorText = text;
}

}  // namespace Framework
