#include "functions/residual.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/status.h"
#include "functions/newton_steps.h"
#include "memory/sizing_arena.h"
#include "multiply/algorithm_table.h"
#include "multiply/ring_check.h"
#include "multiply/transform_words.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr u64 kGuardWords = 4;
constexpr u64 kResidualWords = 6;  // beyond p

/// `words` or one more: W^n is 1 modulo 2^61 - 1 when 61 divides n, and then a hash does not see what the ring folds.
constexpr u64 hashed_ring(u64 words) { return words % 61 == 0 ? words + 1 : words; }

/// P[0, n) += A[0, L) * W^at modulo W^n - 1.
template <class W>
void add_wrapped(W* P, u64 n, u64 at, const W* A, u64 L, ParallelContext parallel) {
  while (L > 0) {
    const u64 from = at % n, count = std::min(L, n - from);
    std::make_signed_t<W> carry = bp_add(P + from, P + from, A, count, 0, parallel) != 0;
    carry = bp_carry<W>(carry, P + from + count, n - from - count, parallel);
    while (carry != 0) carry = bp_carry<W>(carry, P, n, parallel);
    A += count;
    L -= count;
    at = from + count;
  }
}

/// Whether R[0, n), modulo W^n - 1, is a number of at most `words` words with this hash, or the negative of one. R is lost.
template <class W>
bool is_small(W* R, u64 n, u64 words, u64 hash, ParallelContext parallel) {
  u64 L = bp_strip<W>(0, R, n, parallel);
  const bool negative = L > words;
  if (negative) {
    L = bp_strip<W>(static_cast<W>(~W{0}), R, n, parallel);
    if (L > words) return false;
    bp_not(R, R, L, parallel);
  }
  const u64 magnitude = bp_hash<W>(0, R, L, parallel);
  return hash_canon(negative ? hash_sub(0, magnitude) : magnitude) == hash_canon(hash);
}

/// Whether x * W^e is 1, as far as a double tells.
template <class W>
bool is_one(double x, s64 e) {
  return std::abs(e) <= 3 && std::fabs(std::ldexp(x, static_cast<int>(e) * int{8 * sizeof(W)}) - 1) < 0x1p-40;
}

template <class W>
inline constexpr u64 kHalfWords = sizeof(W) / sizeof(u32);
template <class W>
const u32* u32_words(const W* words) {
  return reinterpret_cast<const u32*>(words);
}
template <class W>
u32* u32_words(W* words) {
  return reinterpret_cast<u32*>(words);
}

template <class W>
u64 whole_words(u64 words_u32) {
  return words_u32 * sizeof(u32) % sizeof(W) == 0 ? words_u32 * sizeof(u32) / sizeof(W) : 0;
}

}  // namespace

template <class W>
Residual<BigFloat<W>>::Residual(ResidualOf kind, u64 p, u64 tds)
    : p_(p), n_(hashed_ring(p + kResidualWords + kGuardWords)) {
  const u64 word_bits = 8 * sizeof(W);
  ParametersBox box;
  const Parameters& shape = basic_table<W>().parameters_for(box, nullptr, n_, tds, ShapeChoice::kLean);
  MultiplySizes sizes = shape.sizes();
  if (const u64 ring = whole_words<W>(shape.cyclic_words()); ring >= n_ && ring == hashed_ring(ring)) {
    need_.table_bits = n_ * word_bits;
    n_ = ring;
    areas_ = kind == ResidualOf::kSquare ? 1 : 2;
  } else {
    half_ = (n_ + 1) / 2;
    need_.table_bits = 2 * half_ * word_bits;
    sizes = basic_table<W>().sizes(2 * half_, tds);
  }
  need_.ram_bytes = layout_bytes([&](auto& arena) { lay_out(arena, sizes); });
}

template <class W>
template <class Arena>
typename Residual<BigFloat<W>>::Areas Residual<BigFloat<W>>::lay_out(Arena& arena,
                                                                     const MultiplySizes& sizes) const {
  Areas areas{};
  if (half_ != 0 || areas_ == 1) areas.product = arena.template cut<W>(n_);
  if (half_ != 0) areas.part = arena.template cut<W>(2 * half_);
  for (u64 i = 0; i < areas_; ++i) areas.transforms[i] = arena.template cut<u8>(sizes.transform_bytes);
  areas.tmp = arena.template cut<u8>(sizes.scratch_bytes);
  return areas;
}

