// The channel's hand-off of a finished run to the encodation log: the slot is finalised, the
// caller's metadata is checked against the selected program's fields (warnings only), and the
// embedder writes the record with the configuration's checksum and the run's average energy.
#include <algorithm>
#include <boost/format.hpp>

#include "channel/QuillmarBasebandSDKChannel.h"
#include "config/QuillmarBasebandConfigurationState.h"
#include "events/LumensealBasebandEmbedderPlugin.h"
#include "framework/Logger.h"
#include "framework/NoThrow.h"

namespace Framework {
namespace {

constexpr char kKeysUnknown[] =
    "QuillmarBasebandSDKChannel::WriteEncodationLog cannot determine selected metadata keys. Aborted!";

// The keys the older six-text form writes its last three texts under.
const char* const kDefaultKeys[] = {"itemid", "slug", "note"};
constexpr std::size_t kDefaultKeyCount = 3;

}  // namespace

void QuillmarBasebandSDKChannel::WriteEncodationLog(
    const std::string& first, const std::string& second, const std::string& third,
    const std::map<std::string, std::string>& metadata) {
  NoThrow("QuillmarBasebandSDKChannel::WriteEncodationLog", [&] {
    Logger::Info("Calling QuillmarBasebandSDKChannel::WriteEncodationLog");
    MetadataKeys keys;
    std::string facility;
    if (!GetMetadataKeysAndFacility(keys, facility)) {
      Logger::Error(kKeysUnknown);
      return;
    }
    std::map<std::string, std::string> validated = metadata;
    ValidateMetadata(validated, keys);
    LumensealBasebandEmbedderPlugin* embedder = Embedder();
    if (embedder == nullptr) {
      Logger::Error("QuillmarBasebandSDKChannel::WriteEncodationLog cannot find embedder. Aborted!");
      return;
    }
    FinalizeEmbedding();
    std::string checksum;
    configurationState->GetConfigurationChecksum(checksum);
    const double averageEnergy = energyCount > 0 ? energySum / energyCount : 0.0;
    embedder->WriteEncodationLog(first, second, facility, third, validated, checksum,
                                 averageEnergy);
  });
}

void QuillmarBasebandSDKChannel::WriteEncodationLog(const std::string& s1, const std::string& s2,
                                                    const std::string& s3, const std::string& s4,
                                                    const std::string& s5, const std::string& s6) {
  NoThrow("QuillmarBasebandSDKChannel::WriteEncodationLog", [&] {
    Logger::Warning(
        "User called OBSOLETE QuillmarBasebandSDKChannel::WriteEncodationLog. Mapping to the new "
        "format!");
    MetadataKeys keys;
    std::string facility;
    if (!GetMetadataKeysAndFacility(keys, facility)) {
      Logger::Error(kKeysUnknown);
      return;
    }
    if (keys.size() < kDefaultKeyCount) {
      Logger::Warning(
          "QuillmarBasebandSDKChannel::WriteEncodationLog: active program has too little metadata "
          "fields defined. Will append default keys!");
    } else if (!std::equal(kDefaultKeys, kDefaultKeys + kDefaultKeyCount, keys.begin(),
                           [](const char* name, const auto& key) { return key.first == name; })) {
      Logger::Error(
          "First three metadata fields in active program: \"%1%\", \"%2%\", \"%3%\" differ from "
          "default names: \"itemid\", \"slug\", \"note\". Will use default keys!");
    }
    WriteEncodationLog(s1, s2, s3, {{kDefaultKeys[0], s4}, {kDefaultKeys[1], s5}, {kDefaultKeys[2], s6}});
  });
}

bool QuillmarBasebandSDKChannel::GetMetadataKeysAndFacility(MetadataKeys& keys,
                                                            std::string& facility) {
  const std::string programName = GetProgramName();
  const QuillmarBasebandSDK::ProgramEntry* selected = nullptr;
  if (configurationState != nullptr) {
    // The last entry of that name, as GetEmbeddingQuality takes it: metadata, facility and
    // strength of one run come from one entry.
    for (const auto& program : configurationState->GetPrograms()) {
      if (program.name == programName) selected = &program;
    }
  }
  if (selected == nullptr) {
    Logger::Error(boost::format("Selected program %1% not found in the config file") % programName);
    return false;
  }
  keys.assign(selected->metadataFields.begin(), selected->metadataFields.end());
  facility = configurationState->GetSettings().facility;
  return true;
}

void QuillmarBasebandSDKChannel::ValidateMetadata(std::map<std::string, std::string>& metadata,
                                                  const MetadataKeys& keys) {
  for (const auto& entry : metadata) {
    const std::string& key = entry.first;
    const auto isDisplayName = [&](const auto& pair) { return pair.first == key; };
    if (std::any_of(keys.begin(), keys.end(), isDisplayName)) continue;
    Logger::Warning(boost::format(
                        "QuillmarBasebandSDKChannel::WriteEncodationLog: %1% is not allowed metadata DisplayName") %
                    key);
    const auto isFieldName = [&](const auto& pair) { return pair.second == key; };
    if (std::any_of(keys.begin(), keys.end(), isFieldName)) {
      Logger::Warning("...but it matches a valid FieldName. Can proceed.");
    } else {
      Logger::Error(
          "...and no matching FieldName. Will proceed with user-defined name, but encodation import "
          "may fail!");
    }
  }
}

}  // namespace Framework
