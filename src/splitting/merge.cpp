#include "splitting/merge.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "multiply/basecase.h"
#include "numbers/transform.h"
#include "splitting/verify.h"
#include "words/words.h"

namespace orl {
namespace {

// Products of up to this many words are made by the basecase on the stack: 5120 bits, where transforms begin
// to pay.
template <class W>
inline constexpr u64 kDirectWords = 640 / sizeof(W);

template <class W>
void direct_product(W* T, const ExactFloat<W>& a, const ExactFloat<W>& b) {
  constexpr u64 kScratchWords = 6 * kDirectWords<W>;
  if constexpr (sizeof(W) == 4) {
    if (mul_scratch<W>(a.L, b.L) <= kScratchWords * sizeof(W)) {
      W scratch[kScratchWords];
      return mul(T, a.T, a.L, b.T, b.L, scratch);
    }
  }
  mulB(T, a.T, a.L, b.T, b.L);  // in 64-bit words a direct product stays below Karatsuba
}

// x = a * b from a product that stands elsewhere.
template <class W>
void take_product(ExactFloat<W>& x, const W* product, const ExactFloat<W>& a, const ExactFloat<W>& b) {
  const u64 length = a.L + b.L - (product[a.L + b.L - 1] == 0);
  const u64 hash = hash_mul(a.hash, b.hash);
  const u8 sign = a.sign == b.sign;
  const s64 exp = a.exp + b.exp;
  if (x.size < length) throw BufferTooSmallException("merge_nodes()", x.size, length);
  bp_copy(x.base, product, length);
  x.T = x.base;
  x.L = length;
  x.exp = exp;
  x.sign = sign;
  x.hash = hash;
}

template <class W>
ExactFloat<W> bound_to(W* words, u64 capacity) {
  return ExactFloat<W>(words, capacity);
}

// All products into the stack first, since results may overlap operands.
template <class W>
void merge_direct(SeriesKind kind, bool subtract, SeriesNode<W>& left, SeriesNode<W>& right,
                  ParallelContext parallel) {
  W pq[kDirectWords<W>], qq[kDirectWords<W>], rp[kDirectWords<W> + 1], rr[kDirectWords<W>];
  direct_product(pq, left.P, right.Q);
  direct_product(qq, left.Q, right.Q);
  ExactFloat<W> t = bound_to(rp, kDirectWords<W> + 1);
  if (kind_has_R(kind)) {
    direct_product(rp, left.R, right.P);
    direct_product(rr, left.R, right.R);
    t.L = left.R.L + right.P.L;
    t.L -= rp[t.L - 1] == 0;
    t.exp = left.R.exp + right.P.exp;
    t.sign = left.R.sign == right.P.sign;
    t.hash = hash_mul(left.R.hash, right.P.hash);
    take_product(left.R, rr, left.R, right.R);
  } else {
    t.set_ExactFloat(right.P, parallel);
  }
  take_product(left.P, pq, left.P, right.Q);
  take_product(left.Q, qq, left.Q, right.Q);
  add_exact(left.P, t, subtract, parallel);
}

// c = a * b and d = a * e; either may lie over operands, d last.
template <class W>
void product_pair(const RunContext& ctx, ExactFloat<W>& c, const ExactFloat<W>& b, ExactFloat<W>& d,
                  const ExactFloat<W>& e, const ExactFloat<W>& a, LinearHeapBuffer scratch) {
  using Transform = ExactFloatTransformR<W>;
  const TransformHelper<W> helper(ctx.multiply(scratch), a.L + std::max(b.L, e.L));
  Transform kept;
  Transform::mul_rr_xf(helper, c, b, a, kept);
  Transform::mul_rf_xf(helper, d, e, kept);
}

template <class W>
void merge_by_transforms(SeriesKind kind, bool subtract, const RunContext& ctx, SeriesNode<W>& left,
                         SeriesNode<W>& right, LinearHeapBuffer scratch) {
  using Transform = ExactFloatTransformR<W>;
  ExactFloat<W> t;
  if (kind_has_R(kind)) {
    const u64 words = left.R.L + right.P.L;
    t = bound_to(scratch.cut<W>(words), words);
    if (shared_product_pays<W>(words, left.R.L + right.R.L, ctx.parallel.tds)) {
      product_pair(ctx, t, right.P, left.R, right.R, left.R, scratch);
    } else {
      Transform::mul_rr_xx(TransformHelper<W>(ctx.multiply(scratch), words), t, left.R, right.P);
      const u64 second = left.R.L + right.R.L;
      Transform::mul_rr_xx(TransformHelper<W>(ctx.multiply(scratch), second), left.R, left.R, right.R);
    }
  } else {
    t = bound_to(scratch.cut<W>(right.P.L), right.P.L);
    t.set_ExactFloat(right.P, ctx.parallel);
  }
  product_pair(ctx, left.P, left.P, left.Q, left.Q, right.Q, scratch);
  add_exact(left.P, t, subtract, ctx.parallel);
}

template <class W>
void show_node(const char* site, const SeriesNode<W>& node, SeriesKind kind) {
  show_fault_point(site, node.P);
  show_fault_point(site, node.Q);
  if (kind_has_R(kind)) show_fault_point(site, node.R);
}

}  // namespace

template <class W>
u64 merge_scratch(SeriesKind kind, u64 product_words, u64 right_words, u64 tds) {
  if (product_words <= kDirectWords<W>) return 0;
  return LinearHeapBuffer::cut_bytes<W>(kind_has_R(kind) ? product_words : right_words) +
         TransformHelper<W>::max_bytes(product_words, tds);
}

template <class W>
void merge_nodes(const Series<W>& series, u64 a, u64 m, u64 b, const RunContext& ctx, SeriesNode<W>& left,
                 SeriesNode<W>& right, LinearHeapBuffer scratch) {
  const SeriesKind kind = series.kind();
  const bool subtract = series.subtracts(a, m);
  show_node("merge operand", left, kind);
  show_node("merge operand", right, kind);
  const u64 longest = std::max(left.P.L, left.Q.L) + std::max(right.P.L, right.Q.L);
  const u64 words = kind_has_R(kind) ? std::max(longest, left.R.L + std::max(right.P.L, right.R.L)) : longest;
  if (words <= kDirectWords<W>)
    merge_direct(kind, subtract, left, right, ctx.parallel);
  else
    merge_by_transforms(kind, subtract, ctx, left, right, scratch);
  show_node("merge result", left, kind);
  verify_node(left, kind, a, b, ctx);
}

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
void show_fault_point(const char* site, const ExactFloat<W>& x) {
  if (x.L > 0) fault_point(site, x.T, x.L * sizeof(W));
}

#define ORVANE_INSTANTIATE(W)                                                                   \
  template u64 merge_scratch<W>(SeriesKind, u64, u64, u64);                                     \
  template void merge_nodes(const Series<W>&, u64, u64, u64, const RunContext&, SeriesNode<W>&, \
                            SeriesNode<W>&, LinearHeapBuffer);                                  \
  template void cut_exact(ExactFloat<W>&, u64, ParallelContext);                                \
  template void add_exact(ExactFloat<W>&, ExactFloat<W>&, bool, ParallelContext);               \
  template void show_fault_point(const char*, const ExactFloat<W>&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
