// The vector kernels of the residue transforms, one table a target, and the plan they read.
//
// Points of prime i stand at F + i * points, as k sequences of M = 2^n doubles. Sequence j holds the
// polynomial modulo x^M - 1 that Good and Thomas' map gives it, so all k share one twiddle table. A node of
// the transform is a polynomial modulo x^m - t; node j splits by the square root s[j] of t into 2 j (x^(m/2)
// - s) and 2 j + 1 (x^(m/2) + s). Transforms end at polynomials of eight terms, which are multiplied as such.
#pragma once

#include "simd/target.h"
#include "transforms/residue_primes.h"

namespace orl {

/// A prime, as kernels see it.
struct ResidueModulus {
  double p;
  double inverse;
  const ResidueFactor* roots;  ///< s[j], j < M / 16
  ResidueFactor scale;         ///< what a finished inverse is multiplied by: 8 / (k M) times the CRT factor
  const ResidueFactor* odd;    ///< powers of a root of order k
};

struct ResiduePlan {
  ResidueRow row;
  const ResidueSet* set;
  ResidueModulus modulus[kMaxResiduePrimes];
  u64 length() const { return u64{1} << row.n; }
  /// Whether a sequence is first cut into kResidueRadix subtrees.
  bool divided() const { return row.n > 12; }
};

inline constexpr u32 kResidueRadix = 16;

/// Bytes of an operand or of a product.
struct ResidueOperand {
  const u8* data;
  u64 bytes;
};

struct ResidueKernels {
  const char* name;
  /// Residues of points i in [begin, end) (multiples of 8) of each sequence, through the odd factor's
  /// butterfly.
  void (*split)(const ResiduePlan&, double* F, ResidueOperand a, u64 begin, u64 end);
  /// First pass of a divided sequence over columns [begin, end) of length() / kResidueRadix.
  void (*first_pass)(const ResidueModulus&, double* x, u64 m, u64 begin, u64 end);
  void (*last_pass)(const ResidueModulus&, double* x, u64 m, u64 begin, u64 end);
  /// Node `node` of m points: forward, product with g (which may be x), inverse.
  void (*forward)(const ResidueModulus&, double* x, u64 m, u64 node);
  void (*product)(const ResidueModulus&, double* x, const double* g, u64 m, u64 node);
  void (*inverse)(const ResidueModulus&, double* x, u64 m, u64 node);
  /// Points [begin, end) of each sequence of all primes: the odd factor's inverse butterfly and the scale;
  /// residues end in [0, p).
  void (*finish)(const ResiduePlan&, double* F, u64 begin, u64 end);
};

const ResidueKernels& residue_kernels(simd::Target target);

}  // namespace orl
