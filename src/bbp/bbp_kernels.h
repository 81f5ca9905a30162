// The inner loops of bbp_sum.h, one table an instruction set.
#pragma once

#include "bbp/bbp_sum.h"

namespace orl {

/// One instruction set's loops.
struct BbpKernel {
  const char* name;
  u32 lanes;
  u64 batch;          ///< indices worked on at once
  u64 modulus_limit;  ///< denominators of a range are below it
  /// Adds to sums[lanes * i, lanes * (i + 1)) what limb i of the fractions of k in [first, last) gets, as
  /// two's complement: each index adds a value of at most 2^48 to one of them. The exponents are not below 0.
  void (*powers)(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count);
  /// As `powers`, for exponents below 0.
  void (*quotients)(const BbpTerm& term, u64 first, u64 last, u64* sums, u64 limb_count);
};

namespace scalar {
extern const BbpKernel bbp_kernel;
}
namespace avx2 {
extern const BbpKernel bbp_kernel;
}
namespace avx512 {
extern const BbpKernel bbp_kernel;
}

/// AVX512-IFMA takes the loops of AVX512.
const BbpKernel& bbp_kernel(simd::Target target);

}  // namespace orl
