// Roots of the algorithm "VST".
#pragma once

#include <vector>

#include "multiply/algorithm.h"
#include "transforms/vst/vst_shape.h"

namespace orl {

inline constexpr u32 kVstLowLevels = 9;
inline constexpr u32 kVstLow = 1u << kVstLowLevels;

/// Factors of s[j], s[0] = 1, s[2^l] of order 2^(l + 2), s[2^l + r] = s[2^l] s[r] for r < 2^l: s[j] is
/// high[j / kVstLow] low[j mod kVstLow]. The inverses likewise.
struct VstRoots {
  double *low, *low_inverse;  ///< kVstLow entries and kVstRow more that are only read
  double *high,
      *high_inverse;  ///< as many as transforms of 2^n points need, modulo x^M + 1 too: 2^(n - 2) / kVstLow
};

/// Roots of all primes in use; grows, and keeps what it has.
class VstTables final : public FamilyTables {
 public:
  /// Bytes that grow() cuts from an empty table for all of `rows`.
  static u64 bytes(std::span<const VstRow> rows);
  void grow(LinearHeapBuffer& memory, std::span<const VstRow> rows);
  /// Null when the table does not serve transforms of 2^n points.
  const VstRoots* roots(u32 prime, u32 n) const {
    return prime < tables_.size() && tables_[prime].n >= n ? &tables_[prime].roots : nullptr;
  }

 private:
  struct Table {
    VstRoots roots{};
    u64 n = 0;
  };
  static std::vector<u64> lengths(std::span<const VstRow> rows);
  std::vector<Table> tables_;
};

}  // namespace orl