template <class W>
W* Residual<BigFloat<W>>::product_of_shape(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                           LinearHeapBuffer heap) const {
  ParametersBox box;
  const Parameters& shape = basic_table<W>().parameters_for(
      box, &ctx.tables, hashed_ring(p_ + kResidualWords + kGuardWords), ctx.parallel.tds, ShapeChoice::kLean);
  const Areas areas = lay_out(heap, shape.sizes());
  void *const F = areas.transforms[0], *const tmp = areas.tmp;
  RingCheck check(kHalfWords<W> * n_);
  check.take(u32_words(x.T), kHalfWords<W> * x.L, ctx.parallel);
  shape.wrapped()->forward_cyclic(F, Words<W>{x.T, x.L}, tmp, ctx.parallel);
  if (areas_ == 1) {
    W* const own = areas.product;
    check.square();
    shape.wrapped()->pointwise_cyclic(F, F, u32_words(own), tmp, ctx.parallel);
    fault_point("residual product", own, n_ * sizeof(W));
    check.compare(u32_words(own), false, "Residual::run()", ctx.parallel);
    return own;
  }
  void* const G = areas.transforms[1];
  W* const P = static_cast<W*>(G);
  check.multiply(u32_words(y.T), kHalfWords<W> * y.L, ctx.parallel);
  shape.wrapped()->forward_cyclic(G, Words<W>{y.T, y.L}, tmp, ctx.parallel);
  shape.wrapped()->pointwise_cyclic(F, G, u32_words(P), tmp, ctx.parallel);
  fault_point("residual product", P, n_ * sizeof(W));
  check.compare(u32_words(P), false, "Residual::run()", ctx.parallel);
  return P;
}

template <class W>
W* Residual<BigFloat<W>>::product_in_halves(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                            LinearHeapBuffer heap) const {
  ParametersBox box;
  const Parameters& shape = basic_table<W>().parameters_for(box, &ctx.tables, 2 * half_, ctx.parallel.tds);
  const Areas areas = lay_out(heap, shape.sizes());
  void *const F = areas.transforms[0], *const G = areas.transforms[1];
  bp_fill(areas.product, n_, 0, ctx.parallel);
  for (u64 j = 0; j < y.L; j += half_) {
    const u64 y_words = std::min(half_, y.L - j);
    shape.forward(G, Words<W>{y.T + j, y_words}, areas.tmp, ctx.parallel);
    for (u64 i = 0; i < x.L; i += half_) {
      const u64 words = std::min(half_, x.L - i);
      shape.forward(F, Words<W>{x.T + i, words}, areas.tmp, ctx.parallel);
      shape.inverse_fmul(F, G, Window<W>{areas.part, 0, words + y_words}, areas.tmp, ctx.parallel);
      add_wrapped(areas.product, n_, i + j, areas.part, words + y_words, ctx.parallel);
    }
  }
  fault_point("residual product", areas.product, n_ * sizeof(W));
  return areas.product;
}

/// x * y modulo W^n - 1, relative to the sum of their exponents.
template <class W>
BigFloat<W> Residual<BigFloat<W>>::wrapped_product(const RunContext& ctx, const BigFloat<W>& x,
                                                   const BigFloat<W>& y, LinearHeapBuffer heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("Residual::run()", heap.size, need_.ram_bytes);
  BigFloat<W> product(half_ == 0 ? product_of_shape(ctx, x, y, heap) : product_in_halves(ctx, x, y, heap),
                      n_);
  product.L = n_;
  product.exp = x.exp + y.exp;
  return product;
}

