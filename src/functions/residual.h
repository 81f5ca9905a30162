// Proof of quotients and roots: multiplied back, they must give what they were made from.
//
// A Newton iteration proves the estimate of each level by the next one; nothing proves the last correction.
// So the product x y that is ideally a is formed once more: q b for a quotient q of a and b, b^2 for a root b
// of a, w y^2 for y = 1/sqrt(w), b y for y = 1/b. Only the size of a - x y matters, and it is known to be
// small: the upper words of the product are those of a, so it is taken modulo W^n - 1, with n a few words
// above the precision p. A residual that is larger than the bound leaves words that are neither all zero nor
// all ones above it, or is folded onto low words: a bit struck in the error that an iteration applies leaves
// a residual of just that bit and of words far below it. So the residual must have the hash modulo 2^61 - 1 that
// follows from those of x, y and a: what is folded changes it, as 61 does not divide n.
//
// Bound    |a - x y| < W^(magnitude of a - p): x keeps p + 2 words, y and a are cut to p + 3, and all
//          relative errors are below c W^-(p+1) with c far below W (newton.body.h). The lowest words of the
//          product lie at the sum of the two exponents, which leaves at most p + 6 words for the residual.
// Cost     One product of n words where the shape multiplies modulo W^n - 1, whose operands and result are
//          folded besides (multiply/ring_check.h); four of them, taken in halves, where it does not, so that no
//          product is longer than n + 1 words.
// Threads  A plan may be shared; its heap belongs to one run.
#pragma once

#include "numbers/big_float.h"
#include "numbers/run_context.h"

namespace orl {

/// What a residual proves.
enum class ResidualOf {
  kProduct,  ///< a product of two numbers
  kSquare    ///< a square, which takes one transform instead of two
};

template <class Number>
class Residual;

/// The plan of one check in memory; see the head of this file.
template <class W>
class Residual<BigFloat<W>> {
 public:
  /// Results of precision p, as the plans of newton.h give them; p >= 1.
  Residual(ResidualOf kind, u64 p, u64 tds);

  Need need() const { return need_; }

  /// Throws AlgorithmFailedException `function`, "Residual is too large. Division failed." unless q is a / b.
  void check_quotient(const RunContext& ctx, const BigFloat<W>& q, const BigFloat<W>& a, const BigFloat<W>& b,
                      LinearHeapBuffer heap) const;
  /// Throws AlgorithmFailedException "Residual is too large. Square root failed." unless b is sqrt(a).
  void check_square_root(const RunContext& ctx, const BigFloat<W>& b, const BigFloat<W>& a,
                         LinearHeapBuffer heap) const;
  /// Throws AlgorithmFailedException "Residual is too large. Inverse root failed." unless y is 1/sqrt(w).
  void check_inverse_root(const RunContext& ctx, const BigFloat<W>& y, W w, LinearHeapBuffer heap) const;
  /// As above unless y is 1/b, where b is the root of the number that y was made from.
  void check_inverse_root(const RunContext& ctx, const BigFloat<W>& y, const BigFloat<W>& b,
                          LinearHeapBuffer heap) const;

 private:
  struct Areas {
    W* product;  ///< of the ring; null where the second transform makes room for it
    W* part;     ///< a product of two halves
    void* transforms[2];
    void* tmp;
  };
  template <class Arena>
  Areas lay_out(Arena& arena, const MultiplySizes& sizes) const;

  bool leaves_little(const RunContext& ctx, const BigFloat<W>& x, const BigFloat<W>& y, W w,
                     const BigFloat<W>& ideal, LinearHeapBuffer heap) const;
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

template <class W>
using RamResidual = Residual<BigFloat<W>>;

}  // namespace orl
