// The channel processor: embeds a watermark (CID and time stamp) into every frame through the
// embedder plug-in, watches the frames with the detector plug-in, and reserves its CID and time
// slot in the shared time-slot database so that no two embedders stamp one CID for overlapping
// periods.
//
// A host creates it with CreateProcessor, calls OnCreateChannel, sets its properties (among them
// its Listener), and drives it: Init (configuration, database, time slot), Start (format, plug-ins),
// frames, Stop (slot finalised, totals), Deinit, DeleteProcessor. WriteEncodationLog records a
// finished run.
//
// Threads: the life cycle runs on the host's control thread, ProcessFrameVolatile and the plug-ins'
// events on its processing thread. The stop flag and the frame counter's reset are guarded by
// stateMutex; nothing else in the channel is locked. No operation throws.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "channel/ErrorCode.h"
#include "channel/QuillmarBasebandEmbedderListener.h"
#include "framework/ChannelBaseLicensed.h"
#include "framework/platform/SystemTime.h"

class TimeSlotReservoir;
struct LSNDetection;

namespace QuillmarBasebandSDK {
class QuillmarBasebandConfigurationState;
}

namespace Framework {

class VWMDetectionEvent;
class VWMEmbeddingEvent;
class LumensealBasebandEmbedderPlugin;
class CompletedEvent;
class DroppedFrameEvent;
class FormatChangedEvent;
class LicenseInvalidatedEvent;
class LicenseWarningEvent;
class MemoryAllocationErrorEvent;
class ProgressEvent;
class SignalLostEvent;
class SignalResumedEvent;

// The channel's own signals, on which a host hears of it.
enum class ChannelSignal : int {
  Progress = 0,   // ProgressEvent, relayed from the host's progress events with this channel as sender
  Completed = 1,  // CompletedEvent: relayed, or "Stopped by Media" when the channel stops itself
  Embedding = 2,  // VWMEmbeddingEvent, every energy report of the embedder
  Detection = 3,  // VWMDetectionEvent, every event of the detector
};
constexpr int kChannelSignalCount = 4;

// Instance and class names of the channel's two child processors. Constants of the header, not
// members of the exported class: a host reads them without importing data from the library.
inline constexpr char kEmbedderInstance[] = "LumensealEmbedder";
inline constexpr char kDetectorInstance[] = "LumensealDetector";
inline constexpr char kEmbedderClass[] = "LumensealBasebandEmbedderPlugin";
inline constexpr char kDetectorClass[] = "LumensealBasebandDetectorPlugin";

class QUILLMAR_API QuillmarBasebandSDKChannel : public ChannelBaseLicensed {
 public:
  explicit QuillmarBasebandSDKChannel(const PropertyBase& constructionProperties);
  // Releases what Stop did not (configuration state, database handle: finalising a leased slot).
  ~QuillmarBasebandSDKChannel() override;

  // --- Life cycle (control thread) ---

  // Creates the detector and the embedder with their construction properties.
  void OnCreateChannel(std::uint64_t channelIndex) override;
  // Parses the configuration and reserves the run's time slot, first giving back a slot still held
  // from an Init whose run never started; false (logged, reported) on failure.
  bool Init() override;
  // Configures and initialises both plug-ins for the format; false (rolled back) on failure.
  bool Start() override;
  // Finalises the slot to the seconds embedded, releases configuration and database, logs totals.
  bool Stop() override;
  void Deinit() override;
  // Always 1.
  std::uint64_t GetMaxNrChannels() const { return maxNrChannels; }

  // --- Frames (processing thread) ---

  // Detects, extends an open-ended slot when it runs out, and embeds (or bypasses) one frame.
  void ProcessFrameVolatile(Frame* frame) override;

  // --- Properties ---

  std::uint32_t GetEmbeddingDuration() const;  // seconds; 0 = open-ended run
  void SetEmbeddingDuration(std::uint32_t seconds);
  std::list<unsigned> GetAllEmbedderCIDsInConfig() const;
  void SetAllEmbedderCIDsInConfig(std::list<unsigned> cids);
  std::vector<unsigned> GetAllCIDsInProgram() const;
  void SetAllCIDsInProgram(std::vector<unsigned> cids);
  VideoFormatInfo GetFormatInfo() const;
  void SetFormatInfo(VideoFormatInfo format);
  double GetFrameRate() const;
  void SetFrameRate(double framesPerSecond);
  bool GetVwmDetectorOn() const;
  void SetVwmDetectorOn(bool on);
  std::string GetConfigFile() const;
  void SetConfigFile(const std::string& path);
  std::string GetProgramName() const;
  void SetProgramName(const std::string& name);
  QuillmarBasebandEmbedderListener* GetListener() const;
  void SetListener(const QuillmarBasebandEmbedderListener* listener);

  // Caches a new listener and hands it the messages queued while there was none.
  void OnPropertySet(const std::string& name) override;

  // --- Embedding session ---

