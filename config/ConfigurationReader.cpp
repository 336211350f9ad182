#include "config/ConfigurationReader.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "config/DocumentChecksum.h"
#include "config/JsonDocument.h"
#include "config/LineForm.h"
#include "config/MemberFinder.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr char kRootContext[] = "JSON root object";
constexpr char kProcessorContext[] = "ContentProcessor";
constexpr char kDetectorContext[] = "Detector";
constexpr char kDetectorVwmContext[] = "VWM of Detector";
constexpr char kEntriesName[] = "ContentProcessingParameters";
constexpr char kSupportedVersions[][4] = {"0.1", "0.3"};

constexpr char kEntryIndexContext[] = "ContentProcessingParameters[";
constexpr char kEntryContext[] = "ContentProcessingParameters with name ";
constexpr char kEntryVwmContext[] = "VWM of ContentProcessingParameters with name ";
constexpr char kEntryMetadataContext[] = "MetadataFields of ContentProcessingParameters with name ";

// Looks up a member that may be absent. One of another type is reported by the finder (the
// last error text says so) and counts as absent: only a required member stops the load.
const JsonValue* FindOptional(const MemberFinder& finder, const JsonValue& object,
                              std::string_view key, JsonType type, const MemberContext& context) {
  if (MemberFinder::FindAny(object, key) == nullptr) return nullptr;
  return finder.Find(object, key, type, context);
}

void FindOptionalString(const MemberFinder& finder, const JsonValue& object, std::string_view key,
                        std::string& value, bool& present) {
  const JsonValue* found = FindOptional(finder, object, key, JsonType::String, kProcessorContext);
  present = found != nullptr;
  if (present) value = found->string;
}

// Copies an array of integers; false, with "values of array "{key}" should be of type integer
// in {context}", when an element is not an integer.
bool ReadIntegers(const JsonValue& array, std::string_view key, const MemberContext& context,
                  const MemberFinder& finder, std::vector<std::int64_t>& values) {
  for (const JsonValue& element : array.elements) {
    if (element.type != JsonType::Integer) {
      return finder.Fail("values of array \"" + std::string(key) +
                         "\" should be of type integer in " + context.Text());
    }
    values.push_back(element.AsInteger());
  }
  return true;
}

bool IsSupportedVersion(const std::string& version) {
  for (const char* supported : kSupportedVersions) {
    if (version == supported) return true;
  }
  return false;
}

// Splits "a, b, c" at commas, trimming blanks; false when an item is empty.
bool SplitList(const std::string& text, std::vector<std::string>& items) {
  std::istringstream stream(text);
  std::string item;
  while (std::getline(stream, item, ',')) {
    const std::size_t first = item.find_first_not_of(" \t");
    if (first == std::string::npos) return false;
    items.push_back(item.substr(first, item.find_last_not_of(" \t") - first + 1));
  }
  return !items.empty();
}

// Splits an optional list; none when absent or empty.
void SplitOptionalList(const std::string* text, std::vector<std::string>& items) {
  if (text != nullptr && !text->empty()) SplitList(*text, items);
}

// `text` as a number of type T, all of it; false otherwise.
template <typename T>
bool ParseWhole(const std::string& text, T& value) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool ParseCids(const std::string& text, std::vector<std::int64_t>& cids) {
  std::vector<std::string> items;
  if (!SplitList(text, items)) return false;
  for (const std::string& item : items) {
    std::uint32_t cid = 0;
    if (!ParseWhole(item, cid)) return false;
    cids.push_back(cid);
  }
  return true;
}

}  // namespace

ConfigurationReader::ConfigurationReader(std::string source, std::string sectionName)
    : source_(std::move(source)), sectionName_(std::move(sectionName)) {}

bool ConfigurationReader::ReadFile(const std::string& path, std::string& bytes) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return false;
  const std::streamoff size = file.tellg();
  if (size < 0 || !file.seekg(0)) return false;
  bytes.resize(static_cast<std::size_t>(size));
  return static_cast<bool>(file.read(bytes.data(), size));
}

bool ConfigurationReader::Load(bool checkCrc) {
  std::string bytes;
  if (!ReadFile(source_, bytes)) {
    settings_ = ContentProcessorSettings{};
    errorText_ = source_ + " not found";
    return false;
  }
  return LoadBytes(bytes, checkCrc);
}

bool ConfigurationReader::LoadBytes(const std::string& bytes, bool checkCrc) {
  settings_ = ContentProcessorSettings{};
  JsonDocument document;
  if (ParseJsonDocument(bytes, document)) return LoadJson(document, checkCrc);
  return LoadLineForm(bytes, checkCrc);
}

