// The schoolbook kernels of every instruction set, and the one in force.
#pragma once

#include "frame/types.h"
#include "simd/target.h"

namespace orl {

/// Schoolbook products for one word type, as mulB, elmB and sqrB in basecase.h.
template <class W>
struct BasecaseKernels {
  const char* name;
  void (*mul)(W* T, const W* A, u64 AL, const W* B, u64 BL);  ///< AL >= BL >= 1
  void (*elm)(W* T, const W* A, const W* B, u64 L);
  void (*sqr)(W* T, const W* A, u64 L);
};

/// Kernels for `target`; the scalar ones where a target has none of its own.
template <class W>
const BasecaseKernels<W>& basecase_kernels(simd::Target target);

}  // namespace orl
