// Arithmetic modulo one prime below 2^64, of canonical residues, for the tables of the residue transforms.
#pragma once

#include "core/types.h"

namespace orl {

/// A prime and the roots of unity of orders 2^i in its group.
struct PrimeField {
  /// Finds the roots of an odd prime.
  explicit PrimeField(u64 prime);

  /// a b, base^exponent and 1 / a modulo p; a is not 0 there.
  u64 multiply(u64 a, u64 b) const { return static_cast<u64>(static_cast<u128>(a) * b % p); }
  u64 power(u64 base, u64 exponent) const;
  u64 inverse(u64 a) const { return power(a, p - 2); }
  u64 root_of_order(u64 order) const;  ///< of an odd prime order that divides p - 1, or of order 1

  u64 p;
  u32 e;                  ///< largest power of two in p - 1
  u64 two_root[64] = {};  ///< root of order 2^i, i <= e; each is the square of the next
};

/// a[0, words) times b, in place; returns its words, which are one more where the product needs it.
u32 multiply_small(u64* a, u32 words, u64 b);

}  // namespace orl
