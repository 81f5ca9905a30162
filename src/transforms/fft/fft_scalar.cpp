#include "transforms/fft/fft_kernels.h"

#include <cstring>

#include "simd/begin_scalar.h"

#include "transforms/fft/fft.kernel.h"

#include "simd/end.h"

namespace orl {
namespace avx2 {
extern const FftKernels fft_kernel_table;
}
namespace avx512 {
extern const FftKernels fft_kernel_table;
}

const FftKernels& fft_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::fft_kernel_table, avx2::fft_kernel_table,
                           avx512::fft_kernel_table);
}

}  // namespace orl
