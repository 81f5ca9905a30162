// Schoolbook and Karatsuba multiplication of word arrays, W = u32 or u64.
//
// Arrays   least significant word first; lengths are at least 1; a result overlaps neither operand nor
//          scratch.
// Names    sqr a square, elm a product of two arrays of one length, mul a product of any two lengths; a final
//          B means schoolbook, K Karatsuba, no letter chooses by length.
// Scratch  sized by the functions *_scratch, in bytes; B forms take none.
// Threads  everything runs in the calling thread on the caller's buffers.
// Source   A. Karatsuba, Y. Ofman, "Multiplication of many-digit numbers by automatic computers", 1962; the
//          subtractive form, in which the middle product is no longer than the halves.
#pragma once

#include "core/types.h"
#include "words/word_view.h"

namespace orl {

/// Smallest length, in words, that goes to Karatsuba. Legal from 2. Smaller hands more work to the combining
/// passes, larger leaves more to the quadratic kernels.
template <class W>
inline constexpr u64 kKaratsubaSqrWords = sizeof(W) == 4 ? 10 : 47;
template <class W>
inline constexpr u64 kKaratsubaMulWords = sizeof(W) == 4 ? 12 : 47;

/// T[0, AL + BL) = A[0, AL) * B[0, BL), row by row.
template <class W>
void mulB(W* T, const W* A, u64 AL, const W* B, u64 BL);
/// T[0, 2L) = A[0, L) * B[0, L).
template <class W>
void elmB(W* T, const W* A, const W* B, u64 L);
/// T[0, 2L) = A[0, L)^2: products off the diagonal once, doubled, then the squares.
template <class W>
void sqrB(W* T, const W* A, u64 L);

/// Products by Karatsuba down to the cutoffs; lengths from 2.
template <class W>
void mulK(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp);  ///< tmp: mul_scratch(AL, BL)
template <class W>
void elmK(W* T, const W* A, const W* B, u64 L, W* tmp);  ///< tmp: elm_scratch(L)
template <class W>
void sqrK(W* T, const W* A, u64 L, W* tmp);  ///< tmp: sqr_scratch(L)

/// Products by whichever is faster at the length; tmp may be null where its size is 0.
template <class W>
void mul(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp);
template <class W>
void elm(W* T, const W* A, const W* B, u64 L, W* tmp);
template <class W>
void sqr(W* T, const W* A, u64 L, W* tmp);

/// T = its words of the product. Operands are trimmed to what can reach the window, so that carries from
/// below it are lost: the lowest words of the window may be wrong unless T.skip is 0. tmp:
/// mul_window_scratch() or sqr_window_scratch().
template <class W>
void mul_window(Window<W> T, Words<W> A, Words<W> B, W* tmp);
template <class W>
void sqr_window(Window<W> T, Words<W> A, W* tmp);

/// Bytes of scratch.
template <class W>
u64 mul_scratch(u64 AL, u64 BL);
template <class W>
u64 elm_scratch(u64 L);
template <class W>
u64 sqr_scratch(u64 L);
template <class W>
u64 mul_window_scratch(u64 skip, u64 len, u64 AL, u64 BL);
template <class W>
u64 sqr_window_scratch(u64 skip, u64 len, u64 L);
/// Scratch of any window product or square whose trimmed operands together hold at most `n` 64-bit words.
template <class W>
u64 transform_style_scratch(u64 n);

}  // namespace orl
