#include "splitting/brent_mcmillan.h"

#include <algorithm>

#include "memory/sizing_arena.h"
#include "splitting/exact_steps.h"
#include "splitting/node_products.h"

namespace orl {
namespace {

/// Words of the products of a merge, from those of the operands or from their bounds.
struct ProductWords {
  u64 square;  ///< X = D_R^2
  u64 cross;   ///< Y = C_L D_R, and later a copy of T_R
  u64 D;       ///< D_L D_R
  u64 C;       ///< C_R D_L
  u64 cube;    ///< X D_R
  u64 S;       ///< D_L V_R
  u64 U;       ///< Y T_R
  u64 T;       ///< T_L X
  u64 V;       ///< V_L X D_R

  /// Those of the products that share the transforms of D_L and D_R, and those that share one shape with X.
  u64 with_D() const { return std::max({square, cross, D, C}); }
  u64 with_X() const { return std::max({cube, S, U, T}); }
  u64 longest() const { return std::max({with_D(), with_X(), V}); }
};

template <class W>
ProductWords product_words(const SeriesNode<W>& left, const SeriesNode<W>& right) {
  using Kind = BrentMcMillanAB<W>;
  const auto l = [&](u32 i) { return left[i].L; };
  const auto r = [&](u32 i) { return right[i].L; };
  const u64 square = 2 * r(Kind::kD), cross = l(Kind::kC) + r(Kind::kD);
  return {.square = square,
          .cross = std::max(cross, r(Kind::kT)),
          .D = l(Kind::kD) + r(Kind::kD),
          .C = r(Kind::kC) + l(Kind::kD),
          .cube = square + r(Kind::kD),
          .S = l(Kind::kD) + r(Kind::kV),
          .U = cross + r(Kind::kT),
          .T = l(Kind::kT) + square,
          .V = l(Kind::kV) + square + r(Kind::kD)};
}

/// A product is no longer than the number that it is a summand of, and one word for a zero on top.
template <class W>
ProductWords product_bounds(const NodeWords& product, const NodeWords& right) {
  using Kind = BrentMcMillanAB<W>;
  const u64 square = 2 * right[Kind::kD], cross = product[Kind::kC] + 1;
  return {.square = square,
          .cross = std::max(cross, right[Kind::kT]),
          .D = product[Kind::kD] + 1,
          .C = cross,
          .cube = square + right[Kind::kD],
          .S = product[Kind::kD] + right[Kind::kV],
          .U = cross + right[Kind::kT],
          .T = product[Kind::kT] + 1,
          .V = product[Kind::kV] + 1};
}

/// What a merge by transforms holds beside the nodes.
template <class W>
struct MergeBuffers {
  ExactFloat<W> X, Y, D, S, U;
};

template <class W, class Arena>
MergeBuffers<W> cut_merge(Arena& arena, const ProductWords& words) {
  const auto number = [&](u64 n) { return ExactFloat<W>(arena.template cut<W>(n), n); };
  return {number(words.square), number(words.cross), number(words.D), number(std::max(words.S, words.U) + 1),
          number(std::max(words.U, words.cube))};
}

// Every product on the stack first, since results lie over operands.
template <class W>
void merge_direct(SeriesNode<W>& left, const SeriesNode<W>& right, ParallelContext parallel) {
  using Kind = BrentMcMillanAB<W>;
  W words[9][kDirectWords<W> + 1];
  W* next = words[0];
  const auto product = [&](const ExactFloat<W>& a, const ExactFloat<W>& b) {
    W* const place = next;
    next += kDirectWords<W> + 1;
    return direct_product(place, a, b);
  };
  const ExactFloat<W>&DL = left[Kind::kD], &DR = right[Kind::kD];
  const ExactFloat<W> X = product(DR, DR);
  ExactFloat<W> Y = product(left[Kind::kC], DR), C = product(right[Kind::kC], DL);
  const ExactFloat<W> D = product(DL, DR);
  ExactFloat<W> S = product(DL, right[Kind::kV]), U = product(Y, right[Kind::kT]);
  const ExactFloat<W> T = product(left[Kind::kT], X), cube = product(X, DR);
  const ExactFloat<W> V = product(left[Kind::kV], cube);
  add_exact(S, U, false, parallel);
  ExactFloat<W> right_T(X.base, X.size);  // X has been used
  right_T.set_ExactFloat(right[Kind::kT], parallel);
  const auto store = [&](u32 i, const ExactFloat<W>& x, ExactFloat<W>& y) {
    left[i].set_ExactFloat(x, parallel);
    add_exact(left[i], y, false, parallel);
  };
  left[Kind::kD].set_ExactFloat(D, parallel);
  store(Kind::kC, C, Y);
  store(Kind::kT, T, right_T);
  store(Kind::kV, V, S);
}

// X, Y, D_L D_R and C_R D_L share the transforms of D_L and D_R, X D_R and T_L X that of X.
template <class W>
void merge_by_transforms(const RunContext& ctx, const ProductWords& words, SeriesNode<W>& left,
                         const SeriesNode<W>& right, LinearHeapBuffer scratch) {
  using Kind = BrentMcMillanAB<W>;
  using Transform = ExactFloatTransformR<W>;
  const ParallelContext parallel = ctx.parallel;
  auto [X, Y, D, S, U] = cut_merge<W>(scratch, words);
  ExactFloat<W>&DL = left[Kind::kD], &C = left[Kind::kC], &T = left[Kind::kT], &V = left[Kind::kV];
  const ExactFloat<W>& DR = right[Kind::kD];
  {
    const TransformHelper<W> helper(ctx.multiply(scratch), words.with_D(), 2);
    Transform of_DR, of_DL;
    Transform::sqr_rx_xf(helper, X, DR, of_DR, 0);
    Transform::mul_rf_xf(helper, Y, C, of_DR);
    Transform::mul_rr_xf(helper, C, right[Kind::kC], DL, of_DL, 1);
    Transform::inverse_fmul(helper, D, of_DL, of_DR);
  }
  add_exact(C, Y, false, parallel);
  ExactFloat<W> cube = U;
  {
    const TransformHelper<W> helper(ctx.multiply(scratch), words.with_X());
    Transform of_X;
    Transform::mul_rr_xx(helper, S, DL, right[Kind::kV]);
    Transform::mul_rr_xx(helper, U, Y, right[Kind::kT]);
    add_exact(S, U, false, parallel);
    Y.set_ExactFloat(right[Kind::kT], parallel);
    Transform::mul_rr_xf(helper, cube, DR, X, of_X);
    Transform::mul_rf_xf(helper, T, T, of_X);
  }
  add_exact(T, Y, false, parallel);
  Transform::mul_rr_xx(ctx.multiply(scratch), V, V, cube);
  add_exact(V, S, false, parallel);
  DL.set_ExactFloat(D, parallel);
}

}  // namespace

template <class W>
u64 BrentMcMillanAB<W>::merge_scratch(const NodeWords& product, const NodeWords& right, u64 tds) const {
  const ProductWords words = product_bounds<W>(product, right);
  if (words.longest() <= kDirectWords<W>) return 0;
  return layout_bytes([&](SizingArena& arena) {
    cut_merge<W>(arena, words);
    arena.leave(TransformHelper<W>::max_bytes(words.with_D(), tds, 2));
    arena.leave(TransformHelper<W>::max_bytes(words.with_X(), tds));
    arena.leave(TransformHelper<W>::max_bounded_bytes(words.V, tds));
  });
}

template <class W>
void BrentMcMillanAB<W>::merge(const RunContext& ctx, bool, SeriesNode<W>& left, const SeriesNode<W>& right,
                               LinearHeapBuffer scratch) const {
  const ProductWords words = product_words(left, right);
  if (words.longest() <= kDirectWords<W>)
    merge_direct(left, right, ctx.parallel);
  else
    merge_by_transforms(ctx, words, left, right, scratch);
}

template <class W>
const BrentMcMillanAB<W>& brent_mcmillan_AB() {
  static constexpr BrentMcMillanAB<W> kind;
  return kind;
}

#define ORVANE_INSTANTIATE(W)        \
  template class BrentMcMillanAB<W>; \
  template const BrentMcMillanAB<W>& brent_mcmillan_AB();
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
