#include "digits/digit_text.h"

#include <array>
#include <cstring>

namespace orl {
namespace {

constexpr std::array<u8, 256> kValues = [] {
  std::array<u8, 256> values{};
  for (int c = 0; c < 256; c++) values[static_cast<u64>(c)] = digit_value(static_cast<char>(c));
  return values;
}();

constexpr u64 each_byte(u64 value) { return value * 0x0101010101010101; }

}  // namespace

void digits_to_text(char* text, const u8* digits, u64 length) {
  u64 i = 0;
  for (; i + 8 <= length; i += 8) {
    u64 block;
    std::memcpy(&block, digits + i, 8);
    // Bit 4 of digit + 6 says that it is ten or more; 'a' - '9' - 1 = 39.
    const u64 letters = (block + each_byte(6)) >> 4 & each_byte(1);
    block += each_byte('0') + letters * 39;
    std::memcpy(text + i, &block, 8);
  }
  for (; i < length; i++) text[i] = digit_character(digits[i]);
}

bool text_to_digits(u8* digits, const char* text, u64 length, u32 radix) {
  bool bad = false;
  for (u64 i = 0; i < length; i++) {
    digits[i] = kValues[static_cast<u8>(text[i])];
    bad |= digits[i] >= radix;
  }
  return bad;
}

}  // namespace orl
