#include "functions/newton_steps.h"

#include <algorithm>
#include <string>

#include "frame/exceptions.h"
#include "numbers/words.h"

namespace orl {

namespace {

[[noreturn]] void convergence_failure(const char* function, const char* side, u64 below, s64 actual) {
  throw AlgorithmFailedException(function, std::string(side) +
                                               " -> Convergence Failure:\n    Maximum Error = " +
                                               std::to_string(-static_cast<s64>(below)) +
                                               "\n    Actual Error  = " + std::to_string(actual));
}

// T += low, both positive, words under T's lowest dropped. low ends under T's top.
template <class W>
void add_below(BigFloat<W>& T, const BigFloat<W>& low, ParallelContext parallel) {
  if (low.L == 0 || low.magnitude() <= T.exp) return;
  const u64 cut = low.exp < T.exp ? static_cast<u64>(T.exp - low.exp) : 0;
  const u64 at = low.exp > T.exp ? static_cast<u64>(low.exp - T.exp) : 0;
  const u64 length = low.L - cut;
  W* words = T.T + at;
  if (bp_add(words, words, low.T + cut, length, 0, parallel) == 0) return;
  if (bp_carry<W>(1, words + length, T.L - at - length, parallel) == 0) return;
  if (T.T + T.L == T.base + T.size) throw BufferTooSmallException("mul_in_halves()", T.size, T.size + 1);
  T.T[T.L++] = 1;
}

}  // namespace

template <class W>
Estimate take_error(BigFloat<W>& e, u64 below, const char* function, ParallelContext parallel) {
  const s64 bound = 2 - static_cast<s64>(below);
  if (e.L != 0 && e.magnitude() >= 1) {
    const W top = e.T[e.L - 1];
    if (e.magnitude() > 1 || e.exp > 0 || top != 1)
      throw AlgorithmFailedException(function, "Convergence Failure:\n    top = " + std::to_string(top));
    --e.L;
    e.strip_top_zeros(parallel);
    if (e.L == 0) return Estimate::kExact;
    if (e.magnitude() > bound) convergence_failure(function, "Over-Estimate", below, e.magnitude());
    return Estimate::kOver;
  }
  if (e.L == 0 || e.magnitude() < 0) convergence_failure(function, "Under-Estimate", below, 0);
  bp_not(e.T, e.T, e.L, parallel);
  bp_carry<W>(1, e.T, e.L, parallel);
  e.strip_top_zeros(parallel);
  if (e.L != 0 && e.magnitude() > bound)
    convergence_failure(function, "Under-Estimate", below, e.magnitude());
  return Estimate::kUnder;
}

template <class W>
void apply_correction(BigFloat<W>& y, u64 n, const BigFloat<W>& t, const BigFloat<W>& d, Estimate side,
                      ParallelContext parallel) {
  if (d.L == 0)
    y.set_BigFloat(n, t, parallel);
  else if (side == Estimate::kOver)
    y.set_usub(n + 1, t, d, parallel);
  else
    y.set_uadd(n + 1, t, d, parallel);
  y.sign = t.sign;
  y.truncate(n);
}

template <class W>
void keep_exact(BigFloat<W>& y, u64 n, const BigFloat<W>& t, ParallelContext parallel) {
  y.set_BigFloat(n, t, parallel);
  y.purturb_up(n + 1);
  y.truncate(n);
}

template <class W>
void mul_in_halves(const TransformHelper<W>& helper, BigFloat<W>& T, u64 n, u64 below, const BigFloat<W>& a,
                   BigFloatTransformR<W>& b, BigFloat<W>& low) {
  using Transform = BigFloatTransformR<W>;
  const BigFloat<W> used = top_words(a, n + 3);
  const BigFloat<W> upper = top_words(used, below + 2);
  const BigFloat<W> lower = words_below(used, below + 2);
  Transform::mul_rf_xf(helper, T, n + 1, upper, b);
  if (lower.L == 0) return;
  Transform::mul_rf_xf(helper, low, below, lower, b);
  add_below(T, low, helper.parallel());
}

#define ORVANE_INSTANTIATE(W)                                                                         \
  template Estimate take_error(BigFloat<W>&, u64, const char*, ParallelContext);                      \
  template void apply_correction(BigFloat<W>&, u64, const BigFloat<W>&, const BigFloat<W>&, Estimate, \
                                 ParallelContext);                                                    \
  template void keep_exact(BigFloat<W>&, u64, const BigFloat<W>&, ParallelContext);                   \
  template void mul_in_halves(const TransformHelper<W>&, BigFloat<W>&, u64, u64, const BigFloat<W>&,  \
                              BigFloatTransformR<W>&, BigFloat<W>&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
