#include "digits/digit_words.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"

namespace orl {
namespace {

constexpr u64 kTen8 = 100000000;
constexpr u64 kTen16 = kTen8 * kTen8;

// Eight decimal digits of value < 10^8 as bytes, first digit in the lowest byte. Halving the number of digits
// a lane three times: 4 + 4, then 2 + 2, then 1 + 1; each quotient is a multiplication by a rounded-up
// reciprocal, exact for the lane's range.
u64 spread_decimal(u64 value) {
  const u64 fours = (value / 10000) | (value % 10000) << 32;
  const u64 hundreds = ((fours * 10486) >> 20) & 0x0000007f0000007f;  // / 100, exact below 10^4
  const u64 twos = hundreds | (fours - 100 * hundreds) << 16;
  const u64 tens = ((twos * 103) >> 10) & 0x000f000f000f000f;  // / 10, exact below 100
  return tens | (twos - 10 * tens) << 8;
}

// The inverse: eight bytes, first digit in the lowest, to a number below 10^8.
u64 gather_decimal(u64 bytes) {
  bytes = (bytes * 10 + (bytes >> 8)) & 0x00ff00ff00ff00ff;
  bytes = (bytes * 100 + (bytes >> 16)) & 0x0000ffff0000ffff;
  return (bytes * 10000 + (bytes >> 32)) & 0x00000000ffffffff;
}

// Some lane above 9. Lanes above 127 are seen by their own top bit.
bool above_nine(u64 bytes) {
  return (((bytes & 0x7f7f7f7f7f7f7f7f) + 0x7676767676767676) | bytes) & 0x8080808080808080;
}
bool above_fifteen(u64 bytes) { return bytes & 0xf0f0f0f0f0f0f0f0; }

// Eight nibbles, first digit the most significant, to bytes with the first in the lowest.
u64 spread_hexadecimal(u32 value) {
  u64 x = value;
  x = (x | x << 16) & 0x0000ffff0000ffff;
  x = (x | x << 8) & 0x00ff00ff00ff00ff;
  x = (x | x << 4) & 0x0f0f0f0f0f0f0f0f;
  return __builtin_bswap64(x);
}

u32 gather_hexadecimal(u64 bytes) {
  u64 x = __builtin_bswap64(bytes);
  x = (x | x >> 4) & 0x00ff00ff00ff00ff;
  x = (x | x >> 8) & 0x0000ffff0000ffff;
  return static_cast<u32>(x | x >> 16);
}

u64 load8(const u8* p) {
  u64 bytes;
  std::memcpy(&bytes, p, 8);
  return bytes;
}
void store8(u8* p, u64 bytes) { std::memcpy(p, &bytes, 8); }

void unpack_decimal(u8* digits, u64 word) {
  const u64 top = word / kTen16, rest = word % kTen16;
  digits[0] = static_cast<u8>(top / 100);
  digits[1] = static_cast<u8>(top / 10 % 10);
  digits[2] = static_cast<u8>(top % 10);
  store8(digits + 3, spread_decimal(rest / kTen8));
  store8(digits + 11, spread_decimal(rest % kTen8));
}

void unpack_hexadecimal(u8* digits, u64 word) {
  store8(digits, spread_hexadecimal(static_cast<u32>(word >> 32)));
  store8(digits + 8, spread_hexadecimal(static_cast<u32>(word)));
}

bool pack_decimal(u64& word, const u8* digits) {
  const u64 high = load8(digits + 3), low = load8(digits + 11);
  word = ((digits[0] * 10 + digits[1]) * 10u + digits[2]) * kTen16 + gather_decimal(high) * kTen8 +
         gather_decimal(low);
  return digits[0] > 9 || digits[1] > 9 || digits[2] > 9 || above_nine(high) || above_nine(low);
}

bool pack_hexadecimal(u64& word, const u8* digits) {
  const u64 high = load8(digits), low = load8(digits + 8);
  word = static_cast<u64>(gather_hexadecimal(high)) << 32 | gather_hexadecimal(low);
  return above_fifteen(high) || above_fifteen(low);
}

}  // namespace

u64 digits_per_word(u32 radix) {
  if (radix == 10) return 19;
  if (radix == 16) return 16;
  throw InvalidParametersException("digits_per_word()", "Invalid radix.");
}

u64 largest_word(u32 radix) { return digits_per_word(radix) == 19 ? 0x8ac7230489e7ffff : ~u64{0}; }

void unpack_words(u32 radix, u8* digits, const u64* first, s64 step, u64 count) {
  if (digits_per_word(radix) == 19)
    for (u64 i = 0; i < count; i++, first += step) unpack_decimal(digits + 19 * i, *first);
  else
    for (u64 i = 0; i < count; i++, first += step) unpack_hexadecimal(digits + 16 * i, *first);
}

bool pack_words(u32 radix, u64* words, const u8* digits, u64 count) {
  bool bad = false;
  if (digits_per_word(radix) == 19)
    for (u64 i = 0; i < count; i++) bad |= pack_decimal(words[i], digits + 19 * i);
  else
    for (u64 i = 0; i < count; i++) bad |= pack_hexadecimal(words[i], digits + 16 * i);
  return bad;
}

void unpack_part(u32 radix, u8* digits, u64 word, u64 begin, u64 count) {
  u8 all[19];
  unpack_words(radix, all, &word, 1, 1);
  std::copy_n(all + begin, count, digits);
}

}  // namespace orl
