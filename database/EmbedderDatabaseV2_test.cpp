#include "database/EmbedderDatabaseV2.h"

#include <gtest/gtest.h>

#include <cmath>

#include "database/DatabaseTestSupport.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::EventLevel;
using Testing::ExecSql;
using Testing::Plus;
using Testing::QuerySql;

// 2026-11-21 08:00:00.250 UTC, a Saturday.
constexpr SYSTEMTIME kNow{2026, 11, 6, 21, 8, 0, 0, 250};
constexpr long long kSecond = 1000;  // milliseconds
constexpr char kLeaseLost[] = " failed: active lock does not match database. Processing took too "
                              "long?";

std::string Text(const SYSTEMTIME& time) { return EmbedderDatabaseV2::SystemTimeToString(&time); }

// `time` in seconds from kNow ("60", "-3600", or "1ms" when not whole); "-" for no time at all.
std::string FromNow(const SYSTEMTIME& time) {
  const std::uint64_t ticks = TimeTicks::FromSystemTime(time);
  if (ticks == 0) return "-";
  const auto ms = static_cast<std::int64_t>(ticks - TimeTicks::FromSystemTime(kNow)) /
                  static_cast<std::int64_t>(TimeTicks::kTicksPerMillisecond);
  return ms % kSecond == 0 ? std::to_string(ms / kSecond) : std::to_string(ms) + "ms";
}

class EmbedderDatabaseV2Test : public ::testing::Test {
 protected:
  void Open(EmbedderDatabaseV2& db, const std::list<unsigned>& cids, std::string path = "") {
    ASSERT_TRUE(db.Init((path.empty() ? path_ : path).c_str(), cids, err_)) << err_;
  }

  // Asks `db` for a slot; the granted CID and start land in cid_ and start_, the error in err_.
  bool Allocate(EmbedderDatabaseV2& db, const std::vector<unsigned>& program, int durationSeconds,
                int lockSeconds) {
    return db.AllocateEmbeddingTimeslot(program, durationSeconds, cid_, start_, err_, lockSeconds);
  }

  // The rows of the file in table order: "CID allocated-till locked-till", times from kNow.
  std::string Rows(const std::string& path = "") const {
    std::string text;
    for (const auto& row : Testing::ReadSlots(path.empty() ? path_ : path)) {
      text += (text.empty() ? "" : ", ") + std::to_string(row.CID) + " " +
              FromNow(row.Timestamp) + " " + FromNow(row.LockedTill);
    }
    return text;
  }

  // A file of its own for one case of a table.
  std::string NewFile() { return folder_.File("case" + std::to_string(++files_) + ".db"); }

  void ExpectLogged(EventLevel level, const std::vector<std::string>& lines) const {
    for (const std::string& line : lines) EXPECT_TRUE(log_->Has(level, line)) << line;
  }

  Testing::TemporaryFolder folder_;
  const std::string path_ = folder_.File("slots.db");
  std::shared_ptr<Testing::LogRecorder> log_ = Testing::LogRecorder::Attach();
  UtcClock::ScopedPin clock_{kNow};
  std::string err_;
  unsigned cid_ = 0;
  SYSTEMTIME start_{};
  int files_ = 0;
};

