// Small steps on exact numbers that carry their hash with them.
#pragma once

#include "core/fault_point.h"
#include "numbers/exact_float.h"

namespace orl {

/// Keeps the top `words` words of x. The hash is reduced by that of the words that go, so that what it proves
/// still comes from the operands.
template <class W>
void cut_exact(ExactFloat<W>& x, u64 words, ParallelContext parallel);

/// x += y or x -= y, in x's buffer. Words of y below the lowest of x are cut off y: where numbers have been
/// cut, they are no more than x has lost already; exact numbers have none.
template <class W>
void add_exact(ExactFloat<W>& x, ExactFloat<W>& y, bool subtract, ParallelContext parallel);

/// Moves x's words to `place`, which may overlap them, and binds x to `capacity` words there.
template <class W>
void move_exact(ExactFloat<W>& x, W* place, u64 capacity, ParallelContext parallel);

/// Shows the words of a number in RAM to the fault seam.
template <class Number>
void show_fault_point(const char* site, const Number& x) {
  if (x.L > 0) fault_point(site, x.T, x.L * sizeof(*x.T));
}

}  // namespace orl
