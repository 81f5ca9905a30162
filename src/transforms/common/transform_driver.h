// What the families of exact transforms share from the front down to their stages: a shape as Parameters, and the
// algorithm with its size table.
//
// A Family names
//   kId, kName, kModule, kVariant, kMaxBits   the words and the limit of the algorithm;
//   Point                                     what transforms are made of;
//   Shape                                     what a row of the size table stands for; bits() are its product's;
//   Tables                                    its FamilyTables, with bytes(rows) and grow(memory, rows);
//   rows(), shape(row)                        the size table, in order of capacity, and a row's Shape;
//   Run                                       one shape at work, below.
//
// A Run is made of a shape, tables (null when only sizes are asked for) and the tasks to plan for. It has
//   shape(), transform_bytes(), scratch_bytes(), same(run)   sizes; whether transforms of both mix;
//   wraps()                                   whether the shape also makes products modulo W^n - 1 and W^n + 1;
//   plan(ring)                                what its stages read, for a ring. Throws InvalidParametersException
//                                             when the tables do not serve the shape;
//   start(plan, F, operand, work)             the first stage: from words to subtrees that are independent;
//   forward(plan, F, work)                    the transform of these;
//   multiply(plan, F, G, state, work)         their product, brought back, F in place. G may be F;
//   finish(plan, F, window, work)             the last stage: to the words of the window. True for a negacyclic
//                                             product that is W^n.
#pragma once

#include <algorithm>
#include <memory>
#include <span>

#include "core/exceptions.h"
#include "transforms/common/product_algorithm.h"
#include "transforms/common/transform_records.h"
#include "transforms/common/unwrap_product.h"

namespace orl {

/// Throws ConvolutionTooSmallException when `words` words exceed a shape of `bits`.
inline void check_length(const char* id, u64 bits, u64 words) {
  if (words > bits / 32)
    throw ConvolutionTooSmallException(id, "Convolution length is too small.", bits, words * 32);
}

/// Null when the family has no tables there, or when there are none at all.
template <class Family>
const typename Family::Tables* find_tables(const TransformTables* tables) {
  return tables ? static_cast<const typename Family::Tables*>(tables->find(Family::kId)) : nullptr;
}

/// One shape of a family.
template <class Family>
class TransformParameters final : public Parameters, public WrappedProducts {
 public:
  using Run = typename Family::Run;
  using Point = typename Family::Point;

  /// `tables` may be null when only sizes are asked for; scratch is planned for `tds` tasks. Throws
  /// InvalidParametersException when the shape is none of the family's.
  TransformParameters(const typename Family::Shape& shape, const typename Family::Tables* tables, u64 tds)
      : run_(shape, tables, tds) {
    max_bits_ = shape.bits();
    transform_size_ = run_.transform_bytes();
    scratch_size_ = run_.scratch_bytes();
    if (!run_.wraps()) return;
    words_ = max_bits_ / 32;
    wrapped_ = this;
  }

  void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    transform(ProductRing::kPlain, F, A, {tmp, parallel});
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    check_length(Family::kId, max_bits_, T.len);
    multiply(ProductRing::kPlain, F, G, T, {tmp, parallel});
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const TransformParameters*>(&other);
    return o && o->run_.same(run_);
  }

  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    transform(product_ring(ring), F, A, {tmp, parallel});
  }
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext parallel) const override {
    return multiply(product_ring(ring), F, G, {T, 0, words_}, {tmp, parallel});
  }
  bool product_wrapped(Wrap ring, const TransformAreas& areas, Words<u32> A, Words<u32> B, u32* T,
                       ParallelContext parallel) const override {
    const TransformWork work{areas.tmp, parallel};
    const auto plan = run_.plan(product_ring(ring));
    Point *const F = static_cast<Point*>(areas.F), *const G = static_cast<Point*>(areas.G);
    check_length(Family::kId, max_bits_, std::max(A.count, B.count));
    run_.start(plan, F, A, work);
    if (G != F) run_.start(plan, G, B, work);
    run_.multiply(plan, F, G, OperandState::kStarted, work);
    return run_.finish(plan, F, {T, 0, words_}, work);
  }

 private:
  static ProductRing product_ring(Wrap ring) {
    return ring == Wrap::cyclic ? ProductRing::kCyclic : ProductRing::kNegacyclic;
  }
  void transform(ProductRing ring, void* F, Words<u32> A, TransformWork work) const {
    check_length(Family::kId, max_bits_, A.count);
    const auto plan = run_.plan(ring);
    run_.start(plan, static_cast<Point*>(F), A, work);
    run_.forward(plan, static_cast<Point*>(F), work);
  }
  bool multiply(ProductRing ring, void* F, const void* G, WordWindow window, TransformWork work) const {
    const auto plan = run_.plan(ring);
    // Of transformed operands only F is changed.
    run_.multiply(plan, static_cast<Point*>(F), static_cast<Point*>(const_cast<void*>(G)),
                  OperandState::kTransformed, work);
    return run_.finish(plan, static_cast<Point*>(F), window, work);
  }

  Run run_;
};

