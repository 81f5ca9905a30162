#include "splitting/kind.h"

#include <algorithm>

#include "splitting/exact_steps.h"
#include "splitting/node_products.h"

namespace orl {

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
