#include "digits/digit_kernels.h"

#include "digits/digit_text.h"
#include "simd/target.h"
#include "words/hash.h"

#include "simd/begin_scalar.h"

#include "digits/digit_kernels.kernel.h"
#include "simd/end.h"

namespace orl::digits {

const DigitKernels& digit_kernels() {
  return simd::kernels_for(simd::active_target(), scalar::kernels, avx2::kernels, avx512::kernels);
}

}  // namespace orl::digits
