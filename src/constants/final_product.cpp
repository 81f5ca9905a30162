#include "constants/final_product.h"

#include <algorithm>

#include "core/exceptions.h"
#include "functions/hashed_steps.h"
#include "numbers/transform.h"
#include "splitting/exact_steps.h"
#include "words/hash.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr const char* kFunction = "FinalProduct::run()";

/// Words [from, to) of x; a view.
template <class W>
BigFloat<W> slice(const BigFloat<W>& x, u64 from, u64 to) {
  BigFloat<W> part;
  part.T = x.T + from;
  part.L = bp_strip<W>(0, part.T, to - from);
  part.exp = x.exp + static_cast<s64>(from);
  part.sign = 1;
  return part;
}

/// Words [from, to) of a number and what they must hash to.
template <class W>
struct HashedPart {
  BigFloat<W> words;
  u64 hash;
};

}  // namespace

template <class W>
FinalProduct<RamStore<W>>::FinalProduct(const char* caller, u64 p, const typename Store::Budget& budget)
    : caller_(caller),
      p_(p),
      tds_(std::max<u64>(budget.tds, 1)),
      half_((p + 3) / 2),
      product_words_(2 * (p + 3 - half_)),
      need_(layout_need([&](auto& arena) { cut(arena); })) {
  need_.out_words = p + 8;
}

template <class W>
template <class Arena>
typename FinalProduct<RamStore<W>>::Buffers FinalProduct<RamStore<W>>::cut(Arena& arena) const {
  const Number cross = Store::number(arena, half_ + 3, "orv_C.sf");
  const Number product = Store::number(arena, product_words_, "orv_P.sf");
  arena.leave(Need{.ram_bytes = TransformHelper<W>::max_bytes(product_words_, tds_),
                   .table_bits = product_words_ * 8 * sizeof(W)});
  return {cross, product};
}

template <class W>
u64 FinalProduct<RamStore<W>>::run(const RunContext& ctx, Frame& caller, Number& x, u64 x_hash,
                                   const Hashed<Number>& y_factor, LinearHeapBuffer heap) const {
  using Transform = typename Store::Transform;
  Frame frame = caller.enter(kFunction);
  const Number& y = y_factor.number;
  const u64 n = p_ + 3;
  if (heap.size < need_.ram_bytes) throw BufferTooSmallException(kFunction, heap.size, need_.ram_bytes);
  if (x.size < need_.out_words) throw BufferTooSmallException(kFunction, x.size, need_.out_words);
  if (x.L == 0 || y.L == 0) {
    x.set_zero();
    return 0;
  }
  // Words of x and of y below their top n go; a shorter number has a shorter lower half, or none. The upper
  // half gets the hash that the number's own leaves for it, so that a change in any of its words shows.
  const u64 upper = n - half_;
  const auto halves = [&](const Hashed<Number>& factor) {
    const Number& z = factor.number;
    show_fault_point("last factor", z);
    const u64 middle = z.L > upper ? z.L - upper : 0;
    const u64 bottom = z.L > n ? z.L - n : 0;
    HashedPart<W> low{slice(z, bottom, middle), 0};
    low.hash = hash_of(low.words, ctx.parallel);
    const u64 below = hash_add(low.hash, hash_of(slice(z, 0, bottom), ctx.parallel));
    return std::pair{
        HashedPart<W>{slice(z, middle, z.L), hash_canon(hash_sub(hash_canon(factor.hash), below))}, low};
  };
  const auto [x1, x0] = halves({x, x_hash});
  const auto [y1, y0] = halves(y_factor);
  // x1 y0 and x0 y1 end below this exponent.
  const s64 cross_top = x.magnitude() + y.magnitude() - static_cast<s64>(upper);
  auto [cross, product] = cut(heap);
  bp_fill(cross.T, cross.size, 0, ctx.parallel);
  cross.L = cross.size;
  cross.exp = cross_top + 1 - static_cast<s64>(cross.size);
  cross.sign = 1;
  u64 hash = hash_mul(x1.hash, y1.hash), cross_hash = 0;
  const auto take_cross = [&](u64 product_hash) {
    show_fault_point("cross product", product);
    add_below(cross, cross_hash, {product, product_hash}, ctx.parallel);
  };
  frame.stage(
      [&] {
        const TransformHelper<W> helper(ctx.multiply(heap), product_words_);
        Transform fx;
        Transform::mul_rr_xx(helper, product, product_words_, x0.words, y1.words);
        take_cross(hash_mul(x0.hash, y1.hash));
        Transform::mul_rr_xf(helper, product, product_words_, y0.words, x1.words, fx);
        take_cross(hash_mul(y0.hash, x1.hash));
        Transform::mul_rf_xf(helper, x, product_words_, y1.words, fx);
      },
      x, cross);
  cross.strip_top_zeros(ctx.parallel);
  show_fault_point("cross sum", cross);
  add_below(x, hash, {cross, cross_hash}, ctx.parallel);
  show_fault_point("last product", x);
  require_hash<Number>({x, hash}, caller_, kProductMismatch, ctx.parallel);
  return hash;
}

template class FinalProduct<RamStore<u32>>;
template class FinalProduct<RamStore<u64>>;

}  // namespace orl
