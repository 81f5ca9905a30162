#include "functions/power_ladder.h"

#include "functions/proved_window.h"

namespace orl {

template <class W>
PowerLadder<BigFloat<W>>::PowerLadder(const RunContext& ctx, u64 p, bool by_x, const Hashed<Number>& x,
                                      LinearHeapBuffer heap)
    : ctx_(ctx),
      p_(p),
      x_(x),
      whole_(lay_out(p, by_x, ctx.parallel.tds, heap)),
      helper_(ctx.multiply(heap), 2 * (p + kBigFloatExtraPrecision), kept(by_x)) {}

template <class W>
void PowerLadder<BigFloat<W>>::take(Number& r, u64& hash) {
  fault_point("power product", whole_.T, whole_.L * sizeof(W));
  hash = take_window(r, p_, whole_, "Power_uL_BigFloatR()", ctx_);
}

template <class W>
void PowerLadder<BigFloat<W>>::square(Number& r, u64& hash) {
  square_.forward(helper_, as_exact<W>({r, hash}));
  ExactFloatTransformR<W>::inverse_fsqr(helper_, whole_, square_);
  take(r, hash);
}

template <class W>
void PowerLadder<BigFloat<W>>::multiply(Number& r, u64& hash) {
  if (by_x_.L == 0) by_x_.forward(helper_, as_exact(x_), 1);
  ExactFloatTransformR<W>::mul_rf_xf(helper_, whole_, as_exact<W>({r, hash}), by_x_);
  take(r, hash);
}

template class PowerLadder<BigFloat<u32>>;
template class PowerLadder<BigFloat<u64>>;

}  // namespace orl
