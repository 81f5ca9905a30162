// Words of digits and the digits in them.
//
// A word holds 19 decimal or 16 hexadecimal digits as one number; the first digit of the stream is the most
// significant. Raw digits are one byte each, 0 to radix - 1.
#pragma once

#include "core/types.h"

namespace orl {

/// 19 for radix 10, 16 for radix 16. Throws InvalidParametersException "Invalid radix." for any other.
u64 digits_per_word(u32 radix);
/// The largest word that is a run of digits.
u64 largest_word(u32 radix);

/// digits[0, count * digits_per_word) from words first[0], first[step], first[2 * step], ...
void unpack_words(u32 radix, u8* digits, const u64* first, s64 step, u64 count);

/// words[0, count) from digits[0, count * digits_per_word). Returns true when a digit was out of range.
bool pack_words(u32 radix, u64* words, const u8* digits, u64 count);

/// One word from its first `count` digits (the rest are zeros) or to its digits [begin, begin + count).
void unpack_part(u32 radix, u8* digits, u64 word, u64 begin, u64 count);

}  // namespace orl
