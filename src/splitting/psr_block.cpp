#include "splitting/psr_block.h"

#include <algorithm>

#include "core/exceptions.h"
#include "numbers/transform.h"
#include "splitting/exact_steps.h"
#include "splitting/verify.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr const char* kFunction = "PSR_BlockB::run()";

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

template <class W>
const FractionKind<W>* fraction_kind(const SeriesKind<W>& kind) {
  const auto* const fraction = dynamic_cast<const FractionKind<W>*>(&kind);
  if (!fraction) internal_error("PSR_BlockB()", "The kind has no fraction to fold into.");
  return fraction;
}

/// The memory of a fold beside the running area.
template <class W>
struct FoldBuffers {
  W* words;  ///< of a whole product
  W* aside;  ///< of a product with a piece, where there are several
};

template <class W, class Arena, class Fold>
FoldBuffers<W> cut_fold(Arena& arena, const Fold& fold) {
  FoldBuffers<W> buffers{arena.template cut<W>(fold.sum_words), nullptr};
  if (fold.pieces > 1) buffers.aside = arena.template cut<W>(fold.piece_product_words);
  arena.leave(fold.scratch_bytes);
  return buffers;
}

}  // namespace

template <class W>
PSR_Block<RamStore<W>>::PSR_Block(const Series<W>& series, const TermRange& range, const BlockShape& shape)
    : series_(&series),
      kind_(fraction_kind(series.kind())),
      range_(range),
      tds_(std::max<u64>(shape.tds, 1)),
      tail_words_(range.b == series.terms() ? 0 : std::min(series.remaining_words(range.b), shape.p + 1) + 2),
      kept_words_(std::min(series.remaining_words(range.a), shape.p + 1) + 2),
      recursion_(series, range, shape.tds, shape.halving, kept_words_ - 2) {
  using Node = SeriesNode<W>;
  const NodeWords& words = recursion_.out_words();
  const u64 tail = round_up_8(tail_words_);
  q_at_ = tail;
  p_at_ = q_at_ + round_up_8(words[Node::kQ]);
  x_at_ = p_at_ + round_up_8(words[Node::kP]);
  t_at_ = x_at_ + (kind_->factor() == FractionKind<W>::kNone ? 0 : round_up_8(words[kind_->factor()]));
  area_words_ = t_at_ + tail + 8;  // a sum may carry into one word more
  use({});
  if (tail_words_ == 0) return;
  // Each further piece costs time, and must save memory that nothing else takes.
  const bool reduced = shape.memory == SeriesMemory::kReduced;
  const u64 most = reduced ? 4 : 2, worth = reduced ? 64 : 16;
  Fold best = plan_fold(1, false);
  for (u64 pieces = 2; pieces <= most && best.bytes > recursion_.heap_bytes(); ++pieces) {
    const Fold fold = plan_fold(pieces, false);
    if (fold.bytes + best.bytes / worth < best.bytes) best = fold;
  }
  use(best);
}

template <class W>
typename PSR_Block<RamStore<W>>::Fold PSR_Block<RamStore<W>>::plan_fold(u64 pieces, bool direct) const {
  const u64 numbers = std::min(recursion_.number_words(), kept_words_);
  Fold fold{pieces, direct};
  fold.sum_words = round_up_8(numbers + tail_words_ + 1);
  fold.piece_product_words = numbers + (tail_words_ + pieces - 1) / pieces;
  fold.scratch_bytes = direct ? TransformHelper<W>::max_bytes(fold.piece_product_words, tds_)
                              : ExactFloat<W>::mul_scratch(fold.piece_product_words, tds_);
  fold.bytes = layout_bytes([&](SizingArena& arena) { cut_fold<W>(arena, fold); });
  return fold;
}

template <class W>
void PSR_Block<RamStore<W>>::use(const Fold& fold) {
  fold_ = fold;
  product_words_ = std::max(recursion_.product_words(), fold.piece_product_words);
  total_bytes_ = layout_bytes([&](SizingArena& arena) { cut_area(arena); });
}

template <class W>
template <class Arena>
W* PSR_Block<RamStore<W>>::cut_area(Arena& arena) const {
  W* const area = arena.template cut<W>(area_words_);
  arena.leave(std::max(recursion_.heap_bytes(), fold_.bytes));
  return area;
}

template <class W>
void PSR_Block<RamStore<W>>::use_memory(u64 bytes) {
  if (tail_words_ == 0) return;
  const Fold least = fold_;
  for (const Fold& fold : {plan_fold(1, true), plan_fold(1, false), least}) {
    use(fold);
    if (total_bytes() <= bytes) return;
  }
}

template <class W>
void PSR_Block<RamStore<W>>::run(const RunContext& ctx, Frame& caller, Fraction& fraction,
                                 LinearHeapBuffer heap) const {
  Frame frame = caller.enter(kFunction);
  if (heap.size < total_bytes_) throw BufferTooSmallException(kFunction, heap.size, total_bytes_);
  W* const area = cut_area(heap);
  SeriesNode<W> node;
  frame.stage([&] { recurse(ctx, fraction, node, {area, heap}); }, node, fraction);
  if (tail_words_ > 0) fold(ctx, frame, fraction, node, {area, heap});
  fraction.U = node.Q();
  fraction.T = node.P();
  move_exact(fraction.U, area, round_up_8(fraction.U.L), ctx.parallel);
  move_exact(fraction.T, area + fraction.U.size, area_words_ - fraction.U.size, ctx.parallel);
}

