// The recursion over one range.
#include "splitting/bsr_block.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/exact_steps.h"

namespace orl {
namespace {

/// [from, from + size) of each buffer.
template <class W>
SeriesNode<W> part(const SeriesNode<W>& out, const NodeWords& from, const NodeWords& size) {
  SeriesNode<W> node;
  node.count = out.count;
  for (u32 i = 0; i < out.count; ++i) node[i] = ExactFloat<W>(out[i].base + from[i], size[i]);
  return node;
}

/// What the buffers have behind the numbers, or halves, that fill their fronts.
template <class W>
SeriesNode<W> behind(const SeriesNode<W>& out, const NodeWords& from) {
  NodeWords size{};
  for (u32 i = 0; i < out.count; ++i) {
    if (out[i].size < from[i]) throw BufferTooSmallException("BSR_BlockT::run()", out[i].size, from[i]);
    size[i] = out[i].size - from[i];
  }
  return part(out, from, size);
}

template <class W>
SeriesNode<W> behind_numbers(const SeriesNode<W>& out) {
  NodeWords from{};
  for (u32 i = 0; i < out.count; ++i) from[i] = round_up_8(out[i].L);
  return behind(out, from);
}

/// A half's numbers in the whole's buffers.
template <class W>
void widen(SeriesNode<W>& out, const SeriesNode<W>& left) {
  for (u32 i = 0; i < out.count; ++i) {
    const ExactFloat<W> whole = out[i];
    out[i] = left[i];
    out[i].base = whole.base;
    out[i].size = whole.size;
  }
}

template <class W>
void check_room(const char* function, const SeriesNode<W>& out, const NodeWords& words, LinearHeapBuffer heap,
                u64 heap_bytes) {
  for (u32 i = 0; i < out.count; ++i)
    if (out[i].size < words[i]) throw BufferTooSmallException(function, out[i].size, words[i]);
  if (heap.size < heap_bytes) throw BufferTooSmallException(function, heap.size, heap_bytes);
}

/// Both halves through the framework: `run(ctx, half, out, heap)` with half 0 and 1, disjoint buffers and
/// heaps. Leaves the left half's numbers in `out` and the right half's in `right`.
template <class W, class Run>
void fork_halves(const RunContext& ctx, SeriesNode<W>& out, SeriesNode<W>& right, LinearHeapBuffer heap,
                 const Run& run) {
  NodeWords half{};
  for (u32 i = 0; i < out.count; ++i) half[i] = (out[i].size >> 1) & ~u64{7};
  SeriesNode<W> left = part(out, {}, half);
  right = behind(out, half);
  const u64 share = (heap.size >> 1) & ~u64{63};
  const LinearHeapBuffer left_heap = heap.cut_buffer(share);
  const LinearHeapBuffer right_heap = heap.cut_buffer(share);
  const ParallelContext& parallel = ctx.parallel;
  const RunContext left_ctx = ctx.with_parallel(parallel.left()).with_status(silent_status());
  const RunContext right_ctx = ctx.with_parallel(parallel.right()).with_status(silent_status());
  fork_pair(
      parallel.parallelizer, [&] { run(left_ctx, 0, left, left_heap); },
      [&] { run(right_ctx, 1, right, right_heap); });
  widen(out, left);
}

}  // namespace

// BSR_BlockT ----------------------------------------------------------------------------------------------

template <class W>
BSR_BlockT<W>::BSR_BlockT(const Series<W>& series, const TermRange& range, u64 tds, u64 halving)
    : series_(&series), range_(range), number_words_(longest_of(series.bound_words(range.a, range.b))) {
  const u64 a = range.a, b = range.b;
  const DoubleDouble off = series.sizes().imbalance(b);
  const DoubleDouble smallest_fork = range.terms() > 999 ? series.size(a, a + 1000) : DoubleDouble(0);
  std::vector<DoubleDouble> nats{series.size(a, b)};
  plan_.push_back({std::max<u64>(tds, 1), halving > 0, 0, {}});
  // A range of 1000 terms is at least as large as the first such range.
  while (forks(plan_.back().tds, range) && nats.back() >= smallest_fork) {
    Depth next = plan_.back();
    if (!next.halves_in_turn) next.tds = next.tds - (next.tds >> 1);
    next.halves_in_turn = plan_.size() < halving;
    plan_.push_back(next);
    nats.push_back(nats.back() * DoubleDouble(0.5) + off);
  }
  // From the deepest up: a node is descended in place, or forks, and must be able to do either.
  const SeriesKind<W>& kind = series.kind();
  product_words_ = longest_of(series.product_words(nats.front(), b));
  for (u64 d = plan_.size(); d-- > 0;) {
    Depth& depth = plan_[d];
    const NodeWords product = series.product_words(nats[d], b);
    const NodeWords right = series.product_words(nats[d] * DoubleDouble(0.5) + off, b);
    depth.out = series.scratch_words(nats[d], a, b);
    depth.heap = kind.merge_scratch(product, right, 1);
    if (d + 1 == plan_.size()) continue;
    const Depth& below = plan_[d + 1];
    if (depth.tds > 1) depth.heap = std::max(depth.heap, kind.merge_scratch(product, right, depth.tds));
    depth.heap = std::max(depth.heap, depth.halves_in_turn ? below.heap : 2 * round_up_64(below.heap));
    for (u32 i = 0; i < kind.numbers(); ++i) {
      const u64 halves =
          depth.halves_in_turn ? round_up_8(right[i]) + below.out[i] : 2 * round_up_8(below.out[i]);
      depth.out[i] = std::max(depth.out[i], halves);
    }
  }
  for (u64& words : plan_.front().out) words = round_up_8(words);
  plan_.front().heap = round_up_64(plan_.front().heap);
}

template <class W>
void BSR_BlockT<W>::run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const {
  check_room("BSR_BlockT::run()", out, out_words(), heap, heap_bytes());
  split(ctx.with_tds(std::max<u64>(ctx.parallel.tds, 1)), 0, range_, out, heap);
}

template <class W>
void BSR_BlockT<W>::split(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
                          LinearHeapBuffer heap) const {
  if (depth + 1 == plan_.size() || !forks(ctx.parallel.tds, range))
    descend(ctx.with_tds(1), range, out, heap);
  else if (plan_[depth].halves_in_turn)
    in_turn(ctx, depth, range, out, heap);
  else
    fork(ctx, depth, range, out, heap);
}

template <class W>
void BSR_BlockT<W>::fork(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
                         LinearHeapBuffer heap) const {
  const u64 m = series_->sizes().midpoint(range.a, range.b);
  SeriesNode<W> right;
  fork_halves(ctx, out, right, heap,
              [&](const RunContext& half_ctx, u64 half, SeriesNode<W>& node, LinearHeapBuffer half_heap) {
                const TermRange part = half == 0 ? TermRange{range.a, m} : TermRange{m, range.b};
                split(half_ctx, depth + 1, part, node, half_heap);
              });
  merge_nodes(*series_, range, m, ctx, out, right, heap);
}

template <class W>
void BSR_BlockT<W>::in_turn(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
                            LinearHeapBuffer heap) const {
  const u64 m = series_->sizes().midpoint(range.a, range.b);
  split(ctx, depth + 1, {range.a, m}, out, heap);
  SeriesNode<W> right = behind_numbers(out);
  split(ctx, depth + 1, {m, range.b}, right, heap);
  merge_nodes(*series_, range, m, ctx, out, right, heap);
}

// A leaf's hashes come from the factors of its terms; the merge that takes it up proves its words.
template <class W>
void BSR_BlockT<W>::descend(const RunContext& ctx, const TermRange& range, SeriesNode<W>& out,
                            LinearHeapBuffer heap) const {
  const u64 width = series_->leaf_width(), terms = range.terms();
  if (terms <= width) {
    series_->end(range.a, range.b, out);
    return show_node("leaf", out);
  }
  // Halves of a short range are whole leaves but for the last.
  const u64 m = terms > Series<W>::kCountedRange ? series_->sizes().midpoint(range.a, range.b)
                                                 : range.a + (terms / 2 + width - 1) / width * width;
  descend(ctx, {range.a, m}, out, heap);
  SeriesNode<W> right = behind_numbers(out);
  descend(ctx, {m, range.b}, right, heap);
  merge_nodes(*series_, range, m, ctx, out, right, heap);
}

// BSR_BlockB ----------------------------------------------------------------------------------------------

template <class W>
BSR_BlockB<W>::BSR_BlockB(const Series<W>& series, const TermRange& range, u64 tds, u64 halving, u64 limit)
    : series_(&series), range_(range), tds_(tds), limit_(limit) {
  const u64 a = range.a, b = range.b;
  if (tds < 2 || range.terms() <= 999 || longest_of(series.bound_words(a, b)) <= limit) {
    exact_ = std::make_unique<BSR_BlockT<W>>(series, range, tds, halving);
    heap_ = exact_->heap_bytes();
    out_ = exact_->out_words();
    number_words_ = exact_->number_words();
    product_words_ = exact_->product_words();
    return;
  }
  m_ = series.sizes().midpoint(a, b);
  left_ = std::make_unique<BSR_BlockB>(series, TermRange{a, m_}, tds - (tds >> 1), 0, limit);
  right_ = std::make_unique<BSR_BlockB>(series, TermRange{m_, b}, tds >> 1, 0,
                                        std::min(series.remaining_words(m_), kMaxLimit));
  const u64 product = left_->number_words() + right_->number_words();
  product_words_ = std::max({left_->product_words(), right_->product_words(), product});
  number_words_ = std::min(product, limit + 2);
  NodeWords products{}, rights{};
  for (u32 i = 0; i < series.kind().numbers(); ++i) {
    const u64 halves = 2 * round_up_8(std::max(left_->out_words()[i], right_->out_words()[i]));
    out_[i] = round_up_8(std::max(halves, product + 1));
    products[i] = product;
    rights[i] = right_->number_words();
  }
  heap_ = round_up_64(std::max(series.kind().merge_scratch(products, rights, tds),
                               2 * round_up_64(std::max(left_->heap_bytes(), right_->heap_bytes()))));
}

template <class W>
void BSR_BlockB<W>::run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const {
  if (ctx.parallel.tds > std::max<u64>(tds_, 1))
    throw InvalidParametersException("BSR_BlockB::run()",
                                     "Attempted to run with a larger tds than the plan supports.");
  if (exact_) return exact_->run(ctx, out, heap);
  check_room("BSR_BlockB::run()", out, out_, heap, heap_);
  SeriesNode<W> right;
  fork_halves(ctx, out, right, heap,
              [&](const RunContext& half_ctx, u64 half, SeriesNode<W>& node, LinearHeapBuffer half_heap) {
                (half == 0 ? *left_ : *right_).run(half_ctx, node, half_heap);
              });
  merge_nodes(*series_, range_, m_, ctx, out, right, heap);
  for (ExactFloat<W>& x : out) cut_exact(x, limit_ + 2, ctx.parallel);
}

template class BSR_BlockT<u32>;
template class BSR_BlockT<u64>;
template class BSR_BlockB<u32>;
template class BSR_BlockB<u64>;

}  // namespace orl
