#include "config/ConfigTestSupport.h"

#include <gtest/gtest.h>

#include <boost/json/serialize.hpp>
#include <boost/json/string.hpp>
#include <sstream>

#include "config/ConfigurationSigner.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK::Testing {

std::string Signed(const std::string& text, const std::string& name) {
  std::string signedText;
  std::string error;
  return SignConfiguration(text, name, name, true, signedText, error) ? signedText : text;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string DocumentWithEntries(const std::string& entries) {
  return R"({"ContentProcessor": {"Version": "0.3", "Facility": "F", "SharedDatabase": "db",
    "Detector": {"VWM": {"DisplayAllWatermarks": false, "DisplayEIDS": [1]}},
    "ContentProcessingParameters": [)" +
         entries + "]}}";
}

LoadResult LoadText(const std::string& text, bool checkCrc, const std::string& name) {
  const TemporaryFolder folder;
  const std::string path = folder.Write(name, text);
  ConfigurationReader reader(path);
  LoadResult result;
  result.loaded = reader.Load(checkCrc);
  const std::string prefix = path + " - ";
  result.errorText = reader.ErrorText().rfind(prefix, 0) == 0
                         ? reader.ErrorText().substr(prefix.size())
                         : reader.ErrorText();
  result.settings = reader.Settings();
  return result;
}

std::filesystem::path ExamplesFolder() {
  return std::filesystem::path(QUILLMAR_SOURCE_DIR) / "examples";
}

std::string WriteJson(const JsonValue& value) {
  std::ostringstream text;
  switch (value.type) {
    case JsonType::Object: {
      text << '{';
      const char* separator = "";
      for (const JsonMember& member : value.members) {
        text << separator << boost::json::serialize(boost::json::string(member.name)) << ':'
             << WriteJson(member.value);
        separator = ",";
      }
      text << '}';
      break;
    }
    case JsonType::Array: {
      text << '[';
      const char* separator = "";
      for (const JsonValue& element : value.elements) {
        text << separator << WriteJson(element);
        separator = ",";
      }
      text << ']';
      break;
    }
    case JsonType::String: text << boost::json::serialize(boost::json::string(value.string)); break;
    case JsonType::Boolean: text << (value.boolean ? "true" : "false"); break;
    case JsonType::Integer: text << value.IntegerText(); break;
    case JsonType::Real: text << boost::json::serialize(boost::json::value(value.real)); break;
    case JsonType::Null: text << "null"; break;
  }
  return text.str();
}

std::shared_ptr<LogRecorder> LogRecorder::Attach() {
  auto recorder = std::make_shared<LogRecorder>();
  Framework::Logger::AddSink(recorder);
  return recorder;
}

void LogRecorder::Detach() { Framework::Logger::RemoveSink(shared_from_this()); }

void LogRecorder::Write(const Framework::LogRecord& record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(std::string(Framework::LevelName(record.level)) + " " + record.text);
}

void LogRecorder::WriteLine(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(text);
}

std::vector<std::string> LogRecorder::Lines() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

}  // namespace QuillmarBasebandSDK::Testing
