// The instruction targets of the one binary, and which of them this machine offers in full.
#pragma once

#include <atomic>
#include <string>
#include <vector>

namespace orl::simd {

/// In rising order: each target includes the features of the one before it. kScalar is what every x86-64
/// processor runs; it is the reference of the tests and the fall-back of a machine below AVX2.
enum class Target { kScalar = 0, kAvx2 = 1, kAvx512 = 2, kAvx512Ifma = 3 };

/// "Scalar", "AVX2", "AVX512", "AVX512-IFMA".
const char* target_name(Target target);

/// The features of a target in the layout of the start-up check: four blanks before every line.
const char* target_feature_list(Target target);

/// Names of the target's features that the processor, or the system's saved register state, lacks.
std::vector<std::string> missing_features(Target target);

/// Highest target that processor and system offer in full, never above the one that the build fixed.
Target best_target();

namespace detail {
extern std::atomic<int> active;  // below 0 until it is first asked for
Target activate_best();
}  // namespace detail

/// Target in force: best_target() until set_active_target() lowers it (tests, benchmarks). A kernel table is
/// asked when a transform is planned, so a change holds for what is planned afterwards.
inline Target active_target() {  // inline, for products of a few words ask at each call
  const int target = detail::active.load(std::memory_order_relaxed);
  return target < 0 ? detail::activate_best() : static_cast<Target>(target);
}
/// Throws std::invalid_argument when this machine cannot run `target`.
void set_active_target(Target target);

/// What `target` runs of a table of kernels that is compiled for three instruction sets; AVX512-IFMA runs that of
/// AVX512.
template <class Kernels>
const Kernels& kernels_for(Target target, const Kernels& scalar, const Kernels& avx2, const Kernels& avx512) {
  if (target >= Target::kAvx512) return avx512;
  return target == Target::kAvx2 ? avx2 : scalar;
}

}  // namespace orl::simd
