// One block of a series: its recursion and the fold into the tail's fraction.
#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "numbers/transform.h"
#include "splitting/binary_splitting.h"
#include "splitting/verify.h"
#include "words/words.h"

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

}  // namespace

template <class W>
PSR_BlockB<W>::PSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 p, u64 tds, u64 levels, u64 halving,
                          bool reduced)
    : series_(&series),
      a_(a),
      b_(b),
      tds_(std::max<u64>(tds, 1)),
      tail_words_(b == series.terms() ? 0 : std::min(series.remaining_words(b), p + 1) + 2),
      kept_words_(std::min(series.remaining_words(a), p + 1) + 2),
      recursion_(series, a, b, tds, levels, halving, kept_words_ - 2) {
  const u64 node = round_up_8(recursion_.out_words());
  const u64 tail = round_up_8(tail_words_);
  q_at_ = tail;
  p_at_ = q_at_ + node;
  r_at_ = p_at_ + node;
  t_at_ = r_at_ + (kind_has_R(series.kind()) ? node : 0);
  area_words_ = t_at_ + tail + 8;  // a sum may carry into one word more
  product_words_ = recursion_.product_words();
  heap_ = recursion_.heap_bytes();
  if (tail_words_ == 0) return;
  // Each further piece costs time, and must save memory that nothing else takes.
  const u64 most = reduced ? 4 : 2, worth = reduced ? 64 : 16;
  Fold best = plan_fold(1, false);
  for (u64 pieces = 2; pieces <= most && best.bytes > recursion_.heap_bytes(); ++pieces) {
    const Fold fold = plan_fold(pieces, false);
    if (fold.bytes + best.bytes / worth < best.bytes) best = fold;
  }
  use(best);
}

template <class W>
typename PSR_BlockB<W>::Fold PSR_BlockB<W>::plan_fold(u64 pieces, bool direct) const {
  const u64 numbers = std::min(recursion_.number_words(), kept_words_);
  Fold fold{pieces, direct};
  fold.sum_words = round_up_8(numbers + tail_words_ + 1);
  fold.piece_product_words = numbers + (tail_words_ + pieces - 1) / pieces;
  fold.scratch_bytes = direct ? TransformHelper<W>::max_bytes(fold.piece_product_words, tds_)
                              : ExactFloat<W>::mul_scratch(fold.piece_product_words, tds_);
  fold.bytes = LinearHeapBuffer::cut_bytes<W>(fold.sum_words) + fold.scratch_bytes +
               (pieces > 1 ? LinearHeapBuffer::cut_bytes<W>(fold.piece_product_words) : 0);
  return fold;
}

template <class W>
void PSR_BlockB<W>::use(const Fold& fold) {
  fold_ = fold;
  heap_ = std::max(recursion_.heap_bytes(), fold.bytes);
  product_words_ = std::max(recursion_.product_words(), fold.piece_product_words);
}

template <class W>
void PSR_BlockB<W>::use_memory(u64 bytes) {
  if (tail_words_ == 0) return;
  const Fold least = fold_;
  for (const Fold& fold : {plan_fold(1, true), plan_fold(1, false), least}) {
    use(fold);
    if (total_bytes() <= bytes) return;
  }
}

template <class W>
void PSR_BlockB<W>::run(const RunContext& ctx, SeriesFraction<W>& fraction, W* area,
                        LinearHeapBuffer heap) const {
  if (heap.size < heap_) throw BufferTooSmallException("PSR_BlockB::run()", heap.size, heap_);
  const bool has_R = kind_has_R(series_->kind());
  const u64 node_words = p_at_ - q_at_;
  if (tail_words_ > 0) move_to(fraction.T, area + t_at_, area_words_ - t_at_);
  SeriesNode<W> node{{area + p_at_, node_words}, {area + q_at_, node_words}, {}};
  if (has_R) node.R = {area + r_at_, node_words};
  recursion_.run(ctx, node, heap);
  cut_exact(node.P, kept_words_, ctx.parallel);
  cut_exact(node.Q, kept_words_, ctx.parallel);
  if (tail_words_ > 0) {
    if (has_R) cut_exact(node.R, kept_words_, ctx.parallel);
    fold(ctx, fraction, node, area, heap);
  }
  fraction.U = node.Q;
  fraction.T = node.P;
  move_to(fraction.U, area, round_up_8(fraction.U.L));
  move_to(fraction.T, area + fraction.U.size, area_words_ - fraction.U.size);
}

