// Digits as characters.
#pragma once

#include "core/types.h"

namespace orl {

/// '0' to '9', 'a' to 'f'.
inline char digit_character(u32 digit) {
  return static_cast<char>(digit < 10 ? '0' + digit : 'a' + (digit - 10));
}

/// Value of a character, or 255.
constexpr u8 digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<u8>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<u8>(c - 'a' + 10);
  return 255;
}

/// text[0, length) from raw digits.
void digits_to_text(char* text, const u8* digits, u64 length);

/// Raw digits from text[0, length). Returns true when a character was not a digit of the radix.
bool text_to_digits(u8* digits, const char* text, u64 length, u32 radix);

}  // namespace orl
