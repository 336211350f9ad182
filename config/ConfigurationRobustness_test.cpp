// Several hundred deterministic mutations of every shipped example: each must load or fail
// with a message that names the file, and never crash (the tests run under the sanitizers).
#include <gtest/gtest.h>

#include <random>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationReader.h"
#include "config/JsonDocument.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::Signed;

constexpr int kTruncations = 60;
constexpr int kByteFlips = 200;
// Values put in place of a JSON member's value.
constexpr char kMemberValues[] = R"([null, -7, 0.5, "48-6", true, [], {}])";

// Every member of `value`, depth first in document order.
void CollectMembers(JsonValue& value, std::vector<JsonMember*>& members) {
  for (JsonMember& member : value.members) {
    members.push_back(&member);
    CollectMembers(member.value, members);
  }
  for (JsonValue& element : value.elements) CollectMembers(element, members);
}

std::vector<std::string> Mutations(const std::string& bytes, const std::string& name) {
  std::vector<std::string> mutations;
  for (std::size_t i = 0; i < kTruncations; ++i) {
    mutations.push_back(bytes.substr(0, bytes.size() * i / kTruncations));
  }
  std::minstd_rand random(0x5eed);  // the same flips on every run
  for (int i = 0; i < kByteFlips; ++i) {
    std::string flipped = bytes;
    const std::size_t at = random() % flipped.size();
    flipped[at] ^= static_cast<char>(1 + random() % 255);
    mutations.push_back(flipped);
  }
  JsonDocument document;
  JsonDocument values;
  if (ParseJsonDocument(bytes, document) && ParseJsonDocument(kMemberValues, values)) {
    std::vector<JsonMember*> members;
    CollectMembers(document.root, members);
    // Each member renamed (so missing), then with each value, then restored. Last first: a change
    // replaces only the members inside the changed one.
    for (auto member = members.rbegin(); member != members.rend(); ++member) {
      const JsonMember original = **member;
      (*member)->name += "_";
      mutations.push_back(Signed(Testing::WriteJson(document.root), name));
      for (const JsonValue& value : values.root.elements) {
        **member = {original.name, value};
        mutations.push_back(Signed(Testing::WriteJson(document.root), name));
      }
      **member = original;
    }
  }
  return mutations;
}

TEST(ConfigurationRobustness, MutatedExamplesLoadOrSayWhy) {
  const Testing::TemporaryFolder folder;
  int examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(Testing::ExamplesFolder())) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    ++examples;
    ConfigurationReader example(entry.path().string());
    EXPECT_TRUE(example.Load(true)) << "every example is signed: " << example.ErrorText();
    std::string bytes;
    ASSERT_TRUE(ConfigurationReader::ReadFile(entry.path().string(), bytes));
    int outcomes[2] = {};  // failed, loaded
    const auto mutations = Mutations(bytes, name);
    EXPECT_GE(mutations.size(), 260u);
    for (const std::string& mutation : mutations) {
      const std::string path = folder.Write(name, mutation);
      for (const bool checkCrc : {true, false}) {
        ConfigurationReader reader(path);
        const bool ok = reader.Load(checkCrc);
        ++outcomes[ok];
        const std::string& error = reader.ErrorText();
        EXPECT_TRUE(ok || (error.rfind(path + " - ", 0) == 0 && error.size() > path.size() + 3))
            << error;
      }
    }
    EXPECT_TRUE(outcomes[0] > 0 && outcomes[1] > 0);
  }
  EXPECT_GE(examples, 10);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
