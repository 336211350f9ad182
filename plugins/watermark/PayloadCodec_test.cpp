#include "PayloadCodec.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace Lumenseal {
namespace {

TEST(PayloadCodec, TimeWordsCarryEveryTimestampAndCidWordsTheCid) {
  for (const std::int64_t timestamp : {std::int64_t{0}, std::int64_t{1}, std::int64_t{848'000'000},
                                       std::int64_t{-1}, std::int64_t{2'147'483'647}}) {
    SCOPED_TRACE(timestamp);
    const PayloadWord word = PayloadCodec::TimeWord(timestamp);
    EXPECT_EQ(WordKind::Time, word.kind);
    EXPECT_EQ(timestamp, PayloadCodec::TimestampOf(word));
    const auto decoded = PayloadCodec::Decode(PayloadCodec::Encode(word));
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(word, *decoded);
  }
  EXPECT_EQ((PayloadWord{WordKind::Cid, 101}), PayloadCodec::CidWord(101));
}

TEST(PayloadCodec, FramingPutsKindValueAndCrcInPlace) {
  const std::uint64_t cid = PayloadCodec::Encode({WordKind::Cid, 0x12345678u});
  EXPECT_EQ(0u, cid >> 47);
  EXPECT_EQ(0x12345678u, (cid >> 15) & 0xFFFF'FFFFu);
  const std::uint64_t time = PayloadCodec::Encode({WordKind::Time, 0x12345679u});
  EXPECT_EQ(1u, time >> 47);
  EXPECT_EQ(0x12345679u, (time >> 15) & 0xFFFF'FFFFu);
  EXPECT_EQ(0u, PayloadCodec::Encode({WordKind::Time, 0xFFFF'FFFFu}) >> 48);
  EXPECT_NE(0u, PayloadCodec::Encode({WordKind::Cid, 0}) & 0x7FFFu)
      << "an all-zero word must not be a valid one";
}

TEST(PayloadCodec, EveryWordKindRoundTrips) {
  static const PayloadWord words[] = {
      {WordKind::Cid, 0},           {WordKind::Cid, 101},
      {WordKind::Cid, 0xFFFF'FFFFu}, {WordKind::Time, 1},
      {WordKind::Time, 848'000'001}, {WordKind::Time, 0xFFFF'FFFFu},
  };
  for (const auto& word : words) {
    SCOPED_TRACE(word.value);
    const auto decoded = PayloadCodec::Decode(PayloadCodec::Encode(word));
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(word, *decoded);
  }
}

TEST(PayloadCodec, CrcRejectsDamagedWords) {
  const std::uint64_t good = PayloadCodec::Encode({WordKind::Time, 848'000'001});
  for (int bit = 0; bit < PayloadCodec::kWordBits; ++bit) {
    EXPECT_FALSE(PayloadCodec::Decode(good ^ (std::uint64_t{1} << bit))) << "single flip " << bit;
    for (int other = bit + 1; other < PayloadCodec::kWordBits; ++other) {
      EXPECT_FALSE(PayloadCodec::Decode(good ^ (std::uint64_t{1} << bit) ^ (std::uint64_t{1} << other)))
          << "double flip " << bit << ", " << other;
    }
  }
  EXPECT_FALSE(PayloadCodec::Decode(0));
  EXPECT_FALSE(PayloadCodec::Decode(good | std::uint64_t{1} << 50)) << "bits above the word";
}

// Soft bits of `bits`: magnitude 1, except `weak` bits (by index into the soft vector) at 0.1.
std::vector<double> Soft(std::uint64_t bits, std::initializer_list<int> weak = {}) {
  std::vector<double> soft(PayloadCodec::kWordBits);
  for (int i = 0; i < PayloadCodec::kWordBits; ++i) {
    soft[static_cast<std::size_t>(i)] = (bits >> (PayloadCodec::kWordBits - 1 - i)) & 1 ? 1.0 : -1.0;
  }
  for (int i : weak) soft[static_cast<std::size_t>(i)] *= 0.1;
  return soft;
}

TEST(PayloadCodec, SoftDecodingRepairsOnlyItsLeastReliableBits) {
  const PayloadWord word{WordKind::Time, 848'000'001};
  const std::uint64_t good = PayloadCodec::Encode(word);
  auto flip = [&](std::initializer_list<int> indices) {
    std::uint64_t bits = good;
    for (int i : indices) bits ^= std::uint64_t{1} << (PayloadCodec::kWordBits - 1 - i);
    return bits;
  };
  static const struct {
    std::initializer_list<int> flipped;
    std::initializer_list<int> weak;
    bool decodes;
  } cases[] = {
      {{}, {}, true},
      {{5}, {5}, true},
      {{0, 47}, {0, 47, 20}, true},
      {{3, 30, 44, 12}, {3, 30, 44, 12}, true},
      {{7}, {}, false},  // a confident wrong bit is not guessed at
      {{3, 30, 44, 12, 9}, {3, 30, 44, 12, 9}, false},  // more wrong bits than are tried
  };
  for (const auto& c : cases) {
    const auto decoded = PayloadCodec::DecodeSoft(Soft(flip(c.flipped), c.weak));
    EXPECT_EQ(c.decodes, decoded.has_value()) << c.flipped.size() << " flipped";
    if (decoded) {
      EXPECT_EQ(word, *decoded);
    }
  }
  EXPECT_FALSE(PayloadCodec::DecodeSoft(std::vector<double>(3, 1.0))) << "wrong length";
}

TEST(PayloadCodec, ResemblanceToleratesOnlyLightDisagreement) {
  const PayloadWord word{WordKind::Time, 848'000'001};
  const std::uint64_t good = PayloadCodec::Encode(word);
  const PayloadWord next{WordKind::Time, 848'000'002};
  auto flip = [](std::uint64_t bits, std::initializer_list<int> indices) {
    for (int i : indices) bits ^= std::uint64_t{1} << (PayloadCodec::kWordBits - 1 - i);
    return bits;
  };
  static const struct {
    const char* what;
    std::vector<double> soft;
    bool resembles;
  } cases[] = {
      {"the word itself", Soft(good), true},
      // 5 weak wrong bits weigh 0.5 of 43.5: more than soft decoding repairs, still the word
      {"five faint wrong bits", Soft(flip(good, {1, 9, 20, 33, 40}), {1, 9, 20, 33, 40}), true},
      {"one confident wrong bit: 1 of 48", Soft(flip(good, {9})), true},
      {"two confident wrong bits", Soft(flip(good, {9, 30})), false},
      {"fifteen faint wrong bits",
       Soft(flip(good, {0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42}),
            {0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42}),
       false},
      {"the next time word", Soft(PayloadCodec::Encode(next)), false},
      {"nothing at all", std::vector<double>(PayloadCodec::kWordBits, 0.0), false},
      {"wrong length", std::vector<double>(3, 1.0), false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.resembles, PayloadCodec::Resembles(c.soft, word)) << c.what;
  }
}

TEST(PayloadCodec, RandomWordsRarelyPassTheCrc) {
  std::uint64_t state = 12345;
  int passed = 0;
  constexpr int kTries = 200'000;
  for (int i = 0; i < kTries; ++i) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    if (PayloadCodec::Decode(state >> 16)) ++passed;
  }
  // 2^-15 per word: about 6.1 expected.
  EXPECT_LT(passed, 20);
}

}  // namespace
}  // namespace Lumenseal
