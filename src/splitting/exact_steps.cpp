#include "splitting/exact_steps.h"

#include <cstring>

#include "core/exceptions.h"
#include "words/words.h"

namespace orl {

template <class W>
void cut_exact(ExactFloat<W>& x, u64 words, ParallelContext parallel) {
  if (x.L <= words) return;
  const u64 drop = x.L - words;
  const u64 gone = hash_mul(bp_hash<W>(0, x.T, drop, parallel), hash_word_pow<W>(x.exp));
  x.hash = x.sign ? hash_sub(x.hash, gone) : hash_add(x.hash, gone);
  x.T += drop;
  x.L = words;
  x.exp += static_cast<s64>(drop);
}

template <class W>
void add_exact(ExactFloat<W>& x, ExactFloat<W>& y, bool subtract, ParallelContext parallel) {
  if (x.L > 0 && y.L > 0 && y.exp < x.exp) {
    const s64 words = y.magnitude() - x.exp;
    cut_exact(y, words > 0 ? static_cast<u64>(words) : 0, parallel);
    if (y.L == 0) y.set_zero();
  }
  if (subtract)
    x.sub_ip(y, parallel);
  else
    x.add_ip(y, parallel);
}

template <class W>
void move_exact(ExactFloat<W>& x, W* place, u64 capacity, ParallelContext parallel) {
  if (capacity < x.L) throw BufferTooSmallException("move_exact()", capacity, x.L);
  if (place != x.T) {
    // Words that are written before they are read would be lost to a task that comes later.
    const bool apart = place + x.L <= x.T || x.T + x.L <= place;
    if (apart)
      bp_copy(place, x.T, x.L, parallel);
    else
      std::memmove(place, x.T, x.L * sizeof(W));
  }
  x.T = x.base = place;
  x.size = capacity;
}

#define ORVANE_INSTANTIATE(W)                                                     \
  template void cut_exact(ExactFloat<W>&, u64, ParallelContext);                  \
  template void add_exact(ExactFloat<W>&, ExactFloat<W>&, bool, ParallelContext); \
  template void move_exact(ExactFloat<W>&, W*, u64, ParallelContext);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