TEST_F(EmbedderDatabaseV2Test, InitCreatesTheTablesAndAddsOnlyCidsWithoutARow) {
  EmbedderDatabaseV2 db;
  Open(db, {5, 3, 9});
  EXPECT_EQ("2", QuerySql(path_, "select group_concat(DBVersion) from VersionInfo;"));
  ExpectLogged(EventLevel::Info, {"Shared database version 0 detected.", "Empty tables created"});
  // The search logs every row; a slot of no length is allowed.
  Testing::SetRow(path_, 3, kNow, Plus(kNow, 60 * kSecond));
  ASSERT_TRUE(Allocate(db, {3, 9}, 0, 600));
  ExpectLogged(EventLevel::Info,
               {"EID 3 allocated till " + Text(kNow) + ", locked till " +
                    Text(Plus(kNow, 60 * kSecond)) + ". EID is in program, but still locked by "
                    "another embedding instance. Cannot use.",
                "EID 9 allocated till " + Text(kNow) + ", not locked. EID is in program, and "
                "not locked. Can use!"});

  // Another embedder finds the file current. A second Init of one object keeps its file and
  // forgets its allocation without finalising it: the lease runs out on its own.
  clock_.Set(Plus(kNow, 10 * kSecond));
  EmbedderDatabaseV2 other;
  Open(other, {3, 12, 5});
  Open(db, {13});
  EXPECT_TRUE(db.FinalizeEmbedding(60, err_));
  EXPECT_EQ(Rows(), "5 0 -, 3 0 60, 9 0 600, 12 10 -, 13 10 -");
  EXPECT_FALSE(db.Init(folder_.File("other.db").c_str(), {4}, err_));
  EXPECT_EQ(err_, "EmbedderDatabaseV2::Init failed: shared database name mismatch " +
                      folder_.File("other.db") + " and " + path_);
  EXPECT_TRUE(db.CheckDatabaseExists());
}

TEST_F(EmbedderDatabaseV2Test, VersionOneFileIsConvertedAndItsOldTableInvalidated) {
  const auto row = [](int cid, const SYSTEMTIME& time) {
    return "insert into TimeStampReservoir values(" + std::to_string(cid) + ", " +
           std::to_string(TimeTicks::High(time)) + ", " + std::to_string(TimeTicks::Low(time)) +
           ");";
  };
  ExecSql(path_, "create table TimeStampReservoir(CID int, TimestampHi int, TimestampLo int);" +
                     row(7, Plus(kNow, -3600 * kSecond)) + row(-2, Plus(kNow, 7200 * kSecond)) +
                     "insert into TimeStampReservoir values(8, NULL, NULL);");
  EmbedderDatabaseV2 db;
  Open(db, {7, 20});
  EXPECT_EQ(Rows(), "7 -3600 -, 4294967294 7200 -, 8 - -, 20 0 -");
  // One row of unusable columns, so that an embedder of the first schema fails on the file.
  EXPECT_EQ("1 0", QuerySql(path_, "select count(*) || ' ' || sum(invalid_CID + "
                                   "invalid_TimestampHi + invalid_TimestampLo) from "
                                   "TimeStampReservoir;"));
}

TEST_F(EmbedderDatabaseV2Test, InitRefusesFilesItCannotUseAndLeavesThemAsTheyAre) {
  const auto fileWith = [this](const std::string& sql) {
    const std::string path = NewFile();
    ExecSql(path, "create table VersionInfo(DBVersion int);" + sql);
    return path;
  };
  const std::string refused = "EmbedderDatabaseV2::CreateEmptyTable failed for database name ";
  const std::string failed = "EmbedderDatabaseV2::Init failed for DB ";
  const std::string tooNew =
      "Shared database version 3 is too new and not supported. Please update Quillmar BBSDK!";
  const struct {
    std::string path;
    std::string errBefore;  // err is errBefore, the path, errAfter
    std::string errAfter;
  } cases[] = {
      {fileWith("insert into VersionInfo values(3);"), refused, ", reason: " + tooNew},
      {fileWith("insert into VersionInfo values(-1);"), refused,
       ", reason: Conversion is not possible!"},
      {fileWith(""), failed,
       "; SQL error code 1000; SQL error message CPPSQLITE_ERROR[3e8]: Invalid row index "
       "requested"},
      {folder_.Write("garbage.db", std::string(4096, 'x')), failed,
       "; SQL error code 26; SQL error message UNKNOWN_ERROR[1a]: file is not a database"},
      {folder_.File("missing/slots.db"), failed,
       "; SQL error code 14; SQL error message SQLITE_CANTOPEN[e]: unable to open database file"},
  };
  for (const auto& c : cases) {
    EmbedderDatabaseV2 db;
    EXPECT_FALSE(db.Init(c.path.c_str(), {1}, err_));
    EXPECT_EQ(err_, c.errBefore + c.path + c.errAfter);
    EXPECT_FALSE(db.CheckDatabaseExists());
  }
  ExpectLogged(EventLevel::Error, {tooNew, "EmbedderDatabaseV2::GetDBVersion failed: VersionInfo "
                                           "table empty"});
  EXPECT_EQ("VersionInfo", QuerySql(cases[0].path, "select group_concat(name) from sqlite_master;"))
      << "a file refused is left as it was";
}

