// The vocabularies: content types, built-in metadata tables, payload sizes.
#include "config/ConfigurationModel.h"

#include <gtest/gtest.h>

namespace QuillmarBasebandSDK {
namespace {

TEST(Vocabularies, ContentTypeSpellings) {
  static const struct {
    const char* spelling;
    bool accepted;
    ContentType type;
  } cases[] = {
      {"Entertainment", true, ContentType::Entertainment},
      {"entertainment", true, ContentType::Entertainment},
      {"News", true, ContentType::News},
      {"news", true, ContentType::News},
      {"DirectResponse", true, ContentType::DirectResponse},
      {"directresponse", true, ContentType::DirectResponse},
      {"direct_response", true, ContentType::DirectResponse},
      {"NEWS", false, {}},
      {"Direct_Response", false, {}},
      {"user_defined", false, {}},
      {"news ", false, {}},
      {"", false, {}},
  };
  for (const auto& c : cases) {
    ContentType type = ContentType::UserDefined;
    EXPECT_EQ(ParseContentType(c.spelling, type), c.accepted) << c.spelling;
    if (c.accepted) {
      EXPECT_EQ(type, c.type) << c.spelling;
    }
  }
}

TEST(Vocabularies, ContentTypeNames) {
  EXPECT_EQ(ContentTypeName(ContentType::Entertainment), "entertainment");
  EXPECT_EQ(ContentTypeName(ContentType::News), "news");
  EXPECT_EQ(ContentTypeName(ContentType::DirectResponse), "direct_response");
  EXPECT_EQ(ContentTypeName(ContentType::UserDefined), "user_defined");
  EXPECT_EQ(ContentTypeName(static_cast<ContentType>(4)), "");
  EXPECT_EQ(ContentTypeName(static_cast<ContentType>(-1)), "");
}

TEST(Vocabularies, BuiltInMetadataFields) {
  EXPECT_EQ(BuiltInMetadataFields(ContentType::Entertainment),
            (MetadataFieldMap{{"itemid", "item_id"}, {"slug", "slug"}, {"note", "description"}}));
  EXPECT_EQ(BuiltInMetadataFields(ContentType::News),
            (MetadataFieldMap{{"itemid", "story_id"}, {"slug", "slug"}, {"note", "notes"}}));
  EXPECT_EQ(BuiltInMetadataFields(ContentType::DirectResponse),
            (MetadataFieldMap{{"itemid", "isci_or_ad_id"},
                              {"slug", "slug"},
                              {"note", "notes"},
                              {"campaign", "campaign"},
                              {"advertiser", "advertiser"},
                              {"product", "product"},
                              {"modulecode", "module_code"},
                              {"phonenumber", "phone_number"},
                              {"adlength", "ad_length"}}));
  EXPECT_TRUE(BuiltInMetadataFields(ContentType::UserDefined).empty());
}

TEST(Vocabularies, PayloadSizes) {
  static const struct {
    const char* spelling;
    bool accepted;
    PayloadSize size;
  } cases[] = {
      {"48", true, PayloadSize::Rate48},       {"48_1", true, PayloadSize::Rate48},
      {"48-1", true, PayloadSize::Rate48},     {"48_6", true, PayloadSize::Rate48Per6},
      {"48-6", true, PayloadSize::Rate48Per6}, {"72", false, {}},
      {"36", false, {}},                       {"48 ", false, {}},
  };
  for (const auto& c : cases) {
    PayloadSize size = PayloadSize::Rate72;
    EXPECT_EQ(ParsePayloadSize(c.spelling, size), c.accepted) << c.spelling;
    if (c.accepted) {
      EXPECT_EQ(size, c.size) << c.spelling;
    }
  }
  static const struct {
    int size;
    const char* text;
  } rates[] = {{0, "72 bits per second"},    {1, "48 bits per second"},
               {2, "36 bits per second"},    {3, "48 bits per 6 seconds"},
               {4, "unknown payload size"},  {-1, "unknown payload size"}};
  for (const auto& rate : rates) EXPECT_EQ(PayloadRateText(rate.size), rate.text) << rate.size;
}

TEST(Vocabularies, PayloadSizeCheck) {
  static const struct {
    const char* spelling;  // null: the entry has none
    const char* error;     // empty: accepted
  } cases[] = {
      {nullptr, "ctx.PayloadSize not found"},
      {"49", "ctx.PayloadSize not valid"},
      {"48-6", "ctx.PayloadSize, payload size 48 bits per 6 seconds is no longer supported."},
      {"48_6", "ctx.PayloadSize, payload size 48 bits per 6 seconds is no longer supported."},
      {"48-1", ""},
  };
  for (const auto& c : cases) {
    const std::string spelling = c.spelling != nullptr ? c.spelling : "";
    PayloadSize size = PayloadSize::Rate72;
    std::string error;
    const bool accepted = CheckPayloadSize(c.spelling != nullptr ? &spelling : nullptr, "ctx",
                                           size, error);
    EXPECT_EQ(accepted, *c.error == '\0') << spelling;
    EXPECT_EQ(error, c.error) << spelling;
    if (accepted) {
      EXPECT_EQ(size, PayloadSize::Rate48);
    }
  }
}

}  // namespace
}  // namespace QuillmarBasebandSDK
