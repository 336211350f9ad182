#include "database/TimeSlotReservoir.h"

#include "database/EmbedderDatabaseV2.h"
#include "database/ServerLocation.h"
#include "database/TimeTicks.h"
#ifdef QUILLMAR_WITH_POSTGRESQL
#include "database/postgres/PostgresReservoir.h"
#endif
#include "framework/Logger.h"

using Framework::Logger;

namespace {

#ifndef QUILLMAR_WITH_POSTGRESQL
// Stands for the server reservoir in a build without it: every operation fails, saying why.
class NoServerReservoir : public TimeSlotReservoir {
 public:
  bool Init(const char* path, const std::list<unsigned>&, std::string& err) override {
    err = std::string("this build has no PostgreSQL support, so the shared database ") +
          (path != nullptr ? path : "") + " cannot be opened; give the path of a SQLite file";
    return false;
  }
  bool CheckDatabaseExists() override { return false; }
  bool AllocateEmbeddingTimeslot(std::vector<unsigned>, int, unsigned&, SYSTEMTIME&,
                                 std::string& err, int) override {
    err = "no PostgreSQL support in this build";
    return false;
  }

 protected:
  int ExtendWhileClosed(std::string& err) override {
    err = "no PostgreSQL support in this build";
    return 0;
  }
  bool FinalizeWhileClosed(std::string&) override { return true; }
  // It never opens, so it never holds a slot: these answer as closed.
  int ExtendHeldSlot(int, std::string& err, int) override { return ExtendWhileClosed(err); }
  bool FinalizeHeldSlot(int, std::string& err) override { return FinalizeWhileClosed(err); }
};
#endif

}  // namespace

TimeSlotReservoir::TimeSlotReservoir() : lockEnd_(QuillmarBasebandSDK::TimeTicks::Zero()) {}

TimeSlotReservoir::~TimeSlotReservoir() = default;

std::unique_ptr<TimeSlotReservoir> TimeSlotReservoir::ForLocation(const std::string& location) {
  if (!QuillmarBasebandSDK::IsServerLocation(location)) {
    return std::make_unique<EmbedderDatabaseV2>();
  }
#ifdef QUILLMAR_WITH_POSTGRESQL
  return std::make_unique<QuillmarBasebandSDK::PostgresReservoir>();
#else
  return std::make_unique<NoServerReservoir>();
#endif
}

int TimeSlotReservoir::ExtendTimeslot(int extraSeconds, std::string& err, int lockSeconds) {
  if (!CheckDatabaseExists()) return ExtendWhileClosed(err);
  err.clear();
  if (allocatedCid_ == 0) {
    err = "EmbedderDatabaseV2::ExtendTimeslot failed: slot was not allocated!";
    return 0;
  }
  if (lockDuration_ == 0) {
    Logger::Info("EmbedderDatabaseV2::ExtendTimeslot() does nothing - lock is not used.");
    ResetLockState();
    return 0;
  }
  return ExtendHeldSlot(extraSeconds, err, lockSeconds);
}

bool TimeSlotReservoir::FinalizeEmbedding(int keepSeconds, std::string& err) {
  if (!CheckDatabaseExists()) return FinalizeWhileClosed(err);
  err.clear();
  if (allocatedCid_ == 0) {
    Logger::Info(
        "EmbedderDatabaseV2::FinalizeEmbedding failed: slot was not allocated, or already "
        "finalized!");
    return true;
  }
  if (lockDuration_ == 0) {
    Logger::Info("EmbedderDatabaseV2::FinalizeEmbedding() does nothing - lock is not used.");
    ResetLockState();
    return true;
  }
  return FinalizeHeldSlot(keepSeconds, err);
}

int TimeSlotReservoir::ExtendWhileClosed(std::string& err) {
  err = "EmbedderDatabaseV2::ExtendTimeslot failed: database not opened";
  return 0;
}

bool TimeSlotReservoir::FinalizeWhileClosed(std::string& err) {
  err = "EmbedderDatabaseV2::FinalizeEmbedding failed: database not opened";
  return false;
}

void TimeSlotReservoir::ResetLockState() {
  allocatedCid_ = 0;
  allocatedDuration_ = 0;
  lockDuration_ = 0;
  lockEnd_ = QuillmarBasebandSDK::TimeTicks::Zero();
}

void TimeSlotReservoir::FinalizeLeftOverLease() {
  if (CheckDatabaseExists() && allocatedCid_ != 0 && lockDuration_ >= 1) {
    Logger::Error(
        "EmbedderDatabaseV2 destructed without proper call to FinalizeEmbedding. Finalizing now. "
        "Lock will be removed, allocated duration will be kept.");
    std::string err;
    if (!FinalizeEmbedding(allocatedDuration_, err)) Logger::Error(err);
  }
}
