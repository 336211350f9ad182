#include "config/LineFormCrc.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr std::uint32_t kPolynomial = 0x1021;
constexpr std::uint32_t kTopBit = 0x8000;
constexpr int kBitsPerByte = 8;

}  // namespace

void LineFormCrc::Update(std::uint8_t byte) {
  register_ ^= static_cast<std::uint32_t>(byte) << kBitsPerByte;
  for (int bit = 0; bit < kBitsPerByte; ++bit) {
    register_ = (register_ & kTopBit) != 0 ? (register_ << 1) ^ kPolynomial : register_ << 1;
  }
}

void LineFormCrc::Update(std::string_view bytes) {
  for (const char c : bytes) Update(static_cast<std::uint8_t>(c));
}

}  // namespace QuillmarBasebandSDK
