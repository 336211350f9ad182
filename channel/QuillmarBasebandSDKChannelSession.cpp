// The embedding session of the channel: reserving the time slot, reading the program's quality,
// the frame path, extending an open-ended slot, finalising the slot.
#include <boost/format.hpp>
#include <stdexcept>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "database/TimeSlotReservoir.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/CompletedEvent.h"
#include "framework/Logger.h"
#include "framework/NoThrow.h"

namespace Framework {
namespace {

constexpr int kAllocationAttempts = 10;
constexpr int kFinalizeAttempts = 10;

// Open-ended runs: the slot grows in steps, each held under a lease.
constexpr std::uint64_t kOpenEndedSlotSeconds = 1800;
constexpr int kOpenEndedLeaseSeconds = 7200;
constexpr int kExtensionSeconds = 1800;

// A run of requested length R gets R x 1.25 rounded up, plus this margin, and no lease.
constexpr std::uint64_t kSlotMarginSeconds = 61;

constexpr char kParseFailure[] = "Error parsing configuration file.";

// A failed allocation attempt, with the text that says why.
class AllocationFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::uint64_t SlotSeconds(std::uint64_t requestedSeconds) {
  if (requestedSeconds == 0) return kOpenEndedSlotSeconds;
  return (requestedSeconds * 30 + 23) / 24 + kSlotMarginSeconds;
}

}  // namespace

bool QuillmarBasebandSDKChannel::InitDatabase() {
  ReleaseUnusedTimeslot();
  return AllocateEmbeddingTimeslot(sharedDatabasePath.c_str(), GetAllEmbedderCIDsInConfig(),
                                   GetAllCIDsInProgram(), GetEmbeddingDuration(), selectedCID,
                                   selectedStartTime, allocatedDurationSeconds);
}

// A slot still held at Init was reserved by an Init whose run never started (Stop releases the
// slot of every run that did): it goes back whole, and its lease with it, so that the CID is free
// again at once instead of when the lease runs out.
void QuillmarBasebandSDKChannel::ReleaseUnusedTimeslot() {
  if (databaseHandler == nullptr) return;
  std::string error;
  if (!databaseHandler->FinalizeEmbedding(0, error)) {
    Logger::Warning(boost::format("Releasing the unused timeslot failed: %1%") % error);
  }
}

bool QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot(
    const char* databasePath, const std::list<unsigned>& configCids,
    const std::vector<unsigned>& programCids, std::uint64_t requestedSeconds, unsigned& cid,
    SYSTEMTIME& start, std::uint64_t& allocatedSeconds) {
  return NoThrow("QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot", false, [&] {
    Logger::Info(boost::format("Allocating timeslot from the shared database %1%, requested %2% seconds") %
                 databasePath % requestedSeconds);
    if (databaseHandler == nullptr) databaseHandler = TimeSlotReservoir::ForLocation(databasePath);
    for (int attemptsLeft = kAllocationAttempts; attemptsLeft != 0;) {
      try {
        AllocateOnce(databasePath, configCids, programCids, requestedSeconds, cid, start,
                     allocatedSeconds);
        if (attemptsLeft < kAllocationAttempts) {
          Logger::Info(
              "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot recovered from previous DB "
              "access problem.");
        }
        break;
      } catch (const std::exception& failure) {
        --attemptsLeft;
        if (attemptsLeft > 0) {
          Logger::Warning(boost::format(
                              "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: (%d) "
                              "attempts left: failure reason: %s") %
                          attemptsLeft % failure.what());
          continue;
        }
        Logger::Error(boost::format(
                          "QuillmarBasebandSDKChannel::AllocateEmbedingTimeslot::Retry failed: no "
                          "attempts left: failure reason: %s") %
                      failure.what());
        if (GetListener() != nullptr) GetListener()->OnError(failure.what());
        SetLastError(QuillmarBasebandEmbedder::ErrorTimeslotAllocation, failure.what());
        return false;
      }
    }
    Logger::Info(boost::format(
                     "QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot allocated EID %d for %d seconds.") %
                 cid % allocatedSeconds);
    return true;
  });
}

// One attempt; throws AllocationFailure with the logged text when it fails.
void QuillmarBasebandSDKChannel::AllocateOnce(const char* databasePath,
                                              const std::list<unsigned>& configCids,
                                              const std::vector<unsigned>& programCids,
                                              std::uint64_t requestedSeconds, unsigned& cid,
                                              SYSTEMTIME& start, std::uint64_t& allocatedSeconds) {
  const auto fail = [](const std::string& text) {
    Logger::Error(text);
    throw AllocationFailure(text);
  };
  if (databaseHandler == nullptr) {
    fail("QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error in accessing shared "
         "database. m_SharedDatabaseHandler not found");
  }
  std::string error;
  if (!databaseHandler->Init(databasePath, configCids, error)) {
    fail("QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error in accessing shared "
         "database. Perhaps you didn't provide the full path, or the file does not exist and "
         "cannot be created, or in a wrong format. Shared database is a file, not a folder! Error "
         "details as follows: " +
         error);
  }
  if (!databaseHandler->CheckDatabaseExists()) {
    fail("Shared database for faster then real time embedding not found");
  }
  allocatedSeconds = SlotSeconds(requestedSeconds);
  const int leaseSeconds = requestedSeconds == 0 ? kOpenEndedLeaseSeconds : 0;
  if (!databaseHandler->AllocateEmbeddingTimeslot(programCids, static_cast<int>(allocatedSeconds),
                                                  cid, start, error, leaseSeconds)) {
    fail("QuillmarBasebandSDKChannel::AllocateEmbeddingTimeslot - error allocating timeslot for "
         "embedding. " +
         error);
  }
}

bool QuillmarBasebandSDKChannel::GetEmbeddingQuality(float& globalDepth, unsigned& maxLocalDepth,
                                                     bool& flatRegion) {
  return NoThrow("QuillmarBasebandSDKChannel::GetEmbeddingQuality", false, [&] {
    const std::string programName = GetProgramName();
    Logger::Info(boost::format("Selected program %1%; parsing configuration") % programName);
    if (configurationState == nullptr || !configurationState->ParseConfiguration(true)) {
      ReportError(kParseFailure);
      SetLastError(QuillmarBasebandEmbedder::ErrorConfiguration, kParseFailure);
      return false;
    }
    std::string crc;
    if (configurationState->GetConfigurationChecksum(crc)) {
      Logger::Info(boost::format("Successfully parsed configuration file, CRC %1%") % crc);
    } else {
      Logger::Error("Successfully parsed configuration file, but CRC not found");
    }
    const QuillmarBasebandSDK::ProgramEntry* selected = nullptr;
    for (const auto& program : configurationState->GetPrograms()) {
      if (program.name == programName) selected = &program;
    }
    if (selected == nullptr) {
      const std::string text = "Selected program " + programName + " not found in the config file";
      ReportError(text);
      SetLastError(QuillmarBasebandEmbedder::ErrorConfiguration, text);
      return false;
    }
    globalDepth = selected->vwm.globalDepth;
    maxLocalDepth = static_cast<unsigned>(selected->vwm.maxLocalDepth);
    flatRegion = selected->vwm.flatRegion == 1;
    Logger::Info(boost::format("Selected GD %1%, MLD %2%, FlatRegion %3%") % globalDepth %
                 maxLocalDepth % flatRegion);
    return true;
  });
}

void QuillmarBasebandSDKChannel::ProcessFrameVolatile(Frame* frame) {
  NoThrow("QuillmarBasebandSDKChannel::ProcessFrameVolatile", [&] {
    if (StopRequested()) {
      if (GetState() != ProcessorState::Stopped) StopByMedia();
      return;
    }
    if (frame == nullptr) return;
    LogProgress();
    ++frameCount;
    if (GetVwmDetectorOn()) {
      if (AlgorithmBase* detector = GetAlgorithm(kDetectorInstance)) {
        detector->ProcessFrameVolatile(frame);
      }
    }
    LumensealBasebandEmbedderPlugin* embedder = Embedder();
    if (embedder == nullptr) return;
    if (GetEmbeddingDuration() == 0 &&
        allocatedDurationSeconds - 1 <= embedder->GetEmbeddedDurationInSeconds()) {
      ExtendTimeslot();
    }
    embedder->ProcessFrameVolatile(frame, embeddingPending);
  });
}

bool QuillmarBasebandSDKChannel::StopRequested() {
  std::lock_guard<std::mutex> lock(stateMutex);
  return stopRequested;
}

void QuillmarBasebandSDKChannel::StopByMedia() {
  StopProcessor();
  CompletedEvent completed;
  completed.SetText("Stopped by Media");
  completed.SetErrorAbort(true);
  completed.SetProgress(100);
  completed.SetSenderType("");
  completed.SetSender(GetSender());
  GetChannelSignal(ChannelSignal::Completed).Raise(completed);
}

// About once a second; a frame rate below 1 logs every frame.
void QuillmarBasebandSDKChannel::LogProgress() {
  const double framesPerSecond = GetFrameRate();
  const auto framesPerLine = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(
                                                            std::max(0.0, framesPerSecond)));
  if (frameCount % framesPerLine != 0) return;
  const float seconds =
      framesPerSecond > 0.0 ? static_cast<float>(frameCount / framesPerSecond) : 0.0f;
  if (!embeddingPending) {
    Logger::Info(boost::format("Embedding frame %1%, app. %2% seconds done") % frameCount % seconds);
  } else {
    Logger::Warning(boost::format("Bypassing frame %1%, app. %2% seconds done") % frameCount %
                    seconds);
  }
}

