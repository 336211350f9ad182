#include "LogFile.h"

#include <cstdio>
#include <cstring>

namespace Framework {
namespace {

const char kHtmlHead[] =
    "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>%s</title>\n<style>\n"
    "body { font-family: sans-serif; font-size: 13px; }\n"
    "table { border-collapse: collapse; }\n"
    "td { padding: 1px 8px; vertical-align: top; }\n"
    "td.text { font-family: monospace; white-space: pre-wrap; }\n"
    "tr.DEBUG, tr.VERBOSE { color: #777; }\n"
    "tr.WARNING { background: #fff3c4; }\n"
    "tr.ERROR { background: #ffd6d6; color: #900; font-weight: bold; }\n"
    "tr.note { color: #555; font-style: italic; }\n"
    "</style></head><body>\n<h3>%s</h3>\n<table>\n"
    "<tr><th>time</th><th>level</th><th>thread</th><th>message</th></tr>\n";
const char kHtmlTail[] = "</table></body></html>\n";

std::string Formatted(const char* format, int value, int width) {
  char text[16];
  std::snprintf(text, sizeof text, format, width, value);
  return text;
}

}  // namespace

LogSink::~LogSink() = default;

void LogSink::WriteAll(const std::vector<LogRecord>& records) {
  for (const LogRecord& record : records) Write(record);
}

const char* LevelName(EventLevel level) {
  switch (level) {
    case EventLevel::Debug: return "DEBUG";
    case EventLevel::Verbose: return "VERBOSE";
    case EventLevel::Info: return "INFO";
    case EventLevel::Warning: return "WARNING";
    case EventLevel::Error: return "ERROR";
  }
  return "ERROR";
}

LogFile::LogFile(std::filesystem::path path, LogFileType type, TextDateFormat dateFormat)
    : path_(std::move(path)), type_(type), dateFormat_(dateFormat) {}

std::shared_ptr<LogFile> LogFile::Open(const std::filesystem::path& pattern, LogFileType type,
                                       TextDateFormat dateFormat, const SYSTEMTIME& now,
                                       int microseconds) {
  const std::filesystem::path path = FillTimeFields(pattern.string(), now, microseconds);
  std::error_code ignored;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ignored);
  std::shared_ptr<LogFile> file(new LogFile(path, type, dateFormat));
  file->stream_.open(path, std::ios::out | std::ios::app);
  if (!file->stream_) return nullptr;
  if (type == LogFileType::Html) {
    const std::string title = EscapeHtml(path.filename().string());
    char head[sizeof kHtmlHead + 1024];
    std::snprintf(head, sizeof head, kHtmlHead, title.substr(0, 500).c_str(),
                  title.substr(0, 500).c_str());
    file->stream_ << head << std::flush;
  }
  return file;
}

LogFile::~LogFile() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (type_ == LogFileType::Html) stream_ << kHtmlTail;
}

void LogFile::Write(const LogRecord& record) {
  std::string lines;
  Append(lines, record, TimeText(record.localTime));
  std::lock_guard<std::mutex> lock(mutex_);
  stream_.write(lines.data(), static_cast<std::streamsize>(lines.size()));
  stream_.flush();
}

void LogFile::WriteAll(const std::vector<LogRecord>& records) {
  std::string lines;
  lines.reserve(records.size() * 160);
  SYSTEMTIME lastTime{};
  std::string time;
  for (const LogRecord& record : records) {
    if (time.empty() || std::memcmp(&lastTime, &record.localTime, sizeof lastTime) != 0) {
      lastTime = record.localTime;
      time = TimeText(lastTime);
    }
    Append(lines, record, time);
  }
  std::lock_guard<std::mutex> lock(mutex_);
  stream_.write(lines.data(), static_cast<std::streamsize>(lines.size()));
  stream_.flush();
}

void LogFile::Append(std::string& lines, const LogRecord& record, const std::string& time) const {
  const char* level = LevelName(record.level);
  char thread[16];
  std::snprintf(thread, sizeof thread, "%u", static_cast<unsigned>(record.threadId));
  if (type_ == LogFileType::Html) {
    lines.append("<tr class=\"").append(level).append("\"><td>").append(time);
    lines.append("</td><td>").append(level).append("</td><td>").append(thread);
    lines.append("</td><td class=\"text\">");
    AppendEscapedHtml(lines, record.text);
    lines.append("</td></tr>\n");
  } else {
    lines.append(time).append(" ").append(level).append(" [").append(thread).append("] ");
    lines.append(record.text).append("\n");
  }
}

void LogFile::WriteLine(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (type_ == LogFileType::Html) {
    stream_ << "<tr class=\"note\"><td colspan=\"4\">" << EscapeHtml(text) << "</td></tr>\n";
  } else {
    stream_ << text << '\n';
  }
  stream_.flush();
}

std::string LogFile::TimeText(const SYSTEMTIME& time) const {
  char text[64];
  if (dateFormat_ == TextDateFormat::TimeMilliseconds) {
    std::snprintf(text, sizeof text, "%02d:%02d:%02d:%03d", time.wHour, time.wMinute,
                  time.wSecond, time.wMilliseconds);
  } else {
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d:%03d", time.wYear,
                  time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                  time.wMilliseconds);
  }
  return text;
}

std::string LogFile::FillTimeFields(const std::string& pattern, const SYSTEMTIME& time,
                                    int microseconds) {
  std::string name;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%' || i + 1 == pattern.size()) {
      name += pattern[i];
      continue;
    }
    switch (pattern[++i]) {
      case 'Y': name += Formatted("%0*d", time.wYear, 4); break;
      case 'm': name += Formatted("%0*d", time.wMonth, 2); break;
      case 'd': name += Formatted("%0*d", time.wDay, 2); break;
      case 'H': name += Formatted("%0*d", time.wHour, 2); break;
      case 'M': name += Formatted("%0*d", time.wMinute, 2); break;
      case 'S': name += Formatted("%0*d", time.wSecond, 2); break;
      case 'f': name += Formatted("%0*d", microseconds, 6); break;
      default: name += '%'; name += pattern[i]; break;
    }
  }
  return name;
}

std::string LogFile::EscapeHtml(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  AppendEscapedHtml(escaped, text);
  return escaped;
}

void LogFile::AppendEscapedHtml(std::string& out, const std::string& text) {
  std::size_t plain = 0;  // start of the characters not yet copied
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char* reference = nullptr;
    switch (text[i]) {
      case '&':
        reference = "&amp;";
        break;
      case '<':
        reference = "&lt;";
        break;
      case '>':
        reference = "&gt;";
        break;
      case '"':
        reference = "&quot;";
        break;
      case '\'':
        reference = "&#39;";
        break;
      default:
        continue;
    }
    out.append(text, plain, i - plain).append(reference);
    plain = i + 1;
  }
  out.append(text, plain, std::string::npos);
}

}  // namespace Framework
