// The loaded configuration: the content processor's settings, the detector settings and the
// ordered program entries, with the vocabularies their values come from.
//
// Plain values, filled by ConfigurationReader; safe to read from many threads once loaded.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace QuillmarBasebandSDK {

enum class ContentType : int {
  Entertainment = 0,
  News = 1,
  DirectResponse = 2,
  UserDefined = 3,  // entries that define their fields with MetadataFields
};

enum class PayloadSize : int {
  Rate72 = 0,
  Rate48 = 1,  // the only size still supported
  Rate36 = 2,
  Rate48Per6 = 3,
};

// Metadata key (what a caller names) -> field name (what the encodation log writes), by key.
using MetadataFieldMap = std::map<std::string, std::string>;

struct WatermarkParameters {
  std::string name;                // the program's name, stored when the entry's Name is read
  std::vector<std::int64_t> eids;  // at least one, in file order
  float globalDepth = 0.0f;
  std::int32_t maxLocalDepth = 0;
  // No file member sets it: always 0, so the embedder's flat-region setting is off.
  std::int32_t flatRegion = 0;
  bool parametersSet = false;      // raised once MaxLocalDepth has been read
  std::string embeddingQuality;    // line-oriented form only
};

struct ProgramEntry {
  std::string name;
  ContentType contentType = ContentType::UserDefined;
  PayloadSize payloadSize = PayloadSize::Rate48;
  WatermarkParameters vwm;
  MetadataFieldMap metadataFields;
};

struct DetectorSettings {
  bool displayAllWatermarks = false;
  std::vector<std::int64_t> displayEids;
};

// One channel entry of a line-oriented file's channel settings: its section, and the strength
// its programs are embedded with.
struct LineFormChannel {
  std::string section;
  std::string name;
  float globalDepth = 0.0f;
  std::int32_t maxLocalDepth = 0;
};

// The channel settings a line-oriented file may carry (never a JSON file).
struct ChannelSettings {
  bool present = false;  // the file names its Channels
  std::string client;
  std::string connectionMode;
  std::string operationMode;
  std::string embeddingMode;
  std::string channelName;  // the entry whose strength this embedder's programs take
  std::int32_t embeddingStartDelay = 0;  // seconds
  std::vector<std::string> embedderMacAddresses;
  std::vector<std::string> detectorMacAddresses;
  std::vector<LineFormChannel> channels;
};

struct ContentProcessorSettings {
  std::string facility;
  std::string sharedDatabase;
  bool hasSharedDatabase = false;
  std::string uniqueIdentifier;
  bool hasUniqueIdentifier = false;
  std::string name;
  bool hasName = false;
  std::string checksumText;
  bool checksumValid = false;
  std::int32_t fontPitch = 0;          // line-oriented form only
  std::string defaultProgramName;      // line-oriented form only; empty when none
  ChannelSettings channelSettings;     // line-oriented form only
  DetectorSettings detector;
  std::vector<ProgramEntry> programs;
};

// --- Vocabularies -------------------------------------------------------------------------

// Accepts exactly "Entertainment"/"entertainment", "News"/"news",
// "DirectResponse"/"directresponse"/"direct_response".
bool ParseContentType(const std::string& spelling, ContentType& type);

// "entertainment", "news", "direct_response", "user_defined"; "" for any other value.
std::string ContentTypeName(ContentType type);

// The built-in key -> field-name table installed for a content type given in the file; empty
// for user_defined.
MetadataFieldMap BuiltInMetadataFields(ContentType type);

// Accepts "48", "48_1", "48-1" (48 bits per second) and "48_6", "48-6" (48 bits per 6 seconds).
bool ParsePayloadSize(const std::string& spelling, PayloadSize& size);

// "72 bits per second", "48 bits per second", "36 bits per second", "48 bits per 6 seconds";
// "unknown payload size" for any other value.
std::string PayloadRateText(int size);

// The five quality names ("VERY_LOW_QUALITY" ... "VERY_HIGH_QUALITY") and the empty string.
bool IsValidQualityName(const std::string& name);

// The payload-size check of an entry in `context` (null `spelling`: the entry has none). On
// failure sets `error` to "{context}.PayloadSize not found", "{context}.PayloadSize not valid" or
// "{context}.PayloadSize, payload size {rate text} is no longer supported." and returns false.
bool CheckPayloadSize(const std::string* spelling, const std::string& context,
                      PayloadSize& size, std::string& error);

// True when some program is named `name` exactly.
bool HasProgramNamed(const std::vector<ProgramEntry>& programs, const std::string& name);

// The EIDs joined with ", ".
std::string JoinEids(const std::vector<std::int64_t>& eids);

}  // namespace QuillmarBasebandSDK
