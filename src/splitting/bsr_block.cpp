// The recursion over one range.
#include <algorithm>

#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/binary_splitting.h"
#include "splitting/verify.h"

namespace orl {
namespace {

// Above this a range is split by cost, below it by count.
constexpr u64 kCountedRange = 100;

u64 round_up_8(u64 n) { return (n + 7) & ~u64{7}; }
u64 round_up_64(u64 n) { return (n + 63) & ~u64{63}; }

template <class W>
ExactFloat<W> part(const ExactFloat<W>& whole, u64 from, u64 words) {
  return ExactFloat<W>(whole.base + from, words);
}

/// [0, words) of each buffer.
template <class W>
SeriesNode<W> front(const SeriesNode<W>& out, u64 p, u64 q, u64 r) {
  return {part(out.P, 0, p), part(out.Q, 0, q), part(out.R, 0, r)};
}

/// [from, size) of each buffer.
template <class W>
SeriesNode<W> behind(const SeriesNode<W>& out, u64 p, u64 q, u64 r, const char* function) {
  for (const auto& [size, from] : {std::pair{out.P.size, p}, {out.Q.size, q}, {out.R.size, r}})
    if (size < from) throw BufferTooSmallException(function, size, from);
  return {part(out.P, p, out.P.size - p), part(out.Q, q, out.Q.size - q), part(out.R, r, out.R.size - r)};
}

/// A half's results in the whole's buffers.
template <class W>
void widen(SeriesNode<W>& out, const SeriesNode<W>& left) {
  const SeriesNode<W> whole = out;
  out = left;
  out.P.base = whole.P.base, out.P.size = whole.P.size;
  out.Q.base = whole.Q.base, out.Q.size = whole.Q.size;
  out.R.base = whole.R.base, out.R.size = whole.R.size;
}

/// Both halves through the framework: `run(ctx, half, out, heap)` with half 0 and 1, disjoint buffers and
/// heaps. Leaves the left half's numbers in `out` and the right half's in `right`.
template <class W, class Run>
void fork_halves(const RunContext& ctx, SeriesNode<W>& out, SeriesNode<W>& right, LinearHeapBuffer heap,
                 const Run& run) {
  const u64 p = (out.P.size >> 1) & ~u64{7}, q = (out.Q.size >> 1) & ~u64{7}, r = (out.R.size >> 1) & ~u64{7};
  SeriesNode<W> left = front(out, p, q, r);
  right = behind(out, p, q, r, "BSR_BlockT::run()");
  const u64 share = (heap.size >> 1) & ~u64{63};
  const LinearHeapBuffer left_heap = heap.cut_buffer(share);
  const LinearHeapBuffer right_heap = heap.cut_buffer(share);
  const ParallelContext& parallel = ctx.parallel;
  const bool threads = parallel.tds >= 2;
  const RunContext left_ctx =
      ctx.with_parallel(threads ? parallel.left() : parallel).with_status(silent_status());
  const RunContext right_ctx =
      ctx.with_parallel(threads ? parallel.right() : parallel).with_status(silent_status());
  fork_pair(
      parallel.parallelizer, [&] { run(left_ctx, 0, left, left_heap); },
      [&] { run(right_ctx, 1, right, right_heap); });
  widen(out, left);
}

}  // namespace

// BSR_BlockT ----------------------------------------------------------------------------------------------

template <class W>
BSR_BlockT<W>::BSR_BlockT(const Series<W>& series, u64 a, u64 b, u64 tds, u64 levels, u64 halving)
    : series_(&series), a_(a), b_(b), number_words_(series.bound_words(a, b)) {
  const DoubleDouble off = series.imbalance(b);
  const DoubleDouble smallest_fork = b - a > 999 ? series.size(a, a + 1000) : DoubleDouble(0);
  std::vector<DoubleDouble> nats{series.size(a, b)};
  plan_.push_back({std::max<u64>(tds, 1), levels, halving > 0, 0, 0});
  // A range of 1000 terms is at least as large as the first such range.
  while (forks(plan_.back().tds, plan_.back().levels, a, b) && nats.back() >= smallest_fork) {
    Depth next = plan_.back();
    const bool in_turn = next.halves_in_turn;
    if (!in_turn) {
      if (next.tds < 2) --next.levels;
      next.tds = next.tds - (next.tds >> 1);
    }
    next.halves_in_turn = plan_.size() < halving;
    plan_.push_back(next);
    nats.push_back(nats.back() * DoubleDouble(0.5) + off);
  }
  // From the deepest up: a node is descended in place, or forks, and must be able to do either.
  product_words_ = series.product_words(nats.front(), b);
  for (u64 d = plan_.size(); d-- > 0;) {
    Depth& depth = plan_[d];
    const u64 product = series.product_words(nats[d], b);
    const u64 right = series.product_words(nats[d] * DoubleDouble(0.5) + off, b);
    depth.out = series.scratch_words(nats[d], a, b);
    depth.heap = merge_scratch<W>(series.kind(), product, right, 1);
    if (d + 1 == plan_.size()) continue;
    const Depth& below = plan_[d + 1];
    depth.heap = std::max(depth.heap, merge_scratch<W>(series.kind(), product, right, depth.tds));
    if (depth.halves_in_turn) {
      depth.out = std::max(depth.out, round_up_8(right) + below.out);
      depth.heap = std::max(depth.heap, below.heap);
    } else {
      depth.out = std::max(depth.out, 2 * round_up_8(below.out));
      depth.heap = std::max(depth.heap, 2 * round_up_64(below.heap));
    }
  }
  plan_.front().out = round_up_8(plan_.front().out);
  plan_.front().heap = round_up_64(plan_.front().heap);
}

template <class W>
void BSR_BlockT<W>::run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const {
  const u64 size = kind_has_R(series_->kind()) ? std::min({out.P.size, out.Q.size, out.R.size})
                                               : std::min(out.P.size, out.Q.size);
  if (size < out_words()) throw BufferTooSmallException("BSR_BlockT::run()", size, out_words());
  if (heap.size < heap_bytes()) throw BufferTooSmallException("BSR_BlockT::run()", heap.size, heap_bytes());
  split(ctx.with_tds(std::max<u64>(ctx.parallel.tds, 1)), 0, a_, b_, out, heap);
}

template <class W>
void BSR_BlockT<W>::split(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out,
                          LinearHeapBuffer heap) const {
  const Depth& here = plan_[depth];
  if (depth + 1 < plan_.size() && forks(ctx.parallel.tds, here.levels, a, b)) {
    if (here.halves_in_turn)
      in_turn(ctx, depth, a, b, out, heap);
    else
      fork(ctx, depth, a, b, out, heap);
  } else {
    descend(ctx.with_tds(1), a, b, out, heap);
  }
}

template <class W>
void BSR_BlockT<W>::fork(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out,
                         LinearHeapBuffer heap) const {
  const u64 m = series_->midpoint(a, b);
  SeriesNode<W> right;
  fork_halves(ctx, out, right, heap,
              [&](const RunContext& half_ctx, u64 half, SeriesNode<W>& node, LinearHeapBuffer half_heap) {
                split(half_ctx, depth + 1, half == 0 ? a : m, half == 0 ? m : b, node, half_heap);
              });
  merge_nodes(*series_, a, m, b, ctx, out, right, heap);
}

template <class W>
void BSR_BlockT<W>::in_turn(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out,
                            LinearHeapBuffer heap) const {
  const u64 m = series_->midpoint(a, b);
  split(ctx, depth + 1, a, m, out, heap);
  SeriesNode<W> right =
      behind(out, round_up_8(out.P.L), round_up_8(out.Q.L), round_up_8(out.R.L), "BSR_BlockT::run()");
  split(ctx, depth + 1, m, b, right, heap);
  merge_nodes(*series_, a, m, b, ctx, out, right, heap);
}

template <class W>
void BSR_BlockT<W>::descend(const RunContext& ctx, u64 a, u64 b, SeriesNode<W>& out,
                            LinearHeapBuffer heap) const {
  const u64 width = series_->leaf_width();
  if (b - a <= width) {
    series_->end(a, b, out);
    return verify_node(out, series_->kind(), a, b, ctx);
  }
  // Halves of a short range are whole leaves but for the last.
  const u64 m =
      b - a > kCountedRange ? series_->midpoint(a, b) : a + ((b - a) / 2 + width - 1) / width * width;
  descend(ctx, a, m, out, heap);
  SeriesNode<W> right =
      behind(out, round_up_8(out.P.L), round_up_8(out.Q.L), round_up_8(out.R.L), "BSR_BlockT::run()");
  descend(ctx, m, b, right, heap);
  merge_nodes(*series_, a, m, b, ctx, out, right, heap);
}

// BSR_BlockB ----------------------------------------------------------------------------------------------

template <class W>
BSR_BlockB<W>::BSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 tds, u64 levels, u64 halving, u64 limit)
    : series_(&series), a_(a), b_(b), tds_(tds), limit_(limit) {
  if (tds < 2 || b - a <= 999 || series.bound_words(a, b) <= limit) {
    exact_ = std::make_unique<BSR_BlockT<W>>(series, a, b, tds, levels, halving);
    heap_ = exact_->heap_bytes();
    out_ = exact_->out_words();
    number_words_ = exact_->number_words();
    product_words_ = exact_->product_words();
    return;
  }
  m_ = series.midpoint(a, b);
  left_ = std::make_unique<BSR_BlockB>(series, a, m_, tds - (tds >> 1), levels, 0, limit);
  right_ = std::make_unique<BSR_BlockB>(series, m_, b, tds >> 1, levels, 0,
                                        std::min(series.remaining_words(m_), kMaxLimit));
  const u64 product = left_->number_words() + right_->number_words();
  product_words_ = std::max({left_->product_words(), right_->product_words(), product});
  number_words_ = std::min(product, limit + 2);
  out_ = round_up_8(std::max(2 * round_up_8(std::max(left_->out_words(), right_->out_words())), product + 1));
  heap_ = round_up_64(std::max(merge_scratch<W>(series.kind(), product, right_->number_words(), tds),
                               2 * round_up_64(std::max(left_->heap_bytes(), right_->heap_bytes()))));
}

