// Content types and their metadata tables (payload sizes: LineForm_test, the form that has them).
#include "config/ConfigurationModel.h"

#include <gtest/gtest.h>

namespace QuillmarBasebandSDK {
namespace {

TEST(Vocabularies, ContentTypeSpellingsAndNames) {
  static const struct {
    const char* spelling;
    const char* name;  // of the type it stands for; null: refused
  } cases[] = {
      {"Entertainment", "entertainment"}, {"entertainment", "entertainment"}, {"News", "news"},
      {"news", "news"}, {"DirectResponse", "direct_response"}, {"NEWS", nullptr}, {"", nullptr},
      {"directresponse", "direct_response"}, {"direct_response", "direct_response"},
      {"Direct_Response", nullptr}, {"user_defined", nullptr}, {"news ", nullptr},
  };
  for (const auto& c : cases) {
    ContentType type = ContentType::UserDefined;
    EXPECT_EQ(ParseContentType(c.spelling, type), c.name != nullptr) << c.spelling;
    EXPECT_EQ(ContentTypeName(type), c.name != nullptr ? c.name : "user_defined") << c.spelling;
  }
}

TEST(Vocabularies, BuiltInMetadataFields) {
  EXPECT_EQ(BuiltInMetadataFields(ContentType::Entertainment),
            (MetadataFieldMap{{"itemid", "item_id"}, {"slug", "slug"}, {"note", "description"}}));
  EXPECT_EQ(BuiltInMetadataFields(ContentType::News),
            (MetadataFieldMap{{"itemid", "story_id"}, {"slug", "slug"}, {"note", "notes"}}));
  EXPECT_EQ(BuiltInMetadataFields(ContentType::DirectResponse),
            (MetadataFieldMap{{"itemid", "isci_or_ad_id"}, {"slug", "slug"}, {"note", "notes"},
                              {"campaign", "campaign"}, {"advertiser", "advertiser"},
                              {"product", "product"}, {"modulecode", "module_code"},
                              {"phonenumber", "phone_number"}, {"adlength", "ad_length"}}));
  EXPECT_TRUE(BuiltInMetadataFields(ContentType::UserDefined).empty());
}

}  // namespace
}  // namespace QuillmarBasebandSDK