// node.Q = Q U and node.P = P U + R T, or P U + T. Each product is made beside its operands and then takes
// their place: T becomes R T over R and T, P becomes P U + R T over P, R and T, Q becomes Q U over U and Q.
template <class W>
void PSR_BlockB<W>::fold(const RunContext& ctx, SeriesFraction<W>& fraction, SeriesNode<W>& node, W* area,
                         LinearHeapBuffer heap) const {
  using Transform = ExactFloatTransformR<W>;
  for (const ExactFloat<W>* x : {&fraction.U, &fraction.T, &node.P, &node.Q, &node.R})
    show_fault_point("merge operand", *x);
  const u64 sum_words = fold_.sum_words;
  W* const words = heap.cut<W>(sum_words);
  const auto place = [&](ExactFloat<W>& x, u64 at) {
    W* const to = area + at;
    if (area_words_ - at < x.L) throw BufferTooSmallException("PSR_BlockB::run()", area_words_ - at, x.L);
    bp_copy(to, x.T, x.L, ctx.parallel);
    x.T = x.base = to;
    x.size = area_words_ - at;
  };
  ExactFloat<W> t = fraction.T;
  if (kind_has_R(series_->kind())) {
    t = ExactFloat<W>(words, sum_words);
    multiply(ctx, t, node.R, fraction.T, heap);
    place(t, r_at_);
  }
  ExactFloat<W> sum(words, sum_words);
  const auto add = [&] {
    add_exact(sum, t, series_->subtracts(a_, b_), ctx.parallel);
    cut_exact(sum, kept_words_, ctx.parallel);
    place(sum, p_at_);
  };
  ExactFloat<W> product(words, sum_words);
  if (fold_.direct) {
    const TransformHelper<W> helper(ctx.multiply(heap), std::max(node.P.L, node.Q.L) + fraction.U.L);
    Transform kept;
    Transform::mul_rr_xf(helper, sum, node.P, fraction.U, kept);
    add();
    Transform::mul_rf_xf(helper, product, node.Q, kept);
  } else {
    multiply(ctx, sum, node.P, fraction.U, heap);
    add();
    multiply(ctx, product, node.Q, fraction.U, heap);
  }
  cut_exact(product, kept_words_, ctx.parallel);
  place(product, 0);
  node.P = sum;
  node.Q = product;
  show_fault_point("merge result", node.P);
  show_fault_point("merge result", node.Q);
  orc_Verify_BSR(node.P, node.Q, a_, b_, ctx);
}

// x times the lowest piece of u, to which x times each other piece is added from aside. The last piece gets
// the hash that u's own leaves for it, so a change in u still shows.
template <class W>
void PSR_BlockB<W>::multiply(const RunContext& ctx, ExactFloat<W>& product, const ExactFloat<W>& x,
                             const ExactFloat<W>& u, LinearHeapBuffer heap) const {
  const u64 pieces = fold_.pieces;
  W* const aside = pieces > 1 ? heap.cut<W>(fold_.piece_product_words) : nullptr;
  const MultiplyContext scratch = ctx.multiply(heap.cut_buffer(fold_.scratch_bytes));
  if (pieces == 1) return product.set_mul(x, u, scratch);
  u64 hash = u.hash;
  for (u64 i = 0; i < pieces; ++i) {
    ExactFloat<W> piece = words_of(u, u.L * i / pieces, u.L * (i + 1) / pieces, ctx.parallel);
    if (i + 1 == pieces) piece.hash = hash;
    hash = hash_sub(hash, piece.hash);
    if (i == 0) {
      product.set_mul(x, piece, scratch);
      continue;
    }
    ExactFloat<W> above(aside, fold_.piece_product_words);
    above.set_mul(x, piece, scratch);
    product.add_ip(above, ctx.parallel);
  }
}

template class PSR_BlockB<u32>;
template class PSR_BlockB<u64>;

}  // namespace orl
