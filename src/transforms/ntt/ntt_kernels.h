// The kernels of the integer residue transforms, one table a target, and the plan they read.
//
// Points of prime i stand at F + i * points, as k sequences of M = 2^n residues in [0, p). With y = u v, y^N
// - 1 (N = k M, k odd) becomes u^k - 1 and v^M - 1, and y^N + 1 becomes u^k - 1 and v^M + 1; sequence j is
// the polynomial in v at u = w^j. A node of the transform is a polynomial modulo v^m - t; node j splits by
// the square root s[j] of t into 2 j (v^(m/2) - s) and 2 j + 1 (v^(m/2) + s), from node 0, v^M - 1, or node
// 1, v^M + 1, down to eight terms, which are multiplied as polynomials.
#pragma once

#include "simd/target.h"
#include "transforms/common/transform_records.h"
#include "transforms/ntt/ntt_primes.h"

namespace orl {

/// A prime, as kernels see it.
template <class R>
struct NttModulus {
  R p;
  R inverse;                  ///< of p modulo 2^bits
  const NttFactor<R>* roots;  ///< s[j]
  NttFactor<R> scale;         ///< what a finished inverse is multiplied by
  NttFactor<R> minus_scale;
  const NttFactor<R>* cosine;
  const NttFactor<R>* sine;
};

/// What kernels read of one multiplication.
template <class R>
struct NttPlan {
  NttRow<R> row;
  ProductRing ring;
  const NttSet<R>* set;
  NttModulus<R> modulus[kMaxNttPrimes];
  u32 first = 0, last = row.P;  ///< primes that are split: the first of them to F

  u64 length() const { return u64{1} << row.n; }
  bool negacyclic() const { return ring == ProductRing::kNegacyclic; }
  /// The first node.
  u64 root() const { return negacyclic(); }
  /// Whether a sequence is first cut into kNttRadix subtrees.
  bool divided() const { return row.n > 12; }
};

/// What kernels read for a shape and ring, but for the roots.
template <class R>
NttPlan<R> ntt_plan(const NttRow<R>& row, ProductRing ring);

inline constexpr u32 kNttRadix = 16;

/// One instruction set's stages.
template <class R>
struct NttKernels {
  const char* name;
  /// Residues of points i in [begin, end) (multiples of 8) of each sequence, through the odd factor's
  /// butterfly.
  void (*split)(const NttPlan<R>&, R* F, OperandBytes a, u64 begin, u64 end);
  /// First pass of a divided sequence over columns [begin, end) (multiples of 8) of length() / kNttRadix.
  void (*first_pass)(const NttModulus<R>&, R* x, u64 m, u64 node, u64 begin, u64 end);
  void (*last_pass)(const NttModulus<R>&, R* x, u64 m, u64 node, u64 begin, u64 end);
  /// Node `node` of m points: forward, product with g (which may be x), inverse.
  void (*forward)(const NttModulus<R>&, R* x, u64 m, u64 node);
  void (*product)(const NttModulus<R>&, R* x, const R* g, u64 m, u64 node);
  void (*inverse)(const NttModulus<R>&, R* x, u64 m, u64 node);
  /// Points [begin, end) of each sequence of all primes: the odd factor's inverse butterfly and the scale.
  void (*finish)(const NttPlan<R>&, R* F, u64 begin, u64 end);
};

/// The kernels that a target runs.
template <class R>
const NttKernels<R>& ntt_kernels(simd::Target target);

}  // namespace orl
