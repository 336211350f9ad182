#include "database/EmbedderDatabaseV2.h"

#include <gtest/gtest.h>

#include <fstream>

#include "database/DatabaseTestSupport.h"
#include "database/TimeTicks.h"
#include "database/UtcClock.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::EventLevel;
using Testing::LogRecorder;
using Testing::Plus;
using Testing::ReadSlots;
using Testing::SetRow;
using Testing::TemporaryFolder;

// 2026-11-21 08:00:00.250 UTC, a Saturday.
constexpr SYSTEMTIME kNow{2026, 11, 6, 21, 8, 0, 0, 250};
constexpr long long kSecond = 1000;  // milliseconds

std::string Text(const SYSTEMTIME& time) { return EmbedderDatabaseV2::SystemTimeToString(&time); }

bool Same(const SYSTEMTIME& a, const SYSTEMTIME& b) { return EmbedderDatabaseV2::IsEqual(&a, &b); }

class EmbedderDatabaseV2Test : public ::testing::Test {
 protected:
  // Opens `db` on the test's file with `cids`; fails the test when that fails.
  void Open(EmbedderDatabaseV2& db, const std::list<unsigned>& cids) {
    ASSERT_TRUE(db.Init(path_.c_str(), cids, err_)) << err_;
    ASSERT_EQ("", err_);
  }

  // Asks `db` for a slot; the granted CID and start land in cid_ and start_, the error in err_.
  bool Allocate(EmbedderDatabaseV2& db, const std::vector<unsigned>& program, int durationSeconds,
                int lockSeconds) {
    return db.AllocateEmbeddingTimeslot(program, durationSeconds, cid_, start_, err_, lockSeconds);
  }

  // The row of `cid` in the test's file.
  CID_Timestamp_Lock_Record Row(unsigned cid) const {
    for (const auto& record : ReadSlots(path_)) {
      if (record.CID == cid) return record;
    }
    ADD_FAILURE() << "no row for CID " << cid;
    return {};
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.File("slots.db");
  std::shared_ptr<LogRecorder> log_ = LogRecorder::Attach();
  UtcClock::ScopedPin clock_{kNow};
  std::string err_;
  unsigned cid_ = 0;
  SYSTEMTIME start_{};
};

// ---------------------------------------------------------------------------------------------
// Opening a file

TEST_F(EmbedderDatabaseV2Test, FreshFileGetsCurrentTablesAndOneUnlockedRowPerCid) {
  EmbedderDatabaseV2 db;
  EXPECT_FALSE(db.CheckDatabaseExists());
  Open(db, {5, 3, 9});
  EXPECT_TRUE(db.CheckDatabaseExists());

  EXPECT_EQ("2", Testing::QuerySql(path_, "select DBVersion from VersionInfo;"));
  EXPECT_EQ("1", Testing::QuerySql(path_, "select count(*) from VersionInfo;"));
  EXPECT_EQ("0", Testing::QuerySql(path_, "select count(*) from sqlite_master where "
                                          "name = 'TimeStampReservoir';"));
  const auto rows = ReadSlots(path_);
  ASSERT_EQ(3u, rows.size());
  const unsigned expectedCids[] = {5, 3, 9};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(expectedCids[i], rows[i].CID);
    EXPECT_TRUE(Same(kNow, rows[i].Timestamp));
    EXPECT_EQ(0u, TimeTicks::FromSystemTime(rows[i].LockedTill));
  }
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Shared database version 0 detected."));
  EXPECT_TRUE(log_->Has(EventLevel::Warning,
                        "Shared database is empty, or does not contain BBSDK tables. Creating tables..."));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Empty tables created"));

  // A second embedder on the same file finds it current and adds only its new CID.
  log_->Clear();
  clock_.Set(Plus(kNow, 5 * kSecond));
  EmbedderDatabaseV2 other;
  Open(other, {3, 12, 9});
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Shared database version 2 detected."));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Shared database is valid and up to date. Proceeding"));
  const auto after = ReadSlots(path_);
  ASSERT_EQ(4u, after.size());
  EXPECT_EQ(12u, after[3].CID);
  EXPECT_TRUE(Same(Plus(kNow, 5 * kSecond), after[3].Timestamp));
  EXPECT_TRUE(Same(kNow, after[1].Timestamp));
}

