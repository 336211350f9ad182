// Several hundred deterministic mutations of every shipped example: each must load or fail
// with a message that names the file, and never crash (the tests run under the sanitizers).
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "config/ConfigTestSupport.h"
#include "config/ConfigurationReader.h"
#include "config/ConfigurationSigner.h"
#include "config/JsonDocument.h"
#include "config/LineForm.h"

namespace QuillmarBasebandSDK {
namespace {

using Testing::ExamplesFolder;
using Testing::TemporaryFolder;

constexpr int kTruncations = 60;
constexpr int kByteFlips = 200;
// Values put in place of a line-oriented entry's value.
constexpr const char* kLineValues[] = {"", "x", "48-6", "1,,2", "99999999999", "COMMON"};

// A fixed linear congruential sequence, so every run mutates the same way.
class Sequence {
 public:
  std::uint32_t Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::uint32_t>(state_ >> 33);
  }

 private:
  std::uint64_t state_ = 0x5eed;
};

enum class MemberChange { Delete, Duplicate, Null, Integer, Real, String, Boolean, Array, Object };
constexpr MemberChange kMemberChanges[] = {
    MemberChange::Delete, MemberChange::Duplicate, MemberChange::Null,
    MemberChange::Integer, MemberChange::Real,     MemberChange::String,
    MemberChange::Boolean, MemberChange::Array,    MemberChange::Object};

JsonValue Replacement(MemberChange change) {
  JsonValue value;
  switch (change) {
    case MemberChange::Integer: value.type = JsonType::Integer; value.integer = -7; break;
    case MemberChange::Real: value.type = JsonType::Real; value.real = 0.5; break;
    case MemberChange::String: value.type = JsonType::String; value.string = "48-6"; break;
    case MemberChange::Boolean: value.type = JsonType::Boolean; break;
    case MemberChange::Array: value.type = JsonType::Array; break;
    case MemberChange::Object: value.type = JsonType::Object; break;
    default: break;
  }
  return value;
}

// Applies `change` to the member that comes `index`-th in document order (depth first);
// returns false when the tree has fewer members.
bool ChangeMember(JsonValue& value, std::size_t& index, MemberChange change) {
  for (std::size_t i = 0; i < value.members.size(); ++i) {
    if (index-- == 0) {
      auto& members = value.members;
      if (change == MemberChange::Delete) {
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(i));
      } else if (change == MemberChange::Duplicate) {
        members.insert(members.begin() + static_cast<std::ptrdiff_t>(i) + 1, members[i]);
      } else {
        members[i].value = Replacement(change);
      }
      return true;
    }
    if (ChangeMember(value.members[i].value, index, change)) return true;
  }
  for (JsonValue& element : value.elements) {
    if (ChangeMember(element, index, change)) return true;
  }
  return false;
}

std::string Signed(const std::string& bytes, const std::string& name) {
  std::string signedBytes;
  std::string error;
  return SignConfiguration(bytes, name, name, true, signedBytes, error) ? signedBytes : bytes;
}

std::vector<std::string> Mutations(const std::string& bytes, const std::string& name) {
  std::vector<std::string> mutations;
  for (int i = 0; i < kTruncations; ++i) {
    mutations.push_back(bytes.substr(0, bytes.size() * static_cast<std::size_t>(i) / kTruncations));
  }
  Sequence sequence;
  for (int i = 0; i < kByteFlips; ++i) {
    std::string flipped = bytes;
    const std::uint32_t random = sequence.Next();
    flipped[random % flipped.size()] ^= static_cast<char>(1 + (random >> 16) % 255);
    mutations.push_back(flipped);
  }
  JsonDocument document;
  if (ParseJsonDocument(bytes, document)) {
    for (const MemberChange change : kMemberChanges) {
      for (std::size_t member = 0;; ++member) {
        JsonValue changed = document.root;
        std::size_t index = member;
        if (!ChangeMember(changed, index, change)) break;
        mutations.push_back(Signed(Testing::WriteJson(changed), name));
      }
    }
  } else {
    const std::string text = DecodeLineForm(bytes, IsCcfName(name)).text;
    for (std::size_t line = 0, at = 0; at < text.size(); ++line) {
      const std::size_t end = text.find('\n', at) + 1;
      std::string deleted = text;
      deleted.erase(at, end - at);
      std::string duplicated = text;
      duplicated.insert(at, text.substr(at, end - at));
      mutations.push_back(Signed(deleted, name));
      mutations.push_back(Signed(duplicated, name));
      const std::size_t equals = text.find('=', at);
      for (const char* value : kLineValues) {
        if (equals >= end) break;
        std::string changed = text;
        changed.replace(equals + 1, end - 1 - (equals + 1), value);
        mutations.push_back(Signed(changed, name));
      }
      at = end;
    }
  }
  return mutations;
}

TEST(ConfigurationRobustness, MutatedExamplesLoadOrSayWhy) {
  const TemporaryFolder folder;
  int examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(ExamplesFolder())) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().filename().string();
    std::string bytes;
    ASSERT_TRUE(ConfigurationReader::ReadFile(entry.path().string(), bytes));
    ++examples;
    int loaded = 0;
    int failed = 0;
    const auto mutations = Mutations(bytes, name);
    EXPECT_GE(mutations.size(), 300u) << name;
    for (const std::string& mutation : mutations) {
      const std::string path = folder.Write(name, mutation);
      for (const bool checkCrc : {true, false}) {
        ConfigurationReader reader(path);
        if (reader.Load(checkCrc)) {
          ++loaded;
        } else {
          ++failed;
          EXPECT_EQ(reader.ErrorText().rfind(path, 0), 0u) << name << ": " << reader.ErrorText();
          EXPECT_GT(reader.ErrorText().size(), path.size()) << name;
        }
      }
    }
    EXPECT_GT(loaded, 0) << name;
    EXPECT_GT(failed, 0) << name;
  }
  EXPECT_GE(examples, 7);
}

}  // namespace
}  // namespace QuillmarBasebandSDK
