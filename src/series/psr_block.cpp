// One block of a series: its recursion and the fold into the tail's fraction.
#include <algorithm>
#include <cstring>

#include "frame/exceptions.h"
#include "numbers/transform.h"
#include "numbers/words.h"
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

/// Words [from, to) of x with their own hash; a view.
template <class W>
ExactFloat<W> words_of(const ExactFloat<W>& x, u64 from, u64 to, ParallelContext parallel) {
  ExactFloat<W> part = x;
  part.T += from;
  part.L = bp_strip<W>(0, part.T, to - from);
  part.exp += static_cast<s64>(from);
  part.recompute_hash(parallel);
  return part;
}

/// x *= u in x's buffer, which may overlap u: x times the upper half of u aside, x times the lower half in
/// place. The upper half gets the hash that u's own leaves for it, so a change in u still shows.
template <class W>
void multiply_in_parts(const RunContext& ctx, ExactFloat<W>& x, const ExactFloat<W>& u,
                       LinearHeapBuffer heap) {
  using Transform = ExactFloatTransformR<W>;
  const u64 half = u.L / 2;
  const ExactFloat<W> lower = words_of(u, 0, half, ctx.parallel);
  ExactFloat<W> upper = words_of(u, half, u.L, ctx.parallel);
  upper.hash = hash_sub(u.hash, lower.hash);
  const u64 words = x.L + upper.L;
  ExactFloat<W> product(heap.cut<W>(words), words);
  {
    const TransformHelper<W> helper(ctx.multiply(heap), words);
    Transform kept;
    Transform::mul_rr_xf(helper, product, upper, x, kept);
    Transform::mul_rf_xf(helper, x, lower, kept);
  }
  x.add_ip(product, ctx.parallel);
}

}  // namespace

template <class W>
PSR_BlockB<W>::PSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 p, u64 tds, u64 levels, u64 halving,
                          bool reduced)
    : series_(&series),
      a_(a),
      b_(b),
      tds_(tds),
      reduced_(reduced),
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
  product_words_ = recursion_.product_words();
  heap_ = recursion_.heap_bytes();
  if (tail_words_ == 0) return;
  const u64 part = reduced ? tail_words_ - tail_words_ / 2 : tail_words_;
  const u64 folded = std::min(recursion_.number_words(), kept_words_) + part;
  product_words_ = std::max(product_words_, folded);
  const u64 transforms = TransformHelper<W>::max_bytes(folded, std::max<u64>(tds, 1));
  heap_ = std::max(heap_, transforms + (reduced ? LinearHeapBuffer::cut_bytes<W>(folded) : 0));
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
  for (const ExactFloat<W>* x : {&fraction.U, &fraction.T, &node.P, &node.Q, &node.R})
    show_fault_point("merge operand", *x);
  ExactFloat<W> t = fraction.T;
  if (reduced_)
    fold_in_parts(ctx, fraction, node, t, heap);
  else
    fold_whole(ctx, fraction, node, t, heap);
  add_exact(node.P, t, series_->subtracts(a_, b_), ctx.parallel);
  show_fault_point("merge result", node.P);
  show_fault_point("merge result", node.Q);
  orc_Verify_BSR(node.P, node.Q, a_, b_, ctx);
}

template <class W>
void PSR_BlockB<W>::fold_whole(const RunContext& ctx, SeriesFraction<W>& fraction, SeriesNode<W>& node,
                               ExactFloat<W>& t, LinearHeapBuffer heap) const {
  using Transform = ExactFloatTransformR<W>;
  if (kind_has_R(series_->kind())) {
    rebind(t, node.R.base, node.R.size);
    const TransformHelper<W> helper(ctx.multiply(heap), node.R.L + fraction.T.L);
    Transform::mul_rr_xx(helper, t, node.R, fraction.T);
  }
  const TransformHelper<W> helper(ctx.multiply(heap), std::max(node.P.L, node.Q.L) + fraction.U.L);
  Transform kept;
  Transform::mul_rr_xf(helper, node.P, node.P, fraction.U, kept);
  Transform::mul_rf_xf(helper, node.Q, node.Q, kept);
}

template <class W>
void PSR_BlockB<W>::fold_in_parts(const RunContext& ctx, SeriesFraction<W>& fraction, SeriesNode<W>& node,
                                  ExactFloat<W>& t, LinearHeapBuffer heap) const {
  if (kind_has_R(series_->kind())) {
    multiply_in_parts(ctx, node.R, fraction.T, heap);
    t = node.R;
  }
  multiply_in_parts(ctx, node.P, fraction.U, heap);
  multiply_in_parts(ctx, node.Q, fraction.U, heap);
}

template class PSR_BlockB<u32>;
template class PSR_BlockB<u64>;

}  // namespace orl