bool ConfigurationReader::LoadJson(const JsonDocument& document, bool checkCrc) {
  const MemberFinder finder(source_, errorText_);
  const JsonValue& root = document.root;
  if (root.type != JsonType::Object) {
    return finder.Fail(std::string(kRootContext) + " should be of type object");
  }
  if (!CheckChecksum(document, finder, checkCrc)) return false;
  const JsonValue* processor = finder.Find(root, kProcessorContext, JsonType::Object, kRootContext);
  return processor != nullptr && ReadContentProcessor(*processor, finder);
}

bool ConfigurationReader::CheckChecksum(const JsonDocument& document, const MemberFinder& finder,
                                        bool checkCrc) {
  const JsonValue& root = document.root;
  const JsonValue* stored = MemberFinder::FindAny(root, "Checksum");
  if (checkCrc) {
    stored = finder.Find(root, "Checksum", JsonType::String, kRootContext);
    if (stored == nullptr) return false;
  }
  if (stored == nullptr || stored->type != JsonType::String) return true;
  const std::string computed = DocumentChecksum(document);
  if (computed == stored->string) {
    settings_.checksumValid = true;
    settings_.checksumText = computed;
    return true;
  }
  return !checkCrc || finder.Fail("CRC error");
}

bool ConfigurationReader::ReadContentProcessor(const JsonValue& processor,
                                               const MemberFinder& finder) {
  std::string version;
  if (!finder.FindString(processor, "Version", kProcessorContext, version)) return false;
  if (!IsSupportedVersion(version)) return finder.Fail("JSON format version not support!");
  if (!finder.FindString(processor, "Facility", kProcessorContext, settings_.facility)) return false;
  FindOptionalString(finder, processor, "SharedDatabase", settings_.sharedDatabase,
                     settings_.hasSharedDatabase);
  FindOptionalString(finder, processor, "UniqueIdentifier", settings_.uniqueIdentifier,
                     settings_.hasUniqueIdentifier);
  FindOptionalString(finder, processor, "Name", settings_.name, settings_.hasName);
  if (!ReadDetector(processor, finder)) return false;
  const JsonValue* entries = finder.Find(processor, kEntriesName, JsonType::Array,
                                         kProcessorContext);
  if (entries == nullptr) return false;
  settings_.programs.reserve(entries->elements.size());
  for (std::size_t i = 0; i < entries->elements.size(); ++i) {
    ProgramEntry entry;
    if (!ReadProgramEntry(entries->elements[i], i, finder, entry)) return false;
    settings_.programs.push_back(std::move(entry));
  }
  return true;
}

bool ConfigurationReader::ReadDetector(const JsonValue& processor, const MemberFinder& finder) {
  const JsonValue* detector = finder.Find(processor, "Detector", JsonType::Object,
                                          kProcessorContext);
  if (detector == nullptr) return false;
  const JsonValue* vwm = finder.Find(*detector, "VWM", JsonType::Object, kDetectorContext);
  if (vwm == nullptr) return false;
  const JsonValue* displayAll = finder.Find(*vwm, "DisplayAllWatermarks", JsonType::Boolean,
                                            kDetectorVwmContext);
  if (displayAll == nullptr) return false;
  settings_.detector.displayAllWatermarks = displayAll->boolean;
  const JsonValue* displayEids = finder.Find(*vwm, "DisplayEIDS", JsonType::Array,
                                             kDetectorVwmContext);
  return displayEids != nullptr && ReadIntegers(*displayEids, "DisplayEIDS", kDetectorVwmContext,
                                                finder, settings_.detector.displayEids);
}

bool ConfigurationReader::ReadProgramEntry(const JsonValue& element, std::size_t index,
                                           const MemberFinder& finder, ProgramEntry& entry) {
  const std::string indexText = std::to_string(index);
  const MemberContext indexContext(kEntryIndexContext, indexText, "]");
  if (!finder.FindString(element, "Name", indexContext, entry.name)) return false;
  entry.vwm.name = entry.name;
  const MemberContext entryContext(kEntryContext, entry.name);

  const JsonValue* contentType =
      FindOptional(finder, element, "ContentType", JsonType::String, indexContext);
  if (contentType != nullptr) {
    if (!ParseContentType(contentType->string, entry.contentType)) {
      return finder.Fail("ContentType in " + entryContext.Text() + " is not a valid ContentType");
    }
    entry.metadataFields = BuiltInMetadataFields(entry.contentType);
  }

  const JsonValue* vwm = finder.Find(element, "VWM", JsonType::Object, entryContext);
  if (vwm == nullptr ||
      !ReadWatermark(*vwm, MemberContext(kEntryVwmContext, entry.name), finder, entry.vwm)) {
    return false;
  }

  const JsonValue* metadata =
      FindOptional(finder, element, "MetadataFields", JsonType::Array, entryContext);
  if (metadata != nullptr && !ReadMetadataFields(*metadata, entry, finder, entry.metadataFields)) {
    return false;
  }
  if (contentType != nullptr && metadata != nullptr) {
    return finder.Fail("both ContentType AND MetadataFields defined in " + entryContext.Text() +
                       ". Only ONE of those MUST be defined!");
  }
  if (contentType == nullptr && metadata == nullptr) {
    return finder.Fail("neither ContentType nor MetadataFields in " + entryContext.Text() +
                       ". One of those MUST be defined!");
  }
  return true;
}

