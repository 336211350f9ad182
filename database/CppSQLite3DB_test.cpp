#include "database/CppSQLite3DB.h"

#include <gtest/gtest.h>

#include <string>

#include "database/CppSQLite3Exception.h"
#include "database/DatabaseTestSupport.h"

namespace {

using Framework::Testing::TemporaryFolder;

constexpr int kBusyTimeoutMs = 10000;

// Runs `call` and returns the text of the CppSQLite3Exception it throws ("" when none).
template <typename Call>
std::string FailureOf(Call call) {
  try {
    call();
  } catch (const CppSQLite3Exception& error) {
    return error.errorMessage();
  }
  return "";
}

TEST(CppSQLite3Exception, NamesTheCodeAndFormatsTheMessage) {
  static const struct {
    int code;
    const char* name;
  } cases[] = {
      {0, "SQLITE_OK"},         {1, "SQLITE_ERROR"},     {5, "SQLITE_BUSY"},
      {11, "SQLITE_CORRUPT"},   {14, "SQLITE_CANTOPEN"}, {23, "SQLITE_AUTH"},
      {25, "SQLITE_RANGE"},     {26, "UNKNOWN_ERROR"},   {99, "UNKNOWN_ERROR"},
      {100, "SQLITE_ROW"},      {101, "SQLITE_DONE"},    {1000, "CPPSQLITE_ERROR"},
      {-1, "UNKNOWN_ERROR"},    {517, "UNKNOWN_ERROR"},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(c.name, CppSQLite3Exception::errorCodeAsString(c.code)) << c.code;
  }

  const CppSQLite3Exception busy(5, "database is locked");
  EXPECT_EQ(5, busy.errorCode());
  EXPECT_STREQ("SQLITE_BUSY[5]: database is locked", busy.errorMessage());
  EXPECT_STREQ("CPPSQLITE_ERROR[3e8]: ", CppSQLite3Exception(1000, nullptr).errorMessage());

  CppSQLite3Exception copy(busy);
  copy = CppSQLite3Exception(1000, "Invalid scalar query");
  const CppSQLite3Exception copyOfCopy(copy);
  EXPECT_STREQ("CPPSQLITE_ERROR[3e8]: Invalid scalar query", copyOfCopy.what());
  EXPECT_STREQ("SQLITE_BUSY[5]: database is locked", busy.what());
}

class CppSQLite3DBTest : public ::testing::Test {
 protected:
  CppSQLite3DBTest() {
    db_.open(folder_.File("slots.db").c_str());
    db_.execDML(
        "create table T(Name text, Number int);"
        "insert into T values('one', 1); insert into T values(NULL, 2);");
  }

  TemporaryFolder folder_;
  CppSQLite3DB db_{kBusyTimeoutMs};
};

TEST_F(CppSQLite3DBTest, StatementsRunInOrderAndReportFailures) {
  // All statements run in order; the count is the last one's.
  EXPECT_EQ(1, db_.execDML("update T set Number = Number + 10; delete from T where Number = 11;"
                           "update T set Number = 7 where Number = 12;"
                           "update T set Number = Number + 1;"));
  EXPECT_EQ(8, db_.execScalar("select Number from T;"));
  EXPECT_EQ(1, db_.execScalar("select count(*) from T;"));
  EXPECT_EQ(0, db_.execScalar("select Name from T;"));  // NULL reads as 0
  EXPECT_EQ(-2147483648LL, db_.execScalar("select -2147483648;"));

  static const struct {
    const char* sql;
    const char* failure;
  } cases[] = {
      {"bogus;", "SQLITE_ERROR[1]: near \"bogus\": syntax error"},
      {"insert into Missing values(1);", "SQLITE_ERROR[1]: no such table: Missing"},
      {"END TRANSACTION;", "SQLITE_ERROR[1]: cannot commit - no transaction is active"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.failure, FailureOf([&] { db_.execDML(c.sql); })) << c.sql;
  }
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Invalid scalar query",
            FailureOf([&] { db_.execScalar("select Number from T where Number = 99;"); }));
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Null Virtual Machine pointer",
            FailureOf([&] { db_.execScalar("-- nothing to run"); }));
  EXPECT_EQ("SQLITE_ERROR[1]: no such table: Missing",
            FailureOf([&] { db_.execScalar("select * from Missing;"); }));
  EXPECT_EQ("SQLITE_ERROR[1]: no such table: Missing",
            FailureOf([&] { db_.getTable("select * from Missing;"); }));
}

