#include "PayloadCodec.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

namespace Lumenseal {
namespace {

TEST(PayloadCodec, WordsRoundTripWithKindValueAndACrcThatCatchesEveryOneOrTwoBitError) {
  static const PayloadWord words[] = {
      {WordKind::Cid, 0}, {WordKind::Cid, 0xFFFF'FFFFu}, {WordKind::Time, 0x12345679u}};
  for (const PayloadWord& word : words) {
    SCOPED_TRACE(word.value);
    const std::uint64_t bits = PayloadCodec::Encode(word);
    EXPECT_EQ(word.kind == WordKind::Time ? 1u : 0u, bits >> 47);
    EXPECT_EQ(word.value, (bits >> 15) & 0xFFFF'FFFFu);
    EXPECT_EQ(word, PayloadCodec::Decode(bits));
  }
  EXPECT_NE(0u, PayloadCodec::Encode({WordKind::Cid, 0}) & 0x7FFFu) << "the zero word is invalid";
  for (const std::int64_t timestamp : {0l, -1l, 848'000'000l, 2'147'483'647l}) {
    EXPECT_EQ(timestamp, PayloadCodec::TimestampOf(PayloadCodec::TimeWord(timestamp)));
  }
  // The CRC rejects every error of one or two bits, and bits above the word.
  const std::uint64_t good = PayloadCodec::Encode({WordKind::Time, 848'000'001});
  for (int bit = 0; bit < PayloadCodec::kWordBits; ++bit) {
    const std::uint64_t once = good ^ std::uint64_t{1} << bit;
    EXPECT_FALSE(PayloadCodec::Decode(once)) << bit;
    for (int other = bit + 1; other < PayloadCodec::kWordBits; ++other) {
      EXPECT_FALSE(PayloadCodec::Decode(once ^ std::uint64_t{1} << other)) << bit << ", " << other;
    }
  }
  EXPECT_FALSE(PayloadCodec::Decode(0));
  EXPECT_FALSE(PayloadCodec::Decode(good | std::uint64_t{1} << 50)) << "bits above the word";
}

// Soft bits of `good` with the bits at `flipped` (indices into the soft vector) wrong, and at a
// tenth of the others' magnitude when `faint`.
std::vector<double> Soft(std::uint64_t good, std::initializer_list<int> flipped, bool faint) {
  std::vector<double> soft(PayloadCodec::kWordBits);
  for (int i = 0; i < PayloadCodec::kWordBits; ++i) {
    soft[i] = (good >> (PayloadCodec::kWordBits - 1 - i)) & 1 ? 1.0 : -1.0;
  }
  for (int i : flipped) soft[i] *= faint ? -0.1 : -1.0;
  return soft;
}

// Soft decoding tries flipping the least reliable bits; resemblance accepts light disagreement.
TEST(PayloadCodec, SoftReadingRepairsOnlyItsLeastReliableBitsAndResemblesOnlyLightly) {
  const PayloadWord word{WordKind::Time, 848'000'001};
  const std::uint64_t good = PayloadCodec::Encode(word);
  static const struct {
    std::initializer_list<int> flipped;
    bool faint, decodes, resembles;
  } cases[] = {
      {{3, 30, 44, 12}, true, true, true},
      {{1, 9, 20, 33, 40}, true, false, true},  // more faint bits than are tried: 0.5 of 43.5
      {{7}, false, false, true},                // a confident wrong bit is not guessed at
      {{9, 30}, false, false, false},
      {{0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42}, true, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flipped.size());
    const std::vector<double> soft = Soft(good, c.flipped, c.faint);
    EXPECT_EQ(c.decodes ? std::optional<PayloadWord>(word) : std::nullopt,
              PayloadCodec::DecodeSoft(soft));
    EXPECT_EQ(c.resembles, PayloadCodec::Resembles(soft, word));
  }
}

}  // namespace
}  // namespace Lumenseal
