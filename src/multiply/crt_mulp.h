// Products from their residues modulo W^n - 1 and W^n + 1, W = 2^32: transforms of half the length.
//
// Memory   two transforms of half the length (a square: one), their scratch, and n words for what the second
//          residue may not overwrite. The first residue lies in the words of the result as far as they reach,
//          so a product whose window is n words or more holds nothing for it, unless it is written over an
//          operand. The second lies in the second operand's transform (a square: in n words of its own), as
//          do the folded halves of a long operand.
// Windows  exact: both residues are known whole, and so is every carry from below the window.
// Source   the Chinese remainder theorem for the coprime moduli W^n - 1 and (W^n + 1), which differ by 2.
#pragma once

#include "core/types.h"
#include "multiply/algorithm.h"

namespace orl {

/// Bytes that CRT_mulp takes for a window of `window` words; not increasing in it.
u64 crt_mulp_bytes(const Parameters& params, u64 window);
/// Bytes that CRT_sqrp takes.
u64 crt_sqrp_bytes(const Parameters& params, u64 window);

/// T = its words of A * B, T.skip < T.len <= A.count + B.count <= 2n with n = params.cyclic_words(). tmp, which
/// T does not overlap, holds crt_mulp_bytes(params, T.count()); when T overlaps an operand, as it may,
/// crt_mulp_bytes(params, 0): BufferTooSmallException "CRT_mulp()" otherwise. Internal errors
/// "CRT_mulp(): Convolution length is not divisible by the word-size." and
/// "CRT_mulp(): Convolution length is not long enough.".
void CRT_mulp(const Parameters& params, Window<u32> T, Words<u32> A, Words<u32> B, LinearHeapBuffer tmp,
              ParallelContext parallel);
/// CRT_mulp for A * A, with crt_sqrp_bytes.
void CRT_sqrp(const Parameters& params, Window<u32> T, Words<u32> A, LinearHeapBuffer tmp,
              ParallelContext parallel);

}  // namespace orl
