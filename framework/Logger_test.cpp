#include "Logger.h"

#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <fstream>
#include <regex>
#include <thread>
#include <vector>

#include "LogFile.h"
#include "framework/testing/TemporaryFolder.h"

namespace Framework {
namespace {

TEST(LogFile, FillsTheTimeFieldsOfItsNameAndEscapesHtml) {
  const SYSTEMTIME time{2026, 3, 0, 7, 9, 5, 2, 45};
  EXPECT_EQ("Logs/Q_2026-03-07_09-05-02.045123.html",
            LogFile::FillTimeFields("Logs/Q_%Y-%m-%d_%H-%M-%S.%f.html", time, 45123));
  EXPECT_EQ("100%", LogFile::FillTimeFields("100%", time, 0)) << "a lone % at the end stays";
  EXPECT_EQ("%q2026", LogFile::FillTimeFields("%q%Y", time, 0)) << "unknown fields stay";
  EXPECT_EQ("&lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;", LogFile::EscapeHtml("<b> & \"c\" 'd'"));
}

// Lines from many threads, then lines of every other kind, into one HTML file.
TEST(Logger, WritesAnHtmlFileOfWholeRowsFromManyThreads) {
  const Testing::TemporaryFolder folder;
  EXPECT_EQ(nullptr, Logger::AddFileLogging("/proc/no-such-folder/x.html", LogFileType::Html,
                                            TextDateFormat::DateTimeMilliseconds));
  auto sink = Logger::AddFileLogging(folder.Path() / "Logs" / "run.html", LogFileType::Html,
                                     TextDateFormat::DateTimeMilliseconds);
  ASSERT_NE(nullptr, sink);
  constexpr int kThreads = 4, kLines = 250;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) Logger::Info(boost::format("thread %1% line %2%") % t % i);
    });
  }
  for (auto& thread : threads) thread.join();
  Logger::Warning(boost::format("Retry %1% of %2%") % 3 % 10);
  Logger::Info(boost::format("%1% and %2%") % "one");  // too few arguments: logged, not thrown
  sink->WriteLine(">> a note");
  Logger::RemoveSink(sink);
  Logger::Info("after removal");
  sink.reset();

  std::ifstream stream(folder.Path() / "Logs" / "run.html");
  const std::string html{std::istreambuf_iterator<char>(stream), {}};
  const std::regex row(R"(<tr class="INFO"><td>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}</td><td>)"
                       R"(INFO</td><td>\d+</td><td class="text">thread \d line \d+</td></tr>)");
  EXPECT_EQ(kThreads * kLines,
            std::distance(std::sregex_iterator(html.begin(), html.end(), row), {}));
  EXPECT_NE(std::string::npos, html.find("<tr class=\"WARNING\"><td>"));
  EXPECT_NE(std::string::npos, html.find("Retry 3 of 10</td></tr>"));
  EXPECT_NE(std::string::npos, html.find("(malformed log line:"));
  EXPECT_NE(std::string::npos, html.find("&gt;&gt; a note"));
  EXPECT_EQ(std::string::npos, html.find("after removal"));
}

}  // namespace
}  // namespace Framework
