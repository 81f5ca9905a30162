// Loops over raw digits and their characters; one table per instruction set.
#pragma once

#include "core/types.h"

namespace orl::digits {

/// One instruction set's loops.
struct DigitKernels {
  /// Digits that hash() takes at a time.
  static constexpr u64 kHashBlock = 256;

  const char* name;
  /// counts[v] += how often digits[0, length) holds v, for v below radix (at most 16). Other bytes are not
  /// counted.
  void (*count)(const u8* digits, u64 length, u32 radix, u64* counts);
  /// Integer of digits[0, blocks * kHashBlock) modulo 2^61 - 1, lazy; radix 10 or 16.
  u64 (*hash)(const u8* digits, u64 blocks, u32 radix);
  /// text[0, length) from raw digits below 16.
  void (*to_text)(char* text, const u8* digits, u64 length);
  /// Raw digits from text[0, length). Returns true when a character was not a digit of the radix.
  bool (*from_text)(u8* digits, const char* text, u64 length, u32 radix);
};

namespace scalar {
extern const DigitKernels kernels;
}
namespace avx2 {
extern const DigitKernels kernels;
}
namespace avx512 {
extern const DigitKernels kernels;
}

/// Those of the active target.
const DigitKernels& digit_kernels();

}  // namespace orl::digits
