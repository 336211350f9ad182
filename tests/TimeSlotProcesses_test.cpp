// Embedders in separate processes sharing one reservoir: a SQLite file (the embedders of one
// machine) or a PostgreSQL server (each process standing for a host of a fleet). No two of them
// ever keep overlapping times of one CID; every slot a process was told it has is in the table;
// no lease outlives its time, even when processes are killed at random and the server crashes.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>

#include "database/CppSQLite3DB.h"
#include "database/CppSQLite3Exception.h"
#include "database/DatabaseTestSupport.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/ReservoirTable.h"
#include "database/TimeSlotReservoir.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"
#include "database/postgres/PostgresTestSupport.h"
#include "framework/Logger.h"
#include "framework/testing/ChildProcess.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::Testing::ChildProcess;
using Testing::TemporaryFolder;

const std::list<unsigned> kCids = {1, 2, 3, 4, 5, 6};
constexpr int kCyclesPerProcess = 200;
constexpr int kUntilStopped = -1;
// An announced lease bound is taken before its call, the lease itself a moment later.
constexpr int kAnnouncedLeaseMargin = 60;

std::uint64_t Ticks(const SYSTEMTIME& time) { return TimeTicks::FromSystemTime(time); }

// A time of one CID a process was told it has, in ticks: [start, end), leased till at most
// leaseBound (0: no lease).
struct Slot {
  unsigned cid = 0;
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint64_t leaseBound = 0;
  int process = 0;
};

// What the processes logged, one line per event: "G" a grant, "X" an extension, "K" what a
// finalisation kept ("cid start end leaseBound"), "F" a failed finalisation, "R" a refusal
// (no usable CID), "E text" any other failure, and after a failed call that may yet have
// written a lease (its commit broke off), "U leaseBound". A process can be killed between a
// call's commit and its line, so a call that changes the table is announced first: "A leaseBound"
// before an allocation or extension, "k cid start end 0" before a finalisation. An announcement
// that no line of the call follows counts as what the call may have done.
struct SessionLog {
  std::vector<Slot> slots;  // each session's last word: kept, or granted and never finalised
  std::vector<std::string> errors;
  int refusals = 0;
  int unfinalised = 0;  // sessions that may have left a lease
  std::uint64_t unknownLeaseBound = 0;
};