/// Whether w x y is `ideal` but for less than W^(magnitude of ideal - p).
template <class W>
bool Residual<BigFloat<W>>::leaves_little(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                          W w, const BigFloat<W>& ideal, LinearHeapBuffer heap) const {
  const StatusFrame status(ctx.status, "Verify");
  if (x.L == 0 || y.L == 0) return false;
  // The leading bits, which the ring may fold onto the lowest words.
  s64 x_exp = 0, y_exp = 0, ideal_exp = 0;
  const double product_top = x.to_double(&x_exp) * y.to_double(&y_exp) * static_cast<double>(w);
  const double leading = product_top / ideal.to_double(&ideal_exp);
  const s64 above = x_exp + y_exp - ideal_exp;
  if (!is_one<W>(leading, above)) return false;

  const BigFloat<W> product = wrapped_product(ctx, x, y, heap);
  if (w != 1) {
    const W carry = bp_mul_uW(product.T, product.T, n_, w, 0, ctx.parallel);
    add_wrapped(product.T, n_, 0, &carry, 1, ctx.parallel);
  }
  // What the ideal value has below the product is less than the bound.
  BigFloat<W> used = ideal;
  if (used.exp < product.exp)
    used = top_words(ideal, ideal.L - std::min(ideal.L, static_cast<u64>(product.exp - ideal.exp)));
  const u64 x_hash = bp_hash<W>(0, x.T, x.L, ctx.parallel);
  const u64 y_hash = x.T == y.T ? x_hash : bp_hash<W>(0, y.T, y.L, ctx.parallel);
  const u64 used_hash =
      hash_mul(bp_hash<W>(0, used.T, used.L, ctx.parallel), hash_word_pow<W>(used.exp - product.exp));
  const u64 hash = hash_sub(used_hash, hash_mul(w, hash_mul(x_hash, y_hash)));
  bp_not(product.T, product.T, n_, ctx.parallel);
  add_wrapped(product.T, n_, static_cast<u64>(used.exp - product.exp), used.T, used.L, ctx.parallel);
  const bool power = ideal.L == 1 && ideal.T[0] == 1;
  const s64 magnitude = power ? ideal.exp : ideal.magnitude();
  const s64 words = std::max<s64>(magnitude - static_cast<s64>(p_) - product.exp, 1);
  return is_small(product.T, n_, static_cast<u64>(words), hash, ctx.parallel);
}

template <class W>
void Residual<BigFloat<W>>::check_quotient(const RunContext& ctx, const BigFloat<W>& q, const BigFloat<W>& a,
                                           const BigFloat<W>& b, LinearHeapBuffer heap) const {
  if (!leaves_little(ctx, top_words(q, p_ + 2), top_words(b, p_ + 3), 1, top_words(a, p_ + 3), heap))
    throw AlgorithmFailedException("Division_BigFloatR<wtype>::run()",
                                   "Residual is too large. Division failed.");
}

template <class W>
void Residual<BigFloat<W>>::check_square_root(const RunContext& ctx, const BigFloat<W>& b,
                                              const BigFloat<W>& a, LinearHeapBuffer heap) const {
  const BigFloat<W> root = top_words(b, p_ + 2);
  if (!leaves_little(ctx, root, root, 1, top_words(a, p_ + 3), heap))
    throw AlgorithmFailedException("SqrtFloat_BigFloatR::run()",
                                   "Residual is too large. Square root failed.");
}

namespace {

template <class W>
struct One {
  W word = 1;
  BigFloat<W> number{&word, 1};
  One() { number.L = 1, number.sign = 1; }
};

}  // namespace

template <class W>
void Residual<BigFloat<W>>::check_inverse_root(const RunContext& ctx, const BigFloat<W>& root, W w,
                                               LinearHeapBuffer heap) const {
  const BigFloat<W> y = top_words(root, p_ + 2);
  if (y.signum() <= 0 || !leaves_little(ctx, y, y, w, One<W>().number, heap))
    throw AlgorithmFailedException("InvsqrtWord_BigFloatR::run()",
                                   "Residual is too large. Inverse root failed.");
}

template <class W>
void Residual<BigFloat<W>>::check_inverse_root(const RunContext& ctx, const BigFloat<W>& y,
                                               const BigFloat<W>& b, LinearHeapBuffer heap) const {
  if (y.signum() <= 0 ||
      !leaves_little(ctx, top_words(y, p_ + 2), top_words(b, p_ + 3), 1, One<W>().number, heap))
    throw AlgorithmFailedException("InvsqrtFloat_BigFloatR::run()",
                                   "Residual is too large. Inverse root failed.");
}

template class Residual<BigFloat<u32>>;
template class Residual<BigFloat<u64>>;

}  // namespace orl
