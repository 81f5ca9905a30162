#include "transforms/ntt/ntt_far_kernels.h"
#include "transforms/ntt/ntt_kernels.h"

#include "simd/begin_scalar.h"

#include "transforms/ntt/ntt_mod.kernel.h"
// Above the rest, which uses it.
#include "transforms/ntt/ntt_pass.kernel.h"
// Over both.
#include "transforms/ntt/ntt_far.kernel.h"

#include "simd/end.h"

namespace orl {
namespace avx2 {
extern const NttKernels<u32> ntt32_kernel_table;
}
namespace avx512 {
extern const NttKernels<u64> ntt64_kernel_table;
extern const NttFarKernels ntt_far_kernel_table;
extern const NttKernels<u32> ntt32_kernel_table;
}  // namespace avx512

// Without products of 64-bit words in vectors, AVX2 has nothing over plain multiplications.
template <>
const NttKernels<u64>& ntt_kernels(simd::Target target) {
  return target >= simd::Target::kAvx512 ? avx512::ntt64_kernel_table : scalar::ntt64_kernel_table;
}

const NttFarKernels& ntt_far_kernels(simd::Target target) {
  return target >= simd::Target::kAvx512 ? avx512::ntt_far_kernel_table : scalar::ntt_far_kernel_table;
}

template <>
const NttKernels<u32>& ntt_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::ntt32_kernel_table, avx2::ntt32_kernel_table,
                           avx512::ntt32_kernel_table);
}

}  // namespace orl
