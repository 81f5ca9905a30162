#include "digits/digit_text.h"

#include <cstring>

namespace orl {
namespace {

constexpr u64 each_byte(u64 value) { return value * 0x0101010101010101; }

// Eight raw digits, each below 26, as characters. Bit 4 of digit + 6 says that it is ten or more; 'a' - '9' -
// 1 = 39.
u64 characters_of(u64 digits) {
  const u64 letters = (digits + each_byte(6)) >> 4 & each_byte(1);
  return digits + each_byte('0') + letters * 39;
}

}  // namespace

void digits_to_text(char* text, const u8* digits, u64 length) {
  u64 i = 0;
  for (; i + 8 <= length; i += 8) {
    u64 block;
    std::memcpy(&block, digits + i, 8);
    block = characters_of(block);
    std::memcpy(text + i, &block, 8);
  }
  for (; i < length; i++) text[i] = digit_character(digits[i]);
}

bool text_to_digits(u8* digits, const char* text, u64 length, u32 radix) {
  u64 bad = 0;
  u64 i = 0;
  for (; i + 8 <= length; i += 8) {
    u64 block;
    std::memcpy(&block, text + i, 8);
    // 'a' to 'f' have bit 6 and end in 1 to 6. Whatever else gets a value does not come back from it.
    const u64 values = (block & each_byte(15)) + (block >> 6 & each_byte(1)) * 9;
    std::memcpy(digits + i, &values, 8);
    bad |= block ^ characters_of(values);
    // Values are below 26, so adding 128 - radix carries into bit 7 from the radix on and never beyond the
    // byte.
    bad |= (values + each_byte(128 - radix)) & each_byte(128);
  }
  for (; i < length; i++) {
    digits[i] = digit_value(text[i]);
    bad |= digits[i] >= radix;
  }
  return bad != 0;
}

}  // namespace orl
