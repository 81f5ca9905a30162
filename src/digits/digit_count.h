// Kernels that count digit values; one per instruction set.
#pragma once

#include "frame/types.h"

namespace orl::digits {

struct DigitCountKernel {
  const char* name;
  /// counts[v] += how often digits[0, length) holds v, for v below radix (at most 16). Other bytes are not
  /// counted.
  void (*count)(const u8* digits, u64 length, u32 radix, u64* counts);
};

namespace scalar {
extern const DigitCountKernel digit_count;
}
namespace avx2 {
extern const DigitCountKernel digit_count;
}
namespace avx512 {
extern const DigitCountKernel digit_count;
}

/// The kernel of the active target.
const DigitCountKernel& digit_count_kernel();

}  // namespace orl::digits
