// quillmar db show PATH [--json]: what the shared time-slot database holds, read without changing
// it: the schema version and, per CID, until when it is allocated and until when it is leased.
#include <boost/json.hpp>
#include <iomanip>
#include <iostream>
#include <memory>

#include "database/CppSQLite3DB.h"
#include "database/CppSQLite3Exception.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/TimeSlotSchema.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/JsonOutput.h"

namespace Quillmar::Tools {
namespace {

using QuillmarBasebandSDK::TimeSlotSchema;

constexpr const char* kNotLocked = "not locked";
constexpr int kCidColumnWidth = 12;
constexpr int kTimeColumnWidth = 24;

// What the file holds; `slots` is empty unless the schema is the current one.
struct Snapshot {
  int version = 0;
  std::vector<CID_Timestamp_Lock_Record> slots;
};

// Reads the file in one read transaction, so that version and rows belong together.
Snapshot ReadSnapshot(const std::string& path) {
  CppSQLite3DB db(EmbedderDatabaseV2::kBusyTimeoutMs);
  db.open(path.c_str());
  db.execDML("BEGIN TRANSACTION;");
  Snapshot snapshot;
  snapshot.version = TimeSlotSchema::ReadVersion(db);
  if (snapshot.version == TimeSlotSchema::kCurrentVersion) {
    snapshot.slots = TimeSlotSchema::ReadSlots(db);
  }
  db.execDML("END TRANSACTION;");
  return snapshot;
}

std::string LockedTillText(const CID_Timestamp_Lock_Record& slot) {
  return slot.LockedTill.wYear == 1601 ? kNotLocked
                                       : EmbedderDatabaseV2::SystemTimeToString(&slot.LockedTill);
}

void PrintJsonSnapshot(const std::string& path, const Snapshot& snapshot) {
  boost::json::array cids;
  for (const auto& slot : snapshot.slots) {
    const bool locked = slot.LockedTill.wYear != 1601;
    cids.push_back(boost::json::object{
        {"cid", slot.CID},
        {"allocated_till", EmbedderDatabaseV2::SystemTimeToString(&slot.Timestamp)},
        {"locked_till",
         locked ? boost::json::value(EmbedderDatabaseV2::SystemTimeToString(&slot.LockedTill))
                : boost::json::value(nullptr)}});
  }
  PrintJson(std::cout,
            boost::json::object{
                {"path", path}, {"schema_version", snapshot.version}, {"cids", std::move(cids)}});
}

void PrintText(const std::string& path, const Snapshot& snapshot) {
  std::cout << path << ": schema version " << snapshot.version << '\n';
  if (snapshot.version != TimeSlotSchema::kCurrentVersion) {
    std::cout << "no time-slot table of the current version (an embedder creates or converts it "
                 "when it opens the file)"
              << std::endl;
    return;
  }
  std::cout << std::left << std::setw(kCidColumnWidth) << "CID" << std::setw(kTimeColumnWidth)
            << "allocated till" << "locked till" << '\n';
  for (const auto& slot : snapshot.slots) {
    std::cout << std::setw(kCidColumnWidth) << slot.CID << std::setw(kTimeColumnWidth)
              << EmbedderDatabaseV2::SystemTimeToString(&slot.Timestamp) << LockedTillText(slot)
              << '\n';
  }
  std::cout << std::flush;
}

void AddDbCommands(CLI::App& app) {
  CLI::App* db = app.add_subcommand("db", "Inspect the shared time-slot database");
  db->require_subcommand(1);
  CLI::App* show = db->add_subcommand(
      "show", "Print the schema version and each CID's allocated-till and locked-till times (UTC)");
  auto path = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  // An existing file only: opening a missing one would create it.
  show->add_option("PATH", *path, "The database file")->required()->check(CLI::ExistingFile);
  show->add_flag("--json", *json, "Print one JSON object instead of a table");
  show->callback([path, json] {
    try {
      const Snapshot snapshot = ReadSnapshot(*path);
      if (*json) {
        PrintJsonSnapshot(*path, snapshot);
      } else {
        PrintText(*path, snapshot);
      }
    } catch (const std::exception& error) {
      std::cerr << "quillmar db show: " << *path << ": " << error.what() << std::endl;
      SetExitStatus(1);
    }
  });
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddDbCommands)

}  // namespace Quillmar::Tools