bool ConfigurationReader::ReadWatermark(const JsonValue& vwm, const MemberContext& context,
                                        const MemberFinder& finder,
                                        WatermarkParameters& parameters) {
  const JsonValue* eids = finder.Find(vwm, "EIDS", JsonType::Array, context);
  if (eids == nullptr) return false;
  if (eids->elements.empty()) return finder.Fail("List of EIDS is empty in " + context.Text());
  if (!ReadIntegers(*eids, "EIDS", context, finder, parameters.eids)) return false;

  if (const JsonValue* real = finder.Find(vwm, "GlobalDepth", JsonType::Real, context)) {
    parameters.globalDepth = static_cast<float>(real->real);
  } else if (const JsonValue* integer =
                 finder.Find(vwm, "GlobalDepth", JsonType::Integer, context)) {
    parameters.globalDepth = static_cast<float>(integer->AsInteger());
  } else {
    return false;
  }

  const JsonValue* maxLocalDepth = finder.Find(vwm, "MaxLocalDepth", JsonType::Integer, context);
  if (maxLocalDepth == nullptr) return false;
  parameters.maxLocalDepth = static_cast<std::int32_t>(maxLocalDepth->AsInteger());
  parameters.parametersSet = true;
  return true;
}

bool ConfigurationReader::ReadMetadataFields(const JsonValue& fields, const ProgramEntry& entry,
                                             const MemberFinder& finder, MetadataFieldMap& map) {
  const std::string where = " of MetadataFields in " + std::string(kEntryContext) + entry.name;
  if (fields.elements.empty()) {
    return finder.Fail("List of Metadata fields is empty in " + std::string(kEntryContext) +
                       entry.name);
  }
  const MemberContext context(kEntryMetadataContext, entry.name);
  for (std::size_t i = 0; i < fields.elements.size(); ++i) {
    const JsonValue& field = fields.elements[i];
    const std::string element = " not found in element " + std::to_string(i) + where;
    std::string displayName;
    std::string fieldName;
    if (!finder.FindString(field, "DisplayName", context, displayName)) {
      return finder.Fail("DisplayName" + element);
    }
    if (!finder.FindString(field, "FieldName", context, fieldName)) {
      return finder.Fail("FieldName" + element);
    }
    map.emplace(displayName, fieldName);
  }
  return true;
}

bool ConfigurationReader::LoadLineForm(const std::string& bytes, bool checkCrc) {
  const MemberFinder finder(source_, errorText_);
  const LineFormFile file = DecodeLineForm(bytes, IsCcfName(source_));
  if (file.CrcMatches()) {
    settings_.checksumValid = true;
    settings_.checksumText = std::to_string(file.computedCrc);
  } else if (checkCrc) {
    return finder.Fail("CRC error");
  }

  LineFormSection section;
  if (!FindLineFormSection(file.text, sectionName_, section)) {
    return finder.Fail(sectionName_ + " section not found");
  }
  if (const std::string* fontPitch = section.Find("FontPitch")) {
    std::from_chars(fontPitch->data(), fontPitch->data() + fontPitch->size(), settings_.fontPitch);
  }
  std::vector<std::int64_t> cids;
  const std::string* cidText = section.Find("CIDs");
  if (cidText == nullptr || !ParseCids(*cidText, cids)) {
    return finder.Fail(sectionName_ + ".CIDs field not found");
  }
  std::vector<std::string> names;
  const std::string* namesText = section.Find("ProgramNames");
  if (namesText == nullptr || !SplitList(*namesText, names)) {
    return finder.Fail(sectionName_ + ".ProgramNames field not found");
  }

  const std::string context = source_ + " - " + sectionName_;
  PayloadSize payloadSize = PayloadSize::Rate48;
  if (!CheckPayloadSize(section.Find("PayloadSize"), context, payloadSize, errorText_)) {
    return false;
  }
  const std::string* quality = section.Find("EmbeddingQuality");
  if (quality != nullptr && !IsValidQualityName(*quality)) {
    return finder.Fail(sectionName_ + ".EmbeddingQuality not valid");
  }
  for (const std::string& name : names) {
    ProgramEntry entry;
    entry.name = name;
    entry.vwm.name = name;
    entry.vwm.eids = cids;
    entry.vwm.embeddingQuality = quality != nullptr ? *quality : "";
    entry.payloadSize = payloadSize;
    settings_.programs.push_back(std::move(entry));
  }
  const std::string* defaultProgram = section.Find("DefaultProgramName");
  if (defaultProgram != nullptr && !HasProgramNamed(settings_.programs, *defaultProgram)) {
    return finder.Fail("Default program name " + *defaultProgram + " not valid for " +
                       sectionName_);
  }
  if (defaultProgram != nullptr) settings_.defaultProgramName = *defaultProgram;
  return section.Find("Channels") == nullptr || ReadChannelSettings(file.text, section, finder);
}

