#include "database/TimeSlotReservoir.h"

#include "database/EmbedderDatabaseV2.h"
#include "database/ServerLocation.h"
#ifdef QUILLMAR_WITH_POSTGRESQL
#include "database/postgres/PostgresReservoir.h"
#endif

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
  int ExtendTimeslot(int, std::string& err, int) override {
    err = "no PostgreSQL support in this build";
    return 0;
  }
  bool FinalizeEmbedding(int, std::string&) override { return true; }
};
#endif

}  // namespace

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
