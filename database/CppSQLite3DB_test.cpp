#include "database/CppSQLite3DB.h"

#include <gtest/gtest.h>

#include <functional>

#include "database/CppSQLite3Exception.h"
#include "database/DatabaseTestSupport.h"

namespace {

constexpr int kBusyTimeoutMs = 10000;

// Runs `call` and returns the text of the CppSQLite3Exception it throws ("" when none).
std::string FailureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const CppSQLite3Exception& error) {
    return error.errorMessage();
  }
  return "";
}

class CppSQLite3DBTest : public ::testing::Test {
 protected:
  CppSQLite3DBTest() {
    db_.open(folder_.File("slots.db").c_str());
    db_.execDML("create table T(Name text, Number int); insert into T values('one', 1);");
  }

  Framework::Testing::TemporaryFolder folder_;
  CppSQLite3DB db_{kBusyTimeoutMs};
};

// Misuse of the layer fails with its own texts; SQLite's failures pass through with their code,
// as the time-slot tests show.
TEST_F(CppSQLite3DBTest, MisuseThrowsWithItsText) {
  CppSQLite3Table table = db_.getTable("select * from T;");
  const std::string invalid = "CPPSQLITE_ERROR[3e8]: Invalid ";
  const struct {
    std::function<void()> call;  // in order: each sees what the calls before it did
    std::string failure;         // "" when it succeeds
  } cases[] = {
      {[&] { db_.execScalar("select 1 where 0;"); }, invalid + "scalar query"},
      {[&] { db_.execScalar("-- nothing"); }, "CPPSQLITE_ERROR[3e8]: Null Virtual Machine pointer"},
      {[&] { table.setRow(1); }, invalid + "row index requested"},
      {[&] { table.fieldValue(2); }, invalid + "field index requested"},
      {[&] { table.fieldValue("name"); }, invalid + "field name requested"},
      {[&] { CppSQLite3Table(std::move(table)).numRows(); }, ""},
      {[&] { table.numRows(); }, "CPPSQLITE_ERROR[3e8]: Null Results pointer"},
      {[&] { db_.close(); }, ""},
      {[&] { db_.execDML("select 1;"); }, "CPPSQLITE_ERROR[3e8]: Database not open"},
  };
  int call = 0;
  for (const auto& c : cases) EXPECT_EQ(FailureOf(c.call), c.failure) << "call " << call++;
}

// SQLite's busy handler waits up to the time-out for another connection's write lock.
TEST_F(CppSQLite3DBTest, AWriterWaitsForTheBusyTimeOutThenThrowsBusy) {
  db_.execDML("BEGIN IMMEDIATE TRANSACTION;");
  CppSQLite3DB impatient(50);
  impatient.open(folder_.File("slots.db").c_str());
  EXPECT_EQ(FailureOf([&] { impatient.execDML("BEGIN IMMEDIATE TRANSACTION;"); }),
            "SQLITE_BUSY[5]: database is locked");
  db_.execDML("END TRANSACTION;");
  impatient.execDML("BEGIN IMMEDIATE TRANSACTION; END TRANSACTION;");
}

}  // namespace
