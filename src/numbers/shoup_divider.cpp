#include "numbers/shoup_divider.h"

#include "frame/exceptions.h"
#include "numbers/word_loops.h"

namespace orl {
namespace {

using word_loops::Double;
using word_loops::kBits;

template <class W>
W high_product(W a, W b) {
  return static_cast<W>(Double<W>{a} * b >> kBits<W>);
}

// 1 in every bit when the top bit of x is set.
template <class W>
W sign_mask(W x) {
  return W{0} - (x >> (kBits<W> - 1));
}

// The steps of one division, with the fields in registers.
template <class W>
struct Step {
  explicit Step(const ShoupDivider<W>& s) : d(s.divisor), lo(s.inverse_lo), hi(s.inverse_hi) {}

  // Quotient of r * W, r < d; r becomes the remainder. The reciprocal is W^2 / d less a fraction, which costs
  // r * W / d less than r / W < 1/2; the cut product costs less than 1. So the remainder before correction
  // lies below 1.5 d, and below W since d < W / 2.
  W extend(W& r) const {
    W q = static_cast<W>(r * hi + high_product(r, lo));
    r = static_cast<W>(W{0} - q * d);
    correct(q, r);
    return q;
  }
  // Quotient of r * W + x. x / d from the high word alone is short by less than 2.
  W divide(W& r, W x) const {
    W qx = high_product(x, hi);
    W rx = static_cast<W>(x - qx * d);
    correct(qx, rx);
    W q = extend(r);
    r = static_cast<W>(r + rx);
    q = static_cast<W>(q + qx);
    correct(q, r);
    return q;
  }
  // r in [0, 2 d) becomes r - d, and q one more, when r >= d; the top bit of d is clear.
  void correct(W& q, W& r) const {
    const W low = static_cast<W>(r - d);
    const W keep = sign_mask(low);
    r = static_cast<W>(low + (d & keep));
    q = static_cast<W>(q + 1 + keep);
  }

  W d, lo, hi;
};

template <class W>
void check_top(const ShoupDivider<W>& s, W top, const char* function) {
  if (top >= s.divisor) throw InvalidParametersException(function, "Top word is too large.");
}

}  // namespace

template <class W>
ShoupDivider<W>::ShoupDivider(W d) : divisor(d), negative(static_cast<W>(W{0} - d)) {
  if (d >> (kBits<W> - 1)) throw InvalidParametersException("ShoupDivider()", "Divisor is too large.");
  if ((d & (d - 1)) == 0) throw InvalidParametersException("ShoupDivider()", "Untested with power-of-two.");
  const Double<W> inverse = ~Double<W>{0} / d;
  inverse_lo = static_cast<W>(inverse);
  inverse_hi = static_cast<W>(inverse >> kBits<W>);
}

template <class W>
W ShoupDivider<W>::mul(W a, W b) const {
  const Double<W> product = Double<W>{a} * b;
  W r = static_cast<W>(product >> kBits<W>);  // < d
  Step<W>(*this).divide(r, static_cast<W>(product));
  return r;
}

template <class W>
W ShoupDivider<W>::pow_base(u64 n) const {
  if (n == 0) return 1;  // d >= 3
  const W base = static_cast<W>(inverse_hi * negative);
  W power = base;
  for (int bit = 62 - __builtin_clzll(n); bit >= 0; --bit) {
    power = mul(power, power);
    if (n >> bit & 1) power = mul(power, base);
  }
  return power;
}

template <class W>
W ShoupDivider<W>::mod(const W* A, u64 L, W top) const {
  check_top(*this, top, "mod()");
  const Step<W> step(*this);
  for (u64 i = L; i-- > 0;) step.divide(top, A[i]);
  return top;
}

template <class W>
W ShoupDivider<W>::divmod(W* T, u64 L, W top) const {
  check_top(*this, top, "divmod()");
  const Step<W> step(*this);
  for (u64 i = L; i-- > 0;) T[i] = step.extend(top);
  return top;
}

template <class W>
W ShoupDivider<W>::divmod(W* T, const W* A, u64 L, W top) const {
  check_top(*this, top, "divmod(A)");
  const Step<W> step(*this);
  for (u64 i = L; i-- > 0;) T[i] = step.divide(top, A[i]);
  return top;
}

template struct ShoupDivider<u32>;
template struct ShoupDivider<u64>;

}  // namespace orl
