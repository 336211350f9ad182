// Time-slot reservoirs under load, on tables of 10, 1,000 and 10,000 CIDs with 1, 2, 4 and 8
// processes:
//   AllocateFinalize          the SQLite file, writers queued in arrival order (as shipped)
//   AllocateFinalizeUnqueued  the same with the queue file blocked, so that writers poll SQLite's
//                             lock with its growing sleeps (as before the queue)
//   BareSqliteCycle           the same SQL work through the bare sqlite3 C API, on the same file:
//                             BEGIN IMMEDIATE; SELECT of the whole table; the four UPDATEs; END,
//                             twice per cycle: what the file itself costs
//   AllocateFinalizeLogged    the file, one process, with an HTML log file attached (every row of
//                             every search written)
//   AllocateFinalizeOnServer  a throwaway PostgreSQL server (Unix socket, fsync off)
// and, on 1,000 CIDs with 8 processes, each of them for 10 s at full speed (Fairness) and paced
// at 10 cycles a second each for 60 s (Realistic). The folder is TMPDIR's: run once on a disk and
// once with TMPDIR=/dev/shm.
//
// Each run forks the processes, lets each open the reservoir, releases them together and lets
// each loop. Each process's program holds 10 CIDs spread over the table, its own where the table
// has room (process p takes the CIDs p + 1, p + 1 + n/10, ...), as embedders of different
// channels do; each allocation leases its CID for 60 s and is finalised at once. Latencies are
// reported pooled over all cycles and for the worst process (the highest of the processes' own
// figures): a process starved while others take the lock back to back shows only in the latter.
// No log sink is attached: log lines are built but written nowhere.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <thread>