TEST_F(EmbedderDatabaseV2Test, VersionOneFileIsConvertedAndItsOldTableInvalidated) {
  const SYSTEMTIME old7 = Plus(kNow, -3600 * kSecond);
  const SYSTEMTIME oldHigh = Plus(kNow, 7200 * kSecond);
  Testing::ExecSql(
      path_, "create table TimeStampReservoir(CID int, TimestampHi int, TimestampLo int);"
             "insert into TimeStampReservoir values(7, " + std::to_string(TimeTicks::High(old7)) +
                 ", " + std::to_string(TimeTicks::Low(old7)) + ");"
             "insert into TimeStampReservoir values(-2, " + std::to_string(TimeTicks::High(oldHigh)) +
                 ", " + std::to_string(TimeTicks::Low(oldHigh)) + ");"
             "insert into TimeStampReservoir values(8, NULL, NULL);");
  EmbedderDatabaseV2 db;
  Open(db, {7, 20});

  const auto rows = ReadSlots(path_);
  ASSERT_EQ(4u, rows.size());
  static const unsigned expectedCids[] = {7, 4294967294u, 8, 20};
  const SYSTEMTIME expectedTimes[] = {old7, oldHigh, TimeTicks::Zero(), kNow};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(expectedCids[i], rows[i].CID);
    EXPECT_TRUE(Same(expectedTimes[i], rows[i].Timestamp)) << Text(rows[i].Timestamp);
    EXPECT_EQ(0u, TimeTicks::FromSystemTime(rows[i].LockedTill));
  }
  EXPECT_EQ("2", Testing::QuerySql(path_, "select DBVersion from VersionInfo;"));
  EXPECT_EQ("1", Testing::QuerySql(path_, "select count(*) from TimeStampReservoir;"));
  EXPECT_EQ("0", Testing::QuerySql(path_, "select invalid_CID + invalid_TimestampHi + "
                                          "invalid_TimestampLo from TimeStampReservoir;"));
  // An embedder of the first schema can no longer read the file.
  EXPECT_THROW(Testing::QuerySql(path_, "select CID, TimestampHi from TimeStampReservoir;"),
               std::exception);

  EXPECT_TRUE(log_->Has(EventLevel::Info, "Shared database version 1 detected."));
  EXPECT_TRUE(log_->Has(EventLevel::Warning,
                        "Shared database version 1 is outdated. It needs to be converted."));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Creating new empty tables version 2"));
  EXPECT_TRUE(log_->Has(EventLevel::Info,
                        "Old database contained 3 records. Converting them to new format"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Found EID 7, embedded till " + Text(old7) +
                                              ". Converting to new format"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Found EID -2, embedded till " + Text(oldHigh) +
                                              ". Converting to new format"));
  EXPECT_TRUE(log_->Has(EventLevel::Warning,
                        "Conversion successful. Now invalidating old database tables. Old BBSDK "
                        "will not be able to access it anymore!!!"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Old database table invalidated. Conversion completed!"));

  // An empty first-schema table converts to the configured CIDs alone.
  const std::string emptyPath = folder_.File("empty-v1.db");
  Testing::ExecSql(emptyPath, "create table TimeStampReservoir(CID int, TimestampHi int, "
                              "TimestampLo int);");
  EmbedderDatabaseV2 fromEmpty;
  ASSERT_TRUE(fromEmpty.Init(emptyPath.c_str(), {4}, err_)) << err_;
  EXPECT_EQ(1u, ReadSlots(emptyPath).size());
  EXPECT_TRUE(log_->Has(EventLevel::Warning,
                        "EmbedderDatabaseV2::ConvertDatabaseToV2: old database was empty. Will "
                        "continue with empty tables"));
}

TEST_F(EmbedderDatabaseV2Test, InitRefusesFilesItCannotUse) {
  static const struct {
    const char* what;
    const char* setupSql;  // null: write garbage instead
    const char* errBeforePath;
    const char* errAfterPath;
    const char* errorLog;  // "" for none
  } cases[] = {
      {"too new", "create table VersionInfo(DBVersion int); insert into VersionInfo values(3);",
       "EmbedderDatabaseV2::CreateEmptyTable failed for database name ",
       ", reason: Shared database version 3 is too new and not supported. Please update Quillmar "
       "BBSDK!",
       "Shared database version 3 is too new and not supported. Please update Quillmar BBSDK!"},
      {"unknown old version",
       "create table VersionInfo(DBVersion int); insert into VersionInfo values(-1);",
       "EmbedderDatabaseV2::CreateEmptyTable failed for database name ",
       ", reason: Conversion is not possible!",
       "EmbedderDatabaseV2::ConvertDatabaseToV2: Cannot convert DB version -1 to version 2"},
      {"empty VersionInfo", "create table VersionInfo(DBVersion int);",
       "EmbedderDatabaseV2::Init failed for DB ",
       "; SQL error code 1000; SQL error message CPPSQLITE_ERROR[3e8]: Invalid row index requested",
       "EmbedderDatabaseV2::GetDBVersion failed: VersionInfo table empty"},
      {"not a database", nullptr, "EmbedderDatabaseV2::Init failed for DB ",
       "; SQL error code 26; SQL error message UNKNOWN_ERROR[1a]: file is not a database", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = folder_.File(std::string(c.what) + ".db");
    if (c.setupSql != nullptr) {
      Testing::ExecSql(path, c.setupSql);
    } else {
      std::ofstream(path) << std::string(4096, 'x');
    }
    log_->Clear();
    EmbedderDatabaseV2 db;
    EXPECT_FALSE(db.Init(path.c_str(), {1}, err_));
    EXPECT_EQ(c.errBeforePath + path + c.errAfterPath, err_);
    EXPECT_FALSE(db.CheckDatabaseExists());
    if (*c.errorLog != '\0') {
      EXPECT_TRUE(log_->Has(EventLevel::Error, c.errorLog));
    }
    if (c.setupSql != nullptr) {
      EXPECT_EQ("0", Testing::QuerySql(path, "select count(*) from sqlite_master where name = "
                                             "'TimeStampReservoirV2';"));
    }
  }

  EmbedderDatabaseV2 nowhere;
  const std::string missing = folder_.File("no-such-folder/slots.db");
  EXPECT_FALSE(nowhere.Init(missing.c_str(), {1}, err_));
  EXPECT_EQ("EmbedderDatabaseV2::Init failed for DB " + missing +
                "; SQL error code 14; SQL error message SQLITE_CANTOPEN[e]: unable to open "
                "database file",
            err_);
}

TEST_F(EmbedderDatabaseV2Test, SecondInitKeepsItsPathAndAddsOnlyNewCids) {
  EmbedderDatabaseV2 db;
  Open(db, {1, 2});
  ASSERT_TRUE(Allocate(db, {1}, 60, 600));

  clock_.Set(Plus(kNow, 10 * kSecond));
  Open(db, {1, 2, 3});
  const auto rows = ReadSlots(path_);
  ASSERT_EQ(3u, rows.size());
  EXPECT_TRUE(Same(Plus(kNow, 60 * kSecond), rows[0].Timestamp));
  EXPECT_TRUE(Same(kNow, rows[1].Timestamp));
  EXPECT_TRUE(Same(Plus(kNow, 10 * kSecond), rows[2].Timestamp));
  // Init forgets the allocation without finalising it; its lease runs out on its own.
  EXPECT_TRUE(db.FinalizeEmbedding(60, err_));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "EmbedderDatabaseV2::FinalizeEmbedding failed: slot was "
                                          "not allocated, or already finalized!"));
  EXPECT_TRUE(Same(Plus(kNow, 600 * kSecond), Row(1).LockedTill));

  const std::string other = folder_.File("other.db");
  EXPECT_FALSE(db.Init(other.c_str(), {4}, err_));
  EXPECT_EQ("EmbedderDatabaseV2::Init failed: shared database name mismatch " + other + " and " +
                path_,
            err_);
  EXPECT_TRUE(db.CheckDatabaseExists());
  EXPECT_FALSE(std::ifstream(other).good());
  EXPECT_TRUE(Allocate(db, {3}, 60, 0)) << err_;
  EXPECT_EQ(3u, cid_);
}

