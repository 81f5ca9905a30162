// The series of Euler's constant, and how many of their terms a precision takes.
//
// With n = 2^e, N = n^2 and H_k = 1 + 1/2 + .. + 1/k:
//
//   A = sum of H_k N^k / k!^2     B = sum of N^k / k!^2     C = 1/(4 n) sum of (2k)!^3 / (k!^4 (16 n)^(2k)),   k >= 0
//
//   original   gamma = A/B - e ln 2             error below Pi e^(-4n)
//   refined    gamma = A/B - C/B^2 - e ln 2     error below 24 e^(-8n), with 2 n terms of C
//
// Terms    A and B up to the first one that is e^-D of their sum, where D nats are the precision and kGuardBits; C up
//          to the first one that is e^-(D - 4n) of it, since C / B^2 is about Pi e^(-4n). No term of C is needed where
//          D is at most 4 n.
// Source   R. P. Brent, E. M. McMillan, 1980 (splitting/brent_mcmillan.h). Bound of the error: R. P. Brent,
//          F. Johansson, "A bound for the error term in the Brent-McMillan algorithm", Math. Comp. 84, 2015.
#pragma once

#include <memory>
#include <string>

#include "splitting/brent_mcmillan.h"
#include "splitting/series.h"
#include "splitting/term_series.h"

namespace orl {

/// Whose formula.
enum class EulerVariant { kRefined, kOriginal };

/// The smallest e that serves a precision of p words of so many bits.
u32 euler_exponent(EulerVariant variant, u64 p, u32 word_bits);
/// Empty when n = 2^e serves such a precision. Else why not, and the smallest or largest e that is taken: beyond it a
/// run would have more than 16 times the terms that it needs, and millions.
std::string refused_euler_exponent(EulerVariant variant, u64 e, u64 p, u32 word_bits);

/// The terms of A and B for p words and n = 2^e: kind BrentMcMillanAB, whose D, T and V at the range of all terms give
/// B = (D^2 + N T) / D^2 and A = N V / D^3.
template <class W>
std::unique_ptr<const Series<W>> make_euler_AB(u32 e, u64 p);

/// The words to which C / B^2 is needed for p words; 0 where it is not.
template <class W>
u64 euler_C_words(u32 e, u64 p);
/// The terms k >= 1 of C for a precision p at which euler_C_words() is not 0: of 4 n C, from which 1 is taken off.
template <class W>
std::unique_ptr<const Series<W>> make_euler_C(u32 e, u64 p);

}  // namespace orl
