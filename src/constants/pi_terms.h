// The terms of the two series of Pi, k = 1, 2, ...
//
//   Chudnovsky   R = (6k-5)(2k-1)(6k-1)   P = -R (13591409 + 545140134 k)   Q = 10939058860032000 k^3
//   Ramanujan    R = (2k-1)(4k-3)(4k-1)   P =  R (1103 + 26390 k)           Q = 3073907232 k^3
//
// That of the Chudnovskys alternates.
//
// Each number's hash is the product of those of its factors, so a wrong product shows.
#pragma once

#include "splitting/leaf.h"

namespace orl {

/// What an end case makes: its name in exceptions, and the words that its buffer must hold.
struct PiEndCase {
  const char* function;
  u64 words;
};
/// The end cases of a term's numbers.
struct PiEndCases {
  PiEndCase R, P, Q;
};

/// One of the two series.
template <class W>
struct PiTerms {
  /// slope k + constant, or slope k - constant in R
  struct Linear {
    u64 slope, constant;
  };

  Linear R[3];
  Linear P;                ///< the factor of P beside R
  bool alternating;        ///< P has a minus besides
  u64 Q;                   ///< the factor of Q beside k^3
  u64 wide;                ///< first k at which a factor of R takes two words
  PiEndCases narrow_ends;  ///< while every linear factor fits a word
  PiEndCases wide_ends;    ///< from there on
  const char* leaf;        ///< the name of a range's end case in exceptions

  const char* rate;    ///< nats of precision per term
  const char* Q_nats;  ///< nats of Q per term, beside k^3
  double C;            ///< P(k)/Q(k) ~ C k
};

/// With 64-bit words the narrow end cases reach beyond any number of terms.
template <class W>
inline constexpr PiTerms<W> kChudnovskyTerms{
    .R = {{6, 5}, {2, 1}, {6, 1}},
    .P = {545140134, 13591409},
    .alternating = true,
    .Q = 10939058860032000,
    .wide = sizeof(W) == 4 ? 715827883 : 3074457345618258603,
    .narrow_ends = {{"Pi_Chudnovsky_BSR_End_R1()", 3},
                    {"Pi_Chudnovsky_BSR_End_P1()", 5},
                    {"Pi_Chudnovsky_BSR_End_Q1()", sizeof(W) == 8 ? 4 : 5}},
    .wide_ends = {{"Pi_Chudnovsky_BSR_End_PR2()", 6},
                  {"Pi_Chudnovsky_BSR_End_PR2()", 9},
                  {"Pi_Chudnovsky_BSR_End_Q2()", 8}},
    .leaf = "Pi_Chudnovsky_BSR_End()",
    .rate = "32.65445004176851599077913804969300490729",
    .Q_nats = "36.93111616078457130182132488791258602081",
    .C = 3.59e-6,
};

/// The rate is lower than ln(9801^2) in the sixth decimal, as it was given: a few terms more than the sum needs.
template <class W>
inline constexpr PiTerms<W> kRamanujanTerms{
    .R = {{2, 1}, {4, 3}, {4, 1}},
    .P = {26390, 1103},
    .alternating = false,
    .Q = 3073907232,
    .wide = sizeof(W) == 4 ? 1073741825 : 4611686018427387905,
    .narrow_ends = {{"Pi_Ramanujan_BSR_End_R1()", 3},
                    {"Pi_Ramanujan_BSR_End_P1()", 5},
                    {"Pi_Ramanujan_BSR_End_Q1()", 4}},
    .wide_ends = {{"Pi_Ramanujan_BSR_End_R2()", 6},
                  {"Pi_Ramanujan_BSR_End_P2()", 9},
                  {"Pi_Ramanujan_BSR_End_Q2()", 7}},
    .leaf = "Pi_Ramanujan_BSR_End()",
    .rate = "18.38047627747241588639166145022043732094",
    .Q_nats = "21.84621530333808625449589681453160567684",
    .C = 2.75e-4,
};

/// Longest number of one term.
template <class W>
inline constexpr u64 kPiTermWords = sizeof(W) == 4 ? 9 : 5;

/// Term k >= 1: R, then P from R, then Q. Throws BufferTooSmallException under the name of the end case.
template <class W>
void make_pi_term(const PiTerms<W>& terms, u64 k, LeafNode<W>& out);

}  // namespace orl
