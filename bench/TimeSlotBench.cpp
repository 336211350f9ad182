// Time-slot reservoirs under load: allocate+finalise cycles per second and their p99 latency on
// tables of 10, 1,000 and 10,000 CIDs with 1, 2, 4 and 8 processes, on one SQLite file and on a
// throwaway PostgreSQL server (Unix socket, fsync off), beside a bare
// "BEGIN IMMEDIATE TRANSACTION; END TRANSACTION;" loop on the file (the cost of the write lock
// alone).
//
// Each run forks the processes, lets each open the reservoir, releases them together and lets
// each loop for kRunSeconds. Each process's program holds 10 CIDs spread over the table, its own
// where the table has room (process p takes the CIDs p + 1, p + 1 + n/10, ...), as embedders of
// different channels do; each allocation leases its CID for 60 s and is finalised at once.
// No log sink is attached: log lines are built but written nowhere.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <numeric>

#include "database/CppSQLite3DB.h"
#include "database/DatabaseTestSupport.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/TimeSlotReservoir.h"
#include "database/postgres/PostgresTestSupport.h"
#include "framework/testing/ChildProcess.h"

namespace QuillmarBasebandSDK {
namespace {

using Clock = std::chrono::steady_clock;
using Framework::Testing::ChildProcess;
using Testing::TemporaryFolder;

constexpr double kRunSeconds = 1.5;
constexpr int kProgramCids = 10;
constexpr int kSlotSeconds = 1;
constexpr int kLeaseSeconds = 60;

// One loop iteration of one process; returns false when it failed.
using Cycle = std::function<bool()>;
// Opens what process number `process` needs and returns its loop iteration.
using OpenCycle = std::function<Cycle(const std::string& location, int tableCids, int process)>;

enum class Backend { File, Server };

// The reservoir of each backend and table size, made once and shared by every run.
const std::string& ReservoirWithCids(Backend backend, int tableCids) {
  static auto* folder = new TemporaryFolder;
  static std::unique_ptr<Testing::PostgresServer> server;  // started when first needed
  static std::map<std::pair<Backend, int>, std::string> locations;
  auto found = locations.find({backend, tableCids});
  if (found != locations.end()) return found->second;
  if (backend == Backend::Server && server == nullptr) {
    server = std::make_unique<Testing::PostgresServer>();
  }
  const std::string location = backend == Backend::File
                                   ? folder->File("slots-" + std::to_string(tableCids) + ".db")
                                   : server->NewReservoir();
  std::list<unsigned> cids(static_cast<std::size_t>(tableCids));
  std::iota(cids.begin(), cids.end(), 1u);
  auto reservoir = TimeSlotReservoir::ForLocation(location);
  std::string err;
  if (!reservoir->Init(location.c_str(), cids, err)) throw std::runtime_error(err);
  return locations.emplace(std::make_pair(backend, tableCids), location).first->second;
}

Cycle AllocateAndFinalize(const std::string& location, int tableCids, int process) {
  std::shared_ptr<TimeSlotReservoir> db = TimeSlotReservoir::ForLocation(location);
  std::string err;
  if (!db->Init(location.c_str(), {}, err)) throw std::runtime_error(err);
  std::vector<unsigned> program;
  for (int i = 0; i < kProgramCids; ++i) {
    program.push_back(
        static_cast<unsigned>((process + i * tableCids / kProgramCids) % tableCids + 1));
  }
  return [db, program] {
    std::string error;
    unsigned cid = 0;
    SYSTEMTIME start{};
    return db->AllocateEmbeddingTimeslot(program, kSlotSeconds, cid, start, error, kLeaseSeconds) &&
           db->FinalizeEmbedding(kSlotSeconds, error);
  };
}

Cycle BareTransaction(const std::string& path, int, int) {
  auto db = std::make_shared<CppSQLite3DB>(EmbedderDatabaseV2::kBusyTimeoutMs);
  db->open(path.c_str());
  return [db] {
    db->execDML("BEGIN IMMEDIATE TRANSACTION; END TRANSACTION;");
    return true;
  };
}

// Loops `cycle` for kRunSeconds; writes the loop's start and end (steady clock, ns) and then each
// iteration's latency (ns) to `out`. Exit status 1 when an iteration failed.
int Loop(const Cycle& cycle, const std::string& out) {
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(kRunSeconds));
  std::vector<std::int64_t> record = {0, 0};
  bool failed = false;
  Clock::time_point now = start;
  while (now < end) {
    failed = !cycle() || failed;
    const Clock::time_point done = Clock::now();
    record.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(done - now).count());
    now = done;
  }
  record[0] = std::chrono::duration_cast<std::chrono::nanoseconds>(start.time_since_epoch()).count();
  record[1] = std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count();
  std::ofstream(out, std::ios::binary)
      .write(reinterpret_cast<const char*>(record.data()),
             static_cast<std::streamsize>(record.size() * sizeof(std::int64_t)));
  return failed ? 1 : 0;
}

