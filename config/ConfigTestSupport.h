// Helpers shared by the configuration tests: scratch folders, files, signed documents, a log
// recorder and a writer that turns our tree back into JSON text.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config/ConfigurationReader.h"
#include "config/JsonValue.h"
#include "framework/LogSink.h"
#include "framework/testing/TemporaryFolder.h"

namespace QuillmarBasebandSDK::Testing {

using Framework::Testing::TemporaryFolder;

// `text` signed as `quillmar config sign` would sign it as the file `name`; unchanged when it
// cannot be signed.
std::string Signed(const std::string& text, const std::string& name = "cfg.json");

// `text` with its first `from` replaced by `to`; a test failure when `text` holds no `from`.
std::string Replaced(std::string text, const std::string& from, const std::string& to);

// A complete configuration whose ContentProcessingParameters array is `entries` (JSON text).
std::string DocumentWithEntries(const std::string& entries);

// Loads `text` from a scratch file named `name`; the reader's error texts name that file.
struct LoadResult {
  bool loaded = false;
  std::string errorText;  // without the "{source} - " prefix
  ContentProcessorSettings settings;
};
LoadResult LoadText(const std::string& text, bool checkCrc, const std::string& name = "cfg.json");

// The folder of the signed examples.
std::filesystem::path ExamplesFolder();

// JSON text for `value` (members in order, duplicates kept).
std::string WriteJson(const JsonValue& value);

// Records every log line while it lives.
class LogRecorder : public Framework::LogSink,
                    public std::enable_shared_from_this<LogRecorder> {
 public:
  static std::shared_ptr<LogRecorder> Attach();
  void Detach();
  void Write(const Framework::LogRecord& record) override;
  void WriteLine(const std::string& text) override;
  std::string Target() const override { return "test recorder"; }
  std::vector<std::string> Lines() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace QuillmarBasebandSDK::Testing
