// Loads one configuration file into a ContentProcessorSettings model and validates it.
//
// The file is JSON (versions "0.1" and "0.3", protected by a root `Checksum` member), or, when
// the text is not JSON, the older line-oriented form (LineForm.h). Failures are reported through
// one error text, "{source} - {message}", where {source} is the path the reader was made with;
// the last error wins. Program entries read before a failing one stay in the model. Nothing
// here throws. Not thread-safe: one reader per user.
#pragma once

#include <string>

#include "config/ConfigurationModel.h"

namespace QuillmarBasebandSDK {

struct JsonDocument;
struct JsonValue;
struct LineFormSection;
class MemberFinder;
class MemberContext;

class ConfigurationReader {
 public:
  // The section the line-oriented form is read from unless another is named.
  static constexpr char kDefaultSection[] = "COMMON";

  // A reader of the file at `source`; the line-oriented form is read from `sectionName`.
  explicit ConfigurationReader(std::string source, std::string sectionName = kDefaultSection);

  // Loads and validates the file; with `checkCrc` a missing or wrong checksum fails the load.
  // Returns false with ErrorText() set on failure.
  bool Load(bool checkCrc);

  // Loads and validates `bytes` as the content of the file, as Load does.
  bool LoadBytes(const std::string& bytes, bool checkCrc);

  const std::string& Source() const { return source_; }
  const std::string& ErrorText() const { return errorText_; }
  const ContentProcessorSettings& Settings() const { return settings_; }

  // The whole content of the file at `path` into `bytes`; false when it cannot be read.
  static bool ReadFile(const std::string& path, std::string& bytes);

 private:
  bool LoadJson(const JsonDocument& document, bool checkCrc);
  bool CheckChecksum(const JsonDocument& document, const MemberFinder& finder, bool checkCrc);
  bool ReadContentProcessor(const JsonValue& processor, const MemberFinder& finder);
  bool ReadDetector(const JsonValue& processor, const MemberFinder& finder);
  bool ReadProgramEntry(const JsonValue& element, std::size_t index, const MemberFinder& finder,
                        ProgramEntry& entry);
  bool ReadWatermark(const JsonValue& vwm, const MemberContext& context, const MemberFinder& finder,
                     WatermarkParameters& parameters);
  bool ReadMetadataFields(const JsonValue& fields, const ProgramEntry& entry,
                          const MemberFinder& finder, MetadataFieldMap& map);
  bool LoadLineForm(const std::string& bytes, bool checkCrc);
  bool ReadChannelSettings(const std::string& text, const LineFormSection& common,
                           const MemberFinder& finder);
  bool ReadChannel(const std::string& text, const std::string& sectionName,
                   const MemberFinder& finder, LineFormChannel& channel);

  std::string source_;
  std::string sectionName_;
  std::string errorText_;
  ContentProcessorSettings settings_;
};

}  // namespace QuillmarBasebandSDK
