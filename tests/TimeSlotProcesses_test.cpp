// Embedders in separate processes sharing one time-slot file: no two of them ever keep
// overlapping times of one CID, no busy failure escapes, and a process killed while it holds the
// write lock leaves the file consistent and usable.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "database/CppSQLite3DB.h"
#include "database/CppSQLite3Exception.h"
#include "database/DatabaseTestSupport.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/TimeTicks.h"
#include "framework/Logger.h"
#include "framework/testing/ChildProcess.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::Testing::ChildProcess;
using Testing::TemporaryFolder;

const std::list<unsigned> kCids = {1, 2, 3, 4, 5, 6};
constexpr int kProcesses = 4;
constexpr int kCyclesPerProcess = 200;

// One session's kept time of one CID, in ticks: [start, end).
struct KeptSlot {
  unsigned cid;
  std::uint64_t start;
  std::uint64_t end;
  int process;
};

// What one worker process saw: its kept slots ("K cid start end"), and anything unexpected
// ("E text"): an error other than "no usable CID right now", such as a busy database.
struct SessionLog {
  std::vector<KeptSlot> kept;
  std::vector<std::string> errors;
  int refusals = 0;
};

constexpr const char* kNoUsableCid = "cannot find suitable record";

std::uint64_t Ticks(const SYSTEMTIME& time) { return TimeTicks::FromSystemTime(time); }

