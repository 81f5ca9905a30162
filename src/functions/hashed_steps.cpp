#include "functions/hashed_steps.h"

#include <algorithm>
#include <bit>

#include "words/hash.h"
#include "words/words.h"

namespace orl {

template <class W>
HashedView<W> top_hashed(const Hashed<BigFloat<W>>& x, u64 words, ParallelContext parallel) {
  const u64 below = hash_of(words_below(x.number, words), parallel);
  return {top_words(x.number, words), hash_canon(hash_sub(hash_canon(x.hash), below))};
}

template <class W>
void cut_hashed(BigFloat<W>& x, u64& hash, u64 p, ParallelContext parallel) {
  hash = top_hashed<W>({x, hash}, p + kBigFloatExtraPrecision, parallel).hash;
  x.truncate(p);
}

template <class W>
u64 set_padded(BigFloat<W>& out, u64 p, const Hashed<BigFloat<W>>& x, ParallelContext parallel) {
  const u64 words = p + kBigFloatExtraPrecision;
  const HashedView<W> top = top_hashed(x, words, parallel);
  if (out.size < words) throw BufferTooSmallException("set_padded()", out.size, words);
  const u64 zeros = words - top.number.L;
  out.T = out.base;
  out.L = words;
  out.exp = top.number.exp - static_cast<s64>(zeros);
  out.sign = top.number.sign;
  bp_fill(out.T, zeros, 0, parallel);
  bp_copy(out.T + zeros, top.number.T, top.number.L, parallel);
  return top.hash;
}

template <class W>
void add_below(BigFloat<W>& x, u64& x_hash, const Hashed<BigFloat<W>>& c, ParallelContext parallel) {
  const s64 words = c.number.magnitude() - x.exp;
  if (c.number.L == 0 || words <= 0) return;
  const HashedView<W> used = top_hashed(c, static_cast<u64>(words), parallel);
  x_hash = hash_canon(hash_add(hash_canon(x_hash), used.hash));
  add_below(x, used.number, parallel);
}

template <class W>
void subtract_below(BigFloat<W>& x, u64& x_hash, const Hashed<BigFloat<W>>& c, ParallelContext parallel) {
  const s64 words = c.number.magnitude() - x.exp;
  if (c.number.L == 0 || words <= 0) return;
  const HashedView<W> used = top_hashed(c, static_cast<u64>(words), parallel);
  const BigFloat<W>& y = used.number;
  x_hash = hash_canon(hash_sub(hash_canon(x_hash), used.hash));
  const u64 from = static_cast<u64>(y.exp - x.exp), end = from + y.L;
  W borrow = end > x.L ? W{1} : bp_sub(x.T + from, x.T + from, y.T, y.L, 0, parallel);
  if (borrow != 0 && end < x.L) borrow = bp_carry<W>(-1, x.T + end, x.L - end, parallel) != 0;
  // The numbers are right in exact arithmetic, so a word of them has changed.
  if (borrow != 0)
    throw AlgorithmFailedException("subtract_below()", "Checksum Mismatch. Subtraction failed.");
  x.strip_top_zeros(parallel);
}

template <class W>
void halve_hashed(BigFloat<W>& x, u64& hash, ParallelContext parallel) {
  constexpr u64 kHashOfHalf = u64{1} << 60;  // 2 is the inverse of 2^60 modulo 2^61 - 1
  x.mp2(-1, parallel);
  hash = hash_canon(hash_mul(hash, kHashOfHalf));
}

template <class W>
u64 subtract_hashed(BigFloat<W>& out, u64 p, const Hashed<BigFloat<W>>& a, const Hashed<BigFloat<W>>& b,
                    ParallelContext parallel) {
  const s64 bottom = std::max(a.number.exp, b.number.exp);
  const auto above_bottom = [&](const Hashed<BigFloat<W>>& x) {
    return top_hashed(x, static_cast<u64>(std::max<s64>(x.number.magnitude() - bottom, 0)), parallel);
  };
  const HashedView<W> x = above_bottom(a), y = above_bottom(b);
  u64 hash = hash_canon(hash_sub(x.hash, y.hash));
  const s64 top = std::max(x.number.magnitude(), y.number.magnitude());
  out.set_sub(static_cast<u64>(top - bottom), x.number, y.number, parallel);
  cut_hashed(out, hash, p, parallel);
  return hash;
}

// r = a - b down to the word read last, in its units, so the whole difference is less than a unit away from
// it. From |r| = 2 on the top of the difference is known but for one place; r cannot become 0 again.
template <class W>
u64 agreeing_bits(const BigFloat<W>& a, const BigFloat<W>& b) {
  const s64 top = std::max(a.magnitude(), b.magnitude()), bottom = std::min(a.exp, b.exp);
  s128 r = 0;
  s64 e = top;
  while (e > bottom && r <= 1 && r >= -1) {
    --e;
    r = (r << (8 * sizeof(W))) + a.word_at(e) - b.word_at(e);
  }
  if (r == 0) return ~u64{0};
  u128 most = static_cast<u128>(r < 0 ? -r : r) + 1;
  s64 bits = 0;
  for (; most != 0; most >>= 1) ++bits;
  const s64 difference_top = e * static_cast<s64>(8 * sizeof(W)) + bits;
  const s64 a_top = std::max(a.bit_length(), b.bit_length());
  return a_top > difference_top ? static_cast<u64>(a_top - difference_top) : 0;
}

#define ORVANE_INSTANTIATE(W)                                                                             \
  template HashedView<W> top_hashed(const Hashed<BigFloat<W>>&, u64, ParallelContext);                    \
  template void cut_hashed(BigFloat<W>&, u64&, u64, ParallelContext);                                     \
  template u64 set_padded(BigFloat<W>&, u64, const Hashed<BigFloat<W>>&, ParallelContext);                \
  template void add_below(BigFloat<W>&, u64&, const Hashed<BigFloat<W>>&, ParallelContext);               \
  template void subtract_below(BigFloat<W>&, u64&, const Hashed<BigFloat<W>>&, ParallelContext);          \
  template void halve_hashed(BigFloat<W>&, u64&, ParallelContext);                                        \
  template u64 subtract_hashed(BigFloat<W>&, u64, const Hashed<BigFloat<W>>&, const Hashed<BigFloat<W>>&, \
                               ParallelContext);                                                          \
  template u64 agreeing_bits(const BigFloat<W>&, const BigFloat<W>&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
