#include "splitting/brent_mcmillan_block.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "memory/sizing_arena.h"
#include "numbers/transform.h"
#include "splitting/exact_steps.h"
#include "splitting/verify.h"

namespace orl {
namespace {

constexpr const char* kFunction = "BrentMcMillanBlock::run()";

// So many bits of numbers are split exactly however short the precision is: a fold for every few terms would take more
// time than the words that it saves.
constexpr u64 kLeastBits = 32768;

/// Cuts off the words of x below the exponent `bottom`.
template <class W>
void cut_below(ExactFloat<W>& x, s64 bottom, ParallelContext parallel) {
  if (x.L == 0 || x.exp >= bottom) return;
  const s64 words = x.magnitude() - bottom;
  cut_exact(x, words > 0 ? static_cast<u64>(words) : 0, parallel);
  if (x.L == 0) x.set_zero();
}

}  // namespace

// Half of a block's products with the tail are as long as the tail alone, so shorter blocks cost little: those of five
// eighths of the precision take as long as those of the whole (1000000 digits, 1.9 s), and a sixth less memory.
template <class W>
DoubleDouble BrentMcMillanBlock<RamStore<W>>::largest(u64 p, SeriesMemory memory) {
  return words_to_nats<W>(
      std::max(memory == SeriesMemory::kReduced ? p / 2 : p * 5 / 8, kLeastBits / (8 * sizeof(W))));
}

template <class W>
BrentMcMillanBlock<RamStore<W>>::BrentMcMillanBlock(const Series<W>& series, const TermRange& range,
                                                    const BlockShape& shape)
    : series_(&series),
      range_(range),
      tds_(std::max<u64>(shape.tds, 1)),
      tail_words_(range.b == series.terms() ? 0 : std::min(series.remaining_words(range.b), shape.p + 1) + 2),
      kept_words_(std::min(series.remaining_words(range.a), shape.p + 1) + 2),
      recursion_(series, range, shape.tds, shape.halving),
      words_(make_fold_words()),
      at_(make_places()) {
  if (series.kind().numbers() != 4) internal_error("BrentMcMillanBlock()", "The series is of another kind.");
  use(false);
}

template <class W>
auto BrentMcMillanBlock<RamStore<W>>::make_fold_words() const -> FoldWords {
  const NodeWords bounds = series_->bound_words(range_.a, range_.b);
  const auto kept = [&](u64 words) { return std::min(words, kept_words_); };
  FoldWords words;
  words.D = kept(bounds[Kind::kD]);
  words.C = kept(bounds[Kind::kC]);
  words.T = kept(bounds[Kind::kT]);
  words.V = kept(bounds[Kind::kV]);
  words.square = kept(2 * words.D);
  words.cube = kept(words.square + words.D);
  words.DT = kept(words.D + words.T);
  if (tail_words_ > 0) {
    words.with_D = std::max(words.D, words.C) + tail_words_;
    words.with_a = std::max({words.V, words.DT, words.cube}) + tail_words_;
  }
  words.product =
      std::max({2 * words.D, words.square + words.D, words.D + words.T, words.with_D, words.with_a});
  return words;
}

template <class W>
auto BrentMcMillanBlock<RamStore<W>>::make_places() const -> Places {
  const NodeWords& out = recursion_.out_words();
  const u64 sum = round_up_8(kept_words_ + 2);
  Places at;
  at.b = sum;
  at.v = 2 * sum;
  at.V = 3 * sum;
  at.T = at.V + round_up_8(out[Kind::kV]);
  at.D = at.T + round_up_8(std::max(out[Kind::kT], words_.DT));
  at.C = at.D + round_up_8(out[Kind::kD]);
  at.end =
      std::max(at.C + round_up_8(std::max(out[Kind::kC], words_.square)), at.D + round_up_8(words_.cube));
  return at;
}

template <class W>
u64 BrentMcMillanBlock<RamStore<W>>::product_words() const {
  return std::max(recursion_.product_words(), words_.product);
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::use(bool kept_transforms) {
  kept_transforms_ = kept_transforms;
  fold_bytes_ = layout_bytes([&](SizingArena& arena) {
    arena.cut<W>(words_.product);
    const u64 own = std::max({2 * words_.D, words_.square + words_.D, words_.D + words_.T});
    arena.leave(ExactFloat<W>::mul_scratch(kept_transforms ? own : words_.product, tds_));
    if (!kept_transforms) return;
    arena.leave(TransformHelper<W>::max_bytes(words_.with_D, tds_, 2));
    arena.leave(TransformHelper<W>::max_bytes(words_.with_a, tds_));
  });
  total_bytes_ = layout_bytes([&](SizingArena& arena) { cut_area(arena); });
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::use_memory(u64 bytes) {
  if (tail_words_ == 0) return;
  use(true);
  if (total_bytes_ > bytes) use(false);
}

template <class W>
template <class Arena>
W* BrentMcMillanBlock<RamStore<W>>::cut_area(Arena& arena) const {
  W* const area = arena.template cut<W>(at_.end);
  arena.leave(std::max(recursion_.heap_bytes(), fold_bytes_));
  return area;
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::run(const RunContext& ctx, Frame& caller, Tail& tail,
                                          LinearHeapBuffer heap) const {
  Frame frame = caller.enter(kFunction);
  if (heap.size < total_bytes_) throw BufferTooSmallException(kFunction, heap.size, total_bytes_);
  Memory memory{.area = cut_area(heap), .product = nullptr, .heap = heap};
  SeriesNode<W> node;
  ExactFloat<W> cube;
  frame.stage([&] { recurse(ctx, tail, node, memory); }, node, tail);
  memory.product = memory.heap.template cut<W>(words_.product);
  for (const u32 i : {Kind::kD, Kind::kT, Kind::kV}) show_fault_point("fold operand", node[i]);
  if (tail_words_ > 0) {  // else C is of no use
    for (const ExactFloat<W>* x : {&node[Kind::kC], &tail.a, &tail.b, &tail.v})
      show_fault_point("fold operand", *x);
    frame.stage([&] { fold_D(ctx, tail, node, memory); }, node, tail);
  }
  frame.stage([&] { take_own_products(ctx, node, cube, memory); }, node, cube, tail);
  if (tail_words_ > 0) {
    frame.stage([&] { fold_a(ctx, tail, node, cube, memory); }, tail);
  } else {
    tail = {cube, node[Kind::kT], node[Kind::kV]};
    put(ctx, tail.v, at_.v, at_.V, memory);
    put(ctx, tail.b, at_.b, at_.v, memory);
    put(ctx, tail.a, at_.a, at_.b, memory);
  }
  SeriesNode<W> result{{tail.a, tail.b, tail.v}, 3};
  show_node("fold result", result);
  verify_node(result, range_.a, range_.b, ctx);
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::recurse(const RunContext& ctx, Tail& tail, SeriesNode<W>& node,
                                              const Memory& memory) const {
  if (tail_words_ > 0) {  // upward, so the last one first
    put(ctx, tail.v, at_.v, at_.V, memory);
    put(ctx, tail.b, at_.b, at_.v, memory);
    put(ctx, tail.a, at_.a, at_.b, memory);
  }
  W* const area = memory.area;
  node.count = 4;
  node[Kind::kV] = {area + at_.V, at_.T - at_.V};
  node[Kind::kT] = {area + at_.T, at_.D - at_.T};
  node[Kind::kD] = {area + at_.D, at_.C - at_.D};
  node[Kind::kC] = {area + at_.C, at_.end - at_.C};
  recursion_.run(ctx, node, memory.heap);
  for (ExactFloat<W>& x : node) cut_exact(x, kept_words_, ctx.parallel);
}

// b' and v' without what a gives them.
template <class W>
void BrentMcMillanBlock<RamStore<W>>::fold_D(const RunContext& ctx, Tail& tail, const SeriesNode<W>& node,
                                             const Memory& memory) const {
  using Transform = ExactFloatTransformR<W>;
  const ExactFloat<W>&D = node[Kind::kD], &C = node[Kind::kC];
  const MultiplyContext multiply = ctx.multiply(memory.heap);
  ExactFloat<W> product(memory.product, words_.product);
  const auto take_v = [&] {
    tail.v = product;
    put(ctx, tail.v, at_.v, at_.V, memory);
    product = {memory.product, words_.product};
  };
  if (kept_transforms_) {
    const TransformHelper<W> helper(multiply, std::max(D.L, C.L) + std::max(tail.b.L, tail.v.L), 2);
    Transform of_D, of_b;
    Transform::mul_rr_xf(helper, product, tail.v, D, of_D, 0);
    take_v();
    Transform::mul_rr_xf(helper, product, C, tail.b, of_b, 1);
    add(ctx, tail.v, product, at_.v, memory);
    Transform::inverse_fmul(helper, product, of_b, of_D);
  } else {
    product.set_mul(D, tail.v, multiply);
    take_v();
    product.set_mul(C, tail.b, multiply);
    add(ctx, tail.v, product, at_.v, memory);
    product.set_mul(D, tail.b, multiply);
  }
  tail.b = product;
  put(ctx, tail.b, at_.b, at_.v, memory);
}

// D T in place of T, and D^3 in place of D and C.
template <class W>
void BrentMcMillanBlock<RamStore<W>>::take_own_products(const RunContext& ctx, SeriesNode<W>& node,
                                                        ExactFloat<W>& cube, const Memory& memory) const {
  const ExactFloat<W>& D = node[Kind::kD];
  const MultiplyContext multiply = ctx.multiply(memory.heap);
  ExactFloat<W> product(memory.product, words_.product);
  product.set_mul(D, node[Kind::kT], multiply);
  node[Kind::kT] = product;
  put(ctx, node[Kind::kT], at_.T, at_.D, memory);
  ExactFloat<W> square(memory.product, words_.product);
  square.set_sqr(D, multiply);
  put(ctx, square, at_.C, at_.end, memory);
  cube = {memory.product, words_.product};
  cube.set_mul(square, D, multiply);
  put(ctx, cube, at_.D, at_.end, memory);
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::fold_a(const RunContext& ctx, Tail& tail, const SeriesNode<W>& node,
                                             const ExactFloat<W>& cube, const Memory& memory) const {
  using Transform = ExactFloatTransformR<W>;
  const ExactFloat<W>&DT = node[Kind::kT], &V = node[Kind::kV];
  const MultiplyContext multiply = ctx.multiply(memory.heap);
  const auto fold = [&](const auto& times_a) {
    ExactFloat<W> product(memory.product, words_.product);
    times_a(product, V);
    add(ctx, tail.v, product, at_.v, memory);
    times_a(product, DT);
    add(ctx, tail.b, product, at_.b, memory);
    times_a(product, cube);
    tail.a = product;
    put(ctx, tail.a, at_.a, at_.b, memory);
  };
  if (!kept_transforms_)
    return fold(
        [&](ExactFloat<W>& product, const ExactFloat<W>& x) { product.set_mul(x, tail.a, multiply); });
  const TransformHelper<W> helper(multiply, std::max({V.L, DT.L, cube.L}) + tail.a.L);
  Transform of_a;
  of_a.forward(helper, tail.a);
  fold([&](ExactFloat<W>& product, const ExactFloat<W>& x) {
    Transform::mul_rf_xf(helper, product, x, of_a);
  });
}

template <class W>
void BrentMcMillanBlock<RamStore<W>>::put(const RunContext& ctx, ExactFloat<W>& x, u64 place, u64 end,
                                          const Memory& memory) const {
  cut_exact(x, kept_words_, ctx.parallel);
  move_exact(x, memory.area + place, end - place, ctx.parallel);
}

// Either may be the larger, and neither need reach down to what the other keeps.
template <class W>
void BrentMcMillanBlock<RamStore<W>>::add(const RunContext& ctx, ExactFloat<W>& x, ExactFloat<W>& y,
                                          u64 place, const Memory& memory) const {
  const s64 bottom = std::max(x.magnitude(), y.magnitude()) - static_cast<s64>(kept_words_);
  cut_below(x, bottom, ctx.parallel);
  cut_below(y, bottom, ctx.parallel);
  W* const base = memory.area + place;
  if (x.L > 0) {
    W* const from = base + (x.exp - bottom);
    std::memmove(from, x.T, x.L * sizeof(W));
    x.T = from;
  }
  x.base = base;
  x.size = at_.b;
  x.add_ip(y, ctx.parallel);
  cut_exact(x, kept_words_, ctx.parallel);
}

template class BrentMcMillanBlock<RamStore<u32>>;
template class BrentMcMillanBlock<RamStore<u64>>;

}  // namespace orl
