#include "functions/newton_small.h"

#include <cmath>

#include "core/exceptions.h"
#include "functions/newton_steps.h"

namespace orl {

namespace {

u64 level_below(u64 n) { return n < 3 ? n - 1 : (n + 1) >> 1; }

MultiplyContext single(const MultiplyContext& ctx) {
  return {ctx.parallel.with_tds(1), ctx.tables, ctx.scratch};
}

template <class W>
BigFloat<W> cut_number(LinearWordBuffer<W>& small, u64 words) {
  return BigFloat<W>(small.cut_from_bottom(words), words);
}

// One level: `lower` leaves y right to about half of n words, `residual` makes of the copy t of y what would
// be 1 if y were exact, in y itself; a root takes half of the error.
template <class W, class Lower, class Residual>
void refine(const MultiplyContext& ctx, const char* function, BigFloat<W>& y, u64 n, bool root,
            LinearWordBuffer<W> small, Lower lower, Residual residual) {
  const u64 h = level_below(n);
  const MultiplyContext one = single(ctx);
  lower(one, h);
  BigFloat<W> t = cut_number(small, h + 3);
  BigFloat<W> d = cut_number(small, h + 3);
  t.set_BigFloat(h + 1, y, one.parallel);
  residual(one, t, small);
  const Estimate side = take_error(y, h, function, one.parallel);
  if (side == Estimate::kExact) return keep_exact(y, n, t, one.parallel);
  if (root) y.mp2(-1, one.parallel);
  d.set_mul_small(h + 1, y, t, one);
  apply_correction(y, n, t, d, side, one.parallel);
}

}  // namespace

u64 newton_small_words(u64 n) {
  if (n == 0) return 0;
  const u64 h = level_below(n);
  return (h + 3) + (h + 3) + (n + 3);
}

template <class W>
void InvsqrtWord_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, W w, u64 n,
                             LinearWordBuffer<W> small) {
  constexpr const char* kFunction = "InvsqrtWord_BigFloatR_E()";
  if (w == 0) throw ArithmeticException(kFunction, "Divide by zero.");
  if (n == 0) {
    y.set_double(1.0 / std::sqrt(static_cast<double>(w)));
    return;
  }
  refine(
      ctx, kFunction, y, n, true, small,
      [&](const MultiplyContext& one, u64 h) { InvsqrtWord_BigFloatR_E(one, y, w, h, small); },
      [&](const MultiplyContext& one, const BigFloat<W>& t, LinearWordBuffer<W>) {
        y.set_sqr(n + 1, t, one);
        y.mul_uW(w, one.parallel);
      });
}

template <class W>
void InvsqrtFloat_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                              LinearWordBuffer<W> small) {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR_E()";
  if (a.L == 0) throw ArithmeticException(kFunction, "Divide by zero.");
  if (a.signum() < 0) throw UnsupportedNegativeException(kFunction, "A negative value was encountered.");
  if (n == 0) {
    s64 exponent;
    double x = a.to_double(&exponent);
    if (exponent % 2 != 0) {
      x = std::ldexp(x, -8 * static_cast<int>(sizeof(W)));
      ++exponent;
    }
    y.set_double(1.0 / std::sqrt(x), -exponent / 2);
    return;
  }
  refine(
      ctx, kFunction, y, n, true, small,
      [&](const MultiplyContext& one, u64 h) { InvsqrtFloat_BigFloatR_E(one, y, a, h, small); },
      [&](const MultiplyContext& one, const BigFloat<W>& t, LinearWordBuffer<W> rest) {
        BigFloat<W> square = cut_number(rest, n + 3);
        square.set_sqr(n + 1, t, one);
        y.set_mul_small(n + 1, a, square, one);
      });
}

template <class W>
void Reciprocal_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                            LinearWordBuffer<W> small) {
  constexpr const char* kFunction = "Reciprocal_BigFloatR_E()";
  if (n == 0) {
    s64 exponent = 0;
    const double x = a.to_double(&exponent);
    if (x == 0.0) throw ArithmeticException(kFunction, "Divide by zero.");
    y.set_double(1.0 / x, -exponent);
    return;
  }
  refine(
      ctx, kFunction, y, n, false, small,
      [&](const MultiplyContext& one, u64 h) { Reciprocal_BigFloatR_E(one, y, a, h, small); },
      [&](const MultiplyContext& one, const BigFloat<W>& t, LinearWordBuffer<W>) {
        y.set_mul_small(n + 1, a, t, one);
      });
}

#define ORVANE_INSTANTIATE(W)                                                                               \
  template void InvsqrtWord_BigFloatR_E(const MultiplyContext&, BigFloat<W>&, W, u64, LinearWordBuffer<W>); \
  template void InvsqrtFloat_BigFloatR_E(const MultiplyContext&, BigFloat<W>&, const BigFloat<W>&, u64,     \
                                         LinearWordBuffer<W>);                                              \
  template void Reciprocal_BigFloatR_E(const MultiplyContext&, BigFloat<W>&, const BigFloat<W>&, u64,       \
                                       LinearWordBuffer<W>);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