/// A family with its size table.
template <class Family>
class TransformAlgorithm final : public ProductAlgorithm {
 public:
  using Run = typename Family::Run;
  using Point = typename Family::Point;
  using Tables = typename Family::Tables;

  TransformAlgorithm()
      : ProductAlgorithm(Family::kMaxBits, Family::kId, Family::kName, Family::kModule, Family::kVariant) {}

  u64 table_bytes(u64 bits) const override { return Tables::bytes(rows_to(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    if (!tables.find(Family::kId)) tables.put(Family::kId, std::make_unique<Tables>());
    static_cast<Tables*>(tables.find(Family::kId))->grow(tables.memory(), rows_to(bits));
  }
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    const Run run(shape_of(bits), nullptr, tds);
    return {run.transform_bytes(), run.scratch_bytes()};
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64 tds) const override {
    return out.emplace<TransformParameters<Family>>(shape_of(bits), find_tables<Family>(tables), tds);
  }

 private:
  /// The rows that products of up to `bits` take.
  static auto rows_to(u64 bits) {
    const auto rows = Family::rows();
    const auto found =
        std::partition_point(rows.begin(), rows.end(), [&](const auto& row) { return row.bits() < bits; });
    if (bits > Family::kMaxBits || found == rows.end())
      throw LimitExceededException(Family::kId, Family::kMaxBits, bits);
    return rows.first(static_cast<u64>(found - rows.begin()) + 1);
  }
  static typename Family::Shape shape_of(u64 bits) { return Family::shape(rows_to(bits).back()); }

  void product(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const u64 words = A.count + (B.count == 0 ? A.count : B.count);
    const auto rows = rows_to(words * 32);
    check_length(Family::kId, rows.back().bits(), T.len);
    // A row of the size table may say how far whole products pass it.
    if constexpr (requires { rows.back().stretched_bits(); })
      if (rows.size() > 1 && T.skip == 0 && T.len == words &&
          words * 32 <= rows[rows.size() - 2].stretched_bits() &&
          stretched(Family::shape(rows[rows.size() - 2]), ctx, T, A, B))
        return;
    multiply(Family::shape(rows.back()), ProductRing::kPlain, ctx, T, A, B);
  }

  /// T = the whole product, a little longer than a shape of n words: its residue modulo W^n - 1, and what is above from
  /// its lowest words. False, and nothing done, when an operand is longer or the scratch does not hold it.
  bool stretched(const typename Family::Shape& shape, const MultiplyContext& ctx, Window<u32> T, Words<u32> A,
                 Words<u32> B) const {
    const u64 n = shape.bits() / 32, above = T.len - n;
    if (std::max(A.count, B.count) > n) return false;
    const auto low_of = [&](Words<u32> X) { return Words<u32>{X.ptr, std::min(X.count, above + 1)}; };
    const Words<u32> a = low_of(A), b = low_of(B);
    const auto low_shape = shape_of((a.count + (b.count == 0 ? a.count : b.count)) * 32);
    const auto bytes = [&](const typename Family::Shape& of) {
      const Run run(of, nullptr, ctx.parallel.tds);
      return (B.count == 0 ? 1 : 2) * run.transform_bytes() + run.scratch_bytes();
    };
    LinearHeapBuffer scratch = ctx.scratch;
    if (LinearHeapBuffer::cut_bytes<u32>(above + 1) + std::max(bytes(shape), bytes(low_shape)) > scratch.size)
      return false;
    u32* const low = scratch.cut<u32>(above + 1);
    multiply(low_shape, ProductRing::kPlain, ctx.with_scratch(scratch), {low, 0, above + 1}, a, b);
    multiply(shape, ProductRing::kCyclic, ctx.with_scratch(scratch), {T.T, 0, n}, A, B);
    if (!unwrap_product(T.T, n, low, above, ctx.parallel))
      throw AlgorithmFailedException(Family::kId, "Overlap Mismatch");
    return true;
  }

  // Subtrees go forward, through the product and back while they are in cache.
  void multiply(const typename Family::Shape& shape, ProductRing ring, const MultiplyContext& ctx,
                Window<u32> T, Words<u32> A, Words<u32> B) const {
    const bool square = B.count == 0;
    const Run run(shape, find_tables<Family>(&ctx.tables), ctx.parallel.tds);
    const auto plan = run.plan(ring);
    LinearHeapBuffer scratch = ctx.scratch;
    const auto cut = [&] { return reinterpret_cast<Point*>(scratch.cut<u8>(run.transform_bytes())); };
    Point* const F = cut();
    Point* const G = square ? F : cut();
    const TransformWork work{scratch.cut<u8>(run.scratch_bytes()), ctx.parallel};
    run.start(plan, F, A, work);
    if (!square) run.start(plan, G, B, work);
    run.multiply(plan, F, G, OperandState::kStarted, work);
    run.finish(plan, F, T, work);
  }
};

}  // namespace orl