#include "database/EmbedderDatabaseV2.h"
#include "database/TimeSlotReservoir.h"
#include "database/postgres/PostgresTestSupport.h"
#include "framework/Logger.h"
#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK {
namespace {

using Clock = std::chrono::steady_clock;
using Framework::Testing::ChildProcess;
using Framework::Testing::TemporaryFolder;

constexpr double kRunSeconds = 1.5;
constexpr double kFairnessSeconds = 10;
constexpr double kRealisticSeconds = 60;
constexpr double kRealisticPerSecond = 10;
constexpr int kProgramCids = 10;
constexpr int kSlotSeconds = 1;
constexpr int kLeaseSeconds = 60;

// One loop iteration of one process; returns false when it failed.
using Cycle = std::function<bool()>;
// Opens what process number `process` needs and returns its loop iteration.
using OpenCycle = std::function<Cycle(const std::string& location, int tableCids, int process)>;

enum class Backend { File, UnqueuedFile, Server };

// The reservoir of each backend and table size, made once and shared by every run.
const std::string& ReservoirWithCids(Backend backend, int tableCids) {
  static auto* folder = new TemporaryFolder;
  static std::unique_ptr<Testing::PostgresServer> server;  // started when first needed
  static std::map<std::pair<Backend, int>, std::string> locations;
  auto found = locations.find({backend, tableCids});
  if (found != locations.end()) return found->second;
  std::string location;
  if (backend == Backend::Server) {
    if (server == nullptr) server = std::make_unique<Testing::PostgresServer>();
    location = server->NewReservoir();
  } else {
    const char* name = backend == Backend::File ? "queued-" : "unqueued-";
    location = folder->File(name + std::to_string(tableCids) + ".db");
    // A folder where the queue file would be leaves the writers to SQLite's busy handler.
    if (backend == Backend::UnqueuedFile) mkdir((location + "-queue").c_str(), 0700);
  }
  std::list<unsigned> cids(static_cast<std::size_t>(tableCids));
  std::iota(cids.begin(), cids.end(), 1u);
  auto reservoir = TimeSlotReservoir::ForLocation(location);
  std::string err;
  if (!reservoir->Init(location.c_str(), cids, err)) throw std::runtime_error(err);
  return locations.emplace(std::make_pair(backend, tableCids), location).first->second;
}

std::vector<unsigned> ProgramOf(int tableCids, int process) {
  std::vector<unsigned> program;
  for (int i = 0; i < kProgramCids; ++i) {
    program.push_back(
        static_cast<unsigned>((process + i * tableCids / kProgramCids) % tableCids + 1));
  }
  return program;
}

Cycle AllocateAndFinalize(const std::string& location, int tableCids, int process) {
  std::shared_ptr<TimeSlotReservoir> db = TimeSlotReservoir::ForLocation(location);
  std::string err;
  if (!db->Init(location.c_str(), {}, err)) throw std::runtime_error(err);
  return [db, program = ProgramOf(tableCids, process)] {
    std::string error;
    unsigned cid = 0;
    SYSTEMTIME start{};
    return db->AllocateEmbeddingTimeslot(program, kSlotSeconds, cid, start, error, kLeaseSeconds) &&
           db->FinalizeEmbedding(kSlotSeconds, error);
  };
}

// AllocateAndFinalize with every line logged to an HTML file beside the reservoir.
Cycle LoggedAllocateAndFinalize(const std::string& location, int tableCids, int process) {
  Framework::Logger::AddFileLogging(location + "-log-%f.html", Framework::LogFileType::Html,
                                    Framework::TextDateFormat::DateTimeMilliseconds);
  return AllocateAndFinalize(location, tableCids, process);
}

// The SQL of an allocation or a finalisation with nothing around it: the whole table read, one
// row's four columns written.
Cycle BareSqliteCycle(const std::string& path, int tableCids, int process) {
  sqlite3* opened = nullptr;
  sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  std::shared_ptr<sqlite3> db(opened, sqlite3_close);
  sqlite3_busy_timeout(db.get(), EmbedderDatabaseV2::kBusyTimeoutMs);
  const unsigned cid = ProgramOf(tableCids, process).front();
  auto transaction = [db, cid](std::uint64_t value) {
    bool ok = sqlite3_exec(db.get(), "BEGIN IMMEDIATE TRANSACTION;", nullptr, nullptr, nullptr) ==
              SQLITE_OK;
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db.get(), "select * from TimeStampReservoirV2;", -1, &select, nullptr);
    std::int64_t sum = 0;
    while (sqlite3_step(select) == SQLITE_ROW) {
      for (int column = 0; column < 5; ++column) sum += sqlite3_column_int64(select, column);
    }
    sqlite3_finalize(select);
    benchmark::DoNotOptimize(sum);
    for (const char* column : {"TimestampHi", "TimestampLo", "LockedTillHi", "LockedTillLo"}) {
      const std::string update = std::string("update TimeStampReservoirV2 set ") + column + " = " +
                                 std::to_string(value & 0xffffffffu) +
                                 " where CID = " + std::to_string(cid) + ";";
      ok = sqlite3_exec(db.get(), update.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK && ok;
    }
    return sqlite3_exec(db.get(), "END TRANSACTION;", nullptr, nullptr, nullptr) == SQLITE_OK && ok;
  };
  return [transaction, value = std::uint64_t{0}]() mutable {
    value += 2;
    return transaction(value) && transaction(value + 1);
  };
}

// How long a process loops, and how often it starts a cycle (0: back to back).
struct Pace {
  double seconds;
  double cyclesPerSecond;
};

// Loops `cycle` as `pace` says; writes the loop's start and end (steady clock, ns) and then each
// cycle's latency (ns) to `out`. Exit status 1 when a cycle failed.
int Loop(const Cycle& cycle, const std::string& out, Pace pace) {
  const Clock::time_point start = Clock::now();
  const auto seconds = [](double value) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(value));
  };
  const Clock::time_point end = start + seconds(pace.seconds);
  std::vector<std::int64_t> record = {0, 0};
  bool failed = false;
  Clock::time_point now = start;
  for (long n = 1; now < end; ++n) {
    const Clock::time_point begun = Clock::now();
    failed = !cycle() || failed;
    now = Clock::now();
    record.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(now - begun).count());
    if (pace.cyclesPerSecond > 0) {
      std::this_thread::sleep_until(start + seconds(static_cast<double>(n) / pace.cyclesPerSecond));
      now = Clock::now();
    }
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

// The `p` quantile of sorted latencies, in ms.
double Quantile(const std::vector<std::int64_t>& sorted, double p) {
  if (sorted.empty()) return 0.0;
  return static_cast<double>(sorted[static_cast<std::size_t>(p * (sorted.size() - 1))]) / 1e6;
}

