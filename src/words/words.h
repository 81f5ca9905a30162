// Arrays of words: fill, copy, add, subtract, carry, multiplication and division by one word.
//
// Arrays   least significant word first, no sign; W is u32 or u64, one source for both.
// In place T may equal an operand; it may not overlap one otherwise. No alignment is asked for.
// Threads  the form with a ParallelContext gives the words and the result of the form without. It cuts long
//          arrays into at most min(tds, 64) blocks (fill, copy, not and strip: tds), keeps its records on the
//          caller's stack and runs in the calling thread when the array is short or tds is 0 or 1.
#pragma once

#include <type_traits>

#include "core/types.h"
#include "threads/parallelizer.h"
#include "words/shoup_divider.h"

namespace orl {

/// T[0, L) = value.
template <class W>
void bp_fill(W* T, u64 L, std::type_identity_t<W> value);
template <class W>
void bp_fill(W* T, u64 L, std::type_identity_t<W> value, ParallelContext parallel);

/// T[0, L) = A[0, L), which do not overlap.
template <class W>
void bp_copy(W* T, const W* A, u64 L);
template <class W>
void bp_copy(W* T, const W* A, u64 L, ParallelContext parallel);

/// T[0, L) = complement of A[0, L).
template <class W>
void bp_not(W* T, const W* A, u64 L);
template <class W>
void bp_not(W* T, const W* A, u64 L, ParallelContext parallel);

/// The length that is left when top words equal to `value` are taken off A[0, L).
template <class W>
u64 bp_strip(std::type_identity_t<W> value, const W* A, u64 L);
template <class W>
u64 bp_strip(std::type_identity_t<W> value, const W* A, u64 L, ParallelContext parallel);

/// T[0, L) = A[0, L) + B[0, L) + carry_in, carry_in 0 or 1. Returns the carry out, 0 or 1.
template <class W>
W bp_add(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> carry_in = 0);
template <class W>
W bp_add(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> carry_in, ParallelContext parallel);

/// T[0, L) = A[0, L) - B[0, L) - borrow_in, borrow_in 0 or 1. Returns the borrow out, 0 or 1.
template <class W>
W bp_sub(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> borrow_in = 0);
template <class W>
W bp_sub(W* T, const W* A, const W* B, u64 L, std::type_identity_t<W> borrow_in, ParallelContext parallel);

/// T[0, L) += c, any signed word. Returns the signed carry out: 0, 1 or -1, or c itself when L is 0.
template <class W>
std::make_signed_t<W> bp_carry(std::type_identity_t<std::make_signed_t<W>> c, W* T, u64 L);
template <class W>
std::make_signed_t<W> bp_carry(std::type_identity_t<std::make_signed_t<W>> c, W* T, u64 L,
                               ParallelContext parallel);

/// T[0, L) = A[0, L) * w + carry_in. Returns the word above.
template <class W>
W bp_mul_uW(W* T, const W* A, u64 L, std::type_identity_t<W> w, std::type_identity_t<W> carry_in = 0);
template <class W>
W bp_mul_uW(W* T, const W* A, u64 L, std::type_identity_t<W> w, std::type_identity_t<W> carry_in,
            ParallelContext parallel);

/// T[0, L) = floor((top * W^L + A[0, L)) / d), top < d. Returns the remainder. The parallel form finds every
/// block's start from residues, and throws AlgorithmFailedException "Mismatching block residuals." when a
/// block does not end on the start of the next: a test of the machine.
template <class W>
W bp_div_np(const ShoupDivider<W>& divider, W* T, const W* A, u64 L, std::type_identity_t<W> top);
template <class W>
W bp_div_np(const ShoupDivider<W>& divider, W* T, const W* A, u64 L, std::type_identity_t<W> top,
            ParallelContext parallel);

/// T[0, L) = floor(top * W^L / d), top < d: L further words of a quotient. Returns the remainder. Checked as
/// bp_div_np.
template <class W>
W bp_div_ex(const ShoupDivider<W>& divider, W* T, u64 L, std::type_identity_t<W> top);
template <class W>
W bp_div_ex(const ShoupDivider<W>& divider, W* T, u64 L, std::type_identity_t<W> top,
            ParallelContext parallel);

}  // namespace orl