std::vector<std::int64_t> ReadRecord(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  std::vector<std::int64_t> record(static_cast<std::size_t>(in.tellg()) / sizeof(std::int64_t));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(record.data()),
          static_cast<std::streamsize>(record.size() * sizeof(std::int64_t)));
  return record;
}

void RunProcesses(benchmark::State& state, Backend backend, const OpenCycle& open) {
  const int tableCids = static_cast<int>(state.range(0));
  const int processes = static_cast<int>(state.range(1));
  const std::string& location = ReservoirWithCids(backend, tableCids);
  TemporaryFolder results;
  for (auto _ : state) {
    int barrier[2];
    if (pipe(barrier) != 0) throw std::runtime_error("pipe failed");
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (int process = 0; process < processes; ++process) {
      const std::string out = results.File("latencies-" + std::to_string(process));
      children.push_back(std::make_unique<ChildProcess>([&, out, process] {
        const Cycle cycle = open(location, tableCids, process);
        close(barrier[1]);
        char go = 0;
        if (read(barrier[0], &go, 1) != 0) return 2;  // released by the parent closing the pipe
        return Loop(cycle, out);
      }));
    }
    close(barrier[0]);
    close(barrier[1]);
    int failures = 0;
    for (auto& child : children) failures += child->Wait() != 0 ? 1 : 0;

    // From the first process's start to the last one's end.
    std::int64_t first = INT64_MAX;
    std::int64_t last = 0;
    std::vector<std::int64_t> all;
    for (int process = 0; process < processes; ++process) {
      const auto record = ReadRecord(results.File("latencies-" + std::to_string(process)));
      if (record.size() < 2) throw std::runtime_error("a process wrote no record");
      first = std::min(first, record[0]);
      last = std::max(last, record[1]);
      all.insert(all.end(), record.begin() + 2, record.end());
    }
    const double wall = static_cast<double>(last - first) / 1e9;
    state.SetIterationTime(wall);
    std::sort(all.begin(), all.end());
    const auto percentile = [&all](double p) {
      return all.empty() ? 0.0
                         : static_cast<double>(all[static_cast<std::size_t>(p * (all.size() - 1))]) / 1e6;
    };
    state.counters["per_s"] = static_cast<double>(all.size()) / wall;
    state.counters["p50_ms"] = percentile(0.50);
    state.counters["p99_ms"] = percentile(0.99);
    state.counters["failed_procs"] = failures;
  }
}

void BM_AllocateFinalize(benchmark::State& state) {
  RunProcesses(state, Backend::File, AllocateAndFinalize);
}
void BM_AllocateFinalizeOnServer(benchmark::State& state) {
  RunProcesses(state, Backend::Server, AllocateAndFinalize);
}
void BM_BareTransaction(benchmark::State& state) {
  RunProcesses(state, Backend::File, BareTransaction);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"cids", "procs"})
      ->ArgsProduct({{10, 1000, 10000}, {1, 2, 4, 8}})
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_AllocateFinalize)->Apply(Sizes);
BENCHMARK(BM_AllocateFinalizeOnServer)->Apply(Sizes);
BENCHMARK(BM_BareTransaction)->Apply(Sizes);

}  // namespace
}  // namespace QuillmarBasebandSDK

BENCHMARK_MAIN();
