#include "Logger.h"

#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "LogFile.h"
#include "framework/testing/ChildProcess.h"
#include "testing/RecordingLogSink.h"

namespace Framework {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
  std::ifstream stream(path);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

fs::path FreshFolder(const std::string& name) {
  const fs::path folder = fs::temp_directory_path() / ("quillmar-logger-" + name + "-" +
                                                       std::to_string(::getpid()));
  fs::remove_all(folder);
  return folder;
}

TEST(LogFile, FillsTheTimeFieldsOfItsName) {
  const SYSTEMTIME time{2026, 3, 0, 7, 9, 5, 2, 45};
  static const struct {
    const char* pattern;
    const char* expected;
  } cases[] = {
      {"Logs/QuillmarBasebandSDK_%Y-%m-%d_%H-%M-%S.%f.html",
       "Logs/QuillmarBasebandSDK_2026-03-07_09-05-02.045123.html"},
      {"plain.html", "plain.html"},
      {"100%.log", "100%.log"},          // a lone % at the end stays
      {"%q%Y", "%q2026"},                // unknown fields stay as written
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, LogFile::FillTimeFields(c.pattern, time, 45123)) << c.pattern;
  }
}

TEST(LogFile, EscapesHtml) {
  EXPECT_EQ("a &lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;", LogFile::EscapeHtml("a <b> & \"c\" 'd'"));
  EXPECT_EQ("plain", LogFile::EscapeHtml("plain"));
}

TEST(Logger, WritesAnHtmlFileAPersonCanRead) {
  const fs::path folder = FreshFolder("html");
  auto sink = Logger::AddFileLogging(folder / "Logs" / "run_%Y.html", LogFileType::Html,
                                     TextDateFormat::DateTimeMilliseconds);
  ASSERT_NE(nullptr, sink);
  const fs::path path = sink->Target();
  EXPECT_TRUE(std::regex_match(path.filename().string(), std::regex(R"(run_\d{4}\.html)")));

  Logger::SetMinimumLevel(EventLevel::Info);
  Logger::Write(EventLevel::Debug, "dropped below the minimum");
  Logger::Info("Allocating <CID> & \"slot\"");
  Logger::Warning(boost::format("Retry %1% of %2%") % 3 % 10);
  Logger::Error("failed");
  Logger::Info(boost::format("%1% and %2%") % "one");  // too few arguments: logged, not thrown
  Logger::SetMinimumLevel(EventLevel::Debug);
  sink->WriteLine(">> a note");
  Logger::RemoveSink(sink);
  Logger::Info("after removal");
  sink.reset();

  const std::string html = ReadFile(path);
  EXPECT_EQ(0u, html.find("<!DOCTYPE html>"));
  EXPECT_NE(std::string::npos, html.find("Allocating &lt;CID&gt; &amp; &quot;slot&quot;"));
  EXPECT_NE(std::string::npos, html.find("<tr class=\"WARNING\">"));
  EXPECT_NE(std::string::npos, html.find("Retry 3 of 10"));
  EXPECT_NE(std::string::npos, html.find("<tr class=\"ERROR\">"));
  EXPECT_NE(std::string::npos, html.find("(malformed log line:"));
  EXPECT_NE(std::string::npos, html.find("&gt;&gt; a note"));
  EXPECT_EQ(std::string::npos, html.find("dropped below the minimum"));
  EXPECT_EQ(std::string::npos, html.find("after removal"));
  EXPECT_TRUE(std::regex_search(
      html, std::regex(R"(<tr class="INFO"><td>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}</td><td>INFO</td><td>\d+</td>)")));
  EXPECT_NE(std::string::npos, html.rfind("</table></body></html>"));
  fs::remove_all(folder);
}

TEST(Logger, LinesFromManyThreadsNeverInterleave) {
  const fs::path folder = FreshFolder("threads");
  auto sink = Logger::AddFileLogging(folder / "plain.log", LogFileType::PlainText,
                                     TextDateFormat::TimeMilliseconds);
  ASSERT_NE(nullptr, sink);
  constexpr int kThreads = 4;
  constexpr int kLines = 250;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        Logger::Info("thread " + std::to_string(t) + " line " + std::to_string(i) + " end");
      }
    });
  }
  for (auto& thread : threads) thread.join();
  Logger::RemoveSink(sink);
  const fs::path path = sink->Target();
  sink.reset();

  std::istringstream lines(ReadFile(path));
  const std::regex wellFormed(R"(\d\d:\d\d:\d\d:\d{3} INFO \[\d+\] thread \d line \d+ end)");
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_TRUE(std::regex_match(line, wellFormed)) << line;
  }
  EXPECT_EQ(kThreads * kLines, count);
  fs::remove_all(folder);
}

TEST(Logger, ReportsAFileItCannotOpen) {
  EXPECT_EQ(nullptr, Logger::AddFileLogging("/proc/no-such-folder/x.html", LogFileType::Html,
                                            TextDateFormat::DateTimeMilliseconds));
}

TEST(Logger, InitIsProcessWideAndIdempotent) {
  EXPECT_EQ(0, Testing::RunInChild([] {
    EXPECT_FALSE(Logger::IsInitialized());
    Logger::Init();
    Logger::Init();
    EXPECT_TRUE(Logger::IsInitialized());
  }));
}

}  // namespace
}  // namespace Framework