// The channel settings: who the client is, how this embedder works, and its channels, each in a
// section of its own with the strength of its programs; this embedder's programs take the strength
// of the channel named ChannelName.
bool ConfigurationReader::ReadChannelSettings(const std::string& text,
                                              const LineFormSection& common,
                                              const MemberFinder& finder) {
  ChannelSettings& channels = settings_.channelSettings;
  channels.present = true;
  const std::pair<const char*, std::string*> required[] = {
      {"Client", &channels.client},
      {"ConnectionMode", &channels.connectionMode},
      {"OperationMode", &channels.operationMode},
      {"EmbeddingMode", &channels.embeddingMode},
      {"ChannelName", &channels.channelName},
  };
  for (const auto& [key, value] : required) {
    const std::string* found = common.Find(key);
    if (found == nullptr || found->empty()) return finder.Fail(sectionName_ + "." + key + " not found");
    *value = *found;
  }
  if (const std::string* delay = common.Find("EmbeddingStartDelay")) {
    if (!ParseWhole(*delay, channels.embeddingStartDelay) || channels.embeddingStartDelay < 0) {
      return finder.Fail(sectionName_ + ".EmbeddingStartDelay not valid");
    }
  }
  SplitOptionalList(common.Find("EmbedderMacAddresses"), channels.embedderMacAddresses);
  SplitOptionalList(common.Find("DetectorMacAddresses"), channels.detectorMacAddresses);
  std::vector<std::string> sections;
  if (!SplitList(*common.Find("Channels"), sections)) {
    return finder.Fail(sectionName_ + ": No channels found");
  }
  for (const std::string& name : sections) {
    LineFormChannel channel;
    if (!ReadChannel(text, name, finder, channel)) return false;
    channels.channels.push_back(std::move(channel));
  }
  const LineFormChannel* own = nullptr;
  for (const LineFormChannel& channel : channels.channels) {
    if (channel.name == channels.channelName) own = &channel;
  }
  if (own == nullptr) return finder.Fail(sectionName_ + ".ChannelName not found");
  for (ProgramEntry& entry : settings_.programs) {
    entry.vwm.globalDepth = own->globalDepth;
    entry.vwm.maxLocalDepth = own->maxLocalDepth;
    entry.vwm.parametersSet = true;
  }
  return true;
}

bool ConfigurationReader::ReadChannel(const std::string& text, const std::string& sectionName,
                                      const MemberFinder& finder, LineFormChannel& channel) {
  LineFormSection section;
  if (!FindLineFormSection(text, sectionName, section)) {
    return finder.Fail(sectionName + " section not found");
  }
  channel.section = sectionName;
  const std::string* name = section.Find("Name");
  if (name == nullptr || name->empty()) return finder.Fail(sectionName + ".Name not found");
  channel.name = *name;
  const std::string* globalDepth = section.Find("GlobalDepth");
  if (globalDepth == nullptr || !ParseWhole(*globalDepth, channel.globalDepth)) {
    return finder.Fail(sectionName + ".GlobalDepth not found");
  }
  const std::string* maxLocalDepth = section.Find("MaxLocalDepth");
  if (maxLocalDepth == nullptr || !ParseWhole(*maxLocalDepth, channel.maxLocalDepth)) {
    return finder.Fail(sectionName + ".MaxLocalDepth not found");
  }
  return true;
}

}  // namespace QuillmarBasebandSDK
