#include "functions/residual.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/newton_steps.h"
#include "multiply/algorithm_table.h"
#include "multiply/product_areas.h"
#include "multiply/transform_words.h"
#include "words/words.h"

// Bounds. q keeps p + 2 words, b and a are cut to p + 3, all relative errors are below c W^-(p+1) with c far
// below W, so |a - q b| < W^(magnitude of a - p). The lowest words of the product lie at the sum of the two
// exponents, which leaves at most p + 6 words for the residual; 1 - w y^2 in the same way.

namespace orl {
namespace {

constexpr u64 kGuardWords = 4;
constexpr u64 kResidualWords = 6;  // beyond p

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

/// Whether R[0, n) is a number of at most `words` words, or the negative of one, modulo W^n - 1.
template <class W>
bool is_small(const W* R, u64 n, u64 words, ParallelContext parallel) {
  return bp_strip<W>(0, R, n, parallel) <= words ||
         bp_strip<W>(static_cast<W>(~W{0}), R, n, parallel) <= words;
}

/// Whether x * W^e is 1, as far as a double tells.
template <class W>
bool is_one(double x, s64 e) {
  return std::abs(e) <= 3 && std::fabs(std::ldexp(x, static_cast<int>(e) * int{8 * sizeof(W)}) - 1) < 0x1p-40;
}

template <class W>
u64 whole_words(u64 words_u32) {
  return words_u32 * sizeof(u32) % sizeof(W) == 0 ? words_u32 * sizeof(u32) / sizeof(W) : 0;
}

}  // namespace

template <class W>
Residual<W>::Residual(Of kind, u64 p, u64 tds) : p_(p), n_(p + kResidualWords + kGuardWords) {
  const u64 word_bits = 8 * sizeof(W);
  ParametersBox box;
  const Parameters& shape = basic_table<W>().parameters_for(box, nullptr, n_, tds);
  u64 ring_bytes = 0, product_bytes = 0;
  if (const u64 ring = whole_words<W>(shape.cyclic_words()); ring >= n_) {
    need_.table_bits = n_ * word_bits;
    n_ = ring;
    areas_ = kind == Of::kInverseRoot ? 1 : 2;
    product_bytes = areas_ * shape.transform_size() + shape.scratch_size();
    if (areas_ == 1) ring_bytes = LinearHeapBuffer::cut_bytes<W>(n_);
  } else {
    half_ = (n_ + 1) / 2;
    need_.table_bits = 2 * half_ * word_bits;
    ring_bytes = LinearHeapBuffer::cut_bytes<W>(n_);
    product_bytes =
        LinearHeapBuffer::cut_bytes<W>(2 * half_) + basic_table<W>().sizes(2 * half_, tds).total_bytes();
  }
  need_.ram_bytes = ring_bytes + LinearHeapBuffer::cut_bytes<u8>(product_bytes);
}

// Of two transforms the second makes room for the product.
template <class W>
W* Residual<W>::product_of_shape(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                 LinearHeapBuffer heap) const {
  W* P = areas_ == 1 ? heap.cut<W>(n_) : nullptr;
  const auto u32_words = [](const W* words) { return reinterpret_cast<const u32*>(words); };
  const u64 ratio = sizeof(W) / sizeof(u32);
  ParametersBox box;
  const Parameters& shape =
      basic_table<W>().parameters_for(box, &ctx.tables, p_ + kResidualWords + kGuardWords, ctx.parallel.tds);
  void* areas[2];
  void* tmp = cut_product_areas(heap, shape.sizes(), areas, areas_, "Residual::run()");
  shape.forward_cyclic(areas[0], u32_words(x.T), ratio * x.L, tmp, ctx.parallel);
  if (areas_ == 1) {
    areas[1] = areas[0];
  } else {
    shape.forward_cyclic(areas[1], u32_words(y.T), ratio * y.L, tmp, ctx.parallel);
    P = static_cast<W*>(areas[1]);
  }
  shape.pointwise_cyclic(areas[0], areas[1], reinterpret_cast<u32*>(P), tmp, ctx.parallel);
  return P;
}

template <class W>
W* Residual<W>::product_in_halves(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                  LinearHeapBuffer heap) const {
  W* P = heap.cut<W>(n_);
  W* part = heap.cut<W>(2 * half_);
  ParametersBox box;
  const Parameters& shape = basic_table<W>().parameters_for(box, &ctx.tables, 2 * half_, ctx.parallel.tds);
  void* areas[2];
  void* tmp = cut_product_areas(heap, shape.sizes(), areas, 2, "Residual::run()");
  bp_fill(P, n_, 0, ctx.parallel);
  for (u64 j = 0; j < y.L; j += half_) {
    const u64 y_words = std::min(half_, y.L - j);
    forward_words(shape, areas[1], y.T + j, y_words, tmp, ctx.parallel);
    for (u64 i = 0; i < x.L; i += half_) {
      const u64 words = std::min(half_, x.L - i);
      forward_words(shape, areas[0], x.T + i, words, tmp, ctx.parallel);
      inverse_words(shape, areas[0], areas[1], part, 0, words + y_words, tmp, ctx.parallel);
      add_wrapped(P, n_, i + j, part, words + y_words, ctx.parallel);
    }
  }
  return P;
}

/// x * y modulo W^n - 1, relative to the sum of their exponents.
template <class W>
BigFloat<W> Residual<W>::wrapped_product(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                                         LinearHeapBuffer heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("Residual::run()", heap.size, need_.ram_bytes);
  BigFloat<W> product(half_ == 0 ? product_of_shape(ctx, x, y, heap) : product_in_halves(ctx, x, y, heap),
                      n_);
  product.L = n_;
  product.exp = x.exp + y.exp;
  return product;
}

template <class W>
void Residual<W>::check_quotient(const RunContext& ctx, const BigFloat<W>& quotient, const BigFloat<W>& a,
                                 const BigFloat<W>& b, LinearHeapBuffer heap) const {
  const StatusFrame status(ctx.status, "Verify");
  const BigFloat<W> q = top_words(quotient, p_ + 2), divisor = top_words(b, p_ + 3);
  BigFloat<W> dividend = top_words(a, p_ + 3);
  const s64 magnitude = dividend.magnitude();
  // The leading bits, which the ring may fold onto the lowest words.
  s64 q_exp = 0, b_exp = 0, a_exp = 0;
  const double leading =
      q.L == 0 ? 0 : q.to_double(&q_exp) * divisor.to_double(&b_exp) / dividend.to_double(&a_exp);
  bool right = is_one<W>(leading, q_exp + b_exp - a_exp);
  if (right) {
    const BigFloat<W> product = wrapped_product(ctx, q, divisor, heap);
    if (dividend.exp < product.exp) {
      const u64 below = std::min(dividend.L, static_cast<u64>(product.exp - dividend.exp));
      dividend = top_words(dividend, dividend.L - below);
    }
    bp_not(product.T, product.T, n_, ctx.parallel);
    const u64 at = static_cast<u64>(dividend.exp - product.exp);
    add_wrapped(product.T, n_, at, dividend.T, dividend.L, ctx.parallel);
    const s64 words = std::max<s64>(magnitude - static_cast<s64>(p_) - product.exp, 1);
    right = is_small(product.T, n_, static_cast<u64>(words), ctx.parallel);
  }
  if (!right)
    throw AlgorithmFailedException("Division_BigFloatR<wtype>::run()",
                                   "Residual is too large. Division failed.");
}

template <class W>
void Residual<W>::check_inverse_root(const RunContext& ctx, const BigFloat<W>& root, W w,
                                     LinearHeapBuffer heap) const {
  const StatusFrame status(ctx.status, "Verify");
  const BigFloat<W> y = top_words(root, p_ + 2);
  s64 exp = 0;
  const double leading = y.L == 0 ? 0 : y.to_double(&exp);
  bool right = y.exp <= 0 && leading > 0 && is_one<W>(leading * leading * static_cast<double>(w), 2 * exp);
  if (right) {
    const BigFloat<W> product = wrapped_product(ctx, y, y, heap);
    const W carry = bp_mul_uW(product.T, product.T, n_, w, 0, ctx.parallel);
    add_wrapped(product.T, n_, 0, &carry, 1, ctx.parallel);
    bp_not(product.T, product.T, n_, ctx.parallel);
    const W one = 1;
    add_wrapped(product.T, n_, static_cast<u64>(-product.exp), &one, 1, ctx.parallel);
    const s64 words = std::max<s64>(-static_cast<s64>(p_) - product.exp, 1);
    right = is_small(product.T, n_, static_cast<u64>(words), ctx.parallel);
  }
  if (!right)
    throw AlgorithmFailedException("InvsqrtWord_BigFloatR::run()",
                                   "Residual is too large. Inverse root failed.");
}

template class Residual<u32>;
template class Residual<u64>;

}  // namespace orl
