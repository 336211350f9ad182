// quillmar db show, run as a user runs it, on files written by EmbedderDatabaseV2.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <boost/json.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "database/DatabaseTestSupport.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/UtcClock.h"
#include "tests/ToolRun.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::TemporaryFolder;

constexpr SYSTEMTIME kNow{2026, 11, 6, 21, 8, 0, 0, 250};

// Runs quillmar with `arguments`; standard error is left to the test log.
Quillmar::Testing::ToolRun Quillmar(const std::string& arguments) {
  return Quillmar::Testing::RunQuillmar(arguments, std::filesystem::current_path());
}

class DbShowCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    UtcClock::ScopedPin clock(kNow);
    EmbedderDatabaseV2 db;
    std::string err;
    ASSERT_TRUE(db.Init(path_.c_str(), {7, 4294967295u, 9}, err)) << err;
    unsigned cid = 0;
    SYSTEMTIME start{};
    ASSERT_TRUE(db.AllocateEmbeddingTimeslot({7}, 90, cid, start, err, 60)) << err;
    ASSERT_TRUE(db.AllocateEmbeddingTimeslot({9}, 30, cid, start, err, 0)) << err;
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.File("slots.db");
};

TEST_F(DbShowCommand, PrintsEveryCidWithItsTimesAsJsonAndAsATable) {
  const Quillmar::Testing::ToolRun json = Quillmar("db show " + path_ + " --json");
  ASSERT_EQ(0, json.status) << json.out;
  const boost::json::value expected = boost::json::parse(
      R"({"path":")" + path_ +
      R"(","schema_version":2,"cids":[)"
      R"({"cid":7,"allocated_till":"2026-11-21T08:01:30Z","locked_till":"2026-11-21T08:01:00Z"},)"
      R"({"cid":4294967295,"allocated_till":"2026-11-21T08:00:00Z","locked_till":null},)"
      R"({"cid":9,"allocated_till":"2026-11-21T08:00:30Z","locked_till":null}]})");
  EXPECT_EQ(expected, boost::json::parse(json.out));

  const Quillmar::Testing::ToolRun table = Quillmar("db show " + path_);
  ASSERT_EQ(0, table.status);
  EXPECT_EQ(path_ + ": schema version 2\n"
                    "CID         allocated till          locked till\n"
                    "7           2026-11-21T08:01:30Z    2026-11-21T08:01:00Z\n"
                    "4294967295  2026-11-21T08:00:00Z    not locked\n"
                    "9           2026-11-21T08:00:30Z    not locked\n",
            table.out);
}

TEST_F(DbShowCommand, LeavesFilesItCannotShowAsTheyAre) {
  const std::string missing = folder_.File("missing.db");
  EXPECT_NE(0, Quillmar("db show " + missing).status);
  EXPECT_FALSE(std::filesystem::exists(missing)) << "showing must not create the file";

  const std::string old = folder_.File("version1.db");
  Testing::ExecSql(old, "create table TimeStampReservoir(CID int, TimestampHi int, TimestampLo int);");
  const Quillmar::Testing::ToolRun run = Quillmar("db show " + old + " --json");
  ASSERT_EQ(0, run.status);
  EXPECT_EQ(boost::json::parse(R"({"path":")" + old + R"(","schema_version":1,"cids":[]})"),
            boost::json::parse(run.out));
  EXPECT_EQ("1", Testing::QuerySql(old, "select count(*) from sqlite_master;")) << "not converted";
}

}  // namespace
}  // namespace QuillmarBasebandSDK
