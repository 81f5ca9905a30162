// Proof of a quotient or of an inverse root: multiplied back, it must give what it was made from.
//
// A Newton iteration proves the estimate of each level by the next one; nothing proves the last correction.
// So a - q b, or 1 - w y^2, is formed once. Only its size matters, and it is known to be small: of the
// product the words above are those of a (or of 1), so it is taken modulo W^n - 1, with n a few words above
// the precision p. A residual that is larger than the bound of newton.cpp leaves words that are neither all
// zero nor all ones above it; a random one passes with a chance of W^-4.
//
// Cost     one product of n words where the shape multiplies modulo W^n - 1; four of them, taken in halves,
//          where it does not, so that no product is longer than n + 1 words.
// Threads  a plan may be shared; its heap belongs to one run.
#pragma once

#include "numbers/big_float.h"
#include "numbers/ram_store.h"
#include "numbers/run_context.h"

namespace orl {

template <class W>
class Residual {
 public:
  enum class Of { kQuotient, kInverseRoot };

  /// Results of precision p, as Division_BigFloatR or InvsqrtWord_BigFloatR gives them; p >= 1.
  Residual(Of kind, u64 p, u64 tds);

  Need need() const { return need_; }

  /// Throws AlgorithmFailedException "Residual is too large. Division failed." unless q is a / b.
  void check_quotient(const RunContext& ctx, const BigFloat<W>& q, const BigFloat<W>& a, const BigFloat<W>& b,
                      LinearHeapBuffer heap) const;
  /// Throws AlgorithmFailedException "Residual is too large. Inverse root failed." unless y is 1/sqrt(w).
  void check_inverse_root(const RunContext& ctx, const BigFloat<W>& y, W w, LinearHeapBuffer heap) const;

 private:
  BigFloat<W> wrapped_product(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                              LinearHeapBuffer heap) const;
  W* product_of_shape(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                      LinearHeapBuffer heap) const;
  W* product_in_halves(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y,
                       LinearHeapBuffer heap) const;

  u64 p_;
  u64 n_;          ///< words of the ring
  u64 half_ = 0;   ///< words of a half; 0 when the shape multiplies modulo W^n - 1
  u64 areas_ = 2;  ///< transforms held at once
  Need need_;
};

}  // namespace orl
