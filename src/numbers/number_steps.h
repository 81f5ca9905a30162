// Steps that the number types share: each is a number's words T[0, L) in a buffer [base, base + size), with a sign and,
// but for BigInt, an exponent.
#pragma once

#include "words/capacity.h"
#include "words/words.h"

namespace orl {

/// A result before its words are written.
struct Placement {
  u64 L;
  s64 exp;
  u8 sign;
  u64 spare = 0;  ///< words that the buffer must hold above the L, for a carry
};

/// Places x at the start of its buffer. Throws BufferTooSmallException under `function`, with x untouched.
template <class Number>
void place(Number& x, const char* function, const Placement& at) {
  require_capacity(function, x.size, at.L + at.spare);
  x.T = x.base;
  x.L = at.L;
  x.exp = at.exp;
  x.sign = at.sign;
}

/// Throws BufferTooSmallException under `function` unless there is a free word above the top of x.
template <class Number>
void require_free_word(const char* function, const Number& x) {
  require_capacity(function, x.size, static_cast<u64>(x.T - x.base) + x.L + 1);
}

/// The words of x times w, in place.
template <class Number, class W>
void multiply_words(Number& x, const char* function, W w, ParallelContext parallel) {
  require_free_word(function, x);
  const W carry = bp_mul_uW(x.T, x.T, x.L, w, 0, parallel);
  if (carry != 0) x.T[x.L++] = carry;
}

/// Adds w at index `at` <= L, in place.
template <class Number, class W>
void add_word(Number& x, const char* function, W w, u64 at) {
  require_free_word(function, x);
  if (at == x.L) {
    x.T[x.L++] = w;
    return;
  }
  x.T[at] = static_cast<W>(x.T[at] + w);
  if (x.T[at] >= w) return;
  if (bp_carry<W>(1, x.T + at + 1, x.L - at - 1) != 0) x.T[x.L++] = 1;
}

/// Drops zero words at the bottom of x, in multiples of `multiple`, a power of two.
template <class Number>
void drop_low_zeros(Number& x, u64 multiple) {
  if (x.L == 0) return;
  u64 zeros = 0;
  while (x.T[zeros] == 0) ++zeros;
  zeros &= ~(multiple - 1);
  x.T += zeros;
  x.L -= zeros;
  x.exp += static_cast<s64>(zeros);
}

}  // namespace orl
