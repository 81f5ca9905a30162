#include "functions/newton_steps.h"

#include <string>

#include "core/exceptions.h"
#include "words/words.h"

namespace orl {

void convergence_failure(const char* function, const char* side, u64 below, s64 actual) {
  throw AlgorithmFailedException(function, std::string(side) +
                                               " -> Convergence Failure:\n    Maximum Error = " +
                                               std::to_string(-static_cast<s64>(below)) +
                                               "\n    Actual Error  = " + std::to_string(actual));
}

template <class W>
Estimate take_error(BigFloat<W>& e, u64 below, const char* function, ParallelContext parallel) {
  const s64 bound = error_bound(below);
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
  if (d.L == 0 || side == Estimate::kExact)
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
void add_below(BigFloat<W>& x, const BigFloat<W>& c, ParallelContext parallel) {
  if (c.L == 0 || c.magnitude() <= x.exp) return;
  const u64 cut = c.exp < x.exp ? static_cast<u64>(x.exp - c.exp) : 0;
  const u64 at = c.exp > x.exp ? static_cast<u64>(c.exp - x.exp) : 0;
  const u64 length = c.L - cut;
  W* const words = x.T + at;
  if (bp_add(words, words, c.T + cut, length, 0, parallel) == 0) return;
  if (bp_carry<W>(1, words + length, x.L - at - length, parallel) == 0) return;
  if (x.T + x.L == x.base + x.size) throw BufferTooSmallException("add_below()", x.size, x.size + 1);
  x.T[x.L++] = 1;
}

#define ORVANE_INSTANTIATE(W)                                                                         \
  template void add_below(BigFloat<W>&, const BigFloat<W>&, ParallelContext);                         \
  template Estimate take_error(BigFloat<W>&, u64, const char*, ParallelContext);                      \
  template void apply_correction(BigFloat<W>&, u64, const BigFloat<W>&, const BigFloat<W>&, Estimate, \
                                 ParallelContext);                                                    \
  template void keep_exact(BigFloat<W>&, u64, const BigFloat<W>&, ParallelContext);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