// ---------------------------------------------------------------------------------------------
// Choosing a CID and a start

TEST_F(EmbedderDatabaseV2Test, AllocationTakesTheEarliestUsableCidWithinADay) {
  constexpr long long kNoLock = -1;
  struct Row {
    unsigned cid;
    long long allocatedTillMs;  // from now
    long long lockedTillMs;     // from now; kNoLock: not locked
  };
  static const struct {
    const char* what;
    std::vector<Row> rows;  // in table order
    std::vector<unsigned> program;
    unsigned cid;           // 0: refused
    long long startMs;      // from now
    const char* errorLog = nullptr;
  } cases[] = {
      {"earliest wins", {{1, 100'000, kNoLock}, {2, 50'000, kNoLock}, {3, 70'000, kNoLock}},
       {1, 2, 3}, 2, 50'000},
      {"tie goes to table order", {{1, 100'000, kNoLock}, {2, 50'000, kNoLock}, {3, 50'000, kNoLock}},
       {3, 2, 1}, 2, 50'000},
      {"past starts now", {{1, -500'000, kNoLock}, {2, -100'000, kNoLock}}, {2, 1}, 1, 0},
      {"only program CIDs with rows", {{1, -500'000, kNoLock}, {2, 10'000, kNoLock}}, {2, 99}, 2,
       10'000},
      {"lease ending 1 ms from now blocks", {{1, 0, 1}, {2, 30'000, kNoLock}}, {1, 2}, 2, 30'000},
      {"lease ending exactly now has ended", {{1, 0, 0}, {2, 30'000, kNoLock}}, {1, 2}, 1, 0},
      {"lease ended long ago", {{1, 0, -9'000'000}}, {1}, 1, 0},
      {"86400 s ahead accepted", {{1, 86'400'000, kNoLock}}, {1}, 1, 86'400'000},
      {"86400.999 s ahead accepted", {{1, 86'400'999, kNoLock}}, {1}, 1, 86'400'999},
      {"86401 s ahead refused", {{1, 86'401'000, kNoLock}}, {1}, 0, 0,
       "Best suitable timeslot starts 86401 seconds in the future; it is more than allowed 86400 "
       "seconds. Embedding is not possible!"},
      {"no program CID in table", {{1, 0, kNoLock}}, {2}, 0, 0},
      {"every program CID leased", {{1, 0, 60'000}, {2, 0, 1}}, {1, 2}, 0, 0},
  };
  int file = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = folder_.File("case" + std::to_string(++file) + ".db");
    std::list<unsigned> configured;
    for (const Row& row : c.rows) configured.push_back(row.cid);
    EmbedderDatabaseV2 db;
    ASSERT_TRUE(db.Init(path.c_str(), configured, err_)) << err_;
    for (const Row& row : c.rows) {
      SetRow(path, row.cid, Plus(kNow, row.allocatedTillMs),
             row.lockedTillMs == kNoLock ? TimeTicks::Zero() : Plus(kNow, row.lockedTillMs));
    }
    log_->Clear();

    const bool granted = Allocate(db, c.program, 120, 30);
    if (c.cid == 0) {
      EXPECT_FALSE(granted);
      EXPECT_EQ("EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed: cannot find suitable record "
                "to allocate new timeslot. EID not found, or locked by other instance, or too far "
                "in the future.",
                err_);
      if (c.errorLog != nullptr) {
        EXPECT_TRUE(log_->Has(EventLevel::Error, c.errorLog));
      }
      continue;
    }
    ASSERT_TRUE(granted) << err_;
    EXPECT_EQ("", err_);
    EXPECT_EQ(c.cid, cid_);
    EXPECT_TRUE(Same(Plus(kNow, c.startMs), start_)) << Text(start_);
    const auto rows = ReadSlots(path);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].CID != cid_) continue;
      EXPECT_TRUE(Same(Plus(kNow, c.startMs + 120 * kSecond), rows[i].Timestamp));
      EXPECT_TRUE(Same(Plus(kNow, 30 * kSecond), rows[i].LockedTill));
    }
  }
}

TEST_F(EmbedderDatabaseV2Test, SearchLogsOneLinePerRow) {
  EmbedderDatabaseV2 db;
  Open(db, {1, 2, 3});
  SetRow(path_, 2, kNow, Plus(kNow, 60 * kSecond));
  log_->Clear();
  ASSERT_TRUE(Allocate(db, {2, 3}, 10, 0));
  const std::string now = Text(kNow);
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Searching for a suitable EID to use for this embedding:"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "EID 1 allocated till " + now +
                                              ", not locked. EID is not in program, cannot use."));
  EXPECT_TRUE(log_->Has(EventLevel::Info,
                        "EID 2 allocated till " + now + ", locked till " +
                            Text(Plus(kNow, 60 * kSecond)) +
                            ". EID is in program, but still locked by another embedding instance. "
                            "Cannot use."));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "EID 3 allocated till " + now +
                                              ", not locked. EID is in program, and not locked. "
                                              "Can use!"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Updating database: EID 3 allocated till " +
                                              Text(Plus(kNow, 10 * kSecond)) +
                                              ", locked till 1601-01-01T00:00:00Z"));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "Updating database OK"));
}

TEST_F(EmbedderDatabaseV2Test, CallsWithoutAnOpenFileOrWithBadArgumentsFailBeforeAnySql) {
  EmbedderDatabaseV2 closed;
  EmbedderDatabaseV2 db;
  Open(db, {1});
  log_->Clear();
  static const struct {
    bool open;
    std::vector<unsigned> cids;
    int duration;
    const char* err;
  } cases[] = {
      {false, {1}, 60,
       "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:Database does not exist; Number of "
       "CIDs from program: 1 ; embDurationSeconds 60"},
      {true, {}, 60,
       "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:Database exists; Number of CIDs from "
       "program: 0 ; embDurationSeconds 60"},
      {true, {1, 1}, -1,
       "EmbedderDatabaseV2::AllocateEmbeddingTimeslot failed:Database exists; Number of CIDs from "
       "program: 2 ; embDurationSeconds -1"},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(Allocate(c.open ? db : closed, c.cids, c.duration, 60));
    EXPECT_EQ(c.err, err_);
  }
  EXPECT_EQ(0, closed.ExtendTimeslot(60, err_, 60));
  EXPECT_EQ("EmbedderDatabaseV2::ExtendTimeslot failed: database not opened", err_);
  EXPECT_FALSE(closed.FinalizeEmbedding(60, err_));
  EXPECT_EQ("EmbedderDatabaseV2::FinalizeEmbedding failed: database not opened", err_);
  EXPECT_EQ(0, db.ExtendTimeslot(60, err_, 60));
  EXPECT_EQ("EmbedderDatabaseV2::ExtendTimeslot failed: slot was not allocated!", err_);
  EXPECT_FALSE(log_->HasPart("Searching for a suitable EID"));

  // A slot of no length is allowed.
  ASSERT_TRUE(Allocate(db, {1}, 0, 60)) << err_;
  EXPECT_TRUE(Same(kNow, start_));
  EXPECT_TRUE(Same(kNow, Row(1).Timestamp));
}

// ---------------------------------------------------------------------------------------------
// Leases, extension and finalisation

TEST_F(EmbedderDatabaseV2Test, ALeaseHoldsTheCidUntilItEndsAndThenTheHolderLosesIt) {
  EmbedderDatabaseV2 first;
  EmbedderDatabaseV2 second;
  Open(first, {1});
  Open(second, {1});
  ASSERT_TRUE(Allocate(first, {1}, 60, 10));
  EXPECT_TRUE(Same(Plus(kNow, 10 * kSecond), Row(1).LockedTill));

  clock_.Set(Plus(kNow, 10 * kSecond - 1));
  EXPECT_FALSE(Allocate(second, {1}, 60, 10));

  clock_.Set(Plus(kNow, 10 * kSecond));
  ASSERT_TRUE(Allocate(second, {1}, 60, 10)) << err_;
  EXPECT_TRUE(Same(Plus(kNow, 60 * kSecond), start_)) << "starts where the first slot ends";

  EXPECT_EQ(0, first.ExtendTimeslot(30, err_, 10));
  EXPECT_EQ("EmbedderDatabaseV2::ExtendTimeslotExtendTimeslot failed: active lock does not match "
            "database. Processing took too long?",
            err_);
  EXPECT_FALSE(first.FinalizeEmbedding(5, err_));
  EXPECT_EQ("EmbedderDatabaseV2::FinalizeEmbedding failed: active lock does not match database. "
            "Processing took too long?",
            err_);
  // The second embedder's row is untouched by the first one's attempts.
  EXPECT_TRUE(Same(Plus(kNow, 120 * kSecond), Row(1).Timestamp));
  EXPECT_TRUE(Same(Plus(kNow, 20 * kSecond), Row(1).LockedTill));
  EXPECT_EQ(90, second.ExtendTimeslot(30, err_, 10)) << err_;
}

TEST_F(EmbedderDatabaseV2Test, ExtensionRenewsTheLeaseAndFinalisationReturnsTheRest) {
  EmbedderDatabaseV2 db;
  Open(db, {1, 2});
  ASSERT_TRUE(Allocate(db, {1}, 100, 20));

  clock_.Set(Plus(kNow, 15 * kSecond));
  EXPECT_EQ(150, db.ExtendTimeslot(50, err_, 30)) << err_;
  EXPECT_EQ("", err_);
  EXPECT_TRUE(Same(Plus(kNow, 150 * kSecond), Row(1).Timestamp));
  EXPECT_TRUE(Same(Plus(kNow, 45 * kSecond), Row(1).LockedTill));

  clock_.Set(Plus(kNow, 40 * kSecond));
  ASSERT_TRUE(db.FinalizeEmbedding(70, err_)) << err_;
  EXPECT_TRUE(Same(Plus(kNow, 70 * kSecond), Row(1).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(1).LockedTill));

  log_->Clear();
  EXPECT_TRUE(db.FinalizeEmbedding(70, err_));
  EXPECT_TRUE(log_->Has(EventLevel::Info, "EmbedderDatabaseV2::FinalizeEmbedding failed: slot was "
                                          "not allocated, or already finalized!"));
  EXPECT_EQ(0, db.ExtendTimeslot(10, err_, 30));
  EXPECT_EQ("EmbedderDatabaseV2::ExtendTimeslot failed: slot was not allocated!", err_);

  // The returned remainder is handed out again from where the kept part ends.
  ASSERT_TRUE(Allocate(db, {1}, 10, 20));
  EXPECT_TRUE(Same(Plus(kNow, 70 * kSecond), start_));

  // A row that vanished: extension keeps the duration, finalisation succeeds and keeps the slot.
  Testing::ExecSql(path_, "delete from TimeStampReservoirV2 where CID = 1;");
  EXPECT_EQ(10, db.ExtendTimeslot(10, err_, 20));
  EXPECT_EQ("", err_);
  EXPECT_TRUE(db.FinalizeEmbedding(10, err_));
  EXPECT_EQ("", err_);
  EXPECT_EQ(10, db.ExtendTimeslot(10, err_, 20)) << "the allocation is still held";
}

TEST_F(EmbedderDatabaseV2Test, WithoutALeaseExtensionAndFinalisationOnlyDropTheAllocation) {
  for (const int lockSeconds : {0}) {
    SCOPED_TRACE(lockSeconds);
    EmbedderDatabaseV2 db;
    Open(db, {1});
    ASSERT_TRUE(Allocate(db, {1}, 60, lockSeconds));
    const SYSTEMTIME allocatedTill = Plus(start_, 60 * kSecond);
    EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(1).LockedTill));

    log_->Clear();
    EXPECT_EQ(0, db.ExtendTimeslot(30, err_, 60));
    EXPECT_EQ("", err_);
    EXPECT_TRUE(log_->Has(EventLevel::Info,
                          "EmbedderDatabaseV2::ExtendTimeslot() does nothing - lock is not used."));
    EXPECT_TRUE(Same(allocatedTill, Row(1).Timestamp));
    EXPECT_TRUE(db.FinalizeEmbedding(0, err_));
    EXPECT_TRUE(log_->HasPart("slot was not allocated, or already finalized!"));

    ASSERT_TRUE(Allocate(db, {1}, 60, lockSeconds));
    EXPECT_TRUE(Same(allocatedTill, start_));
    log_->Clear();
    EXPECT_TRUE(db.FinalizeEmbedding(0, err_));
    EXPECT_TRUE(log_->Has(EventLevel::Info,
                          "EmbedderDatabaseV2::FinalizeEmbedding() does nothing - lock is not used."));
    EXPECT_TRUE(Same(Plus(allocatedTill, 60 * kSecond), Row(1).Timestamp));
    Testing::ExecSql(path_, "delete from TimeStampReservoirV2;");
  }
}

TEST_F(EmbedderDatabaseV2Test, DestructorFinalisesASlotStillLeased) {
  {
    EmbedderDatabaseV2 db;
    Open(db, {1, 2});
    ASSERT_TRUE(Allocate(db, {1}, 100, 60));
    ASSERT_EQ(130, db.ExtendTimeslot(30, err_, 60));
  }
  EXPECT_TRUE(log_->Has(EventLevel::Error,
                        "EmbedderDatabaseV2 destructed without proper call to FinalizeEmbedding. "
                        "Finalizing now. Lock will be removed, allocated duration will be kept."));
  EXPECT_TRUE(Same(Plus(kNow, 130 * kSecond), Row(1).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(1).LockedTill));

  // A lost lease is reported by the destructor, which leaves the new holder's row alone.
  log_->Clear();
  {
    EmbedderDatabaseV2 db;
    Open(db, {2});
    ASSERT_TRUE(Allocate(db, {2}, 100, 60));
    SetRow(path_, 2, Plus(kNow, 500 * kSecond), Plus(kNow, 999 * kSecond));
  }
  EXPECT_TRUE(log_->Has(EventLevel::Error, "EmbedderDatabaseV2::FinalizeEmbedding failed: active "
                                           "lock does not match database. Processing took too long?"));
  EXPECT_TRUE(Same(Plus(kNow, 500 * kSecond), Row(2).Timestamp));
}

// A negative lease is stored as given: the row gets no lease, yet the allocation is extended
// (with the lease of the call) and finalised like a leased one.
TEST_F(EmbedderDatabaseV2Test, ANegativeLeaseWritesNoneButStillExtendsAndFinalises) {
  EmbedderDatabaseV2 db;
  Open(db, {1});
  ASSERT_TRUE(Allocate(db, {1}, 60, -5));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(1).LockedTill));
  EXPECT_EQ(90, db.ExtendTimeslot(30, err_, 20)) << err_;
  EXPECT_TRUE(Same(Plus(kNow, 20 * kSecond), Row(1).LockedTill));
  ASSERT_TRUE(db.FinalizeEmbedding(10, err_)) << err_;
  EXPECT_TRUE(Same(Plus(kNow, 10 * kSecond), Row(1).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(1).LockedTill));
}

// ---------------------------------------------------------------------------------------------
// CIDs of 2^31 and above: rows are inserted and matched with the CID as a signed number, while the
// update statements name it unsigned and so match no row.

TEST_F(EmbedderDatabaseV2Test, CidsFromTwoToThe31AreStoredSignedAndMissedByUpdates) {
  EmbedderDatabaseV2 db;
  Open(db, {2147483648u, 4294967295u, 7});
  Open(db, {2147483648u, 4294967295u, 7});
  EXPECT_EQ("3", Testing::QuerySql(path_, "select count(*) from TimeStampReservoirV2;"));
  EXPECT_EQ("-2147483648", Testing::QuerySql(path_, "select CID from TimeStampReservoirV2 "
                                                    "where rowid = 1;"));
  EXPECT_EQ("-1", Testing::QuerySql(path_, "select CID from TimeStampReservoirV2 where rowid = 2;"));

  ASSERT_TRUE(Allocate(db, {4294967295u}, 60, 30)) << err_;
  EXPECT_EQ(4294967295u, cid_);
  EXPECT_TRUE(log_->HasPart("EID 4294967295 allocated till "));
  EXPECT_TRUE(log_->HasPart("Updating database: EID 4294967295 allocated till "));
  // The row did not move and carries no lease, so the same slot is granted again...
  EXPECT_TRUE(Same(kNow, Row(4294967295u).Timestamp));
  EXPECT_EQ(0u, TimeTicks::FromSystemTime(Row(4294967295u).LockedTill));
  EmbedderDatabaseV2 other;
  Open(other, {4294967295u});
  ASSERT_TRUE(Allocate(other, {4294967295u}, 60, 30));
  EXPECT_TRUE(Same(kNow, start_));
  // ...and the holder's lease is never found in the file.
  EXPECT_FALSE(db.FinalizeEmbedding(60, err_));
  EXPECT_EQ("EmbedderDatabaseV2::FinalizeEmbedding failed: active lock does not match database. "
            "Processing took too long?",
            err_);

  // Below 2^31 the same calls move the row.
  ASSERT_TRUE(Allocate(db, {7}, 60, 30));
  EXPECT_TRUE(Same(Plus(kNow, 60 * kSecond), Row(7).Timestamp));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
