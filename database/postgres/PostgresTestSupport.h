// Test support for the PostgreSQL reservoir: a throwaway cluster in a temporary folder, reached
// on a Unix socket only, started with scripts/pg-cluster (initdb and pg_ctl, run as the user
// "postgres" when the tests run as root). For tests and benchmarks only.
#pragma once

#include <memory>
#include <string>

#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK::Testing {

class PostgresServer {
 public:
  // Creates and starts a cluster; throws std::runtime_error when it cannot.
  PostgresServer();
  // Stops the cluster and removes its folder (only in the process that started it).
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  // The URI of a new, empty place for a reservoir on the cluster (a schema of its own, which the
  // URI puts first on the search path).
  std::string NewReservoir();
  // Stops the server at once, as a crash would, and starts it again.
  void RestartImmediately();
  // Runs `sql` on the database at `uri`, on a connection of its own; the first field of the first
  // row ("" when there is none or it is NULL).
  static std::string Query(const std::string& uri, const std::string& sql);

 private:
  void Run(const std::string& action) const;

  Framework::Testing::TemporaryFolder folder_;
  std::string clusterFolder_;
  std::string uri_;  // of the database "postgres"
  int reservoirs_ = 0;
  int owner_;  // the process that started the cluster
};

}  // namespace QuillmarBasebandSDK::Testing
