#include "plugins/embedder/EncodationLogFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>

#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"

namespace LumensealReference {
namespace {

// Appending whole records, also from many threads and processes at once, is shown by
// tests/EncodationLog_test.cpp. A line that the file system takes only in part is cut off again:
// the file keeps only the earlier, whole lines. A child's file size limit makes the write short.
TEST(EncodationLogFile, CutsOffALineThatCouldNotBeWrittenWhole) {
  const Framework::Testing::TemporaryFolder folder;
  const EncodationLogFile file(folder.File("log.jsonl"));
  std::string error;
  ASSERT_TRUE(file.Append("{\"first\":true}", &error)) << error;
  EXPECT_EQ(0, Framework::Testing::RunInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100, 100};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    std::string childError;
    EXPECT_FALSE(file.Append("{\"big\":\"" + std::string(10000, 'x') + "\"}", &childError));
    EXPECT_EQ(0u, childError.find("cannot write to " + file.Path().string())) << childError;
  }));
  std::ifstream stream(file.Path());
  EXPECT_EQ("{\"first\":true}\n", std::string(std::istreambuf_iterator<char>(stream), {}));
}

}  // namespace
}  // namespace LumensealReference
