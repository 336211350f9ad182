#include "LogStartup.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "LoggerStateCell.h"
#include "framework/Logger.h"
#include "framework/platform/NamedSharedMemory.h"
#include "framework/platform/Process.h"
#include "framework/testing/ChildProcess.h"

namespace QuillmarBasebandSDK {
namespace {

namespace fs = std::filesystem;
using Framework::Testing::RunInChild;

std::string ReadFile(const fs::path& path) {
  std::ifstream stream(path);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

std::vector<fs::path> FilesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) files.push_back(entry.path());
  return files;
}

fs::path FreshFolder(const std::string& name) {
  const fs::path folder =
      fs::temp_directory_path() / ("quillmar-logging-" + name + "-" + std::to_string(::getpid()));
  fs::remove_all(folder);
  return folder;
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(LogStartup, LogFileNameAddsASeparatorOnlyWhenNeeded) {
  static const struct {
    const char* base;
    const char* expected;
  } cases[] = {
      {"/srv/root", "/srv/root/Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html"},
      {"/srv/root/", "/srv/root/Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html"},
      {"C:\\Quillmar\\", "C:\\Quillmar\\Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html"},
      {"C:\\Quillmar", "C:\\Quillmar/Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html"},
      {"relative", "relative/Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, LogStartup::LogFileName(c.base)) << c.base;
}

TEST(LogStartup, FirstStartDecidesTheFileAndLaterStartsOnlyLog) {
  const fs::path first = FreshFolder("first");
  const fs::path second = FreshFolder("second");
  EXPECT_EQ(0, RunInChild([&] {
    LogStartup::StartLogging(first.string());
    EXPECT_TRUE(Framework::Logger::IsInitialized());
    EXPECT_EQ(Framework::EventLevel::Info, Framework::Logger::GetMinimumLevel());
    LogStartup::StartLogging(second.string() + "/");
    Framework::Logger::Write(Framework::EventLevel::Debug, "below the minimum level");
    Framework::Logger::Warning("a <warning>");

    const auto files = FilesIn(first / "Logs");
    ASSERT_EQ(1u, files.size());
    EXPECT_TRUE(std::regex_match(
        files[0].filename().string(),
        std::regex(R"(QuillmarBasebandSDK_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.\d{6}\.html)")));
    EXPECT_FALSE(fs::exists(second / "Logs"));
    const std::string html = ReadFile(files[0]);
    EXPECT_EQ(2u, Count(html, "Creating QuillmarBasebandConfiguration. Parsing config file..."));
    EXPECT_NE(std::string::npos, html.find("a &lt;warning&gt;"));
    EXPECT_EQ(std::string::npos, html.find("below the minimum level"));
    EXPECT_EQ(files[0].string(), LogStartup::ProcessLoggerState()->TargetName());
  }));
  fs::remove_all(first);
  fs::remove_all(second);
}

// Two modules of one process, each with its own copy of the logging code, find one logger
// state through the cell: one log file, closed by the last module to go.
TEST(LogStartup, TwoModulesOfOneProcessShareOneLog) {
  const fs::path folder = FreshFolder("modules");
  EXPECT_EQ(0, RunInChild([&] {
    void* moduleA = ::dlopen(LOGGING_MODULE_A, RTLD_NOW | RTLD_LOCAL);
    void* moduleB = ::dlopen(LOGGING_MODULE_B, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, moduleA) << ::dlerror();
    ASSERT_NE(nullptr, moduleB) << ::dlerror();
    using Start = void (*)(const char*);
    using State = const void* (*)();
    reinterpret_cast<Start>(::dlsym(moduleA, "StartModuleLogging"))(folder.c_str());
    reinterpret_cast<Start>(::dlsym(moduleB, "StartModuleLogging"))((folder / "other").c_str());
    const void* stateA = reinterpret_cast<State>(::dlsym(moduleA, "ModuleLoggerState"))();
    const void* stateB = reinterpret_cast<State>(::dlsym(moduleB, "ModuleLoggerState"))();
    EXPECT_NE(nullptr, stateA);
    EXPECT_EQ(stateA, stateB);

    const auto files = FilesIn(folder / "Logs");
    ASSERT_EQ(1u, files.size());
    EXPECT_FALSE(fs::exists(folder / "other" / "Logs"));

    const std::string block = LoggerStateCell::BlockName(Framework::CurrentProcessId());
    ::dlclose(moduleA);
    EXPECT_EQ(std::string::npos, ReadFile(files[0]).find("Stopped logging"));
    EXPECT_TRUE(Framework::NamedSharedMemory::Exists(block));
    ::dlclose(moduleB);

    const std::string html = ReadFile(files[0]);
    EXPECT_EQ(2u, Count(html, "Creating QuillmarBasebandConfiguration. Parsing config file..."));
    EXPECT_TRUE(std::regex_search(
        html, std::regex("&gt;&gt; Stopped logging to " + files[0].string() +
                         R"( at \d{4}-\d\d-\d\d \d\d:\d\d:\d\d<)")));
    EXPECT_NE(std::string::npos, html.rfind("</html>"));
    EXPECT_FALSE(Framework::NamedSharedMemory::Exists(block));
    Framework::Logger::Info("after the log stopped");
    EXPECT_EQ(std::string::npos, ReadFile(files[0]).find("after the log stopped"));
  }));
  fs::remove_all(folder);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