void QuillmarBasebandSDKChannel::ExtendTimeslot() {
  Logger::Info(
      "ExtendTimeslot - allocated embedding allocated timeslot almost completely used. Extending...");
  LumensealBasebandEmbedderPlugin* embedder = Embedder();
  if (databaseHandler == nullptr || embedder == nullptr) {
    Logger::Error("ExtendTimeslot failed - component not found.");
    return;
  }
  std::string error;
  const int total = databaseHandler->ExtendTimeslot(kExtensionSeconds, error, kOpenEndedLeaseSeconds);
  if (total == 0) {
    ReportError("QuillmarBasebandSDKChannel::ExtendTimeslot failed. Failure reason: " + error +
                ". Will retry next frame.");
    return;
  }
  allocatedDurationSeconds = static_cast<std::uint64_t>(total);
  embedder->SetSelectedDurationInSeconds(allocatedDurationSeconds);
  Logger::Info("ExtendTimeslot - done");
}

void QuillmarBasebandSDKChannel::FinalizeEmbedding() {
  Logger::Info("FinalizeEmbedding...");
  LumensealBasebandEmbedderPlugin* embedder = Embedder();
  if (embedder == nullptr) {
    Logger::Error("QuillmarBasebandSDKChannel::FinalizeEmbedding cannot find embedder. Aborted!");
    return;
  }
  const auto embedded = static_cast<std::uint32_t>(embedder->GetEmbeddedDurationInSeconds());
  if (databaseHandler == nullptr) {
    Logger::Error("m_SharedDatabaseHandler is NULL");
    return;
  }
  for (int attempt = 0; attempt < kFinalizeAttempts; ++attempt) {
    std::string error;
    if (databaseHandler->FinalizeEmbedding(static_cast<int>(embedded + 1), error)) {
      Logger::Info("FinalizeEmbedding done");
      return;
    }
    Logger::Warning(boost::format("FinalizeEmbedding failed: %1%. Will retry.") % error);
  }
  Logger::Error("FinalizeEmbedding definitely failed");
}

}  // namespace Framework
