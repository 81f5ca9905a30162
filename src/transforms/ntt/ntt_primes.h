// Primes of the integer residue transforms, what follows from them, and the size tables. R, the word of a
// residue, names the family: u64 for "N64", u32 for "N32".
//
// Primes are below half of a word's range, so that a sum of two residues fits a word, and a sum of four
// products two words. A set of P primes with k 2^e dividing p - 1 serves shapes of k * 2^n points, n <= e +
// 3: transforms end at polynomials of eight terms.
#pragma once

#include <span>

#include "transforms/common/prime_field.h"

namespace orl {

inline constexpr u32 kMaxNttPrimes = 8;
inline constexpr u32 kMaxNttOdd = 7;
inline constexpr u32 kSmallestNttLevel = 6;  ///< least n of a shape

/// A factor modulo p and floor(w 2^bits / p), 0 < w < p: V. Shoup's form of a product by a constant (D.
/// Harvey, "Faster arithmetic for number-theoretic transforms", J. Symbolic Computation 60, 2014).
template <class R>
struct NttFactor {
  R w;
  R quotient;
};

/// One prime below half of a word's range.
template <class R>
struct NttPrime : PrimeField {
  static constexpr u32 kBits = 8 * sizeof(R);

  /// `prime` is below half of a word's range.
  explicit NttPrime(u64 prime);
  /// A residue with its quotient.
  NttFactor<R> factor(u64 value) const {
    return {static_cast<R>(value), static_cast<R>((static_cast<u128>(value) << kBits) / p)};
  }

  u64 word_inverse;  ///< of p modulo 2^64
};

/// A prime set and its constants.
template <class R>
struct NttSet {
  u32 P, k, e;
  u32 prime[kMaxNttPrimes];                        ///< indices into ntt_primes()
  u32 words;                                       ///< 64-bit words of the modulus
  u32 modulus_bits;                                ///< floor(log2(modulus))
  u64 modulus[kMaxNttPrimes];                      ///< the product of the primes
  u64 cofactor[kMaxNttPrimes][kMaxNttPrimes];      ///< modulus / p
  u64 scale[kMaxNttPrimes];                        ///< 2^bits (k modulus / p)^-1 mod p
  NttFactor<R> limb[kMaxNttPrimes][4];             ///< 2^(bits j) mod p
  NttFactor<R> cosine[kMaxNttPrimes][kMaxNttOdd];  ///< (w^j + w^-j) / 2, w of order k
  NttFactor<R> sine[kMaxNttPrimes][kMaxNttOdd];    ///< (w^j - w^-j) / 2
};

/// One row of a size table: k * 2^n points modulo P primes; P - 1 half words per point.
template <class R>
struct NttRow {
  u8 P, k, n;

  constexpr u64 points() const { return u64{k} << n; }
  constexpr u64 point_bits() const { return 4 * sizeof(R) * (u64{P} - 1); }
  constexpr u64 bits() const { return points() * point_bits(); }
};

/// All primes that stand in a set.
template <class R>
std::span<const NttPrime<R>> ntt_primes();
/// Null for a pair that has no set.
template <class R>
const NttSet<R>* find_ntt_set(u32 P, u32 k);
/// In order of capacity.
template <class R>
std::span<const NttRow<R>> ntt_rows();

/// Bits of the largest coefficient when `terms` products of two points are summed.
template <class R>
u32 ntt_coefficient_bits(const NttRow<R>& row, u64 terms);
/// Whether the primes of `row` have the roots for its products and exceed twice its coefficients, each the
/// sum of at most half of its points.
template <class R>
bool ntt_row_is_sound(const NttRow<R>& row);
/// As above for the products modulo W^n - 1 and W^n + 1: all points are terms, and may be subtracted; one
/// level of roots more.
template <class R>
bool ntt_row_wraps(const NttRow<R>& row);

}  // namespace orl