// Runs embedding sessions on `location` (`cycles` of them, or until the file `stop` exists): a
// random subset of the CIDs, a random length, a lease or none, up to two extensions, and a
// finalisation keeping a random part. Logs every event to `logPath` as it happens.
int RunSessions(const std::string& location, const std::string& logPath, unsigned seed, int cycles,
                const std::string& stop) {
  std::mt19937 random(seed);
  auto uniform = [&random](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  std::ofstream log(logPath);
  // The latest end of a lease of `seconds` granted so far.
  auto bound = [](int seconds) {
    return seconds > 0 ? Ticks(TimeTicks::AddSeconds(UtcClock::Now(), seconds)) : 0;
  };
  auto slotLine = [&](char kind, unsigned cid, const SYSTEMTIME& start, int seconds, int lease) {
    log << kind << ' ' << cid << ' ' << Ticks(start) << ' '
        << Ticks(TimeTicks::AddSeconds(start, seconds)) << ' ' << bound(lease) << std::endl;
  };
  auto announce = [&](int lease) {
    log << "A " << bound(lease > 0 ? lease + kAnnouncedLeaseMargin : 0) << std::endl;
  };
  auto failure = [&](const std::string& error, int lease) {
    log << "E " << error << "\nU " << bound(lease) << std::endl;
  };
  std::string err;
  auto reservoir = TimeSlotReservoir::ForLocation(location);
  if (!reservoir->Init(location.c_str(), kCids, err)) {
    log << "E " << err << std::endl;
    return 0;
  }
  for (int cycle = 0; cycle != cycles && !std::filesystem::exists(stop); ++cycle) {
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
    announce(lockSeconds);
    if (!reservoir->AllocateEmbeddingTimeslot(program, duration, cid, start, err, lockSeconds)) {
      if (err.find("cannot find suitable record") != std::string::npos) {
        log << "R" << std::endl;
      } else {
        failure(err, lockSeconds);
      }
      continue;
    }
    slotLine('G', cid, start, duration, lockSeconds);
    int total = duration;
    for (int extensions = uniform(0, 2); extensions > 0 && lockSeconds > 0; --extensions) {
      // At least a second: a total of 0 would read as a failure.
      announce(lockSeconds);
      const int extended = reservoir->ExtendTimeslot(uniform(1, 60), err, lockSeconds);
      if (extended == 0) {
        failure(err, lockSeconds);
        continue;
      }
      total = extended;
      slotLine('X', cid, start, total, lockSeconds);
    }
    const int keep = lockSeconds > 0 ? uniform(0, total) : duration;
    slotLine('k', cid, start, keep, 0);
    if (reservoir->FinalizeEmbedding(keep, err)) {
      slotLine('K', cid, start, keep, 0);
    } else {
      log << "F\nE " << err << std::endl;
    }
  }
  return 0;
}

std::string LogName(int process) { return "sessions-" + std::to_string(process) + ".log"; }

SessionLog ReadSessionLogs(const TemporaryFolder& folder, int processes) {
  SessionLog all;
  for (int process = 0; process < processes; ++process) {
    std::ifstream log(folder.File(LogName(process)));
    std::optional<Slot> open;  // the session granted last and not yet finalised
    std::uint64_t finalisingEnd = 0;  // where an announced finalisation would end the slot; 0: none
    std::uint64_t announced = 0;     // the lease bound of an announced call with no line yet
    auto close = [&all, &open, &finalisingEnd](bool finalised) {
      // A finalisation cut short by a kill may have committed: the slot may end at what it keeps.
      if (open && finalisingEnd > 0) open->end = std::min(open->end, finalisingEnd);
      if (open) all.slots.push_back(*open);
      all.unfinalised += open && !finalised ? 1 : 0;
      open.reset();
      finalisingEnd = 0;
    };
    std::string line;
    while (std::getline(log, line)) {
      std::istringstream fields(line);
      std::string kind;
      fields >> kind;
      Slot slot;
      slot.process = process;
      if (kind == "G" || kind == "X" || kind == "K" || kind == "k") {
        // A line cut short by a kill is no event.
        if (!(fields >> slot.cid >> slot.start >> slot.end >> slot.leaseBound)) continue;
        if (kind == "k") {
          finalisingEnd = slot.end;
          continue;
        }
        if (kind == "G") close(false);
        announced = 0;
        open = slot;
        if (kind == "K") close(true);
      } else if (kind == "F") {
        finalisingEnd = 0;
      } else if (kind == "A") {
        fields >> announced;
      } else if (kind == "R") {
        announced = 0;
        ++all.refusals;
      } else if (kind == "U") {
        std::uint64_t bound = 0;
        fields >> bound;
        announced = 0;
        all.unknownLeaseBound = std::max(all.unknownLeaseBound, bound);
        all.unfinalised += bound > 0 ? 1 : 0;
      } else if (kind == "E") {
        all.errors.push_back(line);
      }
    }
    close(false);
    all.unknownLeaseBound = std::max(all.unknownLeaseBound, announced);
    all.unfinalised += announced > 0 ? 1 : 0;
  }
  return all;
}

// Every pair of slots of one CID that share time, as text; empty when there is none.
// A slot of no length holds no time, so it shares none.
std::vector<std::string> Overlaps(std::vector<Slot> slots) {
  slots.erase(std::remove_if(slots.begin(), slots.end(),
                             [](const Slot& slot) { return slot.start == slot.end; }),
              slots.end());
  std::sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) {
    return a.cid != b.cid ? a.cid < b.cid : a.start < b.start;
  });
  std::vector<std::string> overlaps;
  for (std::size_t i = 1; i < slots.size(); ++i) {
    const Slot& before = slots[i - 1];
    const Slot& after = slots[i];
    if (before.cid == after.cid && after.start < before.end) {
      overlaps.push_back("CID " + std::to_string(after.cid) + ": process " +
                         std::to_string(before.process) + " has until " +
                         std::to_string(before.end) + ", process " + std::to_string(after.process) +
                         " from " + std::to_string(after.start));
    }
  }
  return overlaps;
}

// The table holds every slot, and a lease only where a session was never finalised, ending no
// later than its grant allowed. Returns the number of leased rows.
int ExpectTableHoldsTheSlots(const std::string& location, const SessionLog& sessions) {
  std::map<unsigned, CID_Timestamp_Lock_Record> rows;
  for (const auto& row : ReservoirTable::Read(location).rows) rows[row.CID] = row;
  EXPECT_EQ(kCids.size(), rows.size());
  std::map<unsigned, std::uint64_t> leaseBound;
  for (const Slot& slot : sessions.slots) {
    EXPECT_LE(slot.end, Ticks(rows[slot.cid].Timestamp))
        << "CID " << slot.cid << ": process " << slot.process << "'s slot is not in the table";
    leaseBound[slot.cid] = std::max(leaseBound[slot.cid], slot.leaseBound);
  }
  int leased = 0;
  for (const auto& [cid, row] : rows) {
    if (Ticks(row.LockedTill) == 0) continue;
    ++leased;
    EXPECT_LE(Ticks(row.LockedTill), std::max(leaseBound[cid], sessions.unknownLeaseBound))
        << "CID " << cid << "'s lease outlives its time";
  }
  EXPECT_LE(leased, sessions.unfinalised);
  return leased;
}

class TimeSlotProcesses : public ::testing::TestWithParam<std::string> {
 protected:
  bool OnServer() const { return GetParam() == "postgresql"; }
  int Processes() const { return OnServer() ? 8 : 4; }

  // A new reservoir of the backend under test.
  std::string NewLocation() {
    if (!OnServer()) return folder_.File("slots.db");
    server_ = std::make_unique<Testing::PostgresServer>();
    return server_->NewReservoir();
  }