template <class W>
void BSR_BlockB<W>::run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const {
  if (ctx.parallel.tds > std::max<u64>(tds_, 1))
    throw InvalidParametersException("BSR_BlockB::run()",
                                     "Attempted to run with a larger tds than the plan supports.");
  if (exact_) return exact_->run(ctx, out, heap);
  const u64 size = kind_has_R(series_->kind()) ? std::min({out.P.size, out.Q.size, out.R.size})
                                               : std::min(out.P.size, out.Q.size);
  if (size < out_) throw BufferTooSmallException("BSR_BlockB::run()", size, out_);
  if (heap.size < heap_) throw BufferTooSmallException("BSR_BlockB::run()", heap.size, heap_);
  SeriesNode<W> right;
  fork_halves(ctx, out, right, heap,
              [&](const RunContext& half_ctx, u64 half, SeriesNode<W>& node, LinearHeapBuffer half_heap) {
                (half == 0 ? *left_ : *right_).run(half_ctx, node, half_heap);
              });
  merge_nodes(*series_, a_, m_, b_, ctx, out, right, heap);
  cut_exact(out.P, limit_ + 2, ctx.parallel);
  cut_exact(out.Q, limit_ + 2, ctx.parallel);
  if (kind_has_R(series_->kind())) cut_exact(out.R, limit_ + 2, ctx.parallel);
}

template class BSR_BlockT<u32>;
template class BSR_BlockT<u64>;
template class BSR_BlockB<u32>;
template class BSR_BlockB<u64>;

}  // namespace orl