TEST_F(CppSQLite3DBTest, TablesGiveFieldsByNameAndIndexAndGuardTheirBounds) {
  CppSQLite3Table table = db_.getTable("select * from T;");
  ASSERT_EQ(2, table.numRows());
  ASSERT_EQ(2, table.numFields());
  EXPECT_STREQ("one", table.fieldValue("Name"));
  EXPECT_STREQ("1", table.fieldValue(1));
  table.setRow(1);
  EXPECT_EQ(nullptr, table.fieldValue("Name"));
  EXPECT_STREQ("2", table.fieldValue("Number"));

  static const struct {
    const char* what;
    void (*call)(CppSQLite3Table&);
    const char* failure;
  } cases[] = {
      {"row -1", [](CppSQLite3Table& t) { t.setRow(-1); },
       "CPPSQLITE_ERROR[3e8]: Invalid row index requested"},
      {"row 2", [](CppSQLite3Table& t) { t.setRow(2); },
       "CPPSQLITE_ERROR[3e8]: Invalid row index requested"},
      {"field 2", [](CppSQLite3Table& t) { t.fieldValue(2); },
       "CPPSQLITE_ERROR[3e8]: Invalid field index requested"},
      {"field -1", [](CppSQLite3Table& t) { t.fieldValue(-1); },
       "CPPSQLITE_ERROR[3e8]: Invalid field index requested"},
      {"name differs in case", [](CppSQLite3Table& t) { t.fieldValue("name"); },
       "CPPSQLITE_ERROR[3e8]: Invalid field name requested"},
      {"no name", [](CppSQLite3Table& t) { t.fieldValue(static_cast<const char*>(nullptr)); },
       "CPPSQLITE_ERROR[3e8]: Invalid field name requested"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.failure, FailureOf([&] { c.call(table); })) << c.what;
  }

  CppSQLite3Table empty = db_.getTable("select * from T where Number > 99;");
  EXPECT_EQ(0, empty.numRows());
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Invalid row index requested",
            FailureOf([&] { empty.setRow(0); }));

  CppSQLite3Table taken(std::move(table));
  EXPECT_EQ(2, taken.numRows());
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Null Results pointer",
            FailureOf([&] { (void)table.numRows(); }));  // NOLINT(bugprone-use-after-move)
}

TEST_F(CppSQLite3DBTest, ClosedOrUnopenableConnectionsThrow) {
  db_.close();
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Database not open", FailureOf([&] { db_.execDML("select 1;"); }));
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Database not open", FailureOf([&] { db_.execScalar("select 1;"); }));
  EXPECT_EQ("CPPSQLITE_ERROR[3e8]: Database not open", FailureOf([&] { db_.getTable("select 1;"); }));

  CppSQLite3DB nowhere(kBusyTimeoutMs);
  EXPECT_EQ("SQLITE_CANTOPEN[e]: unable to open database file",
            FailureOf([&] { nowhere.open(folder_.File("missing-folder/slots.db").c_str()); }));
}

TEST_F(CppSQLite3DBTest, AWriterWaitsForTheBusyTimeOutThenThrowsBusy) {
  db_.execDML("BEGIN IMMEDIATE TRANSACTION;");
  CppSQLite3DB impatient(50);
  impatient.open(folder_.File("slots.db").c_str());
  EXPECT_EQ("SQLITE_BUSY[5]: database is locked",
            FailureOf([&] { impatient.execDML("BEGIN IMMEDIATE TRANSACTION;"); }));
  db_.execDML("END TRANSACTION;");
  impatient.execDML("BEGIN IMMEDIATE TRANSACTION; END TRANSACTION;");
}

}  // namespace
