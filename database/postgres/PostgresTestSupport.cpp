#include "database/postgres/PostgresTestSupport.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "database/postgres/PgConnection.h"

namespace QuillmarBasebandSDK::Testing {
namespace {

const std::string kScript = std::string(QUILLMAR_SOURCE_DIR) + "/scripts/pg-cluster";

// The standard output of `command`; throws when it fails.
std::string Output(const std::string& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 256> chunk{};
  while (fgets(chunk.data(), chunk.size(), pipe.get()) != nullptr) output += chunk.data();
  if (pclose(pipe.release()) != 0) throw std::runtime_error("failed: " + command);
  while (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

}  // namespace

PostgresServer::PostgresServer()
    : clusterFolder_(folder_.File("pg")),
      uri_(Output(kScript + " start " + clusterFolder_)),
      owner_(getpid()) {}

PostgresServer::~PostgresServer() {
  if (getpid() != owner_) return;
  try {
    Run("stop");
  } catch (const std::exception&) {
    // The folder goes with the temporary folder; a server left running dies with its socket.
  }
}

void PostgresServer::Run(const std::string& action) const {
  Output(kScript + " " + action + " " + clusterFolder_);
}

std::string PostgresServer::NewReservoir() {
  const std::string schema = "reservoir" + std::to_string(++reservoirs_);
  Query(uri_, "CREATE SCHEMA " + schema);
  return uri_ + "&options=-csearch_path%3D" + schema;
}

void PostgresServer::RestartImmediately() { Run("restart"); }

std::string PostgresServer::Query(const std::string& uri, const std::string& sql) {
  PgConnection connection(uri);
  const PgRows rows = connection.Exec(sql);
  if (rows.Count() == 0) return "";
  return rows.Value(0, 0).value_or("");
}

}  // namespace QuillmarBasebandSDK::Testing
