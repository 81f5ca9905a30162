#include "numbers/algorithm.h"

#include "frame/exceptions.h"
#include "numbers/product_areas.h"

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

}  // namespace orl
