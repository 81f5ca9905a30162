// The steps of a division by a ShoupDivider, with its fields in registers.
#pragma once

#include "words/shoup_divider.h"
#include "words/word_loops.h"

namespace orl {

/// For one loop; the compiler keeps the fields in registers.
template <class W>
class ShoupStep {
 public:
  /// For arrays of W.
  explicit ShoupStep(const ShoupDivider<W>& s) : d_(s.divisor), lo_(s.inverse_lo), hi_(s.inverse_hi) {}

  // Quotient of r * W, r < d; r becomes the remainder. The reciprocal is W^2 / d less a fraction, which costs
  // r * W / d less than r / W < 1/2; the cut product costs less than 1. So the remainder before correction
  // lies below 1.5 d, and below W since d < W / 2.
  W extend(W& r) const {
    W q = static_cast<W>(r * hi_ + high_product(r, lo_));
    r = static_cast<W>(W{0} - q * d_);
    correct(q, r);
    return q;
  }
  // Quotient of r * W + x. x / d from the high word alone is short by less than 2.
  W divide(W& r, W x) const {
    W qx = high_product(x, hi_);
    W rx = static_cast<W>(x - qx * d_);
    correct(qx, rx);
    W q = extend(r);
    r = static_cast<W>(r + rx);
    q = static_cast<W>(q + qx);
    correct(q, r);
    return q;
  }

 private:
  static W high_product(W a, W b) {
    return static_cast<W>(word_loops::Double<W>{a} * b >> word_loops::kBits<W>);
  }
  // r in [0, 2 d) becomes r - d, and q one more, when r >= d. The top bit of d is clear, so the sign of r - d
  // tells, and the correction needs no branch.
  void correct(W& q, W& r) const {
    const W low = static_cast<W>(r - d_);
    const W keep = static_cast<W>(W{0} - (low >> (word_loops::kBits<W> - 1)));
    r = static_cast<W>(low + (d_ & keep));
    q = static_cast<W>(q + 1 + keep);
  }

  W d_, lo_, hi_;
};

}  // namespace orl
