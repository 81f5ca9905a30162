// Addition and subtraction of numbers that do not line up.
#pragma once

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

inline constexpr u64 kAdditionBuffer = 128;  ///< words of either stack buffer of a pass

/// The words of a number: T[0, L) at exponents [exp, exp + L), zeros elsewhere.
template <class W>
struct WordWindow {
  const W* T;
  u64 L;
  s64 exp;

  s64 end() const { return exp + static_cast<s64>(L); }
};

/// T[0, n) = the words of a + b at exponents [bottom, bottom + n); what lies below is left out, with its
/// carry. Returns the carry out of the top. T overlaps neither operand. Forks above 4096 words.
template <class W>
W windowed_add(W* T, s64 bottom, u64 n, const WordWindow<W>& a, const WordWindow<W>& b,
               ParallelContext parallel);
/// windowed_add() of a - b; returns the borrow.
template <class W>
W windowed_sub(W* T, s64 bottom, u64 n, const WordWindow<W>& a, const WordWindow<W>& b,
               ParallelContext parallel);

}  // namespace orl
