// Carries between the blocks of a parallel add, subtract or multiplication by one word.
#pragma once

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

/// A call uses at most this many tasks: the records of the blocks lie on the caller's stack.
inline constexpr u64 kMaxWordTasks = 64;

/// T[0, L) += sum of pending[k] * W^(k * block) over the blocks of T, at most kMaxWordTasks; pending[k] is
/// -1, 0 or 1. Returns the signed carry out of the top. Two parallel passes around a serial one over two
/// bytes per block. L = 0 ends the program: "bp_ksr_carry(): Length cannot be zero.".
template <class W>
int bp_ksr_carry(W* T, u64 L, u64 block, const s8* pending, ParallelContext parallel);

/// Adds carries[k] (subtracts, if `subtract`) at the bottom of block k + 1 of T[0, L), for each of its
/// blocks; returns the top block's carry with what left the top. Nearly every carry is absorbed by two words;
/// what is left goes to bp_ksr_carry.
template <class W>
W add_block_carries(W* T, u64 L, u64 block, const W* carries, bool subtract, ParallelContext parallel);

}  // namespace orl
