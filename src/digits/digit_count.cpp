#include "digits/digit_count.h"

#include "simd/begin_scalar.h"
#include "simd/target.h"

#include "digits/digit_count.kernel.h"
#include "simd/end.h"

namespace orl::digits {

const DigitCountKernel& digit_count_kernel() {
  switch (simd::active_target()) {
    case simd::Target::kAvx512:
    case simd::Target::kAvx512Ifma:
      return avx512::digit_count;
    case simd::Target::kAvx2:
      return avx2::digit_count;
    case simd::Target::kScalar:
      break;
  }
  return scalar::digit_count;
}

}  // namespace orl::digits