TEST_F(EmbedderDatabaseV2Test, AllocationTakesTheEarliestUsableCidWithinADay) {
  constexpr double kNone = -1e9;  // not locked
  struct Row {
    unsigned cid;
    double allocatedTill;  // seconds from now
    double lockedTill;
  };
  static const struct {
    const char* what;
    std::vector<Row> rows;  // in table order
    std::vector<unsigned> program;
    const char* granted;  // "CID start", as Rows() writes them; empty: refused
  } cases[] = {
      {"earliest wins", {{1, 100, kNone}, {2, 50, kNone}, {3, 70, kNone}}, {1, 2, 3}, "2 50"},
      {"tie: table order", {{1, 90, kNone}, {2, 50, kNone}, {3, 50, kNone}}, {3, 2, 1}, "2 50"},
      {"past starts now", {{1, -500, kNone}, {2, -100, kNone}}, {2, 1}, "1 0"},
      {"lease ending 1 ms from now blocks", {{1, 0, 0.001}, {2, 30, kNone}}, {1, 2}, "2 30"},
      {"lease ending exactly now has ended", {{1, 0, 0}, {2, 30, kNone}}, {1, 2}, "1 0"},
      {"86400 s ahead accepted", {{1, 86'400, kNone}}, {1}, "1 86400"},
      {"86400.999 s ahead accepted", {{1, 86'400.999, kNone}}, {1}, "1 86400999ms"},
      {"86401 s ahead refused", {{1, 86'401, kNone}}, {1}, ""},
      {"no program CID in the table", {{1, 0, kNone}}, {2, 99}, ""},
      {"every program CID leased", {{1, 0, 60}, {2, 0, 0.001}}, {1, 2}, ""},
  };
  const auto at = [](double seconds) { return Plus(kNow, std::llround(seconds * kSecond)); };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = NewFile();
    std::list<unsigned> configured;
    for (const Row& row : c.rows) configured.push_back(row.cid);
    EmbedderDatabaseV2 db;
    Open(db, configured, path);
    for (const Row& row : c.rows) {
      Testing::SetRow(path, row.cid, at(row.allocatedTill),
                      row.lockedTill == kNone ? TimeTicks::Zero() : at(row.lockedTill));
    }
    if (Allocate(db, c.program, 120, 30)) {
      EXPECT_EQ(std::to_string(cid_) + " " + FromNow(start_), c.granted);
      const std::string row = std::to_string(cid_) + " " +
                              FromNow(TimeTicks::AddSeconds(start_, 120)) + " 30";
      EXPECT_NE(Rows(path).find(row), std::string::npos) << Rows(path);
    } else {
      EXPECT_STREQ("", c.granted) << err_;
      EXPECT_EQ(err_, "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed: cannot find "
                      "suitable record to allocate new timeslot. EID not found, or locked by "
                      "other instance, or too far in the future.");
    }
  }
  ExpectLogged(EventLevel::Error, {"Best suitable timeslot starts 86401 seconds in the future; "
                                   "it is more than allowed 86400 seconds. Embedding is not "
                                   "possible!"});
}

// The destructor finalises what an object still holds under a lease, keeping the allocated
// duration; one that lost its lease leaves the new holder's row alone.
TEST_F(EmbedderDatabaseV2Test, DestructorFinalisesASlotStillLeased) {
  {
    EmbedderDatabaseV2 held;
    EmbedderDatabaseV2 lost;
    Open(held, {1, 2});
    Open(lost, {2});
    ASSERT_TRUE(Allocate(held, {1}, 100, 60));
    ASSERT_EQ(130, held.ExtendTimeslot(30, err_, 60));
    ASSERT_TRUE(Allocate(lost, {2}, 100, 60));
    Testing::SetRow(path_, 2, Plus(kNow, 500 * kSecond), Plus(kNow, 999 * kSecond));
  }
  ExpectLogged(EventLevel::Error,
               {"EmbedderDatabaseV2 destructed without proper call to FinalizeEmbedding. "
                "Finalizing now. Lock will be removed, allocated duration will be kept.",
                std::string("EmbedderDatabaseV2::FinalizeEmbedding") + kLeaseLost});
  EXPECT_EQ(Rows(), "1 130 -, 2 500 999");
}

// A lease of 0 means none: extension and finalisation only drop the allocation. A negative lease
// is stored as given: the row gets no lease, yet the allocation is extended and finalised.
TEST_F(EmbedderDatabaseV2Test, ANegativeLeaseWritesNoneButStillExtendsAndFinalises) {
  const std::string nothing = "() does nothing - lock is not used.";
  const struct {
    int lease;
    bool extend;       // ExtendTimeslot(30, lease 20) 10 s after the allocation
    int extended;      // what it returns
    const char* rows;  // after the extension, then after FinalizeEmbedding(10)
    std::string log;
  } cases[] = {
      {0, false, 0, "1 60 -, 1 60 -", "EmbedderDatabaseV2::FinalizeEmbedding" + nothing},
      {0, true, 0, "1 60 -, 1 60 -", "EmbedderDatabaseV2::ExtendTimeslot" + nothing},
      {-5, true, 90, "1 90 30, 1 10 -", "Updating database OK"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log);
    const std::string path = NewFile();
    clock_.Set(kNow);
    EmbedderDatabaseV2 db;
    Open(db, {1}, path);
    ASSERT_TRUE(Allocate(db, {1}, 60, c.lease));
    clock_.Set(Plus(kNow, 10 * kSecond));
    log_->Clear();
    EXPECT_EQ(c.extend ? db.ExtendTimeslot(30, err_, 20) : 0, c.extended);
    const std::string extended = Rows(path);
    EXPECT_TRUE(db.FinalizeEmbedding(10, err_)) << err_;
    EXPECT_EQ(extended + ", " + Rows(path), c.rows);
    ExpectLogged(EventLevel::Info, {c.log});
  }
}

// CIDs of 2^31 and above: rows are inserted and matched with the CID as a signed number, while the
// update statements name it unsigned and so match no row.
TEST_F(EmbedderDatabaseV2Test, CidsFromTwoToThe31AreStoredSignedAndMissedByUpdates) {
  EmbedderDatabaseV2 db;
  Open(db, {2147483648u, 4294967295u, 7});
  Open(db, {2147483648u, 4294967295u, 7});
  EXPECT_EQ("-2147483648,-1,7",
            QuerySql(path_, "select group_concat(CID) from TimeStampReservoirV2;"));
  ASSERT_TRUE(Allocate(db, {4294967295u}, 60, 30)) << err_;
  // The row did not move and carries no lease, so the same slot is granted again, and the
  // holder's lease is never found in the file.
  EmbedderDatabaseV2 other;
  Open(other, {4294967295u});
  ASSERT_TRUE(Allocate(other, {4294967295u}, 60, 30));
  EXPECT_EQ(FromNow(start_), "0");
  EXPECT_FALSE(db.FinalizeEmbedding(60, err_));
  EXPECT_EQ(err_, std::string("EmbedderDatabaseV2::FinalizeEmbedding") + kLeaseLost);
  // Below 2^31 the same calls move the row.
  ASSERT_TRUE(Allocate(db, {7}, 60, 30));
  EXPECT_EQ(Rows(), "2147483648 0 -, 4294967295 0 -, 7 60 30");
}

// What a call says in err and returns: before any SQL (no file, bad arguments, nothing held),
// when SQL fails (the table dropped through another connection), when the table has no rows, when
// the held CID's row vanished (extension keeps the duration, finalisation succeeds) and when
// another embedder took its lease.
TEST_F(EmbedderDatabaseV2Test, CallsSayWhyTheyFailedAndOutliveAVanishedRow) {
  const auto allocate = [](const char* exists, int cids, int duration) {
    return "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:Database " + std::string(exists) +
           "; Number of CIDs from program: " + std::to_string(cids) + " ; embDurationSeconds " +
           std::to_string(duration);
  };
  const std::string noTable =
      "SQL error code 1; SQL error message SQLITE_ERROR[1]: no such table: TimeStampReservoirV2";
  const std::string empty = "EmbedderDatabaseV2::DB_RetrieveCompleteTable failed: database empty";
  const std::string lost = kLeaseLost;
  const char* drop = "drop table TimeStampReservoirV2;";
  const char* clear = "delete from TimeStampReservoirV2;";
  const char* vanish = "delete from TimeStampReservoirV2 where CID = 1;";
  const char* taken = "update TimeStampReservoirV2 set LockedTillLo = 1 where CID = 1;";
  const struct {
    const char* setup;  // null: not opened; else SQL run through another connection, after a
                        // slot was allocated when the call is not an allocation
    int call;           // 0: AllocateEmbeddingTimeslot, 1: ExtendTimeslot, 2: FinalizeEmbedding
    std::vector<unsigned> program;
    int duration;
    int result;
    std::string err;
  } cases[] = {
      {nullptr, 0, {1}, 60, 0, allocate("does not exist", 1, 60)},
      {"", 0, {}, 60, 0, allocate("exists", 0, 60)},
      {"", 0, {1, 1}, -1, 0, allocate("exists", 2, -1)},
      {drop, 0, {1}, 60, 0, allocate("exists", 1, 60) + "; " + noTable},
      {clear, 0, {1}, 60, 0, empty},
      {nullptr, 1, {}, 0, 0, "EmbedderDatabaseV2::ExtendTimeslot failed: database not opened"},
      {"", 1, {}, 0, 0, "EmbedderDatabaseV2::ExtendTimeslot failed: slot was not allocated!"},
      {drop, 1, {}, 0, 0, "EmbedderDatabaseV2::ExtendTimeslot failed:Database exists; " + noTable},
      {clear, 1, {}, 0, 0, empty},
      {vanish, 1, {}, 0, 60, ""},
      {taken, 1, {}, 0, 0, "EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot" + lost},
      {nullptr, 2, {}, 0, 0, "EmbedderDatabaseV2::FinalizeEmbedding failed: database not opened"},
      {drop, 2, {}, 0, 0,
       "EmbedderDatabaseV2::FinalizeEmbedding failed:Database exists; ; " + noTable},
      {clear, 2, {}, 0, 0, empty},
      {vanish, 2, {}, 0, 1, ""},
      {taken, 2, {}, 0, 0, "EmbedderDatabaseV2::FinalizeEmbedding" + lost},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    const std::string path = NewFile();
    EmbedderDatabaseV2 db;
    if (c.setup != nullptr) {
      Open(db, {1, 2}, path);
      ASSERT_TRUE(c.call == 0 || *c.setup == '\0' || Allocate(db, {1}, 60, 30));
      ExecSql(path, c.setup);
    }
    log_->Clear();
    EXPECT_EQ(c.call == 0   ? Allocate(db, c.program, c.duration, 30)
              : c.call == 1 ? db.ExtendTimeslot(30, err_, 30)
                            : db.FinalizeEmbedding(10, err_),
              c.result);
    EXPECT_EQ(err_, c.err);
    EXPECT_EQ(log_->Has(EventLevel::Error, empty + ". t.numRows() == 0"), c.err == empty);
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
