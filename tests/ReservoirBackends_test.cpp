// The rules of the time-slot reservoir, kept alike by the SQLite file and the PostgreSQL server
// (each test runs on both, through TimeSlotReservoir and ReservoirTable, with the real clock), and
// what only the server has: one clock for the fleet, connection failures, hidden passwords.
#include <gtest/gtest.h>

#include <optional>

#include "database/EmbedderDatabaseV2.h"
#include "database/ReservoirTable.h"
#include "database/TimeSlotReservoir.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"
#include "database/postgres/PostgresTestSupport.h"
#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::PostgresServer;

// A row set up before a case: times in seconds from the case's start.
struct Row {
  unsigned cid;
  int allocatedIn;
  std::optional<int> leaseEndsIn;
};

std::int64_t SecondsFrom(const SYSTEMTIME& base, const SYSTEMTIME& time) {
  return EmbedderDatabaseV2::DurationSeconds(&base, &time);
}

// The real clock read before and after some calls: a time they took from it lies in between.
struct Moment {
  SYSTEMTIME before;
  SYSTEMTIME after;
  // True when `time` is `seconds` after some instant of the moment (to the millisecond).
  bool Holds(const SYSTEMTIME& time, int seconds = 0) const {
    const auto ticks = TimeTicks::FromSystemTime(time);
    const auto second = static_cast<std::uint64_t>(seconds) * TimeTicks::kTicksPerSecond;
    return ticks + TimeTicks::kTicksPerMillisecond >= TimeTicks::FromSystemTime(before) + second &&
           ticks <= TimeTicks::FromSystemTime(after) + second;
  }
};

template <typename Calls>
Moment During(Calls calls) {
  const SYSTEMTIME before = UtcClock::Now();
  calls();
  return {before, UtcClock::Now()};
}

class ReservoirBackends : public ::testing::TestWithParam<std::string> {
 protected:
  // A new, empty reservoir of the backend under test.
  std::string NewLocation() {
    if (GetParam() == "sqlite") return folder_.File("slots" + std::to_string(++files_) + ".db");
    return Server().NewReservoir();
  }

  static PostgresServer& Server() {
    static PostgresServer server;  // one cluster per test program, started when first used
    return server;
  }

  // A reservoir at a new location holding `rows`, opened with their CIDs.
  std::unique_ptr<TimeSlotReservoir> OpenWith(const std::vector<Row>& rows, const SYSTEMTIME& base,
                                              std::string& location) {
    location = NewLocation();
    std::vector<CID_Timestamp_Lock_Record> records;
    std::list<unsigned> cids;
    for (const Row& row : rows) {
      records.push_back(
          {row.cid, TimeTicks::AddSeconds(base, row.allocatedIn),
           row.leaseEndsIn ? TimeTicks::AddSeconds(base, *row.leaseEndsIn) : TimeTicks::Zero()});
      cids.push_back(row.cid);
    }
    ReservoirTable::Merge(location, records);
    auto reservoir = TimeSlotReservoir::ForLocation(location);
    std::string err;
    EXPECT_TRUE(reservoir->Init(location.c_str(), cids, err)) << err;
    return reservoir;
  }

  // The row of `cid` at `location`.
  static CID_Timestamp_Lock_Record RowOf(const std::string& location, unsigned cid) {
    for (const auto& row : ReservoirTable::Read(location).rows) {
      if (row.CID == cid) return row;
    }
    ADD_FAILURE() << "no row of CID " << cid;
    return {};
  }

  Framework::Testing::TemporaryFolder folder_;
  int files_ = 0;
};

