// quillmar db show and db copy, run as a user runs them, on files written by EmbedderDatabaseV2
// and on a PostgreSQL server that two quillmar embed "hosts" share.
#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <regex>

#include "database/DatabaseTestSupport.h"
#include "database/EmbedderDatabaseV2.h"
#include "database/UtcClock.h"
#include "database/postgres/PostgresTestSupport.h"
#include "tools/testing/ToolRun.h"

namespace QuillmarBasebandSDK {
namespace {

using Quillmar::Testing::Quoted;
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

// Two hosts with configurations of their own reserve from one server without sharing a second of
// a CID; db show reads the server, and db copy moves its rows to a file and on to another server.
TEST(DbCommandOnAServer, TwoHostsShareOneReservoirThatCopiesBothWays) {
  Testing::PostgresServer server;
  const std::string uri = server.NewReservoir();
  TemporaryFolder folder;
  std::vector<std::unique_ptr<Quillmar::Testing::ToolProcess>> hosts;
  for (const std::string host : {"host-a", "host-b"}) {
    std::ifstream example(std::string(QUILLMAR_SOURCE_DIR) + "/examples/demo.json");
    std::string text((std::istreambuf_iterator<char>(example)), std::istreambuf_iterator<char>());
    text = std::regex_replace(text, std::regex("quillmar-demo-timeslots.db"), uri);
    text = std::regex_replace(text, std::regex("demo-channel-1"), host);
    folder.Write(host + "/channel.json", text);
    ASSERT_EQ(
        0, Quillmar::Testing::RunQuillmar("config sign channel.json", folder.Path() / host).status);
  }
  for (const std::string host : {"host-a", "host-b"}) {
    hosts.push_back(std::make_unique<Quillmar::Testing::ToolProcess>(
        std::vector<std::string>{"embed", "--config", "channel.json", "--program", "Demo",
                                 "--synthetic", "64x36@25", "--seconds", "2", "--json"},
        folder.Path() / host, Quillmar::Testing::ToolProcess::Pipes{}));
  }
  std::vector<unsigned> cids;
  for (auto& host : hosts) {
    const Quillmar::Testing::ToolRun run = host->Finish();
    ASSERT_EQ(0, run.status) << run.err;
    cids.push_back(boost::json::parse(run.out).at("cid").to_number<unsigned>());
  }
  EXPECT_NE(cids[0], cids[1]) << "both hosts ran at once, so each holds a CID of its own";

  const Quillmar::Testing::ToolRun shown = Quillmar("db show " + Quoted(uri) + " --json");
  ASSERT_EQ(0, shown.status) << shown.err;
  const boost::json::value rows = boost::json::parse(shown.out);
  EXPECT_TRUE(rows.at("schema_version").is_null());
  EXPECT_EQ(3u, rows.at("cids").as_array().size());
  for (const auto& row : rows.at("cids").as_array()) EXPECT_TRUE(row.at("locked_till").is_null());

  const std::string file = folder.File("copy.db");
  const std::string other = server.NewReservoir();
  const Quillmar::Testing::ToolRun toFile = Quillmar("db copy " + Quoted(uri) + " " + file);
  EXPECT_NE(std::string::npos, toFile.out.find("copied 3 rows")) << toFile.err;
  EXPECT_EQ(0, Quillmar("db copy " + file + " " + Quoted(other)).status);
  for (const std::string& copy : {file, other}) {
    const boost::json::value copied =
        boost::json::parse(Quillmar("db show " + Quoted(copy) + " --json").out);
    EXPECT_EQ(rows.at("cids"), copied.at("cids")) << copy;
  }

  const std::string unreachable = "postgresql://quillmar:secret@/postgres?host=/nonexistent";
  const Quillmar::Testing::ToolRun failed = Quillmar("db show " + Quoted(unreachable));
  EXPECT_EQ(1, failed.status);
  EXPECT_EQ(0u, failed.err.find(
                    "quillmar db show: postgresql://quillmar:***@/postgres?host=/nonexistent: "))
      << failed.err;
}

}  // namespace
}  // namespace QuillmarBasebandSDK
