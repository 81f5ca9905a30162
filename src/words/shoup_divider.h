// Division of arrays by one word through its precomputed reciprocal.
//
// V. Shoup's form: the reciprocal has two words, so that the quotient of r * W by d comes from two products
// by the reciprocal, and a remainder from one product by -d.
#pragma once

#include "core/types.h"

namespace orl {

/// One divisor d: not a power of two, top bit clear. W is u32 or u64. Immutable; may be shared.
template <class W>
struct ShoupDivider {
  W divisor;
  W negative;    ///< W^1 - d
  W inverse_lo;  ///< floor((W^2 - 1) / d), low word
  W inverse_hi;  ///< high word, which is floor((W - 1) / d)

  /// Throws InvalidParametersException "Divisor is too large." when the top bit is set and
  /// "Untested with power-of-two." when d is one.
  explicit ShoupDivider(W d);

  /// a + b mod d; a, b < d.
  W add(W a, W b) const {
    const W s = a + b;
    return s >= divisor ? s - divisor : s;
  }
  /// a * b mod d; a, b < d.
  W mul(W a, W b) const;
  /// (2^bits of W)^n mod d.
  W pow_base(u64 n) const;

  /// The remainder of top * W^L + A[0, L). Throws InvalidParametersException "Top word is too large." unless
  /// top < d; so do the two below.
  W mod(const W* A, u64 L, W top) const;
  /// T[0, L) = floor(top * W^L / d); returns the remainder.
  W divmod(W* T, u64 L, W top) const;
  /// T[0, L) = floor((top * W^L + A[0, L)) / d); returns the remainder. T may equal A.
  W divmod(W* T, const W* A, u64 L, W top) const;
};

extern template struct ShoupDivider<u32>;
extern template struct ShoupDivider<u64>;

}  // namespace orl