TEST_P(ReservoirBackends, GrantTheCidAllocatedLeastFarAheadAmongThoseNotLeased) {
  struct Case {
    const char* what;
    std::vector<Row> rows;
    std::vector<unsigned> program;
    unsigned grantedCid;          // 0: refused
    std::optional<int> startsIn;  // none: now
  };
  const std::vector<Case> cases = {
      {"least far ahead", {{1, 100, {}}, {2, 50, {}}, {3, 200, {}}}, {1, 2, 3}, 2, 50},
      {"the earlier row on ties", {{5, 30, {}}, {4, 30, {}}}, {4, 5}, 5, 30},
      {"a past time starts now", {{1, -500, {}}}, {1}, 1, std::nullopt},
      {"a leased CID is passed over", {{1, 10, 60}, {2, 100, {}}}, {1, 2}, 2, 100},
      {"an ended lease is no bar", {{1, 10, -5}, {2, 100, {}}}, {1, 2}, 1, 10},
      {"CIDs outside the program are not used", {{1, -10, {}}, {2, 100, {}}}, {2}, 2, 100},
      {"within the one-day horizon", {{1, 86'000, {}}}, {1}, 1, 86'000},
      {"beyond the one-day horizon", {{1, 86'500, {}}}, {1}, 0, 0},
      {"every CID leased", {{1, 0, 60}, {2, 0, 60}}, {1, 2}, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const SYSTEMTIME base = UtcClock::Now();
    std::string location;
    auto reservoir = OpenWith(c.rows, base, location);
    unsigned cid = 0;
    SYSTEMTIME start{};
    std::string err;
    bool granted = false;
    const Moment allocation = During([&] {
      granted = reservoir->AllocateEmbeddingTimeslot(c.program, 10, cid, start, err, 60);
    });
    ASSERT_EQ(c.grantedCid != 0, granted) << err;
    if (!granted) {
      EXPECT_NE(std::string::npos, err.find("cannot find suitable record to allocate")) << err;
      continue;
    }
    EXPECT_EQ(c.grantedCid, cid);
    if (c.startsIn) {
      EXPECT_EQ(*c.startsIn, SecondsFrom(base, start));
    } else {
      EXPECT_TRUE(allocation.Holds(start));
    }
    const CID_Timestamp_Lock_Record row = RowOf(location, cid);
    EXPECT_EQ(10, SecondsFrom(start, row.Timestamp));
    EXPECT_TRUE(allocation.Holds(row.LockedTill, 60));
  }
}

TEST_P(ReservoirBackends, ExtendFinaliseAndNoticeALostLease) {
  const SYSTEMTIME base = UtcClock::Now();
  std::string location;
  auto reservoir = OpenWith({{1, -10, {}}}, base, location);
  std::string err;
  unsigned cid = 0;
  SYSTEMTIME start{};

  // Init adds the CIDs it lacks, allocated till now, and keeps those it has.
  const Moment init = During([&] { ASSERT_TRUE(reservoir->Init(location.c_str(), {1, 2}, err)); });
  EXPECT_EQ(-10, SecondsFrom(base, RowOf(location, 1).Timestamp));
  EXPECT_TRUE(init.Holds(RowOf(location, 2).Timestamp));
  const std::string other = location + "x";
  EXPECT_FALSE(reservoir->Init(other.c_str(), {1}, err));
  EXPECT_NE(std::string::npos, err.find("shared database name mismatch")) << err;

  EXPECT_EQ(0, reservoir->ExtendTimeslot(5, err, 60));
  EXPECT_EQ("EmbedderDatabaseV2::ExtendTimeslot failed: slot was not allocated!", err);

  ASSERT_TRUE(reservoir->AllocateEmbeddingTimeslot({1}, 10, cid, start, err, 60)) << err;
  const Moment extension = During([&] { EXPECT_EQ(30, reservoir->ExtendTimeslot(20, err, 120)); });
  EXPECT_EQ(30, SecondsFrom(start, RowOf(location, 1).Timestamp));
  EXPECT_TRUE(extension.Holds(RowOf(location, 1).LockedTill, 120));
  EXPECT_TRUE(reservoir->FinalizeEmbedding(5, err)) << err;
  EXPECT_EQ(5, SecondsFrom(start, RowOf(location, 1).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(RowOf(location, 1).LockedTill));
  EXPECT_TRUE(reservoir->FinalizeEmbedding(5, err)) << "nothing held is no failure";

  // Another writer moves the row and its lease: the holder must stop.
  ASSERT_TRUE(reservoir->AllocateEmbeddingTimeslot({1}, 10, cid, start, err, 60)) << err;
  ReservoirTable::Merge(location,
                        {{1, TimeTicks::AddSeconds(base, 3000), TimeTicks::AddSeconds(base, 30)}});
  EXPECT_EQ(0, reservoir->ExtendTimeslot(5, err, 60));
  EXPECT_EQ(
      "EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot failed: active lock does not match "
      "database. Processing took too long?",
      err);
  EXPECT_FALSE(reservoir->FinalizeEmbedding(5, err));
  EXPECT_EQ(
      "EmbedderDatabaseV2::FinalizeEmbedding failed: active lock does not match database. "
      "Processing took too long?",
      err);

  // Without a lease the row keeps what the allocation wrote.
  ASSERT_TRUE(reservoir->AllocateEmbeddingTimeslot({2}, 10, cid, start, err, 0)) << err;
  EXPECT_EQ(0, reservoir->ExtendTimeslot(5, err, 60));
  EXPECT_TRUE(reservoir->FinalizeEmbedding(1, err));
  EXPECT_EQ(10, SecondsFrom(start, RowOf(location, 2).Timestamp));

  // A reservoir destroyed while it holds a lease finalises, keeping the allocated duration.
  ASSERT_TRUE(reservoir->AllocateEmbeddingTimeslot({2}, 15, cid, start, err, 60)) << err;
  reservoir.reset();
  EXPECT_EQ(15, SecondsFrom(start, RowOf(location, 2).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(RowOf(location, 2).LockedTill));
}

TEST_P(ReservoirBackends, CopyingMergesWithoutLosingARow) {
  const SYSTEMTIME base = UtcClock::Now();
  std::string from;
  std::string to;
  OpenWith({{1, 100, 50}, {2, 10, {}}, {3, 0, {}}}, base, from);
  OpenWith({{2, 20, {}}, {3, -20, {}}, {4, 5, {}}}, base, to);
  // 1 is added with its lease, 3 moves ahead, 2 (further ahead already) and 4 stay.
  EXPECT_EQ(2u, ReservoirTable::Merge(to, ReservoirTable::Read(from).rows));
  const auto rows = ReservoirTable::Read(to).rows;
  ASSERT_EQ(4u, rows.size());
  for (const auto& [cid, allocatedIn] :
       std::vector<std::pair<unsigned, int>>{{1, 100}, {2, 20}, {3, 0}, {4, 5}}) {
    EXPECT_EQ(allocatedIn, SecondsFrom(base, RowOf(to, cid).Timestamp)) << "CID " << cid;
  }
  EXPECT_EQ(50, SecondsFrom(base, RowOf(to, 1).LockedTill));
}

INSTANTIATE_TEST_SUITE_P(, ReservoirBackends, ::testing::Values("sqlite", "postgresql"),
                         [](const auto& test) { return test.param; });

// What only the server reservoir has.
class ServerReservoir : public ::testing::Test {
 protected:
  PostgresServer server_;
};

TEST_F(ServerReservoir, RefusesAHostClockThatDisagreesAndSaysWhatFailed) {
  const std::string location = server_.NewReservoir();
  std::string err;
  {
    UtcClock::ScopedPin ahead(TimeTicks::AddSeconds(UtcClock::Now(), 10));
    auto reservoir = TimeSlotReservoir::ForLocation(location);
    EXPECT_FALSE(reservoir->Init(location.c_str(), {1}, err));
    EXPECT_NE(std::string::npos, err.find("PostgresReservoir::Init refused")) << err;
    EXPECT_NE(std::string::npos, err.find("s ahead of the database server's")) << err;
    EXPECT_FALSE(ReservoirTable::Read(location).usable) << "nothing may be made";

    const std::string tolerant = location + "&quillmar_clock_tolerance=30";
    auto lenient = TimeSlotReservoir::ForLocation(tolerant);
    EXPECT_TRUE(lenient->Init(tolerant.c_str(), {1}, err)) << err;
  }

  const std::string unreachable = "postgresql://quillmar:secret@/postgres?host=/nonexistent";
  auto reservoir = TimeSlotReservoir::ForLocation(unreachable);
  EXPECT_FALSE(reservoir->Init(unreachable.c_str(), {1}, err));
  EXPECT_EQ(0u, err.find("PostgresReservoir::Init failed for "
                         "postgresql://quillmar:***@/postgres?host=/nonexistent: "))
      << err;
  EXPECT_EQ(std::string::npos, err.find("secret")) << err;
}

TEST_F(ServerReservoir, ReconnectsAfterALostConnectionAndReportsWhatItCannotMend) {
  const std::string location = server_.NewReservoir();
  auto reservoir = TimeSlotReservoir::ForLocation(location);
  std::string err;
  unsigned cid = 0;
  SYSTEMTIME start{};
  ASSERT_TRUE(reservoir->Init(location.c_str(), {1}, err)) << err;
  ASSERT_TRUE(reservoir->AllocateEmbeddingTimeslot({1}, 10, cid, start, err, 60)) << err;

  PostgresServer::Query(location,
                        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = "
                        "current_database() AND pid <> pg_backend_pid()");
  EXPECT_EQ(20, reservoir->ExtendTimeslot(10, err, 60)) << err;

  PostgresServer::Query(location, "DROP TABLE quillmar_time_slots");
  EXPECT_FALSE(reservoir->FinalizeEmbedding(5, err));
  EXPECT_EQ(0u, err.find("PostgresReservoir::FinalizeEmbedding failed for " + location +
                         "; SQLSTATE 42P01: "))
      << err;
}

}  // namespace
}  // namespace QuillmarBasebandSDK