  void StartWorkers(const std::string& location, int count, int cycles) {
    for (int i = 0; i < count; ++i) {
      const int process = static_cast<int>(children_.size());
      children_.push_back(std::make_unique<ChildProcess>([=] {
        return RunSessions(location, folder_.File(LogName(process)),
                           static_cast<unsigned>(process) * 7919u + 1u, cycles,
                           folder_.File("stop"));
      }));
    }
  }

  // Waits until the logs hold `lines` more lines of `kind` than `since`; their count then.
  int WaitForLines(char kind, int since, int lines) {
    for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
         std::chrono::steady_clock::now() < deadline;
         std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
      int count = 0;
      for (std::size_t process = 0; process < children_.size(); ++process) {
        std::ifstream log(folder_.File(LogName(static_cast<int>(process))));
        for (std::string line; std::getline(log, line);) count += line[0] == kind ? 1 : 0;
      }
      if (count >= since + lines) return count;
    }
    ADD_FAILURE() << "the workers stopped making progress";
    return since;
  }

  TemporaryFolder folder_;
  std::unique_ptr<Testing::PostgresServer> server_;
  std::vector<std::unique_ptr<ChildProcess>> children_;
};

TEST_P(TimeSlotProcesses, ConcurrentSessionsNeverKeepOverlappingTimesOfOneCid) {
  // The processes also race to create the tables.
  const std::string location = NewLocation();
  StartWorkers(location, Processes(), kCyclesPerProcess);
  for (auto& child : children_) EXPECT_EQ(0, child->Wait());

  const SessionLog sessions = ReadSessionLogs(folder_, Processes());
  EXPECT_EQ(std::vector<std::string>{}, sessions.errors);
  EXPECT_EQ(std::vector<std::string>{}, Overlaps(sessions.slots));
  EXPECT_EQ(Processes() * kCyclesPerProcess,
            static_cast<int>(sessions.slots.size()) + sessions.refusals);
  EXPECT_GT(sessions.slots.size(), static_cast<std::size_t>(Processes() * kCyclesPerProcess / 2));
  EXPECT_EQ(0, ExpectTableHoldsTheSlots(location, sessions)) << "every lease released";
  if (!OnServer()) {
    EXPECT_EQ("ok", Testing::QuerySql(location, "PRAGMA integrity_check;"));
  }
}

TEST_P(TimeSlotProcesses, KilledProcessesAndACrashedServerLoseNoSlotAndSplitNone) {
  const std::string location = NewLocation();
  StartWorkers(location, Processes(), kUntilStopped);
  int kept = WaitForLines('K', 0, 40);
  std::vector<std::size_t> order(children_.size());
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(std::random_device()()));
  for (const std::size_t victim : {order[0], order[1]}) {
    children_[victim]->Kill();
    EXPECT_EQ(128 + SIGKILL, children_[victim]->Wait());
  }
  if (OnServer()) server_->RestartImmediately();
  kept = WaitForLines('K', kept, 40);
  std::ofstream(folder_.File("stop")).put('\n');
  for (auto& child : children_) child->Wait();

  SessionLog sessions = ReadSessionLogs(folder_, Processes());
  // Only the server's going away may fail a call, and such a failure is reported as the server's.
  sessions.errors.erase(std::remove_if(sessions.errors.begin(), sessions.errors.end(),
                                       [this](const std::string& error) {
                                         return OnServer() &&
                                                error.rfind("E PostgresReservoir::", 0) == 0;
                                       }),
                        sessions.errors.end());
  EXPECT_EQ(std::vector<std::string>{}, sessions.errors);
  EXPECT_EQ(std::vector<std::string>{}, Overlaps(sessions.slots));
  ExpectTableHoldsTheSlots(location, sessions);
}

INSTANTIATE_TEST_SUITE_P(, TimeSlotProcesses, ::testing::Values("sqlite", "postgresql"),
                         [](const auto& test) { return test.param; });

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

TEST(TimeSlotFileProcesses, KillingTheLockHolderMidTransactionLeavesAUsableFile) {
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
  auto startWorker = [&](int process) {
    children.push_back(std::make_unique<ChildProcess>([&, process] {
      return RunSessions(path, folder.File(LogName(process)), process * 7919u + 1u,
                         kCyclesPerProcess / 4, folder.File("stop"));
    }));
  };
  startWorker(0);
  startWorker(1);
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
  startWorker(2);
  for (auto& child : children) EXPECT_EQ(0, child->Wait());

  const SessionLog sessions = ReadSessionLogs(folder, 3);
  EXPECT_EQ(std::vector<std::string>{}, sessions.errors);
  EXPECT_EQ(std::vector<std::string>{}, Overlaps(sessions.slots));
  EXPECT_TRUE(std::any_of(sessions.slots.begin(), sessions.slots.end(), [](const Slot& slot) {
    return slot.process == 2;
  })) << "the process started after the kill kept a slot";
  // The victim's lease of 3600 s was never committed.
  EXPECT_EQ(0, ExpectTableHoldsTheSlots(path, sessions));
  EXPECT_EQ("ok", Testing::QuerySql(path, "PRAGMA integrity_check;"));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
