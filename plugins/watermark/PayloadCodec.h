// The watermark payload: 48-bit words, each checked on its own by a CRC.
//
// Every second carries two words on separate cells (see WatermarkLayout): the content identifier
// (CID), the same all through a session, and the time stamp of the second, in whole seconds since
// 2000-01-01 00:00:00 UTC. Consecutive time words differ in a few low value bits and the CRC, so
// from one second to the next little of the mark changes. Layout, most significant bit first:
//   bit 47       kind (0 CID, 1 time stamp)
//   bits 46..15  the 32-bit value (the time stamp as a two's-complement 32-bit count)
//   bits 14..0   CRC-15 (polynomial 0x4599) over kind and value
// Stateless; safe to use from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace Lumenseal {

enum class WordKind : int { Cid = 0, Time = 1 };

struct PayloadWord {
  WordKind kind = WordKind::Cid;
  std::uint32_t value = 0;

  bool operator==(const PayloadWord& other) const {
    return kind == other.kind && value == other.value;
  }
};

class PayloadCodec {
 public:
  static constexpr int kWordBits = 48;
  static constexpr int kCrcBits = 15;
  // Least reliable bits that soft decoding may flip: 16 trials, so a random pattern passes about
  // once in 2^11 instead of 2^15. CRC-15's Hamming distance of 6 at this length means one
  // confidently wrong bit plus four flips can never reach another valid word.
  static constexpr int kChaseBits = 4;
  // Largest share of soft bits' total weight that may disagree with a word they still resemble.
  static constexpr double kResemblanceShare = 0.03;

  // The word that carries content identifier `cid`.
  static PayloadWord CidWord(std::uint32_t cid);
  // The word that carries time stamp `timestamp` (seconds since 2000-01-01).
  static PayloadWord TimeWord(std::int64_t timestamp);

  // The 48 coded bits of `word`, in the low bits of the result.
  static std::uint64_t Encode(const PayloadWord& word);

  // The word in `bits` (low 48 bits), or nothing when its CRC does not match.
  static std::optional<PayloadWord> Decode(std::uint64_t bits);

  // The word in soft bits (`soft[i] > 0` reads bit 47 - i as 1; the magnitude is its
  // reliability): the hard decision first, then the same with the kChaseBits least reliable bits
  // flipped in every combination, fewest flips first. Nothing when none of them passes Decode.
  static std::optional<PayloadWord> DecodeSoft(const std::vector<double>& soft);

  // Whether soft bits read as `word` even if they fail to decode: the bits that disagree with it
  // weigh at most kResemblanceShare of all the bits' weight. Meant for checking a word that is
  // already expected; pure noise resembles a given word about once in 2^40.
  static bool Resembles(const std::vector<double>& soft, const PayloadWord& word);

  // The share of soft bits' total weight carried by the bits that disagree with `word` (1 when
  // the soft bits are not a word's or weigh nothing).
  static double DisagreeingShare(const std::vector<double>& soft, const PayloadWord& word);

  // The time stamp a word's value stands for (the value read as a signed 32-bit count).
  static std::int32_t TimestampOf(const PayloadWord& word);
};

}  // namespace Lumenseal
