#include "transforms/common/unwrap_product.h"

#include "words/words.h"

namespace orl {

// For a product L + H W^n the residue is L + H, or L + H - (W^n - 1). Its lowest words less those of L are thus H or H + 1,
// and taking that off the residue leaves L, or L - W^n: a borrow tells which. H + 1 is W^m at most.
bool unwrap_product(u32* T, u64 n, u32* low, u64 m, ParallelContext parallel) {
  u32* const high = low;
  bp_sub(high, T, low, m + 1, 0, parallel);
  if (bp_strip(u32{0} - 1, high, m + 1, parallel) == 0) {  // W^n - 1 for a product of 0
    bp_fill(T, n + m, 0, parallel);
    return true;
  }
  if (high[m] > 1 || (high[m] == 1 && bp_strip(u32{0}, high, m, parallel) != 0)) return false;
  const u32 borrow = bp_sub(T, T, high, m + 1, 0, parallel);
  const s32 below = bp_carry(-static_cast<s32>(borrow), T + m + 1, n - m - 1, parallel);
  bp_copy(T + n, high, m, parallel);
  const s32 left = bp_carry(below, T + n, m, parallel);
  return left + static_cast<s32>(high[m]) == 0;
}

}  // namespace orl