void RunProcesses(benchmark::State& state, Backend backend, const OpenCycle& open, Pace pace) {
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
        return Loop(cycle, out, pace);
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
    double worstP50 = 0;
    double worstP99 = 0;
    double worstMax = 0;
    for (int process = 0; process < processes; ++process) {
      auto record = ReadRecord(results.File("latencies-" + std::to_string(process)));
      if (record.size() < 2) throw std::runtime_error("a process wrote no record");
      first = std::min(first, record[0]);
      last = std::max(last, record[1]);
      std::vector<std::int64_t> own(record.begin() + 2, record.end());
      std::sort(own.begin(), own.end());
      worstP50 = std::max(worstP50, Quantile(own, 0.50));
      worstP99 = std::max(worstP99, Quantile(own, 0.99));
      worstMax = std::max(worstMax, Quantile(own, 1.0));
      all.insert(all.end(), own.begin(), own.end());
    }
    const double wall = static_cast<double>(last - first) / 1e9;
    state.SetIterationTime(wall);
    std::sort(all.begin(), all.end());
    state.counters["per_s"] = static_cast<double>(all.size()) / wall;
    state.counters["p50_ms"] = Quantile(all, 0.50);
    state.counters["p99_ms"] = Quantile(all, 0.99);
    state.counters["max_ms"] = Quantile(all, 1.0);
    state.counters["proc_p50_ms"] = worstP50;
    state.counters["proc_p99_ms"] = worstP99;
    state.counters["proc_max_ms"] = worstMax;
    state.counters["failed_procs"] = failures;
  }
}

constexpr Pace kFullSpeed{kRunSeconds, 0};

void BM_AllocateFinalize(benchmark::State& state) {
  RunProcesses(state, Backend::File, AllocateAndFinalize, kFullSpeed);
}
void BM_AllocateFinalizeUnqueued(benchmark::State& state) {
  RunProcesses(state, Backend::UnqueuedFile, AllocateAndFinalize, kFullSpeed);
}
void BM_BareSqliteCycle(benchmark::State& state) {
  RunProcesses(state, Backend::File, BareSqliteCycle, kFullSpeed);
}
void BM_AllocateFinalizeLogged(benchmark::State& state) {
  RunProcesses(state, Backend::File, LoggedAllocateAndFinalize, kFullSpeed);
}
void BM_AllocateFinalizeOnServer(benchmark::State& state) {
  RunProcesses(state, Backend::Server, AllocateAndFinalize, kFullSpeed);
}
void BM_Fairness(benchmark::State& state) {
  RunProcesses(state, state.range(2) ? Backend::File : Backend::UnqueuedFile, AllocateAndFinalize,
               {kFairnessSeconds, 0});
}
void BM_Realistic(benchmark::State& state) {
  RunProcesses(state, state.range(2) ? Backend::File : Backend::UnqueuedFile, AllocateAndFinalize,
               {kRealisticSeconds, kRealisticPerSecond});
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"cids", "procs"})
      ->ArgsProduct({{10, 1000, 10000}, {1, 2, 4, 8}})
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void OneProcess(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"cids", "procs"})
      ->ArgsProduct({{10, 1000, 10000}, {1}})
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

// 1,000 CIDs, 8 processes, unqueued (0) and queued (1).
void EightOnAThousand(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"cids", "procs", "queued"})
      ->ArgsProduct({{1000}, {8}, {0, 1}})
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_AllocateFinalize)->Apply(Sizes);
BENCHMARK(BM_AllocateFinalizeUnqueued)->Apply(Sizes);
BENCHMARK(BM_BareSqliteCycle)->Apply(Sizes);
BENCHMARK(BM_AllocateFinalizeLogged)->Apply(OneProcess);
BENCHMARK(BM_AllocateFinalizeOnServer)->Apply(Sizes);
BENCHMARK(BM_Fairness)->Apply(EightOnAThousand);
BENCHMARK(BM_Realistic)->Apply(EightOnAThousand);

}  // namespace
}  // namespace QuillmarBasebandSDK

BENCHMARK_MAIN();