template <class W>
void PSR_Block<RamStore<W>>::recurse(const RunContext& ctx, Fraction& fraction, SeriesNode<W>& node,
                                     const Memory& memory) const {
  W* const area = memory.area;
  if (tail_words_ > 0) move_exact(fraction.T, area + t_at_, area_words_ - t_at_, ctx.parallel);
  node.count = kind_->numbers();
  node.Q() = {area + q_at_, p_at_ - q_at_};
  node.P() = {area + p_at_, x_at_ - p_at_};
  if (node.count == 3) node.R() = {area + x_at_, t_at_ - x_at_};
  recursion_.run(ctx, node, memory.heap);
  if (tail_words_ == 0) node.count = 2;  // nothing is left for R to multiply
  for (ExactFloat<W>& x : node) cut_exact(x, kept_words_, ctx.parallel);
}

template <class W>
void PSR_Block<RamStore<W>>::fold(const RunContext& ctx, Frame& frame, Fraction& fraction,
                                  SeriesNode<W>& node, Memory memory) const {
  show_node("fold operand", node);
  show_fault_point("fold operand", fraction.U);
  show_fault_point("fold operand", fraction.T);
  const FoldBuffers<W> buffers = cut_fold<W>(memory.heap, fold_);
  const auto multiply = [&](ExactFloat<W>& product, const ExactFloat<W>& x, const ExactFloat<W>& u) {
    product = ExactFloat<W>(buffers.words, fold_.sum_words);
    multiply_in_pieces(ctx.multiply(memory.heap), product, x, u, buffers.aside);
  };
  const auto place = [&](ExactFloat<W>& x, u64 at) {
    move_exact(x, memory.area + at, area_words_ - at, ctx.parallel);
  };
  ExactFloat<W> t = fraction.T, sum, product;
  const auto add = [&] {
    add_exact(sum, t, series_->subtracts(range_.a, range_.b), ctx.parallel);
    cut_exact(sum, kept_words_, ctx.parallel);
    place(sum, p_at_);
  };
  if (const u32 factor = kind_->factor(); factor != FractionKind<W>::kNone)
    frame.stage(
        [&] {
          multiply(t, node[factor], fraction.T);
          place(t, x_at_);
        },
        node, fraction.U, t);
  if (fold_.direct) {
    frame.stage(
        [&] {
          using Transform = ExactFloatTransformR<W>;
          const TransformHelper<W> helper(ctx.multiply(memory.heap),
                                          std::max(node.P().L, node.Q().L) + fraction.U.L);
          Transform kept;
          sum = product = ExactFloat<W>(buffers.words, fold_.sum_words);
          Transform::mul_rr_xf(helper, sum, node.P(), fraction.U, kept);
          add();
          Transform::mul_rf_xf(helper, product, node.Q(), kept);
        },
        sum, product);
  } else {
    frame.stage(
        [&] {
          multiply(sum, node.P(), fraction.U);
          add();
        },
        node.Q(), fraction.U, sum);
    frame.stage([&] { multiply(product, node.Q(), fraction.U); }, sum, product);
  }
  cut_exact(product, kept_words_, ctx.parallel);
  place(product, 0);
  node.P() = sum;
  node.Q() = product;
  show_fault_point("fold result", node.P());
  show_fault_point("fold result", node.Q());
  orc_Verify_BSR(node.P(), node.Q(), range_.a, range_.b, ctx);
}

// x times the lowest piece of u, to which x times each other piece is added from aside. The last piece gets
// the hash that u's own leaves for it, so a change in u still shows.
template <class W>
void PSR_Block<RamStore<W>>::multiply_in_pieces(const MultiplyContext& ctx, ExactFloat<W>& product,
                                                const ExactFloat<W>& x, const ExactFloat<W>& u,
                                                W* aside) const {
  const u64 pieces = fold_.pieces;
  if (pieces == 1) return product.set_mul(x, u, ctx);
  u64 hash = u.hash;
  for (u64 i = 0; i < pieces; ++i) {
    const u64 from = u.L * i / pieces, to = u.L * (i + 1) / pieces;
    if (i > 0) fault_point("tail between pieces", u.T + from, (u.L - from) * sizeof(W));
    ExactFloat<W> piece = words_of(u, from, to, ctx.parallel);
    if (i + 1 == pieces) piece.hash = hash;
    hash = hash_sub(hash, piece.hash);
    if (i == 0) {
      product.set_mul(x, piece, ctx);
      continue;
    }
    ExactFloat<W> above(aside, fold_.piece_product_words);
    above.set_mul(x, piece, ctx);
    product.add_ip(above, ctx.parallel);
  }
}

template class PSR_Block<RamStore<u32>>;
template class PSR_Block<RamStore<u64>>;

}  // namespace orl
