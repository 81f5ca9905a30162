#include "splitting/outer_sum.h"

#include <algorithm>

#include "core/exceptions.h"
#include "splitting/exact_steps.h"

namespace orl {
namespace {

u64 magnitude_of(s64 w) { return w < 0 ? u64{0} - static_cast<u64>(w) : static_cast<u64>(w); }

/// x = a * w, every word of it; x holds a.L + 2 words of u32, one less of u64.
template <class W>
void set_product(ExactFloat<W>& x, const ExactFloat<W>& a, s64 w, ParallelContext parallel) {
  if (w == 0 || a.L == 0) return x.set_zero();
  BigFloat<W> product(x.base, x.size);
  product.set_mul_sL(a.L, RamStore<W>::as_number(a), w, parallel);
  x.T = product.T;
  x.L = product.L;
  x.exp = product.exp;
  x.sign = product.sign;
  const u64 hash = hash_mul(a.hash, magnitude_of(w));
  x.hash = w < 0 ? hash_neg(hash) : hash;
}

/// x *= w in place where a word holds w, by way of `aside` where it does not.
template <class W>
void multiply(ExactFloat<W>& x, s64 w, ExactFloat<W> aside, ParallelContext parallel) {
  const u64 magnitude = magnitude_of(w);
  if (magnitude == static_cast<W>(magnitude)) {
    x.mul_uW(static_cast<W>(magnitude), parallel);
    if (w < 0) x.negate();
    return;
  }
  set_product(aside, x, w, parallel);
  x.T = x.base;
  x.set_ExactFloat(aside, parallel);
}

}  // namespace

template <class W>
OuterSum<RamStore<W>>::OuterSum(const SeriesCoefficients& coefficients, u64 p, u64 fraction_words)
    : coefficients_(coefficients),
      p_(p),
      d_words_(round_up_8(fraction_words + 2)),
      n_words_(round_up_8(p + 5)) {
  if (coefficients.P == 0 || coefficients.D == 0 || coefficients.D >> 63 != 0)
    throw InvalidParametersException("PSR_SeriesB()", "A coefficient is out of range.");
}

template <class W>
void OuterSum<RamStore<W>>::run(const RunContext& ctx, Fraction& fraction, Outer& outer,
                                LinearHeapBuffer heap) const {
  const ParallelContext parallel = ctx.parallel;
  ExactFloat<W> n = cut_all(heap).work;
  ExactFloat<W> t = fraction.T, u = fraction.U;
  t.size = u.size = d_words_;
  multiply(t, coefficients_.P, n, parallel);
  set_product(n, u, coefficients_.Q, parallel);
  add_exact(n, t, false, parallel);
  cut_exact(n, p_ + 3, parallel);
  move_exact(n, outer.n.base, n_words_, parallel);
  move_exact(u, outer.d.base, d_words_, parallel);
  // Behind n, where T and the work were.
  const ExactFloat<W> aside(n.base + n_words_, d_words_ + 2);
  multiply(u, static_cast<s64>(coefficients_.D), aside, parallel);
  show_fault_point("outer sum", n);
  show_fault_point("outer sum", u);
  outer = {RamStore<W>::as_number(n), RamStore<W>::as_number(u), n.hash, u.hash};
}

template class OuterSum<RamStore<u32>>;
template class OuterSum<RamStore<u64>>;

}  // namespace orl
