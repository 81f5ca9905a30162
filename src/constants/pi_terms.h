// The terms of the two series of Pi, k = 1, 2, ...
//
//   Chudnovsky   R = (6k-5)(2k-1)(6k-1)   P = -R (13591409 + 545140134 k)   Q = 10939058860032000 k^3
//   Ramanujan    R = (2k-1)(4k-3)(4k-1)   P =  R (1103 + 26390 k)           Q = 3073907232 k^3
//
// That of the Chudnovskys alternates.
//
// Each number's hash is the product of those of its factors, so a wrong product shows. End cases with the
// digit 1 hold while every linear factor fits a word; those with a 2 take factors of two words. With 64-bit
// words the narrow ones reach beyond any number of terms. Each throws BufferTooSmallException under its name.
#pragma once

#include "splitting/leaf.h"

namespace orl {

/// First k with a factor of two words.
template <class W>
inline constexpr u64 kChudnovskyWide = sizeof(W) == 4 ? 715827883 : 3074457345618258603;
template <class W>
inline constexpr u64 kRamanujanWide = sizeof(W) == 4 ? 1073741825 : 4611686018427387905;

/// Longest number of one term.
template <class W>
inline constexpr u64 kPiTermWords = sizeof(W) == 4 ? 9 : 5;

/// Term k >= 1 of the Chudnovskys' series: R, then P from R, then Q; PR2 makes both.
template <class W>
void Pi_Chudnovsky_BSR_End_R1(LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Chudnovsky_BSR_End_P1(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Chudnovsky_BSR_End_Q1(LeafNumber<W>& Q, u64 k);
template <class W>
void Pi_Chudnovsky_BSR_End_PR2(LeafNumber<W>& P, LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Chudnovsky_BSR_End_Q2(LeafNumber<W>& Q, u64 k);

/// Term k >= 1 of Ramanujan's series.
template <class W>
void Pi_Ramanujan_BSR_End_R1(LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Ramanujan_BSR_End_P1(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Ramanujan_BSR_End_Q1(LeafNumber<W>& Q, u64 k);
template <class W>
void Pi_Ramanujan_BSR_End_R2(LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Ramanujan_BSR_End_P2(LeafNumber<W>& P, const LeafNumber<W>& R, u64 k);
template <class W>
void Pi_Ramanujan_BSR_End_Q2(LeafNumber<W>& Q, u64 k);

}  // namespace orl
