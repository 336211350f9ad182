// The CRC of the line-oriented configuration form: 16-bit CCITT (polynomial 0x1021, start 0,
// most significant bit first), held in a 32-bit register that is never masked to 16 bits, so
// the bits shifted out above bit 15 stay in it. Stored values were made that way and are
// compared with the whole register. A value type; not thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

namespace QuillmarBasebandSDK {

class LineFormCrc {
 public:
  // Feeds one byte, eight shifts.
  void Update(std::uint8_t byte);
  // Feeds every byte of `bytes` in order.
  void Update(std::string_view bytes);
  // The whole 32-bit register.
  std::uint32_t Value() const { return register_; }

 private:
  std::uint32_t register_ = 0;
};

}  // namespace QuillmarBasebandSDK
