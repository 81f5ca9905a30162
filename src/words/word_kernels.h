// The loops that exist once per instruction set. Reached through words.h and hash.h; tests and benchmarks run
// every table that the machine offers.
//
// Kernels see 64-bit words only: a u32 array of even length is the same bytes, so they read through void* and
// ask for no alignment.
#pragma once

#include "core/types.h"
#include "simd/target.h"

namespace orl {

/// One instruction set's loops; each works as the function of words.h or hash.h with its name, in place too.
/// L counts 64-bit words.
struct WordKernels {
  const char* name;
  /// The carry is 0 or 1.
  u64 (*add)(void* T, const void* A, const void* B, u64 L, u64 carry);
  u64 (*sub)(void* T, const void* A, const void* B, u64 L, u64 borrow);
  u64 (*mul)(void* T, const void* A, u64 L, u64 w, u64 carry);
  u64 (*hash)(u64 seed, const void* A, u64 L);
};

namespace scalar {
extern const WordKernels word_kernel_table;
}
namespace avx2 {
extern const WordKernels word_kernel_table;
}
namespace avx512 {
extern const WordKernels word_kernel_table;
}

/// By target; AVX512-IFMA takes the loops of AVX512.
inline constexpr const WordKernels* kWordKernelTables[] = {
    &scalar::word_kernel_table, &avx2::word_kernel_table, &avx512::word_kernel_table,
    &avx512::word_kernel_table};

/// The loops that a target runs.
inline const WordKernels& word_kernels(simd::Target target) {
  return *kWordKernelTables[static_cast<int>(target)];
}
/// The loops of the target in force.
inline const WordKernels& word_kernels() { return word_kernels(simd::active_target()); }

}  // namespace orl
