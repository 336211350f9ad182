#include "config/ConfigurationModel.h"

#include <algorithm>
#include <array>

namespace QuillmarBasebandSDK {
namespace {

struct Spelling {
  const char* text;
  int value;
};

constexpr std::array<Spelling, 7> kContentTypeSpellings{{
    {"Entertainment", 0}, {"entertainment", 0}, {"News", 1}, {"news", 1},
    {"DirectResponse", 2}, {"directresponse", 2}, {"direct_response", 2},
}};

constexpr std::array<Spelling, 5> kPayloadSpellings{{
    {"48", 1}, {"48_1", 1}, {"48-1", 1}, {"48_6", 3}, {"48-6", 3},
}};

constexpr std::array<const char*, 4> kContentTypeNames{
    "entertainment", "news", "direct_response", "user_defined"};

constexpr std::array<const char*, 4> kPayloadRateTexts{
    "72 bits per second", "48 bits per second", "36 bits per second", "48 bits per 6 seconds"};
constexpr char kUnknownPayloadSize[] = "unknown payload size";

constexpr std::array<const char*, 6> kQualityNames{
    "", "VERY_LOW_QUALITY", "LOW_QUALITY", "MEDIUM_QUALITY", "HIGH_QUALITY", "VERY_HIGH_QUALITY"};

template <std::size_t N>
bool FindSpelling(const std::array<Spelling, N>& table, const std::string& spelling, int& value) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const Spelling& entry) { return spelling == entry.text; });
  if (found == table.end()) return false;
  value = found->value;
  return true;
}

}  // namespace

bool ParseContentType(const std::string& spelling, ContentType& type) {
  int value = 0;
  if (!FindSpelling(kContentTypeSpellings, spelling, value)) return false;
  type = static_cast<ContentType>(value);
  return true;
}

std::string ContentTypeName(ContentType type) {
  const auto index = static_cast<std::size_t>(type);
  return index < kContentTypeNames.size() ? kContentTypeNames[index] : "";
}

MetadataFieldMap BuiltInMetadataFields(ContentType type) {
  // Made once: every program of a large configuration asks for one of them.
  static const MetadataFieldMap entertainment = {
      {"itemid", "item_id"}, {"slug", "slug"}, {"note", "description"}};
  static const MetadataFieldMap news = {
      {"itemid", "story_id"}, {"slug", "slug"}, {"note", "notes"}};
  static const MetadataFieldMap directResponse = {{"itemid", "isci_or_ad_id"},
                                                  {"slug", "slug"},
                                                  {"note", "notes"},
                                                  {"campaign", "campaign"},
                                                  {"advertiser", "advertiser"},
                                                  {"product", "product"},
                                                  {"modulecode", "module_code"},
                                                  {"phonenumber", "phone_number"},
                                                  {"adlength", "ad_length"}};
  switch (type) {
    case ContentType::Entertainment:
      return entertainment;
    case ContentType::News:
      return news;
    case ContentType::DirectResponse:
      return directResponse;
    case ContentType::UserDefined: break;
  }
  return {};
}

bool ParsePayloadSize(const std::string& spelling, PayloadSize& size) {
  int value = 0;
  if (!FindSpelling(kPayloadSpellings, spelling, value)) return false;
  size = static_cast<PayloadSize>(value);
  return true;
}

std::string PayloadRateText(int size) {
  return size >= 0 && static_cast<std::size_t>(size) < kPayloadRateTexts.size()
             ? kPayloadRateTexts[static_cast<std::size_t>(size)]
             : kUnknownPayloadSize;
}

bool IsValidQualityName(const std::string& name) {
  return std::find(kQualityNames.begin(), kQualityNames.end(), name) != kQualityNames.end();
}

bool CheckPayloadSize(const std::string* spelling, const std::string& context, PayloadSize& size,
                      std::string& error) {
  if (spelling == nullptr) {
    error = context + ".PayloadSize not found";
    return false;
  }
  PayloadSize parsed = PayloadSize::Rate48;
  if (!ParsePayloadSize(*spelling, parsed)) {
    error = context + ".PayloadSize not valid";
    return false;
  }
  if (parsed != PayloadSize::Rate48) {
    error = context + ".PayloadSize, payload size " + PayloadRateText(static_cast<int>(parsed)) +
            " is no longer supported.";
    return false;
  }
  size = parsed;
  return true;
}

bool HasProgramNamed(const std::vector<ProgramEntry>& programs, const std::string& name) {
  return std::any_of(programs.begin(), programs.end(),
                     [&](const ProgramEntry& entry) { return entry.name == name; });
}

std::string JoinEids(const std::vector<std::int64_t>& eids) {
  std::string text;
  for (const std::int64_t eid : eids) {
    if (!text.empty()) text += ", ";
    text += std::to_string(eid);
  }
  return text;
}

}  // namespace QuillmarBasebandSDK
