// Primes of the residue transforms: sets of P primes below 2^48 with k 2^e dividing p - 1, what follows from
// them, and the size table.
#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "transforms/common/prime_field.h"

namespace orl {

inline constexpr u32 kMaxResiduePrimes = 9;

/// The join's limbs: so many a point of 24 (P - 1) bits, and their width. A coefficient has twice as many and
/// its top bits.
constexpr u32 join_limbs(u32 P) { return P / 2; }
constexpr u32 join_limb_bits(u32 P) { return 24 * (P - 1) / join_limbs(P); }

/// A factor modulo p and its ratio to p; |w| <= p / 2.
struct ResidueFactor {
  double w;
  double ratio;
};

/// One prime below 2^48.
struct ResiduePrime : PrimeField {
  /// `prime` is below 2^48.
  explicit ResiduePrime(u64 prime);
  /// A residue as a factor of the vector kernels.
  ResidueFactor factor(u64 value) const;

  u64 half[48];  ///< 2^-i
};

/// A prime set and its constants.
struct ResidueSet {
  u32 P, k, e;
  u32 prime[kMaxResiduePrimes];  ///< indices into residue_primes()
  u32 words;                     ///< 64-bit words of the modulus
  u64 modulus[8];
  double modulus_log2;
  double cofactor[kMaxResiduePrimes][8];     ///< modulus / p in limbs of join_limb_bits(P), 0 to 2^bits
  double modulus_limb[9];                    ///< the modulus, -2^(bits - 1) to 2^(bits - 1); the last to 2^48
  u64 scale[kMaxResiduePrimes];              ///< (k modulus / p)^-1 mod p
  ResidueFactor limb[kMaxResiduePrimes][4];  ///< 2^(48 j) mod p
  ResidueFactor odd[kMaxResiduePrimes][7];   ///< powers of a root w of order k
  /// What a transform of length k multiplies by, with c_j and s_j half the sum and difference of w^j and
  /// w^-j: w; -1/4, (c_1 - c_2) / 2, s_1, s_2 - s_1, s_1 + s_2; c_1, c_2, c_3, s_1, s_2, s_3.
  ResidueFactor dft[kMaxResiduePrimes][6];
};

/// One row of the size table: k * 2^n points modulo P primes, 24 (P - 1) bits per point.
struct ResidueRow {
  u8 P, k, n;
  /// Per mille by which whole products may be longer than bits(): they are made modulo W^n - 1, which costs less
  /// than the next row. The size table says it; any other shape has none.
  u16 stretch = 0;

  constexpr u64 points() const { return u64{k} << n; }
  constexpr u64 point_bits() const { return 24 * (u64{P} - 1); }
  constexpr u64 bits() const { return points() * point_bits(); }
  constexpr u64 stretched_bits() const { return bits() + bits() / 1000 * stretch; }
};

/// All primes that stand in a set.
std::span<const ResiduePrime> residue_primes();
/// The set of a shape, P from 4 to 9, k in 1, 3, 5, 7. Shapes of small n have the first P of nine primes, so that
/// their tables are few; larger ones have primes of their own.
const ResidueSet& residue_set(const ResidueRow& row);
/// In order of capacity.
std::span<const ResidueRow> residue_rows();

/// What the rows' sets ask of each of residue_primes(): the largest need(row), 0 where no set has the prime.
template <class Row, class Need>
std::vector<u64> largest_by_prime(std::span<const Row> rows, Need&& need) {
  std::vector<u64> largest(residue_primes().size());
  for (const Row& row : rows) {
    const ResidueRow shape{row.P, row.k, row.n};
    const ResidueSet& set = residue_set(shape);
    for (u32 i = 0; i < set.P; ++i) largest[set.prime[i]] = std::max<u64>(largest[set.prime[i]], need(row));
  }
  return largest;
}

}  // namespace orl
