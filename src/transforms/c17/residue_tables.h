// Twiddle factors of the residue transforms.
#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "multiply/algorithm.h"
#include "transforms/c17/residue_primes.h"

namespace orl {

inline constexpr u64 kResidueLowRoots = 512;     ///< 12 KiB per prime: in cache with what they are used on
inline constexpr u64 kResidueMiddleRoots = 512;  ///< 8 KiB per prime

/// Roots of a prime: s[0] = 1, s[2^l] of order 2^(l + 2), s[2^l + r] = s[2^l] s[r] for r < 2^l. Because s[]
/// is multiplicative over the bits of its index, three small tables give every one:
///     s[(t kResidueMiddleRoots + m) kResidueLowRoots + j] = top[t] middle[m] low[j].
struct ResidueRoots {
  const double* low_w = nullptr;  ///< s[j], j < kResidueLowRoots
  const double* low_ratio = nullptr;
  const double* low_inverse_w = nullptr;  ///< 1 / s[j]
  const ResidueFactor* middle = nullptr;  ///< s[m kResidueLowRoots]
  const ResidueFactor* top = nullptr;  ///< s[t kResidueMiddleRoots kResidueLowRoots]; null when all t are 0
  u64 count = 0;                       ///< how many s[] these give
};

/// Roots of all primes in use, cut from one buffer; grows, and keeps what it has.
class ResidueTables final : public FamilyTables {
 public:
  /// How many s[] a shape of 2^n points reads, modulo x^N + 1 too.
  static u64 count_of(u32 n) { return std::max(kResidueLowRoots, u64{1} << (n - 3)); }
  /// Bytes that grow() cuts from an empty table for all of `rows`.
  static u64 bytes(std::span<const ResidueRow> rows);
  /// Cuts and fills what `rows` need beyond what there is: under a millisecond per prime at any size.
  void grow(LinearHeapBuffer& memory, std::span<const ResidueRow> rows);
  /// Roots with a count of 0 when the tables have none for this prime.
  ResidueRoots roots(u32 prime) const { return prime < roots_.size() ? roots_[prime] : ResidueRoots{}; }

 private:
  static std::vector<u64> counts(std::span<const ResidueRow> rows);
  std::vector<ResidueRoots> roots_;
};

}  // namespace orl
