#include "plugins/embedder/EncodationLogFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace LumensealReference {
namespace {

namespace fs = std::filesystem;

class EncodationLogFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::temp_directory_path() /
              ("EncodationLogFileTest-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  static std::string Contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
  }

  fs::path folder_;
};

TEST_F(EncodationLogFileTest, AppendsLinesAndCreatesMissingFolders) {
  const EncodationLogFile file(folder_ / "a" / "b" / "log.jsonl");
  std::string error;
  ASSERT_TRUE(file.Append("{\"n\":1}", &error)) << error;
  ASSERT_TRUE(file.Append("{\"n\":2}", &error)) << error;
  EXPECT_EQ(Contents(file.Path()), "{\"n\":1}\n{\"n\":2}\n");
}

TEST_F(EncodationLogFileTest, ReportsAFileThatCannotBeOpened) {
  fs::create_directories(folder_);
  std::ofstream(folder_ / "plain-file") << "x";
  const EncodationLogFile file(folder_ / "plain-file" / "log.jsonl");
  std::string error;
  EXPECT_FALSE(file.Append("{}", &error));
  EXPECT_NE(error.find("plain-file"), std::string::npos) << error;
}

// A line that the file system takes only in part is cut off again: the file keeps only the
// earlier, whole lines. The size limit of a child process makes the write fall short.
TEST_F(EncodationLogFileTest, CutsOffALineThatCouldNotBeWrittenWhole) {
  const EncodationLogFile file(folder_ / "log.jsonl");
  std::string error;
  ASSERT_TRUE(file.Append("{\"first\":true}", &error)) << error;
  const std::string before = Contents(file.Path());

  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{static_cast<rlim_t>(before.size() + 100),
                       static_cast<rlim_t>(before.size() + 100)};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::string childError;
    const bool appended = file.Append("{\"big\":\"" + std::string(10000, 'x') + "\"}", &childError);
    ::_exit(!appended && !childError.empty() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the oversized append did not fail as expected";
  EXPECT_EQ(Contents(file.Path()), before);
}

}  // namespace
}  // namespace LumensealReference