// Runs `cycles` embedding sessions on `path`: a random subset of the CIDs, a random length,
// a lease or none, up to two extensions, and a finalisation keeping a random part. Writes what it
// kept and every unexpected failure to `logPath`.
int RunSessions(const std::string& path, const std::string& logPath, unsigned seed, int cycles) {
  std::mt19937 random(seed);
  auto uniform = [&random](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  std::ofstream log(logPath);
  std::string err;
  EmbedderDatabaseV2 db;
  if (!db.Init(path.c_str(), kCids, err)) {
    log << "E " << err << '\n';
    return 0;
  }
  for (int cycle = 0; cycle < cycles; ++cycle) {
    std::vector<unsigned> program;
    for (const unsigned cid : kCids) {
      if (uniform(0, 1) == 1) program.push_back(cid);
    }
    if (program.empty()) program.push_back(kCids.front());
    const int duration = uniform(0, 120);
    // Leases far longer than the test runs, so that none runs out; or no lease at all.
    const int lockSeconds = uniform(0, 2) == 0 ? 0 : uniform(300, 3600);

    unsigned cid = 0;
    SYSTEMTIME start{};
    if (!db.AllocateEmbeddingTimeslot(program, duration, cid, start, err, lockSeconds)) {
      if (err.find(kNoUsableCid) == std::string::npos) log << "E " << err << '\n';
      log << "R\n";
      continue;
    }
    int total = duration;
    for (int extensions = uniform(0, 2); extensions > 0 && lockSeconds > 0; --extensions) {
      total = db.ExtendTimeslot(uniform(0, 60), err, lockSeconds);
      if (total == 0) log << "E " << err << '\n';
    }
    const int keep = lockSeconds > 0 ? uniform(0, total) : duration;
    if (!db.FinalizeEmbedding(keep, err)) log << "E " << err << '\n';
    log << "K " << cid << ' ' << Ticks(start) << ' '
        << Ticks(TimeTicks::AddSeconds(start, keep)) << '\n';
  }
  return 0;
}

SessionLog ReadSessionLogs(const TemporaryFolder& folder, int processes) {
  SessionLog all;
  for (int process = 0; process < processes; ++process) {
    std::ifstream log(folder.File("sessions-" + std::to_string(process) + ".log"));
    std::string line;
    while (std::getline(log, line)) {
      std::istringstream fields(line);
      std::string kind;
      fields >> kind;
      if (kind == "K") {
        KeptSlot slot{0, 0, 0, process};
        fields >> slot.cid >> slot.start >> slot.end;
        all.kept.push_back(slot);
      } else if (kind == "R") {
        ++all.refusals;
      } else {
        all.errors.push_back(line);
      }
    }
  }
  return all;
}

// Every pair of kept slots of one CID that share time, as text; empty when there is none.
// A slot of no length holds no time, so it shares none.
std::vector<std::string> Overlaps(std::vector<KeptSlot> slots) {
  slots.erase(std::remove_if(slots.begin(), slots.end(),
                             [](const KeptSlot& slot) { return slot.start == slot.end; }),
              slots.end());
  std::sort(slots.begin(), slots.end(), [](const KeptSlot& a, const KeptSlot& b) {
    return a.cid != b.cid ? a.cid < b.cid : a.start < b.start;
  });
  std::vector<std::string> overlaps;
  for (std::size_t i = 1; i < slots.size(); ++i) {
    const KeptSlot& before = slots[i - 1];
    const KeptSlot& after = slots[i];
    if (before.cid == after.cid && after.start < before.end) {
      overlaps.push_back("CID " + std::to_string(after.cid) + ": process " +
                         std::to_string(before.process) + " kept until " +
                         std::to_string(before.end) + ", process " +
                         std::to_string(after.process) + " from " + std::to_string(after.start));
    }
  }
  return overlaps;
}

void ExpectFileConsistentAndUnlocked(const std::string& path) {
  EXPECT_EQ("ok", Testing::QuerySql(path, "PRAGMA integrity_check;"));
  for (const auto& row : Testing::ReadSlots(path)) {
    EXPECT_EQ(0u, Ticks(row.LockedTill)) << "CID " << row.CID << " is still leased";
  }
}

int StartWorkers(const TemporaryFolder& folder, int first, int count, int cycles,
                 std::vector<std::unique_ptr<ChildProcess>>& children) {
  for (int process = first; process < first + count; ++process) {
    children.push_back(std::make_unique<ChildProcess>([&folder, process, cycles] {
      return RunSessions(folder.File("slots.db"), folder.File("sessions-" + std::to_string(process) + ".log"),
                         static_cast<unsigned>(process) * 7919u + 1u, cycles);
    }));
  }
  return first + count;
}

TEST(TimeSlotProcesses, ConcurrentSessionsNeverKeepOverlappingTimesOfOneCid) {
  TemporaryFolder folder;
  std::vector<std::unique_ptr<ChildProcess>> children;
  // The processes also race to create the file's tables.
  StartWorkers(folder, 0, kProcesses, kCyclesPerProcess, children);
  for (auto& child : children) EXPECT_EQ(0, child->Wait());

  const SessionLog sessions = ReadSessionLogs(folder, kProcesses);
  EXPECT_EQ(std::vector<std::string>{}, sessions.errors);
  EXPECT_EQ(std::vector<std::string>{}, Overlaps(sessions.kept));
  EXPECT_EQ(kProcesses * kCyclesPerProcess,
            static_cast<int>(sessions.kept.size()) + sessions.refusals);
  EXPECT_GT(sessions.kept.size(), static_cast<std::size_t>(kProcesses * kCyclesPerProcess / 2));
  EXPECT_EQ(kCids.size(), Testing::ReadSlots(folder.File("slots.db")).size());
  ExpectFileConsistentAndUnlocked(folder.File("slots.db"));
}

// Writes one byte to `pipe` when the process logs that its row update ran, then waits to be
// killed: the process then holds the write lock inside an open transaction.
class StopInsideTransaction : public Framework::LogSink {
 public:
  explicit StopInsideTransaction(int pipe) : pipe_(pipe) {}
  void Write(const Framework::LogRecord& record) override {
    if (record.text != "Updating database OK") return;
    const char ready = 'x';
    if (write(pipe_, &ready, 1) != 1) _exit(1);
    for (;;) pause();
  }
  void WriteLine(const std::string&) override {}
  std::string Target() const override { return "stop inside transaction"; }

 private:
  int pipe_;
};

TEST(TimeSlotProcesses, KillingTheLockHolderMidTransactionLeavesAUsableFile) {
  TemporaryFolder folder;
  const std::string path = folder.File("slots.db");
  {
    EmbedderDatabaseV2 setup;
    std::string err;
    ASSERT_TRUE(setup.Init(path.c_str(), kCids, err)) << err;
  }
  int handshake[2];
  ASSERT_EQ(0, pipe(handshake));

  std::vector<std::unique_ptr<ChildProcess>> children;
  int processes = StartWorkers(folder, 0, 2, kCyclesPerProcess / 4, children);
  ChildProcess victim([&] {
    Framework::Logger::AddSink(std::make_shared<StopInsideTransaction>(handshake[1]));
    EmbedderDatabaseV2 db;
    std::string err;
    unsigned cid = 0;
    SYSTEMTIME start{};
    if (!db.Init(path.c_str(), kCids, err)) return 2;
    db.AllocateEmbeddingTimeslot({1, 2, 3, 4, 5, 6}, 3600, cid, start, err, 3600);
    return 3;  // never reached: the process stops inside the allocation's transaction
  });
  char ready = 0;
  ASSERT_EQ(1, read(handshake[0], &ready, 1));
  close(handshake[0]);
  close(handshake[1]);

  // The victim holds the write lock: a writer that does not wait is refused.
  CppSQLite3DB probe(0);
  probe.open(path.c_str());
  try {
    probe.execDML("BEGIN IMMEDIATE TRANSACTION;");
    ADD_FAILURE() << "the write lock was free";
  } catch (const CppSQLite3Exception& error) {
    EXPECT_EQ(5, error.errorCode()) << error.errorMessage();
  }
  probe.close();
  // ...and has changed pages: its rollback journal holds their old contents.
  EXPECT_TRUE(std::filesystem::exists(path + "-journal"));

  victim.Kill();
  EXPECT_EQ(128 + SIGKILL, victim.Wait());
  // The next process, and the workers that waited for the lock, allocate as usual.
  processes = StartWorkers(folder, processes, 1, kCyclesPerProcess / 4, children);
  for (auto& child : children) EXPECT_EQ(0, child->Wait());

  const SessionLog sessions = ReadSessionLogs(folder, processes);
  EXPECT_EQ(std::vector<std::string>{}, sessions.errors);
  EXPECT_EQ(std::vector<std::string>{}, Overlaps(sessions.kept));
  EXPECT_TRUE(std::any_of(sessions.kept.begin(), sessions.kept.end(),
                          [&](const KeptSlot& slot) { return slot.process == processes - 1; }))
      << "the process started after the kill kept a slot";
  // The victim's lease of 3600 s was never committed.
  ExpectFileConsistentAndUnlocked(path);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
