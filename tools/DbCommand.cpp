// quillmar db show LOCATION [--json]: what a time-slot reservoir holds, read without changing it.
// quillmar db copy FROM TO: merges one reservoir into another (a SQLite file into PostgreSQL, or
// back), losing no row. A LOCATION is a SharedDatabase value: a file's path or a postgresql:// URI.
#include <boost/json.hpp>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>

#include "database/EmbedderDatabaseV2.h"
#include "database/ReservoirTable.h"
#include "database/ServerLocation.h"
#include "tools/CommandRegistry.h"
#include "tools/ExitStatus.h"
#include "tools/JsonOutput.h"

namespace Quillmar::Tools {
namespace {

using QuillmarBasebandSDK::ReservoirTable;

constexpr const char* kNotLocked = "not locked";
constexpr int kCidColumnWidth = 12;
constexpr int kTimeColumnWidth = 24;

bool IsLocked(const CID_Timestamp_Lock_Record& slot) { return slot.LockedTill.wYear != 1601; }

std::string TimeText(const SYSTEMTIME& time) {
  return EmbedderDatabaseV2::SystemTimeToString(&time);
}

// A reservoir's rows; a file only when it exists, since opening a missing one would create it.
ReservoirTable::Snapshot ReadExisting(const std::string& location) {
  if (!QuillmarBasebandSDK::IsServerLocation(location) &&
      !std::filesystem::is_regular_file(location)) {
    throw std::runtime_error("no such file");
  }
  return ReservoirTable::Read(location);
}

void PrintJsonSnapshot(const std::string& location, const ReservoirTable::Snapshot& snapshot) {
  boost::json::array cids;
  for (const auto& slot : snapshot.rows) {
    cids.push_back(boost::json::object{
        {"cid", slot.CID},
        {"allocated_till", TimeText(slot.Timestamp)},
        {"locked_till", IsLocked(slot) ? boost::json::value(TimeText(slot.LockedTill))
                                       : boost::json::value(nullptr)}});
  }
  PrintJson(std::cout, boost::json::object{{"path", ReservoirTable::Printable(location)},
                                           {"schema_version",
                                            snapshot.version ? boost::json::value(*snapshot.version)
                                                             : boost::json::value(nullptr)},
                                           {"cids", std::move(cids)}});
}

void PrintText(const std::string& location, const ReservoirTable::Snapshot& snapshot) {
  std::cout << ReservoirTable::Printable(location) << ": "
            << (snapshot.version ? "schema version " + std::to_string(*snapshot.version)
                                 : std::string("PostgreSQL server"))
            << '\n';
  if (!snapshot.usable) {
    std::cout << "no time-slot table of the current version (an embedder creates or converts it "
                 "when it opens the reservoir)"
              << std::endl;
    return;
  }
  std::cout << std::left << std::setw(kCidColumnWidth) << "CID" << std::setw(kTimeColumnWidth)
            << "allocated till" << "locked till" << '\n';
  for (const auto& slot : snapshot.rows) {
    std::cout << std::setw(kCidColumnWidth) << slot.CID << std::setw(kTimeColumnWidth)
              << TimeText(slot.Timestamp)
              << (IsLocked(slot) ? TimeText(slot.LockedTill) : kNotLocked) << '\n';
  }
  std::cout << std::flush;
}

// Runs one db subcommand's work; a failure is printed as "quillmar db NAME: LOCATION: why".
template <typename Work>
void Reporting(const char* name, const std::string& location, Work work) {
  try {
    work();
  } catch (const std::exception& error) {
    std::cerr << "quillmar db " << name << ": " << ReservoirTable::Printable(location) << ": "
              << error.what() << std::endl;
    SetExitStatus(kExitFailure);
  }
}

void AddShow(CLI::App& db) {
  CLI::App* show = db.add_subcommand(
      "show", "Print each CID's allocated-till and locked-till times (UTC) in a reservoir");
  auto location = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  show->add_option("LOCATION", *location, "A database file, or a postgresql:// URI")->required();
  show->add_flag("--json", *json, "Print one JSON object instead of a table");
  show->callback([location, json] {
    Reporting("show", *location, [&] {
      const ReservoirTable::Snapshot snapshot = ReadExisting(*location);
      if (*json) {
        PrintJsonSnapshot(*location, snapshot);
      } else {
        PrintText(*location, snapshot);
      }
    });
  });
}

void AddCopy(CLI::App& db) {
  CLI::App* copy = db.add_subcommand(
      "copy",
      "Merge every row of reservoir FROM into reservoir TO (made when missing); where both hold a "
      "CID, the one allocated further ahead wins");
  auto from = std::make_shared<std::string>();
  auto to = std::make_shared<std::string>();
  copy->add_option("FROM", *from, "A database file, or a postgresql:// URI")->required();
  copy->add_option("TO", *to, "A database file, or a postgresql:// URI")->required();
  copy->callback([from, to] {
    ReservoirTable::Snapshot snapshot;
    Reporting("copy", *from, [&] {
      snapshot = ReadExisting(*from);
      if (!snapshot.usable) throw std::runtime_error("no time-slot table of the current version");
    });
    if (ExitStatus() != kExitSuccess) return;
    Reporting("copy", *to, [&] {
      const std::size_t changed = ReservoirTable::Merge(*to, snapshot.rows);
      std::cout << "copied " << snapshot.rows.size() << " rows from "
                << ReservoirTable::Printable(*from) << " to " << ReservoirTable::Printable(*to)
                << ": " << changed << " added or moved ahead" << std::endl;
    });
  });
}

void AddDbCommands(CLI::App& app) {
  CLI::App* db = app.add_subcommand("db", "Inspect or copy a shared time-slot reservoir");
  db->require_subcommand(1);
  AddShow(*db);
  AddCopy(*db);
}

}  // namespace

QUILLMAR_TOOL_COMMAND(AddDbCommands)

}  // namespace Quillmar::Tools
