#include "PayloadCodec.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <numeric>

#include <boost/crc.hpp>

namespace Lumenseal {
namespace {

// CRC-15 with the CAN polynomial; the non-zero initial value keeps an all-zero word invalid.
using Crc15 = boost::crc_optimal<PayloadCodec::kCrcBits, 0x4599, 0x7FFF, 0, false, false>;
constexpr int kValueBits = 32;
constexpr std::uint64_t kCrcMask = (std::uint64_t{1} << PayloadCodec::kCrcBits) - 1;
constexpr std::uint64_t kValueMask = (std::uint64_t{1} << kValueBits) - 1;

std::uint64_t Crc(WordKind kind, std::uint32_t value) {
  const unsigned char bytes[] = {
      static_cast<unsigned char>(kind),        static_cast<unsigned char>(value >> 24),
      static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 8),
      static_cast<unsigned char>(value)};
  Crc15 crc;
  crc.process_bytes(bytes, sizeof bytes);
  return crc.checksum();
}

}  // namespace

PayloadWord PayloadCodec::CidWord(std::uint32_t cid) { return {WordKind::Cid, cid}; }

PayloadWord PayloadCodec::TimeWord(std::int64_t timestamp) {
  return {WordKind::Time, static_cast<std::uint32_t>(timestamp)};
}

std::uint64_t PayloadCodec::Encode(const PayloadWord& word) {
  const std::uint64_t kindBit = word.kind == WordKind::Time ? 1 : 0;
  return kindBit << (kValueBits + kCrcBits) | std::uint64_t{word.value} << kCrcBits |
         Crc(word.kind, word.value);
}

std::optional<PayloadWord> PayloadCodec::Decode(std::uint64_t bits) {
  if (bits >> kWordBits != 0) return std::nullopt;
  const PayloadWord word{(bits >> (kValueBits + kCrcBits)) != 0 ? WordKind::Time : WordKind::Cid,
                         static_cast<std::uint32_t>((bits >> kCrcBits) & kValueMask)};
  if (Crc(word.kind, word.value) != (bits & kCrcMask)) return std::nullopt;
  return word;
}

std::optional<PayloadWord> PayloadCodec::DecodeSoft(const std::vector<double>& soft) {
  if (soft.size() != static_cast<std::size_t>(kWordBits)) return std::nullopt;
  std::uint64_t hard = 0;
  for (double value : soft) hard = hard << 1 | (value > 0.0 ? 1u : 0u);
  std::vector<int> weakest(soft.size());
  std::iota(weakest.begin(), weakest.end(), 0);
  std::partial_sort(weakest.begin(), weakest.begin() + kChaseBits, weakest.end(),
                    [&](int a, int b) { return std::abs(soft[static_cast<std::size_t>(a)]) <
                                               std::abs(soft[static_cast<std::size_t>(b)]); });
  for (std::size_t flips = 0; flips <= static_cast<std::size_t>(kChaseBits); ++flips) {
    for (unsigned pattern = 0; pattern < (1u << kChaseBits); ++pattern) {
      if (std::bitset<kChaseBits>(pattern).count() != flips) continue;
      std::uint64_t trial = hard;
      for (int i = 0; i < kChaseBits; ++i) {
        if ((pattern >> i) & 1u) trial ^= std::uint64_t{1} << (kWordBits - 1 - weakest[static_cast<std::size_t>(i)]);
      }
      if (auto word = Decode(trial)) return word;
    }
  }
  return std::nullopt;
}

bool PayloadCodec::Resembles(const std::vector<double>& soft, const PayloadWord& word) {
  return DisagreeingShare(soft, word) <= kResemblanceShare;
}

double PayloadCodec::DisagreeingShare(const std::vector<double>& soft, const PayloadWord& word) {
  if (soft.size() != static_cast<std::size_t>(kWordBits)) return 1.0;
  const std::uint64_t bits = Encode(word);
  double total = 0.0;
  double disagreeing = 0.0;
  for (std::size_t i = 0; i < soft.size(); ++i) {
    const bool one = (bits >> (kWordBits - 1 - i) & 1u) != 0;
    total += std::abs(soft[i]);
    if (one != (soft[i] > 0.0)) disagreeing += std::abs(soft[i]);
  }
  return total > 0.0 ? disagreeing / total : 1.0;
}

std::int32_t PayloadCodec::TimestampOf(const PayloadWord& word) {
  return static_cast<std::int32_t>(word.value);
}

}  // namespace Lumenseal
