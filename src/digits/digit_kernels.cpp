#include "digits/digit_kernels.h"

#include "digits/digit_text.h"
#include "simd/target.h"
#include "words/hash.h"

#include "simd/begin_scalar.h"

#include "digits/digit_kernels.kernel.h"
#include "simd/end.h"

namespace orl::digits {

const DigitKernels& digit_kernels() {
  switch (simd::active_target()) {
    case simd::Target::kAvx512:
    case simd::Target::kAvx512Ifma:
      return avx512::kernels;
    case simd::Target::kAvx2:
      return avx2::kernels;
    case simd::Target::kScalar:
      break;
  }
  return scalar::kernels;
}

}  // namespace orl::digits
