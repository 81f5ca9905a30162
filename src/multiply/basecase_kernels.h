// The schoolbook kernels of every instruction set, and the choice among them.
#pragma once

#include "core/types.h"
#include "simd/target.h"

namespace orl {

/// Schoolbook products of one word type: mulB, elmB and sqrB of basecase.h.
template <class W>
struct BasecaseKernels {
  const char* name;
  void (*mul)(W* T, const W* A, u64 AL, const W* B, u64 BL);  ///< AL >= BL >= 1
  void (*elm)(W* T, const W* A, const W* B, u64 L);
  void (*sqr)(W* T, const W* A, u64 L);
};

namespace scalar {
extern const BasecaseKernels<u32> basecase_u32;
extern const BasecaseKernels<u64> basecase_u64;
}  // namespace scalar
namespace avx2 {
extern const BasecaseKernels<u32> basecase_u32;
extern const BasecaseKernels<u64> basecase_u64;
}  // namespace avx2

/// Kernels of a target. Those of AVX2 need BMI2 and ADX and no vectors, so they serve all targets from it up.
template <class W>
inline const BasecaseKernels<W>& basecase_kernels(simd::Target target) {
  if constexpr (sizeof(W) == 4)
    return target >= simd::Target::kAvx2 ? avx2::basecase_u32 : scalar::basecase_u32;
  else
    return target >= simd::Target::kAvx2 ? avx2::basecase_u64 : scalar::basecase_u64;
}
/// Those of the target in force.
template <class W>
inline const BasecaseKernels<W>& basecase_kernels() {
  return basecase_kernels<W>(simd::active_target());
}

}  // namespace orl
