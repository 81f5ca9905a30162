// Twiddle factors of the integer residue transforms.
#pragma once

#include <vector>

#include "multiply/algorithm.h"
#include "transforms/ntt/ntt_primes.h"

namespace orl {

/// For each prime in use, s[j]: s[0] = 1, s[2^l] of order 2^(l + 2), s[2^l + r] = s[2^l] s[r] for r < 2^l.
/// One table serves every level of every shape; a shape of 2^n points reads its first 2^n / 16, or twice as
/// many for products modulo W^n + 1.
template <class R>
class NttTables final : public FamilyTables {
 public:
  /// Bytes that grow() cuts from an empty table for all of `rows`.
  static u64 bytes(std::span<const NttRow<R>> rows);
  void grow(LinearHeapBuffer& memory, std::span<const NttRow<R>> rows);
  /// Null when the table has fewer than `count` entries.
  const NttFactor<R>* roots(u32 prime, u64 count) const {
    return prime < tables_.size() && tables_[prime].count >= count ? tables_[prime].roots : nullptr;
  }

 private:
  struct Table {
    NttFactor<R>* roots = nullptr;
    u64 count = 0;
  };
  static std::vector<u64> counts(std::span<const NttRow<R>> rows);
  std::vector<Table> tables_;
};

}  // namespace orl