  // Reserves a CID and a time slot in the database at `databasePath`, in up to 10 immediate
  // attempts; requestedSeconds 0 reserves an open-ended 1800 s slot under a 7200 s lease.
  bool AllocateEmbeddingTimeslot(const char* databasePath, const std::list<unsigned>& configCids,
                                 const std::vector<unsigned>& programCids,
                                 std::uint64_t requestedSeconds, unsigned& cid,
                                 SYSTEMTIME& start, std::uint64_t& allocatedSeconds);

  // The selected program's global depth, maximum local depth and flat-region setting.
  bool GetEmbeddingQuality(float& globalDepth, unsigned& maxLocalDepth, bool& flatRegion);

  // --- Errors ---

  QuillmarBasebandEmbedder::ErrorCode GetLastError() const { return lastError; }
  std::string GetLastErrorText() const { return lastErrorText; }

  // --- Encodation log ---

  // Finalises the slot and has the embedder write one record of the run with `metadata`.
  void WriteEncodationLog(const std::string& first, const std::string& second,
                          const std::string& third,
                          const std::map<std::string, std::string>& metadata);
  // The older six-text form: s4..s6 become the metadata "itemid", "slug", "note".
  void WriteEncodationLog(const std::string& s1, const std::string& s2, const std::string& s3,
                          const std::string& s4, const std::string& s5, const std::string& s6);

  // --- Signals ---

  // The channel's signal of `kind`.
  EventSignal<EventBase>& GetChannelSignal(ChannelSignal kind);

 private:
  using MetadataKeys = std::vector<std::pair<std::string, std::string>>;

  void RollbackInit();
  bool InitDatabase();
  void ReleaseUnusedTimeslot();
  void ExtendTimeslot();
  void FinalizeEmbedding();
  void AllocateOnce(const char* databasePath, const std::list<unsigned>& configCids,
                    const std::vector<unsigned>& programCids, std::uint64_t requestedSeconds,
                    unsigned& cid, SYSTEMTIME& start, std::uint64_t& allocatedSeconds);
  bool ConfigureEmbedder(LumensealBasebandEmbedderPlugin& embedder, float globalDepth,
                         unsigned maxLocalDepth, bool flatRegion);
  void ConnectFrameworkEvents();
  void DisconnectFrameworkEvents();
  bool StopRequested();
  void StopByMedia();
  void LogProgress();
  LumensealBasebandEmbedderPlugin* Embedder() const;

  void OnVWMEmbeddingEvent(const VWMEmbeddingEvent& event);
  void OnVWMDetectionEvent(const VWMDetectionEvent& event);
  bool IsCidAllowedToDetect(unsigned cid) const;
  void OnDetection(const LSNDetection& detection);
  void OnPresence(std::int32_t state);

  void OnProgress(const ProgressEvent& event);
  void OnCompleted(const CompletedEvent& event);
  void OnDroppedFrame(const DroppedFrameEvent& event);
  void OnSignalLost(const SignalLostEvent& event);
  void OnSignalResumed(const SignalResumedEvent& event);
  void OnFormatChanged(const FormatChangedEvent& event);
  void OnMemoryAllocationError(const MemoryAllocationErrorEvent& event);
  void OnLicenseWarningEvent(const LicenseWarningEvent& event);
  void OnLicenseInvalidatedEvent(const LicenseInvalidatedEvent& event);
  void RequestStop();

  bool GetMetadataKeysAndFacility(MetadataKeys& keys, std::string& facility);
  void ValidateMetadata(std::map<std::string, std::string>& metadata, const MetadataKeys& keys);

  // Logs `text` at error level and reports it to the listener, if one is set.
  void ReportError(const std::string& text);
  // Records `code` and `text` as the last error.
  void SetLastError(QuillmarBasebandEmbedder::ErrorCode code, const std::string& text);

  // Event connections: licence (2), framework events (7), detector, embedder.
  EventConnection licenseInvalidatedConnection;
  EventConnection licenseWarningConnection;
  std::array<EventConnection, kFrameworkEventCount> frameworkConnections;
  EventConnection detectorConnection;
  EventConnection embedderConnection;
  std::array<EventSignal<EventBase>, kChannelSignalCount> channelSignals;

  std::uint64_t maxNrChannels = 1;
  std::mutex stateMutex;
  bool stopRequested = false;  // Guarded by stateMutex
  std::uint32_t frameCount = 0;  // Reset under stateMutex by Start; else processing thread only
  QuillmarBasebandEmbedder::ErrorCode lastError = QuillmarBasebandEmbedder::ErrorNone;
  std::string lastErrorText;

  // The run's time slot, reserved at Init (control thread), extended by the processing thread.
  std::unique_ptr<TimeSlotReservoir> databaseHandler;  // a SQLite file or a database server
  std::string sharedDatabasePath;
  unsigned selectedCID = 0;
  SYSTEMTIME selectedStartTime{};
  std::uint64_t allocatedDurationSeconds = 0;

  bool embeddingPending = false;  // a prior watermark is in the picture: frames bypass embedding
  std::unique_ptr<QuillmarBasebandSDK::QuillmarBasebandConfigurationState> configurationState;
  QuillmarBasebandEmbedderListener* listener = nullptr;
  std::vector<std::string> pendingListenerMessages;
  double energySum = 0.0;
  std::uint32_t energyCount = 0;
};

}  // namespace Framework
