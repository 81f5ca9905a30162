#include "splitting/kind.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/basecase.h"
#include "numbers/transform.h"
#include "splitting/exact_steps.h"

namespace orl {
namespace {

// Products of up to this many words are made by the basecase on the stack: 5120 bits, where transforms begin
// to pay.
template <class W>
inline constexpr u64 kDirectWords = 640 / sizeof(W);

// a * b on the stack: `words` holds kDirectWords and one for the carry of a sum.
template <class W>
ExactFloat<W> direct_product(W* words, const ExactFloat<W>& a, const ExactFloat<W>& b) {
  constexpr u64 kScratchWords = 6 * kDirectWords<W>;
  ExactFloat<W> product(words, kDirectWords<W> + 1);
  if (a.L == 0 || b.L == 0) {
    product.set_zero();
    return product;
  }
  product.L = a.L + b.L;
  if (sizeof(W) == 4 && mul_scratch<W>(a.L, b.L) <= kScratchWords * sizeof(W)) {
    W scratch[kScratchWords];
    mul(words, a.T, a.L, b.T, b.L, scratch);
  } else {
    mulB(words, a.T, a.L, b.T, b.L);  // in 64-bit words a direct product stays below Karatsuba
  }
  product.L -= words[product.L - 1] == 0;
  product.exp = a.exp + b.exp;
  product.sign = a.sign == b.sign;
  product.hash = hash_mul(a.hash, b.hash);
  return product;
}

// A product with a factor that another product has too.
template <class W>
struct SharedProduct {
  ExactFloat<W>& result;
  const ExactFloat<W>& factor;
};

// Both products with a; either result may lie over operands, that of `second` last.
template <class W>
void product_pair(const RunContext& ctx, SharedProduct<W> first, SharedProduct<W> second,
                  const ExactFloat<W>& a, LinearHeapBuffer scratch) {
  using Transform = ExactFloatTransformR<W>;
  const TransformHelper<W> helper(ctx.multiply(scratch),
                                  a.L + std::max<u64>({first.factor.L, second.factor.L, 1}));
  Transform kept;
  Transform::mul_rr_xf(helper, first.result, first.factor, a, kept);
  Transform::mul_rf_xf(helper, second.result, second.factor, kept);
}

// c = a * b, over operands or not.
template <class W>
void single_product(const RunContext& ctx, ExactFloat<W>& c, const ExactFloat<W>& a, const ExactFloat<W>& b,
                    LinearHeapBuffer scratch) {
  const TransformHelper<W> helper(ctx.multiply(scratch), std::max<u64>(a.L + b.L, 1));
  ExactFloatTransformR<W>::mul_rr_xx(helper, c, a, b);
}

}  // namespace

template <class W>
u64 FractionKind<W>::merge_scratch(const NodeWords& product, const NodeWords& right, u64 tds) const {
  const u64 words = longest_of(product);
  if (words <= kDirectWords<W>) return 0;
  return LinearHeapBuffer::cut_bytes<W>(factor_ == kNone ? right[SeriesNode<W>::kP] : words) +
         TransformHelper<W>::max_bytes(words, tds);
}

template <class W>
void FractionKind<W>::merge(const RunContext& ctx, bool subtract, SeriesNode<W>& left,
                            const SeriesNode<W>& right, LinearHeapBuffer scratch) const {
  u64 words = std::max(left.P().L, left.Q().L) + std::max(right.P().L, right.Q().L);
  if (has_R()) words = std::max(words, left.R().L + std::max(right.P().L, right.R().L));
  if (words <= kDirectWords<W>)
    merge_direct(subtract, left, right, ctx.parallel);
  else
    merge_by_transforms(ctx, subtract, left, right, scratch);
}

// All products into the stack first, since results may overlap operands.
template <class W>
void FractionKind<W>::merge_direct(bool subtract, SeriesNode<W>& left, const SeriesNode<W>& right,
                                   ParallelContext parallel) const {
  W pq[kDirectWords<W> + 1], qq[kDirectWords<W> + 1], xp[kDirectWords<W> + 1], rr[kDirectWords<W> + 1];
  const ExactFloat<W> p = direct_product(pq, left.P(), right.Q());
  const ExactFloat<W> q = direct_product(qq, left.Q(), right.Q());
  ExactFloat<W> t(xp, kDirectWords<W> + 1);
  if (factor_ == kNone)
    t.set_ExactFloat(right.P(), parallel);
  else
    t = direct_product(xp, left[factor_], right.P());
  if (has_R()) {
    const ExactFloat<W> r = direct_product(rr, left.R(), right.R());
    left.R().set_ExactFloat(r, parallel);
  }
  left.P().set_ExactFloat(p, parallel);
  left.Q().set_ExactFloat(q, parallel);
  add_exact(left.P(), t, subtract, parallel);
}

template <class W>
void FractionKind<W>::merge_by_transforms(const RunContext& ctx, bool subtract, SeriesNode<W>& left,
                                          const SeriesNode<W>& right, LinearHeapBuffer scratch) const {
  const u64 words = right.P().L + (factor_ == kNone ? 0 : left[factor_].L);
  ExactFloat<W> t(scratch.cut<W>(words), words);
  if (factor_ == kNone) {
    t.set_ExactFloat(right.P(), ctx.parallel);
  } else if (!has_R()) {
    single_product(ctx, t, left[factor_], right.P(), scratch);
  } else if (shared_product_pays<W>(words, left.R().L + right.R().L, ctx.parallel.tds)) {
    product_pair<W>(ctx, {t, right.P()}, {left.R(), right.R()}, left.R(), scratch);
  } else {
    single_product(ctx, t, left.R(), right.P(), scratch);
    single_product(ctx, left.R(), left.R(), right.R(), scratch);
  }
  product_pair<W>(ctx, {left.P(), left.P()}, {left.Q(), left.Q()}, right.Q(), scratch);
  add_exact(left.P(), t, subtract, ctx.parallel);
}

template <class W>
const FractionKind<W>& common_P2B3() {
  static constexpr FractionKind<W> kind("CommonP2B3", 3, SeriesNode<W>::kR);
  return kind;
}
template <class W>
const FractionKind<W>& hyperdescent() {
  static constexpr FractionKind<W> kind("Hyperdescent", 2, FractionKind<W>::kNone);
  return kind;
}

#define ORVANE_INSTANTIATE(W)                    \
  template class FractionKind<W>;                \
  template const FractionKind<W>& common_P2B3(); \
  template const FractionKind<W>& hyperdescent();
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
