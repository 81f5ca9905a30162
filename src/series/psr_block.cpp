// One block of a series: its recursion and the fold into the tail's fraction.
#include <algorithm>
#include <cstring>

#include "frame/exceptions.h"
#include "numbers/transform.h"
#include "series/binary_splitting.h"
#include "series/verify.h"

namespace orl {
namespace {

u64 round_up_8(u64 n) { return (n + 7) & ~u64{7}; }

/// Moves x's words to `place`, which may overlap them, and binds x to `capacity` words there.
template <class W>
void move_to(ExactFloat<W>& x, W* place, u64 capacity) {
  if (capacity < x.L) throw BufferTooSmallException("PSR_BlockB::run()", capacity, x.L);
  std::memmove(place, x.T, x.L * sizeof(W));
  x.T = x.base = place;
  x.size = capacity;
}

template <class W>
void rebind(ExactFloat<W>& x, W* base, u64 capacity) {
  x.base = base;
  x.size = capacity;
}

}  // namespace

template <class W>
PSR_BlockB<W>::PSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 p, u64 tds, u64 levels, u64 halving)
    : series_(&series),
      a_(a),
      b_(b),
      tds_(tds),
      tail_words_(b == series.terms() ? 0 : std::min(series.remaining_words(b), p + 1) + 2),
      kept_words_(std::min(series.remaining_words(a), p + 1) + 2),
      recursion_(series, a, b, tds, levels, halving, kept_words_ - 2) {
  const u64 node = round_up_8(recursion_.out_words());
  const u64 tail = round_up_8(tail_words_);
  const u64 room = tail_words_ > 0 ? tail + 8 : 0;
  q_at_ = tail;
  p_at_ = q_at_ + node + room;
  r_at_ = p_at_ + node;
  t_at_ = r_at_ + (kind_has_R(series.kind()) ? node : 0);
  area_words_ = t_at_ + tail;
  const u64 folded = std::min(recursion_.number_words(), kept_words_) + tail_words_;
  product_words_ = std::max(recursion_.product_words(), tail_words_ > 0 ? folded : 0);
  heap_ = recursion_.heap_bytes();
  if (tail_words_ > 0) heap_ = std::max(heap_, TransformHelper<W>::max_bytes(folded, std::max<u64>(tds, 1)));
}

template <class W>
void PSR_BlockB<W>::run(const RunContext& ctx, SeriesFraction<W>& fraction, W* area,
                        LinearHeapBuffer heap) const {
  if (heap.size < heap_) throw BufferTooSmallException("PSR_BlockB::run()", heap.size, heap_);
  const bool has_R = kind_has_R(series_->kind());
  const u64 node_words = (p_at_ - q_at_) - (tail_words_ > 0 ? q_at_ + 8 : 0);
  if (tail_words_ > 0) move_to(fraction.T, area + t_at_, q_at_);
  SeriesNode<W> node{{area + p_at_, node_words}, {area + q_at_, node_words}, {}};
  if (has_R) node.R = {area + r_at_, node_words};
  recursion_.run(ctx, node, heap);
  cut_exact(node.P, kept_words_, ctx.parallel);
  cut_exact(node.Q, kept_words_, ctx.parallel);
  if (tail_words_ > 0) {
    if (has_R) cut_exact(node.R, kept_words_, ctx.parallel);
    rebind(node.P, area + q_at_ + node_words, p_at_ - q_at_);
    rebind(node.Q, area, q_at_ + node_words);
    rebind(node.R, area + r_at_, area_words_ - r_at_);
    fold(ctx, fraction, node, heap);
  }
  fraction.U = node.Q;
  fraction.T = node.P;
  cut_exact(fraction.U, kept_words_, ctx.parallel);
  cut_exact(fraction.T, kept_words_, ctx.parallel);
  move_to(fraction.U, area, round_up_8(fraction.U.L));
  move_to(fraction.T, area + fraction.U.size, area_words_ - fraction.U.size);
}

// node.Q = Q U and node.P = P U + R T, or P U + T. Each product is written over its two operands, which lie
// side by side, when nothing needs them any more.
template <class W>
void PSR_BlockB<W>::fold(const RunContext& ctx, SeriesFraction<W>& fraction, SeriesNode<W>& node,
                         LinearHeapBuffer heap) const {
  using Transform = ExactFloatTransformR<W>;
  const SeriesKind kind = series_->kind();
  for (const ExactFloat<W>* x : {&fraction.U, &fraction.T, &node.P, &node.Q, &node.R})
    show_fault_point("merge operand", *x);
  ExactFloat<W> t = fraction.T;
  if (kind_has_R(kind)) {
    rebind(t, node.R.base, node.R.size);
    const TransformHelper<W> helper(ctx.multiply(heap), node.R.L + fraction.T.L);
    Transform::mul_rr_xx(helper, t, node.R, fraction.T);
  }
  {
    const TransformHelper<W> helper(ctx.multiply(heap), std::max(node.P.L, node.Q.L) + fraction.U.L);
    Transform kept;
    Transform::mul_rr_xf(helper, node.P, node.P, fraction.U, kept);
    Transform::mul_rf_xf(helper, node.Q, node.Q, kept);
  }
  add_exact(node.P, t, series_->subtracts(a_, b_), ctx.parallel);
  show_fault_point("merge result", node.P);
  show_fault_point("merge result", node.Q);
  orc_Verify_BSR(node.P, node.Q, a_, b_, ctx);
}

template class PSR_BlockB<u32>;
template class PSR_BlockB<u64>;

}  // namespace orl
