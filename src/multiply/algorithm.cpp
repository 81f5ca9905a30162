#include "multiply/algorithm.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/crt_mulp.h"
#include "multiply/product_areas.h"

namespace orl {
namespace {

constexpr u64 kWordBits = 32;

// Bits of the shape whose wrapped products make up a product of `words` words.
u64 wrapped_bits(u64 words) { return (words + 1) / 2 * kWordBits; }

// The shape whose wrapped products make up one of `words` words; null when they are too short for it.
const Parameters* wrapped_shape(const Algorithm& algorithm, const MultiplyContext& ctx, ParametersBox& box,
                                u64 words) {
  const Parameters& shape = algorithm.parameters_for(box, &ctx.tables, wrapped_bits(words), ctx.parallel.tds);
  return 2 * shape.cyclic_words() < words ? nullptr : &shape;
}

}  // namespace

bool WrappedProducts::product_wrapped(Wrap ring, const TransformAreas& areas, Words<u32> A, Words<u32> B,
                                      u32* T, ParallelContext parallel) const {
  forward_wrapped(ring, areas.F, A, areas.tmp, parallel);
  if (areas.G != areas.F) forward_wrapped(ring, areas.G, B, areas.tmp, parallel);
  return pointwise_wrapped(ring, areas.F, areas.G, T, areas.tmp, parallel);
}

const FamilyTables* TransformTables::find(std::string_view family_id) const {
  for (const auto& [id, tables] : families_)
    if (id == family_id) return tables.get();
  return nullptr;
}

FamilyTables* TransformTables::find(std::string_view family_id) {
  return const_cast<FamilyTables*>(std::as_const(*this).find(family_id));
}

void TransformTables::put(std::string_view family_id, std::unique_ptr<FamilyTables> tables) {
  for (auto& [id, held] : families_) {
    if (id != family_id) continue;
    held = std::move(tables);
    return;
  }
  families_.emplace_back(family_id, std::move(tables));
}

void Algorithm::sqr_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const {
  ParametersBox box;
  const Parameters& shape = parameters_for(box, &ctx.tables, 2 * A.count * kWordBits, ctx.parallel.tds);
  void* area;
  void* tmp = cut_product_areas(ctx.scratch, shape.sizes(), &area, 1, "Algorithm::sqr_window()");
  shape.forward(area, A, tmp, ctx.parallel);
  shape.inverse_fsqr(area, T, tmp, ctx.parallel);
}

void Algorithm::mul_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const {
  ParametersBox box;
  const Parameters& shape =
      parameters_for(box, &ctx.tables, (A.count + B.count) * kWordBits, ctx.parallel.tds);
  void* areas[2];
  void* tmp = cut_product_areas(ctx.scratch, shape.sizes(), areas, 2, "Algorithm::mul_window()");
  shape.forward(areas[0], A, tmp, ctx.parallel);
  shape.forward(areas[1], B, tmp, ctx.parallel);
  shape.inverse_fmul(areas[0], areas[1], T, tmp, ctx.parallel);
}

void Algorithm::sqr_bounded(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const {
  ParametersBox box;
  const Parameters* shape = wrapped_shape(*this, ctx, box, 2 * A.count);
  const u64 direct = sizes(2 * A.count * kWordBits, ctx.parallel.tds).square_bytes();
  if (shape && crt_sqrp_bytes(*shape, T.count()) < direct)
    CRT_sqrp(*shape, T, A, ctx.scratch, ctx.parallel);
  else
    sqr_window(ctx, T, A);
}

void Algorithm::mul_bounded(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const {
  const u64 words = A.count + B.count;
  ParametersBox box;
  const Parameters* shape = wrapped_shape(*this, ctx, box, words);
  const u64 direct = sizes(words * kWordBits, ctx.parallel.tds).total_bytes();
  if (shape && crt_mulp_bytes(*shape, T.count()) < direct)
    CRT_mulp(*shape, T, A, B, ctx.scratch, ctx.parallel);
  else
    mul_window(ctx, T, A, B);
}

ProductSizes Algorithm::bounded_sizes(u64 bits, u64 window_bits, u64 tds) const {
  const MultiplySizes direct = sizes(bits, tds);
  const u64 words = (bits + kWordBits - 1) / kWordBits;
  ParametersBox box;
  const Parameters& shape = parameters_for(box, nullptr, wrapped_bits(words), tds);
  if (2 * shape.cyclic_words() < words) return {direct.total_bytes(), direct.square_bytes()};
  const u64 window = std::min(window_bits, bits) / kWordBits;
  return {std::min(direct.total_bytes(), crt_mulp_bytes(shape, window)),
          std::min(direct.square_bytes(), crt_sqrp_bytes(shape, window))};
}

}  // namespace orl
