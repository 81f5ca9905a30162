// From residues to words: the Chinese remainder theorem, and carries.
#pragma once

#include "transforms/residue_kernels.h"

namespace orl {

/// Words [begin, end) (32-bit) of the product, to target[0].
struct ResidueWindow {
  u32* target;
  u64 begin, end;
};

/// What a block leaves to the next, and what of it must be known when its words stand below the window.
struct ResidueBlockEnd {
  u64 overflow[10];   ///< words past its end
  u64 head[10];       ///< its first words
  bool dropped_ones;  ///< whether all words from the tenth to the window's begin (or the end) are all ones
};

/// Joins points [begin, end), multiples of 64, of finished residues. Returns the largest top part of a
/// coefficient: its bits from `limit_bits` on, 0 if all is well.
u64 join_residues(const ResiduePlan& plan, const double* F, u64 begin, u64 end, u32 limit_bits,
                  ResidueWindow window, ResidueBlockEnd& result);

/// Adds the words that blocks left; block i begins at 64-bit word i words_per_block.
void resolve_residue_carries(ResidueBlockEnd* blocks, u64 count, u64 words_per_block, u64 total_words,
                             ResidueWindow window);

}  // namespace orl
