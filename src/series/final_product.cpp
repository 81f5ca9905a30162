#include "series/final_product.h"

#include <algorithm>

#include "frame/exceptions.h"
#include "numbers/transform.h"
#include "numbers/words.h"

namespace orl {
namespace {

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

/// x += c, c at most as high as x and cut at the bottom of x; x has a free word above its top.
template <class W>
void add_below(BigFloat<W>& x, const BigFloat<W>& c, ParallelContext parallel) {
  const s64 lost = std::max<s64>(x.exp - c.exp, 0);
  if (static_cast<s64>(c.L) <= lost) return;
  const u64 length = c.L - static_cast<u64>(lost);
  const u64 at = static_cast<u64>(c.exp + lost - x.exp);
  const W carry = bp_add(x.T + at, x.T + at, c.T + lost, length, 0, parallel);
  if (carry == 0) return;
  const auto out = bp_carry<W>(1, x.T + at + length, x.L - at - length, parallel);
  if (out != 0) x.T[x.L++] = 1;
}

}  // namespace

template <class Store>
FinalProduct<Store>::FinalProduct(u64 p, u64 tds)
    : p_(p), half_((p + 3) / 2), product_words_(2 * (p + 3 - half_)) {
  const u64 partial = LinearHeapBuffer::cut_bytes<W>(half_words());
  heap_ = 2 * partial + TransformHelper<W>::max_bytes(product_words_, std::max<u64>(tds, 1));
}

template <class Store>
void FinalProduct<Store>::run(const RunContext& ctx, Number& x, const Number& y, Arena heap) const {
  using Transform = typename Store::Transform;
  const u64 n = p_ + 3;
  if (heap.size < heap_) throw BufferTooSmallException("FinalProduct::run()", heap.size, heap_);
  if (x.size < out_words()) throw BufferTooSmallException("FinalProduct::run()", x.size, out_words());
  if (x.L == 0 || y.L == 0) return x.set_zero();
  // Words of x and of y below their top n go; a shorter number has a shorter lower half, or none.
  const auto halves = [&](const Number& z) {
    const u64 upper = n - half_;
    const u64 middle = z.L > upper ? z.L - upper : 0;
    const u64 bottom = z.L > n ? z.L - n : 0;
    return std::pair{slice(z, middle, z.L), slice(z, bottom, middle)};
  };
  const auto [x1, x0] = halves(x);
  const auto [y1, y0] = halves(y);
  Number first(heap.template cut<W>(half_words()), half_words());
  Number second(heap.template cut<W>(half_words()), half_words());
  {
    const TransformHelper<W> helper(ctx.multiply(heap), product_words_);
    Transform fx;
    Transform::mul_rr_xx(helper, first, half_ + 2, x0, y1);
    Transform::mul_rr_xf(helper, second, half_ + 2, y0, x1, fx);
    Transform::mul_rf_xf(helper, x, product_words_, y1, fx);  // whole
  }
  add_below(x, first, ctx.parallel);
  add_below(x, second, ctx.parallel);
}

template class FinalProduct<RamStore<u32>>;
template class FinalProduct<RamStore<u64>>;

}  // namespace orl
