#include "LogStartup.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "LoggerStateCell.h"
#include "framework/Logger.h"
#include "framework/platform/Process.h"
#include "framework/testing/ChildProcess.h"
#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
  std::ifstream stream(path);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

TEST(LogStartup, LogFileNameAddsASeparatorOnlyWhenNeeded) {
  const std::string name = "Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html";
  EXPECT_EQ("/srv/root/" + name, LogStartup::LogFileName("/srv/root"));
  EXPECT_EQ("/srv/root/" + name, LogStartup::LogFileName("/srv/root/"));
  EXPECT_EQ("C:\\Quillmar\\" + name, LogStartup::LogFileName("C:\\Quillmar\\"));
}

// Two modules of one process, each with its own copy of the logging code, find one logger
// state through the cell: the first start decides the file, which the last module to go closes.
TEST(LogStartup, ModulesOfOneProcessShareTheLogTheFirstStartOpened) {
  const Framework::Testing::TemporaryFolder folder;
  EXPECT_EQ(0, Framework::Testing::RunInChild([&] {
    using Start = void (*)(const char*);
    using State = const void* (*)();
    void* modules[] = {::dlopen(LOGGING_MODULE_A, RTLD_NOW | RTLD_LOCAL),
                       ::dlopen(LOGGING_MODULE_B, RTLD_NOW | RTLD_LOCAL)};
    ASSERT_TRUE(modules[0] != nullptr && modules[1] != nullptr) << ::dlerror();
    const fs::path bases[] = {folder.Path(), folder.Path() / "other"};
    const void* states[2] = {};
    for (int i = 0; i < 2; ++i) {
      reinterpret_cast<Start>(::dlsym(modules[i], "StartModuleLogging"))(bases[i].c_str());
      states[i] = reinterpret_cast<State>(::dlsym(modules[i], "ModuleLoggerState"))();
    }
    EXPECT_EQ(states[0], states[1]);
    EXPECT_FALSE(fs::exists(bases[1] / "Logs"));
    const std::string file = static_cast<const LoggerState*>(states[0])->TargetName();
    EXPECT_EQ(folder.Path() / "Logs", fs::path(file).parent_path());
    EXPECT_TRUE(std::regex_search(
        file, std::regex(R"(/QuillmarBasebandSDK_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.\d{6}\.html$)")));
    Framework::Logger::Write(Framework::EventLevel::Debug, "below the minimum level");

    const std::string block = LoggerStateCell::BlockName(Framework::CurrentProcessId());
    ::dlclose(modules[0]);
    EXPECT_EQ(std::string::npos, ReadFile(file).find("Stopped logging"));
    EXPECT_TRUE(Framework::NamedSharedMemory::Exists(block));
    ::dlclose(modules[1]);
    EXPECT_FALSE(Framework::NamedSharedMemory::Exists(block));
    Framework::Logger::Info("after the log stopped");
    const std::string html = ReadFile(file);
    const std::regex start(R"(Creating QuillmarBasebandConfiguration\. Parsing config file)");
    EXPECT_EQ(2, std::distance(std::sregex_iterator(html.begin(), html.end(), start), {}));
    EXPECT_EQ(std::string::npos, html.find("below the minimum level"));
    EXPECT_TRUE(std::regex_search(html, std::regex("&gt;&gt; Stopped logging to " + file +
                                                   R"( at \d{4}-\d\d-\d\d \d\d:\d\d:\d\d<)")));
    EXPECT_NE(std::string::npos, html.rfind("</html>"));
    EXPECT_EQ(std::string::npos, html.find("after the log stopped"));
  }));
}

}  // namespace
}  // namespace QuillmarBasebandSDK
