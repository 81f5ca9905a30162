// From integer residues to words: the Chinese remainder theorem, and carries.
#pragma once

#include "transforms/ntt/ntt_kernels.h"

namespace orl {

/// What a block leaves to the next, and what of it must be known when its words stand below the window.
struct NttBlockEnd {
  static constexpr u32 kHead = 10;
  u64 overflow[kHead];  ///< words past its end
  u64 head[kHead];      ///< its first words
  bool dropped_ones;    ///< whether all words from the tenth to the window's begin (or the end) are all ones
  u64 above;            ///< what join_ntt() returned
};

/// Joins points [begin, end), multiples of 64, of finished residues; coefficients of a negacyclic product
/// have signs, and then so have the words past the block's end. Returns the largest top part of a
/// coefficient: its bits from `limit_bits` on, 0 if all is well.
template <class R>
u64 join_ntt(const NttPlan<R>& plan, const R* F, u64 begin, u64 end, u32 limit_bits, WordWindow window,
             NttBlockEnd& result);

/// Adds the words that blocks left; block i begins at 64-bit word i words_per_block.
void resolve_ntt_carries(NttBlockEnd* blocks, u64 count, u64 words_per_block, u64 total_words,
                         WordWindow window);

/// Adds the words that the blocks of a product modulo W^n - 1 or W^n + 1 left to T[0, n), as
/// above. True when the product is W^n (T is then zero).
bool resolve_wrapped_carries(const NttBlockEnd* blocks, u64 count, u64 words_per_block, ProductRing ring,
                             u32* T, u64 n);

}  // namespace orl
