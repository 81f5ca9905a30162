#include "multiply/algorithm.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/crt_mulp.h"
#include "multiply/product_areas.h"

namespace orl {
namespace {

template <class W>
void transform_square(const Algorithm& algorithm, const MultiplyContext& ctx, W* T, u64 skip, u64 len,
                      const W* A, u64 L) {
  ParametersBox box;
  const Parameters& shape =
      algorithm.parameters_for(box, &ctx.tables, 2 * L * sizeof(W) * 8, ctx.parallel.tds);
  void* area;
  void* tmp = cut_product_areas(ctx.scratch, shape.sizes(), &area, 1, "Algorithm::sqr_window()");
  shape_forward(shape, area, A, L, tmp, ctx.parallel);
  shape_inverse_fsqr(shape, area, T, skip, len, tmp, ctx.parallel);
}

template <class W>
void transform_product(const Algorithm& algorithm, const MultiplyContext& ctx, W* T, u64 skip, u64 len,
                       const W* A, u64 AL, const W* B, u64 BL) {
  ParametersBox box;
  const Parameters& shape =
      algorithm.parameters_for(box, &ctx.tables, (AL + BL) * sizeof(W) * 8, ctx.parallel.tds);
  void* areas[2];
  void* tmp = cut_product_areas(ctx.scratch, shape.sizes(), areas, 2, "Algorithm::mul_window()");
  shape_forward(shape, areas[0], A, AL, tmp, ctx.parallel);
  shape_forward(shape, areas[1], B, BL, tmp, ctx.parallel);
  shape_inverse_fmul(shape, areas[0], areas[1], T, skip, len, tmp, ctx.parallel);
}

constexpr u64 kWordBits = 32;

// Bits of the shape whose wrapped products make up a product of `words` words.
u64 wrapped_bits(u64 words) { return (words + 1) / 2 * kWordBits; }

const Parameters& wrapped_shape(const Algorithm& algorithm, const MultiplyContext& ctx, ParametersBox& box,
                                u64 words) {
  const Parameters& shape = algorithm.parameters_for(box, &ctx.tables, wrapped_bits(words), ctx.parallel.tds);
  if (2 * shape.cyclic_words() < words)
    throw TransformTooSmallException("Algorithm::mul_bounded()", "Transform length is too small.");
  return shape;
}

template <class W>
void bounded_square(const Algorithm& algorithm, const MultiplyContext& ctx, W* T, u64 skip, u64 len,
                    const W* A, u64 L) {
  constexpr u64 k = sizeof(W) / sizeof(u32);
  try {
    ParametersBox box;
    const Parameters& shape = wrapped_shape(algorithm, ctx, box, 2 * L * k);
    const u64 direct = algorithm.sizes(2 * L * k * kWordBits, ctx.parallel.tds).square_bytes();
    if (crt_sqrp_bytes(shape, (len - skip) * k) < direct)
      return CRT_sqrp(shape, reinterpret_cast<u32*>(T), skip * k, len * k, reinterpret_cast<const u32*>(A),
                      L * k, ctx.scratch, ctx.parallel);
  } catch (const TransformTooSmallException&) {
  }
  algorithm.sqr_window(ctx, T, skip, len, A, L);
}

template <class W>
void bounded_product(const Algorithm& algorithm, const MultiplyContext& ctx, W* T, u64 skip, u64 len,
                     const W* A, u64 AL, const W* B, u64 BL) {
  constexpr u64 k = sizeof(W) / sizeof(u32);
  try {
    ParametersBox box;
    const Parameters& shape = wrapped_shape(algorithm, ctx, box, (AL + BL) * k);
    const u64 direct = algorithm.sizes((AL + BL) * k * kWordBits, ctx.parallel.tds).total_bytes();
    if (crt_mulp_bytes(shape, (len - skip) * k) < direct)
      return CRT_mulp(shape, reinterpret_cast<u32*>(T), skip * k, len * k, reinterpret_cast<const u32*>(A),
                      AL * k, reinterpret_cast<const u32*>(B), BL * k, ctx.scratch, ctx.parallel);
  } catch (const TransformTooSmallException&) {
  }
  algorithm.mul_window(ctx, T, skip, len, A, AL, B, BL);
}

}  // namespace

void Parameters::forward_cyclic(void*, const u32*, u64, void*, ParallelContext) const {
  throw InvalidParametersException("Parameters::forward_cyclic()", "Invalid Function Parameters:   ");
}
void Parameters::pointwise_cyclic(void*, const void*, u32*, void*, ParallelContext) const {
  throw InvalidParametersException("Parameters::pointwise_cyclic()", "Invalid Function Parameters:   ");
}
void Parameters::forward_negacyclic(void*, const u32*, u64, void*, ParallelContext) const {
  throw InvalidParametersException("Parameters::forward_negacyclic()", "Invalid Function Parameters:   ");
}
bool Parameters::pointwise_negacyclic(void*, const void*, u32*, void*, ParallelContext) const {
  throw InvalidParametersException("Parameters::pointwise_negacyclic()", "Invalid Function Parameters:   ");
}

void Parameters::product_cyclic(void* F, void* G, const u32* A, u64 AL, const u32* B, u64 BL, u32* T,
                                void* tmp, ParallelContext parallel) const {
  forward_cyclic(F, A, AL, tmp, parallel);
  if (G != F) forward_cyclic(G, B, BL, tmp, parallel);
  pointwise_cyclic(F, G, T, tmp, parallel);
}
bool Parameters::product_negacyclic(void* F, void* G, const u32* A, u64 AL, const u32* B, u64 BL, u32* T,
                                    void* tmp, ParallelContext parallel) const {
  forward_negacyclic(F, A, AL, tmp, parallel);
  if (G != F) forward_negacyclic(G, B, BL, tmp, parallel);
  return pointwise_negacyclic(F, G, T, tmp, parallel);
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

void Algorithm::sqr_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 L) const {
  transform_square(*this, ctx, T, skip, len, A, L);
}
void Algorithm::sqr_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 L) const {
  transform_square(*this, ctx, T, skip, len, A, L);
}
void Algorithm::mul_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 AL,
                           const u32* B, u64 BL) const {
  transform_product(*this, ctx, T, skip, len, A, AL, B, BL);
}
void Algorithm::mul_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 AL,
                           const u64* B, u64 BL) const {
  transform_product(*this, ctx, T, skip, len, A, AL, B, BL);
}

void Algorithm::sqr_bounded(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A,
                            u64 L) const {
  bounded_square(*this, ctx, T, skip, len, A, L);
}
void Algorithm::sqr_bounded(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A,
                            u64 L) const {
  bounded_square(*this, ctx, T, skip, len, A, L);
}
void Algorithm::mul_bounded(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 AL,
                            const u32* B, u64 BL) const {
  bounded_product(*this, ctx, T, skip, len, A, AL, B, BL);
}
void Algorithm::mul_bounded(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 AL,
                            const u64* B, u64 BL) const {
  bounded_product(*this, ctx, T, skip, len, A, AL, B, BL);
}

BoundedSizes Algorithm::bounded_sizes(u64 bits, u64 window_bits, u64 tds) const {
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
